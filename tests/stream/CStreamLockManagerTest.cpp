#include "qo/stream/CStreamLockManager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "qo/core/CFileSystemError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/TList.h"
#include "stream/StreamTestSupport.h"

using qo::CError;
using qo::CFileSystemError;
using qo::CRangeKey;
using qo::CStreamLockManager;
using qo::IStreamBase;
using qo::String;
using qo::TList;
using qo::test::catchError;

namespace {

using Entry = CStreamLockManager::Entry;
using Record = CStreamLockManager::LockRecord;

char16_t const kExclusiveExists[] = u"Cannot lock this stream range - it already contains an exclusive lock.";
char16_t const kSharedExist[] = u"Cannot obtain exclusive lock on this stream range - shared locks already exist.";
char16_t const kNotLocked[] =
    u"Internal Error: CStreamLockManager::unlockRange called for a range, but that range is not locked.";
char16_t const kPartial[] =
    u"Internal Error: CStreamLockManager::unlockRange called for a range, that does not match the previously locked "
    u"range - it only partially overlaps with it.";

// Ranges compare equal when they overlap, so compare start and length.
std::string text(CRangeKey const& r) { return r.toString().toUTF8() + " "; }
std::string text(Entry const& e) {
  return e.first.toString().toUTF8() + "(" + std::to_string(e.second.sharedCount) + "," +
         std::to_string(e.second.exclusiveCount) + ") ";
}
template <class List>
std::string describe(List const& list) {
  std::string result;
  for (auto const& item : list) result += text(item);
  return result;
}

constexpr IStreamBase::LockType S = IStreamBase::LockShared;
constexpr IStreamBase::LockType X = IStreamBase::LockExclusive;

/// Expects a lock conflict with the given cause text.
void expectConflict(CStreamLockManager& locks, long long start, long long length, IStreamBase::LockType type,
                    char16_t const* text) {
  TList<CRangeKey> fresh;
  auto error = catchError<CFileSystemError>([&] { locks.lockRange(start, length, type, fresh); });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->getProblem(), CFileSystemError::kLockConflict);
  ASSERT_TRUE(error->getCause());
  EXPECT_EQ(error->getCause()->getMessage(), String(text));
  EXPECT_EQ(error->getCause()->getErrorCode(), -1);
  EXPECT_TRUE(fresh.empty());
}

}  // namespace

TEST(CStreamLockManagerTest, LocksSplitStoredRangesAndReportOnlyTheNewParts) {
  struct Step {
    long long start, length;
    IStreamBase::LockType type;
    char const* fresh;
  };
  struct Case {
    std::vector<Step> steps;
    char const* map;
  } const cases[] = {
      {{{0, 100, S, "[0, 100) "}, {50, 100, S, "[100, 150) "}}, "[0, 50)(1,0) [50, 100)(2,0) [100, 150)(1,0) "},
      // Adjacent ranges do not conflict.
      {{{10, 10, X, "[10, 20) "}, {0, 10, X, "[0, 10) "}, {20, 5, S, "[20, 25) "}},
       "[0, 10)(0,1) [10, 20)(0,1) [20, 25)(1,0) "},
      // Locking across gaps fills each gap.
      {{{10, 10, S, "[10, 20) "}, {30, 10, S, "[30, 40) "}, {5, 40, S, "[5, 10) [20, 30) [40, 45) "}},
       "[5, 10)(1,0) [10, 20)(2,0) [20, 30)(1,0) [30, 40)(2,0) [40, 45)(1,0) "},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.map);
    CStreamLockManager locks;
    for (Step const& step : c.steps) {
      TList<CRangeKey> fresh;
      locks.lockRange(step.start, step.length, step.type, fresh);
      EXPECT_EQ(describe(fresh), step.fresh);
    }
    EXPECT_EQ(describe(locks.getLockedRanges()), c.map);
  }
}

TEST(CStreamLockManagerTest, ConflictingRequestsAreRefusedAndChangeNothing) {
  CStreamLockManager locks;
  TList<CRangeKey> fresh;
  locks.lockRange(10, 10, S, fresh);
  locks.lockRange(100, 10, X, fresh);
  std::string const before = describe(locks.getLockedRanges());
  struct Case {
    long long start, length;
    IStreamBase::LockType type;
    char16_t const* text;
  } const cases[] = {
      {10, 10, X, kSharedExist}, {0, 11, X, kSharedExist}, {19, 5, X, kSharedExist}, {0, 100, X, kSharedExist},
      {15, 1, X, kSharedExist},  {105, 1, S, kExclusiveExists}, {50, 100, S, kExclusiveExists},
      {105, 1, X, kExclusiveExists}, {50, 100, X, kExclusiveExists},
      {0, 200, X, kSharedExist},  // the first touched range decides: here the shared one
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(testing::Message() << c.start << "+" << c.length);
    expectConflict(locks, c.start, c.length, c.type, c.text);
    EXPECT_EQ(describe(locks.getLockedRanges()), before);
  }
}

