// qo/stream/CLaggingEOFInStreamBase.h - the base of input streams whose
// source learns of its end only by trying to read (pipes, sockets, child
// process output).
//
// To answer isEndOfStream() such a stream reads one byte ahead and keeps it;
// the next read delivers it first, and getPosition() does not count it. A
// subclass supplies the source operations below and inherits read,
// readLax, readAvailable, isEndOfStream, isEndOfStream_NonBlocking,
// getPosition, seek and waitReadable; it still implements getLength, getURI,
// lockRange and close.
//
//   class CPipeInStream : public CLaggingEOFInStreamBase {
//     int readSourceBlocking(void* b, int n) override { return pipeRead(b, n); }
//     ...
//   };
//
// Not thread-safe.
#ifndef QO_STREAM_CLAGGINGEOFINSTREAMBASE_H
#define QO_STREAM_CLAGGINGEOFINSTREAMBASE_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/stream/IInStream.h"

namespace qo {

/// An input stream with a one-byte look-ahead for its end. Not thread-safe.
class QO_API CLaggingEOFInStreamBase : public CBase, public IInStream {
public:
  ~CLaggingEOFInStreamBase() override;

  /// The source's position, less the byte held ahead.
  long long getPosition() const override;
  /// Seeks the source and drops the held byte. Throws CIOError kind 10 when
  /// not open, and what the source throws.
  void seek(long long position) override;
  /// Throws CIOError kind 4 when fewer than size bytes came.
  void read(void* buffer, int size) override;
  /// The held byte, then a blocking source read for the rest. A size below
  /// 1 gives 0. Throws CIOError kind 10 when not open.
  int readLax(void* buffer, int size) override;
  /// As readLax with a non-blocking source read.
  int readAvailable(void* buffer, int size) override;
  /// True while a byte is held, else waitSourceReadable().
  bool waitReadable(int timeoutMs) const override;
  /// False while a byte is held; else true when the source is at its end
  /// or a blocking read of one byte brings nothing (a byte that comes is
  /// held). Throws CIOError kind 10
  /// when not open.
  bool isEndOfStream() const override;
  /// As isEndOfStream with a non-blocking read: 1, 0, or -1 when no byte
  /// came and the source does not know its end yet.
  int isEndOfStream_NonBlocking() const override;

protected:
  CLaggingEOFInStreamBase() = default;

  /// False once the source is closed.
  virtual bool isSourceOpen() const = 0;
  /// Throws the stream's CIOError of the given kind (with its URI).
  [[noreturn]] virtual void throwSourceError(long long kind) const = 0;
  /// Reads up to size (>= 1) bytes, blocking until at least one came or the
  /// end; returns the count (0 at the end).
  virtual int readSourceBlocking(void* buffer, int size) = 0;
  /// Reads what the source has now, possibly 0.
  virtual int readSourceNonBlocking(void* buffer, int size) = 0;
  /// True when the source knows that it has ended.
  virtual bool isSourceAtEnd() const = 0;
  /// The count of bytes taken from the source so far (or its seek position).
  virtual long long getSourcePosition() const = 0;
  /// Moves the source; throws when it cannot.
  virtual void seekSource(long long position) = 0;
  /// True once the source has data or its end; false when timeoutMs (-1 =
  /// no limit) ran out. Default: true (a source whose reads do not block).
  virtual bool waitSourceReadable(int timeoutMs) const;

  /// True while a byte read ahead is held.
  bool hasLookAheadByte() const noexcept { return m_hasLookAhead; }

private:
  int readWithLookAhead(void* buffer, int size, bool blocking);
  void checkOpen() const;

  // Reading ahead in an end query changes no observable state: the byte is
  // delivered by the next read and the position does not count it.
  mutable unsigned char m_lookAhead = 0;
  mutable bool m_hasLookAhead = false;
};

}  // namespace qo

#endif  // QO_STREAM_CLAGGINGEOFINSTREAMBASE_H
