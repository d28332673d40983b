// qo/stream/CReliableIOStream.h - an output stream that writes in the
// background and tells, per write barrier, when data is on the device.
//
// write() and writeKeepBuffer() return as soon as the bytes are queued
// (write copies them, writeKeepBuffer keeps a reference to the slice, whose
// bytes must stay unchanged until written). One "qo.reliableStream" thread
// writes the queue to the inner stream in order, each write at the position
// it was queued for. It flushes the inner stream when someone needs it: for
// a barrier that is waited for, asked about or listened to (as soon as its
// writes are written, ahead of later ones), for flush() and close().
//
// Barriers: createWriteBarrier(previous) makes a token of this stream; it
// covers the writes that name it and everything previous covered when it was
// made. A barrier is done when every write it covers so far has been written
// and the inner stream flushed after it (waitBarrier, isBarrierDone,
// setBarrierDoneListener; each of them also asks for that flush, so a first
// isBarrierDone may answer false where a later one answers true). A barrier of another stream passed to write()
// raises the CError "INTERNAL ERROR: Write barrier object from a different
// stream passed to CReliableIOStream::write".
//
// Errors: the first write or flush of the inner stream that fails stops the
// stream: the queued writes are dropped, and the error (a copy of its own
// class) is thrown by the barriers that cover the failed write or any
// dropped one, by flush(), close(), and every later write. Barriers whose
// writes were on the device before the failure stay done.
//
// Reads and setLength wait until the queue is written; getLength and seek
// do not reach the inner stream (seek moves the position that the next
// write or read uses).
// The queue holds at most maxQueuedBytes (a larger single write waits for an
// empty queue); a write that would exceed it waits.
//
//   P<CReliableIOStream> out = newP<CReliableIOStream>(file.get());
//   P<IWriteBarrier> header = out->createWriteBarrier(nullptr);
//   out->write(head, n, header.get());
//   P<IWriteBarrier> body = out->createWriteBarrier(header.get());
//   out->write(data, m, body.get());
//   out->waitBarrier(header.get(), -1);   // head is on the device (or throws)
//   out->close();                         // everything is, or it throws
//
// When the library shuts down (CQoInit), the thread writes what is queued
// and ends; later writes are not written.
//
// The inner stream must accept the writes as given: put a
// COptimizingIOStreamWrapper in between for an aligned device.
//
// Not thread-safe, except waitBarrier, isBarrierDone and
// setBarrierDoneListener, which any thread may call.
#ifndef QO_STREAM_CRELIABLEIOSTREAM_H
#define QO_STREAM_CRELIABLEIOSTREAM_H

#include <deque>
#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/CError.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/TConstBufferSlice.h"
#include "qo/stream/IIOStream.h"
#include "qo/stream/IWriteBarrier.h"
#include "qo/thread/CMutex.h"
#include "qo/thread/CSignal.h"
#include "qo/thread/CThread.h"

namespace qo {

/// An output stream with background writing and barrier completion.
/// Not thread-safe (see the top for the exceptions).
class QO_API CReliableIOStream : public CBase, public IIOStream {
public:
  /// Told once when a barrier is done or has failed.
  class QO_API IBarrierListener : public virtual IBase {
  public:
    ~IBarrierListener() override;
    /// barrier is done (error null) or one of its writes failed (error, valid
    /// during the call). Runs on the writing thread, or on the caller's when
    /// the barrier was done already; must return quickly; an exception is
    /// logged and ignored.
    virtual void onBarrierDone(IWriteBarrier* barrier, CError const* error) = 0;
  };

  static constexpr long long kDefaultMaxQueuedBytes = 16LL * 1024 * 1024;

  /// Shares inner (not null) and starts the writing thread. The position
  /// starts at the inner position. Throws what the inner getLength and
  /// getPosition throw, CSystemError when the thread cannot start.
  explicit CReliableIOStream(IIOStream* inner, long long maxQueuedBytes = kDefaultMaxQueuedBytes);
  /// Closes (waits for the queue); errors are logged. Never throws.
  ~CReliableIOStream() override;
  CReliableIOStream(CReliableIOStream const&) = delete;
  CReliableIOStream& operator=(CReliableIOStream const&) = delete;

  /// The stream written to.
  P<IIOStream> const& getInnerStream() const noexcept { return m_inner; }

  /// True when every write that barrier covers is on the device; false when
  /// timeoutMs (-1: no limit, 0: just look) ran out first. Throws the
  /// stream's error when a covered write failed or was dropped, and
  /// CInvalidArgError ("CReliableIOStream::waitBarrier") for a barrier that
  /// is null or not of this stream. Thread-safe.
  [[nodiscard]] bool waitBarrier(IWriteBarrier* barrier, int timeoutMs);
  /// waitBarrier(barrier, 0): asks for the flush and looks. Thread-safe.
  [[nodiscard]] bool isBarrierDone(IWriteBarrier* barrier);
  /// Tells listener once, when barrier is next done or fails (at once, on
  /// this thread, when it is done or failed now). Replaces an earlier
  /// listener that was not told yet. Throws as waitBarrier for a bad
  /// barrier. Thread-safe.
  void setBarrierDoneListener(IWriteBarrier* barrier, IBarrierListener* listener);

