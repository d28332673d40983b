#include "qo/platform/IPCChannel.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/un.h>
#include <unistd.h>

namespace qo::platform {

namespace {

// A self-pipe: writing its end wakes every poll that includes the read end.
struct WakePipe {
  int fds[2] = {-1, -1};
  bool open() { return pipe2(fds, O_CLOEXEC | O_NONBLOCK) == 0; }
  void wake() {
    char const b = 1;
    ssize_t r = ::write(fds[1], &b, 1);
    (void)r;  // a full pipe is woken already
  }
  void close() {
    for (int& fd : fds) {
      if (fd >= 0) ::close(fd);
      fd = -1;
    }
  }
};

SysError fail(char const* call, char const*& api) {
  api = call;
  return lastSysError(call);
}

SysError failCode(int code, char const* call, char const*& api) {
  api = call;
  return sysErrorOf(static_cast<std::uint32_t>(code), call);
}

using Clock = std::chrono::steady_clock;

// Milliseconds left until deadline for poll(); -1 stays "no limit".
int remainingMs(int timeoutMs, Clock::time_point start) {
  if (timeoutMs < 0) return -1;
  auto const spent = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
  return spent >= timeoutMs ? 0 : static_cast<int>(timeoutMs - spent);
}

// Letters, digits, '.', '-' and '_': nothing that could leave the folder.
bool validLocalName(std::string const& name) {
  if (name.empty() || name.size() > 80 || name == "." || name == "..") return false;
  for (char c : name) {
    bool const ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
                    c == '-' || c == '_';
    if (!ok) return false;
  }
  return true;
}

}  // namespace

struct IPCChannel {
  int fd = -1;
  bool local = false;
  WakePipe wake;
  std::atomic<bool> cancelled{false};
};

struct IPCListener {
  int fd = -1;
  std::string path;  // the local socket file, removed when freed
  WakePipe wake;
  std::atomic<bool> stopped{false};
};

SysError ipcNetworkStartup(char const*&) { return SysError{}; }
void ipcNetworkCleanup() {}

SysError ipcLocalFolder(std::string& folder, char const*& api) {
  folder = "/tmp/qo-ipc-" + std::to_string(static_cast<unsigned long>(geteuid()));
  if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return fail("mkdir", api);
  // Somebody may have made the folder first: trust it only when it is a real
  // folder of ours that nobody else may enter.
  struct stat st {};
  if (lstat(folder.c_str(), &st) != 0) return fail("lstat", api);
  if (!S_ISDIR(st.st_mode) || st.st_uid != geteuid() || (st.st_mode & 077) != 0) return failCode(EPERM, "lstat", api);
  return SysError{};
}

static SysError localAddress(std::string const& name, sockaddr_un& addr, std::string& path, char const*& api) {
  if (!name.empty() && name[0] == '/') {
    path = name;  // a full socket path: the folder's access rights judge
  } else {
    if (!validLocalName(name)) return failCode(EINVAL, "socket", api);
    std::string folder;
    if (SysError e = ipcLocalFolder(folder, api)) return e;
    path = folder + "/" + name;
  }
  std::memset(&addr, 0, sizeof addr);
  addr.sun_family = AF_UNIX;
  if (path.size() >= sizeof addr.sun_path) return failCode(ENAMETOOLONG, "bind", api);
  std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
  return SysError{};
}

static IPCChannel* newChannel(int fd, bool local) {
  auto* c = new IPCChannel;
  c->fd = fd;
  c->local = local;
  if (!c->wake.open()) {
    delete c;
    return nullptr;
  }
  return c;
}

static IPCListener* newListener(int fd) {
  auto* l = new IPCListener;
  l->fd = fd;
  if (!l->wake.open()) {
    delete l;
    return nullptr;
  }
  return l;
}

SysError ipcListenLocal(std::string const& name, bool anyUser, IPCListener*& listener, char const*& api) {
  listener = nullptr;
  sockaddr_un addr;
  std::string path;
  if (SysError e = localAddress(name, addr, path, api)) return e;
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return fail("socket", api);
  if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    if (errno != EADDRINUSE) {
      SysError e = fail("bind", api);
      ::close(fd);
      return e;
    }
    // A socket file is there: replace it only when nobody accepts on it.
    int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    bool const live = probe >= 0 && connect(probe, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
    if (probe >= 0) ::close(probe);
    struct stat st {};
    if (live || lstat(path.c_str(), &st) != 0 || !S_ISSOCK(st.st_mode)) {
      ::close(fd);
      return failCode(EADDRINUSE, "bind", api);
    }
    unlink(path.c_str());
    if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
      SysError e = fail("bind", api);
      ::close(fd);
      return e;
    }
  }
  bool const modeSet = chmod(path.c_str(), anyUser ? 0666 : 0600) == 0;
  if (!modeSet || listen(fd, 64) != 0) {
    SysError e = fail(modeSet ? "listen" : "chmod", api);
    unlink(path.c_str());
    ::close(fd);
    return e;
  }
  listener = newListener(fd);
  if (!listener) {
    SysError e = fail("pipe2", api);
    unlink(path.c_str());
    ::close(fd);
    return e;
  }
  listener->path = path;
  return SysError{};
}

