#include "qo/ipc/CIPCConnection.h"

#include <algorithm>
#include <cstring>

#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CSocketError.h"
#include "qo/ipc/CWinSockInit.h"
#include "qo/platform/IPCChannel.h"
#include "qo/stream/CDummyWriteBarrier.h"
#include "qo/stream/StreamError.h"

namespace qo {

namespace {

char const kMagic[4] = {'Q', 'O', 'I', 'P'};
constexpr int kHelloSize = 12;
constexpr int kMaxReasonSize = 4096;

void putInt32(unsigned char* p, std::int32_t v) {
  auto const u = static_cast<std::uint32_t>(v);
  for (int i = 0; i < 4; ++i) p[i] = static_cast<unsigned char>(u >> (8 * i));
}

std::int32_t getInt32(unsigned char const* p) {
  std::uint32_t u = 0;
  for (int i = 0; i < 4; ++i) u |= static_cast<std::uint32_t>(p[i]) << (8 * i);
  return static_cast<std::int32_t>(u);
}

CProps sysProps(platform::SysError const& e, char const* api) {
  return CProps()
      .add(u"api", String::fromUTF8(api ? api : ""))
      .addLong(u"code", e.code)
      .add(u"sysErrorText", String::fromUTF8(e.text));
}

}  // namespace

CIPCConnection::CIPCConnection(platform::IPCChannel* channel, CURI const& uri) : m_channel(channel), m_uri(uri) {
  platform::ipcPeer(m_channel, m_peerProcessId, m_peerUserId);
  m_peerAdmitted = platform::ipcPeerAdmitted(m_channel) != 0;
}

CIPCConnection::~CIPCConnection() { platform::ipcFreeChannel(m_channel); }

P<CIPCConnection> CIPCConnection::connect(String const& name, int timeoutMs, int protocolVersion) {
  CProps where = CProps().add(u"name", name).addLong(u"timeoutMs", timeoutMs);
  platform::IPCChannel* channel = nullptr;
  char const* api = nullptr;
  if (platform::SysError e = platform::ipcConnectLocal(name.toUTF8(), timeoutMs, channel, api)) {
    throw CSocketError(u"Error connecting to IPC endpoint.", CProps(where).addAll(sysProps(e, api)));
  }
  return helloAsClient(newP<CIPCConnection>(channel, CURI(u"ipc:" + name)), protocolVersion, where);
}

P<CIPCConnection> CIPCConnection::connectTCP(String const& host, int port, int timeoutMs, int protocolVersion) {
  CWinSockInit::get();
  CProps where = CProps().add(u"host", host).addLong(u"port", port).addLong(u"timeoutMs", timeoutMs);
  platform::IPCChannel* channel = nullptr;
  char const* api = nullptr;
  if (platform::SysError e = platform::ipcConnectTCP(host.toUTF8(), port, timeoutMs, channel, api)) {
    throw CSocketError(u"Error connecting to IPC endpoint.", CProps(where).addAll(sysProps(e, api)));
  }
  String const uriHost = host.Contains(u":") ? u"[" + host + u"]" : host;
  CURI const uri(u"tcp://" + uriHost + u":" + String::fromUTF8(std::to_string(port)));
  return helloAsClient(newP<CIPCConnection>(channel, uri), protocolVersion, where);
}

P<CIPCConnection> CIPCConnection::helloAsClient(P<CIPCConnection> c, int protocolVersion, CProps const& where) {
  unsigned char hello[kHelloSize];
  std::memcpy(hello, kMagic, 4);
  putInt32(hello + 4, kWireVersion);
  putInt32(hello + 8, protocolVersion);
  c->write(hello, kHelloSize);
  unsigned char answer[kHelloSize + 5];
  c->read(answer, sizeof answer);
  if (std::memcmp(answer, kMagic, 4) != 0) {
    throw CIOError(CIOError::kCorruptData, u"The peer does not speak the IPC protocol.", where);
  }
  int const wire = getInt32(answer + 4);
  c->m_peerVersion = getInt32(answer + 8);
  int const status = answer[12];
  int const reasonSize = getInt32(answer + 13);
  if (reasonSize < 0 || reasonSize > kMaxReasonSize) {
    throw CIOError(CIOError::kCorruptData, u"The peer does not speak the IPC protocol.", where);
  }
  std::string reason(static_cast<size_t>(reasonSize), '\0');
  if (reasonSize > 0) c->read(reason.data(), reasonSize);
  if (wire != kWireVersion || c->m_peerVersion != protocolVersion) {
    throw CIOError(CIOError::kBadVersion, u"The IPC server speaks another protocol version.",
                   CProps(where)
                       .addLong(u"localVersion", protocolVersion)
                       .addLong(u"peerVersion", c->m_peerVersion)
                       .addLong(u"localWireVersion", kWireVersion)
                       .addLong(u"peerWireVersion", wire));
  }
  if (status != 0) {
    throw CSocketError(u"The IPC server refused the connection.",
                       CProps(where).add(u"reason", String::fromUTF8(reason)));
  }
  return c;
}

bool CIPCConnection::readHello(int protocolVersion, int timeoutMs) {
  unsigned char hello[kHelloSize];
  int const saved = m_readTimeoutMs;
  m_readTimeoutMs = timeoutMs;
  try {
    read(hello, kHelloSize);
  } catch (...) {
    m_readTimeoutMs = saved;
    throw;
  }
  m_readTimeoutMs = saved;
  if (std::memcmp(hello, kMagic, 4) != 0) {
    throw makeStreamError(CIOError::kCorruptData, "CIPCConnection::readHello",
                          u"The peer does not speak the IPC protocol.", CProps(), m_uri);
  }
  m_peerWireVersion = getInt32(hello + 4);
  m_peerVersion = getInt32(hello + 8);
  return m_peerWireVersion == kWireVersion && m_peerVersion == protocolVersion;
}

bool CIPCConnection::answerHello(int protocolVersion, String const& refusal) {
  bool const versionsMatch = m_peerWireVersion == kWireVersion && m_peerVersion == protocolVersion;
  std::string const reason = versionsMatch ? refusal.toUTF8() : std::string("version mismatch");
  std::vector<unsigned char> answer(kHelloSize + 5 + reason.size());
  std::memcpy(answer.data(), kMagic, 4);
  putInt32(answer.data() + 4, kWireVersion);
  putInt32(answer.data() + 8, protocolVersion);
  answer[12] = versionsMatch && refusal.isEmpty() ? 0 : 1;
  putInt32(answer.data() + 13, static_cast<std::int32_t>(reason.size()));
  std::memcpy(answer.data() + kHelloSize + 5, reason.data(), reason.size());
  write(answer.data(), static_cast<int>(answer.size()));
  return answer[12] == 0;
}

void CIPCConnection::setReadTimeout(int timeoutMs) { m_readTimeoutMs = timeoutMs < 0 ? -1 : timeoutMs; }
int CIPCConnection::getReadTimeout() const { return m_readTimeoutMs; }
long long CIPCConnection::getPeerProcessId() const { return m_peerProcessId; }
long long CIPCConnection::getPeerUserId() const { return m_peerUserId; }

bool CIPCConnection::isPeerUserAdmitted() const { return m_peerAdmitted; }
int CIPCConnection::getPeerVersion() const { return m_peerVersion; }

void CIPCConnection::writeFrameTo(IOutStream& out, void const* data, int size) {
  if (size < 0) {
    throw CInvalidArgError(u"CIPCConnection::writeFrame", u"the size is negative", CProps().addLong(u"size", size));
  }
  // One write for the count and a small payload: fewer packets.
  unsigned char head[4];
  putInt32(head, size);
  if (size <= 4096) {
    unsigned char frame[4 + 4096];
    std::memcpy(frame, head, 4);
    if (size > 0) std::memcpy(frame + 4, data, static_cast<size_t>(size));
    out.write(frame, 4 + size);
    return;
  }
  out.write(head, 4);
  out.write(data, size);
}

void CIPCConnection::readFrameFrom(IInStream& in, int maxSize, std::vector<unsigned char>& frame) {
  unsigned char head[4];
  in.read(head, 4);
  int const size = getInt32(head);
  if (size < 0 || size > maxSize) {
    throw CIOError(CIOError::kCorruptData, u"Invalid IPC frame size.",
                   CProps().addLong(u"frameSize", size).addLong(u"maxFrameSize", maxSize));
  }
  frame.resize(static_cast<size_t>(size));
  if (size > 0) in.read(frame.data(), size);
}

void CIPCConnection::writeFrame(void const* data, int size) { writeFrameTo(*this, data, size); }

std::vector<unsigned char> CIPCConnection::readFrame(int maxSize) {
  std::vector<unsigned char> frame;
  try {
    readFrameFrom(*this, maxSize, frame);
  } catch (CIOError& e) {
    if (!e.getParams().contains(CIOError::paramURI())) e.getParams().addAll(withStreamURI(CProps(), m_uri));
    throw;
  }
  return frame;
}

std::vector<unsigned char> CIPCConnection::call(std::vector<unsigned char> const& request, int maxAnswerSize) {
  writeFrame(request.data(), static_cast<int>(request.size()));
  std::vector<unsigned char> answer = readFrame(maxAnswerSize < 0x7fffffff ? maxAnswerSize + 1 : maxAnswerSize);
  if (answer.empty()) {
    throw makeStreamError(CIOError::kCorruptData, "CIPCConnection::call", u"Empty IPC answer.", CProps(), m_uri);
  }
  int const status = answer[0];
  answer.erase(answer.begin());
  if (status == AnswerOK) return answer;
  if (status == AnswerBusy) throw CSocketError(u"The IPC server is busy.", withStreamURI(CProps(), m_uri));
  throw makeStreamError(CIOError::kReadFailed, "CIPCConnection::call", u"The IPC server failed the request.",
                        CProps().add(u"remoteError", String::fromUTF8(std::string(answer.begin(), answer.end()))),
                        m_uri);
}

long long CIPCConnection::getLength() const { return -1; }
long long CIPCConnection::getPosition() const { return m_position; }
CURI CIPCConnection::getURI() { return m_uri; }

void CIPCConnection::seek(long long position) {
  throw makeStreamError(CIOError::kSeekFailed, "CIPCConnection::seek", u"A connection cannot seek.",
                        CProps().addLong(u"pos", position), m_uri);
}

P<IStreamLock> CIPCConnection::lockRange(long long, long long, LockType) {
  throw makeStreamError(CIOError::kUnsupported, "CIPCConnection::lockRange", u"A connection cannot lock ranges.",
                        CProps(), m_uri);
}

void CIPCConnection::close() {
  if (!m_closed.exchange(true)) platform::ipcCancel(m_channel);
}

void CIPCConnection::checkOpen(char const* function) const {
  if (m_closed.load()) throw makeStreamError(CIOError::kStreamClosed, function, String(), CProps(), m_uri);
}

namespace {
constexpr int kReadBufferSize = 64 * 1024;
}

int CIPCConnection::receiveRaw(void* buffer, int size, int timeoutMs, char const* function) const {
  int got = 0;
  char const* api = nullptr;
  if (platform::SysError e = platform::ipcRead(m_channel, buffer, size, timeoutMs, got, api)) {
    throw makeStreamError(CIOError::kReadFailed, function, String(), sysProps(e, api), m_uri);
  }
  if (got == platform::kIPCCancelled) {
    throw makeStreamError(CIOError::kStreamClosed, function, String(), CProps(), m_uri);
  }
  if (got == platform::kIPCTimedOut) return -1;
  if (got == 0) m_peerEnded = true;
  return got;
}

int CIPCConnection::receive(void* buffer, int size, int timeoutMs, char const* function) const {
  checkOpen(function);
  if (size <= 0) return 0;
  if (m_readStart == m_readEnd) {
    if (m_peerEnded) return 0;
    if (size >= kReadBufferSize) {
      int const got = receiveRaw(buffer, size, timeoutMs, function);
      if (got > 0) m_position += got;
      return got;
    }
    if (m_readBuffer.empty()) m_readBuffer.resize(kReadBufferSize);
    int const got = receiveRaw(m_readBuffer.data(), kReadBufferSize, timeoutMs, function);
    if (got <= 0) return got;
    m_readStart = 0;
    m_readEnd = got;
  }
  int const n = std::min(size, m_readEnd - m_readStart);
  std::memcpy(buffer, m_readBuffer.data() + m_readStart, static_cast<size_t>(n));
  m_readStart += n;
  m_position += n;
  return n;
}

void CIPCConnection::read(void* buffer, int size) {
  if (size < 0) throw CInvalidArgError(u"CIPCConnection::read", u"the size is negative", CProps().addLong(u"size", size));
  auto* p = static_cast<unsigned char*>(buffer);
  int done = 0;
  while (done < size) {
    int const got = receive(p + done, size - done, m_readTimeoutMs, "CIPCConnection::read");
    if (got < 0) {
      throw makeStreamError(CIOError::kReadFailed, "CIPCConnection::read", u"Timed out waiting for data.",
                            CProps().addLong(u"timeoutMs", m_readTimeoutMs), m_uri);
    }
    if (got == 0) {
      throw makeStreamError(CIOError::kUnexpectedEOF, "CIPCConnection::read", String(),
                            CProps().addLong(u"size", size).addLong(u"got", done), m_uri);
    }
    done += got;
  }
}

int CIPCConnection::readLax(void* buffer, int size) {
  if (size < 0) {
    throw CInvalidArgError(u"CIPCConnection::readLax", u"the size is negative", CProps().addLong(u"size", size));
  }
  if (size == 0) return 0;
  int const got = receive(buffer, size, m_readTimeoutMs, "CIPCConnection::readLax");
  if (got < 0) {
    throw makeStreamError(CIOError::kReadFailed, "CIPCConnection::readLax", u"Timed out waiting for data.",
                          CProps().addLong(u"timeoutMs", m_readTimeoutMs), m_uri);
  }
  return got;
}

int CIPCConnection::readAvailable(void* buffer, int size) {
  if (size <= 0) return 0;
  int const got = receive(buffer, size, 0, "CIPCConnection::readAvailable");
  return got < 0 ? 0 : got;
}

bool CIPCConnection::waitReadable(int timeoutMs) const {
  checkOpen("CIPCConnection::waitReadable");
  if (m_readStart < m_readEnd || m_peerEnded) return true;
  if (m_readBuffer.empty()) m_readBuffer.resize(kReadBufferSize);
  int const got = receiveRaw(m_readBuffer.data(), kReadBufferSize, timeoutMs, "CIPCConnection::waitReadable");
  if (got < 0) return false;
  m_readStart = 0;
  m_readEnd = got;
  return true;
}

bool CIPCConnection::isEndOfStream() const {
  checkOpen("CIPCConnection::isEndOfStream");
  if (!waitReadable(m_readTimeoutMs)) {
    throw makeStreamError(CIOError::kReadFailed, "CIPCConnection::isEndOfStream", u"Timed out waiting for data.",
                          CProps().addLong(u"timeoutMs", m_readTimeoutMs), m_uri);
  }
  return m_readStart == m_readEnd && m_peerEnded;
}

int CIPCConnection::isEndOfStream_NonBlocking() const {
  checkOpen("CIPCConnection::isEndOfStream_NonBlocking");
  if (!waitReadable(0)) return -1;
  return m_readStart == m_readEnd && m_peerEnded ? 1 : 0;
}

void CIPCConnection::write(void const* data, int size, IWriteBarrier*) {
  checkOpen("CIPCConnection::write");
  if (size < 0) {
    throw CInvalidArgError(u"CIPCConnection::write", u"the size is negative", CProps().addLong(u"size", size));
  }
  bool cancelled = false;
  char const* api = nullptr;
  if (platform::SysError e = platform::ipcWrite(m_channel, data, size, cancelled, api)) {
    throw makeStreamError(CIOError::kWriteFailed, "CIPCConnection::write", String(), sysProps(e, api), m_uri);
  }
  if (cancelled) throw makeStreamError(CIOError::kStreamClosed, "CIPCConnection::write", String(), CProps(), m_uri);
}

bool CIPCConnection::writeNoThrow(void const* data, int size) noexcept {
  if (m_closed.load() || size < 0) return false;
  bool cancelled = false;
  char const* api = nullptr;
  // Only a failing call builds an error text (which allocates); the
  // caller then falls back to what it can do alone.
  platform::SysError const e = platform::ipcWrite(m_channel, data, size, cancelled, api);
  return !e && !cancelled;
}

bool CIPCConnection::readNoThrow(void* buffer, int size, int timeoutMs) noexcept {
  if (m_closed.load() || size < 0) return false;
  auto* p = static_cast<unsigned char*>(buffer);
  int done = 0;
  // First what an earlier read left in the buffer.
  int const buffered = std::min(size, m_readEnd - m_readStart);
  if (buffered > 0) {
    std::memcpy(p, m_readBuffer.data() + m_readStart, static_cast<size_t>(buffered));
    m_readStart += buffered;
    done = buffered;
  }
  while (done < size) {
    int got = 0;
    char const* api = nullptr;
    platform::SysError const e = platform::ipcRead(m_channel, p + done, size - done, timeoutMs, got, api);
    if (e || got <= 0) return false;
    done += got;
  }
  m_position += size;
  return true;
}

void CIPCConnection::writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier) {
  write(data.getData(), static_cast<int>(data.getLength()), barrier);
}

P<IWriteBarrier> CIPCConnection::createWriteBarrier(IWriteBarrier*) { return newP<CDummyWriteBarrier>(); }

void CIPCConnection::flush() { checkOpen("CIPCConnection::flush"); }

void CIPCConnection::setLength(long long length) {
  throw makeStreamError(CIOError::kUnsupported, "CIPCConnection::setLength", u"A connection has no length.",
                        CProps().addLong(u"length", length), m_uri);
}

}  // namespace qo
