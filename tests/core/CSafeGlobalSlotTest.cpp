// Lazy creation, the creation race, and shutdown order of process-wide
// instances.
#include "qo/core/CSafeGlobalSlot.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "qo/core/CQoInit.h"
#include "qo/core/CSafeGlobalDisposer.h"
#include "qo/core/CTestSafeGlobalHelper.h"
#include "qo/thread/threadYield.h"

namespace qo {
namespace {

std::vector<std::string> g_events;

// A slot-managed value whose creation and disposal are recorded by name.
template <int kId>
struct Named {
  static std::atomic<int> creates;
  static CSafeGlobalSlot slot;
  static std::string name() { return "s" + std::to_string(kId); }
  static void* create() {
    ++creates;
    g_events.push_back("+" + name());
    return new std::string(name());
  }
  static void dispose(void* p) {
    g_events.push_back("-" + name());
    delete static_cast<std::string*>(p);
  }
  static std::string& get() { return *static_cast<std::string*>(slot.use(&create, &dispose)); }
};
template <int kId>
std::atomic<int> Named<kId>::creates{0};
template <int kId>
CSafeGlobalSlot Named<kId>::slot;

class CSafeGlobalSlotTest : public ::testing::Test {
protected:
  void SetUp() override { g_events.clear(); }
  // disposeAll() ends every singleton of the process; bring back the one the
  // test run lives with.
  void TearDown() override { (void)CQoInit::CQoInitHelper::get(); }
};

TEST_F(CSafeGlobalSlotTest, FirstUseCreatesLaterUsesReturnTheSame) {
  EXPECT_EQ(Named<1>::slot.peek(), nullptr);
  EXPECT_EQ(Named<1>::slot.getFlags(), 0u);
  std::string* first = &Named<1>::get();
  EXPECT_EQ(*first, "s1");
  EXPECT_EQ(&Named<1>::get(), first);
  EXPECT_EQ(Named<1>::creates, 1);
  EXPECT_EQ(Named<1>::slot.getFlags(), CSafeGlobalSlot::kClaimed | CSafeGlobalSlot::kReady);
  Named<1>::slot.dispose();
}

TEST_F(CSafeGlobalSlotTest, DisposeAllRunsNewestFirst) {
  CSafeGlobalSlot::disposeAll();
  g_events.clear();
  Named<2>::get();
  Named<3>::get();
  Named<4>::get();
  CSafeGlobalSlot::disposeAll();
  EXPECT_EQ(g_events, (std::vector<std::string>{"+s2", "+s3", "+s4", "-s4", "-s3", "-s2"}));
  EXPECT_EQ(Named<2>::slot.peek(), nullptr);
}

TEST_F(CSafeGlobalSlotTest, SlotUsedAgainAfterDisposeAllOrDisposeIsDisposedOnceAgain) {
  Named<5>::get();
  CSafeGlobalSlot::disposeAll();
  EXPECT_EQ(Named<5>::slot.getFlags(), CSafeGlobalSlot::kClaimed | CSafeGlobalSlot::kReady);
  g_events.clear();
  EXPECT_EQ(Named<5>::get(), "s5");
  EXPECT_EQ(Named<5>::creates, 2);
  CSafeGlobalSlot::disposeAll();
  EXPECT_EQ(g_events, (std::vector<std::string>{"+s5", "-s5"}));
  // A single dispose keeps the slot registered once.
  g_events.clear();
  Named<6>::get();
  Named<6>::slot.dispose();
  Named<6>::get();  // created again, must not be linked a second time
  Named<7>::get();
  CSafeGlobalSlot::disposeAll();
  EXPECT_EQ(g_events, (std::vector<std::string>{"+s6", "-s6", "+s6", "+s7", "-s7", "-s6"}));
}

// The mirror an inline accessor reads follows the slot: set on creation,
// cleared before each kind of disposal, set again on re-creation.
TEST_F(CSafeGlobalSlotTest, MirrorFollowsCreationAndDisposal) {
  static std::atomic<void*> mirror{nullptr};
  auto get = [] {
    return static_cast<std::string*>(Named<10>::slot.use(&Named<10>::create, &Named<10>::dispose, mirror));
  };
  struct Step {
    char const* name;
    void (*dispose)();
  };
  Step const steps[] = {{"dispose", [] { Named<10>::slot.dispose(); }},
                        {"disposeAll", [] { CSafeGlobalSlot::disposeAll(); }}};
  for (Step const& step : steps) {
    SCOPED_TRACE(step.name);
    EXPECT_EQ(mirror.load(), nullptr);
    std::string* instance = get();
    EXPECT_EQ(mirror.load(), instance);
    EXPECT_EQ(get(), instance);
    step.dispose();
    EXPECT_EQ(mirror.load(), nullptr);
    EXPECT_EQ(Named<10>::slot.peek(), nullptr);
  }
  EXPECT_EQ(Named<10>::creates, 2);
}

// Disposing s8 creates s9, which is linked at the head and disposed in the
// same disposeAll().
struct Chained {
  static CSafeGlobalSlot slot;
  static void* create() {
    g_events.push_back("+chained");
    return &slot;
  }
  static void dispose(void*) {
    g_events.push_back("-chained");
    Named<9>::get();
  }
};
CSafeGlobalSlot Chained::slot;

TEST_F(CSafeGlobalSlotTest, SingletonCreatedDuringDisposeAllIsDisposedToo) {
  CSafeGlobalSlot::disposeAll();
  g_events.clear();
  Named<8>::get();
  Chained::slot.use(&Chained::create, &Chained::dispose);
  CSafeGlobalSlot::disposeAll();
  EXPECT_EQ(g_events, (std::vector<std::string>{"+s8", "+chained", "-chained", "+s9", "-s9", "-s8"}));
  EXPECT_EQ(Named<9>::slot.peek(), nullptr);
}

struct Racy {
  static std::atomic<int> creates;
  static CSafeGlobalSlot slot;
  static void* create() {
    ++creates;
    // Widen the window in which other threads find creation claimed.
    for (int i = 0; i < 3; ++i) threadYield(true);
    return new int(42);
  }
  static void dispose(void* p) { delete static_cast<int*>(p); }
};
std::atomic<int> Racy::creates{0};
CSafeGlobalSlot Racy::slot;

TEST_F(CSafeGlobalSlotTest, RacingThreadsGetOneInstance) {
  constexpr int kThreads = 16;
  for (int round = 0; round < 20; ++round) {
    Racy::creates = 0;
    std::atomic<bool> go{false};
    std::vector<void*> seen(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        while (!go) threadYield(false);
        seen[t] = Racy::slot.use(&Racy::create, &Racy::dispose);
      });
    }
    go = true;
    for (auto& t : threads) t.join();
    EXPECT_EQ(Racy::creates, 1);
    for (void* p : seen) EXPECT_EQ(p, seen[0]);
    EXPECT_EQ(*static_cast<int*>(seen[0]), 42);
    Racy::slot.dispose();  // the next round races on re-creation
  }
}

