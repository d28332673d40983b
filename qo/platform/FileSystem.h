// qo/platform/FileSystem.h - path-level file-system operations (internal,
// OS-free).
//
// What is done to names rather than to open files: stat with identity and
// times, folder creation and removal, rename, copy, hard and symbolic links
// (and Windows junctions), folder listing, free space, volume roots, setting
// times, attributes and permission bits. Open files are the File service's
// (qo/platform/File.h).
//
// Windows: the wide-character API (GetFileAttributesExW, CreateFileW with
// backup semantics + GetFileInformationByHandle for identity, reparse-point
// reads and writes through DeviceIoControl, FindFirstFileExW, MoveFileExW,
// CopyFileW, CreateHardLinkW, CreateSymbolicLinkW, GetDiskFreeSpaceExW,
// GetVolumePathNameW, SetFileTime ...). Paths go to the OS as they are: the
// caller adds the long-path prefix. POSIX: lstat/stat (statx for the birth
// time where the kernel has it), mkdir, rmdir, renameat2, link, symlink,
// readlink, unlink, opendir/readdir + fstatat, statvfs, utimensat, chmod;
// paths as bytes: UTF-8, and each byte that is not UTF-8 as one lone
// surrogate U+DC80..U+DCFF both ways (other lone surrogates are refused with
// EILSEQ); EINTR retried.
//
// Times are microseconds since 1970-01-01 UTC; kFsNoTime means unknown (or,
// for setters, "leave as it is").
//
//   FsStat st;
//   if (SysError e = fsStat(path, false, st)) ...;   // not found: kind None, no error
//   if (st.kind == FsKind::Folder) ...
//
// The functions never throw and are thread-safe; a FsFolder is used by one
// thread at a time.
#ifndef QO_PLATFORM_FILESYSTEM_H
#define QO_PLATFORM_FILESYSTEM_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "qo/platform/LastError.h"

