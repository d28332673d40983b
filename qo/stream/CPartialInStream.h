// qo/stream/CPartialInStream.h - a byte range of another input stream, seen
// as a stream of its own.
//
// The view covers [start, start + length) of the inner stream: its positions
// run from 0 to length and are translated by adding start. It takes the
// inner stream's alignment as its own, so start and length must be
// multiples of the inner positionAlign (else CInvalidArgError from
// "CPartialInStream constructor"). The view keeps its own idea of the inner
// position; a caller that moved the inner stream meanwhile calls
// refetchPositionIgnoreErrors().
// An inner stream that ends before the view does is a fault: CIOError kind 2
// "inner stream of partial stream is too short" with the properties
// "endPos" (where the inner stream ended), "minExpectedLength" (start +
// length) and "uri".
//
//   P<IInStream> second = newP<CPartialInStream>(file.get(), 4096, 4096);
//   second->read(block, 4096);   // bytes 4096..8191 of file
//
// Not thread-safe.
#ifndef QO_STREAM_CPARTIALINSTREAM_H
#define QO_STREAM_CPARTIALINSTREAM_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/stream/IAlignedInStream.h"
#include "qo/stream/IInStream.h"

namespace qo {

/// A range view of an input stream. Not thread-safe.
class QO_API CPartialInStream : public CBase, public virtual IAlignedInStream {
public:
  /// Shares inner (not null) and seeks it to start unless it is there.
  /// Throws CInvalidArgError for a negative start or length or one that is
  /// not a multiple of the inner positionAlign; what the inner seek throws.
  CPartialInStream(IInStream* inner, long long start, long long length);
  ~CPartialInStream() override;
  CPartialInStream(CPartialInStream const&) = delete;
  CPartialInStream& operator=(CPartialInStream const&) = delete;

  /// The view's start within the inner stream.
  long long getStart() const noexcept { return m_start; }
  /// Takes the inner stream's current position as the view's; errors of the
  /// inner getPosition are swallowed (the old position stays).
  void refetchPositionIgnoreErrors();

  // IStreamBase
  /// The view's length.
  long long getLength() const override;
  /// The position within the view.
  long long getPosition() const override;
  /// The inner stream's URI.
  CURI getURI() override;
  /// Accepts 0 <= position <= getLength(), else CIOError kind 7
  /// (properties "pos", "length"); seeks the inner stream.
  void seek(long long position) override;
  /// Locks the translated range on the inner stream. Throws
  /// CInvalidArgError ("CPartialInStream::lockRange") for a range outside
  /// the view, and what the inner stream throws.
  P<IStreamLock> lockRange(long long start, long long length, LockType type) override;
  /// Closes the inner stream.
  void close() override;

  // IInStream
  /// Throws CIOError kind 4 when the view ends first, kind 2 when the inner
  /// stream does.
  void read(void* buffer, int size) override;
  /// Up to size bytes, never past the view's end. Throws CIOError kind 2
  /// for a short inner stream.
  int readLax(void* buffer, int size) override;
  /// What the inner stream has now, never past the view's end.
  int readAvailable(void* buffer, int size) override;
  /// True at the view's end, else the inner stream's answer.
  bool waitReadable(int timeoutMs) const override;
  /// True at the view's end, else the inner stream's answer.
  bool isEndOfStream() const override;
  /// 1 at the view's end, else the inner stream's answer.
  int isEndOfStream_NonBlocking() const override;

  // IAlignedStreamBase: the inner stream's values, taken at construction.
  int getPositionAlign() override;
  int getBufferAlign() override;
  int getBestPerformancePositionAlign() override;

protected:
  /// The view's end within the inner stream.
  long long getEnd() const noexcept { return m_start + m_length; }
  /// The absolute position, within the inner stream.
  long long m_position;
  long long m_start;
  long long m_length;

private:
  int clampToView(int size, char const* place) const;

  P<IInStream> m_inner;
  int m_positionAlign = 1;
  int m_bufferAlign = 1;
  int m_bestPerformancePositionAlign = 1;
};

}  // namespace qo

#endif  // QO_STREAM_CPARTIALINSTREAM_H
