#include "qo/stream/CPartialIOStream.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "qo/core/CIOError.h"
#include "qo/core/TBuffer.h"
#include "qo/stream/CBufferStream.h"
#include "stream/StreamTestSupport.h"

using qo::CBufferStream;
using qo::CIOError;
using qo::CPartialIOStream;
using qo::P;
using qo::String;
using qo::TBuffer;
using qo::TConstBufferSlice;
using qo::test::ioError;

namespace {
using Bytes = TBuffer<unsigned char>;

struct Fixture {
  explicit Fixture(std::string const& text, long long start, long long length) {
    bytes = qo::newP<Bytes>(reinterpret_cast<unsigned char const*>(text.data()), static_cast<long long>(text.size()));
    inner = qo::newP<CBufferStream>(bytes.get());
    view = qo::newP<CPartialIOStream>(inner.get(), start, length);
  }
  std::string content() const {
    return std::string(reinterpret_cast<char const*>(bytes->getData()), static_cast<std::size_t>(bytes->getSize()));
  }
  P<Bytes> bytes;
  P<CBufferStream> inner;
  P<CPartialIOStream> view;
};
}  // namespace

TEST(CPartialIOStreamTest, WritesLandAtTheTranslatedPosition) {
  Fixture f("0123456789", 3, 4);
  f.view->write("ab", 2);
  P<Bytes> const xy = qo::newP<Bytes>(reinterpret_cast<unsigned char const*>("XY"), 2);
  f.view->writeKeepBuffer(TConstBufferSlice<unsigned char>(xy));
  EXPECT_EQ(f.content(), "012abXY789");
  EXPECT_EQ(f.view->getPosition(), 4);
  f.view->seek(1);
  char c;
  f.view->read(&c, 1);
  EXPECT_EQ(c, 'b');
  EXPECT_TRUE(f.view->createWriteBarrier(nullptr));
  f.view->flush();
}

TEST(CPartialIOStreamTest, WritesPastTheViewAreRefused) {
  Fixture f("0123456789", 3, 4);
  f.view->seek(3);
  P<Bytes> two = qo::newP<Bytes>(reinterpret_cast<unsigned char const*>("XY"), 2);
  struct Case {
    char const* place;
    std::function<void()> call;
  } const cases[] = {
      {"CPartialIOStream::write", [&] { f.view->write("ab", 2); }},
      {"CPartialIOStream::writeKeepBuffer", [&] { f.view->writeKeepBuffer(TConstBufferSlice<unsigned char>(two)); }},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.place);
    auto error = ioError(c.call, CIOError::kWriteFailed, u"write beyond the end of the partial stream");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getTraceListString(), String(c.place));
    EXPECT_EQ(error->getParams().lookupLong(u"pos", -1), 3);
    EXPECT_EQ(error->getParams().lookupLong(u"size", -1), 2);
    EXPECT_EQ(error->getParams().lookupLong(u"length", -1), 4);
  }
  EXPECT_EQ(f.content(), "0123456789");
}

TEST(CPartialIOStreamTest, SetLengthOnlyWhereTheViewEndsWithItsInnerStream) {
  Fixture middle("0123456789", 3, 4);
  middle.view->setLength(4);  // unchanged: allowed anywhere
  ioError([&] { middle.view->setLength(2); }, CIOError::kResizeFailed,
          u"the partial stream does not end at the end of its inner stream");
  EXPECT_EQ(middle.content(), "0123456789");

  Fixture tail("0123456789", 6, 4);
  tail.view->seek(4);
  tail.view->setLength(2);
  EXPECT_EQ(tail.content(), "01234567");
  EXPECT_EQ(tail.view->getLength(), 2);
  EXPECT_EQ(tail.view->getPosition(), 2);
  tail.view->setLength(5);
  EXPECT_EQ(tail.bytes->getSize(), 11);
  tail.view->write("abc", 3);
  EXPECT_EQ(tail.content(), std::string("01234567abc", 11));
}
