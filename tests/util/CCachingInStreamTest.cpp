#include "qo/util/CCachingInStream.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/stream/CBufferStream.h"
#include "stream/StreamTestSupport.h"

using qo::CBufferStream;
using qo::CCachingInStream;
using qo::CDataCache;
using qo::CIOError;
using qo::CURI;
using qo::P;
using Bytes = qo::TBuffer<unsigned char>;

namespace {

/// A read-only memory stream with a URI that counts its reads.
class CCountingStream : public CBufferStream {
public:
  CCountingStream(Bytes const* bytes, CURI const& uri) : CBufferStream(bytes) { setURI(uri); }
  int readLax(void* buffer, int size) override {
    ++reads;
    return CBufferStream::readLax(buffer, size);
  }
  std::atomic<int> reads{0};
};

P<Bytes> randomBytes(int size, unsigned seed) {
  std::mt19937 random(seed);
  P<Bytes> bytes = qo::newP<Bytes>(size);
  for (int i = 0; i < size; ++i) (*bytes)[i] = static_cast<unsigned char>(random());
  return bytes;
}

}  // namespace

// Random seeks and reads give the inner bytes for any block size; a second
// stream on the same URI is served from the cache alone.
TEST(CCachingInStreamTest, ReadsMatchTheInnerStreamAndShareBlocks) {
  CURI const uri(u"file:///data/c.bin");
  P<Bytes> const bytes = randomBytes(10000, 3);
  for (int blockSize : {13, 4096, 100000}) {
    SCOPED_TRACE(blockSize);
    P<CDataCache> cache = qo::newP<CDataCache>(1 << 20);
    P<CCountingStream> first = qo::newP<CCountingStream>(bytes.get(), uri);
    P<CCachingInStream> in = qo::newP<CCachingInStream>(first.get(), cache.get(), blockSize);
    std::mt19937 random(static_cast<unsigned>(blockSize));
    std::vector<unsigned char> got(3000);
    for (int i = 0; i < 150; ++i) {
      long long const at = static_cast<long long>(random() % 10001);
      int const size = static_cast<int>(random() % 3000);
      in->seek(at);
      int const n = in->readLax(got.data(), size);
      ASSERT_EQ(n, static_cast<int>(std::min<long long>(size, 10000 - at)));
      ASSERT_EQ(0, std::memcmp(got.data(), bytes->getData() + at, static_cast<std::size_t>(n)));
      ASSERT_EQ(in->getPosition(), at + n);
    }
    std::vector<unsigned char> all(10000);
    in->seek(0);
    in->read(all.data(), 10000);
    EXPECT_TRUE(in->isEndOfStream());
    P<CCountingStream> second = qo::newP<CCountingStream>(bytes.get(), uri);
    P<CCachingInStream> again = qo::newP<CCachingInStream>(second.get(), cache.get(), blockSize);
    again->read(all.data(), 10000);
    EXPECT_EQ(0, std::memcmp(all.data(), bytes->getData(), all.size()));
    EXPECT_EQ(second->reads.load(), 0);
    qo::test::ioError([&] { again->read(all.data(), 1); }, CIOError::kUnexpectedEOF);
  }
}

// Streams in many threads over one small cache: contents stay right and the
// budget holds.
TEST(CCachingInStreamTest, ManyThreadsShareOneSmallCache) {
  CURI const uri(u"file:///data/shared.bin");
  P<Bytes> const bytes = randomBytes(64 * 512 + 100, 9);
  P<CDataCache> cache = qo::newP<CDataCache>(5 * 512);
  std::atomic<int> faults{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 6; ++t) {
    threads.emplace_back([&, t] {
      P<CCachingInStream> in =
          qo::newP<CCachingInStream>(qo::newP<CCountingStream>(bytes.get(), uri).get(), cache.get(), 512);
      std::mt19937 random(static_cast<unsigned>(t));
      unsigned char got[1500];
      for (int i = 0; i < 1000; ++i) {
        long long const at = static_cast<long long>(random() % static_cast<unsigned>(bytes->getSize()));
        in->seek(at);
        int const n = in->readLax(got, static_cast<int>(random() % sizeof got));
        if (std::memcmp(got, bytes->getData() + at, static_cast<std::size_t>(n)) != 0) ++faults;
        if (cache->getUsedBytes() > 5 * 512) ++faults;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(faults.load(), 0);
  EXPECT_GT(cache->getStats().hits, 0);
}

TEST(CCachingInStreamTest, RefusesBadInputAndUseAfterClose) {
  P<Bytes> const bytes = randomBytes(100, 1);
  P<CDataCache> cache = qo::newP<CDataCache>(1000);
  P<CBufferStream> noURI = qo::newP<CBufferStream>(static_cast<Bytes const*>(bytes.get()));
  qo::test::catchError<qo::CInvalidArgError>([&] { (void)qo::newP<CCachingInStream>(noURI.get(), cache.get()); });
  P<CCachingInStream> in =
      qo::newP<CCachingInStream>(qo::newP<CCountingStream>(bytes.get(), CURI(u"file:///x")).get(), cache.get(), 16);
  in->seek(100);
  qo::test::ioError([&] { in->seek(101); }, CIOError::kSeekFailed);
  qo::test::ioError([&] { in->seek(-1); }, CIOError::kSeekFailed);
  in->close();
  char c;
  qo::test::ioError([&] { in->read(&c, 1); }, CIOError::kStreamClosed);
  qo::test::ioError([&] { (void)in->isEndOfStream(); }, CIOError::kStreamClosed);
}
