#include "qo/core/TBuffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include "qo/core/CInvalidArgError.h"

using namespace qo;

namespace {

using Bytes = TBuffer<unsigned char>;

static_assert(!std::is_copy_constructible_v<Bytes>, "buffers are shared, not copied");
static_assert(!std::is_copy_assignable_v<Bytes>);

// The CInvalidArgError f throws; a missing one fails the test.
template <class F>
CInvalidArgError expectInvalidArg(F f) {
  try {
    f();
  } catch (CInvalidArgError const& e) {
    return e;
  }
  throw std::logic_error("no CInvalidArgError was thrown");
}

std::vector<unsigned char> contents(Bytes const& b) {
  return std::vector<unsigned char>(b.getData(), b.getData() + b.getSize());
}

template <class T>
class TBufferTypedTest : public ::testing::Test {};
using ElementTypes = ::testing::Types<unsigned char, wchar_t, long long>;
TYPED_TEST_SUITE(TBufferTypedTest, ElementTypes);

}  // namespace

TEST(TBufferTest, EmptyBufferHasNoStorageAndCloneIsDeepAndTight) {
  Bytes empty;
  EXPECT_EQ(empty.getSize(), 0);
  EXPECT_EQ(empty.getCapacity(), 0);
  EXPECT_TRUE(empty.isEmpty());
  EXPECT_EQ(empty.getData(), nullptr);
  empty.append(nullptr, 0);
  EXPECT_EQ(empty.getSize(), 0);
  EXPECT_EQ(empty.clone()->getSize(), 0);
  // A clone is deep and tight.
  unsigned char const data[3] = {9, 8, 7};
  P<Bytes> a = newP<Bytes>(data, 3);
  a->reserve(50);
  P<Bytes> b = a->clone();
  EXPECT_NE(a, b);
  EXPECT_EQ(b->getCapacity(), 3);
  (*b)[0] = 1;
  EXPECT_EQ((*a)[0], 9);
  EXPECT_EQ(contents(*b), (std::vector<unsigned char>{1, 8, 7}));
}

TYPED_TEST(TBufferTypedTest, AppendAndSetSizeKeepElementsAcrossGrowth) {
  TBuffer<TypeParam> b;
  std::vector<TypeParam> expected;
  for (int i = 0; i < 1000; ++i) {
    TypeParam const chunk[3] = {TypeParam(i), TypeParam(i + 1), TypeParam(i * 3)};
    b.append(chunk, 3);
    expected.insert(expected.end(), chunk, chunk + 3);
  }
  ASSERT_EQ(b.getSize(), 3000);
  EXPECT_TRUE(std::equal(expected.begin(), expected.end(), b.getData()));
  EXPECT_GE(b.getCapacity(), b.getSize());
  TypeParam const data[4] = {TypeParam(1), TypeParam(2), TypeParam(3), TypeParam(4)};
  TBuffer<TypeParam> c(data, 4);  // setSize keeps the prefix
  c.setSize(100);
  c.setSize(2);
  c.setSize(3000);
  EXPECT_EQ(c.getSize(), 3000);
  EXPECT_EQ(c[0], TypeParam(1));
  EXPECT_EQ(c[1], TypeParam(2));
}

TEST(TBufferTest, GrowthDoublesButNeverBelowTheNeedAndReserveIsExact) {
  Bytes b;
  b.setSize(10);
  EXPECT_EQ(b.getCapacity(), 10);
  b.setSize(11);
  EXPECT_EQ(b.getCapacity(), 20);
  b.setSize(20);
  EXPECT_EQ(b.getCapacity(), 20);
  b.setSize(41);
  EXPECT_EQ(b.getCapacity(), 41);
  unsigned char const one = 7;
  b.append(&one, 1);
  EXPECT_EQ(b.getCapacity(), 82);
  // reserve allocates exactly and never shrinks.
  Bytes r;
  r.reserve(10);
  EXPECT_EQ(r.getCapacity(), 10);
  EXPECT_EQ(r.getSize(), 0);
  r.reserve(5);
  EXPECT_EQ(r.getCapacity(), 10);
  r.reserve(11);
  EXPECT_EQ(r.getCapacity(), 11);
  unsigned char const data[3] = {1, 2, 3};
  r.append(data, 3);
  r.clear();
  EXPECT_EQ(r.getSize(), 0);
  EXPECT_EQ(r.getCapacity(), 11);
  r.setSize(3);
  r.shrinkToFit();
  EXPECT_EQ(r.getCapacity(), 3);
  EXPECT_EQ(contents(r), (std::vector<unsigned char>{1, 2, 3}));
}