SysError ipcListenTCP(std::string const& host, int port, IPCListener*& listener, int& boundPort, char const*& api) {
  listener = nullptr;
  boundPort = 0;
  addrinfo hints{};
  hints.ai_family = host.find(':') != std::string::npos ? AF_INET6 : AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  std::string const service = std::to_string(port);
  if (int rc = getaddrinfo(host.empty() ? nullptr : host.c_str(), service.c_str(), &hints, &found)) {
    api = "getaddrinfo";
    return SysError{static_cast<std::uint32_t>(rc == EAI_SYSTEM ? errno : EINVAL), gai_strerror(rc), api};
  }
  int fd = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    freeaddrinfo(found);
    return fail("socket", api);
  }
  int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (bind(fd, found->ai_addr, found->ai_addrlen) != 0 || listen(fd, 64) != 0) {
    SysError e = fail("bind", api);
    freeaddrinfo(found);
    ::close(fd);
    return e;
  }
  freeaddrinfo(found);
  sockaddr_storage bound{};
  socklen_t len = sizeof bound;
  getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &len);
  boundPort = ntohs(bound.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&bound)->sin6_port
                                                : reinterpret_cast<sockaddr_in*>(&bound)->sin_port);
  listener = newListener(fd);
  if (!listener) {
    SysError e = fail("pipe2", api);
    ::close(fd);
    return e;
  }
  return SysError{};
}

SysError ipcAccept(IPCListener* l, int timeoutMs, IPCChannel*& channel, bool& cancelled, char const*& api) {
  channel = nullptr;
  cancelled = false;
  Clock::time_point const start = Clock::now();
  for (;;) {
    if (l->stopped.load()) {
      cancelled = true;
      return SysError{};
    }
    pollfd fds[2] = {{l->fd, POLLIN, 0}, {l->wake.fds[0], POLLIN, 0}};
    int const n = poll(fds, 2, remainingMs(timeoutMs, start));
    if (n < 0) {
      if (errno == EINTR) continue;
      return fail("poll", api);
    }
    if (n == 0) return SysError{};
    if (fds[1].revents) continue;  // stopped: checked above
    int fd = accept4(l->fd, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
      if (errno == EINTR || errno == EAGAIN || errno == ECONNABORTED) continue;
      return fail("accept", api);
    }
    sockaddr_storage self{};
    socklen_t len = sizeof self;
    getsockname(fd, reinterpret_cast<sockaddr*>(&self), &len);
    if (self.ss_family != AF_UNIX) {
      int on = 1;
      setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }
    channel = newChannel(fd, self.ss_family == AF_UNIX);
    if (!channel) {
      SysError e = fail("pipe2", api);
      ::close(fd);
      return e;
    }
    return SysError{};
  }
}

void ipcStopListener(IPCListener* l) {
  l->stopped.store(true);
  l->wake.wake();
}

void ipcFreeListener(IPCListener* l) {
  if (!l) return;
  if (!l->path.empty()) unlink(l->path.c_str());
  ::close(l->fd);
  l->wake.close();
  delete l;
}

// Connects a new socket to addr within timeoutMs, trying again while nobody
// serves the address. The connect itself runs non-blocking, so a remote host
// that does not answer costs no more than the time limit.
static SysError connectLoop(int family, sockaddr const* addr, socklen_t addrLen, int timeoutMs, int& fdOut,
                            char const*& api) {
  Clock::time_point const start = Clock::now();
  for (;;) {
    int fd = socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return fail("socket", api);
    int code = connect(fd, addr, addrLen) == 0 ? 0 : errno;
    if (code == EINPROGRESS) {
      pollfd pfd{fd, POLLOUT, 0};
      int const n = poll(&pfd, 1, remainingMs(timeoutMs, start));
      socklen_t len = sizeof code;
      if (n < 0) {
        code = errno;
      } else if (n == 0) {
        code = ETIMEDOUT;
      } else if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &code, &len) != 0) {
        code = errno;
      }
    }
    if (code == 0) {
      fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
      fdOut = fd;
      return SysError{};
    }
    ::close(fd);
    bool const retry = code == ENOENT || code == ECONNREFUSED || code == EAGAIN || code == EINTR;
    if (!retry || remainingMs(timeoutMs, start) == 0) return failCode(code, "connect", api);
    // Nobody serves the name yet: the server may be starting.
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

SysError ipcConnectLocal(std::string const& name, int timeoutMs, IPCChannel*& channel, char const*& api) {
  channel = nullptr;
  sockaddr_un addr;
  std::string path;
  if (SysError e = localAddress(name, addr, path, api)) return e;
  int fd = -1;
  if (SysError e = connectLoop(AF_UNIX, reinterpret_cast<sockaddr*>(&addr), sizeof addr, timeoutMs, fd, api)) return e;
  channel = newChannel(fd, true);
  if (!channel) {
    SysError e = fail("pipe2", api);
    ::close(fd);
    return e;
  }
  return SysError{};
}

