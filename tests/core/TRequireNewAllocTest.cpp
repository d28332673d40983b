// Heap-only objects: built by new they live, built anywhere else they throw.
#include "qo/core/TRequireNewAlloc.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

#include "qo/core/CError.h"

namespace qo {
namespace heaptest {

class CHeapOnly : public TRequireNewAlloc<CBase, CHeapOnly> {
public:
  CHeapOnly() = default;
  explicit CHeapOnly(int value) : m_value(value) {}
  int m_value = 0;
};

class CThrowsAfterCheckBase : public TRequireNewAlloc<CBase> {};

class CThrowsAfterCheck : public TRequireNewAlloc<CBase> {
public:
  CThrowsAfterCheck() { throw std::runtime_error("member failed"); }
};

template <class T>
String stackConstructionError() {
  try {
    T onStack;
    ADD_FAILURE() << "built on the stack";
  } catch (CError const& e) {
    EXPECT_EQ(e.getErrorCodeDomain(), String());
    EXPECT_EQ(e.getErrorCode(), -1);
    EXPECT_EQ(e.getParams().getSize(), 0);
    EXPECT_TRUE(e.getCause().isNull());
    return e.getMessage();
  }
  return String();
}

TEST(TRequireNewAllocTest, HeapObjectsAreBuiltStackObjectThrowsWithTypeName) {
  P<CHeapOnly> a(new CHeapOnly(5));
  EXPECT_EQ(a->m_value, 5);
  P<CHeapOnly> b(new (CBase::RawNew{}) CHeapOnly);
  EXPECT_EQ(b->getRefCountForDebugging(), 1);
  EXPECT_EQ(stackConstructionError<CHeapOnly>(),
            String(u"Objects of class qo::heaptest::CHeapOnly must be allocated with new."));
  // A class that does not name itself gets the base's name.
  EXPECT_EQ(stackConstructionError<CThrowsAfterCheckBase>(),
            String(u"Objects of class qo::TRequireNewAlloc<qo::CBase, void> must be allocated with new."));
}

TEST(TRequireNewAllocTest, MemberAndCopyOnStackThrowAndFailedConstructionLeavesNoFlag) {
  struct Holder {
    CHeapOnly member;
  };
  EXPECT_THROW(Holder h, CError);
  P<CHeapOnly> heap(new CHeapOnly(3));
  EXPECT_THROW(CHeapOnly copy(*heap), CError);
  P<CHeapOnly> heapCopy(new CHeapOnly(*heap));
  EXPECT_EQ(heapCopy->m_value, 3);
  // A failed construction leaves no stray flag.
  EXPECT_THROW(new CThrowsAfterCheck, std::runtime_error);
  EXPECT_THROW(CHeapOnly onStack, CError);
}

TEST(TRequireNewAllocTest, FlagIsPerThread) {
  constexpr int kThreads = 8;
  constexpr int kIterations = 2000;
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&failures, t] {
      for (int i = 0; i < kIterations; ++i) {
        if (t % 2 == 0) {
          try {
            P<CHeapOnly> p(new CHeapOnly(i));
            if (p->m_value != i) ++failures;
          } catch (CError const&) {
            ++failures;  // another thread consumed this thread's flag
          }
        } else {
          try {
            CHeapOnly onStack;
            ++failures;  // another thread's flag excused a stack object
          } catch (CError const&) {
          }
        }
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(failures, 0);
}

}  // namespace heaptest
}  // namespace qo
