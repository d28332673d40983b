#include "qo/platform/Crash.h"
#include "qo/platform/UnexpectedHandler.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <ctime>
#include <new>

#if defined(__GLIBCXX__)
#  include <cxxabi.h>
#endif
#include <windows.h>

#include <stdlib.h>
#include <tlhelp32.h>
#if defined(_MSC_VER)
#  include <eh.h>
#endif

#include "qo/platform/win32/CrashRecord.h"

namespace qo::platform {

using namespace win32crash;

namespace {

// --- process-wide hook state ---------------------------------------------------

// Read by the hooks; written only while the hooks are being (un)installed,
// which the caller serialises.
CrashHooks g_hooks;

LONG WINAPI unhandledExceptionFilter(EXCEPTION_POINTERS* pointers) {
  if (g_hooks.onFault != nullptr && pointers != nullptr) {
    CrashContext context;
    context.exceptionPointers = pointers;
    g_hooks.onFault(context);
  }
  return EXCEPTION_CONTINUE_SEARCH;
}

void __cdecl pureCallHandler() {
  if (g_hooks.onPureCall != nullptr) g_hooks.onPureCall();
  std::abort();
}

void __cdecl invalidParameterHandler(wchar_t const* expression, wchar_t const* function, wchar_t const* file,
                                     unsigned line, std::uintptr_t) {
  if (g_hooks.onInvalidParameter != nullptr) g_hooks.onInvalidParameter(expression, function, file, line);
  std::abort();
}

#if defined(_MSC_VER)
void (*g_translator)(unsigned, void*) = nullptr;
void __cdecl seTranslator(unsigned code, EXCEPTION_POINTERS* pointers) {
  if (g_translator != nullptr) g_translator(code, pointers);
}
#endif

// --- pure virtual calls ----------------------------------------------------------

constexpr int kMaxPureVirtualFunctions = 16;
std::atomic<void const*> g_pureVirtualFunctions[kMaxPureVirtualFunctions];

// The start of the function holding address, from the module's unwind
// table; null when it has none.
void const* functionStart(void const* address) {
  DWORD64 imageBase = 0;
  auto const pc = reinterpret_cast<DWORD64>(address);
  PRUNTIME_FUNCTION const entry = RtlLookupFunctionEntry(pc, &imageBase, nullptr);
  if (entry == nullptr) return nullptr;
  return reinterpret_cast<void const*>(imageBase + entry->BeginAddress);
}

struct ModuleWalk {
  HANDLE snapshot;
  bool first;
};
static_assert(sizeof(ModuleWalk) <= sizeof(CrashModuleIterator::bytes), "grow CrashModuleIterator");

}  // namespace

// --- hooks -------------------------------------------------------------------------

void crashInstallHooks(CrashHooks const& hooks, CrashSavedHooks& previous) {
  g_hooks = hooks;
#if defined(__GLIBCXX__)
  // This library's own copy of the runtime, when it is linked in statically.
  crashRegisterPureVirtualFunction(reinterpret_cast<void const*>(&__cxxabiv1::__cxa_pure_virtual));
#endif
  LPTOP_LEVEL_EXCEPTION_FILTER const filter = hooks.onFault != nullptr ? &unhandledExceptionFilter : nullptr;
  previous.unhandledExceptionFilter = reinterpret_cast<void*>(SetUnhandledExceptionFilter(filter));
  // With MinGW's msvcrt these two only store the handler: that runtime has
  // no such hooks and a pure call of MSVC-built code ends the process by
  // itself. With the universal runtime they are the runtime's own.
  previous.pureCallHandler = reinterpret_cast<void*>(_set_purecall_handler(&pureCallHandler));
  previous.invalidParameterHandler =
      reinterpret_cast<void*>(_set_invalid_parameter_handler(&invalidParameterHandler));
  previous.unexpectedHandler = hooks.onUnexpected != nullptr ? swapUnexpectedHandler(hooks.onUnexpected) : nullptr;
  previous.installed = true;
}

void crashRestoreHooks(CrashSavedHooks& previous) {
  if (!previous.installed) return;
  SetUnhandledExceptionFilter(reinterpret_cast<LPTOP_LEVEL_EXCEPTION_FILTER>(previous.unhandledExceptionFilter));
  _set_purecall_handler(reinterpret_cast<_purecall_handler>(previous.pureCallHandler));
  _set_invalid_parameter_handler(reinterpret_cast<_invalid_parameter_handler>(previous.invalidParameterHandler));
  if (previous.unexpectedHandler != nullptr) {
    swapUnexpectedHandler(reinterpret_cast<void (*)()>(previous.unexpectedHandler));
  }
  g_hooks = CrashHooks();
  previous.installed = false;
}

void crashPrepareThread(void (*translator)(unsigned, void*)) {
  static thread_local bool t_prepared = false;
  if (t_prepared) return;
  t_prepared = true;
  // Without reserved stack, the filter of a stack overflow has a guard page
  // or less to run on.
  ULONG guarantee = 64 * 1024;
  SetThreadStackGuarantee(&guarantee);
#if defined(_MSC_VER)
  g_translator = translator;
  _set_se_translator(&seTranslator);
#else
  // g++ has no structured-exception translation: its catch (...) never
  // sees a structured exception, so the unhandled-exception filter does.
  (void)translator;
#endif
}

void crashAbort() { std::abort(); }

void crashTerminateProcess(unsigned exitCode) {
  TerminateProcess(GetCurrentProcess(), exitCode);
  std::abort();  // not reached
}

void crashRegisterPureVirtualFunction(void const* function) {
  // Stored as the unwind table knows its start, which is what the walk
  // finds.
  if (void const* start = function != nullptr ? functionStart(function) : nullptr) function = start;
  if (function == nullptr) return;
  for (auto& slot : g_pureVirtualFunctions) {
    void const* expected = nullptr;
    if (slot.load() == function) return;
    if (slot.compare_exchange_strong(expected, function)) return;
  }
}

bool crashIsInPureVirtualCall() {
  void* frames[32];
  USHORT const count = RtlCaptureStackBackTrace(0, 32, frames, nullptr);
  for (USHORT i = 0; i < count; ++i) {
    // - 1: the call into std::terminate may be the function's last
    // instruction, so the return address can lie past its end.
    void const* start = functionStart(static_cast<char const*>(frames[i]) - 1);
    if (start == nullptr) continue;
    for (auto const& slot : g_pureVirtualFunctions) {
      if (slot.load() == start) return true;
    }
  }
  return false;
}

long long crashTimeNow() { return static_cast<long long>(_time64(nullptr)); }

// SystemTimeToTzSpecificLocalTime allocates nothing and takes no lock of
// the library.
bool crashLocalTime(long long secondsSince1970, LocalTimeFields& out) {
  return !toLocalTime(secondsSince1970, out);
}

std::uint32_t crashCurrentThreadId() { return GetCurrentThreadId(); }

void crashSleep(int millis) { Sleep(millis < 0 ? 0 : static_cast<DWORD>(millis)); }

// --- the record ------------------------------------------------------------------

void crashRecordCapture(CrashRecord& record, CrashContext const& context) {
  std::memset(record.bytes, 0, sizeof record.bytes);
  WinRecord& r = rec(record);
  r.magic = kRecordMagic;
  r.threadId = GetCurrentThreadId();
  auto const* pointers = static_cast<EXCEPTION_POINTERS const*>(context.exceptionPointers);
  if (pointers != nullptr) {
    if (pointers->ExceptionRecord != nullptr) r.exception = *pointers->ExceptionRecord;
    if (pointers->ContextRecord != nullptr) r.context = *pointers->ContextRecord;
    r.exception.ExceptionRecord = nullptr;  // a chained record is not copied
    r.hasFault = true;
  }
  r.pointers.ExceptionRecord = &r.exception;
  r.pointers.ContextRecord = &r.context;
}

void crashRecordCaptureCurrent(CrashRecord& record) {
  std::memset(record.bytes, 0, sizeof record.bytes);
  WinRecord& r = rec(record);
  r.magic = kRecordMagic;
  r.threadId = GetCurrentThreadId();
  RtlCaptureContext(&r.context);
  r.hasFault = false;
  r.pointers.ExceptionRecord = &r.exception;
  r.pointers.ContextRecord = &r.context;
}

bool crashRecordHasFault(CrashRecord const& record) { return hasFault(record); }

CrashFaultKind crashRecordKind(CrashRecord const& record) {
  if (!hasFault(record)) return CrashFaultKind::kUnknown;
  switch (rec(record).exception.ExceptionCode) {
    case EXCEPTION_ACCESS_VIOLATION: return CrashFaultKind::kAccessViolation;
    case EXCEPTION_FLT_DIVIDE_BY_ZERO: return CrashFaultKind::kFloatDivideByZero;
    case EXCEPTION_FLT_DENORMAL_OPERAND:
    case EXCEPTION_FLT_INEXACT_RESULT:
    case EXCEPTION_FLT_INVALID_OPERATION:
    case EXCEPTION_FLT_OVERFLOW:
    case EXCEPTION_FLT_STACK_CHECK:
    case EXCEPTION_FLT_UNDERFLOW: return CrashFaultKind::kFloatError;
    case EXCEPTION_ILLEGAL_INSTRUCTION: return CrashFaultKind::kIllegalInstruction;
    case EXCEPTION_INT_DIVIDE_BY_ZERO: return CrashFaultKind::kIntDivideByZero;
    case EXCEPTION_INT_OVERFLOW: return CrashFaultKind::kIntOverflow;
    case EXCEPTION_STACK_OVERFLOW: return CrashFaultKind::kStackOverflow;
    case EXCEPTION_DATATYPE_MISALIGNMENT: return CrashFaultKind::kDataMisaligned;
    default: return CrashFaultKind::kUnknown;
  }
}

std::uint32_t crashRecordCode(CrashRecord const& record) { return rec(record).exception.ExceptionCode; }

std::uint32_t crashRecordFlags(CrashRecord const& record) { return rec(record).exception.ExceptionFlags; }

std::uint64_t crashRecordAddress(CrashRecord const& record) {
  return reinterpret_cast<std::uintptr_t>(rec(record).exception.ExceptionAddress);
}

int crashRecordParameterCount(CrashRecord const& record) {
  DWORD const n = rec(record).exception.NumberParameters;
  return static_cast<int>(n < EXCEPTION_MAXIMUM_PARAMETERS ? n : EXCEPTION_MAXIMUM_PARAMETERS);
}

std::uint64_t crashRecordParameter(CrashRecord const& record, int index) {
  if (index < 0 || index >= crashRecordParameterCount(record)) return 0;
  return rec(record).exception.ExceptionInformation[index];
}

bool crashRecordCodeAddress(CrashRecord const& record, std::uint64_t& address) {
  if (!hasFault(record)) return false;
  address = reinterpret_cast<std::uintptr_t>(rec(record).exception.ExceptionAddress);
  return true;
}

bool crashRecordMemoryAddress(CrashRecord const& record, std::uint64_t& address) {
  WinRecord const& r = rec(record);
  switch (crashRecordKind(record)) {
    case CrashFaultKind::kAccessViolation:
      // Parameter 0 is read/write/execute, parameter 1 the address.
      if (r.exception.NumberParameters < 2) return false;
      address = r.exception.ExceptionInformation[1];
      return true;
    case CrashFaultKind::kStackOverflow:
      address = r.context.Rsp;
      return true;
    default:
      return false;
  }
}

bool crashRecordSignal(CrashRecord const&, int&, int&, std::uint64_t&) { return false; }

// --- modules -----------------------------------------------------------------------

bool crashModulesBegin(CrashModuleIterator& it) {
  auto* walk = new (it.bytes) ModuleWalk{INVALID_HANDLE_VALUE, true};
  // The snapshot fails now and then with ERROR_BAD_LENGTH while modules are
  // being loaded; it is meant to be tried again.
  for (int attempt = 0; attempt < 5 && walk->snapshot == INVALID_HANDLE_VALUE; ++attempt) {
    walk->snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, 0);
    if (walk->snapshot == INVALID_HANDLE_VALUE && GetLastError() != ERROR_BAD_LENGTH) break;
  }
  return walk->snapshot != INVALID_HANDLE_VALUE;
}

