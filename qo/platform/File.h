// qo/platform/File.h - open files: open, read, write, seek, size, flush,
// byte-range locks, delete (internal, OS-free).
//
// Windows: CreateFileW, ReadFile, WriteFile, SetFilePointerEx, GetFileSizeEx,
// SetEndOfFile, FlushFileBuffers, LockFileEx/UnlockFileEx, DeleteFileW; the
// path goes to the OS as it is (long-path prefixing is the caller's job).
// Appending writes pass the "end of file" offset (0xFFFFFFFF:0xFFFFFFFF) to
// WriteFile, the same as FILE_APPEND_DATA but leaving the handle able to
// change the file's length. POSIX: open/read/write/lseek/fstat/ftruncate/
// fsync, open-file-description locks (F_OFD_SETLK; they conflict also
// between two opens in one process, unlike classic fcntl locks), unlink;
// paths as bytes (UTF-8, and a byte that is not UTF-8 as one lone surrogate
// U+DC80..U+DCFF, as in FileSystem.h); EINTR is retried.
//
// Differences the callers see:
// - POSIX does not enforce the share options (fileEnforcesSharing() is
//   false); Windows refuses a conflicting open with a sharing violation.
// - POSIX has no unbuffered mode here (fileSupportsNoBuffering() is false).
// - deleteOnClose: Windows FILE_FLAG_DELETE_ON_CLOSE; POSIX unlinks the path
//   when the handle is closed.
// Folder operations belong to another service (FileSystem), not here.
//
//   FileOpenOptions o;
//   o.read = o.write = true;
//   o.creation = FileOpenOptions::OpenOrCreate;
//   FileHandle h = nullptr;
//   if (SysError e = fileOpen(path.data(), path.size(), o, h)) ...;
//   fileWrite(h, "abc", 3);
//   fileClose(h);
//
// The functions never throw. A handle is used by one thread at a time.
#ifndef QO_PLATFORM_FILE_H
#define QO_PLATFORM_FILE_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "qo/platform/LastError.h"

namespace qo::platform {

struct NativeFile;
/// Opaque owner of an open file; null when none.
using FileHandle = NativeFile*;

/// How fileOpen opens.
struct FileOpenOptions {
  /// What to do about an existing or missing file.
  enum Creation {
    OpenExisting,      ///< Fail when missing.
    OpenOrCreate,      ///< Create when missing.
    CreateNew,         ///< Fail when it exists.
    CreateOrTruncate,  ///< Create when missing, cut to 0 when it exists.
    TruncateExisting,  ///< Fail when missing, cut to 0 when it exists.
  };
  bool read = false;
  bool write = false;
  /// Every write goes to the end of the file (implies write).
  bool append = false;
  Creation creation = OpenExisting;
  bool shareRead = false;
  bool shareWrite = false;
  bool shareDelete = false;
  bool writeThrough = false;
  bool noBuffering = false;
  bool sequential = false;
  bool randomAccess = false;
  bool deleteOnClose = false;
  /// A file this open creates is readable and writable by its owner only
  /// (POSIX permission bits 0600); Windows ignores it.
  bool ownerOnly = false;
};

/// What kind of failure a SysError of this service is, for choosing the
/// error to raise.
enum class FileErrorKind {
  Other,
  NotFound,          ///< The file or a folder on its path is missing.
  AccessDenied,      ///< Permissions (or a read-only file) refuse it.
  AlreadyExists,     ///< CreateNew on an existing file.
  SharingViolation,  ///< Another open refuses sharing (Windows).
  LockConflict,      ///< A byte-range lock held by another open.
  IsFolder,          ///< The path names a folder.
  NoSpace,           ///< The medium is full.
};

/// Opens the file at the UTF-16 path of length units. On success handle is
/// set; on failure it is null.
SysError fileOpen(char16_t const* path, std::size_t length, FileOpenOptions const& options, FileHandle& handle);
/// Closes the file (and, when opened with deleteOnClose, deletes it). Null
/// does nothing. The handle is gone even when an error is returned.
SysError fileClose(FileHandle handle);
/// Reads up to size bytes at the file position, advancing it; done counts
/// them. Fewer than size only at the end of the file (0 there).
SysError fileRead(FileHandle handle, void* buffer, std::size_t size, std::size_t& done);
/// Writes all size bytes at the file position (at the end for append
/// handles), advancing it.
SysError fileWrite(FileHandle handle, void const* data, std::size_t size);
/// Sets the file position to position (>= 0; beyond the end is allowed).
SysError fileSeek(FileHandle handle, long long position);
/// The current file position.
SysError fileGetPosition(FileHandle handle, long long& position);
/// The file's length in bytes.
SysError fileGetSize(FileHandle handle, long long& size);
/// Cuts or extends (with zero bytes) the file to size; the position is kept.
SysError fileSetSize(FileHandle handle, long long size);
/// Pushes the OS's buffers of this file to the medium.
SysError fileFlush(FileHandle handle);
/// Locks [start, start + length) shared or exclusive without waiting; a
/// conflict gives an error of kind LockConflict.
SysError fileLock(FileHandle handle, long long start, long long length, bool exclusive);
/// Unlocks a range locked with fileLock (on Windows exactly that range).
SysError fileUnlock(FileHandle handle, long long start, long long length);
/// Deletes the file at the UTF-16 path of length units.
SysError fileDelete(char16_t const* path, std::size_t length);
/// Whether the path of length units names an existing regular file;
/// failures to ask count as false.
bool fileIsRegular(char16_t const* path, std::size_t length);

/// Whether the path of length units still names the open file (it was
/// not deleted or replaced meanwhile): same device and file number. A
/// missing name (or, on Windows, one pending deletion) gives false.
SysError fileIsAtPath(FileHandle handle, char16_t const* path, std::size_t length, bool& same);
/// The kind of a SysError returned by this service.
FileErrorKind fileErrorKind(SysError const& error);
/// True when a failed delete may succeed later (the file is in use).
bool fileDeleteMayRetry(SysError const& error);
/// Whether paths are Windows paths ("C:\x") rather than POSIX ones.
bool fileUsesWindowsPaths();
/// Whether the OS refuses opens that break the share options.
bool fileEnforcesSharing();
/// Whether noBuffering is honoured.
bool fileSupportsNoBuffering();
/// The absolute form of a path (against the current folder), into out;
/// POSIX only joins a relative path to the current folder, keeping ".."
/// and links as they are. Windows: GetFullPathNameW.
SysError fileAbsolutePath(char16_t const* path, std::size_t length, std::u16string& out);

}  // namespace qo::platform

#endif  // QO_PLATFORM_FILE_H
