#include "qo/stream/CBufferStream.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CIOError.h"
#include "qo/stream/CDummyWriteBarrier.h"
#include "stream/StreamTestSupport.h"

using qo::CBufferStream;
using qo::CDummyWriteBarrier;
using qo::CIOError;
using qo::CURI;
using qo::IStreamBase;
using qo::IWriteBarrier;
using qo::P;
using qo::PC;
using qo::String;
using qo::TBuffer;
using qo::TConstBufferSlice;
using qo::test::catchError;
using qo::test::ioError;

namespace {
using Bytes = TBuffer<unsigned char>;

std::string contentOf(Bytes const& bytes) {
  return std::string(reinterpret_cast<char const*>(bytes.getData()), static_cast<std::size_t>(bytes.getSize()));
}

P<Bytes> bytesOf(std::string const& text) {
  return qo::newP<Bytes>(reinterpret_cast<unsigned char const*>(text.data()), static_cast<long long>(text.size()));
}
}  // namespace

TEST(CBufferStreamTest, GrowthIsTheLargerOfScaledCapacityAndNeed) {
  struct Case {
    double factor;
    long long capacities[4];  // after writes of 10, 1, 1 and 100 bytes
  } const cases[] = {
      {2.0, {10, 20, 20, 112}},
      {1.5, {10, 15, 15, 112}},
      {1.0, {10, 11, 12, 112}},
      {3.7, {10, 37, 37, 136}},  // 37 x 3.7 = 136.9, cut to 136
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.factor);
    P<Bytes> bytes = qo::newP<Bytes>();
    P<CBufferStream> stream = qo::newP<CBufferStream>(bytes.get(), c.factor);
    std::string const block(100, 'x');
    int const sizes[] = {10, 1, 1, 100};
    for (int i = 0; i < 4; ++i) {
      stream->write(block.data(), sizes[i]);
      EXPECT_EQ(bytes->getCapacity(), c.capacities[i]) << "write " << i;
    }
    EXPECT_EQ(bytes->getSize(), 112);
    EXPECT_EQ(stream->getPosition(), 112);
  }
}

TEST(CBufferStreamTest, WritesOverwriteAndExtend) {
  P<Bytes> bytes = bytesOf("abcdef");
  P<CBufferStream> stream = qo::newP<CBufferStream>(bytes.get());
  EXPECT_EQ(stream->getPosition(), 0);
  stream->seek(2);
  stream->write("XY", 2);
  EXPECT_EQ(contentOf(*bytes), "abXYef");
  stream->seek(5);
  stream->write("123", 3);
  EXPECT_EQ(contentOf(*bytes), "abXYe123");
  EXPECT_EQ(stream->getLength(), 8);
  stream->write("", 0);
  EXPECT_EQ(stream->getPosition(), 8);
}

TEST(CBufferStreamTest, AWriteOfItsOwnBytesSurvivesGrowth) {
  P<Bytes> bytes = bytesOf("0123456789");
  bytes->shrinkToFit();
  P<CBufferStream> stream = qo::newP<CBufferStream>(bytes.get());
  stream->seek(10);
  stream->writeKeepBuffer(TConstBufferSlice<unsigned char>(bytes, 2, 5));
  EXPECT_EQ(contentOf(*bytes), "012345678923456");
}

TEST(CBufferStreamTest, ReadsDeliverWhatIsLeft) {
  P<CBufferStream> stream = qo::newP<CBufferStream>(static_cast<Bytes const*>(bytesOf("hello world").get()));
  char out[16] = {};
  EXPECT_EQ(stream->readLax(out, 5), 5);
  EXPECT_EQ(std::string(out, 5), "hello");
  EXPECT_EQ(stream->isEndOfStream_NonBlocking(), 0);
  EXPECT_EQ(stream->readAvailable(out, 16), 6);
  EXPECT_EQ(std::string(out, 6), " world");
  EXPECT_TRUE(stream->isEndOfStream());
  EXPECT_EQ(stream->isEndOfStream_NonBlocking(), 1);
  EXPECT_EQ(stream->readLax(out, 16), 0);
  EXPECT_TRUE(stream->waitReadable(0));

  stream->seek(8);
  ioError([&] { stream->read(out, 4); }, CIOError::kUnexpectedEOF, u"Unexpected end of data.");
  EXPECT_EQ(std::string(out, 3), "rld");
  EXPECT_EQ(stream->getPosition(), 11);
}

TEST(CBufferStreamTest, SeekAcceptsZeroToLength) {
  P<CBufferStream> stream = qo::newP<CBufferStream>(bytesOf("abc").get());
  for (long long p : {0LL, 3LL, 1LL}) {
    stream->seek(p);
    EXPECT_EQ(stream->getPosition(), p);
  }
  for (long long p : {-1LL, 4LL, 1000LL}) {
    SCOPED_TRACE(p);
    auto error = ioError([&] { stream->seek(p); }, CIOError::kSeekFailed);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getParams().lookupLong(u"pos", 0), p);
    EXPECT_EQ(error->getParams().lookupLong(u"length", 0), 3);
    EXPECT_EQ(stream->getPosition(), 1);
  }
}

