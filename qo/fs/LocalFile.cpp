#include "qo/fs/LocalFile.h"

#include "qo/core/CFileSystemError.h"
#include "qo/core/CSystemError.h"
#include "qo/core/TFlags.h"
#include "qo/fs/CLocalFileStream.h"
#include "qo/fs/CUnixPathTraits.h"
#include "qo/fs/CWindowsPathTraits.h"
#include "qo/fs/TPathImpl.h"
#include "qo/platform/File.h"
#include "qo/platform/FileSystem.h"
#include "qo/platform/Yield.h"
#include "qo/stream/IIOStream.h"
#include "qo/stream/StreamError.h"

#include <utility>

namespace qo {

using platform::SysError;

namespace detail {

CIOError makeLocalFileError(long long kind, char const* place, char const* windowsApi, SysError const& sys,
                            CURI const& uri, CProps props) {
  CSystemError const cause(u"A file operation of the system failed.", String(place), String(windowsApi), sys);
  int problem = CFileSystemError::kUnknown;
  switch (platform::fileErrorKind(sys)) {
    case platform::FileErrorKind::NotFound: problem = CFileSystemError::kNotFound; break;
    case platform::FileErrorKind::AccessDenied: problem = CFileSystemError::kAccessDenied; break;
    case platform::FileErrorKind::AlreadyExists: problem = CFileSystemError::kAlreadyExists; break;
    case platform::FileErrorKind::IsFolder: problem = CFileSystemError::kWrongKind; break;
    case platform::FileErrorKind::NoSpace: problem = CFileSystemError::kNoSpace; break;
    case platform::FileErrorKind::SharingViolation:
    case platform::FileErrorKind::LockConflict:
      problem = CFileSystemError::kLockConflict;
      props.addBool(IIOStream::errParamLockConflict(), true);
      break;
    case platform::FileErrorKind::Other: break;
  }
  if (problem != CFileSystemError::kUnknown) props.addLong(CFileSystemError::paramFileSysProblem(), problem);
  CIOError error(kind, String(), withStreamURI(std::move(props), uri), &cause);
  error.addTrace(String(place));
  return error;
}

}  // namespace detail

namespace {

String absolutePath(String const& path) {
  std::u16string absolute;
  if (platform::fileAbsolutePath(path.data(), path.length(), absolute)) return path;
  return String(std::move(absolute));
}

}  // namespace

CURI localFileURI(String const& path) {
  try {
    String const absolute = absolutePath(path);
    if (platform::fileUsesWindowsPaths()) return CURI(TPathImpl<CWindowsPathTraits>(absolute), false);
    return CURI(TPathImpl<CUnixPathTraits>(absolute), false);
  } catch (...) {
    return CURI();
  }
}

String localFileAPIPath(String const& path) {
  if (!platform::fileUsesWindowsPaths()) return path;
  try {
    String const absolute = absolutePath(path);
    if (CWindowsPathTraits::mustAddLongPathPrefix(absolute)) return TPathImpl<CWindowsPathTraits>(absolute).toAPIPath();
  } catch (...) {
    // The OS gets the text as it is and reports what is wrong with it.
  }
  return path;
}

bool localPathsAreWindowsPaths() { return platform::fileUsesWindowsPaths(); }

bool localFileSharingIsEnforced() { return platform::fileEnforcesSharing(); }

bool deleteLocalFile(String const& path, int attempts) {
  String const apiPath = localFileAPIPath(path);
  if (attempts < 1) attempts = 1;
  for (int attempt = 1;; ++attempt) {
    SysError const e = platform::fileDelete(apiPath.data(), apiPath.length());
    if (!e) return true;
    // Gone after a busy try: whoever held it deleted it, which is what the
    // caller wanted; only a first "not found" means there was nothing.
    if (platform::fileErrorKind(e) == platform::FileErrorKind::NotFound) return attempt > 1;
    if (attempt >= attempts || !platform::fileDeleteMayRetry(e)) {
      throw detail::makeLocalFileError(CIOError::kDeleteFailed, "deleteLocalFile", "DeleteFileW", e,
                                       localFileURI(path), CProps().addLong(u"attempts", attempt));
    }
    platform::sleepMillis(static_cast<unsigned>(attempt < 10 ? 10 * attempt : 100));
  }
}

void replaceLocalFile(String const& from, String const& to) {
  String const apiFrom = localFileAPIPath(from);
  String const apiTo = localFileAPIPath(to);
  SysError const e = platform::fsRename(apiFrom.str(), apiTo.str(), true);
  if (e) {
    throw detail::makeLocalFileError(CIOError::kMoveFailed, "replaceLocalFile", "MoveFileExW", e, localFileURI(to),
                                     CProps().add(u"from", from));
  }
}

bool localFileExists(String const& path) {
  String const apiPath = localFileAPIPath(path);
  return platform::fileIsRegular(apiPath.data(), apiPath.length());
}

std::string readLocalFile(String const& path) {
  CLocalFileStream in(path, IIOStream::AccessReadOnly,
                      TFlags<IIOStream::Flags>{IIOStream::FlagShareRead, IIOStream::FlagShareWrite,
                                               IIOStream::FlagSequential});
  std::string bytes;
  long long const length = in.getLength();
  if (length > 0 && static_cast<unsigned long long>(length) < bytes.max_size()) {
    bytes.reserve(static_cast<std::size_t>(length));
  }
  // Read to the end rather than to the length: the file may grow meanwhile.
  char chunk[65536];
  while (int const got = in.readLax(chunk, static_cast<int>(sizeof chunk))) bytes.append(chunk, static_cast<std::size_t>(got));
  in.close();
  return bytes;
}

void writeLocalFile(String const& path, void const* data, std::size_t size) {
  CLocalFileStream out(path, IIOStream::AccessWriteOnly,
                       TFlags<IIOStream::Flags>{IIOStream::FlagCreate, IIOStream::FlagTruncate});
  auto const* bytes = static_cast<unsigned char const*>(data);
  while (size > 0) {
    int const chunk = size > 0x40000000u ? 0x40000000 : static_cast<int>(size);
    out.write(bytes, chunk);
    bytes += chunk;
    size -= static_cast<std::size_t>(chunk);
  }
  out.flush();
  out.close();
}

}  // namespace qo