TEST(TBufferTest, SetSizeZeroedClearsOnlyTheNewTail) {
  Bytes b;
  b.setSize(8);
  std::memset(b.getData(), 0xAB, 8);
  b.setSize(3);  // the old bytes stay in the storage
  b.setSizeZeroed(6);
  EXPECT_EQ(contents(b), (std::vector<unsigned char>{0xAB, 0xAB, 0xAB, 0, 0, 0}));
  b.setSizeZeroed(40);  // with reallocation
  EXPECT_EQ(b[2], 0xAB);
  for (long long i = 3; i < 40; ++i) ASSERT_EQ(b[i], 0) << i;
  b.setSizeZeroed(1);
  EXPECT_EQ(contents(b), (std::vector<unsigned char>{0xAB}));
}

TEST(TBufferTest, AppendFromItselfSurvivesReallocation) {
  unsigned char const data[4] = {1, 2, 3, 4};
  Bytes b(data, 4);
  ASSERT_EQ(b.getCapacity(), 4);
  b.append(b.getData(), 4);  // must grow while reading its own storage
  EXPECT_EQ(contents(b), (std::vector<unsigned char>{1, 2, 3, 4, 1, 2, 3, 4}));
  b.reserve(100);
  b.append(b.getData() + 2, 3);  // no growth
  EXPECT_EQ(contents(b), (std::vector<unsigned char>{1, 2, 3, 4, 1, 2, 3, 4, 3, 4, 1}));
  b.shrinkToFit();
  b.append(b[0]);  // one element out of the storage being replaced
  EXPECT_EQ(b.getSize(), 12);
  EXPECT_EQ(b[11], 1);
}

TEST(TBufferTest, BadSizesThrowInvalidArg) {
  long long const max = Bytes::kMaxSize;
  Bytes b;
  CInvalidArgError e = expectInvalidArg([&] { b.setSize(-1); });
  EXPECT_EQ(e.getMessage(), String("Invalid argument passed to 'TBuffer::setSize': the size is negative."));
  EXPECT_EQ(e.getParams().lookupLong(u"size", 0), -1);
  // Bytes can count up to LLONG_MAX; wider elements run out earlier.
  TBuffer<long long> wide;
  long long const wideMax = TBuffer<long long>::kMaxSize;
  e = expectInvalidArg([&] { wide.setSize(wideMax + 1); });
  EXPECT_EQ(e.getMessage(), String("Invalid argument passed to 'TBuffer::setSize': the size is too large."));
  EXPECT_EQ(e.getParams().lookupLong(u"size", 0), wideMax + 1);
  e = expectInvalidArg([&] { b.reserve(-5); });
  EXPECT_EQ(e.getMessage(), String("Invalid argument passed to 'TBuffer::reserve': the size is negative."));
  e = expectInvalidArg([&] { b.setSizeZeroed(-2); });
  EXPECT_EQ(e.getParams().lookupLong(u"size", 0), -2);
  unsigned char const one = 1;
  e = expectInvalidArg([&] { b.append(&one, -1); });
  EXPECT_EQ(e.getMessage(), String("Invalid argument passed to 'TBuffer::append': the size is negative."));
  b.append(&one, 1);
  // max is a valid count on its own, but not on top of one element.
  e = expectInvalidArg([&] { b.append(&one, max); });
  EXPECT_EQ(e.getMessage(), String("Invalid argument passed to 'TBuffer::append': the size would overflow."));
  EXPECT_EQ(b.getSize(), 1);
  EXPECT_EQ(b[0], 1);
  expectInvalidArg([] { Bytes tooBig(-1); });
  EXPECT_EQ(TBuffer<long long>::kMaxSize * 8, Bytes::kMaxSize - 7);
}
