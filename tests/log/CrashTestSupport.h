// tests/log/CrashTestSupport.h - folders, files and outside tools for the
// crash-handling tests.
#ifndef QO_TESTS_LOG_CRASHTESTSUPPORT_H
#define QO_TESTS_LOG_CRASHTESTSUPPORT_H

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "qo/core/String.h"
#include "qo/fs/CWindowsPathTraits.h"
#include "qo/fs/TPathImpl.h"
#include "qo/log/CQuickXMLChecker.h"

#if defined(__GNUC__) || defined(__clang__)
// The faults must reach the hooks as faults, not as sanitizer reports. Not
// instrumented for ThreadSanitizer either: threads faulting on the same
// address at once would be reported as a race on it, and that report can
// deadlock against the sanitizer's own handling of the deadly signal.
#  define QO_CRASHER __attribute__((noinline, no_sanitize("undefined", "thread")))
#else
#  define QO_CRASHER
#endif

namespace qo::crashtest {

namespace fs = std::filesystem;
using WinPath = TPathImpl<CWindowsPathTraits>;

inline int* volatile g_null = nullptr;
/// Writes through a null pointer: an access violation at address 0.
QO_CRASHER inline void crashByNullPointer() { *g_null = 1; }

/// One token per test run, shared with death-test children through the
/// environment (they run the test body again and must find the same folder).
inline std::string runToken() {
  if (char const* token = std::getenv("QO_CRASH_TEST_RUN")) return token;
  std::string const token = std::to_string(std::chrono::steady_clock::now().time_since_epoch().count());
#ifdef _WIN32
  _putenv_s("QO_CRASH_TEST_RUN", token.c_str());
#else
  setenv("QO_CRASH_TEST_RUN", token.c_str(), 1);
#endif
  return token;
}

/// A fresh folder for one test, removed when the object ends.
class TempFolder {
public:
  explicit TempFolder(std::string const& name)
      : m_path(fs::path(::testing::TempDir()) / ("qo-crash-" + runToken() + "-" + name)) {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
  }
  ~TempFolder() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
  }
  TempFolder(TempFolder const&) = delete;
  TempFolder& operator=(TempFolder const&) = delete;

  fs::path const& path() const { return m_path; }
  fs::path file(std::string const& name) const { return m_path / name; }
  /// The folder (or a file in it) as the library's path type.
  WinPath qoPath(std::string const& name = std::string()) const {
    fs::path const p = name.empty() ? m_path : m_path / name;
    return WinPath(String::fromUTF8(p.u8string()));
  }
  /// The names in the folder, sorted.
  std::vector<std::string> names() const {
    std::vector<std::string> result;
    std::error_code error;
    for (auto const& entry : fs::directory_iterator(m_path, error)) {
      result.push_back(entry.path().filename().u8string());
    }
    std::sort(result.begin(), result.end());
    return result;
  }

private:
  fs::path m_path;
};

inline std::string readFile(fs::path const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeFile(fs::path const& path, std::string const& bytes) {
  std::ofstream out(path, std::ios::binary);
  out << bytes;
}

/// The wide text of a NUL-terminated buffer, as UTF-8.
inline std::string utf8(wchar_t const* text) { return String(text).toUTF8(); }

/// Whether xmllint can be run from this program.
inline bool haveXmllint() {
#ifdef _WIN32
  return false;  // a Linux tool; a Windows program (under Wine too) cannot start it
#else
  return std::system("xmllint --version >/dev/null 2>&1") == 0;
#endif
}

/// Runs `xmllint --noout` on the bytes; the empty text when they are well
/// formed, xmllint's complaint otherwise.
inline std::string xmllintErrors(fs::path const& folder, std::string const& bytes) {
  fs::path const file = folder / "xmllint-input.xml";
  writeFile(file, bytes);
  fs::path const errors = folder / "xmllint-errors.txt";
  std::string const command = "xmllint --noout '" + file.u8string() + "' >'" + errors.u8string() + "' 2>&1";
  int const status = std::system(command.c_str());
  std::string text = readFile(errors);
  if (status != 0 && text.empty()) text = "xmllint failed";
  return status == 0 ? std::string() : text;
}

/// Checks that the document is well formed: with xmllint where a program
/// can run it, with the library's own light check elsewhere (under Wine).
#define QO_EXPECT_WELL_FORMED(folder, document)                                         \
  do {                                                                                  \
    if (::qo::crashtest::haveXmllint()) {                                               \
      EXPECT_EQ("", ::qo::crashtest::xmllintErrors(folder, document)) << document;      \
    } else {                                                                            \
      EXPECT_TRUE(::qo::CQuickXMLChecker(::qo::String::fromUTF8(document)).doCheck())   \
          << document;                                                                  \
    }                                                                                   \
  } while (false)

}  // namespace qo::crashtest

#endif  // QO_TESTS_LOG_CRASHTESTSUPPORT_H
