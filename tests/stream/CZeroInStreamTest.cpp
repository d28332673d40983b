#include "qo/stream/CZeroInStream.h"

#include <gtest/gtest.h>

#include <string>

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CIOError.h"
#include "stream/StreamTestSupport.h"

using qo::CIOError;
using qo::CZeroInStream;
using qo::IStreamBase;
using qo::P;
using qo::String;

TEST(CZeroInStreamTest, DeliversLengthZeroBytes) {
  P<CZeroInStream> zeros = qo::newP<CZeroInStream>(5);
  EXPECT_EQ(zeros->getURI().toString(true), String(u"zerostream"));
  char out[8] = {'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
  EXPECT_EQ(zeros->readLax(out, 8), 5);
  EXPECT_EQ(std::string(out, 6), std::string("\0\0\0\0\0x", 6));
  EXPECT_TRUE(zeros->isEndOfStream());
  zeros->seek(3);
  EXPECT_EQ(zeros->readAvailable(out, 8), 2);
  zeros->seek(5);
  qo::test::ioError([&] { zeros->read(out, 1); }, CIOError::kUnexpectedEOF);
  EXPECT_THROW(zeros->seek(6), CIOError);
  EXPECT_THROW((void)qo::newP<CZeroInStream>(-1), qo::CInvalidArgError);
  EXPECT_THROW((void)zeros->lockRange(0, 1, IStreamBase::LockShared), CIOError);
  zeros->close();
  EXPECT_THROW(zeros->readLax(out, 1), CIOError);
}
