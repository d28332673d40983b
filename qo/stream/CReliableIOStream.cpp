#include "qo/stream/CReliableIOStream.h"

#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CStdExceptionError.h"
#include "qo/core/TBuffer.h"
#include "qo/log/logFunctions.h"
#include "qo/stream/StreamError.h"
#include "qo/thread/CMutexLock.h"
#include "qo/thread/CMutexUnlock.h"

#include <algorithm>
#include <cassert>
#include <chrono>
#include <utility>

namespace qo {

namespace {
void checkSize(long long size, char const* place) {
  if (size < 0) throw CInvalidArgError(String(place), u"the size is negative", CProps().addLong(u"size", size));
}

template <class F>
P<CError> caught(F&& f) {
  try {
    f();
  } catch (CError const& e) {
    return e.clone();
  } catch (std::exception const& e) {
    return P<CError>(new CStdExceptionError(e));
  }
  return P<CError>();
}
}  // namespace

CReliableIOStream::IBarrierListener::~IBarrierListener() = default;

/// A barrier of one stream: the last write it covers (under the stream's
/// mutex) and the listener waiting for it.
class CReliableIOStream::CBarrier : public CBase, public IWriteBarrier {
public:
  explicit CBarrier(CReliableIOStream const* owner) : m_owner(owner) {}
  CReliableIOStream const* const m_owner;  // identity only; never used to reach the stream
  long long m_lastSeq = 0;
  P<IBarrierListener> m_listener;
};

class CReliableIOStream::CWorker : public CThread {
public:
  explicit CWorker(CReliableIOStream* owner) : m_owner(owner) { setThreadName(u"qo.reliableStream"); }

  /// Library shutdown: write what is queued, then end.
  void signalStop() override {
    CThread::signalStop();
    CMutexLock lock(m_owner->m_mutex);
    m_owner->m_stop = true;
    m_owner->m_work.set();
  }

protected:
  void runImpl() override { m_owner->runWorker(); }

private:
  CReliableIOStream* const m_owner;  // outlives the run: the stream joins it
};

CReliableIOStream::CReliableIOStream(IIOStream* inner, long long maxQueuedBytes)
    : m_inner(P<IIOStream>::share(inner)), m_maxQueuedBytes(maxQueuedBytes) {
  assert(inner != nullptr);
  m_length = inner->getLength();
  m_position = inner->getPosition();
  m_innerPosition = m_position;
  m_worker = newP<CWorker>(this);
  m_worker->start();
}

CReliableIOStream::~CReliableIOStream() {
  try {
    close();
  } catch (std::exception const& e) {
    logError(e, u"CReliableIOStream failed while being destroyed.", String());
  }
  stopWorker();
}

// --- waiting and the worker ---------------------------------------------------

template <class F>
bool CReliableIOStream::waitUntil(F const& done, int timeoutMs) {
  // Each wait has its own signal: a shared manual-reset signal could be
  // reset by one waiter before another has seen it set.
  auto const deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs < 0 ? 0 : timeoutMs);
  for (;;) {
    if (done()) return true;
    int wait = -1;
    if (timeoutMs >= 0) {
      auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) return false;
      wait = static_cast<int>(left.count());
    }
    P<CSignal> signal = newP<CSignal>();
    m_waiters.push_back(signal);
    {
      CMutexUnlock unlock(m_mutex);
      (void)signal->wait(wait);
    }
    m_waiters.erase(std::remove(m_waiters.begin(), m_waiters.end(), signal), m_waiters.end());
  }
}

void CReliableIOStream::wakeWaiters() {
  for (P<CSignal> const& signal : m_waiters) signal->set();
  m_waiters.clear();
}

int CReliableIOStream::barrierStatus(CBarrier const& barrier) const {
  if (m_durableSeq >= barrier.m_lastSeq) return 1;
  return m_error ? -1 : 0;
}

