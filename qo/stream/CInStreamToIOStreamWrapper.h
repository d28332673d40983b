// qo/stream/CInStreamToIOStreamWrapper.h - an input stream passed where an
// input/output stream is required.
//
// Reading, position, length, seeking, alignment, locking and closing go to
// the wrapped input stream. Every write-side operation (write,
// writeKeepBuffer, createWriteBarrier, flush, setLength) throws CIOError
// kind 3 ("Error writing data.") with a message saying that write access is
// denied, the wrapped stream's URI under "uri" and the operation
// ("CInStreamToIOStreamWrapper::write", ...) in the trace list.
//
//   P<IIOStream> io = newP<CInStreamToIOStreamWrapper>(in.get());
//   fileSystem->consume(io);   // may read, must not write
//
// Not thread-safe.
#ifndef QO_STREAM_CINSTREAMTOIOSTREAMWRAPPER_H
#define QO_STREAM_CINSTREAMTOIOSTREAMWRAPPER_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/stream/IAlignedIOStream.h"
#include "qo/stream/IInStream.h"

namespace qo {

/// A read-only IIOStream over an IInStream. Not thread-safe.
class QO_API CInStreamToIOStreamWrapper : public CBase, public IAlignedIOStream {
public:
  /// Shares inner, which must not be null.
  explicit CInStreamToIOStreamWrapper(IInStream* inner);
  ~CInStreamToIOStreamWrapper() override;
  CInStreamToIOStreamWrapper(CInStreamToIOStreamWrapper const&) = delete;
  CInStreamToIOStreamWrapper& operator=(CInStreamToIOStreamWrapper const&) = delete;

  /// The wrapped stream.
  P<IInStream> const& getSubStream() const noexcept { return m_inner; }

  // Forwarded to the wrapped stream; they throw what it throws.
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
  /// The wrapped stream's alignment (getAlignInfo).
  int getPositionAlign() override;
  int getBufferAlign() override;
  int getBestPerformancePositionAlign() override;

  /// Each throws CIOError kind 3, as described at the top.
  void write(void const* data, int size, IWriteBarrier* barrier = nullptr) override;
  void writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier = nullptr) override;
  P<IWriteBarrier> createWriteBarrier(IWriteBarrier* previous) override;
  void flush() override;
  void setLength(long long length) override;

private:
  [[noreturn]] void throwWriteDenied(char const* place, char16_t const* message);

  P<IInStream> m_inner;
};

}  // namespace qo

#endif  // QO_STREAM_CINSTREAMTOIOSTREAMWRAPPER_H
