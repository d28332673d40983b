// qo/stream/COptimizingIOStreamWrapper.h - turns many small reads and writes
// into few large ones that suit the inner stream.
//
// The wrapper keeps one block of the inner stream in memory (a window of
// getBlockSize() bytes, starting at a multiple of the block size): reads are
// served from it and fill it ahead, writes go into it and reach the inner
// stream later (write-behind). Rules:
// - Callers may use any position, size and buffer: the wrapper reports the
//   alignment 1, 1, 1. Every call that reaches the inner stream keeps the
//   inner alignment (getAlignInfo): positions and sizes are multiples of its
//   positionAlign, buffers multiples of its bufferAlign (the block is an
//   aligned allocation), and the block size is a multiple of its
//   bestPerformancePositionAlign.
// - A write into a block that already exists on the inner stream reads the
//   block first unless it covers the whole block (read-modify-write), so
//   the unaligned edges written back hold the inner stream's own bytes.
//   Large transfers whose position, size and buffer already suit the inner
//   stream go to it directly, past the block.
// - Pending writes reach the inner stream on seek, flush, createWriteBarrier,
//   setLength, close and destruction, and before the window moves to
//   another block. Writes that name different barriers are not merged: a
//   change of barrier writes the pending bytes with their own barrier first.
// - getLength() and getPosition() count buffered writes, also past the end.
//   With an inner positionAlign above 1 the inner stream can only grow in
//   whole units, so its length may exceed getLength() by less than one unit
//   (zero bytes) while the data stands there unflushed or after a flush.
// - The inner stream must know its length and be able to seek; the wrapper
//   must be its only user while it lives. lockRange, getURI and waitReadable
//   go to the inner stream unchanged.
// - After close() transfers, seeks and end queries throw CIOError kind 10.
//
//   P<IIOStream> file = newP<CLocalFileStream>(path, IIOStream::AccessReadWrite, flags);
//   P<IIOStream> fast = newP<COptimizingIOStreamWrapper>(file.get());
//   for (char c : text) fast->write(&c, 1);   // one inner write per block
//   fast->close();                            // writes the rest, closes file
//
// Not thread-safe.
#ifndef QO_STREAM_COPTIMIZINGIOSTREAMWRAPPER_H
#define QO_STREAM_COPTIMIZINGIOSTREAMWRAPPER_H

#include <memory>

#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/stream/CDelegatingIOStream.h"
#include "qo/stream/IWriteBarrier.h"

namespace qo {

/// A read-ahead and write-behind buffer over an inner stream. Not
/// thread-safe.
class QO_API COptimizingIOStreamWrapper : public CDelegatingIOStream {
public:
  /// The block size used when none is given: 64 KiB (rounded up to suit the
  /// inner stream).
  static constexpr int kDefaultBlockSize = 64 * 1024;

  /// Shares inner (not null). blockSize <= 0 means kDefaultBlockSize; the
  /// value is rounded up to a multiple of the inner bestPerformancePositionAlign
  /// and bufferAlign. Throws what the inner getLength and alignment getters
  /// throw; CInvalidArgError ("COptimizingIOStreamWrapper constructor") when
  /// the inner stream does not know its length or the block would exceed
  /// 1 GiB.
  explicit COptimizingIOStreamWrapper(IIOStream* inner, int blockSize = 0);
  /// Writes pending data and forgets errors doing so (they are logged);
  /// does not close the inner stream.
  ~COptimizingIOStreamWrapper() override;

  /// The size of the buffered window, in bytes.
  int getBlockSize() const noexcept { return m_blockSize; }

  // IStreamBase
  /// The inner length at construction, grown by writes and set by setLength.
  long long getLength() const override;
  long long getPosition() const override;
  /// Writes pending data, then moves to position (>= 0; beyond the end is
  /// allowed, a later write fills the gap with zero bytes). Throws CIOError
  /// kind 7 (property "pos") for a negative position, kind 10 when closed,
  /// and what the inner stream throws.
  void seek(long long position) override;
  /// Writes pending data, then closes the inner stream; the inner stream is
  /// closed also when writing failed (that error is thrown). Idempotent.
  void close() override;

  // IInStream
  /// Throws CIOError kind 4 (properties "bytesRead", "toRead") when the
  /// stream ends first, kind 10 when closed; CInvalidArgError for a negative
  /// size.
  void read(void* buffer, int size) override;
  /// Up to size bytes; fewer only at the end. Throws as read() except for
  /// the end.
  int readLax(void* buffer, int size) override;
  /// Same as readLax.
  int readAvailable(void* buffer, int size) override;
  /// position >= getLength(). Throws CIOError kind 10 when closed.
  bool isEndOfStream() const override;
  int isEndOfStream_NonBlocking() const override;

  // IOutStream
  /// Buffers the bytes as described at the top. Throws CIOError kind 10
  /// when closed, what the inner stream throws when the window has to move;
  /// CInvalidArgError for a negative size.
  void write(void const* data, int size, IWriteBarrier* barrier = nullptr) override;
  /// As write(): the bytes are copied.
  void writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier = nullptr) override;
  /// Writes pending data, then asks the inner stream for the barrier.
  P<IWriteBarrier> createWriteBarrier(IWriteBarrier* previous) override;
  /// Writes pending data, then flushes the inner stream.
  void flush() override;
  /// Writes pending data, then sets the length (the inner stream gets it
  /// rounded up to its positionAlign; bytes past length in that last unit
  /// become zero). Throws CIOError kind 10 when closed; CInvalidArgError
  /// for a negative length; what the inner stream throws.
  void setLength(long long length) override;

  /// 1: callers need not align anything.
  int getPositionAlign() override;
  int getBufferAlign() override;
  int getBestPerformancePositionAlign() override;

private:
  void checkOpen(char const* place) const;
  void flushWindow();
  void loadWindow(long long blockStart, bool needDeviceData);
  void innerSeek(long long position);
  void innerWrite(unsigned char const* data, long long position, int size);
  int directRead(unsigned char* buffer, long long size);
  bool suitsInner(void const* buffer, long long position, long long size) const;

  int m_posAlign = 1;
  int m_bufAlign = 1;
  int m_unit = 1;              // lcm of posAlign and bufAlign: flushed writes start on it
  int m_blockSize = 0;
  std::unique_ptr<unsigned char[]> m_storage;
  unsigned char* m_block = nullptr;  // within m_storage, aligned to m_bufAlign
  long long m_winStart = -1;   // -1: no window loaded
  long long m_dirtyLo = 0;     // pending bytes [lo, hi) relative to m_winStart
  long long m_dirtyHi = 0;
  P<IWriteBarrier> m_dirtyBarrier;
  long long m_position = 0;
  long long m_length = 0;      // what callers see
  long long m_innerLength = 0; // what the inner stream holds
  long long m_innerPosition = -1;  // -1: not known
  bool m_closed = false;
};

}  // namespace qo

#endif  // QO_STREAM_COPTIMIZINGIOSTREAMWRAPPER_H
