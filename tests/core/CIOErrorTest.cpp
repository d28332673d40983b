#include "qo/core/CIOError.h"

#include <gtest/gtest.h>

#include <climits>

using qo::CError;
using qo::CIOError;
using qo::CProps;
using qo::String;

TEST(CIOErrorTest, KindsAndTheirDefaultMessages) {
  struct Case {
    long long kind;
    char16_t const* message;
  } const cases[] = {
      {CIOError::kUnknown, u"Unknown I/O error."},
      {CIOError::kOpenFailed, u"Error opening file or stream."},
      {CIOError::kReadFailed, u"Error reading data."},
      {CIOError::kWriteFailed, u"Error writing data."},
      {CIOError::kUnexpectedEOF, u"Unexpected end of data."},
      {CIOError::kCorruptData, u"The data is invalid or corrupted."},
      {CIOError::kBadVersion, u"Unsupported or invalid data version."},
      {CIOError::kSeekFailed, u"Error seeking to new position."},
      {CIOError::kMoveFailed, u"Error moving a file."},
      {CIOError::kDeleteFailed, u"Error deleting a file."},
      {CIOError::kStreamClosed, u"Error: stream has been closed."},
      {CIOError::kPositionNotAligned, u"Error: stream position is not aligned correctly."},
      {CIOError::kBufferNotAligned, u"Error: buffer passed to stream is not aligned correctly."},
      {CIOError::kResizeFailed, u"Error changing the size of a file."},
      {CIOError::kUnsupported, u"Operation unsupported"},
      {CIOError::kLockFailed, u"Locking error"},
  };
  for (long long code = 0; code < 16; ++code) {
    SCOPED_TRACE(code);
    EXPECT_EQ(cases[code].kind, code);
    String const expected(cases[code].message);
    CIOError e(code);
    EXPECT_EQ(CIOError::getDefaultMessage(code), expected);
    EXPECT_EQ(e.getMessage(), expected);
    EXPECT_EQ(e.getDesc(), expected + u" [IO " + qo::toString(code) + u"]");
  }
  for (long long code : {-1LL, 16LL, 1000LL, LLONG_MAX, LLONG_MIN}) {
    SCOPED_TRACE(code);
    CIOError e(code);
    EXPECT_EQ(e.getMessage(), String(u"Unknown I/O error."));
    EXPECT_EQ(e.getErrorCode(), code);
  }
}

TEST(CIOErrorTest, GivenMessagePropertiesAndCauseAreKept) {
  EXPECT_EQ(CIOError::paramURI(), String(u"uri"));
  EXPECT_EQ(CIOError::getDomain(), String(u"IO"));
  CError cause(u"disk gone");
  CIOError e(CIOError::kWriteFailed, u"Cannot write.",
             CProps().add(u"action", u"write").add(CIOError::paramURI(), u"file:///c:/a"), &cause);
  EXPECT_EQ(e.getDesc(), String(u"Cannot write. [IO 3 (action='write', uri='file:///c:/a')]"));
  EXPECT_TRUE(e.isError(u"IO", CIOError::kWriteFailed));
  ASSERT_FALSE(e.getCause().isNull());
  EXPECT_EQ(e.getCause()->getMessage(), String(u"disk gone"));
}
