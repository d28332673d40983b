#include "qo/platform/File.h"

#include "qo/platform/posix/NativeName.h"

#include <cerrno>
#include <climits>
#include <new>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace qo::platform {

struct NativeFile {
  int fd = -1;
  bool append = false;
  std::string deletePath;  // set for deleteOnClose
};

namespace {

// api names the POSIX call that failed, or would have been made for a
// failure found before it.
SysError errorOf(int code, char const* api) { return sysErrorOf(static_cast<std::uint32_t>(code), api); }

// Paths between UTF-16 and the kernel's bytes, without loss (NativeName.h).
bool toUTF8(char16_t const* text, std::size_t length, std::string& out) { return nameToNative(text, length, out); }
std::u16string fromUTF8(std::string const& s) { return nameFromNative(s.data(), s.size()); }

SysError lockOp(FileHandle handle, short type, long long start, long long length) {
  struct flock lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = static_cast<off_t>(start);
  lock.l_len = static_cast<off_t>(length);
  lock.l_pid = 0;  // required for open-file-description locks
  while (fcntl(handle->fd, F_OFD_SETLK, &lock) != 0) {
    if (errno != EINTR) return lastSysError("fcntl");
  }
  return SysError{};
}

}  // namespace

SysError fileOpen(char16_t const* path, std::size_t length, FileOpenOptions const& options, FileHandle& handle) {
  handle = nullptr;
  std::string utf8;
  if (length == 0) return errorOf(ENOENT, "open");
  if (!toUTF8(path, length, utf8)) return errorOf(EILSEQ, "open");
  if (options.noBuffering) return errorOf(ENOTSUP, "open");
  bool const write = options.write || options.append;
  int flags = O_CLOEXEC;
  flags |= write ? (options.read ? O_RDWR : O_WRONLY) : O_RDONLY;
  if (options.append) flags |= O_APPEND;
  if (options.writeThrough) flags |= O_SYNC;
  switch (options.creation) {
    case FileOpenOptions::OpenExisting: break;
    case FileOpenOptions::OpenOrCreate: flags |= O_CREAT; break;
    case FileOpenOptions::CreateNew: flags |= O_CREAT | O_EXCL; break;
    case FileOpenOptions::CreateOrTruncate: flags |= O_CREAT | O_TRUNC; break;
    case FileOpenOptions::TruncateExisting: flags |= O_TRUNC; break;
  }
  int fd;
  do {
    fd = ::open(utf8.c_str(), flags, options.ownerOnly ? 0600 : 0666);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return lastSysError("open");
  // open() happily opens a folder for reading; a file service must not.
  struct stat st;
  if (fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
    ::close(fd);
    return errorOf(EISDIR, "open");
  }
#ifdef POSIX_FADV_SEQUENTIAL
  if (options.sequential) (void)posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
  if (options.randomAccess) (void)posix_fadvise(fd, 0, 0, POSIX_FADV_RANDOM);
#endif
  auto* file = new (std::nothrow) NativeFile;
  if (!file) {
    ::close(fd);
    return errorOf(ENOMEM, "open");
  }
  file->fd = fd;
  file->append = options.append;
  if (options.deleteOnClose) file->deletePath = std::move(utf8);
  handle = file;
  return SysError{};
}

SysError fileClose(FileHandle handle) {
  if (!handle) return SysError{};
  SysError result;
  // Unlink first: once closed, another process could already have replaced
  // the file under the same name.
  if (!handle->deletePath.empty() && ::unlink(handle->deletePath.c_str()) != 0 && errno != ENOENT) {
    result = lastSysError("unlink");
  }
  // close() must not be retried on EINTR: the descriptor is gone either way.
  if (::close(handle->fd) != 0 && !result && errno != EINTR) result = lastSysError("close");
  delete handle;
  return result;
}

SysError fileRead(FileHandle handle, void* buffer, std::size_t size, std::size_t& done) {
  done = 0;
  auto* bytes = static_cast<char*>(buffer);
  while (done < size) {
    std::size_t chunk = size - done;
    if (chunk > 0x40000000u) chunk = 0x40000000u;
    ssize_t const n = ::read(handle->fd, bytes + done, chunk);
    if (n < 0) {
      if (errno == EINTR) continue;
      return lastSysError("read");
    }
    if (n == 0) break;
    done += static_cast<std::size_t>(n);
  }
  return SysError{};
}

SysError fileWrite(FileHandle handle, void const* data, std::size_t size) {
  auto const* bytes = static_cast<char const*>(data);
  std::size_t done = 0;
  while (done < size) {
    std::size_t chunk = size - done;
    if (chunk > 0x40000000u) chunk = 0x40000000u;
    ssize_t const n = ::write(handle->fd, bytes + done, chunk);
    if (n < 0) {
      if (errno == EINTR) continue;
      return lastSysError("write");
    }
    if (n == 0) return errorOf(EIO, "write");
    done += static_cast<std::size_t>(n);
  }
  return SysError{};
}

SysError fileSeek(FileHandle handle, long long position) {
  if (position < 0) return errorOf(EINVAL, "lseek");
  if (::lseek(handle->fd, static_cast<off_t>(position), SEEK_SET) < 0) return lastSysError("lseek");
  return SysError{};
}

SysError fileGetPosition(FileHandle handle, long long& position) {
  off_t const where = ::lseek(handle->fd, 0, SEEK_CUR);
  if (where < 0) return lastSysError("lseek");
  position = static_cast<long long>(where);
  return SysError{};
}

SysError fileGetSize(FileHandle handle, long long& size) {
  struct stat st;
  if (fstat(handle->fd, &st) != 0) return lastSysError("fstat");
  size = static_cast<long long>(st.st_size);
  return SysError{};
}

SysError fileSetSize(FileHandle handle, long long size) {
  if (size < 0) return errorOf(EINVAL, "ftruncate");
  while (::ftruncate(handle->fd, static_cast<off_t>(size)) != 0) {
    if (errno != EINTR) return lastSysError("ftruncate");
  }
  return SysError{};
}

SysError fileFlush(FileHandle handle) {
  while (::fsync(handle->fd) != 0) {
    if (errno == EINTR) continue;
    // Pipes and some special files cannot be synced; nothing is lost there.
    if (errno == EINVAL || errno == EROFS) return SysError{};
    return lastSysError("fsync");
  }
  return SysError{};
}

SysError fileLock(FileHandle handle, long long start, long long length, bool exclusive) {
  if (start < 0 || length <= 0) return errorOf(EINVAL, "fcntl");
  return lockOp(handle, exclusive ? F_WRLCK : F_RDLCK, start, length);
}

SysError fileUnlock(FileHandle handle, long long start, long long length) {
  if (start < 0 || length <= 0) return errorOf(EINVAL, "fcntl");
  return lockOp(handle, F_UNLCK, start, length);
}

SysError fileDelete(char16_t const* path, std::size_t length) {
  std::string utf8;
  if (length == 0) return errorOf(ENOENT, "unlink");
  if (!toUTF8(path, length, utf8)) return errorOf(EILSEQ, "unlink");
  struct stat st;
  // unlink() on a folder gives EISDIR on Linux but EPERM elsewhere; say it
  // the same way everywhere.
  if (::lstat(utf8.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return errorOf(EISDIR, "unlink");
  if (::unlink(utf8.c_str()) != 0) return lastSysError("unlink");
  return SysError{};
}

bool fileIsRegular(char16_t const* path, std::size_t length) {
  std::string utf8;
  if (length == 0 || !toUTF8(path, length, utf8)) return false;
  struct stat st;
  return ::stat(utf8.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

SysError fileIsAtPath(FileHandle handle, char16_t const* path, std::size_t length, bool& same) {
  same = false;
  std::string utf8;
  if (length == 0 || !toUTF8(path, length, utf8)) return errorOf(EINVAL, "stat");
  struct stat open;
  if (fstat(handle->fd, &open) != 0) return lastSysError("fstat");
  struct stat named;
  if (::stat(utf8.c_str(), &named) != 0) {
    if (errno == ENOENT) return SysError{};
    return lastSysError("stat");
  }
  same = open.st_dev == named.st_dev && open.st_ino == named.st_ino;
  return SysError{};
}

FileErrorKind fileErrorKind(SysError const& error) {
  switch (static_cast<int>(error.code)) {
    case ENOENT:
    case ENOTDIR: return FileErrorKind::NotFound;
    case EACCES:
    case EPERM:
    case EROFS: return FileErrorKind::AccessDenied;
    case EEXIST: return FileErrorKind::AlreadyExists;
    case EISDIR: return FileErrorKind::IsFolder;
    case ENOSPC:
#ifdef EDQUOT
    case EDQUOT:
#endif
      return FileErrorKind::NoSpace;
    default: break;
  }
  // F_OFD_SETLK reports a held lock as EAGAIN (POSIX also allows EACCES,
  // which is taken as access denied above only for other calls).
  if (error.code == static_cast<std::uint32_t>(EAGAIN) || error.code == static_cast<std::uint32_t>(EWOULDBLOCK)) {
    return FileErrorKind::LockConflict;
  }
  return FileErrorKind::Other;
}

bool fileDeleteMayRetry(SysError const& error) { return error.code == static_cast<std::uint32_t>(EBUSY); }

bool fileUsesWindowsPaths() { return false; }
bool fileEnforcesSharing() { return false; }
bool fileSupportsNoBuffering() { return false; }

SysError fileAbsolutePath(char16_t const* path, std::size_t length, std::u16string& out) {
  out.clear();
  if (length == 0) return errorOf(ENOENT, "getcwd");
  if (path[0] == u'/') {
    out.assign(path, length);
    return SysError{};
  }
  std::string cwd(256, '\0');
  while (::getcwd(&cwd[0], cwd.size()) == nullptr) {
    if (errno != ERANGE) return lastSysError("getcwd");
    cwd.assign(cwd.size() * 2, '\0');
  }
  cwd.resize(cwd.find('\0'));
  out = fromUTF8(cwd);
  std::size_t start = 0;
  // "./x" is the common relative form; drop the leading dots so the result
  // stays readable.
  while (start + 1 < length && path[start] == u'.' && path[start + 1] == u'/') start += 2;
  if (out.empty() || out.back() != u'/') out += u'/';
  out.append(path + start, length - start);
  return SysError{};
}

}  // namespace qo::platform
