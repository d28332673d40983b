// qo/platform/Crash.h - what the crash handler needs from the OS (internal,
// OS-free): the crash hooks, a copy of the fault, the loaded modules, raw
// files and the per-thread preparation.
//
// Everything here except crashInstallHooks, crashRestoreHooks,
// crashPrepareThread and crashCreateFolder runs on the crash path: inside a
// process whose heap and locks may be broken, on the crashing thread, maybe
// in a signal handler. Those functions allocate nothing, take no lock of the
// library and never throw.
//
// Windows: SetUnhandledExceptionFilter, _set_purecall_handler,
// _set_invalid_parameter_handler, SetThreadStackGuarantee,
// CreateToolhelp32Snapshot, CreateFileW.
// POSIX: sigaction for SIGSEGV, SIGBUS, SIGFPE, SIGILL and SIGABRT on an
// alternate signal stack, dl_iterate_phdr, open/write.
// Minidumps are written by Minidump.h.
//
//   CrashSavedHooks saved;
//   crashInstallHooks(hooks, saved);   // under the caller's lock
//   ...
//   crashRestoreHooks(saved);
#ifndef QO_PLATFORM_CRASH_H
#define QO_PLATFORM_CRASH_H

#include <cstdint>

#include "qo/platform/LastError.h"
#include "qo/platform/LocalTime.h"

