// CWindowsComInit and CWindowsComSecurityInit as CQoInit left them: COM
// started on the main thread and security set on Windows (Wine), present
// and inert on Linux.
#include <gtest/gtest.h>

#include "qo/sys/CWindowsComInit.h"
#include "qo/sys/CWindowsComSecurityInit.h"
#include "qo/thread/CThread.h"

namespace qo {
namespace {

TEST(CWindowsComInit, StartedByTheLibraryOnItsThread) {
  P<CWindowsComInit> com = CWindowsComInit::get();
  P<CWindowsComSecurityInit> security = CWindowsComSecurityInit::get();
  // The test runner's main thread made the CQoInit, which made these.
  EXPECT_EQ(com->getThreadID(), CThread::getCurrentID());
#ifdef _WIN32
  EXPECT_TRUE(com->isAvailable());
  EXPECT_TRUE(com->isInitialized()) << std::hex << com->getResult();
  EXPECT_TRUE(security->isInitialized()) << std::hex << security->getResult();
#else
  EXPECT_FALSE(com->isAvailable());
  EXPECT_FALSE(com->isInitialized());
  EXPECT_EQ(com->getResult(), 0);
  EXPECT_FALSE(security->isInitialized());
  EXPECT_EQ(security->getResult(), 0);
#endif
}

}  // namespace
}  // namespace qo
