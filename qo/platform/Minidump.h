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
/// POSIX has no way to dump another process and answers false.
bool crashWriteMinidumpOfProcess(void* process, void* file, std::uint32_t processId, void* exceptionPointers,
                                 std::uint32_t threadId, bool fullMemory);

}  // namespace qo::platform

#endif  // QO_PLATFORM_MINIDUMP_H
