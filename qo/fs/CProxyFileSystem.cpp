#include "qo/fs/CProxyFileSystem.h"

#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/log/logFunctions.h"
#include "qo/stream/CDummyWriteBarrier.h"
#include "qo/stream/IAlignedIOStream.h"
#include "qo/thread/CBackgroundOpThread.h"
#include "qo/thread/CMutexLock.h"
#include "qo/thread/CSignal.h"
#include "qo/thread/CThread.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace qo {

namespace {

using Msg = CProxyFileSystemMessage;

// Asks the server to release what handle names, from a destructor: when the
// connection is gone the server has released it with the connection.
void releaseInServer(CProxyFileSystem& fs, long long generation, Msg::Op op, long long handle) noexcept {
  try {
    Msg request(op);
    request.handle = handle;
    fs.callOn(generation, request);
  } catch (CError const&) {
  }
}

// The lock object of a proxy stream: releases the lock in the server when
// it dies.
class CProxyLock : public CBase, public IStreamLock {
public:
  CProxyLock(P<CProxyFileSystem> fs, long long generation, long long handle)
      : m_fs(std::move(fs)), m_generation(generation), m_handle(handle) {}
  ~CProxyLock() override { releaseInServer(*m_fs, m_generation, Msg::OpLockRelease, m_handle); }

private:
  P<CProxyFileSystem> m_fs;
  long long m_generation, m_handle;
};

// A stream on a file open in the server.
class CProxyStream : public CBase, public IAlignedIOStream {
public:
  CProxyStream(P<CProxyFileSystem> fs, long long generation, Msg const& opened)
      : m_fs(std::move(fs)),
        m_generation(generation),
        m_handle(opened.handle),
        m_uri(opened.uri),
        m_positionAlign(std::max(1, opened.number)),
        m_bufferAlign(std::max(1, opened.number2)),
        m_bestAlign(static_cast<int>(std::max<long long>(1, opened.value2))) {}
  ~CProxyStream() override {
    try {
      close();
    } catch (CError const&) {
    }
  }

  long long getLength() const override {
    Msg request(Msg::OpStreamGetLength);
    return const_cast<CProxyStream*>(this)->send(request)->value;
  }
  long long getPosition() const override { return m_position; }
  CURI getURI() override { return m_uri; }
  void seek(long long position) override {
    checkOpen();
    if (position < 0)
      throw CIOError(CIOError::kSeekFailed, String(), props().addLong(u"position", static_cast<long>(position)));
    m_position = position;
  }
  P<IStreamLock> lockRange(long long start, long long length, LockType type) override {
    Msg request(Msg::OpStreamLock);
    request.value = start;
    request.value2 = length;
    request.number = type == LockExclusive ? 1 : 0;
    return newP<CProxyLock>(m_fs, m_generation, send(request)->handle);
  }
  void close() override {
    if (m_closed) return;
    m_closed = true;
    Msg request(Msg::OpStreamClose);
    request.handle = m_handle;
    m_fs->callOn(m_generation, request);
  }

  void read(void* buffer, int size) override {
    if (size < 0) throw CInvalidArgError(u"CProxyStream::read", u"negative size");
    transfer(buffer, size, true);
  }
  int readLax(void* buffer, int size) override {
    if (size < 0) throw CInvalidArgError(u"CProxyStream::readLax", u"negative size");
    return transfer(buffer, size, false);
  }
  int readAvailable(void* buffer, int size) override { return readLax(buffer, size); }
  bool waitReadable(int) const override { return true; }
  bool isEndOfStream() const override { return m_position >= getLength(); }
  int isEndOfStream_NonBlocking() const override { return isEndOfStream() ? 1 : 0; }