namespace qo::platform {

/// What the OS handed to the fault hook. Windows fills exceptionPointers
/// (an EXCEPTION_POINTERS*); POSIX fills the signal number, its siginfo_t*
/// and its ucontext_t*. Only valid while the hook runs.
struct CrashContext {
  void* exceptionPointers = nullptr;
  int signalNumber = 0;
  void* signalInfo = nullptr;
  void* userContext = nullptr;
};

/// The kinds of fault the library tells apart.
enum class CrashFaultKind {
  kUnknown,
  kAccessViolation,
  kFloatDivideByZero,
  kFloatError,
  kIllegalInstruction,
  kIntDivideByZero,
  kIntOverflow,
  kStackOverflow,
  kDataMisaligned,
  kAbort,  ///< POSIX SIGABRT: abort() outside the library's own hooks.
};

/// A copy of a fault (Windows: exception record and context; POSIX: signal
/// information, machine context and floating-point state), or of the
/// current thread's registers. Raw room; each platform source asserts that
/// its data fits.
struct CrashRecord {
  alignas(16) unsigned char bytes[3072];
};

/// The OS's and the C runtime's hooks, as handed to crashInstallHooks. Any
/// of them may be null (not installed). The C++ runtime's terminate handler
/// is the caller's own business (standard C++).
struct CrashHooks {
  /// An unhandled fault. Returns normally; the platform then lets the
  /// process end as it would have without the hook.
  void (*onFault)(CrashContext const& context) = nullptr;
  void (*onPureCall)() = nullptr;
  /// The runtime's invalid-parameter report: expression, function, file
  /// (wide texts, may be null) and line.
  void (*onInvalidParameter)(wchar_t const* expression, wchar_t const* function, wchar_t const* file,
                             unsigned line) = nullptr;
  /// The C++ runtime's unexpected handler (std::set_unexpected), installed
  /// only where the standard library still declares it (before C++17, or
  /// kept as an extension).
  void (*onUnexpected)() = nullptr;
};

/// The previous values of the hooks, kept to restore them (the terminate
/// handler is kept here by the caller). Raw room for the POSIX signal
/// actions.
struct CrashSavedHooks {
  void* unhandledExceptionFilter = nullptr;
  void* unexpectedHandler = nullptr;
  void* terminateHandler = nullptr;
  void* pureCallHandler = nullptr;
  void* invalidParameterHandler = nullptr;
  alignas(16) unsigned char signalActions[1024] = {};
  bool installed = false;
};

/// Installs hooks process-wide and stores the previous values in previous.
/// Not thread-safe (the caller serialises installation).
void crashInstallHooks(CrashHooks const& hooks, CrashSavedHooks& previous);
/// Puts back what crashInstallHooks saved; nothing when previous is not
/// installed. Not thread-safe.
void crashRestoreHooks(CrashSavedHooks& previous);

/// Prepares the calling thread so that its crashes reach the hooks even on
/// an exhausted stack. POSIX: gives the thread a preallocated alternate
/// signal stack (kept when it already has a big enough one; released when
/// the thread ends). Windows: reserves stack for the filter after a stack
/// overflow (SetThreadStackGuarantee) and, with a compiler that has MSVC's
/// structured-exception translation, sets the thread's translator to
/// translator. Repeated calls do nothing more. Thread-safe.
void crashPrepareThread(void (*translator)(unsigned code, void* exceptionPointers));

/// Lets a runtime crash end the process with abort() without the library's
/// own SIGABRT hook reporting it a second time. Then calls abort().
[[noreturn]] void crashAbort();
/// Ends the process at once with the exit code (TerminateProcess / _exit).
[[noreturn]] void crashTerminateProcess(unsigned exitCode);

/// Whether the calling thread is inside the C++ runtime's pure-virtual-call
/// report (libstdc++ reports a pure virtual call by calling
/// std::terminate). Walks the calling thread's stack looking for a
/// registered function (and, on POSIX, for any function the loader knows as
/// "__cxa_pure_virtual").
bool crashIsInPureVirtualCall();
/// Registers a runtime's pure-virtual-call function (a module that links
/// the runtime statically has its own copy). Up to 16; more are ignored.
/// Thread-safe.
void crashRegisterPureVirtualFunction(void const* function);

/// The current time as seconds since 1970-01-01 UTC.
long long crashTimeNow();
/// The local wall-clock time of secondsSince1970, as toLocalTime gives it,
/// safely on the crash path. POSIX uses the offset from UTC in force when
/// the hooks were installed (or at the first call), since the time-zone
/// machinery takes locks; Windows converts with the time-zone rules.
bool crashLocalTime(long long secondsSince1970, LocalTimeFields& out);
/// The calling thread's OS id (as debuggers show it).
std::uint32_t crashCurrentThreadId();
/// Sleeps about millis milliseconds.
void crashSleep(int millis);

// --- the fault record ---------------------------------------------------

/// Copies the fault of context into record.
void crashRecordCapture(CrashRecord& record, CrashContext const& context);
/// Fills record with the calling thread's registers as they are now and no
/// fault (used for runtime crashes, which have no fault record).
void crashRecordCaptureCurrent(CrashRecord& record);
/// Whether the record holds a fault (as opposed to captured registers).
bool crashRecordHasFault(CrashRecord const& record);
CrashFaultKind crashRecordKind(CrashRecord const& record);
/// The exception code. POSIX maps the signal to the nearest one:
/// SIGSEGV 0xC0000005 (0xC00000FD when the stack overflowed), SIGBUS
/// 0xC0000006 (0x80000002 for a misaligned access), SIGFPE by its si_code
/// 0xC0000094 (integer divide), 0xC0000095 (integer overflow), 0xC000008E
/// (float divide), else 0xC0000090, SIGILL 0xC000001D, SIGABRT 0x40000015
/// (fatal application exit), SIGTRAP 0x80000003, any other 0xE0000000 plus
/// the signal number.
std::uint32_t crashRecordCode(CrashRecord const& record);
/// Exception flags (Windows); 0 on POSIX.
std::uint32_t crashRecordFlags(CrashRecord const& record);
/// The exception address (Windows) or the faulting instruction (POSIX).
std::uint64_t crashRecordAddress(CrashRecord const& record);
/// The exception parameters. POSIX gives them as Windows does for an access
/// violation (SIGSEGV, SIGBUS): 1 for a write, else 0, then the address
/// (si_addr); none for the other signals.
int crashRecordParameterCount(CrashRecord const& record);
std::uint64_t crashRecordParameter(CrashRecord const& record, int index);
/// The signal facts behind a POSIX record: number, si_code and si_addr.
/// False on Windows and for a record without a fault.
bool crashRecordSignal(CrashRecord const& record, int& number, int& code, std::uint64_t& address);
/// The instruction that faulted; false when not known.
bool crashRecordCodeAddress(CrashRecord const& record, std::uint64_t& address);
/// The memory address of an access violation, a misaligned access or a
/// stack overflow; false for other faults.
bool crashRecordMemoryAddress(CrashRecord const& record, std::uint64_t& address);

// --- modules --------------------------------------------------------------

constexpr int kCrashMaxModuleName = 1024;

/// One loaded module: its path, where it is loaded and how big it is.
struct CrashModule {
  wchar_t name[kCrashMaxModuleName];
  std::uint64_t baseAddress;
  std::uint64_t size;
};

/// Walks the loaded modules. Raw room for the OS's iteration state.
struct CrashModuleIterator {
  alignas(8) unsigned char bytes[64];
};

/// Starts a walk; false when the modules cannot be listed.
bool crashModulesBegin(CrashModuleIterator& it);
/// The next module; false at the end.
bool crashModulesNext(CrashModuleIterator& it, CrashModule& module);
/// Ends a walk.
void crashModulesEnd(CrashModuleIterator& it);

// --- raw files ------------------------------------------------------------

/// An open file: a descriptor (POSIX) or a HANDLE (Windows); -1 when none.
using CrashFileHandle = std::intptr_t;
constexpr CrashFileHandle kCrashNoFile = -1;

enum class CrashOpenType { kCreate, kAppend, kRead, kUpdate };

/// Opens path (a Windows-syntax path: on POSIX backslashes are taken as
/// slashes). kCreate truncates or creates, kAppend creates when missing and
/// writes at the end, kRead reads from the start, kUpdate opens an existing
/// file for writing in place (crashFileWriteAt). kCrashNoFile on failure.
CrashFileHandle crashFileOpen(wchar_t const* path, CrashOpenType type);
/// Bytes read (0 at the end), -1 on failure.
int crashFileRead(CrashFileHandle file, void* buffer, int size);
/// Writes all size bytes; false on failure.
bool crashFileWrite(CrashFileHandle file, void const* data, int size);
/// Writes size bytes at offset without moving the file position.
bool crashFileWriteAt(CrashFileHandle file, long long offset, void const* data, int size);
/// The current position, -1 on failure.
long long crashFileSeekEnd(CrashFileHandle file);
void crashFileClose(CrashFileHandle file);
/// Creates the folder and its missing parents (not on the crash path).
SysError crashCreateFolder(wchar_t const* path);

}  // namespace qo::platform

#endif  // QO_PLATFORM_CRASH_H
