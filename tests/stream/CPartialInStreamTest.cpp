#include "qo/stream/CPartialInStream.h"

#include <gtest/gtest.h>

#include <string>

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CIOError.h"
#include "stream/StreamTestSupport.h"

using qo::CInvalidArgError;
using qo::CIOError;
using qo::CPartialInStream;
using qo::IStreamBase;
using qo::IStreamLock;
using qo::P;
using qo::String;
using qo::test::catchError;
using qo::test::ioError;
using qo::test::CScriptedInStream;

namespace {
P<CScriptedInStream> inner(std::string data, int positionAlign = 1) {
  return qo::newP<CScriptedInStream>(std::move(data), String(u"test:inner"), positionAlign, 8, positionAlign * 2);
}
}  // namespace

TEST(CPartialInStreamTest, StartAndLengthMustFollowTheInnerAlignment) {
  P<CScriptedInStream> aligned = inner(std::string(4096, 'x'), 512);
  struct Case {
    long long start, length;
    char16_t const* text;
  } const cases[] = {
      {1000, 512, u"startPosition must be a multiple of the position alignment (startPos: 1000, posAlign: 512)"},
      {1024, 100, u"length must be a multiple of the position alignment (length: 100, posAlign: 512)"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.start);
    auto error =
        catchError<CInvalidArgError>([&] { (void)qo::newP<CPartialInStream>(aligned.get(), c.start, c.length); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage(),
              u"Invalid argument passed to 'CPartialInStream constructor': " + String(c.text) + u".");
  }
  P<CPartialInStream> view = qo::newP<CPartialInStream>(aligned.get(), 1024, 512);
  EXPECT_EQ(view->getPositionAlign(), 512);
  EXPECT_EQ(view->getBufferAlign(), 8);
  EXPECT_EQ(view->getBestPerformancePositionAlign(), 1024);
  EXPECT_EQ(aligned->getPosition(), 1024);
}

TEST(CPartialInStreamTest, ReadsStayInsideTheView) {
  P<CScriptedInStream> source = inner("0123456789abcdef");
  P<CPartialInStream> view = qo::newP<CPartialInStream>(source.get(), 4, 6);
  EXPECT_EQ(view->getLength(), 6);
  EXPECT_EQ(view->getPosition(), 0);
  char out[16];
  EXPECT_EQ(view->readLax(out, 16), 6);
  EXPECT_EQ(std::string(out, 6), "456789");
  EXPECT_EQ(view->getPosition(), 6);
  EXPECT_EQ(view->readLax(out, 16), 0);
  EXPECT_TRUE(view->isEndOfStream());
  EXPECT_EQ(view->isEndOfStream_NonBlocking(), 1);
  EXPECT_EQ(source->getPosition(), 10);

  view->seek(2);
  EXPECT_EQ(view->readAvailable(out, 2), 2);
  EXPECT_EQ(std::string(out, 2), "67");
  EXPECT_FALSE(view->isEndOfStream());
  ioError([&] { view->read(out, 3); }, CIOError::kUnexpectedEOF);
}

TEST(CPartialInStreamTest, SeekAcceptsTheEndButNotBeyond) {
  P<CScriptedInStream> source = inner("0123456789");
  P<CPartialInStream> view = qo::newP<CPartialInStream>(source.get(), 2, 5);
  view->seek(5);
  EXPECT_EQ(source->getPosition(), 7);
  char out[4];
  EXPECT_EQ(view->readLax(out, 4), 0);
  for (long long p : {6LL, -1LL}) {
    SCOPED_TRACE(p);
    auto error = ioError([&] { view->seek(p); }, CIOError::kSeekFailed);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getParams().lookupLong(u"pos", 0), p);
    EXPECT_EQ(error->getParams().lookupLong(u"length", 0), 5);
  }
  EXPECT_EQ(view->getPosition(), 5);
}

TEST(CPartialInStreamTest, AnInnerStreamThatEndsEarlyIsAFault) {
  P<CScriptedInStream> source = inner("0123456789");
  P<CPartialInStream> view = qo::newP<CPartialInStream>(source.get(), 4, 10);
  char out[16];
  auto error = ioError([&] { view->readLax(out, 16); }, CIOError::kReadFailed,
                       u"inner stream of partial stream is too short");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->getParams().lookupLong(u"endPos", 0), 10);
  EXPECT_EQ(error->getParams().lookupLong(u"minExpectedLength", 0), 14);
  EXPECT_EQ(error->getParams().lookup(CIOError::paramURI()), String(u"test:inner"));
}

TEST(CPartialInStreamTest, LocksAreTranslatedAndBounded) {
  P<CScriptedInStream> source = inner(std::string(100, 'x'));
  P<CPartialInStream> view = qo::newP<CPartialInStream>(source.get(), 40, 20);
  P<IStreamLock> lock = view->lockRange(5, 10, IStreamBase::LockShared);
  ASSERT_EQ(source->locks().size(), 1u);
  EXPECT_EQ(source->locks()[0].start, 45);
  EXPECT_EQ(source->locks()[0].length, 10);
  for (auto range : {std::pair<long long, long long>{15, 6}, {-1, 2}, {0, -1}}) {
    SCOPED_TRACE(range.first);
    auto error = catchError<CInvalidArgError>(
        [&] { (void)view->lockRange(range.first, range.second, IStreamBase::LockShared); });
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->getMessage().StartsWith(u"Invalid argument passed to 'CPartialInStream::lockRange'"));
  }
  EXPECT_EQ(source->locks().size(), 1u);
}

TEST(CPartialInStreamTest, RefetchTakesTheInnerPositionAndCloseReachesIt) {
  P<CScriptedInStream> source = inner("0123456789");
  P<CPartialInStream> view = qo::newP<CPartialInStream>(source.get(), 2, 6);
  source->seek(5);
  EXPECT_EQ(view->getPosition(), 0);
  view->refetchPositionIgnoreErrors();
  EXPECT_EQ(view->getPosition(), 3);
  char c;
  view->read(&c, 1);
  EXPECT_EQ(c, '5');
  EXPECT_EQ(view->getURI().toString(true), String(u"test:inner"));
  view->close();
  EXPECT_TRUE(source->m_closed);
  char out[2];
  EXPECT_THROW(view->readLax(out, 2), CIOError);
}
