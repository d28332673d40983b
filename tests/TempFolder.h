// tests/TempFolder.h - a fresh temporary folder per test, removed when the
// test ends, for the suites that work on real files.
#ifndef QO_TESTS_TEMPFOLDER_H
#define QO_TESTS_TEMPFOLDER_H

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <system_error>

#include "qo/core/String.h"

namespace qo::test {

/// A fresh folder for one test, removed when the object ends.
class TempFolder {
public:
  explicit TempFolder(std::string const& prefix = "qo-test") {
    static std::atomic<int> g_counter{0};
    auto const stamp = std::chrono::steady_clock::now().time_since_epoch().count();
    m_path = std::filesystem::path(::testing::TempDir()) /
             (prefix + "-" + std::to_string(stamp) + "-" + std::to_string(g_counter.fetch_add(1)));
    std::filesystem::create_directories(m_path);
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  TempFolder(TempFolder const&) = delete;
  TempFolder& operator=(TempFolder const&) = delete;

  std::filesystem::path const& folder() const { return m_path; }
  /// name (UTF-8) inside the folder.
  std::filesystem::path file(std::string const& name) const { return m_path / std::filesystem::u8path(name); }
  /// The folder as the library's native path.
  String path() const { return String::fromUTF8(m_path.u8string()); }
  /// name (UTF-8) inside the folder as the library's native path.
  String path(std::string const& name) const { return String::fromUTF8(file(name).u8string()); }

private:
  std::filesystem::path m_path;
};

}  // namespace qo::test

#endif  // QO_TESTS_TEMPFOLDER_H