TEST_F(CSafeGlobalSlotTest, AccessorsInEveryPlaceShareTheirInstance) {
  CTestSafeGlobalHelper::disposeGlobal();
  EXPECT_EQ(CTestSafeGlobalHelper::getLiveCount(), 0);
  EXPECT_EQ(CTestSafeGlobalHelper::getHeaderButNotInline(), CTestSafeGlobalHelper::getHeaderButNotInlineProxy());
  EXPECT_EQ(CTestSafeGlobalHelper::getNotHeader(), CTestSafeGlobalHelper::getNotHeaderProxy());
  EXPECT_NE(CTestSafeGlobalHelper::getNotHeader(), CTestSafeGlobalHelper::getHeaderButNotInline());
  P<CTestSafeGlobalHelper> inlineHere = CTestSafeGlobalHelper::getInline();
  EXPECT_EQ(inlineHere, CTestSafeGlobalHelper::getInline());
  EXPECT_TRUE(CTestSafeGlobalHelper::getInlineProxy());
  inlineHere = nil;
  CTestSafeGlobalHelper::disposeGlobal();
  CSafeGlobalSlot::disposeAll();  // also this program's copy of the inline slot, if it has its own
  EXPECT_EQ(CTestSafeGlobalHelper::getLiveCount(), 0);
}

std::vector<int> g_disposerCalls;
void disposerA() { g_disposerCalls.push_back(1); }
void disposerB() { g_disposerCalls.push_back(2); }

TEST(CSafeGlobalDisposerTest, RunsOldestFirstAndEveryTime) {
  CSafeGlobalDisposer& disposer = CSafeGlobalDisposer::get();
  EXPECT_EQ(&disposer, &CSafeGlobalDisposer::get());
  disposer.addDisposeFunc(&disposerA);
  disposer.addDisposeFunc(&disposerB);
  g_disposerCalls.clear();
  disposer.disposeAll();
  disposer.disposeAll();
  EXPECT_EQ(g_disposerCalls, (std::vector<int>{1, 2, 1, 2}));
}

}  // namespace
}  // namespace qo
