#include "qo/core/TConstBufferSlice.h"

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <string>

#include "qo/core/CInvalidArgError.h"

using namespace qo;

namespace {

using Bytes = TBuffer<unsigned char>;
using Slice = TConstBufferSlice<unsigned char>;

std::atomic<int> g_liveBuffers{0};

class CCountedBytes : public Bytes {
public:
  CCountedBytes(unsigned char const* data, long long n) : Bytes(data, n) { ++g_liveBuffers; }
  ~CCountedBytes() override { --g_liveBuffers; }
};

P<Bytes> makeBuffer(int n) {
  P<Bytes> b = newP<Bytes>();
  for (int i = 0; i < n; ++i) b->append(static_cast<unsigned char>(i));
  return b;
}

std::string text(Slice const& s) {
  std::string result;
  for (long long i = 0; i < s.getLength(); ++i) result += static_cast<char>('0' + s.getData()[i]);
  return result;
}

}  // namespace

TEST(TConstBufferSliceTest, WholeBufferSliceTakesTheCurrentSizeAndDataFollowsTheBuffer) {
  P<Bytes> buf = makeBuffer(10);
  Slice const all(buf);
  EXPECT_EQ(all.getStart(), 0);
  EXPECT_EQ(all.getLength(), 10);
  EXPECT_EQ(all.getData(), buf->getData());
  EXPECT_EQ(all.getBuffer(), buf);
  Slice const part(buf, 3, 4);
  buf->setSize(20);
  EXPECT_EQ(all.getLength(), 10);
  buf->setSize(100000);  // reallocates: the data follows the buffer
  EXPECT_EQ(part.getData(), buf->getData() + 3);
  EXPECT_EQ(text(part), "3456");
}

TEST(TConstBufferSliceTest, SliceOfSliceIsRelativeAndBoundedByTheSlice) {
  P<Bytes> buf = makeBuffer(10);
  Slice const mid(buf, 2, 5);
  Slice const inner = mid.slice(1, 3);
  EXPECT_EQ(inner.getStart(), 3);
  EXPECT_EQ(inner.getEnd(), 6);
  EXPECT_EQ(text(inner), "345");
  EXPECT_EQ(mid.slice(5, 0).getStart(), 7);
  // The buffer has room, but the parent slice does not.
  try {
    (void)mid.slice(0, 6);
    ADD_FAILURE() << "accepted";
  } catch (CInvalidArgError const& e) {
    EXPECT_EQ(e.getMessage(), String("Invalid argument passed to 'TConstBufferSlice::slice': the range lies outside the buffer."));
    EXPECT_EQ(e.getParams().lookupLong(u"start", -1), 0);
    EXPECT_EQ(e.getParams().lookupLong(u"length", -1), 6);
    EXPECT_EQ(e.getParams().lookupLong(u"size", -1), 5);
  }
}

TEST(TConstBufferSliceTest, RangesAreCheckedAgainstTheSize) {
  struct Case {
    long long start;
    long long length;
    bool ok;
  } const cases[] = {
      {0, 10, true},         {10, 0, true},        {0, 0, true},   {9, 1, true},
      {11, 0, false},        {-1, 1, false},       {0, -1, false}, {5, 6, false},
      {LLONG_MAX, 1, false}, {1, LLONG_MAX, false}, {LLONG_MIN, 0, false},
  };
  P<Bytes> buf = makeBuffer(10);
  for (Case const& c : cases) {
    SCOPED_TRACE(std::to_string(c.start) + "," + std::to_string(c.length));
    if (c.ok) {
      Slice const s(buf, c.start, c.length);
      EXPECT_EQ(s.getLength(), c.length);
    } else {
      try {
        Slice const s(buf, c.start, c.length);
        ADD_FAILURE() << "accepted";
      } catch (CInvalidArgError const& e) {
        EXPECT_TRUE(e.getMessage().Contains(u"'TConstBufferSlice constructor'"));
        EXPECT_EQ(e.getParams().lookupLong(u"start", 0), c.start);
        EXPECT_EQ(e.getParams().lookupLong(u"length", 0), c.length);
        EXPECT_EQ(e.getParams().lookupLong(u"size", 0), 10);
      }
    }
  }
}

TEST(TConstBufferSliceTest, SliceKeepsItsBufferAliveAndEmptyAndNullSlices) {
  unsigned char const data[3] = {1, 2, 3};
  Slice s;
  {
    P<Bytes> buf(new CCountedBytes(data, 3));
    EXPECT_EQ(g_liveBuffers.load(), 1);
    s = Slice(buf, 1, 2);
  }
  EXPECT_EQ(g_liveBuffers.load(), 1);
  EXPECT_EQ(text(s), "23");
  Slice copy = s;
  s = Slice();
  EXPECT_EQ(g_liveBuffers.load(), 1);
  copy = Slice();
  EXPECT_EQ(g_liveBuffers.load(), 0);
  Slice const none;
  EXPECT_EQ(none.getData(), nullptr);
  EXPECT_EQ(none.getLength(), 0);
  EXPECT_TRUE(none.isEmpty());
  EXPECT_TRUE(none.slice(0, 0).isEmpty());
  EXPECT_EQ(Slice(P<Bytes>()).getLength(), 0);
  EXPECT_THROW(Slice(P<Bytes>(), 0, 1), CInvalidArgError);
  EXPECT_THROW((void)none.slice(0, 1), CInvalidArgError);
}
