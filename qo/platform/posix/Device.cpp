#include "qo/platform/Device.h"

#include "qo/platform/posix/NativeName.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <sys/types.h>
#include <unistd.h>
#ifdef __linux__
#include <linux/fs.h>
#endif

namespace qo::platform {

struct NativeRawDevice {
  int fd = -1;
};

namespace {

// The api text that marks "the file system refuses O_DIRECT".
char const kDirectRefused[] = "open(O_DIRECT)";

SysError errorOf(int code, char const* api = nullptr) { return sysErrorOf(static_cast<std::uint32_t>(code), api); }

std::u16string wide(std::string const& bytes) { return nameFromNative(bytes.data(), bytes.size()); }

// The first line of a small /proc or /sys file, without the line end;
// false when it cannot be read.
bool readLine(std::string const& path, std::string& out) {
  std::ifstream in(path);
  if (!in) return false;
  std::getline(in, out);
  return !in.bad();
}

long long readNumber(std::string const& path, long long fallback) {
  std::string text;
  if (!readLine(path, text)) return fallback;
  char* end = nullptr;
  long long value = std::strtoll(text.c_str(), &end, 10);
  return end == text.c_str() ? fallback : value;
}

std::string trim(std::string s) {
  auto notSpace = [](unsigned char c) { return c != ' ' && c != '\t' && c != '\n' && c != '\r'; };
  s.erase(s.begin(), std::find_if(s.begin(), s.end(), notSpace));
  s.erase(std::find_if(s.rbegin(), s.rend(), notSpace).base(), s.end());
  return s;
}

// mountinfo escapes blanks, tabs, line ends and backslashes as \ooo.
std::string unescapeOctal(std::string const& s) {
  std::string out;
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '\\' && i + 3 < s.size() && s[i + 1] >= '0' && s[i + 1] <= '3' &&
        s[i + 2] >= '0' && s[i + 2] <= '7' && s[i + 3] >= '0' && s[i + 3] <= '7') {
      out += static_cast<char>((s[i + 1] - '0') * 64 + (s[i + 2] - '0') * 8 + (s[i + 3] - '0'));
      i += 3;
    } else {
      out += s[i];
    }
  }
  return out;
}

// udev escapes unsafe bytes of labels in /dev/disk/by-label as \xHH.
std::string unescapeHex(std::string const& s) {
  std::string out;
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '\\' && i + 3 < s.size() && s[i + 1] == 'x' &&
        std::isxdigit(static_cast<unsigned char>(s[i + 2])) && std::isxdigit(static_cast<unsigned char>(s[i + 3]))) {
      out += static_cast<char>(std::strtol(s.substr(i + 2, 2).c_str(), nullptr, 16));
      i += 3;
    } else {
      out += s[i];
    }
  }
  return out;
}

// The /sys folder of the block device dev, and of the whole disk it belongs
// to (the same for a disk); empty when the system has none.
void sysFoldersOf(dev_t dev, std::string& device, std::string& disk) {
  device.clear();
  disk.clear();
  std::string link = "/sys/dev/block/" + std::to_string(major(dev)) + ":" + std::to_string(minor(dev));
  char* real = realpath(link.c_str(), nullptr);
  if (!real) return;
  device = real;
  std::free(real);
  struct stat st;
  disk = device;
  if (stat((device + "/partition").c_str(), &st) == 0) disk = device.substr(0, device.rfind('/'));
}

// Maps the devices named in a /dev/disk/by-* folder to their names there.
std::map<dev_t, std::string> namesByDevice(char const* folder) {
  std::map<dev_t, std::string> names;
  DIR* dir = opendir(folder);
  if (!dir) return names;
  while (dirent* entry = readdir(dir)) {
    if (entry->d_name[0] == '.') continue;
    struct stat st;
    std::string path = std::string(folder) + "/" + entry->d_name;
    if (stat(path.c_str(), &st) == 0 && S_ISBLK(st.st_mode)) names[st.st_rdev] = unescapeHex(entry->d_name);
  }
  closedir(dir);
  return names;
}

bool isNetworkType(std::string const& type) {
  static char const* const kTypes[] = {"nfs",  "nfs4",  "cifs",      "smbfs",      "smb3",   "ncpfs", "afs",
                                       "9p",   "ceph",  "glusterfs", "fuse.sshfs", "sshfs",  "davfs", "fuse.davfs2",
                                       "lustre", "gfs2", "ocfs2",    "fuse.glusterfs"};
  for (char const* t : kTypes) {
    if (type == t) return true;
  }
  return false;
}