  void write(void const* data, int size, IWriteBarrier*) override {
    if (size < 0) throw CInvalidArgError(u"CProxyStream::write", u"negative size");
    auto const* bytes = static_cast<unsigned char const*>(data);
    int done = 0;
    do {
      int const n = std::min(size - done, CProxyFileSystem::kTransferSize);
      checkOpen();
      m_fs->writeOn(m_generation, m_handle, m_position, bytes + done, n);
      done += n;
      m_position += n;
    } while (done < size);
  }
  void writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier) override {
    write(data.getData(), static_cast<int>(data.getLength()), barrier);
  }
  P<IWriteBarrier> createWriteBarrier(IWriteBarrier*) override {
    flush();
    return newP<CDummyWriteBarrier>();
  }
  void flush() override { send(Msg(Msg::OpStreamFlush)); }
  void setLength(long long length) override {
    Msg request(Msg::OpStreamSetLength);
    request.value = length;
    send(request);
  }

  int getPositionAlign() override { return m_positionAlign; }
  int getBufferAlign() override { return m_bufferAlign; }
  int getBestPerformancePositionAlign() override { return m_bestAlign; }

private:
  // Reads size bytes in requests of at most kTransferSize; exact: the
  // server's stream fails a short read itself.
  int transfer(void* buffer, int size, bool exact) {
    int done = 0;
    while (done < size) {
      Msg request(Msg::OpStreamRead);
      request.value = m_position;
      request.number = std::min(size - done, CProxyFileSystem::kTransferSize);
      request.flag = exact;
      checkOpen();
      request.handle = m_handle;
      int const n = m_fs->readOn(m_generation, request, static_cast<unsigned char*>(buffer) + done);
      done += n;
      m_position += n;
      if (n < request.number) break;
    }
    return done;
  }
  CProps props() const { return CProps().add(CIOError::paramURI(), m_uri.toString(true)); }
  void checkOpen() const {
    if (m_closed) throw CIOError(CIOError::kStreamClosed, String(), props());
  }
  P<Msg> send(Msg request) {
    checkOpen();
    request.handle = m_handle;
    return m_fs->callOn(m_generation, request);
  }

  P<CProxyFileSystem> m_fs;
  long long const m_generation, m_handle;
  CURI const m_uri;
  int const m_positionAlign, m_bufferAlign, m_bestAlign;
  long long m_position = 0;
  bool m_closed = false;
};

// Folder entries fetched in batches.
class CProxyFolderIterator : public CBase, public IFolderContentsIterator {
public:
  CProxyFolderIterator(P<CProxyFileSystem> fs, long long generation, long long handle)
      : m_fs(std::move(fs)), m_generation(generation), m_handle(handle) {}
  ~CProxyFolderIterator() override {
    if (!m_ended) releaseInServer(*m_fs, m_generation, Msg::OpFolderClose, m_handle);
  }
  bool getNext(P<IFileInfoBase>& out) override {
    while (m_next >= m_batch.size()) {
      if (m_ended) {
        out.reset();
        return false;
      }
      Msg request(Msg::OpFolderNext);
      request.handle = m_handle;
      P<Msg> answer = m_fs->callOn(m_generation, request);
      m_batch = std::move(answer->infos);
      m_next = 0;
      m_ended = answer->flag;
    }
    out = m_batch[m_next++];
    return true;
  }

private:
  P<CProxyFileSystem> m_fs;
  long long const m_generation, m_handle;
  std::vector<P<IFileInfoBase>> m_batch;
  std::size_t m_next = 0;
  bool m_ended = false;
};

// Collects meta changes and sends them at commit().
class CProxyMetaModifier : public CBase, public IFileMetaModifier {
public:
  CProxyMetaModifier(P<CProxyFileSystem> fs, CURI const& uri, bool followLinks) : m_fs(std::move(fs)), m_request(Msg::OpCommitMeta) {
    m_request.uri = uri;
    m_request.flag = followLinks;
  }
  void setCreationTime(CTime time) override { m_request.meta.creation = time; }
  void setLastWriteTime(CTime time) override { m_request.meta.lastWrite = time; }
  void setLastAccessTime(CTime time) override { m_request.meta.lastAccess = time; }
  void setAttributes(TFlags<IFileInfoBase::Attribute> attributes) override {
    m_request.meta.hasAttributes = true;
    m_request.meta.attributes = static_cast<long long>(attributes.getRaw());
  }
  void setPosixMode(int mode) override {
    m_request.meta.hasMode = true;
    m_request.meta.mode = mode;
  }
  void commit() override { m_fs->call(m_request); }

private:
  P<CProxyFileSystem> m_fs;
  Msg m_request;
};

