#include "qo/platform/EventLog.h"

#include "qo/platform/CodePage.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace qo::platform {

struct NativeEventLog {
  int socket = -1;
  std::string ident;
};

namespace {

std::string toUTF8(std::u16string const& text) {
  std::string out;
  if (encodeCodePage(65001, text.data(), text.size(), out) != CodePageResult::Ok) {
    // Lone surrogates: keep what is ASCII, mark the rest.
    out.clear();
    for (char16_t c : text) out.push_back(c < 0x80 ? static_cast<char>(c) : '?');
  }
  return out;
}

}  // namespace

SysError eventLogOpen(std::u16string const& source, std::u16string const& target, EventLogHandle& handle) {
  handle = nullptr;
  std::string path = target.empty() ? std::string("/dev/log") : toUTF8(target);
  struct sockaddr_un address;
  std::memset(&address, 0, sizeof address);
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return sysErrorOf(ENAMETOOLONG, "connect");
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return lastSysError("socket");
  if (::connect(fd, reinterpret_cast<struct sockaddr*>(&address), sizeof address) != 0) {
    SysError e = lastSysError("connect");
    ::close(fd);
    return e;
  }
  handle = new NativeEventLog;
  handle->socket = fd;
  handle->ident = toUTF8(source);
  return SysError();
}

SysError eventLogWrite(EventLogHandle handle, EventType type, std::u16string const& message) {
  if (!handle) return sysErrorOf(EBADF, "send");
  int severity = type == EventType::Error ? LOG_ERR : type == EventType::Warning ? LOG_WARNING : LOG_INFO;
  time_t now = time(nullptr);
  struct tm local;
  char stamp[32] = "";
  if (localtime_r(&now, &local)) strftime(stamp, sizeof stamp, "%b %e %H:%M:%S", &local);
  char head[64];
  std::snprintf(head, sizeof head, "<%d>%s ", LOG_USER | severity, stamp);
  std::string packet =
      head + handle->ident + "[" + std::to_string(static_cast<long>(getpid())) + "]: " + toUTF8(message);
  for (;;) {
    if (::send(handle->socket, packet.data(), packet.size(), MSG_NOSIGNAL) >= 0) return SysError();
    if (errno != EINTR) return lastSysError("send");
  }
}

void eventLogClose(EventLogHandle handle) {
  if (!handle) return;
  ::close(handle->socket);
  delete handle;
}

}  // namespace qo::platform
