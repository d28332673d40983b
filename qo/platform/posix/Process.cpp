#include "qo/platform/Process.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <pwd.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "qo/platform/posix/Utf8Text.h"

extern char** environ;

namespace qo::platform {

struct NativeProcess {
  pid_t pid = -1;
  int pidFd = -1;  // -1 when the kernel has no pidfd_open
  bool reaped = false;
  int status = 0;
};

struct NativePipe {
  int fd = -1;
};

namespace {

SysError errorOf(int code, char const* api = nullptr) { return sysErrorOf(static_cast<std::uint32_t>(code), api); }

void closeFd(int& fd) {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

bool readWholeFile(char const* path, std::string& out) {
  out.clear();
  int const fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  char buffer[4096];
  for (;;) {
    ssize_t const got = ::read(fd, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    out.append(buffer, static_cast<std::size_t>(got));
  }
  ::close(fd);
  return true;
}

bool readLink(std::string const& path, std::string& out) {
  std::vector<char> buffer(4096);
  for (;;) {
    ssize_t const got = ::readlink(path.c_str(), buffer.data(), buffer.size());
    if (got < 0) return false;
    if (static_cast<std::size_t>(got) < buffer.size()) {
      out.assign(buffer.data(), static_cast<std::size_t>(got));
      return true;
    }
    buffer.resize(buffer.size() * 2);
  }
}

std::u16string userName(uid_t uid) {
  passwd entry;
  passwd* found = nullptr;
  std::vector<char> buffer(4096);
  int rc;
  while ((rc = getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found)) == ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  if (rc == 0 && found && found->pw_name) return utf16FromSystem(found->pw_name);
  return utf16FromSystem(std::to_string(uid));
}

// Keeps the exit status; the pid is free for reuse from here on.
SysError reap(NativeProcess& p, bool block, bool& ended) {
  ended = p.reaped;
  if (p.reaped) return SysError{};
  int status = 0;
  pid_t rc;
  do {
    rc = ::waitpid(p.pid, &status, block ? 0 : WNOHANG);
  } while (rc < 0 && errno == EINTR);
  if (rc < 0) return errorOf(errno, "waitpid");
  if (rc == 0) return SysError{};
  p.reaped = true;
  p.status = status;
  closeFd(p.pidFd);
  ended = true;
  return SysError{};
}

long long monotonicMillis() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

}  // namespace

SysError processStart(ProcessStartInfo const& info, ProcessHandle& process, PipeHandle& stdinWrite,
                      PipeHandle& stdoutRead, PipeHandle& stderrRead) {
  process = nullptr;
  stdinWrite = stdoutRead = stderrRead = nullptr;
  if (info.argv.empty() || info.argv[0].empty()) return errorOf(ENOENT, "posix_spawn");

  // Everything is converted before the spawn.
  std::vector<std::string> args(info.argv.size());
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (!utf8ForSystem(info.argv[i], args[i])) return errorOf(EILSEQ, "posix_spawn");
  }
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  std::vector<std::string> env;
  std::vector<char*> envp;
  if (!info.inheritEnvironment) {
    env.resize(info.environment.size());
    for (std::size_t i = 0; i < env.size(); ++i) {
      if (!utf8ForSystem(info.environment[i], env[i])) return errorOf(EILSEQ, "posix_spawn");
    }
    for (auto& e : env) envp.push_back(e.data());
    envp.push_back(nullptr);
  }
  std::string folder;
  if (!utf8ForSystem(info.workingFolder, folder)) return errorOf(EILSEQ, "posix_spawn");

  // [0] the child's end, [1] ours; both close-on-exec, the child's end
  // reaches the child only through dup2 onto 0, 1 or 2.
  int pipes[3][2] = {{-1, -1}, {-1, -1}, {-1, -1}};
  bool const merge = info.redirectStdout && info.stderrToStdout;
  bool const redirect[3] = {info.redirectStdin, info.redirectStdout, info.redirectStderr && !merge};
  auto closeAll = [&pipes] {
    for (auto& p : pipes) {
      closeFd(p[0]);
      closeFd(p[1]);
    }
  };
  for (int i = 0; i < 3; ++i) {
    if (!redirect[i]) continue;
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
      int const code = errno;
      closeAll();
      return errorOf(code, "pipe2");
    }
    // stdin: the child reads fds[0]; stdout/stderr: the child writes fds[1].
    pipes[i][0] = i == 0 ? fds[0] : fds[1];
    pipes[i][1] = i == 0 ? fds[1] : fds[0];
  }

  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attr;
  posix_spawn_file_actions_init(&actions);
  posix_spawnattr_init(&attr);
  for (int i = 0; i < 3; ++i) {
    if (redirect[i]) posix_spawn_file_actions_adddup2(&actions, pipes[i][0], i);
  }
  if (merge) posix_spawn_file_actions_adddup2(&actions, pipes[1][0], 2);
#if defined(__GLIBC__) && (__GLIBC__ > 2 || __GLIBC_MINOR__ >= 34)
  // Descriptors someone opened without close-on-exec stay out of the child.
  posix_spawn_file_actions_addclosefrom_np(&actions, 3);
#endif
  if (!folder.empty()) posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
  // The child starts with no blocked signals and default dispositions,
  // whatever the calling thread has set up.
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attr, &none);
  posix_spawnattr_setsigdefault(&attr, &all);
  posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

