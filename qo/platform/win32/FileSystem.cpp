#include "qo/platform/FileSystem.h"

#include <cstring>
#include <new>
#include <string>
#include <vector>

#include <windows.h>
#include <winioctl.h>

namespace qo::platform {

struct FsFolder {
  HANDLE find = INVALID_HANDLE_VALUE;
  WIN32_FIND_DATAW data{};
  bool havePending = false;  // data holds an entry not handed out yet
};

namespace {

static_assert(sizeof(wchar_t) == sizeof(char16_t), "Windows wide characters are UTF-16 units");

#ifndef SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE
#define SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE 0x2
#endif

constexpr DWORD kTagSymLink = 0xA000000CUL;     // IO_REPARSE_TAG_SYMLINK
constexpr DWORD kTagMountPoint = 0xA0000003UL;  // IO_REPARSE_TAG_MOUNT_POINT
constexpr ULONG kSymLinkRelative = 1;           // SYMLINK_FLAG_RELATIVE
constexpr long long kFileTimeOf1970 = 116444736000000000LL;
constexpr DWORD kAttributeBits = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM |
                                 FILE_ATTRIBUTE_ARCHIVE;

// The reparse-data layouts of the DDK (REPARSE_DATA_BUFFER), spelled out
// here so that no driver header is needed.
struct ReparseHeader {
  ULONG tag;
  USHORT dataLength;
  USHORT reserved;
};
struct ReparseNames {
  USHORT substituteOffset;
  USHORT substituteLength;
  USHORT printOffset;
  USHORT printLength;
};

SysError errorOf(DWORD code) { return SysError{code, sysErrorText(code)}; }
SysError ok() { return SysError{}; }

// The APIs want NUL-terminated text; an embedded NUL would silently cut the
// path short, so it is refused.
bool toWide(std::u16string const& path, std::wstring& out) {
  out.assign(reinterpret_cast<wchar_t const*>(path.data()), path.size());
  return out.find(L'\0') == std::wstring::npos;
}

#define QO_FS_PATH(var, text) \
  std::wstring var;           \
  if (!toWide(text, var)) return errorOf(ERROR_INVALID_NAME)

std::u16string fromWide(wchar_t const* text, std::size_t length) {
  return std::u16string(reinterpret_cast<char16_t const*>(text), length);
}

long long microsOf(FILETIME const& ft) {
  long long const value = static_cast<long long>((static_cast<unsigned long long>(ft.dwHighDateTime) << 32) |
                                                 ft.dwLowDateTime);
  long long const since1970 = value - kFileTimeOf1970;
  return since1970 >= 0 ? since1970 / 10 : -((-since1970 + 9) / 10);
}

FILETIME fileTimeOf(long long micros) {
  auto const value = static_cast<unsigned long long>(micros * 10 + kFileTimeOf1970);
  FILETIME ft;
  ft.dwLowDateTime = static_cast<DWORD>(value);
  ft.dwHighDateTime = static_cast<DWORD>(value >> 32);
  return ft;
}

bool isNotFound(DWORD code) {
  return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND || code == ERROR_INVALID_DRIVE ||
         code == ERROR_BAD_NETPATH || code == ERROR_BAD_NET_NAME || code == ERROR_DIRECTORY;
}

struct AttributeBit {
  DWORD native;
  unsigned bit;
};
constexpr AttributeBit kAttributeMap[] = {{FILE_ATTRIBUTE_READONLY, kFsAttrReadOnly},
                                          {FILE_ATTRIBUTE_HIDDEN, kFsAttrHidden},
                                          {FILE_ATTRIBUTE_SYSTEM, kFsAttrSystem},
                                          {FILE_ATTRIBUTE_ARCHIVE, kFsAttrArchive}};

unsigned attributesOf(DWORD native) {
  unsigned bits = 0;
  for (AttributeBit const& a : kAttributeMap) bits |= (native & a.native) ? a.bit : 0u;
  return bits;
}

DWORD nativeOf(unsigned bits) {
  DWORD native = 0;
  for (AttributeBit const& a : kAttributeMap) native |= (bits & a.bit) ? a.native : 0;
  return native;
}

// Kind, size, times and attributes common to the stat and listing records.
void fillBasics(FsStat& out, DWORD attributes, FILETIME const& created, FILETIME const& written,
                FILETIME const& accessed, DWORD sizeHigh, DWORD sizeLow) {
  bool const folder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  out.kind = folder ? FsKind::Folder : FsKind::File;
  out.size = folder ? 0 : static_cast<long long>((static_cast<unsigned long long>(sizeHigh) << 32) | sizeLow);
  out.creationMicros = microsOf(created);
  out.writeMicros = microsOf(written);
  out.accessMicros = microsOf(accessed);
  out.attributes = attributesOf(attributes);
}

// A reparse point that is a link becomes one; other reparse points (cloud
// placeholders, deduplicated files) stay the file or folder they present.
void applyReparseTag(FsStat& out, DWORD attributes, DWORD tag) {
  if (!(attributes & FILE_ATTRIBUTE_REPARSE_POINT)) return;
  if (tag == kTagSymLink) {
    out.kind = FsKind::SymLink;
    out.linkToFolder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    out.size = 0;
  } else if (tag == kTagMountPoint) {
    out.kind = FsKind::Junction;
    out.linkToFolder = true;
    out.size = 0;
  }
}

HANDLE openForInfo(std::wstring const& path, bool followLinks, DWORD access) {
  DWORD const flags = FILE_FLAG_BACKUP_SEMANTICS | (followLinks ? 0 : FILE_FLAG_OPEN_REPARSE_POINT);
  return CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                     OPEN_EXISTING, flags, nullptr);
}

std::wstring stripped(std::wstring text) {
  if (text.compare(0, 4, L"\\??\\") == 0) {
    text.erase(0, 4);
    if (text.compare(0, 4, L"UNC\\") == 0) text.replace(0, 3, L"\\");
  }
  return text;
}

// The tag and the stored target of the reparse point open as handle.
bool readReparse(HANDLE handle, DWORD& tag, std::u16string& target) {
  std::vector<unsigned char> buffer(16 * 1024);
  DWORD got = 0;
  if (!DeviceIoControl(handle, FSCTL_GET_REPARSE_POINT, nullptr, 0, buffer.data(), static_cast<DWORD>(buffer.size()),
                       &got, nullptr) ||
      got < sizeof(ReparseHeader)) {
    return false;
  }
  ReparseHeader header;
  std::memcpy(&header, buffer.data(), sizeof header);
  tag = header.tag;
  std::size_t namesAt = sizeof(ReparseHeader);
  std::size_t pathAt = namesAt + sizeof(ReparseNames);
  ULONG flags = 0;
  if (tag == kTagSymLink) {
    std::memcpy(&flags, buffer.data() + pathAt, sizeof flags);
    pathAt += sizeof(ULONG);
  } else if (tag != kTagMountPoint) {
    return true;
  }
  if (got < pathAt) return true;
  ReparseNames names;
  std::memcpy(&names, buffer.data() + namesAt, sizeof names);
  auto name = [&](USHORT offset, USHORT length) {
    if (pathAt + offset + length > got) return std::wstring();
    std::wstring text(length / sizeof(wchar_t), L'\0');
    std::memcpy(&text[0], buffer.data() + pathAt + offset, length);
    return text;
  };
  std::wstring text = name(names.printOffset, names.printLength);
  if (text.empty()) text = name(names.substituteOffset, names.substituteLength);
  if (!(flags & kSymLinkRelative)) text = stripped(text);
  target = fromWide(text.data(), text.size());
  return true;
}

SysError fillFromHandle(HANDLE handle, bool readLink, FsStat& out) {
  BY_HANDLE_FILE_INFORMATION info;
  if (!GetFileInformationByHandle(handle, &info)) return errorOf(GetLastError());
  fillBasics(out, info.dwFileAttributes, info.ftCreationTime, info.ftLastWriteTime, info.ftLastAccessTime,
             info.nFileSizeHigh, info.nFileSizeLow);
  out.volumeId = info.dwVolumeSerialNumber;
  out.fileId = (static_cast<unsigned long long>(info.nFileIndexHigh) << 32) | info.nFileIndexLow;
  out.linkCount = static_cast<long long>(info.nNumberOfLinks);
  if (readLink && (info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT)) {
    DWORD tag = 0;
    std::u16string target;
    if (readReparse(handle, tag, target)) {
      applyReparseTag(out, info.dwFileAttributes, tag);
      if (out.kind == FsKind::SymLink || out.kind == FsKind::Junction) out.linkTarget = target;
    }
  }
  return ok();
}

// Changes the attribute bits in mask to those of value, keeping the rest.
SysError changeAttributes(std::wstring const& path, bool followLinks, DWORD mask, DWORD value) {
  HANDLE const h = openForInfo(path, followLinks, FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES);
  if (h == INVALID_HANDLE_VALUE) return errorOf(GetLastError());
  BY_HANDLE_FILE_INFORMATION info;
  SysError e;
  if (!GetFileInformationByHandle(h, &info)) {
    e = errorOf(GetLastError());
  } else {
    // Only these may be set; the others (folder, reparse point,
    // compressed ...) are states that the call would refuse.
    DWORD const settable = kAttributeBits | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED | FILE_ATTRIBUTE_OFFLINE |
                           FILE_ATTRIBUTE_TEMPORARY;
    DWORD const wanted = ((info.dwFileAttributes & ~mask) | (value & mask)) & settable;
    if (wanted != (info.dwFileAttributes & settable)) {
      FILE_BASIC_INFO basic{};  // zero times: leave them as they are
      basic.FileAttributes = wanted ? wanted : FILE_ATTRIBUTE_NORMAL;
      if (!SetFileInformationByHandle(h, FileBasicInfo, &basic, sizeof basic)) e = errorOf(GetLastError());
    }
  }
  CloseHandle(h);
  return e;
}

// Runs remove on path; when a read-only attribute refuses it, clears the
// attribute and tries again (POSIX never asks the object itself).
template <class F>
SysError removeEvenReadOnly(std::wstring const& path, F remove) {
  if (remove(path.c_str())) return ok();
  DWORD const code = GetLastError();
  DWORD const attributes = GetFileAttributesW(path.c_str());
  if (code != ERROR_ACCESS_DENIED || attributes == INVALID_FILE_ATTRIBUTES ||
      !(attributes & FILE_ATTRIBUTE_READONLY)) {
    return errorOf(code);
  }
  if (!SetFileAttributesW(path.c_str(), attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY))) {
    return errorOf(code);
  }
  if (remove(path.c_str())) return ok();
  SysError e = errorOf(GetLastError());
  SetFileAttributesW(path.c_str(), attributes);
  return e;
}

