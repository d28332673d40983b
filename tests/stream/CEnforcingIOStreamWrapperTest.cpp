#include "qo/stream/CEnforcingIOStreamWrapper.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CIOError.h"
#include "qo/core/TBuffer.h"
#include "qo/stream/CBufferStream.h"
#include "stream/StreamTestSupport.h"

using qo::CBufferStream;
using qo::CEnforcingIOStreamWrapper;
using qo::CInvalidArgError;
using qo::CIOError;
using qo::P;
using qo::String;
using qo::TBuffer;
using qo::TConstBufferSlice;
using qo::test::catchError;
using qo::test::ioError;

namespace {

struct Fixture {
  Fixture() {
    bytes->setSizeZeroed(4096);
    inner = qo::newP<CBufferStream>(bytes.get());
    strict = qo::newP<CEnforcingIOStreamWrapper>(inner.get(), 512, 16, 4096);
  }
  P<TBuffer<unsigned char>> bytes = qo::newP<TBuffer<unsigned char>>();
  P<CBufferStream> inner;
  P<CEnforcingIOStreamWrapper> strict;
  alignas(64) unsigned char memory[2048] = {};
};

String positionText(long long value) {
  return u"The specified stream position or size " + qo::toString(value) +
         u" does not conform to the alignment requirement of 512";
}

String bufferText() {
  return u"The specified buffer for a stream operation does not conform to the buffer alignment requirement of 16";
}

}  // namespace

TEST(CEnforcingIOStreamWrapperTest, ConstructionChecksTheSettingsInOrder) {
  P<CBufferStream> inner = qo::newP<CBufferStream>();
  struct Case {
    int position, buffer, best;
    char16_t const* text;
  } const cases[] = {
      {0, 0, 0, u"positionAlign must be >=1"},
      {-4, 16, 4, u"positionAlign must be >=1"},
      {512, 0, 512, u"positionAlign must be >=1"},  // the buffer check keeps the position text
      {512, 0, 100, u"positionAlign must be >=1"},
      {512, 1, 256, u"bestPerformancePositionAlign must be >= positionAlign"},
      {512, 1, 768, u"bestPerformancePositionAlign must be a multiple of positionAlign"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.text));
    auto error = catchError<CInvalidArgError>(
        [&] { (void)qo::newP<CEnforcingIOStreamWrapper>(inner.get(), c.position, c.buffer, c.best); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage(),
              u"Invalid argument passed to 'CEnforcingIOStreamWrapper::construct': " + String(c.text) + u".");
  }
  P<CEnforcingIOStreamWrapper> fine = qo::newP<CEnforcingIOStreamWrapper>(inner.get(), 1, 1, 1);
  EXPECT_EQ(fine->getBestPerformancePositionAlign(), 1);
}

TEST(CEnforcingIOStreamWrapperTest, MisalignedPositionsAndSizesAreRefusedBeforeTheInnerStream) {
  Fixture f;
  TConstBufferSlice<unsigned char> const whole(f.bytes, 0, 1024);
  struct Case {
    char const* name;
    long long value;
    std::function<void()> call;
  } const cases[] = {
      {"seek", 100, [&] { f.strict->seek(100); }},
      {"seek", -1, [&] { f.strict->seek(-1); }},
      {"read", 100, [&] { f.strict->read(f.memory, 100); }},
      {"readLax", 513, [&] { f.strict->readLax(f.memory, 513); }},
      {"readAvailable", 1, [&] { f.strict->readAvailable(f.memory, 1); }},
      {"write", 511, [&] { f.strict->write(f.memory, 511); }},
      {"writeKeepBuffer", 3, [&] { f.strict->writeKeepBuffer(whole.slice(0, 3)); }},
      {"setLength", 1000, [&] { f.strict->setLength(1000); }},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    auto error = ioError(c.call, CIOError::kPositionNotAligned, positionText(c.value).c_str());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getTraceListString(), String("CEnforcingIOStreamWrapper::") + String(c.name));
    EXPECT_EQ(f.inner->getPosition(), 0);
    EXPECT_EQ(f.inner->getLength(), 4096);
  }
}

TEST(CEnforcingIOStreamWrapperTest, AMisalignedStartPositionIsRefused) {
  Fixture f;
  f.inner->seek(100);  // moved behind the wrapper's back
  ioError([&] { f.strict->read(f.memory, 512); }, CIOError::kPositionNotAligned, positionText(100).c_str());
  ioError([&] { f.strict->write(f.memory, 512); }, CIOError::kPositionNotAligned, positionText(100).c_str());
  EXPECT_EQ(f.inner->getPosition(), 100);
}

TEST(CEnforcingIOStreamWrapperTest, MisalignedBuffersAreRefused) {
  Fixture f;
  P<TBuffer<unsigned char>> source = qo::newP<TBuffer<unsigned char>>(1024);
  TConstBufferSlice<unsigned char> const whole(source, 0, 1024);
  // Find an offset that makes the slice's address misaligned for 16.
  long long offset = 1;
  while (reinterpret_cast<std::uintptr_t>(whole.getData() + offset) % 16 == 0) ++offset;
  for (int shift : {1, 8, 15}) {
    SCOPED_TRACE(shift);
    unsigned char* const misaligned = f.memory + shift;
    struct Case {
      char const* name;
      std::function<void()> call;
    } const cases[] = {
        {"read", [&] { f.strict->read(misaligned, 512); }},
        {"readLax", [&] { f.strict->readLax(misaligned, 512); }},
        {"readAvailable", [&] { f.strict->readAvailable(misaligned, 512); }},
        {"write", [&] { f.strict->write(misaligned, 512); }},
    };
    for (Case const& c : cases) {
      SCOPED_TRACE(c.name);
      ioError(c.call, CIOError::kBufferNotAligned, bufferText().c_str());
      EXPECT_EQ(f.inner->getPosition(), 0);
    }
  }
  ioError([&] { f.strict->writeKeepBuffer(whole.slice(offset, 512)); }, CIOError::kBufferNotAligned,
          bufferText().c_str());
}

TEST(CEnforcingIOStreamWrapperTest, AlignedCallsReachTheInnerStream) {
  Fixture f;
  for (int i = 0; i < 1024; ++i) f.memory[i] = static_cast<unsigned char>(i);
  f.strict->seek(512);
  f.strict->write(f.memory, 1024);
  EXPECT_EQ(f.inner->getPosition(), 1536);
  EXPECT_EQ((*f.bytes)[512], 0);
  EXPECT_EQ((*f.bytes)[512 + 1023], static_cast<unsigned char>(1023));
  f.strict->seek(512);
  alignas(16) unsigned char back[1024];
  f.strict->read(back, 1024);
  EXPECT_EQ(std::vector<unsigned char>(back, back + 1024), std::vector<unsigned char>(f.memory, f.memory + 1024));
  EXPECT_EQ(f.strict->readLax(f.memory + 1024, 0), 0);  // 0 is a multiple of anything
  f.strict->setLength(2048);
  EXPECT_EQ(f.strict->getLength(), 2048);
  EXPECT_EQ(f.strict->getPositionAlign(), 512);
  EXPECT_EQ(f.strict->getBufferAlign(), 16);
  EXPECT_EQ(f.strict->getBestPerformancePositionAlign(), 4096);
}
