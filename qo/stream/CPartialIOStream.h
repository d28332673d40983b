// qo/stream/CPartialIOStream.h - a writable byte range of another stream.
//
// CPartialInStream's view over an IIOStream, with the writing operations:
// - write and writeKeepBuffer must stay inside the view, else CIOError
//   kind 3 "write beyond the end of the partial stream" (properties "pos",
//   "size", "length") and nothing is written;
// - setLength changes the view's length only when the view reaches the
//   inner stream's end (the inner stream is resized with it), else CIOError
//   kind 13 "the partial stream does not end at the end of its inner stream";
// - createWriteBarrier and flush go to the inner stream.
//
//   P<IIOStream> slot = newP<CPartialIOStream>(image.get(), 512, 512);
//   slot->write(sector, 512);
//
// Not thread-safe.
#ifndef QO_STREAM_CPARTIALIOSTREAM_H
#define QO_STREAM_CPARTIALIOSTREAM_H

#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/stream/CPartialInStream.h"
#include "qo/stream/IAlignedIOStream.h"
#include "qo/stream/IIOStream.h"

namespace qo {

/// A writable range view of an input/output stream. Not thread-safe.
class QO_API CPartialIOStream : public CPartialInStream, public IAlignedIOStream {
public:
  /// As CPartialInStream's constructor.
  CPartialIOStream(IIOStream* inner, long long start, long long length);
  ~CPartialIOStream() override;

  /// Writes inside the view; throws as described at the top and what the
  /// inner stream throws.
  void write(void const* data, int size, IWriteBarrier* barrier = nullptr) override;
  void writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier = nullptr) override;
  /// The inner stream's barrier.
  P<IWriteBarrier> createWriteBarrier(IWriteBarrier* previous) override;
  /// Flushes the inner stream.
  void flush() override;
  /// Resizes the view as described at the top; a position past the new end
  /// moves to it. CInvalidArgError for a negative length.
  void setLength(long long length) override;

private:
  void checkWrite(long long size, char const* place);

  P<IIOStream> m_ioInner;
};

}  // namespace qo

#endif  // QO_STREAM_CPARTIALIOSTREAM_H
