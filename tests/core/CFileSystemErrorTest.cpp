#include "qo/core/CFileSystemError.h"

#include <gtest/gtest.h>

#include "qo/core/CIOError.h"

using qo::CError;
using qo::CFileSystemError;
using qo::CIOError;
using qo::CProps;
using qo::String;

TEST(CFileSystemErrorTest, GetProblemOfMissingOrUnreadableValueIsUnknown) {
  EXPECT_EQ(CFileSystemError::getProblem(CProps()), CFileSystemError::kUnknown);
  EXPECT_EQ(CFileSystemError::kUnknown, 0);
  for (char16_t const* value : {u"", u"lock", u"5.0", u"2147483648", u"-2147483649"}) {
    SCOPED_TRACE(String(value).toUTF8());
    EXPECT_EQ(CFileSystemError::getProblem(CProps().add(u"fileSysProblem", value)), 0);
  }
  EXPECT_EQ(CFileSystemError::getProblem(CProps().add(u"fileSysProblem", u"42")), 42);
}

TEST(CFileSystemErrorTest, EachProblemHasItsMessageAndProperty) {
  struct Case {
    int problem;
    char16_t const* message;
  } const cases[] = {
      {CFileSystemError::kUnknown, u"File system error."},
      {CFileSystemError::kNotFound, u"File system error: the file or folder does not exist."},
      {CFileSystemError::kAlreadyExists, u"File system error: the file or folder already exists."},
      {CFileSystemError::kAccessDenied, u"File system error: access denied."},
      {CFileSystemError::kWrongKind, u"File system error: the object is not of the expected kind (file or folder)."},
      {CFileSystemError::kLockConflict, u"File system error: lock conflict."},
      {CFileSystemError::kUnservedURI,
       u"File system error: no file system serves the URI, or the objects are on different file systems."},
      {CFileSystemError::kNotEmpty, u"File system error: the folder is not empty."},
      {CFileSystemError::kNoSpace, u"File system error: not enough space."},
      {CFileSystemError::kUnsupported, u"File system error: the operation is not supported."},
      {10, u"File system error."},
      {-3, u"File system error."},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.problem);
    CFileSystemError e(c.problem);
    EXPECT_EQ(e.getMessage(), String(c.message));
    EXPECT_EQ(e.getParams().lookup(u"fileSysProblem"), qo::toString(c.problem));
    EXPECT_EQ(e.getProblem(), c.problem);
    EXPECT_EQ(e.getErrorCode(), -1);
    EXPECT_FALSE(e.hasErrorCode());
  }
  EXPECT_EQ(CFileSystemError::kLockConflict, 5);
  EXPECT_EQ(CFileSystemError::kUnservedURI, 6);
  EXPECT_EQ(CFileSystemError(CFileSystemError::kLockConflict).getDesc(),
            String(u"File system error: lock conflict. [fileSysProblem='5']"));
}

TEST(CFileSystemErrorTest, OwnMessagePropertiesAndCloneOfCauseWithProblemWinning) {
  CFileSystemError e(CFileSystemError::kAccessDenied, u"No entry.",
                     CProps().add(u"uri", u"file:///x").add(u"fileSysProblem", u"9"));
  EXPECT_EQ(e.getDesc(), String(u"No entry. [fileSysProblem='3', uri='file:///x']"));
  CFileSystemError defaulted(CFileSystemError::kNoSpace, String(), CProps());
  EXPECT_EQ(defaulted.getMessage(), String(u"File system error: not enough space."));
  EXPECT_EQ(CFileSystemError::paramFileSysProblem(), String(u"fileSysProblem"));
  CIOError cause(CIOError::kOpenFailed);
  CFileSystemError caused(CFileSystemError::kNotFound, &cause);
  ASSERT_FALSE(caused.getCause().isNull());
  EXPECT_NE(caused.getCause().get(), static_cast<CError const*>(&cause));
  EXPECT_TRUE(caused.getCause()->isError(u"IO", 1));
}