SysError volumePathOf(std::wstring const& path, std::wstring& root) {
  std::vector<wchar_t> buffer(path.size() + MAX_PATH + 2);
  if (!GetVolumePathNameW(path.c_str(), buffer.data(), static_cast<DWORD>(buffer.size()))) {
    return errorOf(GetLastError());
  }
  root = buffer.data();
  if (root.empty() || root.back() != L'\\') root += L'\\';
  return ok();
}

bool sameFile(std::wstring const& a, std::wstring const& b) {
  BY_HANDLE_FILE_INFORMATION ia, ib;
  bool result = false;
  HANDLE const ha = openForInfo(a, true, 0);
  HANDLE const hb = openForInfo(b, true, 0);
  if (ha != INVALID_HANDLE_VALUE && hb != INVALID_HANDLE_VALUE && GetFileInformationByHandle(ha, &ia) &&
      GetFileInformationByHandle(hb, &ib)) {
    result = ia.dwVolumeSerialNumber == ib.dwVolumeSerialNumber && ia.nFileIndexHigh == ib.nFileIndexHigh &&
             ia.nFileIndexLow == ib.nFileIndexLow;
  }
  if (ha != INVALID_HANDLE_VALUE) CloseHandle(ha);
  if (hb != INVALID_HANDLE_VALUE) CloseHandle(hb);
  return result;
}

