// qo/platform/Minidump.h - a minidump of the crashed process (internal,
// OS-free).
//
// Windows: MiniDumpWriteDump of "DbgHelp.dll", loaded by name with
// LoadLibraryW and GetProcAddress (crashPrepareMinidump loads it ahead of
// any crash). POSIX: a writer of the library's own that produces the AMD64
// minidump layout which Windows tools and lldb read, from the crash record,
// the loaded modules and /proc/self/maps.
//
//   crashPrepareMinidump();                         // when the hooks go in
//   crashWriteMinidump(file, record, threadId, false, scratch, size);  // crash path
//
// crashWriteMinidump and crashWriteMinidumpOfProcess never throw;
// crashWriteMinidump allocates nothing on POSIX (DbgHelp does what it does).
#ifndef QO_PLATFORM_MINIDUMP_H
#define QO_PLATFORM_MINIDUMP_H

#include <cstdint>

#include "qo/platform/Crash.h"
#include "qo/platform/LastError.h"

namespace qo::platform {

/// Prepares what a crash will need (Windows: loads DbgHelp; POSIX: learns
/// the processor count). Not on the crash path. Thread-safe.
void crashPrepareMinidump();

/// Writes a minidump of this process to file: the crashing thread with its
/// registers and stack, the fault (POSIX, without one: the captured
/// registers under SIGABRT; Windows, without one: no exception, every
/// thread as it is), the system and the modules. fullMemory asks for all
/// readable memory (Windows only). scratch is working memory of scratchSize
/// bytes (POSIX: at least 16 KiB). False on failure.
bool crashWriteMinidump(CrashFileHandle file, CrashRecord const& record, std::uint32_t threadId, bool fullMemory,
                        void* scratch, int scratchSize);
/// MiniDumpWriteDump for any process: process and file are HANDLEs,
/// exceptionPointers an EXCEPTION_POINTERS* in that process (may be null).
/// POSIX has no way to dump another process through handles and answers
/// false (see crashWriteMinidumpOfOtherProcess).
bool crashWriteMinidumpOfProcess(void* process, void* file, std::uint32_t processId, void* exceptionPointers,
                                 std::uint32_t threadId, bool fullMemory);

/// Writes a minidump of another process, processId, to path (created or
/// truncated) with every thread's registers and stack. Not on the crash
/// path: it allocates. threadId names the thread that crashed (0 for a
/// dump without a fault, e.g. of a hung process).
/// Windows: OpenProcess, CreateFileW and MiniDumpWriteDump with
/// exceptionPointers, an EXCEPTION_POINTERS* valid in that process (0: no
/// exception); fault is not used.
/// POSIX: ptrace (PTRACE_SEIZE and PTRACE_INTERRUPT) stops every thread of
/// /proc/<pid>/task for the time of the dump, PTRACE_GETREGS and
/// PTRACE_GETFPREGS give their registers, process_vm_readv their stacks,
/// /proc/<pid>/maps the modules; fault (a CrashRecord copied in that
/// process, may be null) gives the crashing thread's registers at the
/// fault and the exception, since its live registers are those of its
/// crash handler. The threads run on afterwards. api names the failing
/// call.
SysError crashWriteMinidumpOfOtherProcess(std::uint32_t processId, wchar_t const* path, std::uint32_t threadId,
                                          CrashRecord const* fault, std::uint64_t exceptionPointers,
                                          char const*& api);

}  // namespace qo::platform

#endif  // QO_PLATFORM_MINIDUMP_H
