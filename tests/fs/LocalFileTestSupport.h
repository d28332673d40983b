// tests/fs/LocalFileTestSupport.h - a fresh temporary folder per test, the
// expected "uri" of a native path and facts about the test's surroundings
// (Wine, a user that permissions do not bind), for the local file tests.
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
#include "TempFolder.h"

#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace qo::localfiletest {

namespace fs = std::filesystem;

using TempFolder = qo::test::TempFolder;

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

/// True when the tests run under the Wine emulator.
inline bool runsOnWine() {
#ifdef _WIN32
  return GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
#else
  return false;
#endif
}

/// The superuser may write read-only files on POSIX, and so may Wine run by
/// the superuser, since it keeps the read-only attribute as permission bits.
inline bool bypassesPermissions() {
#ifdef _WIN32
  return runsOnWine();
#else
  return geteuid() == 0;
#endif
}

inline long long problemOf(CError const& e) { return CFileSystemError::getProblem(e.getParams()); }

}  // namespace qo::localfiletest

#endif  // QO_TESTS_FS_LOCALFILETESTSUPPORT_H