bool isFolder(std::wstring const& path) {
  DWORD const attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

}  // namespace

FsErrorKind fsErrorKind(SysError const& error) {
  switch (error.code) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME: return FsErrorKind::NotFound;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS: return FsErrorKind::AlreadyExists;
    case ERROR_ACCESS_DENIED:
    case ERROR_WRITE_PROTECT:
    case ERROR_PRIVILEGE_NOT_HELD: return FsErrorKind::AccessDenied;
    case ERROR_DIRECTORY:
    case ERROR_NOT_A_REPARSE_POINT: return FsErrorKind::WrongKind;
    case ERROR_DIR_NOT_EMPTY: return FsErrorKind::NotEmpty;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL: return FsErrorKind::NoSpace;
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION: return FsErrorKind::InUse;
    case ERROR_NOT_SAME_DEVICE: return FsErrorKind::CrossDevice;
    case ERROR_NOT_SUPPORTED:
    case ERROR_INVALID_FUNCTION:
    case ERROR_CALL_NOT_IMPLEMENTED: return FsErrorKind::Unsupported;
    case ERROR_INVALID_NAME:
    case ERROR_BAD_PATHNAME:
    case ERROR_FILENAME_EXCED_RANGE: return FsErrorKind::InvalidName;
    default: return FsErrorKind::Other;
  }
}