struct Mount {
  std::string devNumbers;  // "major:minor"
  std::string root;
  std::string point;
  std::string options;
  std::string type;
  std::string source;
};

bool parseMountLine(std::string const& line, Mount& m) {
  std::istringstream in(line);
  std::string id, parent;
  if (!(in >> id >> parent >> m.devNumbers >> m.root >> m.point >> m.options)) return false;
  std::string field;
  while (in >> field && field != "-") {
  }
  if (field != "-" || !(in >> m.type >> m.source)) return false;
  m.root = unescapeOctal(m.root);
  m.point = unescapeOctal(m.point);
  m.source = unescapeOctal(m.source);
  return true;
}

bool hasOption(std::string const& options, char const* option) {
  std::istringstream in(options);
  std::string item;
  while (std::getline(in, item, ',')) {
    if (item == option) return true;
  }
  return false;
}

}  // namespace

SysError deviceListVolumes(std::vector<VolumeInfo>& out) {
  out.clear();
  std::ifstream in("/proc/self/mountinfo");
  if (!in) return lastSysError("open(/proc/self/mountinfo)");
  std::map<dev_t, std::string> const uuids = namesByDevice("/dev/disk/by-uuid");
  std::map<dev_t, std::string> const labels = namesByDevice("/dev/disk/by-label");
  std::map<std::string, std::size_t> byDevNumbers;
  std::string line;
  while (std::getline(in, line)) {
    Mount m;
    if (!parseMountLine(line, m)) continue;
    auto found = byDevNumbers.find(m.devNumbers);
    if (found != byDevNumbers.end()) {
      // Another view of a file system already listed (a bind mount): one
      // more mount point, the whole-file-system one first.
      auto& points = out[found->second].mountPoints;
      if (m.root == "/")
        points.insert(points.begin(), wide(m.point));
      else
        points.push_back(wide(m.point));
      continue;
    }
    byDevNumbers[m.devNumbers] = out.size();
    VolumeInfo v;
    v.id = u"dev:" + wide(m.devNumbers);
    v.mountPoints.push_back(wide(m.point));
    v.fileSystem = wide(m.type);
    v.network = isNetworkType(m.type);
    v.readOnly = hasOption(m.options, "ro");
    struct stat st;
    if (m.source.compare(0, 5, "/dev/") == 0 && stat(m.source.c_str(), &st) == 0 && S_ISBLK(st.st_mode)) {
      v.devicePath = wide(m.source);
      auto u = uuids.find(st.st_rdev);
      if (u != uuids.end()) v.serial = wide(u->second);
      auto l = labels.find(st.st_rdev);
      if (l != labels.end()) v.label = wide(l->second);
      std::string device, disk;
      sysFoldersOf(st.st_rdev, device, disk);
      if (!disk.empty()) v.removable = readNumber(disk + "/removable", 0) != 0;
    }
    struct statvfs vfs;
    if (statvfs(m.point.c_str(), &vfs) == 0) {
      v.sizeKnown = true;
      v.totalBytes = static_cast<unsigned long long>(vfs.f_blocks) * vfs.f_frsize;
      v.freeBytes = static_cast<unsigned long long>(vfs.f_bavail) * vfs.f_frsize;
      if (vfs.f_flag & ST_RDONLY) v.readOnly = true;
    }
    out.push_back(std::move(v));
  }
  return SysError{};
}

SysError deviceListDisks(std::vector<DiskInfo>& out) {
  out.clear();
  DIR* dir = opendir("/sys/block");
  if (!dir) return lastSysError("opendir(/sys/block)");
  std::vector<std::string> names;
  while (dirent* entry = readdir(dir)) {
    if (entry->d_name[0] != '.') names.push_back(entry->d_name);
  }
  closedir(dir);
  std::sort(names.begin(), names.end());
  for (std::string const& name : names) {
    std::string const folder = "/sys/block/" + name;
    long long const sectors = readNumber(folder + "/size", 0);
    if (sectors <= 0) continue;  // unused loop devices, empty drives
    DiskInfo d;
    std::string devName = name;
    std::replace(devName.begin(), devName.end(), '!', '/');  // "cciss!c0d0"
    d.name = wide(devName);
    d.devicePath = wide("/dev/" + devName);
    d.size = sectors * 512;  // /sys counts 512-byte units whatever the device's sectors
    d.logicalSectorSize = static_cast<int>(readNumber(folder + "/queue/logical_block_size", 512));
    d.physicalSectorSize = static_cast<int>(readNumber(folder + "/queue/physical_block_size", d.logicalSectorSize));
    std::string model;
    if (readLine(folder + "/device/model", model)) d.model = wide(trim(model));
    d.removable = readNumber(folder + "/removable", 0) != 0;
    out.push_back(std::move(d));
  }
  return SysError{};
}

