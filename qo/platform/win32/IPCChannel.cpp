#include "qo/platform/IPCChannel.h"

#include <atomic>
#include <chrono>

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
#include <sddl.h>

#include "qo/platform/win32/Win32Text.h"

namespace qo::platform {

namespace {

using Clock = std::chrono::steady_clock;

// Milliseconds left for a wait; INFINITE for no limit.
DWORD remainingMs(int timeoutMs, Clock::time_point start) {
  if (timeoutMs < 0) return INFINITE;
  auto const spent = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
  return spent >= timeoutMs ? 0 : static_cast<DWORD>(timeoutMs - spent);
}

SysError fail(char const* call, char const*& api) {
  api = call;
  return lastSysError();
}

SysError failCode(DWORD code, char const* call, char const*& api) {
  api = call;
  return SysError{code, sysErrorText(code)};
}

SysError failWSA(char const* call, char const*& api) { return failCode(static_cast<DWORD>(WSAGetLastError()), call, api); }

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

std::wstring pipePath(std::string const& name) { return L"\\\\.\\pipe\\qo.ipc." + win32text::widen(name.c_str()); }

// Only the creating user, SYSTEM and the Administrators may open the pipe;
// with anyUser every authenticated user may read and write it as well.
bool makeSecurityDescriptor(bool anyUser, PSECURITY_DESCRIPTOR& sd) {
  sd = nullptr;
  HANDLE token = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return false;
  DWORD size = 0;
  GetTokenInformation(token, TokenUser, nullptr, 0, &size);
  std::string buffer(size, '\0');
  bool ok = size > 0 && GetTokenInformation(token, TokenUser, buffer.data(), size, &size);
  CloseHandle(token);
  if (!ok) return false;
  wchar_t* sid = nullptr;
  if (!ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(buffer.data())->User.Sid, &sid)) return false;
  std::wstring const sddl = std::wstring(L"D:P(A;;GA;;;SY)(A;;GA;;;BA)(A;;GA;;;") + sid + L")" +
                            (anyUser ? L"(A;;GRGW;;;AU)" : L"");
  LocalFree(sid);
  return ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl.c_str(), SDDL_REVISION_1, &sd, nullptr) != 0;
}

// Waits for an overlapped operation started on handle, or for cancel.
// 1: done (transferred set), 0: timed out, kIPCCancelled; -3 failed with
// the last error set. A cancelled or timed-out operation is cancelled and
// finished here; when it completed anyway it counts as done.
int finishOverlapped(HANDLE handle, OVERLAPPED& ov, HANDLE cancel, DWORD waitMs, DWORD& transferred) {
  HANDLE const events[2] = {ov.hEvent, cancel};
  DWORD const w = WaitForMultipleObjects(cancel ? 2 : 1, events, FALSE, waitMs);
  if (w == WAIT_OBJECT_0) return GetOverlappedResult(handle, &ov, &transferred, FALSE) ? 1 : -3;
  if (w == WAIT_FAILED) return -3;
  CancelIoEx(handle, &ov);
  if (GetOverlappedResult(handle, &ov, &transferred, TRUE)) return 1;
  DWORD const code = GetLastError();
  if (code != ERROR_OPERATION_ABORTED) return -3;
  return w == WAIT_TIMEOUT ? 0 : kIPCCancelled;
}

}  // namespace

struct IPCChannel {
  HANDLE handle = INVALID_HANDLE_VALUE;  // a pipe, or a SOCKET cast
  bool isSocket = false;
  bool serverSide = false;
  HANDLE cancel = nullptr;  // manual-reset: set by ipcCancel
  HANDLE readDone = nullptr;
  HANDLE writeDone = nullptr;
};

struct IPCListener {
  bool isSocket = false;
  std::wstring path;
  PSECURITY_DESCRIPTOR sd = nullptr;
  HANDLE pending = INVALID_HANDLE_VALUE;  // the instance waiting for a client
  SOCKET sock = INVALID_SOCKET;
  HANDLE ready = nullptr;  // connect completion / FD_ACCEPT
  HANDLE stop = nullptr;   // manual-reset: set by ipcStopListener
};

static IPCChannel* newChannel(HANDLE handle, bool isSocket, bool serverSide) {
  auto* c = new IPCChannel;
  c->handle = handle;
  c->isSocket = isSocket;
  c->serverSide = serverSide;
  c->cancel = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  c->readDone = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  c->writeDone = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  return c;
}

SysError ipcNetworkStartup(char const*& api) {
  WSADATA data{};
  if (int rc = WSAStartup(MAKEWORD(2, 2), &data)) return failCode(static_cast<DWORD>(rc), "WSAStartup", api);
  return SysError{};
}

