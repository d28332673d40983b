#include "qo/stream/CConcatInStream.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qo/core/CIOError.h"
#include "qo/core/ErrorLog.h"
#include "stream/StreamTestSupport.h"

using qo::CConcatInStream;
using qo::CError;
using qo::CIOError;
using qo::CURI;
using qo::IInStream;
using qo::IStreamBase;
using qo::IStreamLock;
using qo::P;
using qo::String;
using qo::TArray;
using qo::test::catchError;
using qo::test::ioError;
using qo::test::CScriptedInStream;

namespace {

P<CScriptedInStream> part(std::string data, char16_t const* uri, int positionAlign = 1, int bufferAlign = 1,
                          int bestAlign = 1) {
  return qo::newP<CScriptedInStream>(std::move(data), String(uri), positionAlign, bufferAlign, bestAlign);
}

P<CConcatInStream> join(std::vector<P<CScriptedInStream>> const& parts) {
  TArray<P<IInStream>> list(parts.begin(), parts.end());
  return qo::newP<CConcatInStream>(list, CURI(String(u"test:joined")));
}

std::string readAll(IInStream& in, int chunk) {
  std::string all;
  std::string buffer(static_cast<std::size_t>(chunk), '\0');
  while (int got = in.readLax(&buffer[0], chunk)) all.append(buffer, 0, static_cast<std::size_t>(got));
  return all;
}

}  // namespace

TEST(CConcatInStreamTest, EachPartMustStartAtItsOwnAlignment) {
  P<CConcatInStream> fine = join({part(std::string(512, 'a'), u"test:a"), part(std::string(100, 'b'), u"test:b", 512)});
  EXPECT_EQ(fine->getLength(), 612);
  EXPECT_EQ(fine->getPositionAlign(), 512);

  auto error = catchError<CError>(
      [] { join({part(std::string(100, 'a'), u"test:a"), part(std::string(512, 'b'), u"test:b", 512)}); });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->getMessage(),
            String(u"Cannot concatenate input streams. Stream 1 ('test:b') has the position alignment requirement 512 "
                   u"but its start position of 100 violates that."));
}

TEST(CConcatInStreamTest, AlignmentIsTheLeastCommonMultipleAndEveryLengthMustBeKnown) {
  P<CConcatInStream> joined =
      join({part(std::string(12, 'a'), u"test:a", 4, 8, 16), part(std::string(12, 'b'), u"test:b", 6, 3, 18)});
  EXPECT_EQ(joined->getPositionAlign(), 12);
  EXPECT_EQ(joined->getBufferAlign(), 24);
  EXPECT_EQ(joined->getBestPerformancePositionAlign(), 144);
  EXPECT_EQ(CConcatInStream::calcLCM(1, 1), 1);
  EXPECT_EQ(CConcatInStream::calcLCM(512, 4096), 4096);
  P<CScriptedInStream> unknown = part("xyz", u"test:pipe");
  unknown->m_reportedLength = -1;
  auto error = catchError<CError>([&] { join({part("ab", u"test:a"), unknown}); });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->getMessage(),
            String(u"Cannot concatenate input streams. Stream 1 ('test:pipe') does not know its length"));
}

TEST(CConcatInStreamTest, ReadsRunAcrossPartsIncludingEmptyOnes) {
  P<CConcatInStream> joined =
      join({part("abc", u"test:a"), part("", u"test:empty"), part("defg", u"test:b"), part("h", u"test:c")});
  EXPECT_EQ(joined->getLength(), 8);
  for (int chunk : {1, 2, 3, 5, 100}) {
    SCOPED_TRACE(chunk);
    joined->seek(0);
    EXPECT_EQ(readAll(*joined, chunk), "abcdefgh");
    EXPECT_TRUE(joined->isEndOfStream());
    EXPECT_EQ(joined->isEndOfStream_NonBlocking(), 1);
  }
  joined->seek(2);
  char out[4];
  joined->read(out, 4);
  EXPECT_EQ(std::string(out, 4), "cdef");
  EXPECT_EQ(joined->getPosition(), 6);
  EXPECT_EQ(joined->readAvailable(out, 4), 2);
  EXPECT_EQ(std::string(out, 2), "gh");
}

TEST(CConcatInStreamTest, SeekIsLazyAndAllowsTheEndButNotBeyond) {
  P<CScriptedInStream> a = part("abc", u"test:a");
  P<CScriptedInStream> b = part("def", u"test:b");
  P<CConcatInStream> joined = join({a, b});
  int const seeksBefore = a->m_seekCount + b->m_seekCount;
  joined->seek(4);
  joined->seek(4);
  EXPECT_EQ(a->m_seekCount + b->m_seekCount, seeksBefore);
  char out[8];
  EXPECT_EQ(joined->readLax(out, 1), 1);
  EXPECT_EQ(out[0], 'e');
  EXPECT_EQ(b->getPosition(), 2);

  joined->seek(6);
  EXPECT_EQ(joined->readLax(out, 8), 0);
  EXPECT_TRUE(joined->waitReadable(0));
  for (long long p : {7LL, -1LL}) {
    SCOPED_TRACE(p);
    auto error = ioError([&] { joined->seek(p); }, CIOError::kSeekFailed, u"Error seeking to new position.");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getParams().lookupLong(u"pos", 0), p);
    EXPECT_EQ(error->getParams().lookupLong(u"length", 0), 6);
    EXPECT_EQ(error->getTraceListString(), String(u"CConcatInStream::seek"));
  }
  EXPECT_EQ(joined->getPosition(), 6);
}

