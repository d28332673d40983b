// qo/platform/Process.h - child processes, their pipes, the process list
// and the system's own command-line parser (internal, OS-free).
//
// Windows: CreateProcessW with an explicit command line and a
// STARTUPINFOEXW whose PROC_THREAD_ATTRIBUTE_HANDLE_LIST names the only
// handles the child inherits (its three standard handles), anonymous pipes
// (CreatePipe), WaitForSingleObject, GetExitCodeProcess, TerminateProcess,
// CreateToolhelp32Snapshot, QueryFullProcessImageNameW, the token user with
// LookupAccountSidW, CommandLineToArgvW. POSIX: posix_spawn (posix_spawnp
// for a bare program name; never a shell), pipes made close-on-exec and all
// descriptors above 2 closed in the child, pidfd_open + poll for timed
// waits, waitpid, kill(SIGKILL), /proc for the process list.
//
// A started process hands back up to three pipe ends, each owned by the
// caller: the writing end of the child's stdin and the reading ends of its
// stdout and stderr. Standard streams that are not redirected are the
// caller's own.
//
//   ProcessStartInfo info;
//   info.argv = {u"/bin/echo", u"hi"};
//   info.redirectStdout = true;
//   ProcessHandle p; PipeHandle in, out, err;
//   if (SysError e = processStart(info, p, in, out, err)) ...;
//   pipeRead(out, buffer, sizeof buffer, got);   // got == 0: end
//   bool ended; processWait(p, -1, ended);
//   processClose(p); pipeClose(out);
//
// The functions never throw. A handle is used by one thread at a time.
#ifndef QO_PLATFORM_PROCESS_H
#define QO_PLATFORM_PROCESS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "qo/platform/LastError.h"

namespace qo::platform {

struct NativeProcess;
/// Opaque owner of a started child process; null when none.
using ProcessHandle = NativeProcess*;
struct NativePipe;
/// Opaque owner of one end of a pipe; null when none.
using PipeHandle = NativePipe*;

/// What processStart starts. No text may contain a NUL character.
struct ProcessStartInfo {
  /// The program first, then its arguments. A program name without a
  /// folder separator is searched for on the PATH (Windows: the rules of
  /// CreateProcessW for a null application name).
  std::vector<std::u16string> argv;
  /// The whole command line for Windows, already quoted; POSIX ignores it.
  std::u16string commandLine;
  /// Empty: the caller's current folder.
  std::u16string workingFolder;
  /// True: the caller's environment; false: exactly `environment`.
  bool inheritEnvironment = true;
  /// "NAME=value" entries.
  std::vector<std::u16string> environment;
  bool redirectStdin = false;
  bool redirectStdout = false;
  bool redirectStderr = false;
  /// With redirectStdout: stderr goes into the stdout pipe too (2>&1);
  /// redirectStderr is then ignored and no stderr pipe is made.
  bool stderrToStdout = false;
};

/// Starts the process. On success process is set and so are the pipe ends
/// asked for (the others null). On failure everything is null; the error
/// is that of the start itself (a missing program gives "file not found",
/// not a child that fails later). POSIX refuses a text with a lone
/// surrogate (EILSEQ): it has no UTF-8 form.
SysError processStart(ProcessStartInfo const& info, ProcessHandle& process, PipeHandle& stdinWrite,
                      PipeHandle& stdoutRead, PipeHandle& stderrRead);
/// Waits until the process ended or timeoutMillis passed (-1: no limit, 0:
/// just test); ended tells which. Once it has ended, its exit status is
/// kept and later waits answer at once.
SysError processWait(ProcessHandle process, int timeoutMillis, bool& ended);
/// The exit status of an ended process: its exit code, or on POSIX for a
/// process ended by a signal exitCode -1 and the signal's number (0
/// otherwise; always 0 on Windows).
void processExitStatus(ProcessHandle process, int& exitCode, int& signal);
/// Ends the process at once (Windows: TerminateProcess with exitCode;
/// POSIX: SIGKILL, exitCode unused). A process that has ended already is
/// not an error.
SysError processTerminate(ProcessHandle process, int exitCode);
/// The process's id.
std::uint64_t processId(ProcessHandle process);
/// Gives up the handle; the process itself runs on. Null does nothing.
void processClose(ProcessHandle process);

/// Reads up to size bytes, blocking until some are there; done == 0 means
/// the other end was closed.
SysError pipeRead(PipeHandle pipe, void* buffer, std::size_t size, std::size_t& done);
/// Writes all size bytes. broken is set (and no error returned) when the
/// reading end has been closed; POSIX raises no SIGPIPE for it.
SysError pipeWrite(PipeHandle pipe, void const* data, std::size_t size, bool& broken);
/// Closes the end. Null does nothing.
void pipeClose(PipeHandle pipe);

/// The calling process's id.
std::uint64_t processCurrentId();
/// The calling process's executable, as an absolute path.
SysError processCurrentExecutable(std::u16string& path);
/// The calling process's arguments: POSIX fills argv (program first);
/// Windows fills commandLine with the raw command line instead.
SysError processCurrentCommandLine(std::vector<std::u16string>& argv, std::u16string& commandLine);
/// The calling process's environment as "NAME=value" entries.
SysError processCurrentEnvironment(std::vector<std::u16string>& entries);
/// Whether processStart reads ProcessStartInfo::commandLine (Windows)
/// rather than argv.
bool processUsesCommandLine();
/// Whether environment names compare without regard to case (Windows).
bool processEnvironmentIgnoresCase();

/// One running process. Fields that cannot be read stay empty (0 for the
/// parent).
struct ProcessEntry {
  std::uint64_t id = 0;
  std::uint64_t parentId = 0;
  std::u16string executablePath;
  /// Windows "DOMAIN\name"; POSIX the user name, or the uid as decimal
  /// text when it has no name.
  std::u16string user;
};
/// Every running process the OS lists.
SysError processList(std::vector<ProcessEntry>& entries);

/// Whether systemParseCommandLine is available (Windows only).
bool systemCommandLineParserAvailable();
/// Splits a command line with the system's own parser (CommandLineToArgvW).
/// POSIX has none and answers ENOSYS.
SysError systemParseCommandLine(std::u16string const& line, std::vector<std::u16string>& argv);

}  // namespace qo::platform

#endif  // QO_PLATFORM_PROCESS_H
