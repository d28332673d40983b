// tests/fs/LocalFileTestSupport.h - shared helpers of the local file tests.
#ifndef QO_TESTS_FS_LOCALFILETESTSUPPORT_H
#define QO_TESTS_FS_LOCALFILETESTSUPPORT_H

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "qo/core/CError.h"
#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/core/String.h"
#include "qo/stream/CBufferStream.h"
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

constexpr int kLongWait = 60000;  // an upper bound only; passing runs are quick

/// size pseudo-random bytes, different for each seed.
inline std::string pattern(std::size_t size, unsigned seed) {
  std::string bytes(size, '\0');
  unsigned x = seed * 2654435761u + 1;
  for (char& c : bytes) {
    x = x * 1103515245u + 12345u;
    c = static_cast<char>(x >> 24);
  }
  return bytes;
}

inline P<CBufferStream> sourceOf(std::string const& bytes) {
  using Buffer = TBuffer<unsigned char>;
  P<Buffer> buffer = newP<Buffer>(reinterpret_cast<unsigned char const*>(bytes.data()),
                                  static_cast<long long>(bytes.size()));
  return newP<CBufferStream>(static_cast<Buffer const*>(buffer.get()));
}

inline std::string readFile(fs::path const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

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
