// qo/platform/Device.h - volumes, disks and unbuffered reads of raw devices
// and disk images (internal, OS-free).
//
// Windows: FindFirstVolumeW/FindNextVolumeW, GetVolumePathNamesForVolumeNameW,
// GetVolumeInformationW, GetDiskFreeSpaceExW, GetDriveTypeW (plus
// GetLogicalDriveStringsW for network drives, which have no volume name),
// CreateFileW on "\\.\PhysicalDriveN" with DeviceIoControl
// IOCTL_DISK_GET_DRIVE_GEOMETRY_EX and IOCTL_STORAGE_QUERY_PROPERTY; raw
// reads: CreateFileW with FILE_FLAG_NO_BUFFERING and positioned ReadFile.
// POSIX (Linux): /proc/self/mountinfo, statvfs, /sys/block/<disk>/{size,
// removable, queue/logical_block_size, queue/physical_block_size,
// device/model}, /dev/disk/by-uuid and by-label; raw reads: open with
// O_DIRECT and pread, sizes of block devices from BLKGETSIZE64/BLKSSZGET.
//
//   std::vector<VolumeInfo> volumes;
//   if (SysError e = deviceListVolumes(volumes)) ...;
//   RawDeviceHandle h = nullptr; RawDeviceInfo info;
//   if (SysError e = rawDeviceOpen(path, length, false, h, info)) ...;
//   rawDeviceRead(h, 0, alignedBuffer, info.sectorSize, done);
//   rawDeviceClose(h);
//
// The functions never throw and are thread-safe; a handle is used by one
// thread at a time.
#ifndef QO_PLATFORM_DEVICE_H
#define QO_PLATFORM_DEVICE_H

#include <cstddef>
#include <string>
#include <vector>

#include "qo/platform/LastError.h"

namespace qo::platform {

/// One mounted file system. Unknown texts are empty.
struct VolumeInfo {
  /// Windows: the volume name "\\?\Volume{...}\" (or the drive root of a
  /// network drive); POSIX: "dev:<major>:<minor>" of the file system.
  std::u16string id;
  /// Where it is reachable: "C:\", "D:\mnt\x\"; "/", "/home". First the main one.
  std::vector<std::u16string> mountPoints;
  /// The path that opens the whole volume for raw reads ("\\.\C:",
  /// "/dev/sda1"); empty when there is none (network, memory file systems).
  std::u16string devicePath;
  std::u16string label;
  std::u16string fileSystem;  ///< "NTFS", "ext4", "tmpfs" ...
  /// Windows: the serial number as "XXXX-XXXX"; POSIX: the file system's UUID
  /// where the system publishes it.
  std::u16string serial;
  bool sizeKnown = false;
  unsigned long long totalBytes = 0;
  unsigned long long freeBytes = 0;  ///< Available to this user.
  bool removable = false;
  bool network = false;
  bool readOnly = false;
};

/// One disk (a whole device, not a partition).
struct DiskInfo {
  std::u16string name;        ///< "PhysicalDrive0"; "sda".
  std::u16string devicePath;  ///< "\\.\PhysicalDrive0"; "/dev/sda".
  long long size = 0;         ///< bytes
  int logicalSectorSize = 0;
  int physicalSectorSize = 0;
  std::u16string model;  ///< Empty when the system does not tell.
  bool removable = false;
};

/// All mounted file systems. A failure to list leaves out as far as it got.
SysError deviceListVolumes(std::vector<VolumeInfo>& out);
/// All disks the process can see (Windows: those it may open for queries).
SysError deviceListDisks(std::vector<DiskInfo>& out);

struct NativeRawDevice;
/// Opaque owner of an open raw device or image; null when none.
using RawDeviceHandle = NativeRawDevice*;

/// What rawDeviceOpen learnt about the device.
struct RawDeviceInfo {
  long long size = 0;          ///< bytes
  int sectorSize = 512;        ///< Offsets, sizes and buffers must align to this.
  int physicalSectorSize = 0;  ///< 0: unknown.
  bool isDevice = false;       ///< A block device (not a regular file).
  bool unbuffered = true;      ///< False when opened buffered (allowBuffered).
};

/// Failure classes of rawDeviceOpen and rawDeviceRead.
enum class RawDeviceErrorKind {
  Other,
  NotFound,
  AccessDenied,
  /// The file system refuses unbuffered access (tmpfs refuses O_DIRECT).
  UnbufferedUnsupported,
};

/// Opens the device, volume or image file at the UTF-16 path of length units
/// for unbuffered reading. allowBuffered: where the file system refuses
/// unbuffered access, open it buffered instead (info.unbuffered false).
SysError rawDeviceOpen(char16_t const* path, std::size_t length, bool allowBuffered, RawDeviceHandle& handle,
                       RawDeviceInfo& info);
/// Reads up to size bytes at offset into buffer; done counts them (fewer
/// only at the end). Unbuffered handles need offset, size and the buffer's
/// address aligned to the sector size.
SysError rawDeviceRead(RawDeviceHandle handle, long long offset, void* buffer, std::size_t size, std::size_t& done);
/// Closes; null does nothing.
void rawDeviceClose(RawDeviceHandle handle);
/// The class of an error of the two functions above.
RawDeviceErrorKind rawDeviceErrorKind(SysError const& error);

}  // namespace qo::platform

#endif  // QO_PLATFORM_DEVICE_H
