#include "qo/core/CIOError.h"

#include <gtest/gtest.h>

#include <climits>

using qo::CError;
using qo::CIOError;
using qo::CProps;
using qo::String;

TEST(CIOErrorTest, DefaultMessagesOfAllKinds) {
  char16_t const* const expected[] = {
      u"Unknown I/O error.",
      u"Error opening file or stream.",
      u"Error reading data.",
      u"Error writing data.",
      u"Unexpected end of data.",
      u"The data is invalid or corrupted.",
      u"Unsupported or invalid data version.",
      u"Error seeking to new position.",
      u"Error moving a file.",
      u"Error deleting a file.",
      u"Error: stream has been closed.",
      u"Error: stream position is not aligned correctly.",
      u"Error: buffer passed to stream is not aligned correctly.",
      u"Error changing the size of a file.",
      u"Operation unsupported",
      u"Locking error",
  };
  for (long long code = 0; code < 16; ++code) {
    SCOPED_TRACE(code);
    CIOError e(code);
    EXPECT_EQ(CIOError::getDefaultMessage(code), String(expected[code]));
    EXPECT_EQ(e.getMessage(), String(expected[code]));
    EXPECT_EQ(e.getDesc(), String(expected[code]) + u" [IO " + qo::toString(code) + u"]");
  }
}

TEST(CIOErrorTest, NamedKindsMatchTheirNumbers) {
  long long const kinds[] = {
      CIOError::kUnknown,        CIOError::kOpenFailed,         CIOError::kReadFailed,
      CIOError::kWriteFailed,    CIOError::kUnexpectedEOF,      CIOError::kCorruptData,
      CIOError::kBadVersion,     CIOError::kSeekFailed,         CIOError::kMoveFailed,
      CIOError::kDeleteFailed,   CIOError::kStreamClosed,       CIOError::kPositionNotAligned,
      CIOError::kBufferNotAligned, CIOError::kResizeFailed,     CIOError::kUnsupported,
      CIOError::kLockFailed,
  };
  for (long long i = 0; i < 16; ++i) EXPECT_EQ(kinds[i], i);
}

TEST(CIOErrorTest, UnknownCodesGetTheUnknownMessage) {
  for (long long code : {-1LL, 16LL, 1000LL, LLONG_MAX, LLONG_MIN}) {
    SCOPED_TRACE(code);
    CIOError e(code);
    EXPECT_EQ(e.getMessage(), String(u"Unknown I/O error."));
    EXPECT_EQ(e.getErrorCode(), code);
  }
}

TEST(CIOErrorTest, GivenMessagePropertiesAndCauseAreKept) {
  CError cause(u"disk gone");
  CIOError e(CIOError::kWriteFailed, u"Cannot write.",
             CProps().add(u"action", u"write").add(CIOError::paramURI(), u"file:///c:/a"), &cause);
  EXPECT_EQ(e.getDesc(), String(u"Cannot write. [IO 3 (action='write', uri='file:///c:/a')]"));
  EXPECT_TRUE(e.isError(CIOError::getDomain(), CIOError::kWriteFailed));
  ASSERT_FALSE(e.getCause().isNull());
  EXPECT_EQ(e.getCause()->getMessage(), String(u"disk gone"));
}

TEST(CIOErrorTest, KeysAndDomain) {
  EXPECT_EQ(CIOError::paramURI(), String(u"uri"));
  EXPECT_EQ(CIOError::getDomain(), String(u"IO"));
  EXPECT_EQ(CIOError(1).getErrorCodeDomain(), String(u"IO"));
}