void CReliableIOStream::notifyListeners() {
  struct Call {
    P<CBarrier> barrier;
    P<IBarrierListener> listener;
    bool done;
  };
  std::vector<Call> calls;
  for (auto it = m_listened.begin(); it != m_listened.end();) {
    int const status = barrierStatus(**it);
    if (status != 0) {
      calls.push_back(Call{*it, std::move((*it)->m_listener), status > 0});
      it = m_listened.erase(it);
    } else {
      ++it;
    }
  }
  if (calls.empty()) return;
  P<CError> const error = m_error;
  CMutexUnlock unlock(m_mutex);
  for (Call const& call : calls) {
    try {
      call.listener->onBarrierDone(call.barrier.get(), call.done ? nullptr : error.get());
    } catch (std::exception const& e) {
      logError(e, u"A CReliableIOStream barrier listener threw.", String());
    }
  }
}

P<CError> CReliableIOStream::writeItem(Item const& item) {
  CMutexLock lock(m_innerMutex);
  return caught([&] {
    if (m_innerPosition != item.position) {
      m_innerPosition = -1;
      m_inner->seek(item.position);
    }
    m_innerPosition = -1;
    m_inner->writeKeepBuffer(item.data, nullptr);
    m_innerPosition = item.position + item.data.getLength();
  });
}

P<CError> CReliableIOStream::flushInner() {
  CMutexLock lock(m_innerMutex);
  return caught([&] { m_inner->flush(); });
}

void CReliableIOStream::fail(P<CError> const& error) {
  m_error = error;
  m_queue.clear();  // dropped: the barriers covering them report the error
  m_queuedBytes = 0;
  long long const written = m_writtenSeq;
  P<CError> flushError;
  {
    CMutexUnlock unlock(m_mutex);
    flushError = flushInner();  // what was written before the failure may still become durable
  }
  if (!flushError) m_durableSeq = std::max(m_durableSeq, written);
}

void CReliableIOStream::runWorker() {
  CMutexLock lock(m_mutex);
  for (;;) {
    if (!m_error && m_flushTarget > m_durableSeq && m_writtenSeq >= m_flushTarget) {
      // Someone waits for what is written: flush before writing more, so a
      // busy queue cannot hold a barrier back.
      long long const written = m_writtenSeq;
      P<CError> failure;
      {
        CMutexUnlock unlock(m_mutex);
        failure = flushInner();
      }
      if (failure) {
        fail(failure);
      } else {
        m_durableSeq = std::max(m_durableSeq, written);
      }
      wakeWaiters();
      notifyListeners();
      continue;
    }
    if (!m_error && !m_queue.empty()) {
      Item const item = std::move(m_queue.front());
      m_queue.pop_front();
      P<CError> failure;
      {
        CMutexUnlock unlock(m_mutex);
        failure = writeItem(item);
      }
      m_queuedBytes -= item.data.getLength();
      if (failure) {
        fail(failure);
        wakeWaiters();
        notifyListeners();
      } else {
        m_writtenSeq = item.seq;
        if (m_progressWaiters > 0) wakeWaiters();
      }
      continue;
    }
    if (m_stop) break;
    m_work.reset();  // only this thread waits for it, and queuing sets it under the mutex
    CMutexUnlock unlock(m_mutex);
    (void)m_work.wait(-1);
  }
}

void CReliableIOStream::requestFlush(long long target) {
  if (target <= m_flushTarget) return;
  m_flushTarget = target;
  m_work.set();
}

void CReliableIOStream::stopWorker() noexcept {
  try {
    m_worker->stop(false);
  } catch (std::exception const& e) {
    logError(e, u"CReliableIOStream could not stop its thread.", String());
  }
}

void CReliableIOStream::waitWritten() {
  ++m_progressWaiters;
  waitUntil([&] { return m_writtenSeq >= m_lastSeq || m_error; }, -1);
  --m_progressWaiters;
}

