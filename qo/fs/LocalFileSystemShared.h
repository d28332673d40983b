// qo/fs/LocalFileSystemShared.h - helpers that the sources of
// CLocalFileSystem share (internal; not installed).
//
// CLocalFileSystem.cpp holds the queries, CLocalFileSystem_Store.cpp the
// stores and copies through temporary files, CLocalFileSystem_Change.cpp
// folder creation, links, deletion and moves. Every failure the OS reports
// goes through throwOsError, so that all operations build the same errors.
#ifndef QO_FS_LOCALFILESYSTEMSHARED_H
#define QO_FS_LOCALFILESYSTEMSHARED_H

#include "qo/fs/CURI.h"
#include "qo/platform/FileSystem.h"

#include <string>

namespace qo::localfs {

/// Whether native paths are Windows paths.
bool windowsPaths();
/// The native path of a file URI (CLocalFileSystem::toNativePath).
std::u16string nativeOf(CURI const& uri);
/// A failure found by the file system itself, not reported by the OS:
/// CFileSystemError problem with "uri", "uri2" (when given) and "action".
[[noreturn]] void throwProblem(int problem, char const* action, CURI const& uri, CURI const* uri2 = nullptr);
/// The OS's failure e: a CFileSystemError when its reason is one callers
/// branch on, else a CIOError of ioKind; either way with "uri", "uri2",
/// "action" and the CSystemError as cause, whose "api" is the call e names
/// (the POSIX call) or else windowsApi.
[[noreturn]] void throwOsError(platform::SysError const& e, long long ioKind, char const* action,
                               char const* windowsApi, CURI const& uri, CURI const* uri2 = nullptr);
/// fsStat of uri; a missing object is kind None, other failures throw.
platform::FsStat statOf(CURI const& uri, bool followLinks, char const* action);
/// A fresh temporary name "~qo-<16 hex digits>.tmp" (see isTemporaryName).
String temporaryName();

}  // namespace qo::localfs

#endif  // QO_FS_LOCALFILESYSTEMSHARED_H