// A name for a store's temporary file that CLocalFileSystem::isTemporaryName
// knows: "~qo-", 16 hexadecimal digits, ".tmp"; random per process, then
// counted and mixed.
String temporaryName() {
  static std::atomic<std::uint64_t> next{[] {
    std::random_device device;
    return ((static_cast<std::uint64_t>(device()) << 32) ^ device()) ^
           static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
  }()};
  std::uint64_t x = next.fetch_add(0x9E3779B97F4A7C15ULL, std::memory_order_relaxed);
  x ^= x >> 30, x *= 0xBF58476D1CE4E5B9ULL, x ^= x >> 27, x *= 0x94D049BB133111EBULL, x ^= x >> 31;
  std::u16string digits(16, u'0');
  for (std::size_t i = 0; i < digits.size(); ++i) digits[i] = u"0123456789abcdef"[(x >> (4 * i)) & 15];
  return String(u"~qo-") + String(digits) + u".tmp";
}

// Stores a source of this process through the proxy as the local file
// system does: into a temporary file beside the target, renamed over it
// only when complete, so the target never holds a partial copy.
class CProxyStoreJob : public CBackgroundOpThread::CJob {
public:
  CProxyStoreJob(P<IFileSystem> fs, CURI const& target, long long length, IInStream* source, bool overwrite,
                 IDoneListener* listener)
      : CJob(listener), m_fs(std::move(fs)), m_target(target), m_length(length), m_overwrite(overwrite) {
    m_source = source;
  }

  void run(void*, CBackgroundOpThread*) override {
    if (!m_overwrite && m_fs->pathExists(m_target))
      throw CIOError(CIOError::kOpenFailed, String(),
                     CProps()
                         .add(CIOError::paramURI(), m_target.toString(true))
                         .addLong(CFileSystemError::paramFileSysProblem(), CFileSystemError::kAlreadyExists));
    CURI const temporary = m_target.getParent() << temporaryName();
    P<IIOStream> out =
        m_fs->createStream(temporary, IIOStream::AccessWriteOnly, {IIOStream::FlagCreate, IIOStream::FlagFailIfExists});
    try {
      std::vector<unsigned char> buffer(CProxyFileSystem::kTransferSize);
      int const chunk = CProxyFileSystem::kTransferSize;
      if (m_length < 0) {
        while (int got = m_source->readLax(buffer.data(), chunk)) out->write(buffer.data(), got);
      } else {
        for (long long left = m_length; left > 0;) {
          int const n = static_cast<int>(std::min<long long>(left, chunk));
          m_source->read(buffer.data(), n);  // a short source fails the store
          out->write(buffer.data(), n);
          left -= n;
        }
      }
      out->flush();
      out->close();
      m_fs->moveFileOrFolder(temporary, m_target, m_overwrite);
    } catch (...) {
      try {
        out->close();
        m_fs->deleteFile(temporary, true);
      } catch (CError const&) {
        // The first failure is the one to report.
      }
      throw;
    }
  }

protected:
  void dropReferences() noexcept override {
    m_fs = nil;
    m_source = nil;
  }

private:
  P<IFileSystem> m_fs;
  CURI const m_target;
  long long const m_length;
  bool const m_overwrite;
  P<IInStream> m_source;
};

CIOError lostError(String const& name, char const* action, CError const& cause) {
  return CIOError(CIOError::kReadFailed, u"The connection to the proxy file-system server was lost.",
                  CProps().add(u"name", name).add(u"action", String::fromUTF8(action)), &cause);
}

}  // namespace

// The local handle of an operation running in the server; the poll thread
// finishes it.
class CProxyFileSystem::CRemoteOp : public CBackgroundOpThread::CJob {
public:
  explicit CRemoteOp(IDoneListener* listener) : CJob(listener) {}
  void run(void*, CBackgroundOpThread*) override {}

protected:
  void dropReferences() noexcept override {}
};

