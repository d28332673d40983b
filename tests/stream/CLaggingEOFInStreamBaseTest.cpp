#include "qo/stream/CLaggingEOFInStreamBase.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "qo/core/CIOError.h"
#include "stream/StreamTestSupport.h"

using qo::CIOError;
using qo::CLaggingEOFInStreamBase;
using qo::CURI;
using qo::IStreamLock;
using qo::P;
using qo::String;
using qo::test::ioError;

namespace {

/// A pipe-like source: bytes arrive over time (m_arrived of m_data); a
/// blocking read waits for all of them; the end is known once every byte is
/// taken and the writer closed, unless the source learns it only by reading.
class CPipeLikeStream : public CLaggingEOFInStreamBase {
public:
  explicit CPipeLikeStream(std::string data) : m_data(std::move(data)) {}

  std::size_t m_arrived = 0;
  bool m_writerClosed = false;
  bool m_knowsEndOnlyByReading = false;
  bool m_open = true;
  int m_blockingReads = 0;

  long long getLength() const override { return -1; }
  CURI getURI() override { return CURI(String(u"pipe:test")); }
  P<IStreamLock> lockRange(long long, long long, LockType) override { throw CIOError(CIOError::kUnsupported); }
  void close() override { m_open = false; }

protected:
  bool isSourceOpen() const override { return m_open; }
  [[noreturn]] void throwSourceError(long long kind) const override {
    throw CIOError(kind, String(), qo::CProps().add(CIOError::paramURI(), u"pipe:test"));
  }
  int readSourceBlocking(void* buffer, int size) override {
    ++m_blockingReads;
    m_arrived = m_data.size();  // waiting lets everything arrive
    m_writerClosed = true;
    return take(buffer, size);
  }
  int readSourceNonBlocking(void* buffer, int size) override { return take(buffer, size); }
  bool isSourceAtEnd() const override {
    return !m_knowsEndOnlyByReading && m_writerClosed && m_taken == m_data.size();
  }
  long long getSourcePosition() const override { return static_cast<long long>(m_taken); }
  void seekSource(long long position) override {
    m_taken = static_cast<std::size_t>(position);
    m_arrived = std::max(m_arrived, m_taken);
  }

private:
  int take(void* buffer, int size) {
    std::size_t const count = std::min(m_arrived - m_taken, static_cast<std::size_t>(size));
    std::copy_n(m_data.data() + m_taken, count, static_cast<char*>(buffer));
    m_taken += count;
    return static_cast<int>(count);
  }

  std::string m_data;
  std::size_t m_taken = 0;
};

}  // namespace

TEST(CLaggingEOFInStreamBaseTest, NonBlockingEndIsUnknownUntilAByteArrives) {
  P<CPipeLikeStream> pipe = qo::newP<CPipeLikeStream>("abc");
  EXPECT_EQ(pipe->isEndOfStream_NonBlocking(), -1);
  pipe->m_arrived = 3;
  EXPECT_EQ(pipe->isEndOfStream_NonBlocking(), 0);
  EXPECT_EQ(pipe->getPosition(), 0);  // the byte read ahead is not counted
  EXPECT_TRUE(pipe->waitReadable(0));
  char out[8] = {};
  EXPECT_EQ(pipe->readAvailable(out, 8), 3);
  EXPECT_EQ(std::string(out, 3), "abc");
  EXPECT_EQ(pipe->getPosition(), 3);
  EXPECT_EQ(pipe->isEndOfStream_NonBlocking(), -1);  // the writer may still send
  pipe->m_writerClosed = true;
  EXPECT_EQ(pipe->isEndOfStream_NonBlocking(), 1);
}

TEST(CLaggingEOFInStreamBaseTest, BlockingEndQueryHoldsTheByteItReads) {
  P<CPipeLikeStream> pipe = qo::newP<CPipeLikeStream>("xy");
  EXPECT_FALSE(pipe->isEndOfStream());
  EXPECT_EQ(pipe->getPosition(), 0);
  EXPECT_FALSE(pipe->isEndOfStream());  // asks again without reading
  EXPECT_EQ(pipe->m_blockingReads, 1);
  char out[1];
  EXPECT_EQ(pipe->readLax(out, 0), 0);  // keeps the held byte
  EXPECT_EQ(pipe->readLax(out, 1), 1);
  EXPECT_EQ(out[0], 'x');
  EXPECT_EQ(pipe->getPosition(), 1);
  EXPECT_FALSE(pipe->isEndOfStream());
  pipe->read(out, 1);
  EXPECT_EQ(out[0], 'y');
  EXPECT_TRUE(pipe->isEndOfStream());
}

TEST(CLaggingEOFInStreamBaseTest, ASourceThatLearnsItsEndByReading) {
  P<CPipeLikeStream> pipe = qo::newP<CPipeLikeStream>("z");
  pipe->m_knowsEndOnlyByReading = true;
  char out[4];
  EXPECT_EQ(pipe->readLax(out, 4), 1);
  EXPECT_TRUE(pipe->isEndOfStream());
  EXPECT_EQ(pipe->isEndOfStream_NonBlocking(), -1);
  EXPECT_EQ(pipe->getPosition(), 1);
}

TEST(CLaggingEOFInStreamBaseTest, ShortReadsAndClosedSourcesRaiseThroughTheSubclass) {
  P<CPipeLikeStream> pipe = qo::newP<CPipeLikeStream>("ab");
  char out[4];
  auto error = ioError([&] { pipe->read(out, 4); }, CIOError::kUnexpectedEOF);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->getParams().lookup(CIOError::paramURI()), String(u"pipe:test"));
  pipe->close();
  ioError([&] { pipe->readLax(out, 1); }, CIOError::kStreamClosed);
  ioError([&] { pipe->readAvailable(out, 1); }, CIOError::kStreamClosed);
  ioError([&] { pipe->isEndOfStream(); }, CIOError::kStreamClosed);
  ioError([&] { pipe->isEndOfStream_NonBlocking(); }, CIOError::kStreamClosed);
  ioError([&] { pipe->seek(0); }, CIOError::kStreamClosed);
}

TEST(CLaggingEOFInStreamBaseTest, SeekDropsTheHeldByte) {
  P<CPipeLikeStream> pipe = qo::newP<CPipeLikeStream>("0123");
  pipe->m_arrived = 4;
  EXPECT_EQ(pipe->isEndOfStream_NonBlocking(), 0);
  pipe->seek(2);
  EXPECT_EQ(pipe->getPosition(), 2);
  char out[4];
  EXPECT_EQ(pipe->readAvailable(out, 4), 2);
  EXPECT_EQ(std::string(out, 2), "23");
}
