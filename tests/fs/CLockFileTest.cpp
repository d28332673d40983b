#include "qo/fs/CLockFile.h"

#include <gtest/gtest.h>

#include <string>

#include "LocalFileTestSupport.h"
#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/core/CLockFileError.h"
#include "qo/fs/LocalFile.h"

namespace qo {
namespace {

using localfiletest::fileURIText;
using localfiletest::problemOf;
using localfiletest::TempFolder;

template <class Body>
CLockFileError catchLockFileError(String const& path, Body body) {
  try {
    body();
  } catch (CLockFileError const& e) {
    return e;
  } catch (CError const& e) {
    ADD_FAILURE() << "not a CLockFileError: " << e.what();
  }
  ADD_FAILURE() << "nothing thrown";
  return CLockFileError(path, IStreamBase::LockShared);
}

TEST(CLockFileTest, HoldsTheLockUntilReleasedOrDestroyed) {
  TempFolder dir;
  String const path = dir.path("a.lock");
  P<CLockFile> first = newP<CLockFile>(path);
  EXPECT_TRUE(first->isHeld());
  EXPECT_EQ(path, first->getPath());
  EXPECT_EQ(IStreamBase::LockExclusive, first->getLockType());
  EXPECT_TRUE(localFileExists(path));
  P<CLockFile> second = first;
  second = nil;  // dropping a reference is not releasing the lock
  EXPECT_TRUE(first->isHeld());
  EXPECT_EQ(1, first->getRefCountForDebugging());
  first = nil;  // the last reference: destroyed, so released
  CLockFile next(path);
  EXPECT_TRUE(next.isHeld());
  next.unlock();
  EXPECT_FALSE(next.isHeld());
  next.unlock();  // idempotent
  CLockFile third(path);
  EXPECT_TRUE(third.isHeld());
  EXPECT_TRUE(localFileExists(path));  // kept without deleteOnRelease
}

TEST(CLockFileTest, LockTypesConflictAsExpected) {
  struct Case {
    IStreamBase::LockType first;
    IStreamBase::LockType second;
    bool conflict;
  } const cases[] = {
      {IStreamBase::LockExclusive, IStreamBase::LockExclusive, true},
      {IStreamBase::LockExclusive, IStreamBase::LockShared, true},
      {IStreamBase::LockShared, IStreamBase::LockExclusive, true},
      {IStreamBase::LockShared, IStreamBase::LockShared, false},
  };
  TempFolder dir;
  int n = 0;
  for (Case const& c : cases) {
    SCOPED_TRACE(n);
    String const path = dir.path("l" + std::to_string(n++));
    CLockFile first(path, c.first);
    if (!c.conflict) {
      CLockFile second(path, c.second);
      EXPECT_TRUE(second.isHeld());
      continue;
    }
    CLockFileError const e = catchLockFileError(path, [&] { CLockFile second(path, c.second); });
    EXPECT_TRUE(e.isLockConflict());
    EXPECT_EQ(path, e.getParams().lookup(CLockFileError::paramPath()));
    EXPECT_EQ(IStreamBase::lockTypeToString(c.second), e.getParams().lookup(IStreamBase::paramLockType()));
    auto const* cause = dynamic_cast<CFileSystemError const*>(e.getCause().get());
    ASSERT_NE(nullptr, cause);
    EXPECT_EQ(CFileSystemError::kLockConflict, cause->getProblem());
    EXPECT_EQ(fileURIText(path), cause->getParams().lookup(u"uri").toUTF8());
  }
}

TEST(CLockFileTest, DeleteOnReleaseRemovesTheFile) {
  TempFolder dir;
  String const path = dir.path("c.lock");
  {
    CLockFile lock(path, IStreamBase::LockExclusive, true);
    EXPECT_TRUE(localFileExists(path));
  }
  EXPECT_FALSE(localFileExists(path));
  // A shared holder deleting on release does not take the file from the
  // other holder's lock: a newcomer still meets that lock.
  CLockFile keeper(path, IStreamBase::LockShared);
  { CLockFile leaver(path, IStreamBase::LockShared, true); }
  EXPECT_TRUE(catchLockFileError(path, [&] { CLockFile writer(path, IStreamBase::LockExclusive); }).isLockConflict());
  // The last holder leaving does delete it.
  CLockFile last(path, IStreamBase::LockShared, true);
  keeper.unlock();
  EXPECT_TRUE(localFileExists(path));
  last.unlock();
  EXPECT_FALSE(localFileExists(path));
}

TEST(CLockFileTest, OpenFailureIsNotAConflict) {
  TempFolder dir;
  String const path = dir.path("missing-folder/d.lock");
  CLockFileError const e = catchLockFileError(path, [&] { CLockFile lock(path); });
  EXPECT_FALSE(e.isLockConflict());
  auto const* cause = dynamic_cast<CIOError const*>(e.getCause().get());
  ASSERT_NE(nullptr, cause);
  EXPECT_EQ(CIOError::kOpenFailed, cause->getErrorCode());
  EXPECT_EQ(CFileSystemError::kNotFound, problemOf(*cause));
}

}  // namespace
}  // namespace qo