class CProxyFileSystem::CPollThread : public CThread {
public:
  explicit CPollThread(CProxyFileSystem* fs) : m_fs(fs) { setThreadName(u"qo.proxyFS.bgOpPoll"); }
  void signalStop() override {
    CThread::signalStop();
    m_wake.set();
  }
  void wake() { m_wake.set(); }

protected:
  void runImpl() override {
    // While operations are pending the server is asked every few ms;
    // otherwise the thread sleeps until one is started.
    while (checkContinue()) {
      bool const pending = m_fs->pollOnce();
      if (!checkContinue()) break;
      if (m_wake.wait(pending ? 5 : -1)) m_wake.reset();
    }
  }

private:
  CProxyFileSystem* m_fs;  // outlives the thread: its destructor stops it
  CSignal m_wake;
};

CProxyFileSystem::CProxyFileSystem(String const& name, int connectTimeoutMs)
    : m_name(name), m_connectTimeoutMs(connectTimeoutMs) {
  m_connection = CIPCConnection::connect(m_name, m_connectTimeoutMs, Msg::kVersion);
  m_generation = 1;
}

CProxyFileSystem::~CProxyFileSystem() {
  try {
    if (m_pollThread) m_pollThread->stop(false);
    if (m_storeWorker) m_storeWorker->stop(false);
  } catch (...) {
  }
  disconnect();
}

void CProxyFileSystem::setConnectTimeout(int timeoutMs) {
  CMutexLock lock(m_mutex);
  m_connectTimeoutMs = timeoutMs;
}

void CProxyFileSystem::disconnect() {
  {
    CMutexLock lock(m_mutex);
    if (m_connection) m_connection->close();
    m_connection.reset();
  }
  failPendingOps(CIOError(CIOError::kReadFailed, u"The proxy file system was disconnected.", CProps().add(u"name", m_name)));
}

void CProxyFileSystem::failPendingOps(CError const& error) noexcept {
  std::map<long long, P<CRemoteOp>> pending;
  {
    CMutexLock lock(m_mutex);
    pending.swap(m_pendingOps);
  }
  for (auto& entry : pending) entry.second->finish(&error);
}

std::vector<unsigned char> CProxyFileSystem::callLockedRaw(CProxyFileSystemMessage const& request) {
  std::vector<unsigned char> bytes;
  request.writeRequest(bytes);
  return sendLocked(bytes, request.op);
}

std::vector<unsigned char> CProxyFileSystem::sendLocked(std::vector<unsigned char> const& bytes, int op) {
  if (!m_connection) {
    m_connection = CIPCConnection::connect(m_name, m_connectTimeoutMs, Msg::kVersion);
    ++m_generation;
  }
  try {
    return m_connection->call(bytes);
  } catch (CError const& e) {
    m_connection->close();
    m_connection.reset();
    throw lostError(m_name, Msg::opName(op), e);
  }
}

P<CProxyFileSystemMessage> CProxyFileSystem::callLocked(CProxyFileSystemMessage const& request) {
  return Msg::readAnswer(callLockedRaw(request), request.op);
}

std::vector<unsigned char> CProxyFileSystem::exchange(CProxyFileSystemMessage const& request, long long required,
                                                      long long* generation) {
  std::vector<unsigned char> bytes;
  request.writeRequest(bytes);
  return exchangeBytes(bytes, request.op, required, generation);
}

void CProxyFileSystem::writeOn(long long generation, long long handle, long long position, void const* data, int size) {
  std::vector<unsigned char> bytes;
  Msg::writeStreamWrite(bytes, handle, position, data, size);
  P<Msg> answer = Msg::readAnswer(exchangeBytes(bytes, Msg::OpStreamWrite, generation, nullptr), Msg::OpStreamWrite);
  if (answer->error) answer->error->throwClone();
}

std::vector<unsigned char> CProxyFileSystem::exchangeBytes(std::vector<unsigned char> const& bytes, int op,
                                                           long long required, long long* generation) {
  std::vector<unsigned char> answer;
  P<CError> lost;
  {
    CMutexLock lock(m_mutex);
    if (required >= 0 && (!m_connection || m_generation != required))
      throw CIOError(CIOError::kStreamClosed, u"The connection to the proxy file-system server was lost.",
                     CProps().add(u"name", m_name).add(u"action", String::fromUTF8(Msg::opName(op))));
    try {
      answer = sendLocked(bytes, op);
      if (generation) *generation = m_generation;
    } catch (CError const& e) {
      if (m_connection) throw;
      lost = e.clone();  // no connection any more: what waits on it fails too
    }
  }
  if (lost) {
    failPendingOps(*lost);
    lost->throwClone();
  }
  return answer;
}

