// qo/sys/CProcess.h - starting a program as a child process, feeding and
// collecting its standard streams, waiting for it and ending it; the list
// of running processes.
//
// Rules:
// - The program gets exactly the given arguments; they never pass through
//   a shell (POSIX: posix_spawn; Windows: CreateProcessW with a command line
//   quoted by CCommandLine). A program name without a folder is searched
//   for on the PATH.
// - Only the three standard handles reach the child; every other handle or
//   descriptor of this process stays out of it.
// - Environment: by default the caller's. setEnvironmentVariable() and
//   unsetEnvironmentVariable() change a copy of it; clearEnvironment() starts
//   that copy empty. Windows compares the names without regard to case.
// - Standard streams not redirected are the caller's own. A redirected one
//   is a pipe that a library thread pumps: "qo.process.stdin" copies the
//   given IInStream into the child until the stream ends, then closes the
//   pipe (the child sees the end); "qo.process.stdout" and
//   "qo.process.stderr" copy everything the child writes into the given
//   IOutStream until the child closes it. Giving setStdout() and
//   setStderr() the same stream merges them (2>&1): both go through one
//   pipe and one pump, in the order the child wrote them. The pumps run
//   concurrently, so a child that writes much while it reads much does not
//   block. The caller
//   must leave the given streams alone until wait() has returned true.
// - A program that cannot be started fails in start() with a CSystemError
//   (api "CreateProcessW", on POSIX the call that failed, e.g. "posix_spawn";
//   the OS's code, property "program"), not with a
//   child that exits with an error code.
// - Destroying the object neither waits for nor ends a running child; the
//   pumps then run on by themselves until the child closes its pipes, and
//   the library's shutdown (~CQoInit) waits for them.
//
//   P<CProcess> p = newP<CProcess>(u"/usr/bin/sort", std::vector<String>{u"-r"});
//   P<CBufferStream> out = newP<CBufferStream>();
//   p->setStdin(input);
//   p->setStdout(out);
//   p->start();
//   if (!p->wait(5000)) p->terminate();
//   p->wait(-1);
//   int code = p->getExitCode();
//
// Not thread-safe: one thread drives a CProcess.
#ifndef QO_SYS_CPROCESS_H
#define QO_SYS_CPROCESS_H

#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/CError.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/stream/IInStream.h"
#include "qo/stream/IOutStream.h"

namespace qo {

namespace platform {
struct NativeProcess;
}

class CThread;

/// A child process. Not thread-safe.
class QO_API CProcess : public CBase {
public:
  /// One entry of listRunning(). Fields that could not be read are empty
  /// (parentId 0).
  struct CInfo {
    unsigned long long id = 0;
    unsigned long long parentId = 0;
    /// The executable's absolute path.
    String executablePath;
    /// Windows "DOMAIN\name"; POSIX the user name (the uid as decimal text
    /// when it has none).
    String user;
  };

  /// The exit code that terminate() gives on Windows.
  enum : int { kTerminatedExitCode = 1 };

  /// Nothing to run yet: call setProgram() before start().
  CProcess();
  /// Runs program with arguments (the program itself not among them).
  explicit CProcess(String const& program, std::vector<String> const& arguments = std::vector<String>());
  /// Gives up the child without waiting for it or ending it.
  ~CProcess() override;
  CProcess(CProcess const&) = delete;
  CProcess& operator=(CProcess const&) = delete;

