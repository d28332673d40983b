// qo/stream/IOutStream.h - the writing side of a stream.
//
// write() writes all bytes or throws. A write may name a write barrier made
// by this same stream (createWriteBarrier); streams that complete writes
// later use barriers to order them, the others ignore them. writeKeepBuffer
// lets such a stream keep a reference to the caller's buffer instead of a
// copy; the others simply write the bytes.
//
//   out->write(header, 16);                    // no barrier
//   P<IWriteBarrier> b = out->createWriteBarrier(nullptr);
//   out->write(body, n, b.get());
//   out->flush();
#ifndef QO_STREAM_IOUTSTREAM_H
#define QO_STREAM_IOUTSTREAM_H

#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/TConstBufferSlice.h"
#include "qo/stream/IStreamBase.h"
#include "qo/stream/IWriteBarrier.h"

namespace qo {

/// An output stream. Not thread-safe.
class QO_API IOutStream : public virtual IStreamBase {
public:
  ~IOutStream() override;

  /// Writes all size bytes of data at the position and advances it. barrier
  /// may be null. Throws CIOError (kind 3 when the stream refuses writing,
  /// 10 when closed).
  virtual void write(void const* data, int size, IWriteBarrier* barrier = nullptr) = 0;
  /// As write(), for data held in a reference-counted buffer; the stream
  /// may keep a reference to the slice instead of copying it. Throws as
  /// write().
  virtual void writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier = nullptr) = 0;
  /// A new ordering token for later writes; previous (may be null) is the
  /// barrier it follows. Throws CIOError.
  virtual P<IWriteBarrier> createWriteBarrier(IWriteBarrier* previous) = 0;
  /// Pushes buffered data to the device. Throws CIOError.
  virtual void flush() = 0;
  /// Truncates or extends the stream to length bytes. Throws CIOError.
  virtual void setLength(long long length) = 0;
};

}  // namespace qo

#endif  // QO_STREAM_IOUTSTREAM_H