P<CProxyFileSystemMessage> CProxyFileSystem::call(CProxyFileSystemMessage const& request, long long* generation) {
  P<Msg> answer = Msg::readAnswer(exchange(request, -1, generation), request.op);
  if (answer->error) answer->error->throwClone();
  return answer;
}

P<CProxyFileSystemMessage> CProxyFileSystem::callOn(long long generation, CProxyFileSystemMessage const& request) {
  P<Msg> answer = Msg::readAnswer(exchange(request, generation, nullptr), request.op);
  if (answer->error) answer->error->throwClone();
  return answer;
}

int CProxyFileSystem::readOn(long long generation, CProxyFileSystemMessage const& request, void* buffer) {
  std::vector<unsigned char> const answer = exchange(request, generation, nullptr);
  if (answer.size() >= 5 && answer[0] == 0) {
    long long count = 0;
    for (int i = 3; i >= 0; --i) count = (count << 8) | answer[1 + static_cast<std::size_t>(i)];
    if (count > request.number || count != static_cast<long long>(answer.size()) - 5)
      throw CIOError(CIOError::kCorruptData, u"The proxy server sent a bad read answer.");
    if (count > 0) std::memcpy(buffer, answer.data() + 5, static_cast<std::size_t>(count));
    return static_cast<int>(count);
  }
  P<Msg> parsed = Msg::readAnswer(answer, request.op);
  if (parsed->error) parsed->error->throwClone();
  throw CIOError(CIOError::kCorruptData, u"The proxy server sent a bad read answer.");
}

P<IBackgroundOp> CProxyFileSystem::startRemoteOp(CProxyFileSystemMessage const& request, IDoneListener* listener) {
  P<CRemoteOp> op = newP<CRemoteOp>(listener);
  CMutexLock lock(m_mutex);
  P<Msg> answer = callLocked(request);
  if (answer->error) answer->error->throwClone();
  m_pendingOps[answer->handle] = op;
  if (!m_pollThread) {
    m_pollThread = newP<CPollThread>(this);
    m_pollThread->start();
  }
  m_pollThread->wake();
  return op;
}

bool CProxyFileSystem::pollOnce() {
  std::vector<std::pair<P<CRemoteOp>, P<CError>>> ended;
  {
    CMutexLock lock(m_mutex);
    if (m_pendingOps.empty()) return false;
    P<Msg> answer;
    try {
      answer = callLocked(Msg(Msg::OpBgPoll));
    } catch (CError const& e) {
      std::map<long long, P<CRemoteOp>> pending;
      pending.swap(m_pendingOps);
      for (auto& entry : pending) ended.emplace_back(entry.second, e.clone());
      answer.reset();
    }
    if (answer && answer->error) {
      logWarning(u"proxy file system: polling background operations failed: " + answer->error->getDesc());
    } else if (answer) {
      for (Msg::Ended const& e : answer->ended) {
        auto it = m_pendingOps.find(e.handle);
        if (it == m_pendingOps.end()) continue;
        ended.emplace_back(it->second, e.error);
        m_pendingOps.erase(it);
      }
    }
  }
  for (auto& entry : ended) entry.first->finish(entry.second.get());
  CMutexLock lock(m_mutex);
  return !m_pendingOps.empty();
}

P<IBackgroundOp> CProxyFileSystem::backgroundStore(CURI const& target, long long length, IInStream* source,
                                                   bool overwrite, IDoneListener* listener) {
  if (!source || length < -1)
    throw CInvalidArgError(u"CProxyFileSystem::backgroundStore", u"a source and a length of -1 or more are needed");
  CMutexLock lock(m_mutex);
  if (!m_storeWorker) {
    m_storeWorker = newP<CBackgroundOpThread>();
    m_storeWorker->start();
  }
  return m_storeWorker->addJob(
      newP<CProxyStoreJob>(P<IFileSystem>::share(this), target, length, source, overwrite, listener));
}

