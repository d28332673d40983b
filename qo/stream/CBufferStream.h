// qo/stream/CBufferStream.h - a stream over a memory buffer.
//
// The stream reads and writes a TBuffer<unsigned char> that it shares with
// its creator: the buffer's size is the stream's length, its capacity the
// room for writing without reallocation. Two forms:
// - writable, from a TBuffer* and a growth factor: a write past the capacity
//   reallocates to max(capacity x growth factor, position + size), so a
//   stream of many small writes grows geometrically;
// - read-only, from a const TBuffer*: writes and setLength throw CIOError
//   kind 3.
// Positions run from 0 to the buffer's size. After close() every transfer,
// seek and end query throws CIOError kind 10. Range locks are refused.
//
//   P<TBuffer<unsigned char>> bytes = newP<TBuffer<unsigned char>>();
//   P<CBufferStream> out = newP<CBufferStream>(bytes.get());
//   out->write("abc", 3);
//   P<CBufferStream> in = newP<CBufferStream>(static_cast<TBuffer<unsigned char> const*>(bytes.get()));
//
// Not thread-safe.
#ifndef QO_STREAM_CBUFFERSTREAM_H
#define QO_STREAM_CBUFFERSTREAM_H

#include <cstddef>
#include <cstring>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/core/TBuffer.h"
#include "qo/fs/CURI.h"
#include "qo/stream/IIOStream.h"

namespace qo {

/// An input and output stream over a shared byte buffer. Not thread-safe.
class QO_API CBufferStream : public CBase, public IIOStream {
public:
  using Buffer = TBuffer<unsigned char>;

  /// Writable, over a new empty buffer, growth factor 2.
  CBufferStream();
  /// Writable, over buffer (shared; null: a new empty buffer), position 0.
  /// growthFactor scales the capacity when a write needs more room.
  explicit CBufferStream(Buffer* buffer, double growthFactor = 2.0);
  /// Read-only, over buffer (shared; null: an empty buffer), position 0.
  explicit CBufferStream(Buffer const* buffer);
  ~CBufferStream() override;
  CBufferStream(CBufferStream const&) = delete;
  CBufferStream& operator=(CBufferStream const&) = delete;

  /// The buffer; nil for the read-only form.
  P<Buffer> getBuffer();
  /// The buffer, read-only; set in both forms.
  PC<Buffer> getBuffer() const { return m_constBuffer; }
  /// The whole content as text, read as UTF-8 where it is valid and as
  /// Latin-1 elsewhere (never throws for encoding reasons).
  String getDataAsString() const;
  /// True for the read-only form.
  bool isReadOnly() const noexcept { return !m_buffer; }
  /// Sets the URI that getURI() reports and errors carry (default: empty).
  void setURI(CURI const& uri);

  // IStreamBase
  /// The buffer's size.
  long long getLength() const override;
  long long getPosition() const override;
  CURI getURI() override;
  /// Accepts 0 <= position <= getLength(); otherwise throws CIOError kind 7
  /// (properties "pos", "length"). Kind 10 when closed.
  void seek(long long position) override;
  /// Always throws CIOError kind 14 "Buffer stream does not support range
  /// locking.".
  P<IStreamLock> lockRange(long long start, long long length, LockType type) override;
  /// Later transfers, seeks and end queries throw CIOError kind 10. The
  /// buffer is kept.
  void close() override;

  // IInStream
  /// Throws CIOError kind 4 when fewer than size bytes remain (those are
  /// consumed), kind 10 when closed; CInvalidArgError for a negative size.
  void read(void* buffer, int size) override;
  /// min(size, bytes left) bytes. Throws as read() except for the end.
  int readLax(void* buffer, int size) override;
  /// Same as readLax.
  int readAvailable(void* buffer, int size) override;
  /// True: memory never makes a reader wait.
  bool waitReadable(int timeoutMs) const override;
  /// position >= length. Throws CIOError kind 10 when closed.
  bool isEndOfStream() const override;
  /// isEndOfStream() as 1 or 0.
  int isEndOfStream_NonBlocking() const override;

  // IOutStream
  /// Writes at the position, growing the buffer as described at the top.
  /// Throws CIOError kind 3 for the read-only form, 10 when closed;
  /// CInvalidArgError for a negative size.
  void write(void const* data, int size, IWriteBarrier* barrier = nullptr) override;
  /// Copies the slice's bytes as write() does.
  void writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier = nullptr) override;
  /// A new CDummyWriteBarrier: writes are complete at once.
  P<IWriteBarrier> createWriteBarrier(IWriteBarrier* previous) override;
  /// Nothing to push.
  void flush() override;
  /// Cuts or extends the buffer (new bytes are 0); a position beyond the
  /// new end moves to it. Throws CIOError kind 3 for the read-only form, 10
  /// when closed; CInvalidArgError for a negative length.
  void setLength(long long length) override;

  // --- inline transfers for record writers and readers ----------------------
  /// Copies size bytes from data (which must not lie in the buffer) to the
  /// position, as write() would, when the stream is open and writable and
  /// they fit the capacity; returns false with nothing done otherwise, and
  /// the caller then calls write(). Not thread-safe.
  bool tryWriteInPlace(void const* data, std::size_t size) noexcept {
    Buffer* const buffer = m_pOpenBuffer;
    if (buffer == nullptr) return false;
    long long const end = m_position + static_cast<long long>(size);
    if (end > buffer->getCapacity()) return false;
    if (end > buffer->getSize()) buffer->setSizeWithinCapacity(end);
    std::memcpy(buffer->getData() + m_position, data, size);
    m_position = end;
    return true;
  }
  /// Copies size bytes at the position to data and moves past them, as
  /// read() would, when the stream is open and that many bytes are left;
  /// returns false with nothing done otherwise, and the caller then calls
  /// read(). Not thread-safe.
  bool tryReadInPlace(void* data, std::size_t size) noexcept {
    Buffer const* const buffer = m_pOpenConstBuffer;
    if (buffer == nullptr) return false;
    long long const end = m_position + static_cast<long long>(size);
    if (end > buffer->getSize()) return false;
    std::memcpy(data, buffer->getData() + m_position, size);
    m_position = end;
    return true;
  }

private:
  void checkOpen(char const* place) const;
  void checkWritable(char const* place) const;
  void writeBytes(void const* data, long long size);
  void const* grow(long long end, void const* data);

  P<Buffer> m_buffer;          // null for the read-only form
  PC<Buffer> m_constBuffer;    // always set
  // The buffers while the stream is open (m_pOpenBuffer only when
  // writable), null after close(): the inline transfers test one pointer.
  Buffer* m_pOpenBuffer = nullptr;
  Buffer const* m_pOpenConstBuffer = nullptr;
  double m_growthFactor = 2.0;
  long long m_position = 0;
  bool m_closed = false;
  CURI m_uri;
};

}  // namespace qo

#endif  // QO_STREAM_CBUFFERSTREAM_H
