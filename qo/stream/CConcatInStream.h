// qo/stream/CConcatInStream.h - several input streams read as one.
//
// The parts are joined end to end in the given order; each must know its
// length at construction. Rules:
// - Alignment: the joined stream demands the least common multiple of the
//   parts' alignment values, and each part must start at a multiple of its
//   own positionAlign, else construction throws CError "Cannot concatenate
//   input streams. Stream {index} ('{uri}') has the position alignment
//   requirement {positionAlign} but its start position of {S} violates
//   that.".
// - Seeking is lazy: seek() only stores the position; the part's own stream
//   is sought at the next read. Positions 0 to the total length are valid.
// - A part that delivers less than its length promised is a fault: it is
//   logged through logError (so it is recorded even when the caller
//   swallows the error) and raised as CIOError kind 2 with the properties
//   "bytesRead", "toRead", "readPosition" and "streamEndPos".
// - lockRange locks the touched ranges of the parts and returns one lock
//   holding all of them.
//
//   TArray<P<IInStream>> parts{header, body};
//   P<IInStream> all = newP<CConcatInStream>(parts, CURI(u"concat:backup"));
//
// Not thread-safe.
#ifndef QO_STREAM_CCONCATINSTREAM_H
#define QO_STREAM_CCONCATINSTREAM_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/TArray.h"
#include "qo/core/TList.h"
#include "qo/fs/CURI.h"
#include "qo/stream/IAlignedInStream.h"
#include "qo/stream/IInStream.h"
#include "qo/stream/IStreamLock.h"

namespace qo {

/// Input streams joined end to end. Not thread-safe.
class QO_API CConcatInStream : public CBase, public IAlignedInStream {
public:
  /// One part: its place [startPos, endPos) in the joined stream.
  struct StreamInfo {
    long long startPos = 0;
    long long endPos = 0;
    P<IInStream> stream;
  };

  /// The lock of a joined range: holds the locks of the parts it touches.
  class QO_API CStreamLock : public CBase, public IStreamLock {
  public:
    explicit CStreamLock(TList<P<IStreamLock>> partLocks);
    ~CStreamLock() override;
    /// The parts' locks, in part order.
    TList<P<IStreamLock>> const& getPartLocks() const noexcept { return m_partLocks; }

  private:
    TList<P<IStreamLock>> m_partLocks;
  };

  /// Joins parts (shared; none null) and reports uri. Throws CError for a
  /// misaligned part or one that does not know its length (see top), and
  /// what the parts' getters throw.
  CConcatInStream(TArray<P<IInStream>> const& parts, CURI const& uri);
  ~CConcatInStream() override;
  CConcatInStream(CConcatInStream const&) = delete;
  CConcatInStream& operator=(CConcatInStream const&) = delete;

  /// The least common multiple of a and b (both >= 1).
  static int calcLCM(int a, int b);

  /// The parts with their places.
  TArray<StreamInfo> const& getStreamInfos() const noexcept { return m_streams; }

  // IStreamBase
  /// The sum of the parts' lengths.
  long long getLength() const override;
  long long getPosition() const override;
  CURI getURI() override;
  /// Stores the position (no part is touched). Throws CIOError kind 7
  /// (properties "pos", "length") outside 0..getLength(), kind 10 when
  /// closed.
  void seek(long long position) override;
  /// Locks the parts' share of the range; throws what they throw (locks
  /// already taken are released then).
  P<IStreamLock> lockRange(long long start, long long length, LockType type) override;
  /// Closes every part; later transfers throw CIOError kind 10.
  void close() override;

  // IInStream
  /// Throws CIOError kind 4 when the joined stream ends first, kind 2 for a
  /// short part (see top).
  void read(void* buffer, int size) override;
  /// Reads across parts up to size bytes; fewer only at the end. Throws
  /// CIOError kind 2 for a short part.
  int readLax(void* buffer, int size) override;
  /// As readLax, but stops at the first part that has nothing more now.
  int readAvailable(void* buffer, int size) override;
  /// The current part's answer; true at the end.
  bool waitReadable(int timeoutMs) const override;
  /// position >= length.
  bool isEndOfStream() const override;
  /// isEndOfStream() as 1 or 0.
  int isEndOfStream_NonBlocking() const override;

  // IAlignedStreamBase: the least common multiples of the parts' values.
  int getPositionAlign() override;
  int getBufferAlign() override;
  int getBestPerformancePositionAlign() override;

private:
  StreamInfo const* getCurrStreamInfo() const;
  void checkOpen(char const* place) const;
  int readParts(void* buffer, int size, bool onlyAvailable);

  TArray<StreamInfo> m_streams;
  // The part holding the position, its stream sought there; null until the
  // next read finds it (lazy seek).
  mutable StreamInfo const* m_pCurrent = nullptr;
  long long m_position = 0;
  long long m_length = 0;
  int m_positionAlign = 1;
  int m_bufferAlign = 1;
  int m_bestPerformancePositionAlign = 1;
  bool m_closed = false;
  CURI m_uri;
};

}  // namespace qo

#endif  // QO_STREAM_CCONCATINSTREAM_H
