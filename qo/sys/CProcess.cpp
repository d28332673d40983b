#include "qo/sys/CProcess.h"

#include "qo/core/CBadStateError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CStdExceptionError.h"
#include "qo/core/CSystemError.h"
#include "qo/platform/Process.h"
#include "qo/sys/CCommandLine.h"
#include "qo/thread/CMutex.h"
#include "qo/thread/CMutexLock.h"
#include "qo/thread/CSignal.h"
#include "qo/thread/CThread.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <string>
#include <vector>

namespace qo {

namespace {

constexpr int kPumpChunk = 64 * 1024;

CSystemError systemError(char const* message, char const* function, char const* api, platform::SysError const& e,
                         CProps const& props = CProps()) {
  return CSystemError(String(message), String(function), String(api), e, props);
}

// Copies between one pipe end (which it owns and closes when done) and a
// caller's stream. It keeps the first error instead of letting it end the
// thread: an output pump goes on draining the pipe, so the child is never
// stuck on a full pipe because the caller's stream failed.
class CPipePump : public CThread {
public:
  CPipePump(platform::PipeHandle pipe, P<IInStream> const& in, P<IOutStream> const& out, String const& name)
      : m_pipe(pipe), m_in(in), m_out(out) {
    setThreadName(name);
  }
  ~CPipePump() override { platform::pipeClose(m_pipe); }

  bool waitDone(int timeoutMs) { return m_done.wait(timeoutMs); }
  P<CError> takeError() {
    CMutexLock lock(m_mutex);
    P<CError> error = m_error;
    m_error = nullptr;
    return error;
  }

protected:
  void runImpl() override {
    std::vector<unsigned char> buffer(kPumpChunk);
    if (m_in) {
      pumpIn(buffer);
    } else {
      pumpOut(buffer);
    }
    platform::pipeClose(m_pipe);
    m_pipe = nullptr;
    m_in = nullptr;
    m_out = nullptr;
    m_done.set();
  }

private:
  void keep(P<CError> const& error) {
    CMutexLock lock(m_mutex);
    if (!m_error) m_error = error;
  }
  bool guarded(void (*body)(CPipePump&, std::vector<unsigned char>&, int&), std::vector<unsigned char>& buffer,
               int& count) {
    try {
      body(*this, buffer, count);
      return true;
    } catch (CError const& e) {
      keep(e.clone());
    } catch (std::exception const& e) {
      keep(CStdExceptionError::exceptionToError(&e));
    }
    return false;
  }

  void pumpIn(std::vector<unsigned char>& buffer) {
    for (;;) {
      int got = 0;
      bool const ok = guarded(
          [](CPipePump& self, std::vector<unsigned char>& b, int& n) {
            n = self.m_in->readLax(b.data(), static_cast<int>(b.size()));
          },
          buffer, got);
      if (!ok || got <= 0) return;
      bool broken = false;
      platform::SysError e = platform::pipeWrite(m_pipe, buffer.data(), static_cast<std::size_t>(got), broken);
      // A child that stopped reading ends the feeding; that is its choice,
      // not an error.
      if (broken) return;
      if (e) {
        keep(systemError("Error writing to a child process's standard input.", "CProcess::start", "WriteFile", e)
                 .clone());
        return;
      }
    }
  }

  void pumpOut(std::vector<unsigned char>& buffer) {
    bool failed = false;
    for (;;) {
      std::size_t got = 0;
      if (platform::SysError e = platform::pipeRead(m_pipe, buffer.data(), buffer.size(), got)) {
        keep(systemError("Error reading a child process's output.", "CProcess::start", "ReadFile", e).clone());
        return;
      }
      if (got == 0) break;
      if (failed) continue;
      int count = static_cast<int>(got);
      failed = !guarded(
          [](CPipePump& self, std::vector<unsigned char>& b, int& n) { self.m_out->write(b.data(), n); }, buffer,
          count);
    }
    if (!failed) {
      int unused = 0;
      guarded([](CPipePump& self, std::vector<unsigned char>&, int&) { self.m_out->flush(); }, buffer, unused);
    }
  }

