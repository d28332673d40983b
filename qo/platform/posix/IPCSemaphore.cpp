#include "qo/platform/IPCSemaphore.h"

#include <cerrno>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

#include "qo/platform/IPCChannel.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qo::platform {

struct IPCSemaphore {
  std::string folder;
  int count = 0;
  std::mutex mutex;       // held
  std::vector<int> held;  // descriptors of the unit files this object locks
  unsigned next = 0;      // where the next search starts, to spread the units
};

static SysError failCode(int code, char const* call, char const*& api) {
  api = call;
  return sysErrorOf(static_cast<std::uint32_t>(code), call);
}

SysError ipcSemaphoreOpen(std::string const& name, int count, IPCSemaphore*& semaphore, char const*& api) {
  semaphore = nullptr;
  if (name.empty() || name.find('/') != std::string::npos || name.size() > 80 || count < 1 || count > 1024) {
    return failCode(EINVAL, "mkdir", api);
  }
  std::string folder;
  if (SysError e = ipcLocalFolder(folder, api)) return e;
  folder += "/" + name + ".sem";
  if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return failCode(errno, "mkdir", api);
  // The unit count is the number of unit files; the first opener makes them.
  // Later openers with another count keep the existing one.
  int existing = 0;
  while (existing < 1024 && access((folder + "/" + std::to_string(existing)).c_str(), F_OK) == 0) ++existing;
  if (existing == 0) {
    for (int i = 0; i < count; ++i) {
      int fd = open((folder + "/" + std::to_string(i)).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
      if (fd < 0) return failCode(errno, "open", api);
      close(fd);
    }
    existing = count;
  }
  semaphore = new IPCSemaphore;
  semaphore->folder = folder;
  semaphore->count = existing;
  return SysError{};
}

// Tries every unit once; true with the locked descriptor kept when one was
// free.
static SysError tryTake(IPCSemaphore* s, bool& taken, char const*& api) {
  taken = false;
  std::lock_guard<std::mutex> lock(s->mutex);
  for (int i = 0; i < s->count; ++i) {
    unsigned const unit = (s->next + static_cast<unsigned>(i)) % static_cast<unsigned>(s->count);
    int fd = open((s->folder + "/" + std::to_string(unit)).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return failCode(errno, "open", api);
    if (flock(fd, LOCK_EX | LOCK_NB) == 0) {
      s->held.push_back(fd);
      s->next = unit + 1;
      taken = true;
      return SysError{};
    }
    int const code = errno;
    close(fd);
    if (code != EWOULDBLOCK) return failCode(code, "flock", api);
  }
  return SysError{};
}

SysError ipcSemaphoreTake(IPCSemaphore* s, int timeoutMs, bool& taken, char const*& api) {
  using Clock = std::chrono::steady_clock;
  Clock::time_point const start = Clock::now();
  int pauseMs = 1;
  for (;;) {
    if (SysError e = tryTake(s, taken, api)) return e;
    if (taken) return SysError{};
    long long const spent = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
    if (timeoutMs >= 0 && spent >= timeoutMs) return SysError{};
    // flock cannot wait for "any one of" the units: poll, backing off to
    // 10 ms so a long wait costs little.
    long long wait = pauseMs;
    if (timeoutMs >= 0 && wait > timeoutMs - spent) wait = timeoutMs - spent;
    std::this_thread::sleep_for(std::chrono::milliseconds(wait));
    if (pauseMs < 10) ++pauseMs;
  }
}

SysError ipcSemaphoreGive(IPCSemaphore* s, char const*& api) {
  std::lock_guard<std::mutex> lock(s->mutex);
  if (s->held.empty()) return failCode(EOVERFLOW, "flock", api);
  int const fd = s->held.back();
  s->held.pop_back();
  flock(fd, LOCK_UN);
  close(fd);
  return SysError{};
}

void ipcSemaphoreClose(IPCSemaphore* s) {
  if (!s) return;
  for (int fd : s->held) close(fd);
  delete s;
}

}  // namespace qo::platform