FsTransience fsErrorTransience(std::uint32_t code) {
  switch (code) {
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_BUSY:
    case ERROR_PATH_BUSY:
    case ERROR_DRIVE_LOCKED:
    case ERROR_NETWORK_BUSY:
    case ERROR_USER_MAPPED_FILE: return FsTransience::Refused;
    case ERROR_UNEXP_NET_ERR:
    case ERROR_NETNAME_DELETED:
    case ERROR_BAD_NET_RESP:
    case ERROR_DEV_NOT_EXIST:
    case ERROR_SEM_TIMEOUT:
    case ERROR_VC_DISCONNECTED:
    case ERROR_NETWORK_UNREACHABLE:
    case ERROR_HOST_UNREACHABLE:
    case ERROR_CONNECTION_ABORTED: return FsTransience::Uncertain;
    default: return FsTransience::Lasting;
  }
}

SysError fsStat(std::u16string const& path, bool followLinks, FsStat& out) {
  out = FsStat{};
  QO_FS_PATH(p, path);
  HANDLE const h = openForInfo(p, followLinks, FILE_READ_ATTRIBUTES);
  if (h != INVALID_HANDLE_VALUE) {
    SysError e = fillFromHandle(h, !followLinks, out);
    CloseHandle(h);
    if (!e) return e;
  } else if (isNotFound(GetLastError())) {
    return ok();  // also a dangling link followed
  }
  // Some objects refuse a handle (in use without sharing, no read-attribute
  // right); the attribute query still tells most, without identity.
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (!GetFileAttributesExW(p.c_str(), GetFileExInfoStandard, &data)) {
    DWORD const code = GetLastError();
    if (isNotFound(code)) return ok();
    return errorOf(code);
  }
  fillBasics(out, data.dwFileAttributes, data.ftCreationTime, data.ftLastWriteTime, data.ftLastAccessTime,
             data.nFileSizeHigh, data.nFileSizeLow);
  if (!followLinks && (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT)) {
    WIN32_FIND_DATAW find;
    HANDLE const f = FindFirstFileW(p.c_str(), &find);
    if (f != INVALID_HANDLE_VALUE) {
      applyReparseTag(out, data.dwFileAttributes, find.dwReserved0);
      FindClose(f);
    }
  }
  return ok();
}

SysError fsCreateFolder(std::u16string const& path) {
  QO_FS_PATH(p, path);
  return CreateDirectoryW(p.c_str(), nullptr) ? ok() : errorOf(GetLastError());
}

SysError fsRemoveFolder(std::u16string const& path) {
  QO_FS_PATH(p, path);
  return removeEvenReadOnly(p, [](wchar_t const* name) { return RemoveDirectoryW(name) != FALSE; });
}

SysError fsDeleteFile(std::u16string const& path) {
  QO_FS_PATH(p, path);
  SysError e = removeEvenReadOnly(p, [](wchar_t const* name) { return DeleteFileW(name) != FALSE; });
  // DeleteFileW says "access denied" to a folder; say what it is.
  if (e.code == ERROR_ACCESS_DENIED && isFolder(p)) return errorOf(ERROR_DIRECTORY);
  return e;
}

