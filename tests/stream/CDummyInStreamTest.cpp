#include "qo/stream/CDummyInStream.h"

#include <gtest/gtest.h>

#include "qo/core/CIOError.h"

using qo::CIOError;
using qo::P;

TEST(CDummyInStreamTest, IsEmpty) {
  P<qo::CDummyInStream> empty = qo::newP<qo::CDummyInStream>();
  char out[1];
  EXPECT_EQ(empty->getLength(), 0);
  EXPECT_EQ(empty->readLax(out, 1), 0);
  EXPECT_TRUE(empty->isEndOfStream());
  EXPECT_TRUE(empty->getURI().isEmpty());
  empty->read(out, 0);
  EXPECT_THROW(empty->read(out, 1), CIOError);
}