SysError ipcConnectTCP(std::string const& host, int port, int timeoutMs, IPCChannel*& channel, char const*& api) {
  channel = nullptr;
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV;
  addrinfo* found = nullptr;
  std::string const service = std::to_string(port);
  if (int rc = getaddrinfo(host.c_str(), service.c_str(), &hints, &found)) {
    api = "getaddrinfo";
    return SysError{static_cast<std::uint32_t>(rc == EAI_SYSTEM ? errno : EINVAL), gai_strerror(rc), api};
  }
  int fd = -1;
  SysError e = connectLoop(found->ai_family, found->ai_addr, found->ai_addrlen, timeoutMs, fd, api);
  freeaddrinfo(found);
  if (e) return e;
  int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  channel = newChannel(fd, false);
  if (!channel) {
    e = fail("pipe2", api);
    ::close(fd);
    return e;
  }
  return SysError{};
}

// Waits until fd is ready for events or the channel is cancelled: 1 ready,
// 0 timed out, kIPCCancelled, or -3 with errno set.
static int waitChannel(IPCChannel* c, short events, int timeoutMs) {
  Clock::time_point const start = Clock::now();
  for (;;) {
    if (c->cancelled.load()) return kIPCCancelled;
    pollfd fds[2] = {{c->fd, events, 0}, {c->wake.fds[0], POLLIN, 0}};
    int const n = poll(fds, 2, remainingMs(timeoutMs, start));
    if (n < 0) {
      if (errno == EINTR) continue;
      return -3;
    }
    if (n == 0) return 0;
    if (fds[1].revents) return kIPCCancelled;
    return 1;
  }
}

// Without a time limit the calls simply block: ipcCancel shuts the socket
// down, which ends them, and the flag tells that apart from the peer's end.
// With one, the call is tried first and waited for only when it would
// block, so data that has arrived costs one system call.
SysError ipcRead(IPCChannel* c, void* buffer, int size, int timeoutMs, int& got, char const*& api) {
  got = 0;
  for (;;) {
    if (c->cancelled.load()) {
      got = kIPCCancelled;
      return SysError{};
    }
    ssize_t const n = recv(c->fd, buffer, static_cast<size_t>(size), timeoutMs < 0 ? 0 : MSG_DONTWAIT);
    if (n >= 0 || (errno == EPIPE && c->cancelled.load())) {
      got = n > 0 ? static_cast<int>(n) : c->cancelled.load() ? kIPCCancelled : 0;
      return SysError{};
    }
    if (errno == ECONNRESET) return SysError{};  // the peer went away: the end of its data
    if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) return fail("recv", api);
    int const w = waitChannel(c, POLLIN, timeoutMs);
    if (w == -3) return fail("poll", api);
    if (w == 0) {
      got = kIPCTimedOut;
      return SysError{};
    }
    if (w == kIPCCancelled) {
      got = kIPCCancelled;
      return SysError{};
    }
  }
}

SysError ipcWrite(IPCChannel* c, void const* data, int size, bool& cancelled, char const*& api) {
  cancelled = false;
  auto const* p = static_cast<char const*>(data);
  while (size > 0) {
    if (c->cancelled.load()) {
      cancelled = true;
      return SysError{};
    }
    ssize_t const n = send(c->fd, p, static_cast<size_t>(size), MSG_NOSIGNAL);
    if (n >= 0) {
      p += n;
      size -= static_cast<int>(n);
      continue;
    }
    if (c->cancelled.load()) {
      cancelled = true;
      return SysError{};
    }
    if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) return fail("send", api);
    int const w = waitChannel(c, POLLOUT, -1);
    if (w == -3) return fail("poll", api);
    if (w == kIPCCancelled) {
      cancelled = true;
      return SysError{};
    }
  }
  return SysError{};
}

void ipcCancel(IPCChannel* c) {
  c->cancelled.store(true);
  shutdown(c->fd, SHUT_RDWR);  // ends blocking calls
  c->wake.wake();
}

void ipcFreeChannel(IPCChannel* c) {
  if (!c) return;
  ::close(c->fd);
  c->wake.close();
  delete c;
}

void ipcPeer(IPCChannel* c, long long& processId, long long& userId) {
  processId = userId = -1;
  if (!c->local) return;
  ucred cred{};
  socklen_t len = sizeof cred;
  if (getsockopt(c->fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) == 0) {
    processId = cred.pid;
    userId = cred.uid;
  }
}

int ipcPeerAdmitted(IPCChannel* c) {
  long long processId = -1, userId = -1;
  ipcPeer(c, processId, userId);
  if (userId < 0) return -1;
  return userId == 0 || userId == static_cast<long long>(geteuid()) ? 1 : 0;
}

}  // namespace qo::platform
