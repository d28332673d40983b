// qo/fs/LocalFile.h - small operations on local files named by native paths.
//
// The paths are the platform's own ("C:\x\y" on Windows, "/x/y" on POSIX),
// absolute or relative to the current folder. Long Windows paths (247
// characters and more) get the long-path prefix on the way to the OS, so
// callers never add it. Failures are CIOErrors carrying the file's URI under
// "uri" and the system error as cause.
//
//   writeLocalFile(path, "abc", 3);
//   std::string bytes = readLocalFile(path);   // "abc"
//   deleteLocalFile(path, 20);                 // true: it was there
//
// Thread-safe (each call works on its own handle).
#ifndef QO_FS_LOCALFILE_H
#define QO_FS_LOCALFILE_H

#include <cstddef>
#include <string>

#include "qo/core/CIOError.h"
#include "qo/core/CProps.h"
#include "qo/core/Export.h"
#include "qo/core/String.h"
#include "qo/fs/CURI.h"

namespace qo {

namespace platform {
struct SysError;
}  // namespace platform

/// Deletes the file; tries up to attempts times (at least once), waiting a
/// short while between tries when the file is busy (on Windows a sharing
/// violation or access denied, as while a scanner holds it). Returns false
/// when the file did not exist. Throws CIOError kind 9 (with "uri" and
/// "fileSysProblem" where known) when it exists and could not be deleted.
/// Thread-safe.
QO_API bool deleteLocalFile(String const& path, int attempts = 1);
/// Renames the file from to the path to, replacing a file there in one
/// step: a reader of to finds the old file or the new one, never a mix and
/// never none (the file-system service's rename with overwrite: rename(),
/// or MoveFileExW with MOVEFILE_REPLACE_EXISTING).
/// Throws CIOError kind 8 with "uri" (of to) and "from". Thread-safe.
QO_API void replaceLocalFile(String const& from, String const& to);
/// True when path names an existing regular file (not a folder); false too
/// when the OS cannot tell. Thread-safe.
QO_API bool localFileExists(String const& path);
/// The whole file as bytes. Throws CIOError (kind 1 with "fileSysProblem" 1
/// when it does not exist, kind 2 when reading fails) with "uri".
/// Thread-safe.
QO_API std::string readLocalFile(String const& path);
/// Replaces the file's contents with size bytes at data (creating or
/// truncating it, then writing and flushing). Throws CIOError with "uri".
/// Thread-safe.
QO_API void writeLocalFile(String const& path, void const* data, std::size_t size);
/// The "file" URI of the path made absolute against the current folder;
/// the empty URI when the path has none (say, a device name). Never throws.
/// Thread-safe.
QO_API CURI localFileURI(String const& path);
/// The text handed to the OS for path: on Windows, for an absolute form of
/// 247 characters or more, that form with the long-path prefix; otherwise
/// path itself. Never throws. Thread-safe.
QO_API String localFileAPIPath(String const& path);

/// True where native paths are Windows paths ("C:\x"), false where they
/// are POSIX paths. Thread-safe.
QO_API bool localPathsAreWindowsPaths();
/// True where the OS refuses an open that breaks another open's share
/// flags (Windows); false where the share flags are only advice. Thread-safe.
QO_API bool localFileSharingIsEnforced();

namespace detail {
/// The CIOError of a failed file call: kind, the system error (as cause,
/// with "function" = place and "api" = the call sys names, which on POSIX
/// is the POSIX call, else windowsApi), "fileSysProblem" and "lockConflict"
/// derived from the system error, uri under "uri", props, place as trace
/// entry. For the library's file code. Thread-safe.
QO_API CIOError makeLocalFileError(long long kind, char const* place, char const* windowsApi,
                                   platform::SysError const& sys, CURI const& uri, CProps props);
}  // namespace detail

}  // namespace qo

#endif  // QO_FS_LOCALFILE_H
