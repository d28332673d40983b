// qo/ipc/CIPCConnection.h - one end of a connection between two processes,
// as a stream and as a carrier of length-prefixed frames.
//
// A connection runs over a local endpoint (a named pipe on Windows, a Unix
// domain socket in a folder only the user may enter elsewhere) or over TCP
// (IPv4 or IPv6). It is an IIOStream, so CDataOutStream/CDataInStream work on
// it directly; reads wait at most getReadTimeout() ms (-1: no limit). A peer
// that goes away gives CIOError kind 4 on read and kind 3 on write, never a
// hang or a signal. close() from another thread ends a blocked read or write
// at once (kind 10).
//
// At connect both sides exchange a hello (magic "QOIP", the library's frame
// protocol and the application's protocol version); differing versions
// refuse each other with CIOError kind 6 naming both versions.
//
// Frames: an int32 little-endian byte count (the record format's) and the
// bytes. A count below 0 or above the reader's maximum is CIOError kind 5, a
// frame cut short kind 4. call() sends a request frame and reads the
// server's answer frame (see CIPCServer), throwing its "busy" or failure
// answers as errors.
//
//   P<CIPCConnection> c = CIPCConnection::connect(u"backup-service", 5000);
//   std::vector<unsigned char> answer = c->call(request);
//   CDataOutStream out(c.get());  out << 42;  c->flush();
//
// One thread reads and one writes at a time; close() is thread-safe.
#ifndef QO_IPC_CIPCCONNECTION_H
#define QO_IPC_CIPCCONNECTION_H

#include <atomic>
#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/fs/CURI.h"
#include "qo/stream/IIOStream.h"

namespace qo {

namespace platform {
struct IPCChannel;
}

/// A connected endpoint. Stream operations are not thread-safe (one reader
/// and one writer may work at the same time); close() is thread-safe.
class QO_API CIPCConnection : public CBase, public IIOStream {
public:
  /// The default largest frame a reader accepts: 16 MiB.
  static constexpr int kDefaultMaxFrameSize = 16 * 1024 * 1024;
  /// The version of the hello and frame protocol itself.
  static constexpr int kWireVersion = 1;
  /// The first byte of each answer frame that call() reads.
  enum AnswerStatus { AnswerOK = 0, AnswerBusy = 1, AnswerFailed = 2 };

  /// Connects to the local endpoint name (letters, digits, '.', '-', '_';
  /// on POSIX also a full socket path starting with '/'), trying until
  /// timeoutMs (-1: no limit) while nobody serves it, then exchanges the
  /// hello. Throws CSocketError "Error connecting to IPC endpoint."
  /// (properties "name", "api", "code", "sysErrorText", "timeoutMs") when
  /// nobody answers in time or the OS refuses; CIOError kind 6 on a version
  /// mismatch; CSocketError "The IPC server refused the connection." with
  /// "reason" when the server does not admit this process or is full.
  /// Thread-safe.
  static P<CIPCConnection> connect(String const& name, int timeoutMs, int protocolVersion = 1);
  /// As connect(), over TCP to host:port (a name or an IPv4/IPv6 address).
  /// Properties "host" and "port" instead of "name". Thread-safe.
  static P<CIPCConnection> connectTCP(String const& host, int port, int timeoutMs, int protocolVersion = 1);

  /// Takes over channel, an accepted connection (used by CIPCServer); uri
  /// names the endpoint in errors.
  CIPCConnection(platform::IPCChannel* channel, CURI const& uri);
  ~CIPCConnection() override;
  CIPCConnection(CIPCConnection const&) = delete;
  CIPCConnection& operator=(CIPCConnection const&) = delete;

  /// How long reads wait for data, in ms (-1: no limit, the default).
  /// Not thread-safe.
  void setReadTimeout(int timeoutMs);
  [[nodiscard]] int getReadTimeout() const;
  /// The peer's process id, -1 when the transport cannot tell (TCP).
  [[nodiscard]] long long getPeerProcessId() const;
  /// The peer's user id, -1 when unknown (TCP). POSIX: its uid. Windows
  /// named pipes: the relative id (last sub-authority) of the user SID of
  /// the peer process's token.
  [[nodiscard]] long long getPeerUserId() const;
  /// Whether the peer is served by default: the same user as this process
  /// or an administrator (POSIX uid 0; Windows LocalSystem or a member of
  /// Administrators). Also true when that cannot be told (TCP, a token
  /// that cannot be read), where the endpoint's own access control decides.
  [[nodiscard]] bool isPeerUserAdmitted() const;
  /// The application protocol version the peer announced in the hello.
  [[nodiscard]] int getPeerVersion() const;

  /// Writes one frame of size bytes. Throws as write(); CInvalidArgError for
  /// a negative size. Not thread-safe.
  void writeFrame(void const* data, int size);
  /// Reads one frame of at most maxSize bytes. Throws CIOError kind 5 for a
  /// bad count (properties "frameSize", "maxFrameSize"), kind 4 when the
  /// peer ends inside a frame, as read() otherwise. Not thread-safe.
  std::vector<unsigned char> readFrame(int maxSize = kDefaultMaxFrameSize);
  /// Sends request as a frame and returns the answer's payload. Throws
  /// CSocketError "The IPC server is busy." for a busy answer, CIOError kind
  /// 2 with the server's text under "remoteError" for a failed one, as
  /// writeFrame/readFrame otherwise. Not thread-safe.
  std::vector<unsigned char> call(std::vector<unsigned char> const& request, int maxAnswerSize = kDefaultMaxFrameSize);