namespace qo::platform {

/// "Unknown time" / "do not change this time".
constexpr long long kFsNoTime = INT64_MIN;

/// What a name refers to.
enum class FsKind {
  None,      ///< Nothing exists there.
  File,      ///< A regular file.
  Folder,    ///< A folder.
  SymLink,   ///< A symbolic link (not followed).
  Junction,  ///< A Windows mount point / junction (not followed).
  Other,     ///< Device, pipe, socket ...
};

/// Attribute bits of FsStat::attributes and fsSetAttributes.
enum FsAttribute : unsigned {
  kFsAttrReadOnly = 1u,
  kFsAttrHidden = 2u,
  kFsAttrSystem = 4u,
  kFsAttrArchive = 8u,
};

/// What the OS knows about one name. Unknown numbers are -1 (size, mode) or
/// 0 (identities, link count).
struct FsStat {
  FsKind kind = FsKind::None;
  long long size = -1;  ///< Files: bytes; folders 0.
  long long creationMicros = kFsNoTime;
  long long writeMicros = kFsNoTime;
  long long accessMicros = kFsNoTime;
  unsigned attributes = 0;  ///< FsAttribute bits.
  int posixMode = -1;       ///< st_mode (type and permission bits); -1 on Windows.
  unsigned long long volumeId = 0;
  unsigned long long fileId = 0;
  long long linkCount = 0;
  long long ownerId = -1;  ///< POSIX user id; -1 on Windows.
  long long groupId = -1;  ///< POSIX group id; -1 on Windows.
  /// For links: the target as stored (may be relative); empty otherwise
  /// or when it could not be read.
  std::u16string linkTarget;
  /// For links: true when the link is to a folder (a junction, a Windows
  /// folder symbolic link, a POSIX link whose target is a folder).
  bool linkToFolder = false;
};

/// Classes of failure, for choosing the error a caller sees.
enum class FsErrorKind {
  Other,
  NotFound,       ///< The name, or a folder on its way, is missing.
  AlreadyExists,  ///< The target name is taken.
  AccessDenied,   ///< Permissions, a read-only object, a privilege missing.
  WrongKind,      ///< A file where a folder is needed or the reverse.
  NotEmpty,       ///< The folder still has entries.
  NoSpace,        ///< The medium is full.
  InUse,          ///< Sharing violation or lock.
  CrossDevice,    ///< The two names are on different volumes.
  Unsupported,    ///< The OS or the file system cannot do this.
  InvalidName,    ///< The name is not acceptable to the OS.
};

/// The class of an error returned by this service.
FsErrorKind fsErrorKind(SysError const& error);

/// Whether a failed call may pass when it is made again.
enum class FsTransience {
  Lasting,    ///< Making the call again fails the same way.
  Refused,    ///< Busy, a sharing violation or a lock held by another: the
              ///< OS refused before changing anything.
  Uncertain,  ///< The way to the storage failed (network gone, timed out):
              ///< the call may or may not have taken effect.
};
/// The transience of a system error code of this OS (errno on POSIX,
/// GetLastError on Windows), whichever service reported it.
FsTransience fsErrorTransience(std::uint32_t code);

/// Facts about path. Following links reports the link's target (a dangling
/// link then gives kind None). A missing name or a missing folder on its way
/// is not an error: out.kind is None.
SysError fsStat(std::u16string const& path, bool followLinks, FsStat& out);

/// Creates one folder (its parent must exist).
SysError fsCreateFolder(std::u16string const& path);
/// Removes an empty folder (on Windows also a read-only one).
SysError fsRemoveFolder(std::u16string const& path);
/// Deletes a file or a file link (on Windows also a read-only file).
SysError fsDeleteFile(std::u16string const& path);
/// Removes a link (symbolic link to a file or folder, junction) itself.
SysError fsRemoveLink(std::u16string const& path);
/// Renames from to to, replacing an existing to only when overwrite is set
/// (a folder never replaces a non-empty folder). Windows may copy a file
/// across volumes; POSIX returns a CrossDevice error instead.
SysError fsRename(std::u16string const& from, std::u16string const& to, bool overwrite);
/// Renames the file from to to durably, replacing a file at to only when
/// overwrite is set: once it returns, the new name survives a power cut.
/// POSIX: rename (renameat2 without replacing) and then fsync of to's folder;
/// Windows: MoveFileExW with MOVEFILE_WRITE_THROUGH (and
/// MOVEFILE_REPLACE_EXISTING), never copying across volumes.
SysError fsReplaceFile(std::u16string const& from, std::u16string const& to, bool overwrite);
/// Copies the file from to to with its times and permissions (attributes
/// on Windows), replacing to only when overwrite is set, and flushes the
/// copy to the medium (on Windows unless the copy is read-only). Copying a file onto itself fails without touching it.
SysError fsCopyFile(std::u16string const& from, std::u16string const& to, bool overwrite);
/// Makes link a new name of the existing file target.
SysError fsCreateHardLink(std::u16string const& link, std::u16string const& target);
/// Makes link a symbolic link holding target (taken as it is; may be
/// relative). toFolder marks a Windows folder link.
SysError fsCreateSymLink(std::u16string const& link, std::u16string const& target, bool toFolder);
/// Makes link a folder that leads to the existing folder target (absolute):
/// a junction on Windows, a symbolic link holding target on POSIX, which has
/// no hard links for folders.
SysError fsCreateJunction(std::u16string const& link, std::u16string const& target);

/// Sets the times of path; kFsNoTime leaves a time as it is. POSIX cannot
/// set the creation time and ignores it.
SysError fsSetTimes(std::u16string const& path, bool followLinks, long long creationMicros, long long writeMicros,
                    long long accessMicros);
/// Replaces the FsAttribute bits of path. Windows keeps the other attribute
/// bits; POSIX only knows read-only: set, it removes all write permission
/// bits; clear, it adds the owner's write bit when no write bit is set.
SysError fsSetAttributes(std::u16string const& path, bool followLinks, unsigned attributes);
/// Sets the permission bits (the low 12 bits of mode). Windows maps the
/// owner's write bit (0200) to the read-only attribute and ignores the rest;
/// POSIX without following links cannot change a link and does nothing.
SysError fsSetPosixMode(std::u16string const& path, bool followLinks, int mode);

/// Gives path to the POSIX user owner and group group (-1: leave as it is);
/// without followLinks a link itself. Needs the privilege to (root). Windows
/// has no such ids: an Unsupported error.
SysError fsSetOwner(std::u16string const& path, bool followLinks, long long owner, long long group);
/// Bytes the caller may still write on the volume holding path.
SysError fsFreeSpace(std::u16string const& path, long long& bytes);
/// The alignment unit of the volume holding path: the sector size on
/// Windows, the file system's fundamental block size on POSIX.
SysError fsSectorSize(std::u16string const& path, long long& bytes);
/// The root folder of the volume holding path (the path need not exist: its
/// nearest existing folder counts), with a trailing separator.
SysError fsVolumeRoot(std::u16string const& path, std::u16string& root);
/// The name of the account this process runs as.
SysError fsUserName(std::u16string& name);
/// The OS's own record of path as bytes and the record's format name:
/// what "" or "stat" gives "posix.stat" (a struct stat) on POSIX, "" or
/// "attributes" gives "win32.BY_HANDLE_FILE_INFORMATION" on Windows, where
/// "security" gives "win32.SECURITY_DESCRIPTOR" (self-relative: owner, group,
/// DACL). Another what gives an Unsupported error.
SysError fsNativeMetaData(std::u16string const& path, bool followLinks, std::u16string const& what,
                          std::string& format, std::string& bytes);
/// The extended attributes of path (without followLinks, of a link itself)
/// as names and values, into out. POSIX: llistxattr/lgetxattr (ACLs are the
/// "system.posix_acl_*" ones); a file system without them gives none.
/// Windows: an Unsupported error.
SysError fsGetExtendedAttributes(std::u16string const& path, bool followLinks,
                                 std::vector<std::pair<std::u16string, std::string>>& out);
/// Sets the extended attribute name of path to value (POSIX lsetxattr/
/// setxattr). Windows: an Unsupported error.
SysError fsSetExtendedAttribute(std::u16string const& path, bool followLinks, std::u16string const& name,
                                std::string const& value);
/// Sets the security of path from descriptor, a self-relative Windows
/// security descriptor (what fsNativeMetaData's "security" gives): its DACL,
/// and its owner and group where this process may set them (SetFileSecurityW).
/// POSIX: an Unsupported error.
SysError fsSetSecurity(std::u16string const& path, std::string const& descriptor);
/// Whether files have named sub-streams that "path:name" opens (NTFS).
bool fsHasSubStreams();

struct FsFolder;
/// Opens a listing of the folder path; on success folder is set.
SysError fsFolderOpen(std::u16string const& path, FsFolder*& folder);
/// The next entry ("." and ".." skipped): its name and what the listing
/// tells of it without following links (Windows: no identity, link count
/// or link target; POSIX: all of fsStat). At the end: done = true.
SysError fsFolderNext(FsFolder* folder, std::u16string& name, FsStat& entry, bool& done);
/// Closes a listing; null does nothing.
void fsFolderClose(FsFolder* folder);

}  // namespace qo::platform

#endif  // QO_PLATFORM_FILESYSTEM_H
