#include "qo/stream/CDummyOutStream.h"

#include <gtest/gtest.h>

#include "qo/core/CIOError.h"
#include "qo/stream/CDummyWriteBarrier.h"
#include "stream/StreamTestSupport.h"

using qo::CIOError;
using qo::IStreamBase;
using qo::P;

TEST(CDummyOutStreamTest, DiscardsButCounts) {
  P<qo::CDummyOutStream> sink = qo::newP<qo::CDummyOutStream>();
  sink->write("abcdef", 6);
  sink->seek(2);
  sink->write("x", 1);
  EXPECT_EQ(sink->getPosition(), 3);
  EXPECT_EQ(sink->getLength(), 6);
  sink->setLength(1);
  EXPECT_EQ(sink->getLength(), 1);
  EXPECT_NE(dynamic_cast<qo::CDummyWriteBarrier*>(sink->createWriteBarrier(nullptr).get()), nullptr);
  EXPECT_THROW(sink->seek(-1), CIOError);
  EXPECT_THROW((void)sink->lockRange(0, 1, IStreamBase::LockExclusive), CIOError);
  sink->close();
  qo::test::ioError([&] { sink->write("x", 1); }, CIOError::kStreamClosed);
}
