#include "qo/stream/CInStreamToIOStreamWrapper.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "qo/core/CIOError.h"
#include "qo/core/TBuffer.h"
#include "stream/StreamTestSupport.h"

using qo::CInStreamToIOStreamWrapper;
using qo::CIOError;
using qo::IStreamBase;
using qo::P;
using qo::String;
using qo::TBuffer;
using qo::TConstBufferSlice;
using qo::test::ioError;
using qo::test::CScriptedInStream;

TEST(CInStreamToIOStreamWrapperTest, EveryWriteSideOperationIsRefused) {
  P<CScriptedInStream> in = qo::newP<CScriptedInStream>("abc", String(u"test:readonly"));
  P<CInStreamToIOStreamWrapper> io = qo::newP<CInStreamToIOStreamWrapper>(in.get());
  P<TBuffer<unsigned char>> bytes = qo::newP<TBuffer<unsigned char>>(4);
  struct Case {
    char const* place;
    char16_t const* text;
    std::function<void()> call;
  } const cases[] = {
      {"CInStreamToIOStreamWrapper::write", u"write access denied (wrapped input stream)", [&] { io->write("x", 1); }},
      {"CInStreamToIOStreamWrapper::writeKeepBuffer", u"write access denied (wrapped input stream)",
       [&] { io->writeKeepBuffer(TConstBufferSlice<unsigned char>(bytes)); }},
      {"CInStreamToIOStreamWrapper::createWriteBarrier",
       u"write access denied for creating write barrier (wrapped input stream)",
       [&] { (void)io->createWriteBarrier(nullptr); }},
      {"CInStreamToIOStreamWrapper::flush", u"write access denied for flush (wrapped input stream)",
       [&] { io->flush(); }},
      {"CInStreamToIOStreamWrapper::setLength", u"write access denied for setLength (wrapped input stream)",
       [&] { io->setLength(0); }},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.place);
    auto error = ioError(c.call, CIOError::kWriteFailed, c.text);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getTraceListString(), String(c.place));
    EXPECT_EQ(error->getParams().lookup(CIOError::paramURI()), String(u"test:readonly"));
  }
  EXPECT_EQ(in->getLength(), 3);
  EXPECT_EQ(in->getPosition(), 0);
}

TEST(CInStreamToIOStreamWrapperTest, ReadingSideGoesToTheWrappedStream) {
  P<CScriptedInStream> in = qo::newP<CScriptedInStream>("abcdef", String(u"test:in"), 2, 4, 8);
  P<CInStreamToIOStreamWrapper> io = qo::newP<CInStreamToIOStreamWrapper>(in.get());
  EXPECT_EQ(io->getSubStream().get(), in.get());
  EXPECT_EQ(io->getLength(), 6);
  io->seek(2);
  char out[4];
  io->read(out, 2);
  EXPECT_EQ(std::string(out, 2), "cd");
  EXPECT_EQ(io->readLax(out, 4), 2);
  EXPECT_EQ(io->readAvailable(out, 4), 0);
  EXPECT_EQ(io->getPosition(), 6);
  EXPECT_TRUE(io->isEndOfStream());
  EXPECT_EQ(io->isEndOfStream_NonBlocking(), 1);
  EXPECT_TRUE(io->waitReadable(0));
  EXPECT_EQ(io->getURI().toString(true), String(u"test:in"));
  EXPECT_EQ(io->getPositionAlign(), 2);
  EXPECT_EQ(io->getBufferAlign(), 4);
  EXPECT_EQ(io->getBestPerformancePositionAlign(), 8);
  auto lock = io->lockRange(1, 2, IStreamBase::LockShared);
  ASSERT_EQ(in->locks().size(), 1u);
  EXPECT_EQ(in->locks()[0].start, 1);
  io->close();
  EXPECT_TRUE(in->m_closed);
}
