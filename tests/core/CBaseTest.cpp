// Reference counting, P<T> ownership rules, resurrection and checked casts.
#include "qo/core/CBase.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "qo/core/P.h"

namespace qo {
namespace {

std::atomic<int> g_live{0};
std::atomic<int> g_destroyed{0};

class IShape : public virtual IBase {
public:
  virtual int corners() const = 0;
};
class IColored : public virtual IBase {
public:
  virtual int color() const = 0;
};

class CCounted : public CBase, public IShape, public IColored {
public:
  CCounted() { ++g_live; }
  CCounted(CCounted const& other) : CBase(other), IShape(other), IColored(other) { ++g_live; }
  ~CCounted() override {
    --g_live;
    ++g_destroyed;
  }
  int corners() const override { return 4; }
  int color() const override { return 7; }
};

class CCountingTest : public ::testing::Test {
protected:
  void SetUp() override {
    g_live = 0;
    g_destroyed = 0;
  }
  void TearDown() override { EXPECT_EQ(g_live, 0) << "leaked objects"; }
};

using CBaseTest = CCountingTest;

TEST_F(CBaseTest, StackObjectSharedThroughPSurvives) {
  {
    CCounted onStack;
    {
      P<CCounted> first;
      first = &onStack;  // assignment of a raw pointer shares
      P<IShape> second = first;
      EXPECT_EQ(onStack.getRefCountForDebugging(), 3);
    }
    EXPECT_EQ(onStack.getRefCountForDebugging(), 1);
    EXPECT_EQ(g_destroyed, 0);
  }
  EXPECT_EQ(g_destroyed, 1);
}

TEST_F(CBaseTest, HeapObjectDiesWithLastOwnerNotOnSelfAssignment) {
  P<CCounted> a(new CCounted);
  EXPECT_EQ(a->getRefCountForDebugging(), 1);
  P<IColored> b = a;
  P<IShape> c = a;
  EXPECT_EQ(a->getRefCountForDebugging(), 3);
  a = nil;
  b.reset();
  EXPECT_EQ(g_destroyed, 0);
  c = nullptr;
  EXPECT_EQ(g_destroyed, 1);
  P<CCounted> p(new CCounted);  // assigning the held object to itself keeps it
  p = p.get();
  EXPECT_EQ(p->getRefCountForDebugging(), 1);
  P<CCounted>& alias = p;
  p = alias;
  EXPECT_EQ(p->getRefCountForDebugging(), 1);
  EXPECT_EQ(g_destroyed, 1);
}

TEST_F(CBaseTest, CopyStartsWithItsOwnCount) {
  P<CCounted> original(new CCounted);
  P<CCounted> extra = original;
  P<CCounted> copy(new CCounted(*original));
  EXPECT_EQ(copy->getRefCountForDebugging(), 1);
  *copy = *original;  // assignment leaves the target's count alone
  EXPECT_EQ(copy->getRefCountForDebugging(), 1);
  EXPECT_EQ(original->getRefCountForDebugging(), 2);
}

TEST_F(CBaseTest, MoveSwapShareAndDetach) {
  P<CCounted> a(new CCounted);
  P<CCounted> b = std::move(a);
  EXPECT_TRUE(a.isNull());
  EXPECT_EQ(b->getRefCountForDebugging(), 1);
  CCounted* raw = b.get();
  P<IShape> s = std::move(b);
  EXPECT_EQ(raw->getRefCountForDebugging(), 1);
  P<IShape> t;
  swap(s, t);
  EXPECT_EQ(s, nil);
  EXPECT_EQ(t->corners(), 4);
  CCounted onStack;
  {
    P<CCounted> shared = P<CCounted>::share(&onStack);
    EXPECT_EQ(onStack.getRefCountForDebugging(), 2);
  }
  P<CCounted> owner(new CCounted);
  CCounted* detached = owner.detach();
  EXPECT_TRUE(owner.isNull());
  P<CCounted> adopted(detached);
  EXPECT_EQ(adopted->getRefCountForDebugging(), 1);
}

// A destructor that wraps `this` in a P must not start a second deletion.
class CSelfWrapping : public CBase {
public:
  ~CSelfWrapping() override {
    P<CSelfWrapping> me;
    me = this;
    P<CSelfWrapping> again = me;
    ++g_destroyed;
  }
};

TEST_F(CBaseTest, DestructorWrappingThisDeletesOnce) {
  P<CSelfWrapping> p(new CSelfWrapping);
  p = nil;
  EXPECT_EQ(g_destroyed, 1);  // a second deletion would also trip the sanitizers
}

// Keeps itself the first time its last reference goes.
class CResurrecting : public CBase {
public:
  static P<IBase> g_kept;
  static int g_deleteThisCalls;
  static std::int32_t g_countAfterResurrection;

protected:
  void deleteThis() override {
    if (++g_deleteThisCalls == 1) {
      g_kept = cancelDeleteThisAndReturnNewReference();
      g_countAfterResurrection = getRefCountForDebugging();
      return;
    }
    CBase::deleteThis();
  }

public:
  ~CResurrecting() override { ++g_destroyed; }
};
P<IBase> CResurrecting::g_kept;
int CResurrecting::g_deleteThisCalls = 0;
std::int32_t CResurrecting::g_countAfterResurrection = 0;

TEST_F(CBaseTest, ResurrectionLeavesCountAtExactlyOne) {
  CResurrecting::g_deleteThisCalls = 0;
  P<CResurrecting> p(new CResurrecting);
  p = nil;
  EXPECT_EQ(CResurrecting::g_deleteThisCalls, 1);
  EXPECT_EQ(CResurrecting::g_countAfterResurrection, 1);
  ASSERT_TRUE(CResurrecting::g_kept);
  EXPECT_EQ(CResurrecting::g_kept->checkCastAllowed(typeid(int)), true);
  EXPECT_EQ(g_destroyed, 0);
  CResurrecting::g_kept = nil;  // the ordinary release path runs again
  EXPECT_EQ(CResurrecting::g_deleteThisCalls, 2);
  EXPECT_EQ(g_destroyed, 1);
}

TEST_F(CBaseTest, CountIsBiasedWhileDying) {
  static std::int32_t seen = 0;
  class CWatcher : public CBase {
  public:
    ~CWatcher() override { seen = getRefCountForDebugging(); }
  };
  P<CWatcher> p(new CWatcher);
  p = nil;
  EXPECT_EQ(seen, static_cast<std::int32_t>(0xC0000000u));
}

TEST_F(CBaseTest, ManyThreadsSharingOneObject) {
  P<CCounted> shared(new CCounted);
  constexpr int kThreads = 8;
  constexpr int kIterations = 20000;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&shared] {
      for (int i = 0; i < kIterations; ++i) {
        P<IShape> copy = shared;
        P<IColored> another = shared;
        ASSERT_EQ(copy->corners() + another->color(), 11);
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(shared->getRefCountForDebugging(), 1);
  EXPECT_EQ(g_destroyed, 0);
  shared = nil;
  EXPECT_EQ(g_destroyed, 1);
}

TEST_F(CBaseTest, LastReleaseRacingOnManyThreadsDeletesOnce) {
  for (int round = 0; round < 100; ++round) {
    P<CCounted> object(new CCounted);
    std::vector<P<CCounted>> copies(4, object);
    object = nil;
    std::vector<std::thread> threads;
    for (auto& copy : copies) threads.emplace_back([&copy] { copy = nil; });
    for (auto& t : threads) t.join();
  }
  EXPECT_EQ(g_destroyed, 100);
}

using PCastTest = CCountingTest;

TEST_F(PCastTest, DownAndCrossCastsShareTheObject) {
  P<IShape> shape(new CCounted);
  P<IColored> colored = shape.cast<IColored>();
  EXPECT_EQ(colored->color(), 7);
  P<CCounted> concrete = colored.cast<CCounted>();
  EXPECT_EQ(concrete.get(), shape.get());
  EXPECT_EQ(concrete->getRefCountForDebugging(), 3);
  PC<IShape> readOnly = shape;
  EXPECT_EQ(readOnly.cast<IColored const>()->color(), 7);
  EXPECT_TRUE(P<IShape>().cast<CCounted>().isNull());
}

}  // namespace
}  // namespace qo