  /// The program: a path, or a bare name searched for on the PATH.
  void setProgram(String const& program);
  /// Replaces the arguments.
  void setArguments(std::vector<String> const& arguments);
  void addArgument(String const& argument);
  /// The folder the child starts in; empty (default) = the caller's.
  void setWorkingFolder(String const& folder);
  /// The child's environment starts empty instead of as the caller's; the
  /// changes made so far are dropped.
  void clearEnvironment();
  /// Sets name=value in the child's environment.
  void setEnvironmentVariable(String const& name, String const& value);
  /// Removes name from the child's environment.
  void unsetEnvironmentVariable(String const& name);
  /// Feeds the child's stdin from stream (null: the caller's stdin).
  void setStdin(P<IInStream> const& stream);
  /// Collects the child's stdout into stream (null: the caller's stdout).
  void setStdout(P<IOutStream> const& stream);
  /// Collects the child's stderr into stream (null: the caller's stderr);
  /// the stream given to setStdout() merges stderr into stdout.
  void setStderr(P<IOutStream> const& stream);

  /// Starts the child. Throws CBadStateError when started already,
  /// CInvalidArgError (place "CProcess::start") for an empty program or a
  /// text holding a NUL character (property "argument", "program", "folder"
  /// or "environment" tells which), CSystemError (function "CProcess::start",
  /// api "CreateProcessW" or the POSIX call, property "program"; the code says why: a missing
  /// program, a missing working folder, no permission; on POSIX also a
  /// text with a lone surrogate, which has no UTF-8 form) when the OS
  /// cannot start it.
  void start();
  /// True once the child has ended and the output pumps have delivered all
  /// it wrote; false when timeoutMs (-1 = no limit) ran out first. Once it
  /// has returned true it does again at once. Throws CBadStateError before
  /// start(), CSystemError (function "CProcess::wait") when the OS cannot
  /// wait, and, once, the first error a redirected stream raised (its own
  /// class) after the child has ended.
  bool wait(int timeoutMs);
  /// Ends the child at once (Windows: TerminateProcess with exit code
  /// kTerminatedExitCode; POSIX: SIGKILL). A child that has ended already
  /// is left alone. Throws CBadStateError before start(), CSystemError
  /// (function "CProcess::terminate", api "TerminateProcess").
  void terminate();
  /// The child's process id. Throws CBadStateError before start().
  unsigned long long getID() const;
  /// The exit code: the program's, or -1 when a POSIX signal ended it.
  /// Throws CBadStateError until wait() has returned true.
  int getExitCode() const;
  /// The number of the POSIX signal that ended the child, 0 when it exited
  /// (always 0 on Windows). Throws CBadStateError until wait() has returned
  /// true.
  int getTerminatingSignal() const;

  /// Every running process the system lists. Throws CSystemError (function
  /// "CProcess::listRunning", api "CreateToolhelp32Snapshot") when the list
  /// cannot be had at all. Thread-safe.
  static std::vector<CInfo> listRunning();
  /// The calling process's id. Thread-safe.
  static unsigned long long getCurrentID();
  /// The calling process's executable as an absolute path. Throws
  /// CSystemError (function "CProcess::getCurrentExecutablePath", api
  /// "GetModuleFileNameW"). Thread-safe.
  static String getCurrentExecutablePath();
  /// The calling process's arguments, program first, as the process got
  /// them (Windows: its command line split by CCommandLine::parse). Throws
  /// CSystemError (function "CProcess::getCurrentArguments", api
  /// "GetCommandLineW"). Thread-safe.
  static std::vector<String> getCurrentArguments();

private:
  void requireStarted(char const* function) const;
  void collectPumpErrors();

  String m_program;
  std::vector<String> m_arguments;
  String m_workingFolder;
  bool m_clearEnvironment = false;
  // name, value, set (false: unset), in the order given
  struct EnvChange {
    String name;
    String value;
    bool set;
  };
  std::vector<EnvChange> m_envChanges;
  P<IInStream> m_stdin;
  P<IOutStream> m_stdout;
  P<IOutStream> m_stderr;

  platform::NativeProcess* m_process = nullptr;
  P<CThread> m_pumps[3];
  bool m_ended = false;
  bool m_errorsCollected = false;
  int m_exitCode = -1;
  int m_signal = 0;
};

}  // namespace qo

#endif  // QO_SYS_CPROCESS_H
