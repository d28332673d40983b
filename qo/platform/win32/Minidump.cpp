#include "qo/platform/Minidump.h"

#include <atomic>
#include <cstdint>

#include <windows.h>

#include <dbghelp.h>

#include "qo/platform/win32/CrashRecord.h"

namespace qo::platform {

using namespace win32crash;

namespace {

using MiniDumpWriteDumpFunc = BOOL(WINAPI*)(HANDLE, DWORD, HANDLE, MINIDUMP_TYPE, PMINIDUMP_EXCEPTION_INFORMATION,
                                            PMINIDUMP_USER_STREAM_INFORMATION, PMINIDUMP_CALLBACK_INFORMATION);
std::atomic<MiniDumpWriteDumpFunc> g_miniDumpWriteDump{nullptr};

// Loading a library takes the loader lock; done when the hooks are
// installed, so that a crash normally finds the function ready.
MiniDumpWriteDumpFunc miniDumpWriteDump() {
  MiniDumpWriteDumpFunc func = g_miniDumpWriteDump.load();
  if (func != nullptr) return func;
  HMODULE const module = LoadLibraryW(L"DbgHelp.dll");
  if (module == nullptr) return nullptr;
  func = reinterpret_cast<MiniDumpWriteDumpFunc>(
      reinterpret_cast<void*>(GetProcAddress(module, "MiniDumpWriteDump")));
  // Some DbgHelp versions (Wine's) load every module's symbols for the dump
  // unless loads are deferred; for a large program with debug information
  // that takes many seconds inside a crashed process.
  using SymGetOptionsFunc = DWORD(WINAPI*)();
  using SymSetOptionsFunc = DWORD(WINAPI*)(DWORD);
  auto const getOptions =
      reinterpret_cast<SymGetOptionsFunc>(reinterpret_cast<void*>(GetProcAddress(module, "SymGetOptions")));
  auto const setOptions =
      reinterpret_cast<SymSetOptionsFunc>(reinterpret_cast<void*>(GetProcAddress(module, "SymSetOptions")));
  if (getOptions != nullptr && setOptions != nullptr) setOptions(getOptions() | SYMOPT_DEFERRED_LOADS);
  g_miniDumpWriteDump = func;
  return func;
}

MINIDUMP_TYPE dumpType(bool fullMemory) {
  int type = MiniDumpWithHandleData | MiniDumpWithUnloadedModules | MiniDumpWithIndirectlyReferencedMemory |
             MiniDumpWithThreadInfo;
  if (fullMemory) type |= MiniDumpWithFullMemory | MiniDumpWithFullMemoryInfo;
  return static_cast<MINIDUMP_TYPE>(type);
}

}  // namespace

void crashPrepareMinidump() { (void)miniDumpWriteDump(); }

bool crashWriteMinidump(CrashFileHandle file, CrashRecord const& record, std::uint32_t threadId, bool fullMemory,
                        void*, int) {
  MiniDumpWriteDumpFunc const write = miniDumpWriteDump();
  if (write == nullptr || file == kCrashNoFile) return false;
  WinRecord const& r = rec(record);
  MINIDUMP_EXCEPTION_INFORMATION info;
  info.ThreadId = threadId;
  info.ExceptionPointers = const_cast<EXCEPTION_POINTERS*>(&r.pointers);
  info.ClientPointers = FALSE;
  // A runtime crash has no exception: the dump shows every thread as it is.
  bool const withException = hasFault(record);
  return write(GetCurrentProcess(), GetCurrentProcessId(), reinterpret_cast<HANDLE>(file), dumpType(fullMemory),
               withException ? &info : nullptr, nullptr, nullptr) != FALSE;
}

bool crashWriteMinidumpOfProcess(void* process, void* file, std::uint32_t processId, void* exceptionPointers,
                                 std::uint32_t threadId, bool fullMemory) {
  MiniDumpWriteDumpFunc const write = miniDumpWriteDump();
  if (write == nullptr) return false;
  MINIDUMP_EXCEPTION_INFORMATION info;
  info.ThreadId = threadId;
  info.ExceptionPointers = static_cast<EXCEPTION_POINTERS*>(exceptionPointers);
  // The pointers are the other process's.
  info.ClientPointers = TRUE;
  return write(static_cast<HANDLE>(process), processId, static_cast<HANDLE>(file), dumpType(fullMemory),
               exceptionPointers != nullptr ? &info : nullptr, nullptr, nullptr) != FALSE;
}

SysError crashWriteMinidumpOfOtherProcess(std::uint32_t processId, wchar_t const* path, std::uint32_t threadId,
                                          CrashRecord const*, std::uint64_t exceptionPointers, char const*& api) {
  HANDLE const process =
      OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ | PROCESS_DUP_HANDLE, FALSE, processId);
  if (process == nullptr) {
    api = "OpenProcess";
    return lastSysError(api);
  }
  HANDLE const file = CreateFileW(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                  nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    api = "CreateFileW";
    SysError const error = lastSysError(api);
    CloseHandle(process);
    return error;
  }
  void* const pointers = reinterpret_cast<void*>(static_cast<std::uintptr_t>(exceptionPointers));
  bool const ok = crashWriteMinidumpOfProcess(process, file, processId, pointers, threadId, false);
  SysError error;
  if (!ok) {
    api = "MiniDumpWriteDump";
    error = lastSysError(api);
    if (!error) error = sysErrorOf(ERROR_GEN_FAILURE, api);
  }
  CloseHandle(file);
  CloseHandle(process);
  return error;
}

}  // namespace qo::platform
