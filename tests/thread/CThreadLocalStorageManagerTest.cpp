// CThreadLocalStorageManager: slot numbers, the per-thread map, releasing
// a thread's values (also ones stored while releasing) and the maps left
// behind by threads that never released.
#include "qo/thread/CThreadLocalStorageManager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "qo/thread/CSignal.h"
#include "thread/ThreadTestSupport.h"

namespace qo {
namespace {

using test::CCounted;

TEST(CThreadLocalStorageManagerTest, SlotsMapAndReleaseOfTheCallingThread) {
  std::atomic<int> live{0};
  auto manager = newP<CThreadLocalStorageManager>();
  int const slot1 = manager->createSlot();
  int const slot2 = manager->createSlot();
  EXPECT_LT(slot1, slot2);
  EXPECT_LT(slot2, manager->createSlot());
  EXPECT_EQ(manager->getValueMapForThread(false), nullptr);
  CThreadLocalStorageManager::TValueMap* map = manager->getValueMapForThread(true);
  ASSERT_NE(map, nullptr);
  EXPECT_EQ(manager->getValueMapForThread(false), map);
  EXPECT_TRUE(map->empty());
  manager->setValue(slot1, newP<CCounted>(live).get());
  manager->setValue(slot2, newP<CCounted>(live).get());
  EXPECT_EQ(live.load(), 2);
  manager->releaseAllThreadValues();
  EXPECT_EQ(live.load(), 0);
  EXPECT_TRUE(manager->getValue(slot1).isNull());
  EXPECT_EQ(manager->getValueMapForThread(false), nullptr);
  manager->releaseAllThreadValues();  // nothing left: no effect
}

// Stores another counted value into the same manager when it dies.
class CReStoring : public CBase {
public:
  CReStoring(P<CThreadLocalStorageManager> manager, int slot, std::atomic<int>& live)
      : m_manager(std::move(manager)), m_slot(slot), m_live(live) {}
  ~CReStoring() override { m_manager->setValue(m_slot, newP<CCounted>(m_live).get()); }

private:
  P<CThreadLocalStorageManager> m_manager;
  int m_slot;
  std::atomic<int>& m_live;
};

TEST(CThreadLocalStorageManagerTest, ValuesStoredWhileReleasingAreReleasedToo) {
  std::atomic<int> live{0};
  auto manager = newP<CThreadLocalStorageManager>();
  int slot = manager->createSlot();
  manager->setValue(slot, newP<CReStoring>(manager, manager->createSlot(), live).get());
  manager->releaseAllThreadValues();
  EXPECT_EQ(live.load(), 0);
  EXPECT_EQ(manager->getValueMapForThread(false), nullptr);
}

// A thread not started through CThread never calls releaseAllThreadValues():
// its values go when it ends (also ones stored while they go), or with the
// manager when that dies first.
TEST(CThreadLocalStorageManagerTest, ForeignThreadsValuesGoWhenTheThreadEndsOrWithTheManager) {
  for (bool managerDiesFirst : {false, true}) {
    SCOPED_TRACE(managerDiesFirst);
    std::atomic<int> live{0};
    auto manager = newP<CThreadLocalStorageManager>();
    int const slot = manager->createSlot();
    CSignal stored, managerGone;
    std::thread foreign([&, m = manager.get()] {
      m->setValue(slot, newP<CCounted>(live).get());
      if (!managerDiesFirst) m->setValue(m->createSlot(), newP<CReStoring>(P<CThreadLocalStorageManager>::share(m), m->createSlot(), live).get());
      stored.set();
      if (managerDiesFirst) (void)managerGone.wait(-1);
    });
    ASSERT_TRUE(stored.wait(-1));
    EXPECT_TRUE(manager->getValue(slot).isNull());  // not this thread's
    if (managerDiesFirst) {
      EXPECT_EQ(live.load(), 1);
      manager.reset();
      managerGone.set();
      foreign.join();
    } else {
      foreign.join();
    }
    EXPECT_EQ(live.load(), 0);
  }
}

TEST(CThreadLocalStorageManagerTest, GlobalInstanceIsRecreatedAfterDispose) {
  P<CThreadLocalStorageManager> first = CThreadLocalStorageManager::get();
  EXPECT_EQ(first, CThreadLocalStorageManager::get());
  CThreadLocalStorageManager::disposeGlobal();
  P<CThreadLocalStorageManager> second = CThreadLocalStorageManager::get();
  EXPECT_NE(first, second);
  EXPECT_EQ(first->getRefCountForDebugging(), 1);  // only this test holds the old one
}

}  // namespace
}  // namespace qo
