#include "qo/platform/FileSystem.h"

#include "qo/platform/posix/NativeName.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <sys/types.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace qo::platform {

struct FsFolder {
  DIR* dir = nullptr;
};

namespace {

// api names the POSIX call that failed (or, for a failure found before
// it, the call that was to be made).
SysError errorOf(int code, char const* api) { return sysErrorOf(static_cast<std::uint32_t>(code), api); }

SysError ok() { return SysError{}; }

// Names between UTF-16 and the kernel's bytes, without loss (NativeName.h).
bool toNative(std::u16string const& text, std::string& out) { return nameToNative(text.data(), text.size(), out); }
std::u16string fromNative(char const* bytes, std::size_t length) { return nameFromNative(bytes, length); }

long long micros(long long seconds, long long nanos) { return seconds * 1000000 + nanos / 1000; }

timespec toTimespec(long long micros) {
  timespec ts{};
  if (micros == kFsNoTime) {
    ts.tv_nsec = UTIME_OMIT;
    return ts;
  }
  long long seconds = micros / 1000000;
  long long rest = micros % 1000000;
  if (rest < 0) {
    rest += 1000000;
    --seconds;
  }
  ts.tv_sec = static_cast<time_t>(seconds);
  ts.tv_nsec = static_cast<long>(rest * 1000);
  return ts;
}

FsKind kindOfMode(unsigned mode) {
  if (S_ISREG(mode)) return FsKind::File;
  if (S_ISDIR(mode)) return FsKind::Folder;
  if (S_ISLNK(mode)) return FsKind::SymLink;
  return FsKind::Other;
}

void fillCommon(FsStat& out, unsigned mode, long long size) {
  out.kind = kindOfMode(mode);
  out.posixMode = static_cast<int>(mode);
  out.size = out.kind == FsKind::File ? size : 0;
  // POSIX has no attributes; a file nobody may write is what read-only means.
  out.attributes = (mode & 0222) == 0 && out.kind != FsKind::SymLink ? kFsAttrReadOnly : 0u;
}

void fillFromStat(struct stat const& st, FsStat& out) {
  out = FsStat{};
  fillCommon(out, st.st_mode, static_cast<long long>(st.st_size));
  out.writeMicros = micros(st.st_mtim.tv_sec, st.st_mtim.tv_nsec);
  out.accessMicros = micros(st.st_atim.tv_sec, st.st_atim.tv_nsec);
  out.volumeId = static_cast<unsigned long long>(st.st_dev);
  out.fileId = static_cast<unsigned long long>(st.st_ino);
  out.linkCount = static_cast<long long>(st.st_nlink);
  out.ownerId = static_cast<long long>(st.st_uid);
  out.groupId = static_cast<long long>(st.st_gid);
}

// Returns an errno value (0 = success) and the call that gave it. ENOENT /
// ENOTDIR are left to the caller.
int statAt(int dirFd, char const* name, bool followLinks, FsStat& out, char const*& api) {
  api = "fstatat";
  int const flags = followLinks ? 0 : AT_SYMLINK_NOFOLLOW;
#ifdef STATX_BTIME
  struct statx sx;
  if (statx(dirFd, name, flags | AT_STATX_SYNC_AS_STAT, STATX_BASIC_STATS | STATX_BTIME, &sx) == 0) {
    out = FsStat{};
    fillCommon(out, sx.stx_mode, static_cast<long long>(sx.stx_size));
    if (sx.stx_mask & STATX_BTIME) out.creationMicros = micros(sx.stx_btime.tv_sec, sx.stx_btime.tv_nsec);
    out.writeMicros = micros(sx.stx_mtime.tv_sec, sx.stx_mtime.tv_nsec);
    out.accessMicros = micros(sx.stx_atime.tv_sec, sx.stx_atime.tv_nsec);
    out.volumeId = static_cast<unsigned long long>(makedev(sx.stx_dev_major, sx.stx_dev_minor));
    out.fileId = sx.stx_ino;
    out.linkCount = sx.stx_nlink;
    out.ownerId = static_cast<long long>(sx.stx_uid);
    out.groupId = static_cast<long long>(sx.stx_gid);
  } else if (errno != ENOSYS) {
    api = "statx";
    return errno;
  } else
#endif
  {
    struct stat st;
    if (fstatat(dirFd, name, &st, flags) != 0) return errno;
    fillFromStat(st, out);
  }
  if (out.kind == FsKind::SymLink) {
    std::vector<char> buffer(256);
    for (;;) {
      ssize_t const n = readlinkat(dirFd, name, buffer.data(), buffer.size());
      if (n < 0) break;  // the link went away meanwhile: no target known
      if (static_cast<std::size_t>(n) < buffer.size()) {
        out.linkTarget = fromNative(buffer.data(), static_cast<std::size_t>(n));
        break;
      }
      buffer.resize(buffer.size() * 4);
    }
    struct stat target;
    out.linkToFolder = fstatat(dirFd, name, &target, 0) == 0 && S_ISDIR(target.st_mode);
  }
  return 0;
}

// Runs a call that reports failure with -1 and errno, retrying EINTR.
template <class F>
SysError retrying(char const* api, F call) {
  for (;;) {
    if (call() == 0) return ok();
    if (errno != EINTR) return errorOf(errno, api);
  }
}

// A name without a UTF-8 form fails the call it was meant for.
#define QO_FS_PATH(var, text, api) \
  std::string var;                 \
  if (!toNative(text, var)) return errorOf(EILSEQ, api)

SysError copyData(int in, int out) {
  static constexpr std::size_t kChunk = 1 << 20;
  bool kernelCopy = true;
  std::vector<char> buffer;
  for (;;) {
    if (kernelCopy) {
      ssize_t const n = copy_file_range(in, nullptr, out, nullptr, kChunk, 0);
      if (n > 0) continue;
      if (n == 0) return ok();
      if (errno == EINTR) continue;
      if (errno != EXDEV && errno != ENOSYS && errno != EINVAL && errno != EOPNOTSUPP && errno != EPERM) {
        return errorOf(errno, "copy_file_range");
      }
      kernelCopy = false;  // file systems or kernels without it: copy through memory
      buffer.resize(256 * 1024);
    }
    ssize_t const got = read(in, buffer.data(), buffer.size());
    if (got == 0) return ok();
    if (got < 0) {
      if (errno == EINTR) continue;
      return errorOf(errno, "read");
    }
    for (ssize_t done = 0; done < got;) {
      ssize_t const put = write(out, buffer.data() + done, static_cast<std::size_t>(got - done));
      if (put < 0) {
        if (errno == EINTR) continue;
        return errorOf(errno, "write");
      }
      done += put;
    }
  }
}

}  // namespace