void ipcNetworkCleanup() { WSACleanup(); }

SysError ipcLocalFolder(std::string& folder, char const*&) {
  folder = "\\\\.\\pipe\\qo.ipc.";
  return SysError{};
}

static HANDLE createInstance(IPCListener* l, bool first) {
  SECURITY_ATTRIBUTES sa{};
  sa.nLength = sizeof sa;
  sa.lpSecurityDescriptor = l->sd;
  DWORD const openMode = PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | (first ? FILE_FLAG_FIRST_PIPE_INSTANCE : 0);
  DWORD const pipeMode = PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS;
  return CreateNamedPipeW(l->path.c_str(), openMode, pipeMode, PIPE_UNLIMITED_INSTANCES, 65536, 65536, 0, &sa);
}

static void freeListenerParts(IPCListener* l) {
  if (l->pending != INVALID_HANDLE_VALUE) CloseHandle(l->pending);
  if (l->sock != INVALID_SOCKET) closesocket(l->sock);
  if (l->ready) CloseHandle(l->ready);
  if (l->stop) CloseHandle(l->stop);
  if (l->sd) LocalFree(l->sd);
  delete l;
}

SysError ipcListenLocal(std::string const& name, bool anyUser, IPCListener*& listener, char const*& api) {
  listener = nullptr;
  if (!validLocalName(name)) return failCode(ERROR_INVALID_NAME, "CreateNamedPipeW", api);
  std::wstring const path = pipePath(name);
  // FILE_FLAG_FIRST_PIPE_INSTANCE below refuses a name served already; not
  // every implementation of the call enforces it, so look first as well.
  if (WaitNamedPipeW(path.c_str(), 1) || GetLastError() != ERROR_FILE_NOT_FOUND) {
    return failCode(ERROR_ACCESS_DENIED, "CreateNamedPipeW", api);
  }
  auto* l = new IPCListener;
  l->path = path;
  if (!makeSecurityDescriptor(anyUser, l->sd)) {
    SysError e = fail("ConvertStringSecurityDescriptorToSecurityDescriptorW", api);
    freeListenerParts(l);
    return e;
  }
  l->pending = createInstance(l, true);
  if (l->pending == INVALID_HANDLE_VALUE) {
    SysError e = fail("CreateNamedPipeW", api);
    freeListenerParts(l);
    return e;
  }
  l->ready = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  l->stop = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  listener = l;
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
    return failCode(static_cast<DWORD>(rc), "getaddrinfo", api);
  }
  SOCKET s = socket(found->ai_family, SOCK_STREAM, IPPROTO_TCP);
  if (s == INVALID_SOCKET) {
    freeaddrinfo(found);
    return failWSA("socket", api);
  }
  // Without exclusive use another program could bind the same port.
  BOOL on = TRUE;
  setsockopt(s, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<char const*>(&on), sizeof on);
  if (bind(s, found->ai_addr, static_cast<int>(found->ai_addrlen)) != 0 || listen(s, 64) != 0) {
    SysError e = failWSA("bind", api);
    freeaddrinfo(found);
    closesocket(s);
    return e;
  }
  freeaddrinfo(found);
  sockaddr_storage bound{};
  int len = sizeof bound;
  getsockname(s, reinterpret_cast<sockaddr*>(&bound), &len);
  boundPort = ntohs(bound.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&bound)->sin6_port
                                                : reinterpret_cast<sockaddr_in*>(&bound)->sin_port);
  auto* l = new IPCListener;
  l->isSocket = true;
  l->sock = s;
  l->ready = WSACreateEvent();
  l->stop = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (WSAEventSelect(s, l->ready, FD_ACCEPT) != 0) {
    SysError e = failWSA("WSAEventSelect", api);
    freeListenerParts(l);
    return e;
  }
  listener = l;
  return SysError{};
}

