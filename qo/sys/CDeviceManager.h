// qo/sys/CDeviceManager.h - the machine's volumes (mounted file systems) and
// disks, and raw unbuffered access to them.
//
// One process-wide instance (get()). Every call asks the system afresh, so a
// volume mounted or a stick plugged in since shows up at the next call.
// - Volumes: Windows lists each volume once with all its mount points
//   ("C:\", "D:\mnt\data\") and adds network drives by letter; Linux lists
//   each mounted file system once (bind mounts of it are more mount points),
//   pseudo file systems (proc, sysfs, tmpfs ...) included: filter on
//   getFileSystem() or hasDevice() as needed.
// - Disks: whole devices with size and sector sizes, the model where the
//   system tells it. Windows: the "\\.\PhysicalDriveN" this process may
//   open for queries; Linux: /sys/block entries with a size above 0.
// - openVolume/openDisk give an aligned, unbuffered input stream over the
//   raw bytes (CVolumeStream); that usually needs administrator rights.
// Failures are CSystemErrors whose "api" names the failing system call.
//
//   for (CDeviceManager::CVolumeInfo const& v : CDeviceManager::get()->getVolumes())
//     print(v.mountPoints[0], v.fileSystem, v.totalBytes);
//
// Thread-safe.
#ifndef QO_SYS_CDEVICEMANAGER_H
#define QO_SYS_CDEVICEMANAGER_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/core/TArray.h"
#include "qo/stream/IAlignedInStream.h"

namespace qo {

/// Volumes and disks of the machine. Thread-safe.
class QO_API CDeviceManager : public CBase {
public:
  /// One mounted file system. Unknown texts are empty.
  struct CVolumeInfo {
    /// Stable key while mounted: the Windows volume name "\\?\Volume{...}\"
    /// (a drive root for network drives); Linux "dev:<major>:<minor>".
    String id;
    /// Where the volume is reachable, the main one first; never empty.
    TArray<String> mountPoints;
    /// What openVolume opens ("\\.\C:", "/dev/sda1"); empty when the
    /// volume has no device of its own (network, memory).
    String devicePath;
    String label;
    String fileSystem;  ///< "NTFS", "ext4", "tmpfs" ...
    /// Windows the serial number "XXXX-XXXX"; Linux the file system's UUID
    /// where the system publishes it (/dev/disk/by-uuid).
    String serial;
    bool sizeKnown = false;              ///< totalBytes and freeBytes are valid.
    unsigned long long totalBytes = 0;   ///< The file system's size.
    unsigned long long freeBytes = 0;    ///< Free space available to this user.
    bool removable = false;
    bool network = false;
    bool readOnly = false;
    /// Whether devicePath is set.
    bool hasDevice() const { return !devicePath.isEmpty(); }
  };

  /// One whole disk.
  struct CDiskInfo {
    String name;        ///< "PhysicalDrive0"; "sda".
    String devicePath;  ///< What openDisk opens: "\\.\PhysicalDrive0"; "/dev/sda".
    long long size = 0;           ///< bytes
    int logicalSectorSize = 0;    ///< The unit of addressing.
    int physicalSectorSize = 0;   ///< The unit the medium writes (>= logical).
    String model;                 ///< Empty when the system does not tell.
    bool removable = false;
  };

  /// The process-wide instance, created on first use. Thread-safe.
  static P<CDeviceManager> const& get();

  CDeviceManager();
  ~CDeviceManager() override;

  /// All volumes as described at the top. Throws CSystemError (api
  /// "FindFirstVolumeW", or the failing POSIX call). Thread-safe.
  TArray<CVolumeInfo> getVolumes() const;
  /// All disks as described at the top. Throws CSystemError. Thread-safe.
  TArray<CDiskInfo> getDisks() const;
  /// The volume that holds path (the one with the longest mount point that
  /// is a prefix of it, compared without case on Windows). Throws
  /// CInvalidArgError (function "CDeviceManager::getVolumeOf") when none
  /// does, CSystemError as getVolumes(). Thread-safe.
  CVolumeInfo getVolumeOf(String const& path) const;

  /// An unbuffered input stream over the raw bytes of volume (see
  /// CVolumeStream::open). Throws CInvalidArgError when the volume has no
  /// device, CIOError when it cannot be opened. Thread-safe.
  P<IAlignedInStream> openVolume(CVolumeInfo const& volume) const;
  /// The same over a whole disk. Thread-safe.
  P<IAlignedInStream> openDisk(CDiskInfo const& disk) const;
};

}  // namespace qo

#endif  // QO_SYS_CDEVICEMANAGER_H