P<IBackgroundOp> CProxyFileSystem::backgroundCreateFolder(CURI const& uri, int options, IDoneListener* listener) {
  Msg request(Msg::OpBgCreateFolder);
  request.uri = uri;
  request.number = options;
  return startRemoteOp(request, listener);
}

P<IBackgroundOp> CProxyFileSystem::backgroundMoveFileOrFolder(CURI const& from, CURI const& to, bool overwrite,
                                                              IDoneListener* listener) {
  Msg request(Msg::OpBgMove);
  request.uri = from;
  request.uri2 = to;
  request.flag = overwrite;
  return startRemoteOp(request, listener);
}

P<IBackgroundOp> CProxyFileSystem::backgroundDeleteFile(CURI const& uri, IDoneListener* listener) {
  Msg request(Msg::OpBgDelete);
  request.uri = uri;
  return startRemoteOp(request, listener);
}

namespace {

Msg uriRequest(Msg::Op op, CURI const& uri) {
  Msg request(op);
  request.uri = uri;
  return request;
}

Msg twoRequest(Msg::Op op, CURI const& uri, CURI const& uri2, bool flag = false) {
  Msg request(op);
  request.uri = uri;
  request.uri2 = uri2;
  request.flag = flag;
  return request;
}

}  // namespace

P<IFileInfoBase> CProxyFileSystem::getFileInfo(CURI const& uri, bool followLinks) {
  Msg request = uriRequest(Msg::OpGetFileInfo, uri);
  request.flag = followLinks;
  P<Msg> answer = call(request);
  if (!answer->info) throw CIOError(CIOError::kCorruptData, u"The proxy server sent no file information.");
  return answer->info;
}

P<IFileMetaModifier> CProxyFileSystem::createMetaModifier(CURI const& uri, bool followLinks) {
  return newP<CProxyMetaModifier>(P<CProxyFileSystem>::share(this), uri, followLinks);
}

long long CProxyFileSystem::getFileSectorSize(CURI const& uri) { return call(uriRequest(Msg::OpGetFileSectorSize, uri))->value; }

P<IFolderContentsIterator> CProxyFileSystem::getFolderContents(CURI const& uri) {
  long long generation = 0;
  P<Msg> answer = call(uriRequest(Msg::OpFolderOpen, uri), &generation);
  return newP<CProxyFolderIterator>(P<CProxyFileSystem>::share(this), generation, answer->handle);
}

P<IIOStream> CProxyFileSystem::openStream(CProxyFileSystemMessage const& request) {
  long long generation = 0;
  P<Msg> answer = call(request, &generation);
  return newP<CProxyStream>(P<CProxyFileSystem>::share(this), generation, *answer);
}

P<IIOStream> CProxyFileSystem::createStream(CURI const& uri, IIOStream::Access access, TFlags<IIOStream::Flags> flags) {
  Msg request = uriRequest(Msg::OpCreateStream, uri);
  request.number = access;
  request.number2 = static_cast<int>(flags.getRaw());
  return openStream(request);
}

P<IIOStream> CProxyFileSystem::createSubDataStream(CURI const& uri, String const& name, IIOStream::Access access,
                                                   TFlags<IIOStream::Flags> flags) {
  Msg request = uriRequest(Msg::OpCreateSubDataStream, uri);
  request.text = name;
  request.number = access;
  request.number2 = static_cast<int>(flags.getRaw());
  return openStream(request);
}

void CProxyFileSystem::createFolder(CURI const& uri, int options) {
  Msg request = uriRequest(Msg::OpCreateFolder, uri);
  request.number = options;
  call(request);
}

bool CProxyFileSystem::ensureFolderExists(CURI const& uri, int options) {
  Msg request = uriRequest(Msg::OpEnsureFolderExists, uri);
  request.number = options;
  return call(request)->flag;
}

