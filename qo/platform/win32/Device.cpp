#include "qo/platform/Device.h"

#include <algorithm>
#include <cstdio>
#include <new>
#include <string>
#include <vector>

#include <windows.h>
#include <winioctl.h>

namespace qo::platform {

struct NativeRawDevice {
  HANDLE handle = INVALID_HANDLE_VALUE;
};

namespace {

static_assert(sizeof(wchar_t) == sizeof(char16_t), "Windows wide characters are UTF-16 units");

// The api text that marks "the file system refuses unbuffered access".
char const kUnbufferedRefused[] = "CreateFileW(FILE_FLAG_NO_BUFFERING)";

SysError errorOf(DWORD code, char const* api = nullptr) { return sysErrorOf(code, api); }

std::u16string u16(wchar_t const* text) { return std::u16string(reinterpret_cast<char16_t const*>(text)); }
std::u16string u16(std::wstring const& text) {
  return std::u16string(reinterpret_cast<char16_t const*>(text.data()), text.size());
}

std::u16string serialText(DWORD serial) {
  wchar_t text[16];
  swprintf(text, 16, L"%04X-%04X", static_cast<unsigned>(serial >> 16), static_cast<unsigned>(serial & 0xFFFF));
  return u16(text);
}

// Label, file system, serial, flags, free space and drive type of the
// volume reached through root (a volume name or drive root with its
// trailing backslash). A volume without a medium answers nothing; that is
// not an error for the list.
void describe(std::wstring const& root, VolumeInfo& v) {
  wchar_t label[MAX_PATH + 1] = L"";
  wchar_t fileSystem[MAX_PATH + 1] = L"";
  DWORD serial = 0, maxComponent = 0, flags = 0;
  if (GetVolumeInformationW(root.c_str(), label, MAX_PATH + 1, &serial, &maxComponent, &flags, fileSystem,
                            MAX_PATH + 1)) {
    v.label = u16(label);
    v.fileSystem = u16(fileSystem);
    v.serial = serialText(serial);
    v.readOnly = (flags & FILE_READ_ONLY_VOLUME) != 0;
  }
  ULARGE_INTEGER available, total, totalFree;
  if (GetDiskFreeSpaceExW(root.c_str(), &available, &total, &totalFree)) {
    v.sizeKnown = true;
    v.totalBytes = total.QuadPart;
    v.freeBytes = available.QuadPart;
  }
  switch (GetDriveTypeW(root.c_str())) {
    case DRIVE_REMOVABLE:
    case DRIVE_CDROM:
      v.removable = true;
      break;
    case DRIVE_REMOTE:
      v.network = true;
      break;
    default:
      break;
  }
}

bool isDriveRoot(std::wstring const& p) { return p.size() == 3 && p[1] == L':' && p[2] == L'\\'; }

void addVolume(wchar_t const* name, std::vector<VolumeInfo>& out) {
  VolumeInfo v;
  v.id = u16(name);
  std::vector<wchar_t> paths(MAX_PATH + 1);
  DWORD needed = 0;
  while (!GetVolumePathNamesForVolumeNameW(name, paths.data(), static_cast<DWORD>(paths.size()), &needed)) {
    if (GetLastError() != ERROR_MORE_DATA) {
      paths.assign(1, L'\0');
      paths.push_back(L'\0');
      break;
    }
    paths.resize(std::max<std::size_t>(needed, paths.size() * 2));
  }
  std::wstring firstDrive;
  for (wchar_t const* p = paths.data(); *p; p += wcslen(p) + 1) {
    v.mountPoints.push_back(u16(p));
    if (firstDrive.empty() && isDriveRoot(p)) firstDrive = p;
  }
  std::wstring volumeName(name);
  describe(volumeName, v);
  // "\\.\C:" opens a volume with a letter; else the volume name without its
  // trailing backslash (with it, CreateFileW would open the root folder).
  if (!firstDrive.empty())
    v.devicePath = u16(L"\\\\.\\" + firstDrive.substr(0, 2));
  else if (!volumeName.empty() && volumeName.back() == L'\\')
    v.devicePath = u16(volumeName.substr(0, volumeName.size() - 1));
  out.push_back(std::move(v));
}

// A disk's model, removability and physical sector size, as far as the
// storage driver answers.
void queryStorage(HANDLE h, DiskInfo& d) {
  STORAGE_PROPERTY_QUERY query = {};
  query.PropertyId = StorageDeviceProperty;
  query.QueryType = PropertyStandardQuery;
  std::vector<unsigned char> buffer(4096);
  DWORD got = 0;
  if (DeviceIoControl(h, IOCTL_STORAGE_QUERY_PROPERTY, &query, sizeof query, buffer.data(),
                      static_cast<DWORD>(buffer.size()), &got, nullptr) &&
      got >= sizeof(STORAGE_DEVICE_DESCRIPTOR)) {
    auto const* desc = reinterpret_cast<STORAGE_DEVICE_DESCRIPTOR const*>(buffer.data());
    d.removable = desc->RemovableMedia != FALSE;
    std::string model;
    auto take = [&](DWORD offset) {
      if (offset == 0 || offset >= got) return;
      char const* s = reinterpret_cast<char const*>(buffer.data()) + offset;
      std::string part(s, strnlen(s, got - offset));
      while (!part.empty() && part.back() == ' ') part.pop_back();
      while (!part.empty() && part.front() == ' ') part.erase(part.begin());
      if (part.empty()) return;
      if (!model.empty()) model += ' ';
      model += part;
    };
    take(desc->VendorIdOffset);
    take(desc->ProductIdOffset);
    for (char c : model) d.model += static_cast<char16_t>(static_cast<unsigned char>(c));
  }
  query.PropertyId = StorageAccessAlignmentProperty;
  STORAGE_ACCESS_ALIGNMENT_DESCRIPTOR alignment = {};
  if (DeviceIoControl(h, IOCTL_STORAGE_QUERY_PROPERTY, &query, sizeof query, &alignment, sizeof alignment, &got,
                      nullptr) &&
      got >= sizeof alignment && alignment.BytesPerPhysicalSector != 0) {
    d.physicalSectorSize = static_cast<int>(alignment.BytesPerPhysicalSector);
  }
}

// The sector size and length of an open device or volume handle.
bool deviceGeometry(HANDLE h, long long& size, int& sectorSize) {
  unsigned char buffer[sizeof(DISK_GEOMETRY_EX) + 256];
  DWORD got = 0;
  if (!DeviceIoControl(h, IOCTL_DISK_GET_DRIVE_GEOMETRY_EX, nullptr, 0, buffer, sizeof buffer, &got, nullptr))
    return false;
  auto const* geometry = reinterpret_cast<DISK_GEOMETRY_EX const*>(buffer);
  sectorSize = static_cast<int>(geometry->Geometry.BytesPerSector);
  size = geometry->DiskSize.QuadPart;
  GET_LENGTH_INFORMATION length = {};
  // A volume's geometry is its disk's; its own length comes separately.
  if (DeviceIoControl(h, IOCTL_DISK_GET_LENGTH_INFO, nullptr, 0, &length, sizeof length, &got, nullptr))
    size = length.Length.QuadPart;
  return true;
}

}  // namespace

SysError deviceListVolumes(std::vector<VolumeInfo>& out) {
  out.clear();
  wchar_t name[MAX_PATH + 1];
  HANDLE find = FindFirstVolumeW(name, MAX_PATH + 1);
  if (find == INVALID_HANDLE_VALUE) {
    DWORD code = GetLastError();
    if (code != ERROR_NO_MORE_FILES) return errorOf(code, "FindFirstVolumeW");
  } else {
    do {
      addVolume(name, out);
    } while (FindNextVolumeW(find, name, MAX_PATH + 1));
    DWORD code = GetLastError();
    FindVolumeClose(find);
    if (code != ERROR_NO_MORE_FILES) return errorOf(code, "FindNextVolumeW");
  }
  // Network drives have no volume name; they are found by their letters.
  wchar_t drives[4 * 26 + 2] = L"";
  DWORD n = GetLogicalDriveStringsW(4 * 26 + 1, drives);
  if (n == 0 || n > 4 * 26 + 1) return SysError{};
  for (wchar_t const* p = drives; *p; p += wcslen(p) + 1) {
    std::wstring root(p);
    if (GetDriveTypeW(root.c_str()) != DRIVE_REMOTE) continue;
    VolumeInfo v;
    v.id = u16(root);
    v.mountPoints.push_back(u16(root));
    describe(root, v);
    v.network = true;
    out.push_back(std::move(v));
  }
  return SysError{};
}

SysError deviceListDisks(std::vector<DiskInfo>& out) {
  out.clear();
  // Disk numbers may have gaps (a removed disk keeps its number free).
  for (int i = 0; i < 64; ++i) {
    std::wstring path = L"\\\\.\\PhysicalDrive" + std::to_wstring(i);
    // No access rights: queries need none, and no administrator is needed.
    HANDLE h = CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    if (h == INVALID_HANDLE_VALUE) continue;
    DiskInfo d;
    d.name = u16(path.substr(4));
    d.devicePath = u16(path);
    if (deviceGeometry(h, d.size, d.logicalSectorSize)) {
      d.physicalSectorSize = d.logicalSectorSize;
      queryStorage(h, d);
      out.push_back(std::move(d));
    }
    CloseHandle(h);
  }
  return SysError{};
}

SysError rawDeviceOpen(char16_t const* path, std::size_t length, bool allowBuffered, RawDeviceHandle& handle,
                       RawDeviceInfo& info) {
  handle = nullptr;
  info = RawDeviceInfo();
  std::wstring wide(reinterpret_cast<wchar_t const*>(path), length);
  if (wide.empty() || wide.find(L'\0') != std::wstring::npos) return errorOf(ERROR_INVALID_NAME, "CreateFileW");
  DWORD const share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  HANDLE h = CreateFileW(wide.c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING, FILE_FLAG_NO_BUFFERING, nullptr);
  if (h == INVALID_HANDLE_VALUE && GetLastError() == ERROR_INVALID_PARAMETER) {
    h = CreateFileW(wide.c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING, 0, nullptr);
    if (h == INVALID_HANDLE_VALUE) return errorOf(GetLastError(), "CreateFileW");
    if (!allowBuffered) {
      CloseHandle(h);
      return errorOf(ERROR_INVALID_PARAMETER, kUnbufferedRefused);
    }
    info.unbuffered = false;
  }
  if (h == INVALID_HANDLE_VALUE) return errorOf(GetLastError(), "CreateFileW");
  BY_HANDLE_FILE_INFORMATION fileInfo;
  if (GetFileInformationByHandle(h, &fileInfo) && (fileInfo.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
    CloseHandle(h);
    return errorOf(ERROR_DIRECTORY, "CreateFileW");
  }
  bool const devicePath = wide.compare(0, 4, L"\\\\.\\") == 0 || wide.compare(0, 4, L"\\\\?\\") == 0;
  if (devicePath && deviceGeometry(h, info.size, info.sectorSize)) {
    info.isDevice = true;
  } else {
    LARGE_INTEGER size;
    if (!GetFileSizeEx(h, &size)) {
      SysError e = errorOf(GetLastError(), "GetFileSizeEx");
      CloseHandle(h);
      return e;
    }
    info.size = size.QuadPart;
    // Unbuffered file reads align to the sectors of the volume holding it.
    info.sectorSize = 4096;
    wchar_t root[MAX_PATH + 1];
    DWORD sectorsPerCluster = 0, bytesPerSector = 0, freeClusters = 0, clusters = 0;
    if (GetVolumePathNameW(wide.c_str(), root, MAX_PATH + 1) &&
        GetDiskFreeSpaceW(root, &sectorsPerCluster, &bytesPerSector, &freeClusters, &clusters) &&
        bytesPerSector > 0) {
      info.sectorSize = static_cast<int>(bytesPerSector);
    }
  }
  if (info.sectorSize <= 0) info.sectorSize = 512;
  handle = new (std::nothrow) NativeRawDevice;
  if (!handle) {
    CloseHandle(h);
    return errorOf(ERROR_NOT_ENOUGH_MEMORY, "CreateFileW");
  }
  handle->handle = h;
  return SysError{};
}

SysError rawDeviceRead(RawDeviceHandle handle, long long offset, void* buffer, std::size_t size, std::size_t& done) {
  done = 0;
  auto* bytes = static_cast<unsigned char*>(buffer);
  while (done < size) {
    DWORD const chunk = static_cast<DWORD>(std::min<std::size_t>(size - done, 0x40000000u));
    OVERLAPPED at = {};
    unsigned long long const where = static_cast<unsigned long long>(offset) + done;
    at.Offset = static_cast<DWORD>(where & 0xFFFFFFFFu);
    at.OffsetHigh = static_cast<DWORD>(where >> 32);
    DWORD got = 0;
    if (!ReadFile(handle->handle, bytes + done, chunk, &got, &at)) {
      DWORD code = GetLastError();
      if (code == ERROR_HANDLE_EOF) break;
      return errorOf(code, "ReadFile");
    }
    if (got == 0) break;
    done += got;
    if (got < chunk) break;
  }
  return SysError{};
}

void rawDeviceClose(RawDeviceHandle handle) {
  if (!handle) return;
  CloseHandle(handle->handle);
  delete handle;
}

RawDeviceErrorKind rawDeviceErrorKind(SysError const& error) {
  if (error.api == kUnbufferedRefused) return RawDeviceErrorKind::UnbufferedUnsupported;
  switch (error.code) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_NETPATH:
      return RawDeviceErrorKind::NotFound;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
      return RawDeviceErrorKind::AccessDenied;
    default:
      return RawDeviceErrorKind::Other;
  }
}

}  // namespace qo::platform