static SysError acceptPipe(IPCListener* l, int timeoutMs, IPCChannel*& channel, bool& cancelled, char const*& api) {
  for (;;) {
    if (l->pending == INVALID_HANDLE_VALUE) {
      l->pending = createInstance(l, false);
      if (l->pending == INVALID_HANDLE_VALUE) return fail("CreateNamedPipeW", api);
    }
    OVERLAPPED ov{};
    ov.hEvent = l->ready;
    ResetEvent(l->ready);
    bool connected = ConnectNamedPipe(l->pending, &ov) != 0;
    if (!connected) {
      DWORD const code = GetLastError();
      if (code == ERROR_PIPE_CONNECTED) {
        connected = true;
      } else if (code == ERROR_NO_DATA) {
        DisconnectNamedPipe(l->pending);  // the client came and went already
        continue;
      } else if (code != ERROR_IO_PENDING) {
        return failCode(code, "ConnectNamedPipe", api);
      } else {
        DWORD ignored = 0;
        int const w = finishOverlapped(l->pending, ov, l->stop, timeoutMs < 0 ? INFINITE : static_cast<DWORD>(timeoutMs),
                                       ignored);
        if (w == kIPCCancelled) {
          cancelled = true;
          return SysError{};
        }
        if (w == 0) return SysError{};
        if (w < 0) {
          if (GetLastError() == ERROR_NO_DATA) {
            DisconnectNamedPipe(l->pending);
            continue;
          }
          return fail("ConnectNamedPipe", api);
        }
        connected = true;
      }
    }
    channel = newChannel(l->pending, false, true);
    l->pending = createInstance(l, false);  // failing here is retried on the next accept
    return SysError{};
  }
}

SysError ipcAccept(IPCListener* l, int timeoutMs, IPCChannel*& channel, bool& cancelled, char const*& api) {
  channel = nullptr;
  cancelled = false;
  if (WaitForSingleObject(l->stop, 0) == WAIT_OBJECT_0) {
    cancelled = true;
    return SysError{};
  }
  if (!l->isSocket) return acceptPipe(l, timeoutMs, channel, cancelled, api);
  Clock::time_point const start = Clock::now();
  for (;;) {
    SOCKET s = accept(l->sock, nullptr, nullptr);
    if (s != INVALID_SOCKET) {
      // The new socket inherits the listener's event selection; it uses
      // overlapped calls in blocking mode instead.
      WSAEventSelect(s, nullptr, 0);
      u_long blocking = 0;
      ioctlsocket(s, FIONBIO, &blocking);
      BOOL on = TRUE;
      setsockopt(s, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<char const*>(&on), sizeof on);
      channel = newChannel(reinterpret_cast<HANDLE>(s), true, true);
      return SysError{};
    }
    if (WSAGetLastError() != WSAEWOULDBLOCK) return failWSA("accept", api);
    HANDLE const events[2] = {l->ready, l->stop};
    DWORD const w = WaitForMultipleObjects(2, events, FALSE, remainingMs(timeoutMs, start));
    if (w == WAIT_OBJECT_0 + 1) {
      cancelled = true;
      return SysError{};
    }
    if (w == WAIT_TIMEOUT) return SysError{};
    if (w == WAIT_FAILED) return fail("WaitForMultipleObjects", api);
    WSANETWORKEVENTS ne{};
    WSAEnumNetworkEvents(l->sock, l->ready, &ne);
  }
}

void ipcStopListener(IPCListener* l) { SetEvent(l->stop); }

void ipcFreeListener(IPCListener* l) {
  if (l) freeListenerParts(l);
}

