// qo/stream/CDummyOutStream.h - an output stream that discards all writes.
//
// It keeps a position and a length as a real stream would (a write advances
// the position and extends the length; seek accepts any position >= 0,
// setLength any length >= 0), so callers that measure what they wrote get
// true numbers. The URI is empty; range locks are refused (CIOError kind
// 14); after close() writes throw CIOError kind 10.
//
//   P<IOutStream> sink = newP<CDummyOutStream>();
//   serializer.writeTo(sink);
//   long long size = sink->getLength();
//
// Not thread-safe.
#ifndef QO_STREAM_CDUMMYOUTSTREAM_H
#define QO_STREAM_CDUMMYOUTSTREAM_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/stream/IOutStream.h"

namespace qo {

/// A discarding output stream. Not thread-safe.
class QO_API CDummyOutStream : public CBase, public IOutStream {
public:
  CDummyOutStream();
  ~CDummyOutStream() override;
  CDummyOutStream(CDummyOutStream const&) = delete;
  CDummyOutStream& operator=(CDummyOutStream const&) = delete;

  long long getLength() const override;
  long long getPosition() const override;
  CURI getURI() override;
  /// Accepts any position >= 0, else CIOError kind 7.
  void seek(long long position) override;
  /// Throws CIOError kind 14.
  P<IStreamLock> lockRange(long long start, long long length, LockType type) override;
  void close() override;
  /// Discards; advances the position. Throws CIOError kind 10 when closed,
  /// CInvalidArgError for a negative size.
  void write(void const* data, int size, IWriteBarrier* barrier = nullptr) override;
  void writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier = nullptr) override;
  /// A new CDummyWriteBarrier.
  P<IWriteBarrier> createWriteBarrier(IWriteBarrier* previous) override;
  void flush() override;
  /// CInvalidArgError for a negative length.
  void setLength(long long length) override;

private:
  void advance(long long size, char const* place);

  long long m_position = 0;
  long long m_length = 0;
  bool m_closed = false;
};

}  // namespace qo

#endif  // QO_STREAM_CDUMMYOUTSTREAM_H