bool crashModulesNext(CrashModuleIterator& it, CrashModule& module) {
  auto& walk = *std::launder(reinterpret_cast<ModuleWalk*>(it.bytes));
  if (walk.snapshot == INVALID_HANDLE_VALUE) return false;
  MODULEENTRY32W entry;
  entry.dwSize = sizeof entry;
  BOOL const ok = walk.first ? Module32FirstW(walk.snapshot, &entry) : Module32NextW(walk.snapshot, &entry);
  walk.first = false;
  if (!ok) return false;
  static_assert(MAX_PATH < kCrashMaxModuleName, "module path room");
  int n = 0;
  for (; entry.szExePath[n] != 0 && n < kCrashMaxModuleName - 1; ++n) module.name[n] = entry.szExePath[n];
  module.name[n] = 0;
  module.baseAddress = reinterpret_cast<std::uintptr_t>(entry.modBaseAddr);
  module.size = entry.modBaseSize;
  return true;
}

void crashModulesEnd(CrashModuleIterator& it) {
  auto& walk = *std::launder(reinterpret_cast<ModuleWalk*>(it.bytes));
  if (walk.snapshot != INVALID_HANDLE_VALUE) CloseHandle(walk.snapshot);
  walk.snapshot = INVALID_HANDLE_VALUE;
}