TEST(CStreamLockManagerTest, UnlockReportsRangesWhoseLastHoldWent) {
  CStreamLockManager locks;
  TList<CRangeKey> lists;
  locks.lockRange(0, 100, S, lists);
  locks.lockRange(50, 100, S, lists);
  TList<CRangeKey> released;
  locks.unlockRange(0, 100, S, released);
  EXPECT_EQ(describe(released), "[0, 50) ");
  EXPECT_EQ(describe(locks.getLockedRanges()), "[50, 100)(1,0) [100, 150)(1,0) ");
  EXPECT_TRUE(locks.hasAnyLocks());
  released.clear();
  locks.unlockRange(50, 100, S, released);
  EXPECT_EQ(describe(released), "[50, 100) [100, 150) ");
  EXPECT_FALSE(locks.hasAnyLocks());
}

TEST(CStreamLockManagerTest, UnlockRefusalsLeaveTheMapUnchanged) {
  CStreamLockManager locks;
  TList<CRangeKey> lists;
  locks.lockRange(10, 10, S, lists);
  locks.lockRange(40, 10, X, lists);
  std::string const before = describe(locks.getLockedRanges());
  struct Case {
    long long start, length;
    IStreamBase::LockType type;
    char16_t const* text;
  } const cases[] = {
      {60, 5, S, kNotLocked},      // nothing there
      {10, 10, X, kNotLocked},  // held, but shared
      {40, 10, S, kNotLocked},     // held, but exclusive
      {12, 3, S, kPartial},        // inside a stored range
      {5, 10, S, kNotLocked},      // a gap before it
      {10, 15, S, kNotLocked},     // a gap after it
      {15, 40, S, kPartial},       // starts inside
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.start);
    TList<CRangeKey> released;
    auto error = catchError<CError>([&] { locks.unlockRange(c.start, c.length, c.type, released); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage(), String(c.text));
    EXPECT_TRUE(released.empty());
    EXPECT_EQ(describe(locks.getLockedRanges()), before);
  }
}

TEST(CStreamLockManagerTest, EmptyAndNegativeLengthsRecordNothing) {
  CStreamLockManager locks;
  TList<CRangeKey> lists;
  for (long long length : {0LL, -1LL, -100LL}) {
    locks.lockRange(5, length, X, lists);
    locks.unlockRange(5, length, S, lists);
  }
  EXPECT_TRUE(lists.empty());
  EXPECT_FALSE(locks.hasAnyLocks());
}

TEST(CStreamLockManagerTest, RangesOutsideTheSigned64BitSpaceAreInvalid) {
  CStreamLockManager locks;
  TList<CRangeKey> lists;
  EXPECT_THROW(locks.lockRange(-1, 10, S, lists), qo::CInvalidArgError);
  EXPECT_THROW(locks.lockRange(INT64_MAX - 5, 10, S, lists), qo::CInvalidArgError);
  locks.lockRange(INT64_MAX - 10, 10, S, lists);
  EXPECT_EQ(lists.size(), 1u);
}

namespace {

/// The reference: per byte the holder counts and the id of the stored range
/// that holds it (0: none); a stored range is a maximal run of equal ids.
class CByteModel {
public:
  static constexpr int kSize = 48;

  struct Run {
    long long start, end;
    int shared, exclusive;
  };

  std::vector<Run> runs() const {
    std::vector<Run> result;
    for (int b = 0; b < kSize; ++b) {
      if (m_id[b] == 0) continue;
      if (!result.empty() && result.back().end == b && m_id[b - 1] == m_id[b]) {
        ++result.back().end;
      } else {
        result.push_back(Run{b, b + 1, m_shared[b], m_exclusive[b]});
      }
    }
    return result;
  }

  std::vector<Entry> entries() const {
    std::vector<Entry> result;
    for (Run const& r : runs()) result.emplace_back(CRangeKey(r.start, r.end - r.start), Record{r.shared, r.exclusive});
    return result;
  }

  // Each returns the refusal text, or "" and the reported ranges.
  std::u16string lock(int start, int length, bool exclusive, std::vector<CRangeKey>& fresh) {
    if (length < 1) return u"";
    int const end = start + length;
    for (int b = start; b < end; ++b) {
      if (m_id[b] == 0) continue;
      if (m_exclusive[b] > 0) return kExclusiveExists;
      if (exclusive) return kSharedExist;
    }
    std::vector<int> remap(static_cast<std::size_t>(m_nextId), 0);
    bool previousWasGap = false;
    for (int b = start; b < end; ++b) {
      if (m_id[b] != 0) {
        int& to = remap[static_cast<std::size_t>(m_id[b])];
        if (to == 0) to = m_nextId++;
        m_id[b] = to;
        previousWasGap = false;
      } else {
        if (!previousWasGap) {
          fresh.push_back(CRangeKey(b, 0));
          m_gapId = m_nextId++;
        }
        fresh.back().setLength(fresh.back().getLength() + 1);
        m_id[b] = m_gapId;
        previousWasGap = true;
      }
      ++(exclusive ? m_exclusive[b] : m_shared[b]);
    }
    return u"";
  }