  // IStreamBase
  /// The inner length at construction, grown by queued writes and set by
  /// setLength.
  long long getLength() const override;
  long long getPosition() const override;
  /// The inner URI.
  CURI getURI() override;
  /// Sets the position for the next write or read (>= 0; beyond the end the
  /// inner stream decides when the write comes). Throws CIOError kind 7
  /// (property "pos") for a negative position, kind 10 when closed.
  void seek(long long position) override;
  /// Forwarded to the inner stream (serialised with the writing thread).
  P<IStreamLock> lockRange(long long start, long long length, LockType type) override;
  /// Waits for the queue, stops the thread and closes the inner stream (also
  /// after a failure); then throws the stream's error if there is one.
  /// Idempotent: a second call does nothing.
  void close() override;

  // IInStream: after the queue is written, at the stream's position.
  /// Throws CIOError kind 4 (properties "bytesRead", "toRead") when the
  /// stream ends first, kind 10 when closed, what the inner stream throws.
  void read(void* buffer, int size) override;
  int readLax(void* buffer, int size) override;
  int readAvailable(void* buffer, int size) override;
  bool waitReadable(int timeoutMs) const override;
  /// position >= getLength(). Throws CIOError kind 10 when closed.
  bool isEndOfStream() const override;
  int isEndOfStream_NonBlocking() const override;

  // IOutStream
  /// Queues a copy of the bytes at the position and advances it. Throws
  /// CIOError kind 10 when closed, the stream's error after a failure, the
  /// CError above for a barrier of another stream; CInvalidArgError for a
  /// negative size.
  void write(void const* data, int size, IWriteBarrier* barrier = nullptr) override;
  /// As write, keeping the slice instead of a copy.
  void writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier = nullptr) override;
  /// A new barrier of this stream (see the top). Throws CIOError kind 10
  /// when closed; CInvalidArgError ("CReliableIOStream::createWriteBarrier")
  /// when previous is not null and not of this stream.
  P<IWriteBarrier> createWriteBarrier(IWriteBarrier* previous) override;
  /// Waits until every queued write is on the device. Throws the stream's
  /// error after a failure, CIOError kind 10 when closed.
  void flush() override;
  /// Waits for the queue, then sets the inner length; a position beyond it
  /// moves to it. Throws as flush and what the inner stream throws;
  /// CInvalidArgError for a negative length.
  void setLength(long long length) override;

private:
  class CBarrier;
  class CWorker;
  struct Item {
    long long seq;
    long long position;
    TConstBufferSlice<unsigned char> data;
    P<CBarrier> barrier;
  };

  CBarrier* ownBarrier(IWriteBarrier* barrier, char const* place, bool forWrite) const;
  void queue(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier);
  void checkOpen(char const* place) const;
  void throwIfFailed() const;
  template <class F>
  bool waitUntil(F const& done, int timeoutMs);
  void waitWritten();
  void wakeWaiters();
  void notifyListeners();
  int barrierStatus(CBarrier const& barrier) const;
  void fail(P<CError> const& error);
  P<CError> writeItem(Item const& item);
  P<CError> flushInner();
  void runWorker();
  void requestFlush(long long target);
  void stopWorker() noexcept;
  int innerRead(void* buffer, int size, bool available);

  P<IIOStream> m_inner;
  long long m_maxQueuedBytes;
  long long m_position = 0;
  long long m_length = 0;
  bool m_closed = false;

  mutable CMutex m_mutex;  // everything below
  std::deque<Item> m_queue;
  long long m_queuedBytes = 0;
  long long m_lastSeq = 0;     // the last queued write
  long long m_writtenSeq = 0;  // the last write handed to the inner stream
  long long m_durableSeq = 0;  // the last write followed by a successful flush
  long long m_flushTarget = 0; // flush once this write is written (someone waits)
  int m_progressWaiters = 0;   // waits for written writes or queue room
  P<CError> m_error;           // the first failure; the stream is stopped
  bool m_stop = false;
  std::vector<P<CSignal>> m_waiters;
  std::vector<P<CBarrier>> m_listened;  // barriers with a listener not told yet

  mutable CMutex m_innerMutex;     // one user of the inner stream at a time
  long long m_innerPosition = -1;  // under m_innerMutex; -1: not known
  CSignal m_work;                  // the worker's wake-up
  P<CThread> m_worker;
};

}  // namespace qo

#endif  // QO_STREAM_CRELIABLEIOSTREAM_H