  platform::PipeHandle m_pipe;
  P<IInStream> m_in;
  P<IOutStream> m_out;
  CSignal m_done;
  CMutex m_mutex;
  P<CError> m_error;
};

CPipePump* pump(P<CThread> const& thread) { return static_cast<CPipePump*>(thread.get()); }

void checkNoNul(String const& text, char16_t const* what) {
  if (text.str().find(u'\0') != std::u16string::npos) {
    throw CInvalidArgError(u"CProcess::start", String(what) + u" contains a NUL character", CProps().add(String(what), text));
  }
}

// The name part of "NAME=value"; Windows keeps per-drive folders in
// entries such as "=C:=C:\x", whose name starts with the '='.
std::u16string entryName(std::u16string const& entry) {
  std::size_t const eq = entry.find(u'=', entry.empty() ? 0 : 1);
  return entry.substr(0, eq);
}

bool sameName(std::u16string const& a, std::u16string const& b) {
  if (platform::processEnvironmentIgnoresCase()) return String(a).CmpNoCase(String(b)) == 0;
  return a == b;
}

}  // namespace

CProcess::CProcess() = default;

CProcess::CProcess(String const& program, std::vector<String> const& arguments)
    : m_program(program), m_arguments(arguments) {}

CProcess::~CProcess() {
  for (auto& thread : m_pumps) {
    if (!thread) continue;
    try {
      if (pump(thread)->waitDone(0)) {
        thread->join(false);
      } else {
        // Still feeding (blocked in the caller's stream): it ends on its
        // own, and the library's shutdown waits for it like for every
        // library thread.
        thread->detach(true);
      }
    } catch (...) {
      // A destructor never throws; the thread object cleans up after itself.
    }
    thread = nullptr;
  }
  platform::processClose(m_process);
}

void CProcess::setProgram(String const& program) { m_program = program; }
void CProcess::setArguments(std::vector<String> const& arguments) { m_arguments = arguments; }
void CProcess::addArgument(String const& argument) { m_arguments.push_back(argument); }
void CProcess::setWorkingFolder(String const& folder) { m_workingFolder = folder; }

void CProcess::clearEnvironment() {
  m_clearEnvironment = true;
  m_envChanges.clear();
}

void CProcess::setEnvironmentVariable(String const& name, String const& value) {
  if (name.isEmpty() || name.str().find(u'=', 1) != std::u16string::npos) {
    throw CInvalidArgError(u"CProcess::setEnvironmentVariable", u"the name is empty or contains '='",
                           CProps().add(u"name", name));
  }
  m_envChanges.push_back(EnvChange{name, value, true});
}

void CProcess::unsetEnvironmentVariable(String const& name) { m_envChanges.push_back(EnvChange{name, String(), false}); }

void CProcess::setStdin(P<IInStream> const& stream) { m_stdin = stream; }
void CProcess::setStdout(P<IOutStream> const& stream) { m_stdout = stream; }
void CProcess::setStderr(P<IOutStream> const& stream) { m_stderr = stream; }

void CProcess::start() {
  if (m_process) throw CBadStateError(u"CProcess::start: the process has been started already");
  if (m_program.isEmpty()) throw CInvalidArgError(u"CProcess::start", u"the program is empty");
  checkNoNul(m_program, u"program");
  checkNoNul(m_workingFolder, u"folder");
  for (String const& a : m_arguments) checkNoNul(a, u"argument");

  platform::ProcessStartInfo info;
  info.argv.push_back(m_program.str());
  for (String const& a : m_arguments) info.argv.push_back(a.str());
  if (platform::processUsesCommandLine()) {
    std::vector<String> all;
    all.push_back(m_program);
    all.insert(all.end(), m_arguments.begin(), m_arguments.end());
    info.commandLine = CCommandLine::quote(all).str();
  }
  info.workingFolder = m_workingFolder.str();
  info.inheritEnvironment = !m_clearEnvironment && m_envChanges.empty();
  if (!info.inheritEnvironment) {
    if (!m_clearEnvironment) {
      if (platform::SysError e = platform::processCurrentEnvironment(info.environment)) {
        throw systemError("Error reading the environment.", "CProcess::start", "GetEnvironmentStringsW", e);
      }
    }
    for (EnvChange const& change : m_envChanges) {
      checkNoNul(change.name, u"environment");
      checkNoNul(change.value, u"environment");
      auto& env = info.environment;
      env.erase(std::remove_if(env.begin(), env.end(),
                               [&](std::u16string const& entry) { return sameName(entryName(entry), change.name.str()); }),
                env.end());
      if (change.set) env.push_back(change.name.str() + u"=" + change.value.str());
    }
  }
  info.redirectStdin = static_cast<bool>(m_stdin);
  info.redirectStdout = static_cast<bool>(m_stdout);
  info.redirectStderr = static_cast<bool>(m_stderr);
  // One stream for both: one pipe, so that one pump alone writes to it.
  info.stderrToStdout = m_stderr && m_stderr.get() == m_stdout.get();

  platform::PipeHandle ends[3] = {nullptr, nullptr, nullptr};
  if (platform::SysError e = platform::processStart(info, m_process, ends[0], ends[1], ends[2])) {
    CProps props;
    props.add(u"program", m_program);
    props.addCond(!m_workingFolder.isEmpty(), u"folder", m_workingFolder);
    throw systemError("Error starting a process.", "CProcess::start", "CreateProcessW", e, props);
  }
  m_ended = false;
  m_errorsCollected = false;
  char16_t const* const names[3] = {u"qo.process.stdin", u"qo.process.stdout", u"qo.process.stderr"};
  try {
    for (int i = 0; i < 3; ++i) {
      if (!ends[i]) continue;
      m_pumps[i] = newP<CPipePump>(ends[i], i == 0 ? m_stdin : P<IInStream>(), i == 1 ? m_stdout : i == 2 ? m_stderr : P<IOutStream>(),
                                   String(names[i]));
      ends[i] = nullptr;
      m_pumps[i]->start();
    }
  } catch (...) {
    // Without its pumps the child could block for ever: it is ended.
    for (auto* end : ends) platform::pipeClose(end);
    platform::processTerminate(m_process, kTerminatedExitCode);
    bool ended = false;
    platform::processWait(m_process, -1, ended);
    for (auto& thread : m_pumps) thread = nullptr;
    platform::processClose(m_process);
    m_process = nullptr;
    throw;
  }
}

void CProcess::requireStarted(char const* function) const {
  if (!m_process) throw CBadStateError(String(function) + u": the process has not been started");
}

bool CProcess::wait(int timeoutMs) {
  requireStarted("CProcess::wait");
  if (m_errorsCollected) return true;
  using Clock = std::chrono::steady_clock;
  Clock::time_point const deadline = Clock::now() + std::chrono::milliseconds(timeoutMs < 0 ? 0 : timeoutMs);
  auto remaining = [&]() -> int {
    if (timeoutMs < 0) return -1;
    auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
  };
  if (!m_ended) {
    bool ended = false;
    if (platform::SysError e = platform::processWait(m_process, timeoutMs, ended)) {
      throw systemError("Error waiting for a process.", "CProcess::wait", "WaitForSingleObject", e);
    }
    if (!ended) return false;
    platform::processExitStatus(m_process, m_exitCode, m_signal);
    m_ended = true;
  }
  for (int i = 1; i < 3; ++i) {
    if (m_pumps[i] && !pump(m_pumps[i])->waitDone(remaining())) return false;
  }
  collectPumpErrors();
  return true;
}

void CProcess::collectPumpErrors() {
  m_errorsCollected = true;
  P<CError> first;
  for (auto& thread : m_pumps) {
    if (!thread || !pump(thread)->waitDone(0)) continue;  // a feeding still blocked in the caller's stream
    thread->join(false);
    P<CError> error = pump(thread)->takeError();
    if (!first) first = error;
    thread = nullptr;
  }
  if (first) first->throwClone();
}

void CProcess::terminate() {
  requireStarted("CProcess::terminate");
  if (m_ended) return;
  if (platform::SysError e = platform::processTerminate(m_process, kTerminatedExitCode)) {
    throw systemError("Error ending a process.", "CProcess::terminate", "TerminateProcess", e);
  }
}

unsigned long long CProcess::getID() const {
  requireStarted("CProcess::getID");
  return platform::processId(m_process);
}

int CProcess::getExitCode() const {
  if (!m_ended) throw CBadStateError(u"CProcess::getExitCode: the process has not been waited for");
  return m_exitCode;
}

int CProcess::getTerminatingSignal() const {
  if (!m_ended) throw CBadStateError(u"CProcess::getTerminatingSignal: the process has not been waited for");
  return m_signal;
}

std::vector<CProcess::CInfo> CProcess::listRunning() {
  std::vector<platform::ProcessEntry> entries;
  if (platform::SysError e = platform::processList(entries)) {
    throw systemError("Error listing the running processes.", "CProcess::listRunning", "CreateToolhelp32Snapshot", e);
  }
  std::vector<CInfo> out;
  out.reserve(entries.size());
  for (auto& entry : entries) {
    CInfo info;
    info.id = entry.id;
    info.parentId = entry.parentId;
    info.executablePath = String(std::move(entry.executablePath));
    info.user = String(std::move(entry.user));
    out.push_back(std::move(info));
  }
  return out;
}

unsigned long long CProcess::getCurrentID() { return platform::processCurrentId(); }

String CProcess::getCurrentExecutablePath() {
  std::u16string path;
  if (platform::SysError e = platform::processCurrentExecutable(path)) {
    throw systemError("Error reading the program's path.", "CProcess::getCurrentExecutablePath", "GetModuleFileNameW", e);
  }
  return String(std::move(path));
}

std::vector<String> CProcess::getCurrentArguments() {
  std::vector<std::u16string> argv;
  std::u16string line;
  if (platform::SysError e = platform::processCurrentCommandLine(argv, line)) {
    throw systemError("Error reading the program's arguments.", "CProcess::getCurrentArguments", "GetCommandLineW", e);
  }
  if (argv.empty()) return CCommandLine::parse(String(std::move(line)));
  std::vector<String> out;
  for (auto& a : argv) out.emplace_back(std::move(a));
  return out;
}

}  // namespace qo
