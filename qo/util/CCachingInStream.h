// qo/util/CCachingInStream.h - an input stream that reads through a
// CDataCache.
//
// The stream cuts its inner stream into blocks of getBlockSize() bytes at
// multiples of that size and keys each by the inner URI and the block's
// offset. A read takes the block from the cache, or reads it from the inner
// stream (seeking there) and puts it into the cache; several streams on the
// same URI, in any threads, share the blocks. Rules:
// - The inner URI must not be empty: it is the cache key.
// - The length is the inner length when the stream was made; a block
//   shorter than the block size ends the stream early.
// - The inner stream is read only for blocks that are missing, so its
//   position says nothing about this stream's position.
// - After close() transfers, seeks and end queries throw CIOError kind 10.
//
//   P<IInStream> in = newP<CCachingInStream>(file.get());   // CDataCache::get()
//   in->seek(1 << 20);
//   in->read(header, 64);    // a second stream on the same file hits the cache
//
// Not thread-safe (each stream); the cache it shares is.
#ifndef QO_UTIL_CCACHINGINSTREAM_H
#define QO_UTIL_CCACHINGINSTREAM_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/fs/CURI.h"
#include "qo/stream/IInStream.h"
#include "qo/util/CDataCache.h"

namespace qo {

/// An input stream served from a shared block cache. Not thread-safe.
class QO_API CCachingInStream : public CBase, public IInStream {
public:
  static constexpr int kDefaultBlockSize = 64 * 1024;

  /// Shares inner (not null) and cache (null: CDataCache::get()); position
  /// 0. Throws CInvalidArgError ("CCachingInStream constructor") for an
  /// inner stream with an empty URI or an unknown length, or a blockSize
  /// below 1; what the inner getURI and getLength throw.
  explicit CCachingInStream(IInStream* inner, CDataCache* cache = nullptr, int blockSize = kDefaultBlockSize);
  ~CCachingInStream() override;
  CCachingInStream(CCachingInStream const&) = delete;
  CCachingInStream& operator=(CCachingInStream const&) = delete;

  int getBlockSize() const noexcept { return m_blockSize; }
  P<CDataCache> const& getCache() const noexcept { return m_cache; }

  // IStreamBase
  long long getLength() const override;
  long long getPosition() const override;
  /// The inner URI.
  CURI getURI() override;
  /// Accepts 0 <= position <= getLength(); otherwise throws CIOError kind 7
  /// (properties "pos", "length"); kind 10 when closed.
  void seek(long long position) override;
  /// Forwarded to the inner stream.
  P<IStreamLock> lockRange(long long start, long long length, LockType type) override;
  /// Closes the inner stream. Idempotent.
  void close() override;

  // IInStream
  /// Throws CIOError kind 4 (properties "bytesRead", "toRead") when the
  /// stream ends first, kind 10 when closed, what the inner stream throws;
  /// CInvalidArgError for a negative size.
  void read(void* buffer, int size) override;
  /// Up to size bytes; fewer only at the end.
  int readLax(void* buffer, int size) override;
  /// Same as readLax.
  int readAvailable(void* buffer, int size) override;
  /// True.
  bool waitReadable(int timeoutMs) const override;
  /// position >= getLength(). Throws CIOError kind 10 when closed.
  bool isEndOfStream() const override;
  int isEndOfStream_NonBlocking() const override;

private:
  void checkOpen(char const* place) const;
  PC<CDataCache::Block> fetch(long long blockStart);

  P<IInStream> m_inner;
  P<CDataCache> m_cache;
  CURI m_uri;
  int m_blockSize;
  long long m_length = 0;
  long long m_position = 0;
  bool m_closed = false;
  PC<CDataCache::Block> m_current;  // the last block used, kept for the next small read
  long long m_currentStart = -1;
};

}  // namespace qo

#endif  // QO_UTIL_CCACHINGINSTREAM_H
