// qo/stream/CZeroInStream.h - an input stream of a given length whose every
// byte is 0.
//
// Seekable within 0..length; its URI is "zerostream". Range locks are
// refused (CIOError kind 14). After close() transfers, seeks and end queries
// throw CIOError kind 10.
//
//   P<IInStream> padding = newP<CZeroInStream>(4096);
//
// Not thread-safe.
#ifndef QO_STREAM_CZEROINSTREAM_H
#define QO_STREAM_CZEROINSTREAM_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/fs/CURI.h"
#include "qo/stream/IInStream.h"

namespace qo {

/// length zero bytes. Not thread-safe.
class QO_API CZeroInStream : public CBase, public IInStream {
public:
  /// A stream of length zero bytes. Throws CInvalidArgError for a negative
  /// length.
  explicit CZeroInStream(long long length);
  ~CZeroInStream() override;
  CZeroInStream(CZeroInStream const&) = delete;
  CZeroInStream& operator=(CZeroInStream const&) = delete;

  long long getLength() const override;
  long long getPosition() const override;
  CURI getURI() override;
  /// Accepts 0..length, else CIOError kind 7 (properties "pos", "length").
  void seek(long long position) override;
  /// Throws CIOError kind 14: there is nothing to lock.
  P<IStreamLock> lockRange(long long start, long long length, LockType type) override;
  void close() override;
  /// Throws CIOError kind 4 when fewer than size bytes remain.
  void read(void* buffer, int size) override;
  /// min(size, bytes left) zero bytes.
  int readLax(void* buffer, int size) override;
  /// Same as readLax.
  int readAvailable(void* buffer, int size) override;
  /// True.
  bool waitReadable(int timeoutMs) const override;
  bool isEndOfStream() const override;
  int isEndOfStream_NonBlocking() const override;

protected:
  /// For subclasses that report another URI.
  CZeroInStream(long long length, CURI const& uri);

private:
  void checkOpen(char const* place) const;

  long long m_length;
  long long m_position = 0;
  bool m_closed = false;
  CURI m_uri;
};

}  // namespace qo

#endif  // QO_STREAM_CZEROINSTREAM_H
