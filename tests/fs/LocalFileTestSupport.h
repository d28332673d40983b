// tests/fs/LocalFileTestSupport.h - a fresh temporary folder per test and
// the expected "uri" of a native path, for the local file tests.
#ifndef QO_TESTS_FS_LOCALFILETESTSUPPORT_H
#define QO_TESTS_FS_LOCALFILETESTSUPPORT_H

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <system_error>

#include "qo/core/CError.h"
#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/core/String.h"

namespace qo::localfiletest {

namespace fs = std::filesystem;

/// A fresh folder for one test, removed when the object ends.
class TempFolder {
public:
  TempFolder() {
    static std::atomic<int> g_counter{0};
    auto const stamp = std::chrono::steady_clock::now().time_since_epoch().count();
    m_path = fs::path(::testing::TempDir()) /
             ("qo-localfile-" + std::to_string(stamp) + "-" + std::to_string(g_counter.fetch_add(1)));
    fs::create_directories(m_path);
  }
  ~TempFolder() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
  }
  TempFolder(TempFolder const&) = delete;
  TempFolder& operator=(TempFolder const&) = delete;

  fs::path const& folder() const { return m_path; }
  /// The native path of the folder itself.
  String path() const { return String::fromUTF8(m_path.u8string()); }
  /// The native path of name (UTF-8) inside the folder.
  String path(std::string const& name) const { return String::fromUTF8((m_path / fs::u8path(name)).u8string()); }

private:
  fs::path m_path;
};

/// The file URI text of an absolute native path of ASCII characters without
/// spaces: "/a/b" gives "file:///a/b", "C:\a\b" gives "file:///C:/a/b".
inline std::string fileURIText(String const& absolutePath) {
  std::string text = absolutePath.toUTF8();
  if (!text.empty() && text[0] == '/') return "file://" + text;
  for (char& c : text) {
    if (c == '\\') c = '/';
  }
  return "file:///" + text;
}

/// Runs body, which must throw a CIOError, and returns a copy of it.
template <class Body>
CIOError catchIOError(Body body) {
  try {
    body();
  } catch (CIOError const& e) {
    return e;
  } catch (CError const& e) {
    ADD_FAILURE() << "not a CIOError: " << e.what();
  }
  ADD_FAILURE() << "nothing thrown";
  return CIOError(CIOError::kUnknown);
}

inline long long problemOf(CError const& e) { return CFileSystemError::getProblem(e.getParams()); }

}  // namespace qo::localfiletest

#endif  // QO_TESTS_FS_LOCALFILETESTSUPPORT_H