SysError fsRemoveLink(std::u16string const& path) {
  QO_FS_PATH(p, path);
  // A folder link (junction, folder symbolic link) is removed as a folder,
  // a file link as a file; neither touches what it leads to.
  BOOL const done = isFolder(p) ? RemoveDirectoryW(p.c_str()) : DeleteFileW(p.c_str());
  return done ? ok() : errorOf(GetLastError());
}

SysError fsRename(std::u16string const& from, std::u16string const& to, bool overwrite) {
  QO_FS_PATH(f, from);
  QO_FS_PATH(t, to);
  DWORD const flags = MOVEFILE_COPY_ALLOWED | (overwrite ? MOVEFILE_REPLACE_EXISTING : 0);
  if (MoveFileExW(f.c_str(), t.c_str(), flags)) return ok();
  DWORD const code = GetLastError();
  // Replacing a folder is refused as "access denied": the name is taken.
  if (code == ERROR_ACCESS_DENIED && overwrite && isFolder(t)) return errorOf(ERROR_ALREADY_EXISTS);
  return errorOf(code);
}

SysError fsReplaceFile(std::u16string const& from, std::u16string const& to, bool overwrite) {
  QO_FS_PATH(f, from);
  QO_FS_PATH(t, to);
  DWORD const flags = MOVEFILE_WRITE_THROUGH | (overwrite ? MOVEFILE_REPLACE_EXISTING : 0);
  if (MoveFileExW(f.c_str(), t.c_str(), flags)) return ok();
  return errorOf(GetLastError());
}

SysError fsCopyFile(std::u16string const& from, std::u16string const& to, bool overwrite) {
  QO_FS_PATH(f, from);
  QO_FS_PATH(t, to);
  if (isFolder(f) || isFolder(t)) {
    DWORD const attributes = GetFileAttributesW(f.c_str());
    return errorOf(attributes == INVALID_FILE_ATTRIBUTES ? GetLastError() : ERROR_DIRECTORY);
  }
  if (overwrite && sameFile(f, t)) return errorOf(ERROR_INVALID_PARAMETER);
  if (!CopyFileW(f.c_str(), t.c_str(), overwrite ? FALSE : TRUE)) return errorOf(GetLastError());
  // The copy to the medium; a read-only copy cannot be opened to flush it
  // and stays as the system's cache has it.
  HANDLE const copy = CreateFileW(t.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                  nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (copy != INVALID_HANDLE_VALUE) {
    FlushFileBuffers(copy);
    CloseHandle(copy);
  }
  return ok();
}

SysError fsCreateHardLink(std::u16string const& link, std::u16string const& target) {
  QO_FS_PATH(l, link);
  QO_FS_PATH(t, target);
  if (CreateHardLinkW(l.c_str(), t.c_str(), nullptr)) return ok();
  DWORD const code = GetLastError();
  if (code == ERROR_ACCESS_DENIED && isFolder(t)) return errorOf(ERROR_DIRECTORY);
  return errorOf(code);
}

SysError fsCreateSymLink(std::u16string const& link, std::u16string const& target, bool toFolder) {
  QO_FS_PATH(l, link);
  QO_FS_PATH(t, target);
  DWORD const kind = toFolder ? SYMBOLIC_LINK_FLAG_DIRECTORY : 0;
  BOOL made = CreateSymbolicLinkW(l.c_str(), t.c_str(), kind | SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE);
  // Windows before 10 (1703) does not know the unprivileged flag.
  if (!made && GetLastError() == ERROR_INVALID_PARAMETER) made = CreateSymbolicLinkW(l.c_str(), t.c_str(), kind);
  if (!made) return errorOf(GetLastError());
  // Some implementations (Wine 8) report success without making anything.
  DWORD const attributes = GetFileAttributesW(l.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_REPARSE_POINT)) {
    return errorOf(ERROR_NOT_SUPPORTED);
  }
  return ok();
}

