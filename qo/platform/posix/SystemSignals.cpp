#include "qo/platform/SystemSignals.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace qo::platform {

struct NativeSystemSignals {
  int readFd = -1;
  int writeFd = -1;
  struct sigaction previous[3];
};

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
constexpr SystemSignal kKinds[] = {SystemSignal::Interrupt, SystemSignal::Terminate, SystemSignal::HangUp};
constexpr int kSignalCount = 3;
// What the handler may read: atomics only, so it never looks at memory that
// another thread is writing. Kinds of previous dispositions:
enum : int { kDefault, kIgnore, kHandler, kInfoHandler };
std::atomic<int> g_writeFd{-1};
std::atomic<bool> g_takeOver{false};
std::atomic<int> g_previousKind[kSignalCount];
std::atomic<void*> g_previousFunction[kSignalCount];

int indexOf(int sig) {
  for (int i = 0; i < kSignalCount; ++i)
    if (kSignals[i] == sig) return i;
  return -1;
}

extern "C" void qoSystemSignalHandler(int sig, siginfo_t* info, void* context) {
  int const savedErrno = errno;
  int const i = indexOf(sig);
  bool const takeOver = g_takeOver.load();
  int const fd = g_writeFd.load();
  if (takeOver && fd >= 0) {
    // Only the number goes to the pipe; the work happens on the reading
    // thread. A full pipe drops the notice rather than block here.
    unsigned char byte = static_cast<unsigned char>(sig);
    ssize_t ignored = write(fd, &byte, 1);
    (void)ignored;
  }
  if (i >= 0) {
    int const kind = g_previousKind[i].load();
    void* const function = g_previousFunction[i].load();
    if (kind == kInfoHandler && function) {
      reinterpret_cast<void (*)(int, siginfo_t*, void*)>(function)(sig, info, context);
    } else if (kind == kHandler && function) {
      reinterpret_cast<void (*)(int)>(function)(sig);
    } else if (kind == kDefault && !takeOver) {
      // Nobody takes it: the default action, as if we had never been here.
      // The signal is blocked inside the handler and ends the process as
      // soon as the handler returns.
      struct sigaction dfl{};
      dfl.sa_handler = SIG_DFL;
      sigemptyset(&dfl.sa_mask);
      sigaction(sig, &dfl, nullptr);
      raise(sig);
    }
  }
  errno = savedErrno;
}

SystemSignal kindOf(unsigned char sig) {
  for (int i = 0; i < kSignalCount; ++i)
    if (kSignals[i] == sig) return kKinds[i];
  return SystemSignal::Interrupt;
}

}  // namespace

SysError systemSignalsInstall(SystemSignalsHandle& handle) {
  handle = nullptr;
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return lastSysError("pipe2");
  // The handler must never block on a full pipe.
  if (fcntl(fds[1], F_SETFL, O_NONBLOCK) != 0) {
    SysError e = lastSysError("fcntl");
    close(fds[0]);
    close(fds[1]);
    return e;
  }
  auto* h = new NativeSystemSignals;
  h->readFd = fds[0];
  h->writeFd = fds[1];
  g_writeFd.store(fds[1]);
  struct sigaction action{};
  action.sa_sigaction = &qoSystemSignalHandler;
  action.sa_flags = SA_SIGINFO | SA_RESTART;
  sigemptyset(&action.sa_mask);
  for (int i = 0; i < kSignalCount; ++i) {
    // Read the previous disposition first, publish it for the handler, then
    // install: the handler never sees a half-known predecessor.
    sigaction(kSignals[i], nullptr, &h->previous[i]);
    struct sigaction const& p = h->previous[i];
    if (p.sa_flags & SA_SIGINFO) {
      g_previousFunction[i].store(reinterpret_cast<void*>(p.sa_sigaction));
      g_previousKind[i].store(kInfoHandler);
    } else if (p.sa_handler == SIG_IGN) {
      g_previousKind[i].store(kIgnore);
    } else if (p.sa_handler == SIG_DFL) {
      g_previousKind[i].store(kDefault);
    } else {
      g_previousFunction[i].store(reinterpret_cast<void*>(p.sa_handler));
      g_previousKind[i].store(kHandler);
    }
    if (sigaction(kSignals[i], &action, nullptr) != 0) {
      SysError e = lastSysError("sigaction");
      for (int j = 0; j < i; ++j) sigaction(kSignals[j], &h->previous[j], nullptr);
      g_writeFd.store(-1);
      close(fds[0]);
      close(fds[1]);
      delete h;
      return e;
    }
  }
  handle = h;
  return SysError();
}

void systemSignalsSetTakeOver(SystemSignalsHandle handle, bool takeOver) {
  if (handle) g_takeOver.store(takeOver);
}

SysError systemSignalsRun(SystemSignalsHandle handle, SystemSignalSink sink, void* context) {
  if (!handle) return sysErrorOf(EBADF, "read");
  for (;;) {
    unsigned char byte = 0;
    ssize_t n = read(handle->readFd, &byte, 1);
    if (n < 0) {
      if (errno == EINTR) continue;
      return lastSysError("read");
    }
    if (n == 0 || byte == 0) return SysError();  // 0 is the stop byte
    sink(context, kindOf(byte));
  }
}

bool systemSignalsWaitReady(SystemSignalsHandle handle, int) {
  // The pipe keeps what arrives before the reader starts.
  return handle != nullptr;
}

bool systemSignalsHaveWindow(SystemSignalsHandle) { return false; }

void systemSignalsStop(SystemSignalsHandle handle) {
  if (!handle) return;
  unsigned char stop = 0;
  // Blocking would be wrong only with 64 KiB of unread signals queued.
  while (write(handle->writeFd, &stop, 1) < 0 && errno == EINTR) {
  }
}

void systemSignalsUninstall(SystemSignalsHandle handle) {
  if (!handle) return;
  g_takeOver.store(false);
  g_writeFd.store(-1);
  for (int i = 0; i < kSignalCount; ++i) sigaction(kSignals[i], &handle->previous[i], nullptr);
  close(handle->readFd);
  close(handle->writeFd);
  delete handle;
}

}  // namespace qo::platform
