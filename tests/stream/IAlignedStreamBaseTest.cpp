#include "qo/stream/IAlignedStreamBase.h"

#include <gtest/gtest.h>

#include <typeinfo>

#include "qo/stream/CBufferStream.h"
#include "qo/stream/CEnforcingIOStreamWrapper.h"

using qo::CBufferStream;
using qo::CEnforcingIOStreamWrapper;
using qo::IAlignedStreamBase;
using qo::IIOStream;
using qo::P;

TEST(IAlignedStreamBaseTest, GetAlignInfoOfPlainAndAlignedStreams) {
  P<CBufferStream> plain = qo::newP<CBufferStream>();
  int position = 0, buffer = 0, best = 0;
  IAlignedStreamBase::getAlignInfo(*plain, position, buffer, best);
  EXPECT_EQ(position, 1);
  EXPECT_EQ(buffer, 1);
  EXPECT_EQ(best, 1);

  P<CEnforcingIOStreamWrapper> aligned = qo::newP<CEnforcingIOStreamWrapper>(plain.get(), 512, 16, 4096);
  IAlignedStreamBase::getAlignInfo(*aligned, position, buffer, best);
  EXPECT_EQ(position, 512);
  EXPECT_EQ(buffer, 16);
  EXPECT_EQ(best, 4096);
  EXPECT_EQ(IAlignedStreamBase::getPositionAlignOf(*aligned), 512);
  EXPECT_EQ(IAlignedStreamBase::getBufferAlignOf(*aligned), 16);
  EXPECT_EQ(IAlignedStreamBase::getBestPerformancePositionAlignOf(*aligned), 4096);
}

namespace {
/// Implements the aligned interface but vetoes casts to it.
class CVetoingStream : public CEnforcingIOStreamWrapper {
public:
  explicit CVetoingStream(IIOStream* inner) : CEnforcingIOStreamWrapper(inner, 8, 8, 8) {}
  bool checkCastAllowed(std::type_info const& type) const override { return type != typeid(IAlignedStreamBase); }
};
}  // namespace

TEST(IAlignedStreamBaseTest, AStreamThatVetoesTheCastCountsAsUnaligned) {
  P<CBufferStream> plain = qo::newP<CBufferStream>();
  P<CVetoingStream> vetoing = qo::newP<CVetoingStream>(plain.get());
  int position = 0, buffer = 0, best = 0;
  IAlignedStreamBase::getAlignInfo(*vetoing, position, buffer, best);
  EXPECT_EQ(position, 1);
  EXPECT_EQ(buffer, 1);
  EXPECT_EQ(best, 1);
}