// --- barriers -----------------------------------------------------------------

CReliableIOStream::CBarrier* CReliableIOStream::ownBarrier(IWriteBarrier* barrier, char const* place,
                                                          bool forWrite) const {
  auto* own = dynamic_cast<CBarrier*>(barrier);
  if (own != nullptr && own->m_owner == this) return own;
  if (forWrite) throw CError(u"INTERNAL ERROR: Write barrier object from a different stream passed to CReliableIOStream::write");
  throw CInvalidArgError(String(place), u"the barrier is null or was made by another stream");
}

bool CReliableIOStream::waitBarrier(IWriteBarrier* barrier, int timeoutMs) {
  CBarrier* const own = ownBarrier(barrier, "CReliableIOStream::waitBarrier", false);
  CMutexLock lock(m_mutex);
  requestFlush(own->m_lastSeq);
  if (!waitUntil([&] { return barrierStatus(*own) != 0; }, timeoutMs)) return false;
  if (barrierStatus(*own) < 0) m_error->throwClone();
  return true;
}

bool CReliableIOStream::isBarrierDone(IWriteBarrier* barrier) { return waitBarrier(barrier, 0); }

void CReliableIOStream::setBarrierDoneListener(IWriteBarrier* barrier, IBarrierListener* listener) {
  CBarrier* const own = ownBarrier(barrier, "CReliableIOStream::setBarrierDoneListener", false);
  CMutexLock lock(m_mutex);
  own->m_listener = listener;
  if (std::find(m_listened.begin(), m_listened.end(), own) == m_listened.end()) {
    m_listened.push_back(P<CBarrier>::share(own));
  }
  requestFlush(own->m_lastSeq);
  notifyListeners();  // tells it at once when the barrier is settled already
}

P<IWriteBarrier> CReliableIOStream::createWriteBarrier(IWriteBarrier* previous) {
  checkOpen("CReliableIOStream::createWriteBarrier");
  CBarrier const* const before =
      previous ? ownBarrier(previous, "CReliableIOStream::createWriteBarrier", false) : nullptr;
  P<CBarrier> barrier = newP<CBarrier>(this);
  CMutexLock lock(m_mutex);
  if (before) barrier->m_lastSeq = before->m_lastSeq;
  return barrier;
}

// --- the stream ---------------------------------------------------------------

void CReliableIOStream::checkOpen(char const* place) const {
  if (m_closed) throw makeStreamError(CIOError::kStreamClosed, place, String(), CProps(), m_inner->getURI());
}

void CReliableIOStream::throwIfFailed() const {
  if (m_error) m_error->throwClone();
}

long long CReliableIOStream::getLength() const { return m_length; }
long long CReliableIOStream::getPosition() const { return m_position; }
CURI CReliableIOStream::getURI() { return m_inner->getURI(); }

void CReliableIOStream::seek(long long position) {
  checkOpen("CReliableIOStream::seek");
  if (position < 0) {
    throw makeStreamError(CIOError::kSeekFailed, "CReliableIOStream::seek", String(),
                          CProps().addLong(u"pos", position), m_inner->getURI());
  }
  m_position = position;
}

P<IStreamLock> CReliableIOStream::lockRange(long long start, long long length, LockType type) {
  CMutexLock lock(m_innerMutex);
  return m_inner->lockRange(start, length, type);
}

void CReliableIOStream::close() {
  if (m_closed) return;
  m_closed = true;
  P<CError> error;
  {
    CMutexLock lock(m_mutex);
    requestFlush(m_lastSeq);
    waitUntil([&] { return m_durableSeq >= m_lastSeq || m_error; }, -1);
    error = m_error;
  }
  stopWorker();
  m_inner->close();
  if (error) error->throwClone();
}