SysError rawDeviceOpen(char16_t const* path, std::size_t length, bool allowBuffered, RawDeviceHandle& handle,
                       RawDeviceInfo& info) {
  handle = nullptr;
  info = RawDeviceInfo();
  std::string bytes;
  if (length == 0) return errorOf(ENOENT, "open");
  if (!nameToNative(path, length, bytes)) return errorOf(EILSEQ, "open");
  int fd;
  do {
    fd = ::open(bytes.c_str(), O_RDONLY | O_CLOEXEC | O_DIRECT);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0 && errno == EINVAL) {
    // EINVAL from an open that works without O_DIRECT: the file system
    // (tmpfs, some FUSE ones) has no unbuffered mode.
    do {
      fd = ::open(bytes.c_str(), O_RDONLY | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return lastSysError("open");
    if (!allowBuffered) {
      ::close(fd);
      return errorOf(EINVAL, kDirectRefused);
    }
    info.unbuffered = false;
  }
  if (fd < 0) return lastSysError("open");
  struct stat st;
  if (fstat(fd, &st) != 0) {
    SysError e = lastSysError("fstat");
    ::close(fd);
    return e;
  }
  if (S_ISDIR(st.st_mode)) {
    ::close(fd);
    return errorOf(EISDIR, "open");
  }
  if (S_ISBLK(st.st_mode)) {
    info.isDevice = true;
#ifdef __linux__
    unsigned long long size = 0;
    int logical = 0;
    unsigned int physical = 0;
    if (ioctl(fd, BLKGETSIZE64, &size) != 0 || ioctl(fd, BLKSSZGET, &logical) != 0) {
      SysError e = lastSysError("ioctl(BLKGETSIZE64)");
      ::close(fd);
      return e;
    }
    info.size = static_cast<long long>(size);
    info.sectorSize = logical > 0 ? logical : 512;
    if (ioctl(fd, BLKPBSZGET, &physical) == 0) info.physicalSectorSize = static_cast<int>(physical);
#endif
  } else {
    info.size = static_cast<long long>(st.st_size);
    // O_DIRECT on a file wants the alignment of the device below it.
    std::string device, disk;
    sysFoldersOf(st.st_dev, device, disk);
    long long logical = disk.empty() ? 0 : readNumber(disk + "/queue/logical_block_size", 0);
    // Without a device (overlay, network, btrfs subvolumes) a page is
    // aligned enough for every device in use.
    info.sectorSize = logical > 0 ? static_cast<int>(logical) : 4096;
    if (!disk.empty()) info.physicalSectorSize = static_cast<int>(readNumber(disk + "/queue/physical_block_size", 0));
  }
  handle = new (std::nothrow) NativeRawDevice;
  if (!handle) {
    ::close(fd);
    return errorOf(ENOMEM, "open");
  }
  handle->fd = fd;
  return SysError{};
}

SysError rawDeviceRead(RawDeviceHandle handle, long long offset, void* buffer, std::size_t size, std::size_t& done) {
  done = 0;
  auto* bytes = static_cast<unsigned char*>(buffer);
  while (done < size) {
    std::size_t const chunk = std::min<std::size_t>(size - done, 1u << 30);
    ssize_t n = ::pread(handle->fd, bytes + done, chunk, static_cast<off_t>(offset + static_cast<long long>(done)));
    if (n < 0) {
      if (errno == EINTR) continue;
      return lastSysError("pread");
    }
    if (n == 0) break;
    done += static_cast<std::size_t>(n);
    // A short read of an unbuffered file is its end: the next aligned read
    // would start at an unaligned offset.
    if (static_cast<std::size_t>(n) < chunk) break;
  }
  return SysError{};
}

void rawDeviceClose(RawDeviceHandle handle) {
  if (!handle) return;
  ::close(handle->fd);
  delete handle;
}

RawDeviceErrorKind rawDeviceErrorKind(SysError const& error) {
  if (error.api == kDirectRefused) return RawDeviceErrorKind::UnbufferedUnsupported;
  switch (error.code) {
    case ENOENT:
    case ENOTDIR:
    case ENXIO:
      return RawDeviceErrorKind::NotFound;
    case EACCES:
    case EPERM:
    case EROFS:
      return RawDeviceErrorKind::AccessDenied;
    default:
      return RawDeviceErrorKind::Other;
  }
}

}  // namespace qo::platform