TEST(CConcatInStreamTest, ReadingPastTheEndRaisesUnexpectedEnd) {
  P<CConcatInStream> joined = join({part("ab", u"test:a"), part("c", u"test:b")});
  char out[8];
  auto error = ioError([&] { joined->read(out, 5); }, CIOError::kUnexpectedEOF);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->getTraceListString(), String(u"CConcatInStream::read"));
  EXPECT_EQ(std::string(out, 3), "abc");
}

namespace {
std::vector<std::string> g_logged;
void captureLog(CError const& error, String const& summary) {
  g_logged.push_back(summary.toUTF8() + " | " + error.getMessage().toUTF8());
}
}  // namespace

TEST(CConcatInStreamTest, AShortPartIsLoggedAndRaised) {
  P<CScriptedInStream> shrunk = part("defghi", u"test:shrunk");
  shrunk->m_reportedLength = 10;  // said 10 at construction, has 6
  P<CConcatInStream> joined = join({part("abc", u"test:a"), shrunk, part("z", u"test:c")});
  g_logged.clear();
  qo::ErrorLogHook const old = qo::setErrorLogHook(&captureLog);
  char out[32];
  joined->seek(1);
  auto error = ioError([&] { joined->readLax(out, 32); }, CIOError::kReadFailed, u"Error reading data.");
  qo::setErrorLogHook(old);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->getTraceListString(), String(u"CConcatInStream::readLax"));
  EXPECT_EQ(error->getParams().lookupLong(u"bytesRead", -1), 6);
  EXPECT_EQ(error->getParams().lookupLong(u"toRead", -1), 10);
  EXPECT_EQ(error->getParams().lookupLong(u"readPosition", -1), 3);
  EXPECT_EQ(error->getParams().lookupLong(u"streamEndPos", -1), 13);
  ASSERT_EQ(g_logged.size(), 1u);
  EXPECT_EQ(g_logged[0],
            "Error reading in CConcatInStream. Stream 'test:shrunk' has apparently changed its length since "
            "construction (bytesRead: 6, toRead: 10, readPosition: 3, streamEndPos: 13) | Error reading data.");
  EXPECT_EQ(joined->getPosition(), 9);
}

TEST(CConcatInStreamTest, LocksCoverTheTouchedPartsAndGoTogether) {
  P<CScriptedInStream> a = part("abcd", u"test:a");
  P<CScriptedInStream> b = part("efgh", u"test:b");
  P<CScriptedInStream> c = part("ijkl", u"test:c");
  P<CConcatInStream> joined = join({a, b, c});
  P<IStreamLock> lock = joined->lockRange(2, 8, IStreamBase::LockExclusive);
  struct Expected {
    CScriptedInStream* part;
    long long start, length;
  } const expected[] = {{a.get(), 2, 2}, {b.get(), 0, 4}, {c.get(), 0, 2}};
  for (Expected const& e : expected) {
    ASSERT_EQ(e.part->locks().size(), 1u);
    EXPECT_EQ(e.part->locks()[0].start, e.start);
    EXPECT_EQ(e.part->locks()[0].length, e.length);
    EXPECT_EQ(e.part->locks()[0].type, IStreamBase::LockExclusive);
  }
  auto* joint = dynamic_cast<CConcatInStream::CStreamLock*>(lock.get());
  ASSERT_NE(joint, nullptr);
  EXPECT_EQ(joint->getPartLocks().size(), 3u);
  EXPECT_FALSE(b->locks()[0].released);
  lock = qo::nil;
  for (Expected const& e : expected) EXPECT_TRUE(e.part->locks()[0].released);

  P<IStreamLock> onlyB = joined->lockRange(4, 4, IStreamBase::LockShared);
  EXPECT_EQ(a->locks().size(), 1u);
  EXPECT_EQ(b->locks().size(), 2u);
  EXPECT_EQ(c->locks().size(), 1u);
}

TEST(CConcatInStreamTest, CloseClosesThePartsAndEndsReading) {
  P<CScriptedInStream> a = part("ab", u"test:a");
  P<CScriptedInStream> b = part("cd", u"test:b");
  P<CConcatInStream> joined = join({a, b});
  joined->close();
  EXPECT_TRUE(a->m_closed);
  EXPECT_TRUE(b->m_closed);
  char out[2];
  ioError([&] { joined->readLax(out, 2); }, CIOError::kStreamClosed);
  EXPECT_THROW(joined->isEndOfStream(), CIOError);
}
