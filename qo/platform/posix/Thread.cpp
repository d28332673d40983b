#include "qo/platform/Thread.h"

#include "qo/platform/posix/PosixWait.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace qo::platform {

// Shared by the owner's handle and the running thread; the last of the two
// frees it, so either side may end first.
struct NativeThread {
  ThreadFunc func = nullptr;
  void* arg = nullptr;
  pthread_t thread{};
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t cond;
  std::uint64_t id = 0;  // published by the thread before its body runs
  bool ended = false;    // guarded by mutex
  std::atomic<bool> endedFlag{false};
  std::atomic<int> refs{2};
  bool joined = false;  // owner side only
};

using posixwait::deadlineAfter;
using posixwait::fromCode;

namespace {

void releaseShared(NativeThread* t) {
  if (t->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    pthread_cond_destroy(&t->cond);
    pthread_mutex_destroy(&t->mutex);
    delete t;
  }
}

std::uint64_t kernelThreadId() {
#if defined(__linux__)
  return static_cast<std::uint64_t>(syscall(SYS_gettid));
#else
  // Without kernel ids, a per-thread address is unique among live threads.
  static thread_local char marker;
  return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(&marker));
#endif
}

void* trampoline(void* p) {
  auto* t = static_cast<NativeThread*>(p);
  pthread_mutex_lock(&t->mutex);
  t->id = kernelThreadId();
  pthread_cond_broadcast(&t->cond);
  pthread_mutex_unlock(&t->mutex);

  t->func(t->arg);

  pthread_mutex_lock(&t->mutex);
  t->ended = true;
  t->endedFlag.store(true, std::memory_order_release);
  pthread_cond_broadcast(&t->cond);
  pthread_mutex_unlock(&t->mutex);
  releaseShared(t);
  return nullptr;
}

}  // namespace

SysError threadStart(ThreadFunc func, void* arg, ThreadHandle& handle, std::uint64_t& id, int& crtErrno) {
  handle = nullptr;
  id = 0;
  crtErrno = 0;
  auto* t = new (std::nothrow) NativeThread;
  if (!t) return fromCode(ENOMEM, "malloc");
  t->func = func;
  t->arg = arg;
  posixwait::initMonotonicCond(t->cond);
  int rc = pthread_create(&t->thread, nullptr, &trampoline, t);
  if (rc != 0) {
    pthread_cond_destroy(&t->cond);
    pthread_mutex_destroy(&t->mutex);
    delete t;
    return fromCode(rc, "pthread_create");
  }
  // The caller needs the id at once (a thread compares it with its own), and
  // only the new thread can read its kernel id.
  pthread_mutex_lock(&t->mutex);
  while (t->id == 0) pthread_cond_wait(&t->cond, &t->mutex);
  id = t->id;
  pthread_mutex_unlock(&t->mutex);
  handle = t;
  return {};
}

SysError threadWait(ThreadHandle handle, int timeoutMillis, bool& finished) {
  finished = false;
  if (!handle) return fromCode(EINVAL, "pthread_join");
  pthread_mutex_lock(&handle->mutex);
  if (timeoutMillis < 0) {
    while (!handle->ended) pthread_cond_wait(&handle->cond, &handle->mutex);
  } else if (timeoutMillis > 0) {
    timespec at = deadlineAfter(timeoutMillis);
    while (!handle->ended) {
      if (pthread_cond_timedwait(&handle->cond, &handle->mutex, &at) == ETIMEDOUT) break;
    }
  }
  finished = handle->ended;
  pthread_mutex_unlock(&handle->mutex);
  if (finished && !handle->joined) {
    // The body is done; joining only waits for the thread's own exit, so
    // "finished" means the thread is really gone, as on Windows.
    int rc = pthread_join(handle->thread, nullptr);
    if (rc != 0) return fromCode(rc, "pthread_join");
    handle->joined = true;
  }
  return {};
}

bool threadIsRunning(ThreadHandle handle) { return handle && !handle->endedFlag.load(std::memory_order_acquire); }

void threadClose(ThreadHandle handle) {
  if (!handle) return;
  if (!handle->joined) pthread_detach(handle->thread);
  releaseShared(handle);
}

std::uint64_t threadCurrentId() {
  static thread_local std::uint64_t cached = 0;
  if (cached == 0) cached = kernelThreadId();
  return cached;
}

SysError threadIsAliveById(std::uint64_t id, bool& alive) {
  alive = false;
#if defined(__linux__)
  if (id == 0 || id > 0x7fffffffULL) return {};
  // Signal 0 checks existence only; tgkill keeps the test inside this process.
  if (syscall(SYS_tgkill, static_cast<long>(getpid()), static_cast<long>(id), 0) == 0) {
    alive = true;
    return {};
  }
  if (errno == ESRCH) return {};
  return lastSysError("tgkill");
#else
  alive = id == threadCurrentId();
  return {};
#endif
}

SysError threadKillById(std::uint64_t, int) {
  return SysError{static_cast<std::uint32_t>(ENOTSUP),
                  "ending another thread is not supported on POSIX (it would leave locks and memory in an undefined "
                  "state)",
                  "pthread_kill"};
}

void threadSetName(std::uint64_t id, char const* utf8Name) {
  if (!utf8Name) return;
  // The kernel keeps 15 bytes and a NUL; cut before a UTF-8 continuation
  // byte so that no partial character remains.
  std::size_t length = std::strlen(utf8Name);
  if (length > 15) {
    length = 15;
    while (length > 0 && (static_cast<unsigned char>(utf8Name[length]) & 0xC0) == 0x80) --length;
  }
  std::string name(utf8Name, length);
  if (id == threadCurrentId()) {
#if defined(__linux__)
    pthread_setname_np(pthread_self(), name.c_str());
#elif defined(__APPLE__)
    pthread_setname_np(name.c_str());
#endif
    return;
  }
#if defined(__linux__)
  char path[64];
  std::snprintf(path, sizeof path, "/proc/self/task/%llu/comm", static_cast<unsigned long long>(id));
  if (FILE* f = std::fopen(path, "w")) {
    std::fputs(name.c_str(), f);
    std::fclose(f);
  }
#endif
}

}  // namespace qo::platform