SysError ipcConnectLocal(std::string const& name, int timeoutMs, IPCChannel*& channel, char const*& api) {
  channel = nullptr;
  if (!validLocalName(name)) return failCode(ERROR_INVALID_NAME, "CreateFileW", api);
  std::wstring const path = pipePath(name);
  Clock::time_point const start = Clock::now();
  for (;;) {
    // SECURITY_IDENTIFICATION: the server may learn who we are, not act as us.
    HANDLE h = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                           FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr);
    if (h != INVALID_HANDLE_VALUE) {
      channel = newChannel(h, false, false);
      return SysError{};
    }
    DWORD const code = GetLastError();
    DWORD const left = remainingMs(timeoutMs, start);
    if (code == ERROR_PIPE_BUSY && left != 0) {
      // Every instance serves somebody: wait for a free one.
      WaitNamedPipeW(path.c_str(), left == INFINITE ? NMPWAIT_WAIT_FOREVER : left);
      continue;
    }
    if (code != ERROR_FILE_NOT_FOUND || left == 0) return failCode(code, "CreateFileW", api);
    Sleep(5);  // nobody serves the name yet: the server may be starting
  }
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
    return failCode(static_cast<DWORD>(rc), "getaddrinfo", api);
  }
  Clock::time_point const start = Clock::now();
  for (;;) {
    SOCKET s = socket(found->ai_family, SOCK_STREAM, IPPROTO_TCP);
    if (s == INVALID_SOCKET) {
      freeaddrinfo(found);
      return failWSA("socket", api);
    }
    // Non-blocking, so a remote host that does not answer costs no more
    // than the time limit.
    u_long mode = 1;
    ioctlsocket(s, FIONBIO, &mode);
    int code = connect(s, found->ai_addr, static_cast<int>(found->ai_addrlen)) == 0 ? 0 : WSAGetLastError();
    if (code == WSAEWOULDBLOCK) {
      fd_set writable, failed;
      FD_ZERO(&writable);
      FD_ZERO(&failed);
      FD_SET(s, &writable);
      FD_SET(s, &failed);
      DWORD const left = remainingMs(timeoutMs, start);
      timeval limit{static_cast<long>(left / 1000), static_cast<long>(left % 1000) * 1000};
      int const n = select(0, nullptr, &writable, &failed, left == INFINITE ? nullptr : &limit);
      int len = sizeof code;
      if (n == SOCKET_ERROR) {
        code = WSAGetLastError();
      } else if (n == 0) {
        code = WSAETIMEDOUT;
      } else if (getsockopt(s, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&code), &len) != 0) {
        code = WSAGetLastError();
      } else if (code == 0 && FD_ISSET(s, &failed)) {
        code = WSAECONNREFUSED;
      }
    }
    if (code == 0) {
      freeaddrinfo(found);
      mode = 0;
      ioctlsocket(s, FIONBIO, &mode);
      BOOL on = TRUE;
      setsockopt(s, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<char const*>(&on), sizeof on);
      channel = newChannel(reinterpret_cast<HANDLE>(s), true, false);
      return SysError{};
    }
    closesocket(s);
    if (code != WSAECONNREFUSED || remainingMs(timeoutMs, start) == 0) {
      freeaddrinfo(found);
      return failCode(static_cast<DWORD>(code), "connect", api);
    }
    Sleep(5);
  }
}

SysError ipcRead(IPCChannel* c, void* buffer, int size, int timeoutMs, int& got, char const*& api) {
  got = 0;
  if (WaitForSingleObject(c->cancel, 0) == WAIT_OBJECT_0) {
    got = kIPCCancelled;
    return SysError{};
  }
  OVERLAPPED ov{};
  ov.hEvent = c->readDone;
  ResetEvent(c->readDone);
  DWORD n = 0;
  bool done;
  char const* call = c->isSocket ? "WSARecv" : "ReadFile";
  if (c->isSocket) {
    WSABUF buf{static_cast<u_long>(size), static_cast<char*>(buffer)};
    DWORD flags = 0;
    done = WSARecv(reinterpret_cast<SOCKET>(c->handle), &buf, 1, &n, &flags, reinterpret_cast<WSAOVERLAPPED*>(&ov),
                   nullptr) == 0;
    if (!done && WSAGetLastError() != WSA_IO_PENDING) SetLastError(static_cast<DWORD>(WSAGetLastError()));
    else if (!done) SetLastError(ERROR_IO_PENDING);
  } else {
    done = ReadFile(c->handle, buffer, static_cast<DWORD>(size), &n, &ov) != 0;
  }
  if (!done) {
    DWORD const code = GetLastError();
    if (code == ERROR_IO_PENDING) {
      int const w = finishOverlapped(c->handle, ov, c->cancel, timeoutMs < 0 ? INFINITE : static_cast<DWORD>(timeoutMs), n);
      if (w == 0) {
        got = kIPCTimedOut;
        return SysError{};
      }
      if (w == kIPCCancelled) {
        got = kIPCCancelled;
        return SysError{};
      }
      done = w == 1;
    }
    if (!done) {
      DWORD const why = GetLastError();
      // The peer's end is gone: the end of its data.
      if (why == ERROR_BROKEN_PIPE || why == ERROR_PIPE_NOT_CONNECTED || why == ERROR_NETNAME_DELETED ||
          why == WSAECONNRESET || why == WSAECONNABORTED) {
        return SysError{};
      }
      return failCode(why, call, api);
    }
  }
  got = static_cast<int>(n);
  return SysError{};
}