// --- raw files ---------------------------------------------------------------------

CrashFileHandle crashFileOpen(wchar_t const* path, CrashOpenType type) {
  if (path == nullptr || path[0] == 0) return kCrashNoFile;
  DWORD access = GENERIC_WRITE;
  DWORD share = FILE_SHARE_READ;
  DWORD disposition = CREATE_ALWAYS;
  switch (type) {
    case CrashOpenType::kCreate: break;
    case CrashOpenType::kAppend:
      // Every write goes to the end, whatever the position says.
      access = FILE_APPEND_DATA | SYNCHRONIZE;
      share = FILE_SHARE_READ | FILE_SHARE_WRITE;
      disposition = OPEN_ALWAYS;
      break;
    case CrashOpenType::kRead:
      access = GENERIC_READ;
      share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
      disposition = OPEN_EXISTING;
      break;
    case CrashOpenType::kUpdate:
      share = FILE_SHARE_READ | FILE_SHARE_WRITE;
      disposition = OPEN_EXISTING;
      break;
  }
  HANDLE const file = CreateFileW(path, access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
  return file == INVALID_HANDLE_VALUE ? kCrashNoFile : reinterpret_cast<CrashFileHandle>(file);
}

int crashFileRead(CrashFileHandle file, void* buffer, int size) {
  if (file == kCrashNoFile || size < 0) return -1;
  DWORD read = 0;
  if (!ReadFile(reinterpret_cast<HANDLE>(file), buffer, static_cast<DWORD>(size), &read, nullptr)) return -1;
  return static_cast<int>(read);
}

bool crashFileWrite(CrashFileHandle file, void const* data, int size) {
  if (file == kCrashNoFile || size < 0) return false;
  auto const* p = static_cast<char const*>(data);
  while (size > 0) {
    DWORD written = 0;
    if (!WriteFile(reinterpret_cast<HANDLE>(file), p, static_cast<DWORD>(size), &written, nullptr) || written == 0) {
      return false;
    }
    p += written;
    size -= static_cast<int>(written);
  }
  return true;
}

bool crashFileWriteAt(CrashFileHandle file, long long offset, void const* data, int size) {
  if (file == kCrashNoFile || size < 0) return false;
  LARGE_INTEGER const to{};
  LARGE_INTEGER at;
  at.QuadPart = offset;
  LARGE_INTEGER saved{};
  HANDLE const h = reinterpret_cast<HANDLE>(file);
  if (!SetFilePointerEx(h, to, &saved, FILE_CURRENT) || !SetFilePointerEx(h, at, nullptr, FILE_BEGIN)) return false;
  bool const ok = crashFileWrite(file, data, size);
  SetFilePointerEx(h, saved, nullptr, FILE_BEGIN);
  return ok;
}

long long crashFileSeekEnd(CrashFileHandle file) {
  if (file == kCrashNoFile) return -1;
  LARGE_INTEGER size{};
  if (!GetFileSizeEx(reinterpret_cast<HANDLE>(file), &size)) return -1;
  return size.QuadPart;
}

void crashFileClose(CrashFileHandle file) {
  if (file != kCrashNoFile) CloseHandle(reinterpret_cast<HANDLE>(file));
}

SysError crashCreateFolder(wchar_t const* path) {
  if (path == nullptr || path[0] == 0) return SysError{ERROR_INVALID_PARAMETER, sysErrorText(ERROR_INVALID_PARAMETER)};
  wchar_t buffer[4096];
  std::size_t const length = std::wcslen(path);
  if (length >= sizeof buffer / sizeof buffer[0]) {
    return SysError{ERROR_FILENAME_EXCED_RANGE, sysErrorText(ERROR_FILENAME_EXCED_RANGE)};
  }
  std::wmemcpy(buffer, path, length + 1);
  // Each prefix that ends before a separator; the root and the prefixes of
  // "\\?\" and UNC forms fail harmlessly.
  for (std::size_t i = 1; i < length; ++i) {
    if (buffer[i] != L'\\' && buffer[i] != L'/') continue;
    wchar_t const saved = buffer[i];
    buffer[i] = 0;
    CreateDirectoryW(buffer, nullptr);
    buffer[i] = saved;
  }
  if (!CreateDirectoryW(buffer, nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) {
    DWORD const code = GetLastError();
    DWORD const attributes = GetFileAttributesW(buffer);
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
      return SysError{code, sysErrorText(code)};
    }
  }
  DWORD const attributes = GetFileAttributesW(buffer);
  if (attributes == INVALID_FILE_ATTRIBUTES) return lastSysError();
  if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return SysError{ERROR_DIRECTORY, sysErrorText(ERROR_DIRECTORY)};
  return SysError();
}

}  // namespace qo::platform
