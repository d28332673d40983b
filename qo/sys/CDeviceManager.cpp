#include "qo/sys/CDeviceManager.h"

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CSafeGlobalSlot.h"
#include "qo/core/CSystemError.h"
#include "qo/fs/LocalFile.h"
#include "qo/platform/Device.h"
#include "qo/sys/CVolumeStream.h"

#include <vector>

namespace qo {

namespace {

CDeviceManager::CVolumeInfo toVolume(platform::VolumeInfo const& v) {
  CDeviceManager::CVolumeInfo out;
  out.id = String(v.id);
  for (auto const& p : v.mountPoints) out.mountPoints.push_back(String(p));
  out.devicePath = String(v.devicePath);
  out.label = String(v.label);
  out.fileSystem = String(v.fileSystem);
  out.serial = String(v.serial);
  out.sizeKnown = v.sizeKnown;
  out.totalBytes = v.totalBytes;
  out.freeBytes = v.freeBytes;
  out.removable = v.removable;
  out.network = v.network;
  out.readOnly = v.readOnly;
  return out;
}

// Whether mount point (a folder) contains path: a prefix ending at a
// separator of path (or all of it).
bool contains(String const& mountPoint, String const& path, bool windows) {
  std::u16string m = mountPoint.str();
  std::u16string p = path.str();
  if (windows) {
    m = mountPoint.Lower().str();
    p = path.Lower().str();
  }
  char16_t const sep = windows ? u'\\' : u'/';
  while (m.size() > 1 && m.back() == sep) m.pop_back();
  if (m.size() == 1 && m[0] == sep) return !p.empty() && p[0] == sep;
  if (p.compare(0, m.size(), m) != 0) return false;
  return p.size() == m.size() || p[m.size()] == sep;
}

}  // namespace

P<CDeviceManager> const& CDeviceManager::get() {
  static CSafeGlobalSlot g_pInstanceSlot;
  return TSafeGlobal<CDeviceManager>::get(g_pInstanceSlot);
}

CDeviceManager::CDeviceManager() = default;
CDeviceManager::~CDeviceManager() = default;

TArray<CDeviceManager::CVolumeInfo> CDeviceManager::getVolumes() const {
  std::vector<platform::VolumeInfo> volumes;
  if (platform::SysError e = platform::deviceListVolumes(volumes))
    throw CSystemError(u"Error listing the volumes.", u"CDeviceManager::getVolumes", u"FindFirstVolumeW", e);
  TArray<CVolumeInfo> out;
  for (auto const& v : volumes) out.push_back(toVolume(v));
  return out;
}

TArray<CDeviceManager::CDiskInfo> CDeviceManager::getDisks() const {
  std::vector<platform::DiskInfo> disks;
  if (platform::SysError e = platform::deviceListDisks(disks))
    throw CSystemError(u"Error listing the disks.", u"CDeviceManager::getDisks", u"CreateFileW", e);
  TArray<CDiskInfo> out;
  for (auto const& d : disks) {
    CDiskInfo info;
    info.name = String(d.name);
    info.devicePath = String(d.devicePath);
    info.size = d.size;
    info.logicalSectorSize = d.logicalSectorSize;
    info.physicalSectorSize = d.physicalSectorSize;
    info.model = String(d.model);
    info.removable = d.removable;
    out.push_back(std::move(info));
  }
  return out;
}

CDeviceManager::CVolumeInfo CDeviceManager::getVolumeOf(String const& path) const {
  bool const windows = localPathsAreWindowsPaths();
  TArray<CVolumeInfo> volumes = getVolumes();
  CVolumeInfo const* best = nullptr;
  int bestLength = -1;
  for (auto const& v : volumes) {
    for (auto const& m : v.mountPoints) {
      if (m.getLength() > bestLength && contains(m, path, windows)) {
        best = &v;
        bestLength = m.getLength();
      }
    }
  }
  if (!best) throw CInvalidArgError(u"CDeviceManager::getVolumeOf", u"no volume holds the path", CProps().add(u"path", path));
  return *best;
}

P<IAlignedInStream> CDeviceManager::openVolume(CVolumeInfo const& volume) const {
  if (!volume.hasDevice()) {
    throw CInvalidArgError(u"CDeviceManager::openVolume", u"the volume has no device to open",
                           CProps().add(u"id", volume.id));
  }
  return CVolumeStream::open(volume.devicePath);
}

P<IAlignedInStream> CDeviceManager::openDisk(CDiskInfo const& disk) const { return CVolumeStream::open(disk.devicePath); }

}  // namespace qo
