#include "qo/platform/Thread.h"

#include "qo/platform/win32/Win32Text.h"

#include <cerrno>
#include <cstring>
#include <string>

#include <process.h>
#include <windows.h>

namespace qo::platform {

using win32text::widen;

namespace {

HANDLE native(ThreadHandle handle) { return reinterpret_cast<HANDLE>(handle); }

// SetThreadDescription exists from Windows 10 1607 on; older systems (and
// older Wine) lack it, so it is looked up rather than linked.
using SetThreadDescriptionFunc = HRESULT(WINAPI*)(HANDLE, PCWSTR);

SetThreadDescriptionFunc findSetThreadDescription() {
  HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
  if (!kernel) return nullptr;
  return reinterpret_cast<SetThreadDescriptionFunc>(
      reinterpret_cast<void*>(GetProcAddress(kernel, "SetThreadDescription")));
}

// The debuggers' old naming protocol: exception 0x406D1388 carrying this
// record. Without a debugger nobody would handle it, so it is raised only
// while one is attached, and a vectored handler swallows it in case the
// debugger passes it back (MinGW has no __try to catch it locally).
constexpr DWORD kSetThreadNameException = 0x406D1388;

#pragma pack(push, 8)
struct ThreadNameInfo {
  DWORD type;       // 0x1000
  LPCSTR name;      // narrow name
  DWORD threadId;   // target thread
  DWORD flags;      // reserved, 0
};
#pragma pack(pop)

LONG CALLBACK swallowThreadNameException(EXCEPTION_POINTERS* info) {
  if (info && info->ExceptionRecord && info->ExceptionRecord->ExceptionCode == kSetThreadNameException)
    return EXCEPTION_CONTINUE_EXECUTION;
  return EXCEPTION_CONTINUE_SEARCH;
}

void raiseDebuggerThreadName(DWORD threadId, char const* name) {
  if (!IsDebuggerPresent()) return;
  ThreadNameInfo info{0x1000, name, threadId, 0};
  PVOID handler = AddVectoredExceptionHandler(1, &swallowThreadNameException);
  RaiseException(kSetThreadNameException, 0, sizeof info / sizeof(ULONG_PTR),
                 reinterpret_cast<ULONG_PTR const*>(&info));
  if (handler) RemoveVectoredExceptionHandler(handler);
}

}  // namespace

SysError threadStart(ThreadFunc func, void* arg, ThreadHandle& handle, std::uint64_t& id, int& crtErrno) {
  handle = nullptr;
  id = 0;
  crtErrno = 0;
  unsigned threadId = 0;
  SetLastError(0);
  errno = 0;
  uintptr_t h = _beginthreadex(nullptr, 0, func, arg, 0, &threadId);
  if (h == 0) {
    crtErrno = errno;
    SysError error = lastSysError();
    // The runtime may fail before any system call (EINVAL, EAGAIN) and
    // leave the last error at 0; ERROR_NOT_ENOUGH_MEMORY describes EAGAIN.
    if (!error) error = SysError{ERROR_NOT_ENOUGH_MEMORY, sysErrorText(ERROR_NOT_ENOUGH_MEMORY)};
    return error;
  }
  handle = reinterpret_cast<ThreadHandle>(h);
  id = threadId;
  return {};
}

SysError threadWait(ThreadHandle handle, int timeoutMillis, bool& finished) {
  finished = false;
  DWORD rc = WaitForSingleObject(native(handle), timeoutMillis < 0 ? INFINITE : static_cast<DWORD>(timeoutMillis));
  if (rc == WAIT_OBJECT_0) {
    finished = true;
    return {};
  }
  if (rc == WAIT_TIMEOUT) return {};
  return lastSysError();
}

bool threadIsRunning(ThreadHandle handle) { return handle && WaitForSingleObject(native(handle), 0) == WAIT_TIMEOUT; }

void threadClose(ThreadHandle handle) {
  if (handle) CloseHandle(native(handle));
}

std::uint64_t threadCurrentId() { return GetCurrentThreadId(); }

SysError threadIsAliveById(std::uint64_t id, bool& alive) {
  alive = false;
  if (id == 0 || id > 0xffffffffULL) return {};
  HANDLE h = OpenThread(SYNCHRONIZE, FALSE, static_cast<DWORD>(id));
  if (!h) {
    SysError error = lastSysError();
    // No thread with that id (any more).
    if (error.code == ERROR_INVALID_PARAMETER) return {};
    return error;
  }
  DWORD rc = WaitForSingleObject(h, 0);
  SysError error;
  if (rc == WAIT_TIMEOUT)
    alive = true;
  else if (rc == WAIT_FAILED)
    error = lastSysError();
  CloseHandle(h);
  return error;
}

SysError threadKillById(std::uint64_t id, int exitCode) {
  if (id > 0xffffffffULL) return SysError{ERROR_INVALID_PARAMETER, sysErrorText(ERROR_INVALID_PARAMETER)};
  HANDLE h = OpenThread(THREAD_TERMINATE, FALSE, static_cast<DWORD>(id));
  if (!h) return lastSysError();
  SysError error;
  if (!TerminateThread(h, static_cast<DWORD>(exitCode))) error = lastSysError();
  CloseHandle(h);
  return error;
}

void threadSetName(std::uint64_t id, char const* utf8Name) {
  if (!utf8Name || id > 0xffffffffULL) return;
  static SetThreadDescriptionFunc const setDescription = findSetThreadDescription();
  DWORD saved = GetLastError();
  if (setDescription) {
    HANDLE h = OpenThread(THREAD_SET_LIMITED_INFORMATION, FALSE, static_cast<DWORD>(id));
    if (h) {
      setDescription(h, widen(utf8Name).c_str());
      CloseHandle(h);
    }
  }
  raiseDebuggerThreadName(static_cast<DWORD>(id), utf8Name);
  SetLastError(saved);
}

}  // namespace qo::platform