  /// For a crashed process: writes all size bytes without throwing or
  /// allocating. False when the peer went away, the connection is closed or
  /// the OS refused. Not thread-safe.
  bool writeNoThrow(void const* data, int size) noexcept;
  /// For a crashed process: reads exactly size bytes, waiting at most
  /// timeoutMs (-1: no limit) for each arrival, without throwing or
  /// allocating. False at the peer's end, on a time-out, when closed or on
  /// failure. Not thread-safe.
  bool readNoThrow(void* buffer, int size, int timeoutMs) noexcept;

  /// Writes a frame to any stream. Throws what out throws.
  static void writeFrameTo(IOutStream& out, void const* data, int size);
  /// Reads a frame from any stream into frame. Throws as readFrame().
  static void readFrameFrom(IInStream& in, int maxSize, std::vector<unsigned char>& frame);

  // --- server side of the hello (used by CIPCServer) ----------------------
  /// Reads the client's hello within timeoutMs. True when it asks for
  /// protocolVersion (and this frame protocol); getPeerVersion() tells what
  /// it asked for. Throws CIOError for a missing or garbled hello. Not
  /// thread-safe.
  bool readHello(int protocolVersion, int timeoutMs);
  /// Answers the hello: accepted when refusal is empty and the versions
  /// match (true), else refused with refusal or "version mismatch". Throws
  /// as write(). Not thread-safe.
  bool answerHello(int protocolVersion, String const& refusal);

  // --- IStreamBase ---------------------------------------------------------
  /// -1: a connection has no length.
  long long getLength() const override;
  /// The bytes read so far.
  long long getPosition() const override;
  /// "ipc:<name>" or "tcp://host:port".
  CURI getURI() override;
  /// Throws CIOError kind 7: connections cannot seek.
  void seek(long long position) override;
  /// Throws CIOError kind 14: connections cannot lock ranges.
  P<IStreamLock> lockRange(long long start, long long length, LockType type) override;
  /// Ends the connection; a blocked read or write in another thread ends
  /// with CIOError kind 10. Thread-safe.
  void close() override;

  // --- IInStream -----------------------------------------------------------
  /// Exactly size bytes. CIOError kind 4 when the peer ends first, kind 2
  /// with "timeoutMs" when the read timeout passes, kind 10 when closed.
  void read(void* buffer, int size) override;
  /// Up to size bytes, at least 1 unless the peer ended (0). Throws as read().
  int readLax(void* buffer, int size) override;
  /// What has arrived, possibly 0; never waits.
  int readAvailable(void* buffer, int size) override;
  /// True once data or the end has arrived, false after timeoutMs.
  bool waitReadable(int timeoutMs) const override;
  /// Waits (read timeout) for data or the end; true at the end.
  bool isEndOfStream() const override;
  /// 1 end, 0 data waiting, -1 nothing arrived yet.
  int isEndOfStream_NonBlocking() const override;

  // --- IOutStream ----------------------------------------------------------
  /// Sends all bytes. CIOError kind 3 (with "api", "code") when the peer
  /// went away, kind 10 when closed.
  void write(void const* data, int size, IWriteBarrier* barrier = nullptr) override;
  void writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier = nullptr) override;
  /// A new CDummyWriteBarrier at once: a write is complete when it returns.
  P<IWriteBarrier> createWriteBarrier(IWriteBarrier* previous) override;
  /// Nothing to do: writes are not buffered.
  void flush() override;
  /// Throws CIOError kind 14.
  void setLength(long long length) override;

private:
  static P<CIPCConnection> helloAsClient(P<CIPCConnection> connection, int protocolVersion, CProps const& where);
  // Reads into buffer waiting up to timeoutMs: bytes read, 0 at the end, -1
  // on a time-out. Throws for closed and failed reads.
  int receive(void* buffer, int size, int timeoutMs, char const* function) const;
  // One read from the channel into buffer, as receive().
  int receiveRaw(void* buffer, int size, int timeoutMs, char const* function) const;
  void checkOpen(char const* function) const;

  platform::IPCChannel* m_channel;
  CURI m_uri;
  int m_readTimeoutMs = -1;
  int m_peerVersion = 0;
  int m_peerWireVersion = 0;
  long long m_peerProcessId = -1;
  long long m_peerUserId = -1;
  bool m_peerAdmitted = true;
  mutable long long m_position = 0;
  // Small reads take what has arrived into this buffer, so a frame's count
  // and payload cost one system call, and peeks (waitReadable) keep what
  // they saw. Reads of a whole buffer or more bypass it.
  mutable std::vector<unsigned char> m_readBuffer;
  mutable int m_readStart = 0;
  mutable int m_readEnd = 0;
  mutable bool m_peerEnded = false;
  std::atomic<bool> m_closed{false};
};

}  // namespace qo

#endif  // QO_IPC_CIPCCONNECTION_H