int CReliableIOStream::innerRead(void* buffer, int size, bool available) {
  checkOpen("CReliableIOStream::read");
  checkSize(size, "CReliableIOStream::read");
  {
    CMutexLock lock(m_mutex);
    waitWritten();
  }
  CMutexLock lock(m_innerMutex);
  if (m_innerPosition != m_position) {
    m_innerPosition = -1;
    m_inner->seek(m_position);
    m_innerPosition = m_position;
  }
  m_innerPosition = -1;
  int const got = available ? m_inner->readAvailable(buffer, size) : m_inner->readLax(buffer, size);
  m_position += got;
  m_innerPosition = m_position;
  return got;
}

void CReliableIOStream::read(void* buffer, int size) {
  int const got = innerRead(buffer, size, false);
  if (got < size) {
    throw makeStreamError(CIOError::kUnexpectedEOF, "CReliableIOStream::read", String(),
                          CProps().addLong(u"bytesRead", got).addLong(u"toRead", size), m_inner->getURI());
  }
}

int CReliableIOStream::readLax(void* buffer, int size) { return innerRead(buffer, size, false); }
int CReliableIOStream::readAvailable(void* buffer, int size) { return innerRead(buffer, size, true); }

bool CReliableIOStream::waitReadable(int timeoutMs) const {
  CMutexLock lock(m_innerMutex);
  return m_inner->waitReadable(timeoutMs);
}

bool CReliableIOStream::isEndOfStream() const {
  checkOpen("CReliableIOStream::isEndOfStream");
  return m_position >= m_length;
}

int CReliableIOStream::isEndOfStream_NonBlocking() const { return isEndOfStream() ? 1 : 0; }

void CReliableIOStream::queue(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier) {
  CBarrier* const own = barrier ? ownBarrier(barrier, "CReliableIOStream::write", true) : nullptr;
  long long const size = data.getLength();
  {
    CMutexLock lock(m_mutex);
    throwIfFailed();
    if (size == 0) return;
    ++m_progressWaiters;
    waitUntil([&] { return m_queuedBytes == 0 || m_queuedBytes + size <= m_maxQueuedBytes || m_error; }, -1);
    --m_progressWaiters;
    throwIfFailed();
    long long const seq = ++m_lastSeq;
    if (own) own->m_lastSeq = seq;
    m_queue.push_back(Item{seq, m_position, data, P<CBarrier>::share(own)});
    m_queuedBytes += size;
    m_work.set();
  }
  m_position += size;
  m_length = std::max(m_length, m_position);
}

void CReliableIOStream::write(void const* data, int size, IWriteBarrier* barrier) {
  checkOpen("CReliableIOStream::write");
  checkSize(size, "CReliableIOStream::write");
  if (barrier) (void)ownBarrier(barrier, "CReliableIOStream::write", true);
  auto const copy = newP<TBuffer<unsigned char>>(static_cast<unsigned char const*>(data), size);
  queue(TConstBufferSlice<unsigned char>(copy), barrier);
}

void CReliableIOStream::writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier) {
  checkOpen("CReliableIOStream::writeKeepBuffer");
  queue(data, barrier);
}

void CReliableIOStream::flush() {
  checkOpen("CReliableIOStream::flush");
  CMutexLock lock(m_mutex);
  requestFlush(m_lastSeq);
  waitUntil([&] { return m_durableSeq >= m_lastSeq || m_error; }, -1);
  throwIfFailed();
}

void CReliableIOStream::setLength(long long length) {
  checkOpen("CReliableIOStream::setLength");
  if (length < 0) {
    throw CInvalidArgError(u"CReliableIOStream::setLength", u"the length is negative",
                           CProps().addLong(u"length", length));
  }
  {
    CMutexLock lock(m_mutex);
    waitWritten();
    throwIfFailed();
  }
  CMutexLock lock(m_innerMutex);
  m_innerPosition = -1;
  m_inner->setLength(length);
  m_length = length;
  if (m_position > length) m_position = length;
}

}  // namespace qo