void CProxyFileSystem::ensureFileExists(CURI const& uri) { call(uriRequest(Msg::OpEnsureFileExists, uri)); }
void CProxyFileSystem::createFileHardLink(CURI const& link, CURI const& target) {
  call(twoRequest(Msg::OpCreateFileHardLink, link, target));
}
void CProxyFileSystem::createFolderHardLink(CURI const& link, CURI const& target) {
  call(twoRequest(Msg::OpCreateFolderHardLink, link, target));
}
void CProxyFileSystem::createFileSymLink(CURI const& link, CURI const& target) {
  call(twoRequest(Msg::OpCreateFileSymLink, link, target));
}
void CProxyFileSystem::createFolderSymLink(CURI const& link, CURI const& target) {
  call(twoRequest(Msg::OpCreateFolderSymLink, link, target));
}
bool CProxyFileSystem::fileExists(CURI const& uri) { return call(uriRequest(Msg::OpFileExists, uri))->flag; }
bool CProxyFileSystem::folderExists(CURI const& uri) { return call(uriRequest(Msg::OpFolderExists, uri))->flag; }
bool CProxyFileSystem::pathExists(CURI const& uri) { return call(uriRequest(Msg::OpPathExists, uri))->flag; }
bool CProxyFileSystem::quickCheckFolderAccessible(CURI const& uri) {
  try {
    return call(uriRequest(Msg::OpQuickCheckFolderAccessible, uri))->flag;
  } catch (CError const&) {
    return false;
  }
}
bool CProxyFileSystem::isFolderEmpty(CURI const& uri) { return call(uriRequest(Msg::OpIsFolderEmpty, uri))->flag; }
void CProxyFileSystem::deleteFile(CURI const& uri, bool ignoreMissing) {
  Msg request = uriRequest(Msg::OpDeleteFile, uri);
  request.flag = ignoreMissing;
  call(request);
}
void CProxyFileSystem::deleteSymLink(CURI const& uri) { call(uriRequest(Msg::OpDeleteSymLink, uri)); }
void CProxyFileSystem::deleteEmptyFolder(CURI const& uri, bool ignoreMissing) {
  Msg request = uriRequest(Msg::OpDeleteEmptyFolder, uri);
  request.flag = ignoreMissing;
  call(request);
}
void CProxyFileSystem::unlinkFolder(CURI const& uri) { call(uriRequest(Msg::OpUnlinkFolder, uri)); }
CURI CProxyFileSystem::getVolumeRootPath(CURI const& uri) { return call(uriRequest(Msg::OpGetVolumeRootPath, uri))->uri; }
CURI CProxyFileSystem::createUniqueFilename(CURI const& folder, String const& name) {
  Msg request = uriRequest(Msg::OpCreateUniqueFilename, folder);
  request.text = name;
  return call(request)->uri;
}
CURI CProxyFileSystem::createUniqueFolderName(CURI const& folder, String const& name) {
  Msg request = uriRequest(Msg::OpCreateUniqueFolderName, folder);
  request.text = name;
  return call(request)->uri;
}
void CProxyFileSystem::moveFileOrFolder(CURI const& from, CURI const& to, bool overwrite) {
  call(twoRequest(Msg::OpMoveFileOrFolder, from, to, overwrite));
}
void CProxyFileSystem::copyFile(CURI const& from, CURI const& to, bool overwrite) {
  call(twoRequest(Msg::OpCopyFile, from, to, overwrite));
}
long long CProxyFileSystem::getFreeSpaceInFolder(CURI const& uri) {
  return call(uriRequest(Msg::OpGetFreeSpaceInFolder, uri))->value;
}
String CProxyFileSystem::getAccountOrUserNameUsedForAccess(CURI const& uri) {
  return call(uriRequest(Msg::OpGetAccountName, uri))->text;
}
P<IFileSystem::CNativeMetaData> CProxyFileSystem::getNativeMetaData(CURI const& uri, bool followLinks, String const& what) {
  Msg request = uriRequest(Msg::OpGetNativeMetaData, uri);
  request.flag = followLinks;
  request.text = what;
  P<Msg> answer = call(request);
  return newP<CNativeMetaData>(answer->text, answer->data.data(), static_cast<long long>(answer->data.size()));
}

}  // namespace qo
