#include "qo/stream/IAlignedStreamBase.h"

#include <gtest/gtest.h>

#include <tuple>
#include <typeinfo>

#include "qo/stream/CBufferStream.h"
#include "qo/stream/CEnforcingIOStreamWrapper.h"

using qo::CBufferStream;
using qo::CEnforcingIOStreamWrapper;
using qo::IAlignedStreamBase;
using qo::IIOStream;
using qo::P;

namespace {
/// Implements the aligned interface but vetoes casts to it.
class CVetoingStream : public CEnforcingIOStreamWrapper {
public:
  explicit CVetoingStream(IIOStream* inner) : CEnforcingIOStreamWrapper(inner, 8, 8, 8) {}
  bool checkCastAllowed(std::type_info const& type) const override { return type != typeid(IAlignedStreamBase); }
};
}  // namespace

TEST(IAlignedStreamBaseTest, GetAlignInfoOfPlainAlignedAndVetoingStreams) {
  P<CBufferStream> plain = qo::newP<CBufferStream>();
  P<CEnforcingIOStreamWrapper> aligned = qo::newP<CEnforcingIOStreamWrapper>(plain.get(), 512, 16, 4096);
  P<CVetoingStream> vetoing = qo::newP<CVetoingStream>(plain.get());  // counts as unaligned
  struct Case {
    IIOStream* stream;
    int position, buffer, best;
  } const cases[] = {{plain.get(), 1, 1, 1}, {aligned.get(), 512, 16, 4096}, {vetoing.get(), 1, 1, 1}};
  for (Case const& c : cases) {
    SCOPED_TRACE(c.position);
    int position = 0, buffer = 0, best = 0;
    IAlignedStreamBase::getAlignInfo(*c.stream, position, buffer, best);
    EXPECT_EQ(std::make_tuple(position, buffer, best), std::make_tuple(c.position, c.buffer, c.best));
  }
  EXPECT_EQ(IAlignedStreamBase::getPositionAlignOf(*aligned), 512);
  EXPECT_EQ(IAlignedStreamBase::getBufferAlignOf(*aligned), 16);
  EXPECT_EQ(IAlignedStreamBase::getBestPerformancePositionAlignOf(*aligned), 4096);
}
