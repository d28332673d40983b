// Helpers of the IPC tests: this test executable started again as a child
// process that runs one hidden test case (its role), told what to do through
// environment variables.
#ifndef QO_TESTS_IPC_IPCTESTSUPPORT_H
#define QO_TESTS_IPC_IPCTESTSUPPORT_H

#include <atomic>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/String.h"
#include "qo/ipc/CIPCConnection.h"
#include "qo/ipc/IIPCRequestHandler.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <csignal>
#include <cerrno>
#include <filesystem>
#include <sys/wait.h>
#include <unistd.h>
extern char** environ;
#endif

namespace qo::ipctest {

/// A name no other test run uses at the same time.
inline std::string uniqueName(char const* what) {
  static std::atomic<int> counter{0};
#ifdef _WIN32
  unsigned long const pid = GetCurrentProcessId();
#else
  unsigned long const pid = static_cast<unsigned long>(getpid());
#endif
  return std::string("qotest-") + what + "-" + std::to_string(pid) + "-" + std::to_string(counter++);
}

/// The value of an environment variable, "" when unset.
inline std::string envValue(char const* name) {
#ifdef _WIN32
  std::wstring const wide(name, name + std::char_traits<char>::length(name));
  wchar_t const* text = _wgetenv(wide.c_str());
  return text ? String(reinterpret_cast<char16_t const*>(text)).toUTF8() : std::string();
#else
  char const* text = std::getenv(name);
  return text ? text : "";
#endif
}

/// Ends the calling process at once, as a kill from outside would.
[[noreturn]] inline void killSelf() {
#ifdef _WIN32
  TerminateProcess(GetCurrentProcess(), 9);
#else
  raise(SIGKILL);
#endif
  std::abort();
}

/// A child process running the test case filter with extra environment
/// entries ("NAME=value").
class ChildProcess {
public:
  ChildProcess(std::string const& filter, std::vector<std::string> const& env, int runAsUser = -1) {
#ifdef _WIN32
    (void)runAsUser;
    std::wstring exe(32768, L'\0');
    exe.resize(GetModuleFileNameW(nullptr, exe.data(), static_cast<DWORD>(exe.size())));
    // The child inherits a copy of this environment with the entries added.
    std::wstring block;
    for (wchar_t const* e = GetEnvironmentStringsW(); *e; e += wcslen(e) + 1) block += std::wstring(e) + L'\0';
    for (std::string const& entry : env) {
      String const wide = String::fromUTF8(entry);
      block += std::wstring(reinterpret_cast<wchar_t const*>(wide.c_str())) + L'\0';
    }
    block += L'\0';
    std::wstring cmd = L"\"" + exe + L"\" --gtest_filter=" + std::wstring(filter.begin(), filter.end());
    STARTUPINFOW si{};
    si.cb = sizeof si;
    PROCESS_INFORMATION pi{};
    if (CreateProcessW(exe.c_str(), cmd.data(), nullptr, nullptr, FALSE, CREATE_UNICODE_ENVIRONMENT, block.data(),
                       nullptr, &si, &pi)) {
      CloseHandle(pi.hThread);
      m_process = pi.hProcess;
    }
#else
    // Everything the child needs is built before fork(): after it, in a
    // process with threads, only async-signal-safe calls are allowed.
    std::string exe = std::filesystem::read_symlink("/proc/self/exe").string();
    std::string filterArg = "--gtest_filter=" + filter;
    std::vector<std::string> all;
    for (char** e = environ; *e; ++e) all.emplace_back(*e);
    all.insert(all.end(), env.begin(), env.end());
    std::vector<char*> argv{exe.data(), filterArg.data(), nullptr};
    std::vector<char*> envp;
    for (std::string& e : all) envp.push_back(e.data());
    envp.push_back(nullptr);
    m_pid = fork();
    if (m_pid == 0) {
      if (runAsUser >= 0 && (setgid(static_cast<gid_t>(runAsUser)) != 0 || setuid(static_cast<uid_t>(runAsUser)) != 0)) {
        _exit(126);
      }
      execve(exe.c_str(), argv.data(), envp.data());
      _exit(127);
    }
#endif
  }
  ChildProcess(ChildProcess const&) = delete;
  ChildProcess& operator=(ChildProcess const&) = delete;
  ~ChildProcess() {
    if (running()) {
      kill();
      wait();
    }
  }
  bool started() const {
#ifdef _WIN32
    return m_process != nullptr;
#else
    return m_pid > 0;
#endif
  }
  /// Kills the child at once (SIGKILL / TerminateProcess).
  void kill() {
#ifdef _WIN32
    if (m_process) TerminateProcess(m_process, 9);
#else
    if (m_pid > 0) ::kill(m_pid, SIGKILL);
#endif
  }
  /// Waits for the end; the exit code, or -1 when killed by a signal.
  int wait() {
#ifdef _WIN32
    if (!m_process) return -1;
    WaitForSingleObject(m_process, INFINITE);
    DWORD code = 0;
    GetExitCodeProcess(m_process, &code);
    CloseHandle(m_process);
    m_process = nullptr;
    return static_cast<int>(code);
#else
    if (m_pid <= 0) return -1;
    int status = 0;
    while (waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
    }
    m_pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#endif
  }

private:
  bool running() const { return started(); }
#ifdef _WIN32
  HANDLE m_process = nullptr;
#else
  pid_t m_pid = -1;
#endif
};

/// Answers each request with its bytes plus one (mod 256), so an answer
/// cannot be an echo by accident.
class CPlusOneHandler : public CBase, public IIPCRequestHandler {
public:
  void handleRequest(CIPCConnection&, std::vector<unsigned char> const& request,
                     std::vector<unsigned char>& answer) override {
    for (unsigned char c : request) answer.push_back(static_cast<unsigned char>(c + 1));
  }
};

/// n bytes of a fixed pattern that does not repeat every 256 bytes.
inline std::vector<unsigned char> pattern(int n) {
  std::vector<unsigned char> bytes(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) bytes[static_cast<size_t>(i)] = static_cast<unsigned char>((i * 7) ^ (i >> 8));
  return bytes;
}

inline std::vector<unsigned char> plusOne(std::vector<unsigned char> bytes) {
  for (unsigned char& c : bytes) c = static_cast<unsigned char>(c + 1);
  return bytes;
}

}  // namespace qo::ipctest

#endif  // QO_TESTS_IPC_IPCTESTSUPPORT_H
