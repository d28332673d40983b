#include "qo/platform/File.h"

#include "qo/platform/FullPath.h"

#include <new>
#include <string>

#include <windows.h>

namespace qo::platform {

struct NativeFile {
  HANDLE handle = INVALID_HANDLE_VALUE;
  bool append = false;
};

namespace {

static_assert(sizeof(wchar_t) == sizeof(char16_t), "Windows wide characters are UTF-16 units");

SysError errorOf(DWORD code) { return SysError{code, sysErrorText(code)}; }

// The APIs want a NUL-terminated text; an embedded NUL would silently cut the
// path short, so it is refused.
bool toWide(char16_t const* path, std::size_t length, std::wstring& out) {
  out.assign(reinterpret_cast<wchar_t const*>(path), length);
  return out.find(L'\0') == std::wstring::npos;
}

LARGE_INTEGER large(long long value) {
  LARGE_INTEGER li;
  li.QuadPart = value;
  return li;
}

// ReadFile/WriteFile move at most a DWORD per call.
constexpr std::size_t kMaxChunk = 0x40000000u;

}  // namespace

SysError fileOpen(char16_t const* path, std::size_t length, FileOpenOptions const& options, FileHandle& handle) {
  handle = nullptr;
  std::wstring wide;
  if (length == 0) return errorOf(ERROR_FILE_NOT_FOUND);
  if (!toWide(path, length, wide)) return errorOf(ERROR_INVALID_NAME);
  bool const write = options.write || options.append;
  DWORD access = 0;
  if (options.read) access |= GENERIC_READ;
  if (write) access |= GENERIC_WRITE;
  if (options.deleteOnClose) access |= DELETE;
  DWORD share = 0;
  if (options.shareRead) share |= FILE_SHARE_READ;
  if (options.shareWrite) share |= FILE_SHARE_WRITE;
  if (options.shareDelete) share |= FILE_SHARE_DELETE;
  DWORD creation = OPEN_EXISTING;
  switch (options.creation) {
    case FileOpenOptions::OpenExisting: creation = OPEN_EXISTING; break;
    case FileOpenOptions::OpenOrCreate: creation = OPEN_ALWAYS; break;
    case FileOpenOptions::CreateNew: creation = CREATE_NEW; break;
    case FileOpenOptions::CreateOrTruncate: creation = CREATE_ALWAYS; break;
    case FileOpenOptions::TruncateExisting: creation = TRUNCATE_EXISTING; break;
  }
  DWORD flags = FILE_ATTRIBUTE_NORMAL;
  if (options.writeThrough) flags |= FILE_FLAG_WRITE_THROUGH;
  if (options.noBuffering) flags |= FILE_FLAG_NO_BUFFERING;
  if (options.sequential) flags |= FILE_FLAG_SEQUENTIAL_SCAN;
  if (options.randomAccess) flags |= FILE_FLAG_RANDOM_ACCESS;
  if (options.deleteOnClose) flags |= FILE_FLAG_DELETE_ON_CLOSE;
  HANDLE h = CreateFileW(wide.c_str(), access, share, nullptr, creation, flags, nullptr);
  if (h == INVALID_HANDLE_VALUE) {
    SysError error = lastSysError();
    // Opening a folder gives "access denied"; say what it really is.
    DWORD const attributes = GetFileAttributesW(wide.c_str());
    if (error.code == ERROR_ACCESS_DENIED && attributes != INVALID_FILE_ATTRIBUTES &&
        (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
      return errorOf(ERROR_DIRECTORY);
    }
    return error;
  }
  auto* file = new (std::nothrow) NativeFile;
  if (!file) {
    CloseHandle(h);
    return errorOf(ERROR_NOT_ENOUGH_MEMORY);
  }
  file->handle = h;
  file->append = options.append;
  handle = file;
  return SysError{};
}

SysError fileClose(FileHandle handle) {
  if (!handle) return SysError{};
  SysError result;
  if (!CloseHandle(handle->handle)) result = lastSysError();
  delete handle;
  return result;
}

SysError fileRead(FileHandle handle, void* buffer, std::size_t size, std::size_t& done) {
  done = 0;
  auto* bytes = static_cast<char*>(buffer);
  while (done < size) {
    std::size_t const chunk = size - done < kMaxChunk ? size - done : kMaxChunk;
    DWORD got = 0;
    if (!ReadFile(handle->handle, bytes + done, static_cast<DWORD>(chunk), &got, nullptr)) {
      if (GetLastError() == ERROR_HANDLE_EOF) break;
      return lastSysError();
    }
    if (got == 0) break;
    done += got;
  }
  return SysError{};
}

SysError fileWrite(FileHandle handle, void const* data, std::size_t size) {
  auto const* bytes = static_cast<char const*>(data);
  std::size_t done = 0;
  while (done < size) {
    std::size_t const chunk = size - done < kMaxChunk ? size - done : kMaxChunk;
    DWORD put = 0;
    BOOL ok;
    if (handle->append) {
      // Offset 0xFFFFFFFF:0xFFFFFFFF is "write at the end of file", atomic
      // as with FILE_APPEND_DATA; the file pointer follows the write.
      OVERLAPPED at = {};
      at.Offset = 0xFFFFFFFFu;
      at.OffsetHigh = 0xFFFFFFFFu;
      ok = WriteFile(handle->handle, bytes + done, static_cast<DWORD>(chunk), &put, &at);
    } else {
      ok = WriteFile(handle->handle, bytes + done, static_cast<DWORD>(chunk), &put, nullptr);
    }
    if (!ok) return lastSysError();
    if (put == 0) return errorOf(ERROR_WRITE_FAULT);
    done += put;
  }
  return SysError{};
}

SysError fileSeek(FileHandle handle, long long position) {
  if (position < 0) return errorOf(ERROR_NEGATIVE_SEEK);
  if (!SetFilePointerEx(handle->handle, large(position), nullptr, FILE_BEGIN)) return lastSysError();
  return SysError{};
}

SysError fileGetPosition(FileHandle handle, long long& position) {
  LARGE_INTEGER where;
  if (!SetFilePointerEx(handle->handle, large(0), &where, FILE_CURRENT)) return lastSysError();
  position = where.QuadPart;
  return SysError{};
}

SysError fileGetSize(FileHandle handle, long long& size) {
  LARGE_INTEGER li;
  if (!GetFileSizeEx(handle->handle, &li)) return lastSysError();
  size = li.QuadPart;
  return SysError{};
}

SysError fileSetSize(FileHandle handle, long long size) {
  if (size < 0) return errorOf(ERROR_INVALID_PARAMETER);
  LARGE_INTEGER saved;
  if (!SetFilePointerEx(handle->handle, large(0), &saved, FILE_CURRENT)) return lastSysError();
  SysError result;
  if (!SetFilePointerEx(handle->handle, large(size), nullptr, FILE_BEGIN) || !SetEndOfFile(handle->handle)) {
    result = lastSysError();
  }
  SetFilePointerEx(handle->handle, saved, nullptr, FILE_BEGIN);
  return result;
}

SysError fileFlush(FileHandle handle) {
  if (!FlushFileBuffers(handle->handle)) return lastSysError();
  return SysError{};
}

SysError fileLock(FileHandle handle, long long start, long long length, bool exclusive) {
  if (start < 0 || length <= 0) return errorOf(ERROR_INVALID_PARAMETER);
  OVERLAPPED at = {};
  at.Offset = static_cast<DWORD>(static_cast<unsigned long long>(start));
  at.OffsetHigh = static_cast<DWORD>(static_cast<unsigned long long>(start) >> 32);
  DWORD const flags = LOCKFILE_FAIL_IMMEDIATELY | (exclusive ? LOCKFILE_EXCLUSIVE_LOCK : 0);
  auto const len = static_cast<unsigned long long>(length);
  if (!LockFileEx(handle->handle, flags, 0, static_cast<DWORD>(len), static_cast<DWORD>(len >> 32), &at)) {
    return lastSysError();
  }
  return SysError{};
}

SysError fileUnlock(FileHandle handle, long long start, long long length) {
  if (start < 0 || length <= 0) return errorOf(ERROR_INVALID_PARAMETER);
  OVERLAPPED at = {};
  at.Offset = static_cast<DWORD>(static_cast<unsigned long long>(start));
  at.OffsetHigh = static_cast<DWORD>(static_cast<unsigned long long>(start) >> 32);
  auto const len = static_cast<unsigned long long>(length);
  if (!UnlockFileEx(handle->handle, 0, static_cast<DWORD>(len), static_cast<DWORD>(len >> 32), &at)) {
    return lastSysError();
  }
  return SysError{};
}

SysError fileDelete(char16_t const* path, std::size_t length) {
  std::wstring wide;
  if (length == 0) return errorOf(ERROR_FILE_NOT_FOUND);
  if (!toWide(path, length, wide)) return errorOf(ERROR_INVALID_NAME);
  if (!DeleteFileW(wide.c_str())) {
    SysError error = lastSysError();
    DWORD const attributes = GetFileAttributesW(wide.c_str());
    if (error.code == ERROR_ACCESS_DENIED && attributes != INVALID_FILE_ATTRIBUTES &&
        (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
      return errorOf(ERROR_DIRECTORY);
    }
    return error;
  }
  return SysError{};
}

bool fileIsRegular(char16_t const* path, std::size_t length) {
  std::wstring wide;
  if (length == 0 || !toWide(path, length, wide)) return false;
  DWORD const attributes = GetFileAttributesW(wide.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

SysError fileIsAtPath(FileHandle handle, char16_t const* path, std::size_t length, bool& same) {
  same = false;
  std::wstring wide;
  if (length == 0 || !toWide(path, length, wide)) return errorOf(ERROR_INVALID_NAME);
  BY_HANDLE_FILE_INFORMATION open;
  if (!GetFileInformationByHandle(handle->handle, &open)) return lastSysError();
  // No access rights asked: this open conflicts with no share mode.
  HANDLE named = CreateFileW(wide.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                             OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (named == INVALID_HANDLE_VALUE) {
    SysError error = lastSysError();
    // Missing, or pending deletion (access denied): not the open file's name.
    if (fileErrorKind(error) == FileErrorKind::NotFound || error.code == ERROR_ACCESS_DENIED) return SysError{};
    return error;
  }
  BY_HANDLE_FILE_INFORMATION info;
  BOOL const ok = GetFileInformationByHandle(named, &info);
  SysError error = ok ? SysError{} : lastSysError();
  CloseHandle(named);
  same = ok && info.dwVolumeSerialNumber == open.dwVolumeSerialNumber &&
         info.nFileIndexHigh == open.nFileIndexHigh && info.nFileIndexLow == open.nFileIndexLow;
  return error;
}

FileErrorKind fileErrorKind(SysError const& error) {
  switch (error.code) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME: return FileErrorKind::NotFound;
    case ERROR_ACCESS_DENIED:
    case ERROR_WRITE_PROTECT: return FileErrorKind::AccessDenied;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS: return FileErrorKind::AlreadyExists;
    case ERROR_SHARING_VIOLATION: return FileErrorKind::SharingViolation;
    case ERROR_LOCK_VIOLATION: return FileErrorKind::LockConflict;
    case ERROR_DIRECTORY: return FileErrorKind::IsFolder;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL: return FileErrorKind::NoSpace;
    default: return FileErrorKind::Other;
  }
}

// A virus scanner or indexer briefly holding the file gives these; they
// pass after a moment.
bool fileDeleteMayRetry(SysError const& error) {
  return error.code == ERROR_SHARING_VIOLATION || error.code == ERROR_ACCESS_DENIED ||
         error.code == ERROR_LOCK_VIOLATION;
}

bool fileUsesWindowsPaths() { return true; }
bool fileEnforcesSharing() { return true; }
bool fileSupportsNoBuffering() { return true; }

SysError fileAbsolutePath(char16_t const* path, std::size_t length, std::u16string& out) {
  return getFullPath(path, length, out);
}

}  // namespace qo::platform