FsErrorKind fsErrorKind(SysError const& error) {
  switch (static_cast<int>(error.code)) {
    case ENOENT: return FsErrorKind::NotFound;
    case EEXIST: return FsErrorKind::AlreadyExists;
    case EACCES:
    case EPERM:
    case EROFS: return FsErrorKind::AccessDenied;
    case ENOTDIR:
    case EISDIR: return FsErrorKind::WrongKind;
    case ENOTEMPTY: return FsErrorKind::NotEmpty;
    case ENOSPC:
    case EDQUOT: return FsErrorKind::NoSpace;
    case EBUSY:
    case ETXTBSY: return FsErrorKind::InUse;
    case EXDEV: return FsErrorKind::CrossDevice;
    case ENOTSUP:
#if EOPNOTSUPP != ENOTSUP
    case EOPNOTSUPP:
#endif
    case ENOSYS: return FsErrorKind::Unsupported;
    case EILSEQ:
    case ENAMETOOLONG: return FsErrorKind::InvalidName;
    default: return FsErrorKind::Other;
  }
}

FsTransience fsErrorTransience(std::uint32_t code) {
  switch (static_cast<int>(code)) {
    case EBUSY:
    case ETXTBSY:
    case EAGAIN:  // a held open-file-description lock
#if EWOULDBLOCK != EAGAIN
    case EWOULDBLOCK:
#endif
      return FsTransience::Refused;
    case ENETDOWN:
    case ENETUNREACH:
    case ENETRESET:
    case ECONNABORTED:
    case ECONNRESET:
    case ENOTCONN:
    case EHOSTDOWN:
    case EHOSTUNREACH:
    case ETIMEDOUT:
    case ECOMM: return FsTransience::Uncertain;
    default: return FsTransience::Lasting;
  }
}

SysError fsStat(std::u16string const& path, bool followLinks, FsStat& out) {
  out = FsStat{};
  QO_FS_PATH(p, path, "fstatat");
  char const* api = nullptr;
  int const e = statAt(AT_FDCWD, p.c_str(), followLinks, out, api);
  if (e == ENOENT || e == ENOTDIR) {
    out = FsStat{};
    return ok();
  }
  return e ? errorOf(e, api) : ok();
}

