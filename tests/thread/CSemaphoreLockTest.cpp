// CSemaphoreLock: one permit for the life of a scope, also on throw.
#include "qo/thread/CSemaphoreLock.h"

#include <gtest/gtest.h>

#include "qo/thread/CSemaphore.h"

namespace qo {
namespace {

TEST(CSemaphoreLockTest, HoldsOnePermitForTheScopeAndReturnsItOnThrow) {
  CSemaphore semaphore(2);
  {
    CSemaphoreLock first(&semaphore);
    try {
      CSemaphoreLock second(&semaphore);
      EXPECT_FALSE(semaphore.decValue(0));
      throw 1;
    } catch (int) {
    }
    EXPECT_TRUE(semaphore.decValue(0));
    semaphore.incValue();
  }
  EXPECT_TRUE(semaphore.decValue(0));
  EXPECT_TRUE(semaphore.decValue(0));
  EXPECT_FALSE(semaphore.decValue(0));
}

}  // namespace
}  // namespace qo
