#include "qo/core/CLockFileError.h"

#include <gtest/gtest.h>

#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"

using qo::CError;
using qo::CFileSystemError;
using qo::CLockFileError;
using qo::CURI;
using qo::IStreamBase;
using qo::P;
using qo::String;

TEST(CLockFileErrorTest, PathFormCarriesPathTypeAndConflictAndClonesKeepTheClass) {
  CError const conflictCause(u"in use");
  CFileSystemError const conflict(CFileSystemError::kLockConflict, &conflictCause);
  CLockFileError const error(String(u"/var/log/app.log.lock"), IStreamBase::LockExclusive, &conflict);
  EXPECT_EQ(error.getDesc(), String(u"Cannot acquire the lock file. [lockConflict='true', lockType='exclusive', "
                                    u"path='/var/log/app.log.lock']"));
  EXPECT_TRUE(error.isLockConflict());
  ASSERT_TRUE(error.getCause());
  EXPECT_EQ(error.getCause()->getMessage(), conflict.getMessage());
  EXPECT_EQ(error.getErrorCode(), -1);
  EXPECT_TRUE(error.getErrorCodeDomain().isEmpty());
  P<CError> copy = error.clone();
  EXPECT_NE(dynamic_cast<CLockFileError*>(copy.get()), nullptr);
  EXPECT_THROW(copy->throwClone(), CLockFileError);
}

TEST(CLockFileErrorTest, URIFormAndCausesThatAreNoConflict) {
  qo::CIOError const ioFailure(qo::CIOError::kOpenFailed);
  CLockFileError const error(CURI(String(u"file:///tmp/x.lock")), IStreamBase::LockShared, &ioFailure);
  EXPECT_EQ(error.getParams().lookup(u"lockConflict"), String(u"false"));
  EXPECT_EQ(error.getParams().lookup(u"lockType"), String(u"shared"));
  EXPECT_EQ(error.getParams().lookup(u"uri"), String(u"file:///tmp/x.lock"));
  EXPECT_FALSE(error.getParams().contains(u"path"));

  CError flagged(u"busy", String(), -1, qo::CProps().addBool(u"lockConflict", true));
  EXPECT_TRUE(CLockFileError(String(u"p"), IStreamBase::LockShared, &flagged).isLockConflict());
  EXPECT_FALSE(CLockFileError(String(u"p"), IStreamBase::LockShared).isLockConflict());
}