SysError fsCreateFolder(std::u16string const& path) {
  QO_FS_PATH(p, path, "mkdir");
  return retrying("mkdir", [&] { return mkdir(p.c_str(), 0777); });
}

SysError fsRemoveFolder(std::u16string const& path) {
  QO_FS_PATH(p, path, "rmdir");
  SysError e = retrying("rmdir", [&] { return rmdir(p.c_str()); });
  // POSIX allows EEXIST for a folder that still has entries.
  if (e.code == EEXIST) return errorOf(ENOTEMPTY, "rmdir");
  return e;
}

SysError fsDeleteFile(std::u16string const& path) {
  QO_FS_PATH(p, path, "unlink");
  SysError e = retrying("unlink", [&] { return unlink(p.c_str()); });
  // POSIX lets unlink() refuse a folder with EPERM; say what it is.
  struct stat st;
  if (e.code == EPERM && lstat(p.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return errorOf(EISDIR, "unlink");
  return e;
}

SysError fsRemoveLink(std::u16string const& path) {
  QO_FS_PATH(p, path, "unlink");
  return retrying("unlink", [&] { return unlink(p.c_str()); });
}

SysError fsRename(std::u16string const& from, std::u16string const& to, bool overwrite) {
  QO_FS_PATH(f, from, "rename");
  QO_FS_PATH(t, to, "rename");
  if (overwrite) return retrying("rename", [&] { return rename(f.c_str(), t.c_str()); });
#ifdef RENAME_NOREPLACE
  SysError e = retrying("renameat2", [&] { return renameat2(AT_FDCWD, f.c_str(), AT_FDCWD, t.c_str(), RENAME_NOREPLACE); });
  if (!e || (e.code != EINVAL && e.code != ENOSYS && e.code != ENOTSUP)) return e;
#endif
  // Without an atomic no-replace rename (old kernels, some network file
  // systems) the check and the rename are two steps.
  struct stat st;
  if (lstat(t.c_str(), &st) == 0) return errorOf(EEXIST, "rename");
  return retrying("rename", [&] { return rename(f.c_str(), t.c_str()); });
}

// Copies length bytes at offset from in to the same offset in out.
SysError copyRange(int in, int out, off_t offset, off_t length, std::vector<char>& buffer) {
  while (length > 0) {
    std::size_t const want = static_cast<std::size_t>(std::min<off_t>(length, static_cast<off_t>(buffer.size())));
    ssize_t const got = pread(in, buffer.data(), want, offset);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errorOf(errno, "pread");
    if (got == 0) return ok();  // shorter than it was: the copy ends there too
    for (ssize_t done = 0; done < got;) {
      ssize_t const put = pwrite(out, buffer.data() + done, static_cast<std::size_t>(got - done), offset + done);
      if (put < 0 && errno == EINTR) continue;
      if (put < 0) return errorOf(errno, "pwrite");
      done += put;
    }
    offset += got;
    length -= got;
  }
  return ok();
}

// Copies in (of size bytes) to the empty out keeping its holes: only the
// ranges SEEK_DATA finds are written, the rest of out stays a hole. Where
// the file system cannot tell, everything is copied as data.
SysError copyKeepingHoles(int in, int out, off_t size) {
  if (lseek(in, 0, SEEK_DATA) < 0 && errno != ENXIO) {
    if (errno != EINVAL && errno != ENOTSUP && errno != EOPNOTSUPP) return errorOf(errno, "lseek");
    if (lseek(in, 0, SEEK_SET) < 0) return errorOf(errno, "lseek");
    return copyData(in, out);
  }
  std::vector<char> buffer(1 << 20);
  for (off_t position = 0; position < size;) {
    off_t const data = lseek(in, position, SEEK_DATA);
    if (data < 0 && errno == ENXIO) break;  // a hole up to the end
    if (data < 0) return errorOf(errno, "lseek");
    off_t const hole = lseek(in, data, SEEK_HOLE);
    if (hole < 0) return errorOf(errno, "lseek");
    if (SysError e = copyRange(in, out, data, hole - data, buffer)) return e;
    position = hole;
  }
  return ftruncate(out, size) == 0 ? ok() : errorOf(errno, "ftruncate");
}

SysError fsReplaceFile(std::u16string const& from, std::u16string const& to, bool overwrite) {
  if (SysError e = fsRename(from, to, overwrite)) return e;
  QO_FS_PATH(t, to, "open");
  std::size_t const slash = t.rfind('/');
  std::string const folder = slash == std::string::npos ? std::string(".") : slash == 0 ? std::string("/") : t.substr(0, slash);
  int fd;
  do {
    fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return errorOf(errno, "open");
  // Some file systems cannot flush a folder (EINVAL): the rename stands.
  SysError e = fsync(fd) == 0 || errno == EINVAL ? ok() : errorOf(errno, "fsync");
  close(fd);
  return e;
}

SysError fsCopyFile(std::u16string const& from, std::u16string const& to, bool overwrite) {
  QO_FS_PATH(f, from, "open");
  QO_FS_PATH(t, to, "open");
  int in;
  do {
    in = open(f.c_str(), O_RDONLY | O_CLOEXEC);
  } while (in < 0 && errno == EINTR);
  if (in < 0) return errorOf(errno, "open");
  struct stat source;
  if (fstat(in, &source) != 0) {
    SysError e = errorOf(errno, "fstat");
    close(in);
    return e;
  }
  struct stat existing;
  bool const targetExists = stat(t.c_str(), &existing) == 0;
  int refuse = 0;
  if (S_ISDIR(source.st_mode) || (targetExists && S_ISDIR(existing.st_mode))) {
    refuse = EISDIR;
  } else if (targetExists && !overwrite) {
    refuse = EEXIST;
  } else if (targetExists && existing.st_dev == source.st_dev && existing.st_ino == source.st_ino) {
    refuse = EINVAL;  // truncating the target would destroy the source
  }
  if (refuse) {
    close(in);
    return errorOf(refuse, "open");
  }
  int out;
  do {
    out = open(t.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | (overwrite ? O_TRUNC : O_EXCL), 0600);
  } while (out < 0 && errno == EINTR);
  if (out < 0) {
    SysError e = errorOf(errno, "open");
    close(in);
    return e;
  }
  SysError e = copyKeepingHoles(in, out, source.st_size);
  if (!e && fchmod(out, source.st_mode & 07777) != 0) e = errorOf(errno, "fchmod");
  timespec const times[2] = {source.st_atim, source.st_mtim};
  if (!e && futimens(out, times) != 0) e = errorOf(errno, "futimens");
  if (!e && fsync(out) != 0) e = errorOf(errno, "fsync");
  if (close(out) != 0 && !e) e = errorOf(errno, "close");
  close(in);
  // A half-written copy must not pass for the file.
  if (e) unlink(t.c_str());
  return e;
}

SysError fsCreateHardLink(std::u16string const& link, std::u16string const& target) {
  QO_FS_PATH(l, link, "link");
  QO_FS_PATH(t, target, "link");
  return retrying("link", [&] { return ::link(t.c_str(), l.c_str()); });
}

SysError fsCreateSymLink(std::u16string const& link, std::u16string const& target, bool) {
  QO_FS_PATH(l, link, "symlink");
  QO_FS_PATH(t, target, "symlink");
  return retrying("symlink", [&] { return symlink(t.c_str(), l.c_str()); });
}

SysError fsCreateJunction(std::u16string const& link, std::u16string const& target) {
  return fsCreateSymLink(link, target, true);
}

SysError fsSetTimes(std::u16string const& path, bool followLinks, long long, long long writeMicros,
                    long long accessMicros) {
  QO_FS_PATH(p, path, "utimensat");
  timespec const times[2] = {toTimespec(accessMicros), toTimespec(writeMicros)};
  return retrying("utimensat", [&] { return utimensat(AT_FDCWD, p.c_str(), times, followLinks ? 0 : AT_SYMLINK_NOFOLLOW); });
}

SysError fsSetAttributes(std::u16string const& path, bool followLinks, unsigned attributes) {
  QO_FS_PATH(p, path, "chmod");
  struct stat st;
  if ((followLinks ? stat(p.c_str(), &st) : lstat(p.c_str(), &st)) != 0) return errorOf(errno, followLinks ? "stat" : "lstat");
  if (S_ISLNK(st.st_mode)) return ok();  // a link has no permissions of its own here
  mode_t mode = st.st_mode & 07777;
  if (attributes & kFsAttrReadOnly) {
    mode &= ~static_cast<mode_t>(0222);
  } else if ((mode & 0222) == 0) {
    mode |= 0200;
  }
  if (mode == (st.st_mode & 07777)) return ok();
  return retrying("chmod", [&] { return chmod(p.c_str(), mode); });
}

SysError fsSetPosixMode(std::u16string const& path, bool followLinks, int mode) {
  QO_FS_PATH(p, path, "chmod");
  struct stat st;
  if (!followLinks) {
    if (lstat(p.c_str(), &st) != 0) return errorOf(errno, "lstat");
    if (S_ISLNK(st.st_mode)) return ok();
  }
  return retrying("chmod", [&] { return chmod(p.c_str(), static_cast<mode_t>(mode & 07777)); });
}

SysError fsSetOwner(std::u16string const& path, bool followLinks, long long owner, long long group) {
  QO_FS_PATH(p, path, followLinks ? "chown" : "lchown");
  auto const uid = static_cast<uid_t>(owner < 0 ? -1 : owner);
  auto const gid = static_cast<gid_t>(group < 0 ? -1 : group);
  return retrying(followLinks ? "chown" : "lchown", [&] { return followLinks ? chown(p.c_str(), uid, gid) : lchown(p.c_str(), uid, gid); });
}

SysError fsFreeSpace(std::u16string const& path, long long& bytes) {
  bytes = -1;
  QO_FS_PATH(p, path, "statvfs");
  struct statvfs vfs;
  SysError e = retrying("statvfs", [&] { return statvfs(p.c_str(), &vfs); });
  if (!e) bytes = static_cast<long long>(vfs.f_bavail) * static_cast<long long>(vfs.f_frsize ? vfs.f_frsize : vfs.f_bsize);
  return e;
}

SysError fsSectorSize(std::u16string const& path, long long& bytes) {
  bytes = -1;
  QO_FS_PATH(p, path, "statvfs");
  struct statvfs vfs;
  SysError e = retrying("statvfs", [&] { return statvfs(p.c_str(), &vfs); });
  if (!e) bytes = static_cast<long long>(vfs.f_frsize ? vfs.f_frsize : vfs.f_bsize);
  return e;
}

SysError fsVolumeRoot(std::u16string const& path, std::u16string& root) {
  root.clear();
  QO_FS_PATH(p, path, "stat");
  // The nearest existing folder stands for a path that does not exist yet.
  struct stat st;
  while (stat(p.c_str(), &st) != 0) {
    if (errno != ENOENT && errno != ENOTDIR) return errorOf(errno, "stat");
    std::size_t const slash = p.find_last_of('/');
    if (slash == std::string::npos) return errorOf(ENOENT, "stat");
    p.resize(slash == 0 ? 1 : slash);
  }
  char* resolved = realpath(p.c_str(), nullptr);
  if (!resolved) return errorOf(errno, "realpath");
  std::string current(resolved);
  free(resolved);
  if (stat(current.c_str(), &st) != 0) return errorOf(errno, "stat");
  // A mount point is where the device number changes on the way up.
  while (current != "/") {
    std::size_t const slash = current.find_last_of('/');
    std::string const parent = slash == 0 ? std::string("/") : current.substr(0, slash);
    struct stat up;
    if (stat(parent.c_str(), &up) != 0 || up.st_dev != st.st_dev) break;
    current = parent;
  }
  if (current.back() != '/') current += '/';
  root = fromNative(current.data(), current.size());
  return ok();
}

SysError fsUserName(std::u16string& name) {
  name.clear();
  uid_t const uid = geteuid();
  long const suggested = sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(suggested > 0 ? static_cast<std::size_t>(suggested) : 16384);
  for (;;) {
    passwd entry{};
    passwd* found = nullptr;
    int const e = getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found);
    if (e == ERANGE && buffer.size() < (1u << 20)) {
      buffer.resize(buffer.size() * 2);
      continue;
    }
    if (e != 0) return errorOf(e, "getpwuid_r");
    if (found && found->pw_name) {
      name = fromNative(found->pw_name, std::strlen(found->pw_name));
    } else {
      // An account without a name (containers often run as such): its number.
      std::string const number = std::to_string(static_cast<unsigned long long>(uid));
      name.assign(number.begin(), number.end());
    }
    return ok();
  }
}

SysError fsNativeMetaData(std::u16string const& path, bool followLinks, std::u16string const& what,
                          std::string& format, std::string& bytes) {
  format.clear();
  bytes.clear();
  char const* const api = followLinks ? "stat" : "lstat";
  if (!what.empty() && what != u"stat") return errorOf(ENOTSUP, api);
  QO_FS_PATH(p, path, api);
  struct stat st;
  if ((followLinks ? stat(p.c_str(), &st) : lstat(p.c_str(), &st)) != 0) return errorOf(errno, api);
  format = "posix.stat";
  bytes.assign(reinterpret_cast<char const*>(&st), sizeof st);
  return ok();
}

bool fsHasSubStreams() { return false; }

SysError fsSetSecurity(std::u16string const&, std::string const&) { return errorOf(ENOTSUP, nullptr); }

SysError fsGetExtendedAttributes(std::u16string const& path, bool followLinks,
                                 std::vector<std::pair<std::u16string, std::string>>& out) {
  out.clear();
  char const* const list = followLinks ? "listxattr" : "llistxattr";
  char const* const get = followLinks ? "getxattr" : "lgetxattr";
  QO_FS_PATH(p, path, list);
  // Sizes are asked first; an attribute that grows meanwhile is asked again.
  std::string names;
  for (;;) {
    ssize_t const size = followLinks ? listxattr(p.c_str(), nullptr, 0) : llistxattr(p.c_str(), nullptr, 0);
    if (size < 0 && (errno == ENOTSUP || errno == EOPNOTSUPP)) return ok();
    if (size < 0) return errorOf(errno, list);
    names.resize(static_cast<std::size_t>(size));
    ssize_t const got = followLinks ? listxattr(p.c_str(), names.data(), names.size())
                                    : llistxattr(p.c_str(), names.data(), names.size());
    if (got >= 0) {
      names.resize(static_cast<std::size_t>(got));
      break;
    }
    if (errno != ERANGE) return errorOf(errno, list);
  }
  for (std::size_t at = 0; at < names.size();) {
    std::string const name(names.c_str() + at);
    at += name.size() + 1;
    std::string value;
    for (;;) {
      ssize_t const size =
          followLinks ? getxattr(p.c_str(), name.c_str(), nullptr, 0) : lgetxattr(p.c_str(), name.c_str(), nullptr, 0);
      if (size < 0 && errno == ENODATA) break;  // gone meanwhile
      if (size < 0) return errorOf(errno, get);
      value.resize(static_cast<std::size_t>(size));
      ssize_t const got = followLinks ? getxattr(p.c_str(), name.c_str(), value.data(), value.size())
                                      : lgetxattr(p.c_str(), name.c_str(), value.data(), value.size());
      if (got >= 0) {
        value.resize(static_cast<std::size_t>(got));
        out.emplace_back(fromNative(name.data(), name.size()), value);
        break;
      }
      if (errno == ENODATA) break;
      if (errno != ERANGE) return errorOf(errno, get);
    }
  }
  return ok();
}

SysError fsSetExtendedAttribute(std::u16string const& path, bool followLinks, std::u16string const& name,
                                std::string const& value) {
  char const* const api = followLinks ? "setxattr" : "lsetxattr";
  QO_FS_PATH(p, path, api);
  QO_FS_PATH(n, name, api);
  return retrying(api, [&] {
    return followLinks ? setxattr(p.c_str(), n.c_str(), value.data(), value.size(), 0)
                       : lsetxattr(p.c_str(), n.c_str(), value.data(), value.size(), 0);
  });
}

SysError fsFolderOpen(std::u16string const& path, FsFolder*& folder) {
  folder = nullptr;
  QO_FS_PATH(p, path, "opendir");
  DIR* dir = opendir(p.c_str());
  if (!dir) return errorOf(errno, "opendir");
  folder = new (std::nothrow) FsFolder;
  if (!folder) {
    closedir(dir);
    return errorOf(ENOMEM, "opendir");
  }
  folder->dir = dir;
  return ok();
}

SysError fsFolderNext(FsFolder* folder, std::u16string& name, FsStat& entry, bool& done) {
  done = false;
  for (;;) {
    errno = 0;
    dirent const* d = readdir(folder->dir);
    if (!d) {
      if (errno != 0) return errorOf(errno, "readdir");
      done = true;
      return ok();
    }
    if (d->d_name[0] == '.' && (d->d_name[1] == 0 || (d->d_name[1] == '.' && d->d_name[2] == 0))) continue;
    char const* api = nullptr;
    int const e = statAt(dirfd(folder->dir), d->d_name, false, entry, api);
    if (e == ENOENT) continue;  // removed since readdir saw it
    if (e) return errorOf(e, api);
    name = fromNative(d->d_name, std::strlen(d->d_name));
    return ok();
  }
}

void fsFolderClose(FsFolder* folder) {
  if (!folder) return;
  closedir(folder->dir);
  delete folder;
}

}  // namespace qo::platform