  std::u16string unlock(int start, int length, bool exclusive, std::vector<CRangeKey>& released) {
    if (length < 1) return u"";
    int const end = start + length;
    std::vector<Run> touched;
    for (Run const& r : runs()) {
      if (r.end > start && r.start < end) touched.push_back(r);
    }
    long long pos = start;
    for (Run const& r : touched) {
      if (r.start > pos) return kNotLocked;
      if (r.start < start || r.end > end) return kPartial;
      if ((exclusive ? r.exclusive : r.shared) == 0) return kNotLocked;
      pos = r.end;
    }
    if (pos < end) return kNotLocked;
    for (Run const& r : touched) {
      bool gone = true;
      for (long long b = r.start; b < r.end; ++b) {
        --(exclusive ? m_exclusive[b] : m_shared[b]);
        gone = m_exclusive[b] == 0 && m_shared[b] == 0;
        if (gone) m_id[b] = 0;
      }
      if (gone) released.push_back(CRangeKey(r.start, r.end - r.start));
    }
    return u"";
  }

private:
  int m_shared[kSize] = {};
  int m_exclusive[kSize] = {};
  int m_id[kSize] = {};
  int m_nextId = 1;
  int m_gapId = 0;
};

/// A fixed generator, so that the sequence is the same on every platform.
class CSplitMix {
public:
  explicit CSplitMix(std::uint64_t seed) : m_state(seed) {}
  int below(int bound) {
    std::uint64_t z = (m_state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return static_cast<int>((z ^ (z >> 31)) % static_cast<std::uint64_t>(bound));
  }

private:
  std::uint64_t m_state;
};

}  // namespace

TEST(CStreamLockManagerTest, RandomRequestsMatchAPerByteModel) {
  CStreamLockManager locks;
  CByteModel model;
  CSplitMix random(20240601);
  struct Held {
    int start, length;
    bool exclusive;
  };
  std::vector<Held> held;
  int refusals = 0, unlocks = 0;
  for (int step = 0; step < 10000; ++step) {
    SCOPED_TRACE(step);
    int const what = random.below(100);
    bool const isLock = what < 55 || held.empty();
    Held request;
    std::size_t heldIndex = held.size();
    if (isLock || what >= 90) {
      request.start = random.below(CByteModel::kSize);
      request.length = random.below(14) - 1;  // -1 .. 12
      if (request.start + request.length > CByteModel::kSize) request.length = CByteModel::kSize - request.start;
      request.exclusive = random.below(10) < 3;
    } else {
      heldIndex = static_cast<std::size_t>(random.below(static_cast<int>(held.size())));
      request = held[heldIndex];
    }
    IStreamBase::LockType const type = request.exclusive ? X : S;
    std::vector<CRangeKey> expectedList;
    std::u16string const expectedRefusal =
        isLock ? model.lock(request.start, request.length, request.exclusive, expectedList)
               : model.unlock(request.start, request.length, request.exclusive, expectedList);
    std::vector<Entry> const before = locks.getLockedRanges();
    TList<CRangeKey> list;
    std::u16string refusal;
    try {
      if (isLock) {
        locks.lockRange(request.start, request.length, type, list);
      } else {
        locks.unlockRange(request.start, request.length, type, list);
      }
    } catch (CFileSystemError const& e) {
      ASSERT_TRUE(isLock);
      ASSERT_EQ(e.getProblem(), CFileSystemError::kLockConflict);
      refusal = e.getCause()->getMessage().str();
    } catch (CError const& e) {
      ASSERT_FALSE(isLock);
      refusal = e.getMessage().str();
    }
    ASSERT_EQ(String(refusal), String(expectedRefusal)) << (isLock ? "lock " : "unlock ") << request.start << "+"
                                                        << request.length << (request.exclusive ? " x" : " s");
    ASSERT_EQ(describe(list), describe(expectedList));
    ASSERT_EQ(describe(locks.getLockedRanges()), describe(model.entries()));
    if (!refusal.empty()) {
      ++refusals;
      ASSERT_EQ(describe(locks.getLockedRanges()), describe(before));
    } else if (isLock && request.length > 0) {
      held.push_back(request);
    } else if (!isLock && heldIndex < held.size()) {
      held.erase(held.begin() + static_cast<std::ptrdiff_t>(heldIndex));
      ++unlocks;
    }
    ASSERT_EQ(locks.hasAnyLocks(), !model.runs().empty());
  }
  // The walk must have exercised both outcomes a fair number of times.
  EXPECT_GT(refusals, 1000);
  EXPECT_GT(unlocks, 1000);
}

TEST(CStreamLockManagerTest, ConcurrentSharedHoldersKeepTheCountsRight) {
  CStreamLockManager locks;
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 2000; ++i) {
        long long const start = (t * 7 + i) % 50;
        try {
          TList<CRangeKey> lists;
          locks.lockRange(start, 20, S, lists);
          locks.unlockRange(start, 20, S, lists);
        } catch (CError const&) {
          ++failures;
        }
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(failures.load(), 0);
  EXPECT_FALSE(locks.hasAnyLocks());
}