SysError fsCreateJunction(std::u16string const& link, std::u16string const& target) {
  QO_FS_PATH(l, link);
  QO_FS_PATH(t, target);
  // The reparse point stores the NT form ("\??\C:\x", "\??\UNC\srv\share")
  // to follow and the plain form to show.
  std::wstring print = t;
  if (print.compare(0, 4, L"\\\\?\\") == 0) {
    print.erase(0, 4);
    if (print.size() >= 4 && _wcsnicmp(print.c_str(), L"UNC\\", 4) == 0) print.replace(0, 3, L"\\");
  }
  std::wstring substitute = L"\\??\\";
  substitute += print.compare(0, 2, L"\\\\") == 0 ? L"UNC" + print.substr(1) : print;
  std::size_t const namesBytes = (substitute.size() + 1 + print.size() + 1) * sizeof(wchar_t);
  std::size_t const dataLength = sizeof(ReparseNames) + namesBytes;
  if (dataLength > 0xFFFF - sizeof(ReparseHeader)) return errorOf(ERROR_FILENAME_EXCED_RANGE);
  std::vector<unsigned char> buffer(sizeof(ReparseHeader) + dataLength, 0);
  ReparseHeader const header{kTagMountPoint, static_cast<USHORT>(dataLength), 0};
  ReparseNames const names{0, static_cast<USHORT>(substitute.size() * sizeof(wchar_t)),
                           static_cast<USHORT>((substitute.size() + 1) * sizeof(wchar_t)),
                           static_cast<USHORT>(print.size() * sizeof(wchar_t))};
  std::memcpy(buffer.data(), &header, sizeof header);
  std::memcpy(buffer.data() + sizeof header, &names, sizeof names);
  unsigned char* const text = buffer.data() + sizeof header + sizeof names;
  std::memcpy(text, substitute.c_str(), (substitute.size() + 1) * sizeof(wchar_t));
  std::memcpy(text + names.printOffset, print.c_str(), (print.size() + 1) * sizeof(wchar_t));

  if (!CreateDirectoryW(l.c_str(), nullptr)) return errorOf(GetLastError());
  HANDLE const h = CreateFileW(l.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                               FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  SysError e;
  if (h == INVALID_HANDLE_VALUE) {
    e = errorOf(GetLastError());
  } else {
    DWORD got = 0;
    if (!DeviceIoControl(h, FSCTL_SET_REPARSE_POINT, buffer.data(), static_cast<DWORD>(buffer.size()), nullptr, 0,
                         &got, nullptr)) {
      e = errorOf(GetLastError());
    }
    CloseHandle(h);
  }
  if (e) RemoveDirectoryW(l.c_str());
  return e;
}

SysError fsSetTimes(std::u16string const& path, bool followLinks, long long creationMicros, long long writeMicros,
                    long long accessMicros) {
  QO_FS_PATH(p, path);
  HANDLE const h = openForInfo(p, followLinks, FILE_WRITE_ATTRIBUTES);
  if (h == INVALID_HANDLE_VALUE) return errorOf(GetLastError());
  FILETIME const created = fileTimeOf(creationMicros == kFsNoTime ? 0 : creationMicros);
  FILETIME const written = fileTimeOf(writeMicros == kFsNoTime ? 0 : writeMicros);
  FILETIME const accessed = fileTimeOf(accessMicros == kFsNoTime ? 0 : accessMicros);
  BOOL const done = SetFileTime(h, creationMicros == kFsNoTime ? nullptr : &created,
                                accessMicros == kFsNoTime ? nullptr : &accessed,
                                writeMicros == kFsNoTime ? nullptr : &written);
  SysError e = done ? ok() : errorOf(GetLastError());
  CloseHandle(h);
  return e;
}

SysError fsSetAttributes(std::u16string const& path, bool followLinks, unsigned attributes) {
  QO_FS_PATH(p, path);
  return changeAttributes(p, followLinks, kAttributeBits, nativeOf(attributes));
}

SysError fsSetPosixMode(std::u16string const& path, bool followLinks, int mode) {
  QO_FS_PATH(p, path);
  return changeAttributes(p, followLinks, FILE_ATTRIBUTE_READONLY, (mode & 0200) ? 0 : FILE_ATTRIBUTE_READONLY);
}

SysError fsSetOwner(std::u16string const&, bool, long long, long long) { return errorOf(ERROR_NOT_SUPPORTED); }

SysError fsFreeSpace(std::u16string const& path, long long& bytes) {
  bytes = -1;
  QO_FS_PATH(p, path);
  if (!p.empty() && p.back() != L'\\') p += L'\\';
  ULARGE_INTEGER available, total, free;
  if (!GetDiskFreeSpaceExW(p.c_str(), &available, &total, &free)) return errorOf(GetLastError());
  bytes = static_cast<long long>(available.QuadPart);
  return ok();
}

SysError fsSectorSize(std::u16string const& path, long long& bytes) {
  bytes = -1;
  QO_FS_PATH(p, path);
  std::wstring root;
  if (SysError e = volumePathOf(p, root)) return e;
  DWORD sectorsPerCluster = 0, bytesPerSector = 0, freeClusters = 0, clusters = 0;
  if (!GetDiskFreeSpaceW(root.c_str(), &sectorsPerCluster, &bytesPerSector, &freeClusters, &clusters)) {
    return errorOf(GetLastError());
  }
  bytes = bytesPerSector;
  return ok();
}

SysError fsVolumeRoot(std::u16string const& path, std::u16string& root) {
  root.clear();
  QO_FS_PATH(p, path);
  std::wstring volume;
  if (SysError e = volumePathOf(p, volume)) return e;
  root = fromWide(volume.data(), volume.size());
  return ok();
}

SysError fsUserName(std::u16string& name) {
  name.clear();
  std::vector<wchar_t> buffer(257);  // UNLEN + 1
  DWORD size = static_cast<DWORD>(buffer.size());
  if (!GetUserNameW(buffer.data(), &size)) {
    DWORD const code = GetLastError();
    if (code != ERROR_INSUFFICIENT_BUFFER) return errorOf(code);
    buffer.resize(size);
    if (!GetUserNameW(buffer.data(), &size)) return errorOf(GetLastError());
  }
  name = fromWide(buffer.data(), std::wcslen(buffer.data()));
  return ok();
}

SysError fsNativeMetaData(std::u16string const& path, bool followLinks, std::u16string const& what,
                          std::string& format, std::string& bytes) {
  format.clear();
  bytes.clear();
  QO_FS_PATH(p, path);
  if (what.empty() || what == u"attributes") {
    HANDLE const h = openForInfo(p, followLinks, FILE_READ_ATTRIBUTES);
    if (h == INVALID_HANDLE_VALUE) return errorOf(GetLastError());
    BY_HANDLE_FILE_INFORMATION info;
    BOOL const done = GetFileInformationByHandle(h, &info);
    SysError e = done ? ok() : errorOf(GetLastError());
    CloseHandle(h);
    if (e) return e;
    format = "win32.BY_HANDLE_FILE_INFORMATION";
    bytes.assign(reinterpret_cast<char const*>(&info), sizeof info);
    return ok();
  }
  if (what == u"security") {
    SECURITY_INFORMATION const parts = OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION |
                                       DACL_SECURITY_INFORMATION;
    DWORD needed = 0;
    GetFileSecurityW(p.c_str(), parts, nullptr, 0, &needed);
    if (needed == 0) return errorOf(GetLastError());
    std::string descriptor(needed, '\0');
    if (!GetFileSecurityW(p.c_str(), parts, &descriptor[0], needed, &needed)) return errorOf(GetLastError());
    format = "win32.SECURITY_DESCRIPTOR";
    bytes = std::move(descriptor);
    return ok();
  }
  return errorOf(ERROR_NOT_SUPPORTED);
}

bool fsHasSubStreams() { return true; }

SysError fsSetSecurity(std::u16string const& path, std::string const& descriptor) {
  QO_FS_PATH(p, path);
  std::string copy = descriptor;  // the call takes a writable pointer
  PSECURITY_DESCRIPTOR const sd = copy.empty() ? nullptr : &copy[0];
  if (!sd || !IsValidSecurityDescriptor(sd)) return errorOf(ERROR_INVALID_SECURITY_DESCR);
  SECURITY_INFORMATION const all = OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
  if (SetFileSecurityW(p.c_str(), all, sd)) return ok();
  // Giving a file to another owner needs a privilege; the DACL alone does not.
  DWORD const code = GetLastError();
  if (code != ERROR_INVALID_OWNER && code != ERROR_ACCESS_DENIED && code != ERROR_PRIVILEGE_NOT_HELD) return errorOf(code);
  if (SetFileSecurityW(p.c_str(), DACL_SECURITY_INFORMATION, sd)) return ok();
  return errorOf(GetLastError());
}

SysError fsGetExtendedAttributes(std::u16string const&, bool, std::vector<std::pair<std::u16string, std::string>>& out) {
  out.clear();
  return errorOf(ERROR_NOT_SUPPORTED);
}

SysError fsSetExtendedAttribute(std::u16string const&, bool, std::u16string const&, std::string const&) {
  return errorOf(ERROR_NOT_SUPPORTED);
}

SysError fsFolderOpen(std::u16string const& path, FsFolder*& folder) {
  folder = nullptr;
  QO_FS_PATH(p, path);
  std::wstring pattern = p;
  if (!pattern.empty() && pattern.back() != L'\\') pattern += L'\\';
  pattern += L'*';
  auto* f = new (std::nothrow) FsFolder;
  if (!f) return errorOf(ERROR_NOT_ENOUGH_MEMORY);
  f->find = FindFirstFileExW(pattern.c_str(), FindExInfoBasic, &f->data, FindExSearchNameMatch, nullptr,
                             FIND_FIRST_EX_LARGE_FETCH);
  if (f->find == INVALID_HANDLE_VALUE && GetLastError() == ERROR_INVALID_PARAMETER) {
    // Before Windows 7 neither the basic level nor large fetches exist.
    f->find = FindFirstFileExW(pattern.c_str(), FindExInfoStandard, &f->data, FindExSearchNameMatch, nullptr, 0);
  }
  if (f->find == INVALID_HANDLE_VALUE) {
    DWORD const code = GetLastError();
    DWORD const attributes = GetFileAttributesW(p.c_str());
    delete f;
    if (attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
      return errorOf(ERROR_DIRECTORY);
    }
    // An empty drive root has not even "." to report.
    if (code == ERROR_FILE_NOT_FOUND && attributes != INVALID_FILE_ATTRIBUTES) {
      folder = new (std::nothrow) FsFolder;
      return folder ? ok() : errorOf(ERROR_NOT_ENOUGH_MEMORY);
    }
    return errorOf(code);
  }
  f->havePending = true;
  folder = f;
  return ok();
}

SysError fsFolderNext(FsFolder* folder, std::u16string& name, FsStat& entry, bool& done) {
  done = false;
  for (;;) {
    if (folder->find == INVALID_HANDLE_VALUE) {
      done = true;
      return ok();
    }
    if (!folder->havePending) {
      if (!FindNextFileW(folder->find, &folder->data)) {
        DWORD const code = GetLastError();
        if (code != ERROR_NO_MORE_FILES) return errorOf(code);
        FindClose(folder->find);
        folder->find = INVALID_HANDLE_VALUE;
        done = true;
        return ok();
      }
    }
    folder->havePending = false;
    WIN32_FIND_DATAW const& d = folder->data;
    if (d.cFileName[0] == L'.' && (d.cFileName[1] == 0 || (d.cFileName[1] == L'.' && d.cFileName[2] == 0))) {
      continue;
    }
    entry = FsStat{};
    fillBasics(entry, d.dwFileAttributes, d.ftCreationTime, d.ftLastWriteTime, d.ftLastAccessTime, d.nFileSizeHigh,
               d.nFileSizeLow);
    applyReparseTag(entry, d.dwFileAttributes, d.dwReserved0);
    name = fromWide(d.cFileName, std::wcslen(d.cFileName));
    return ok();
  }
}

void fsFolderClose(FsFolder* folder) {
  if (!folder) return;
  if (folder->find != INVALID_HANDLE_VALUE) FindClose(folder->find);
  delete folder;
}

}  // namespace qo::platform
