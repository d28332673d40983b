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
#include "TempFolder.h"

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

inline long long problemOf(CError const& e) { return CFileSystemError::getProblem(e.getParams()); }

}  // namespace qo::localfiletest

#endif  // QO_TESTS_FS_LOCALFILETESTSUPPORT_H