TEST(CBufferStreamTest, TheReadOnlyFormRefusesEveryWrite) {
  P<Bytes> bytes = bytesOf("data");
  P<CBufferStream> stream = qo::newP<CBufferStream>(static_cast<Bytes const*>(bytes.get()));
  EXPECT_TRUE(stream->isReadOnly());
  EXPECT_TRUE(stream->getBuffer().isNull());
  EXPECT_EQ(static_cast<CBufferStream const&>(*stream).getBuffer().get(), bytes.get());
  std::function<void()> const calls[] = {
      [&] { stream->write("x", 1); },
      [&] { stream->writeKeepBuffer(TConstBufferSlice<unsigned char>(bytes, 0, 1)); },
      [&] { stream->setLength(1); },
  };
  for (auto const& call : calls) ioError(call, CIOError::kWriteFailed, u"Error writing data.");
  EXPECT_EQ(contentOf(*bytes), "data");
  char out[4];
  stream->read(out, 4);
  EXPECT_EQ(std::string(out, 4), "data");
}

TEST(CBufferStreamTest, AClosedStreamRefusesTransfersSeeksAndEndQueries) {
  P<CBufferStream> stream = qo::newP<CBufferStream>(bytesOf("abc").get());
  stream->setURI(CURI(String(u"mem:closed")));
  stream->close();
  char out[4];
  std::function<void()> const calls[] = {
      [&] { stream->read(out, 1); },          [&] { stream->readLax(out, 1); },
      [&] { stream->readAvailable(out, 1); }, [&] { stream->write("x", 1); },
      [&] { stream->seek(0); },               [&] { stream->isEndOfStream(); },
      [&] { stream->isEndOfStream_NonBlocking(); }, [&] { stream->setLength(0); },
  };
  for (std::size_t i = 0; i < sizeof calls / sizeof calls[0]; ++i) {
    SCOPED_TRACE(i);
    auto error = ioError(calls[i], CIOError::kStreamClosed, u"Error: stream has been closed.");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getParams().lookup(CIOError::paramURI()), String(u"mem:closed"));
  }
  EXPECT_EQ(stream->getLength(), 3);
}

TEST(CBufferStreamTest, RangeLocksAreRefusedAndWriteBarriersAreNewDummies) {
  P<CBufferStream> stream = qo::newP<CBufferStream>();
  auto error = catchError<CIOError>([&] { (void)stream->lockRange(0, 1, IStreamBase::LockShared); });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->getMessage(), String(u"Buffer stream does not support range locking."));
  P<IWriteBarrier> first = stream->createWriteBarrier(nullptr);
  P<IWriteBarrier> second = stream->createWriteBarrier(first.get());
  ASSERT_TRUE(first);
  EXPECT_NE(first, second);
  EXPECT_NE(dynamic_cast<CDummyWriteBarrier*>(second.get()), nullptr);
  stream->write("ab", 2, second.get());
  EXPECT_EQ(stream->getLength(), 2);
}

TEST(CBufferStreamTest, SetLengthZeroFillsAndNegativeSizesAreInvalid) {
  P<Bytes> bytes = bytesOf("abcdef");
  P<CBufferStream> stream = qo::newP<CBufferStream>(bytes.get());
  stream->seek(6);
  stream->setLength(3);
  EXPECT_EQ(stream->getPosition(), 3);
  stream->setLength(5);
  EXPECT_EQ(contentOf(*bytes), std::string("abc\0\0", 5));
  EXPECT_EQ(stream->getPosition(), 3);
  EXPECT_THROW(stream->setLength(-1), qo::CInvalidArgError);
  char out[1];
  EXPECT_THROW(stream->readLax(out, -1), qo::CInvalidArgError);
  EXPECT_THROW(stream->write(out, -1), qo::CInvalidArgError);
}

TEST(CBufferStreamTest, DataAsStringReadsUTF8WithLatin1Fallback) {
  struct Case {
    std::string bytes;
    char16_t const* text;
  } const cases[] = {{"", u""}, {"abc", u"abc"}, {"\xC3\xA9", u"\u00E9"}, {"a\xE9", u"a\u00E9"}};
  for (Case const& c : cases) {
    SCOPED_TRACE(c.bytes);
    P<CBufferStream> stream = qo::newP<CBufferStream>(bytesOf(c.bytes).get());
    EXPECT_EQ(stream->getDataAsString(), String(c.text));
    EXPECT_TRUE(stream->getURI().isEmpty());
  }
}