SysError ipcWrite(IPCChannel* c, void const* data, int size, bool& cancelled, char const*& api) {
  cancelled = false;
  auto const* p = static_cast<char const*>(data);
  char const* call = c->isSocket ? "WSASend" : "WriteFile";
  while (size > 0) {
    if (WaitForSingleObject(c->cancel, 0) == WAIT_OBJECT_0) {
      cancelled = true;
      return SysError{};
    }
    OVERLAPPED ov{};
    ov.hEvent = c->writeDone;
    ResetEvent(c->writeDone);
    DWORD n = 0;
    bool done;
    if (c->isSocket) {
      WSABUF buf{static_cast<u_long>(size), const_cast<char*>(p)};
      done = WSASend(reinterpret_cast<SOCKET>(c->handle), &buf, 1, &n, 0, reinterpret_cast<WSAOVERLAPPED*>(&ov),
                     nullptr) == 0;
      if (!done) SetLastError(static_cast<DWORD>(WSAGetLastError()));
      if (!done && GetLastError() == WSA_IO_PENDING) SetLastError(ERROR_IO_PENDING);
    } else {
      done = WriteFile(c->handle, p, static_cast<DWORD>(size), &n, &ov) != 0;
    }
    if (!done) {
      if (GetLastError() != ERROR_IO_PENDING) return fail(call, api);
      int const w = finishOverlapped(c->handle, ov, c->cancel, INFINITE, n);
      if (w == kIPCCancelled) {
        cancelled = true;
        return SysError{};
      }
      if (w != 1) return fail(call, api);
    }
    p += n;
    size -= static_cast<int>(n);
  }
  return SysError{};
}

void ipcCancel(IPCChannel* c) { SetEvent(c->cancel); }

void ipcFreeChannel(IPCChannel* c) {
  if (!c) return;
  if (c->isSocket) {
    closesocket(reinterpret_cast<SOCKET>(c->handle));
  } else {
    CloseHandle(c->handle);
  }
  CloseHandle(c->cancel);
  CloseHandle(c->readDone);
  CloseHandle(c->writeDone);
  delete c;
}

namespace {

// The peer's process id; 0 when unknown.
ULONG peerProcessId(IPCChannel* c) {
  ULONG pid = 0;
  if (c->isSocket) return 0;
  BOOL const ok = c->serverSide ? GetNamedPipeClientProcessId(c->handle, &pid)
                                : GetNamedPipeServerProcessId(c->handle, &pid);
  return ok ? pid : 0;
}

// The access token of a process, null when it cannot be opened.
HANDLE processToken(ULONG pid) {
  HANDLE const process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid);
  if (process == nullptr) return nullptr;
  HANDLE token = nullptr;
  if (!OpenProcessToken(process, TOKEN_QUERY | TOKEN_DUPLICATE, &token)) token = nullptr;
  CloseHandle(process);
  return token;
}

// The token's user (a TOKEN_USER in buffer); false when it cannot be read.
bool tokenUser(HANDLE token, std::string& buffer) {
  DWORD size = 0;
  GetTokenInformation(token, TokenUser, nullptr, 0, &size);
  buffer.assign(size, '\0');
  return size > 0 && GetTokenInformation(token, TokenUser, buffer.data(), size, &size);
}

PSID sidOf(std::string& buffer) { return reinterpret_cast<TOKEN_USER*>(buffer.data())->User.Sid; }

}  // namespace

void ipcPeer(IPCChannel* c, long long& processId, long long& userId) {
  processId = userId = -1;
  ULONG const pid = peerProcessId(c);
  if (pid == 0) return;
  processId = pid;
  HANDLE const token = processToken(pid);
  if (token == nullptr) return;
  std::string user;
  if (tokenUser(token, user)) {
    PSID const sid = sidOf(user);
    UCHAR const count = *GetSidSubAuthorityCount(sid);
    if (count > 0) userId = *GetSidSubAuthority(sid, count - 1u);
  }
  CloseHandle(token);
}

int ipcPeerAdmitted(IPCChannel* c) {
  ULONG const pid = peerProcessId(c);
  if (pid == 0) return -1;
  HANDLE const token = processToken(pid);
  if (token == nullptr) return -1;
  int verdict = -1;
  std::string peer, own;
  HANDLE ownToken = nullptr;
  if (tokenUser(token, peer) && OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &ownToken)) {
    bool const ownRead = tokenUser(ownToken, own);
    CloseHandle(ownToken);
    if (ownRead && EqualSid(sidOf(peer), sidOf(own))) {
      verdict = 1;
    } else if (IsWellKnownSid(sidOf(peer), WinLocalSystemSid)) {
      verdict = 1;
    } else {
      // Membership is checked on an impersonation token of the peer's.
      HANDLE identification = nullptr;
      BYTE admins[SECURITY_MAX_SID_SIZE];
      DWORD adminsSize = sizeof admins;
      BOOL member = FALSE;
      if (DuplicateToken(token, SecurityIdentification, &identification)) {
        if (CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, admins, &adminsSize) &&
            CheckTokenMembership(identification, admins, &member)) {
          verdict = member ? 1 : 0;
        }
        CloseHandle(identification);
      }
    }
  }
  CloseHandle(token);
  return verdict;
}

}  // namespace qo::platform