  pid_t pid = -1;
  char** const childEnv = info.inheritEnvironment ? environ : envp.data();
  bool const search = args[0].find('/') == std::string::npos;
  int const rc = search ? ::posix_spawnp(&pid, args[0].c_str(), &actions, &attr, argv.data(), childEnv)
                        : ::posix_spawn(&pid, args[0].c_str(), &actions, &attr, argv.data(), childEnv);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attr);
  for (auto& p : pipes) closeFd(p[0]);
  if (rc != 0) {
    closeAll();
    return errorOf(rc, "posix_spawn");
  }

  auto* child = new (std::nothrow) NativeProcess;
  NativePipe* ends[3] = {nullptr, nullptr, nullptr};
  bool ok = child != nullptr;
  for (int i = 0; i < 3 && ok; ++i) {
    if (!redirect[i]) continue;
    ends[i] = new (std::nothrow) NativePipe;
    ok = ends[i] != nullptr;
    if (ok) ends[i]->fd = pipes[i][1];
  }
  if (!ok) {
    // The child runs already; it is killed rather than left unowned.
    ::kill(pid, SIGKILL);
    int status;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    for (auto* e : ends) delete e;
    delete child;
    closeAll();
    return errorOf(ENOMEM, "posix_spawn");
  }
  child->pid = pid;
  child->pidFd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
  if (child->pidFd >= 0) ::fcntl(child->pidFd, F_SETFD, FD_CLOEXEC);
  process = child;
  stdinWrite = ends[0];
  stdoutRead = ends[1];
  stderrRead = ends[2];
  return SysError{};
}

SysError processWait(ProcessHandle process, int timeoutMillis, bool& ended) {
  ended = false;
  if (process->reaped) {
    ended = true;
    return SysError{};
  }
  if (timeoutMillis < 0) return reap(*process, true, ended);
  if (SysError e = reap(*process, false, ended)) return e;
  if (ended || timeoutMillis == 0) return SysError{};
  long long const deadline = monotonicMillis() + timeoutMillis;
  if (process->pidFd >= 0) {
    for (;;) {
      long long const left = deadline - monotonicMillis();
      pollfd p{process->pidFd, POLLIN, 0};
      int const rc = ::poll(&p, 1, left > 0 ? static_cast<int>(left) : 0);
      if (rc < 0 && errno == EINTR) continue;
      if (rc < 0) return errorOf(errno, "poll");
      if (rc == 0) return reap(*process, false, ended);
      return reap(*process, true, ended);
    }
  }
  // Kernels without pidfd_open: poll the status in growing steps.
  long long step = 1;
  for (;;) {
    if (SysError e = reap(*process, false, ended)) return e;
    long long const left = deadline - monotonicMillis();
    if (ended || left <= 0) return SysError{};
    step = std::min({step * 2, left, 50LL});
    timespec pause{0, static_cast<long>(step * 1000000)};
    ::nanosleep(&pause, nullptr);
  }
}

void processExitStatus(ProcessHandle process, int& exitCode, int& signal) {
  exitCode = -1;
  signal = 0;
  if (!process->reaped) return;
  if (WIFEXITED(process->status)) exitCode = WEXITSTATUS(process->status);
  if (WIFSIGNALED(process->status)) signal = WTERMSIG(process->status);
}

SysError processTerminate(ProcessHandle process, int) {
  // An unreaped child keeps its pid, so the signal cannot hit a stranger.
  if (process->reaped) return SysError{};
  if (::kill(process->pid, SIGKILL) != 0 && errno != ESRCH) return errorOf(errno, "kill");
  return SysError{};
}

