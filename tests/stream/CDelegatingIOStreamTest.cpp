#include "qo/stream/CDelegatingIOStream.h"

#include <gtest/gtest.h>

#include <string>

#include "qo/core/CIOError.h"
#include "qo/core/TBuffer.h"
#include "qo/stream/CBufferStream.h"
#include "qo/stream/CEnforcingIOStreamWrapper.h"

using qo::CBufferStream;
using qo::CDelegatingIOStream;
using qo::IWriteBarrier;
using qo::P;
using qo::TBuffer;
using qo::TConstBufferSlice;

namespace {
/// Changes one operation and leaves the rest to the base.
class CCountingStream : public CDelegatingIOStream {
public:
  using CDelegatingIOStream::CDelegatingIOStream;
  void write(void const* data, int size, IWriteBarrier* barrier = nullptr) override {
    m_written += size;
    CDelegatingIOStream::write(data, size, barrier);
  }
  long long m_written = 0;
};
}  // namespace

TEST(CDelegatingIOStreamTest, ForwardsEveryOperation) {
  P<TBuffer<unsigned char>> bytes = qo::newP<TBuffer<unsigned char>>();
  P<CBufferStream> inner = qo::newP<CBufferStream>(bytes.get());
  P<CCountingStream> outer = qo::newP<CCountingStream>(inner.get());
  outer->write("hello", 5);
  outer->writeKeepBuffer(TConstBufferSlice<unsigned char>(qo::newP<TBuffer<unsigned char>>(
      reinterpret_cast<unsigned char const*>("!!"), 2)));
  EXPECT_EQ(outer->m_written, 5);
  EXPECT_EQ(outer->getLength(), 7);
  EXPECT_EQ(outer->getPosition(), 7);
  outer->seek(1);
  char out[8];
  outer->read(out, 2);
  EXPECT_EQ(std::string(out, 2), "el");
  EXPECT_EQ(outer->readLax(out, 8), 4);
  EXPECT_EQ(outer->readAvailable(out, 8), 0);
  EXPECT_TRUE(outer->isEndOfStream());
  EXPECT_EQ(outer->isEndOfStream_NonBlocking(), 1);
  EXPECT_TRUE(outer->waitReadable(0));
  outer->setLength(3);
  EXPECT_EQ(bytes->getSize(), 3);
  outer->flush();
  EXPECT_TRUE(outer->createWriteBarrier(nullptr));
  EXPECT_TRUE(outer->getURI().isEmpty());
  EXPECT_THROW((void)outer->lockRange(0, 1, qo::IStreamBase::LockShared), qo::CIOError);
  EXPECT_EQ(outer->getPositionAlign(), 1);
  outer->close();
  EXPECT_THROW(inner->readLax(out, 1), qo::CIOError);
}

TEST(CDelegatingIOStreamTest, ReportsTheInnerAlignment) {
  P<CBufferStream> memory = qo::newP<CBufferStream>();
  P<qo::CEnforcingIOStreamWrapper> strict = qo::newP<qo::CEnforcingIOStreamWrapper>(memory.get(), 8, 4, 64);
  P<CDelegatingIOStream> outer = qo::newP<CDelegatingIOStream>(strict.get());
  EXPECT_EQ(outer->getInnerStream().get(), static_cast<qo::IIOStream*>(strict.get()));
  EXPECT_EQ(outer->getPositionAlign(), 8);
  EXPECT_EQ(outer->getBufferAlign(), 4);
  EXPECT_EQ(outer->getBestPerformancePositionAlign(), 64);
}
