// qo/stream/CDelegatingIOStream.h - a stream that forwards everything to
// another.
//
// The base of wrappers that change only a few operations: every operation
// of the stream interfaces goes unchanged to the inner stream, and the
// alignment getters report the inner stream's values (1, 1, 1 when it is not
// aligned). A subclass overrides what it changes and calls the base for the
// rest.
//
//   class CCountingStream : public CDelegatingIOStream {
//     void write(void const* d, int n, IWriteBarrier* b) override {
//       m_written += n;
//       CDelegatingIOStream::write(d, n, b);
//     }
//   };
//
// Not thread-safe.
#ifndef QO_STREAM_CDELEGATINGIOSTREAM_H
#define QO_STREAM_CDELEGATINGIOSTREAM_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/stream/IAlignedIOStream.h"
#include "qo/stream/IIOStream.h"

namespace qo {

/// Forwards every stream operation to an inner stream. Not thread-safe.
class QO_API CDelegatingIOStream : public CBase, public IAlignedIOStream {
public:
  /// Shares inner, which must not be null.
  explicit CDelegatingIOStream(IIOStream* inner);
  ~CDelegatingIOStream() override;
  CDelegatingIOStream(CDelegatingIOStream const&) = delete;
  CDelegatingIOStream& operator=(CDelegatingIOStream const&) = delete;

  /// The stream that operations go to.
  P<IIOStream> const& getInnerStream() const noexcept { return m_inner; }

  // Each forwards to the inner stream and throws what it throws.
  long long getLength() const override;
  long long getPosition() const override;
  CURI getURI() override;
  void seek(long long position) override;
  P<IStreamLock> lockRange(long long start, long long length, LockType type) override;
  void close() override;
  void read(void* buffer, int size) override;
  int readLax(void* buffer, int size) override;
  int readAvailable(void* buffer, int size) override;
  bool waitReadable(int timeoutMs) const override;
  bool isEndOfStream() const override;
  int isEndOfStream_NonBlocking() const override;
  void write(void const* data, int size, IWriteBarrier* barrier = nullptr) override;
  void writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier = nullptr) override;
  P<IWriteBarrier> createWriteBarrier(IWriteBarrier* previous) override;
  void flush() override;
  void setLength(long long length) override;
  /// The inner stream's alignment (getAlignInfo).
  int getPositionAlign() override;
  int getBufferAlign() override;
  int getBestPerformancePositionAlign() override;

private:
  P<IIOStream> m_inner;
};

}  // namespace qo

#endif  // QO_STREAM_CDELEGATINGIOSTREAM_H
