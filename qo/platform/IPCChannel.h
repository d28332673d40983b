// qo/platform/IPCChannel.h - byte channels between processes: local named
// endpoints and TCP (internal, OS-free).
//
// Local endpoints: Windows named pipes "\\.\pipe\qo.ipc.<name>" (created
// with an explicit security descriptor for the creating user, SYSTEM and
// Administrators, FILE_FLAG_FIRST_PIPE_INSTANCE, PIPE_REJECT_REMOTE_CLIENTS,
// overlapped I/O); elsewhere Unix domain sockets "<folder>/<name>" in a folder
// only the owner may enter (mode 0700, checked on every listen and connect),
// the socket itself 0600. TCP works on both, IPv4 and IPv6.
//
// Every blocking call waits on the channel and on a cancel object at once, so
// ipcCancel/ipcStopListener from another thread end a blocked read, write or
// accept at once. Sockets never raise SIGPIPE (MSG_NOSIGNAL).
//
//   IPCListener* l; const char* api;
//   if (SysError e = ipcListenLocal("demo", l, api)) ...;
//   IPCChannel* c; bool stopped; ipcAccept(l, -1, c, stopped, api);
//   int got; ipcRead(c, buf, n, -1, got, api);      // 0: peer ended
//   ipcFreeChannel(c); ipcFreeListener(l);
//
// The functions never throw. ipcCancel and ipcStopListener are thread-safe;
// the rest need one caller per object at a time.
#ifndef QO_PLATFORM_IPCCHANNEL_H
#define QO_PLATFORM_IPCCHANNEL_H

#include <string>

#include "qo/platform/LastError.h"

namespace qo::platform {

struct IPCChannel;
struct IPCListener;

/// Starts the socket library (Windows: WSAStartup 2.2; elsewhere nothing
/// to start).
SysError ipcNetworkStartup(char const*& api);
/// Stops it again (Windows: WSACleanup).
void ipcNetworkCleanup();

/// ipcRead's got for a time-out.
constexpr int kIPCTimedOut = -1;
/// ipcRead's got, ipcAccept's result when cancelled or stopped.
constexpr int kIPCCancelled = -2;

/// The folder holding this user's local endpoints (POSIX; created 0700 when
/// missing, refused when someone else owns it or others may enter).
/// Windows: "\\.\pipe\" with the prefix "qo.ipc.".
SysError ipcLocalFolder(std::string& folder, char const*& api);

/// Starts listening on the local endpoint name (letters, digits, '.', '-',
/// '_'; POSIX also a full socket path). POSIX replaces a stale socket only
/// after checking nobody accepts on it; a live one gives EADDRINUSE /
/// ERROR_ACCESS_DENIED. anyUser widens the access: every user may connect
/// (POSIX: socket mode 0666, which matters for a full path in a folder
/// others may enter; Windows: authenticated users join the access list).
SysError ipcListenLocal(std::string const& name, bool anyUser, IPCListener*& listener, char const*& api);
/// Starts listening on TCP host:port ("" = all IPv4 addresses, "::" = all
/// IPv6 ones; port 0 = any free port, reported in boundPort).
SysError ipcListenTCP(std::string const& host, int port, IPCListener*& listener, int& boundPort, char const*& api);
/// Waits up to timeoutMs (-1: no limit) for a client. channel is the new
/// connection, or null on a time-out or after ipcStopListener (then
/// cancelled is true).
SysError ipcAccept(IPCListener* listener, int timeoutMs, IPCChannel*& channel, bool& cancelled, char const*& api);
/// Wakes a waiting ipcAccept and makes later ones return at once.
/// Thread-safe.
void ipcStopListener(IPCListener* listener);
/// Closes the listener (a local socket file is removed). Null does nothing.
void ipcFreeListener(IPCListener* listener);

/// Connects to the local endpoint name, trying until timeoutMs (-1: no
/// limit, 0: once) while nobody serves it or all instances are busy.
SysError ipcConnectLocal(std::string const& name, int timeoutMs, IPCChannel*& channel, char const*& api);
/// Connects to TCP host:port (names resolve to IPv4 or IPv6), trying until
/// timeoutMs as ipcConnectLocal.
SysError ipcConnectTCP(std::string const& host, int port, int timeoutMs, IPCChannel*& channel, char const*& api);

/// Reads up to size bytes, waiting up to timeoutMs (-1: no limit) for the
/// first. got: bytes read, 0 at the end of the peer's data, kIPCTimedOut or
/// kIPCCancelled.
SysError ipcRead(IPCChannel* channel, void* buffer, int size, int timeoutMs, int& got, char const*& api);
/// Writes all size bytes; cancelled tells an ipcCancel ended it first.
SysError ipcWrite(IPCChannel* channel, void const* data, int size, bool& cancelled, char const*& api);
/// Ends every blocked and later ipcRead/ipcWrite at once. Thread-safe.
void ipcCancel(IPCChannel* channel);
/// Closes the channel. Null does nothing. No other thread may use it.
void ipcFreeChannel(IPCChannel* channel);

/// The peer's process id and user id, -1 each when the transport cannot
/// tell (TCP). POSIX: SO_PEERCRED's pid and uid. Windows:
/// GetNamedPipeClientProcessId (GetNamedPipeServerProcessId on the client
/// side), and as user id the relative id (last sub-authority) of the user
/// SID in that process's token (OpenProcess, OpenProcessToken,
/// GetTokenInformation); -1 when the token cannot be read.
void ipcPeer(IPCChannel* channel, long long& processId, long long& userId);
/// Whether the peer may be served by default: 1 for the same user as this
/// process or an administrator (POSIX uid 0; Windows the same user SID,
/// LocalSystem, or a token that is a member of BUILTIN\Administrators by
/// CheckTokenMembership), 0 for anyone else, -1 when it cannot be told
/// (TCP, a token that cannot be opened): then the endpoint's own access
/// control (the socket folder, the pipe's access list) has decided.
int ipcPeerAdmitted(IPCChannel* channel);

}  // namespace qo::platform

#endif  // QO_PLATFORM_IPCCHANNEL_H
