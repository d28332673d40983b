// qo/stream/IInStream.h - the reading side of a stream.
//
// Three ways to read, by how hard the stream tries:
//   read(buf, n)           exactly n bytes, or CIOError kind 4 ("Unexpected
//                          end of data.") when the stream ends first;
//   readLax(buf, n)        up to n, blocking; fewer only at the end (0 there);
//   readAvailable(buf, n)  what is there now, possibly 0, never blocking
//                          (memory and file streams: same as readLax).
// isEndOfStream() may block until the answer is known;
// isEndOfStream_NonBlocking() answers 1 (end), 0 (not the end) or -1 (not
// known without blocking).
//
//   char header[16];
//   in->read(header, sizeof header);
//   while (int got = in->readLax(chunk, sizeof chunk)) consume(chunk, got);
#ifndef QO_STREAM_IINSTREAM_H
#define QO_STREAM_IINSTREAM_H

#include "qo/core/Export.h"
#include "qo/stream/IStreamBase.h"

namespace qo {

/// An input stream. Not thread-safe.
class QO_API IInStream : public virtual IStreamBase {
public:
  ~IInStream() override;

  /// Reads exactly size bytes into buffer. Throws CIOError kind 4 when the
  /// stream ends first (what was read is consumed), kind 10 when closed.
  virtual void read(void* buffer, int size) = 0;
  /// Reads up to size bytes, blocking as needed; returns fewer only at the
  /// end of the stream (0 there). Throws CIOError.
  virtual int readLax(void* buffer, int size) = 0;
  /// Reads what can be read without blocking (possibly 0). Throws CIOError.
  virtual int readAvailable(void* buffer, int size) = 0;
  /// True once data or the end can be read without blocking; false when
  /// timeoutMs (-1 = no limit) ran out first.
  virtual bool waitReadable(int timeoutMs) const = 0;
  /// True at the end of the stream; may block. Throws CIOError kind 10 when
  /// closed.
  virtual bool isEndOfStream() const = 0;
  /// 1 = at the end, 0 = not at the end, -1 = not known without blocking.
  /// Throws CIOError kind 10 when closed.
  virtual int isEndOfStream_NonBlocking() const = 0;
};

}  // namespace qo

#endif  // QO_STREAM_IINSTREAM_H