std::uint64_t processId(ProcessHandle process) { return static_cast<std::uint64_t>(process->pid); }

void processClose(ProcessHandle process) {
  if (!process) return;
  closeFd(process->pidFd);
  delete process;
}

SysError pipeRead(PipeHandle pipe, void* buffer, std::size_t size, std::size_t& done) {
  done = 0;
  for (;;) {
    ssize_t const got = ::read(pipe->fd, buffer, size);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errorOf(errno, "read");
    done = static_cast<std::size_t>(got);
    return SysError{};
  }
}

SysError pipeWrite(PipeHandle pipe, void const* data, std::size_t size, bool& broken) {
  broken = false;
  // SIGPIPE is held back on this thread for the write; one raised by it is
  // taken out of the pending set before the old mask returns.
  sigset_t pipeSet, old;
  sigemptyset(&pipeSet);
  sigaddset(&pipeSet, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipeSet, &old);
  auto const* bytes = static_cast<char const*>(data);
  SysError result;
  std::size_t done = 0;
  while (done < size) {
    ssize_t const put = ::write(pipe->fd, bytes + done, size - done);
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) {
      if (errno == EPIPE) {
        broken = true;
        timespec zero{0, 0};
        while (sigtimedwait(&pipeSet, nullptr, &zero) < 0 && errno == EINTR) {
        }
      } else {
        result = errorOf(errno, "write");
      }
      break;
    }
    done += static_cast<std::size_t>(put);
  }
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
  return result;
}

void pipeClose(PipeHandle pipe) {
  if (!pipe) return;
  closeFd(pipe->fd);
  delete pipe;
}

std::uint64_t processCurrentId() { return static_cast<std::uint64_t>(::getpid()); }

SysError processCurrentExecutable(std::u16string& path) {
  std::string target;
  if (!readLink("/proc/self/exe", target)) return errorOf(errno, "readlink");
  path = utf16FromSystem(target);
  return SysError{};
}

SysError processCurrentCommandLine(std::vector<std::u16string>& argv, std::u16string& commandLine) {
  argv.clear();
  commandLine.clear();
  std::string all;
  if (!readWholeFile("/proc/self/cmdline", all)) return errorOf(errno, "open");
  std::size_t start = 0;
  while (start < all.size()) {
    std::size_t const end = all.find('\0', start);
    std::size_t const stop = end == std::string::npos ? all.size() : end;
    argv.push_back(utf16FromSystem(all.substr(start, stop - start)));
    start = stop + 1;
  }
  return SysError{};
}

SysError processCurrentEnvironment(std::vector<std::u16string>& entries) {
  entries.clear();
  for (char** e = environ; e && *e; ++e) entries.push_back(utf16FromSystem(*e));
  return SysError{};
}

bool processUsesCommandLine() { return false; }

bool processEnvironmentIgnoresCase() { return false; }

SysError processList(std::vector<ProcessEntry>& entries) {
  entries.clear();
  DIR* dir = ::opendir("/proc");
  if (!dir) return errorOf(errno, "opendir");
  while (dirent* d = ::readdir(dir)) {
    char const* name = d->d_name;
    if (!*name || std::strspn(name, "0123456789") != std::strlen(name)) continue;
    ProcessEntry entry;
    entry.id = std::strtoull(name, nullptr, 10);
    std::string const base = std::string("/proc/") + name;
    std::string stat;
    // "pid (comm) state ppid ...": comm may hold blanks and parentheses,
    // so the fields are counted from the last ')'.
    // A process that ended meanwhile is left out.
    if (!readWholeFile((base + "/stat").c_str(), stat)) continue;
    std::size_t const close = stat.rfind(')');
    if (close != std::string::npos) {
      char state = 0;
      unsigned long long parent = 0;
      if (std::sscanf(stat.c_str() + close + 1, " %c %llu", &state, &parent) == 2) entry.parentId = parent;
    }
    std::string exe;
    if (readLink(base + "/exe", exe)) entry.executablePath = utf16FromSystem(exe);
    struct stat info;
    if (::stat(base.c_str(), &info) == 0) entry.user = userName(info.st_uid);
    entries.push_back(std::move(entry));
  }
  ::closedir(dir);
  return SysError{};
}

bool systemCommandLineParserAvailable() { return false; }

SysError systemParseCommandLine(std::u16string const&, std::vector<std::u16string>& argv) {
  argv.clear();
  return errorOf(ENOSYS);
}

}  // namespace qo::platform
