#include "qo/stream/CReliableIOStream.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/TBuffer.h"
#include "qo/stream/CBufferStream.h"
#include "qo/stream/CDelegatingIOStream.h"
#include "qo/stream/CDummyWriteBarrier.h"
#include "stream/StreamTestSupport.h"

using qo::CBufferStream;
using qo::CError;
using qo::CIOError;
using qo::CReliableIOStream;
using qo::CSignal;
using qo::IWriteBarrier;
using qo::P;
using Bytes = qo::TBuffer<unsigned char>;

namespace {

/// A memory stream whose writes can be held at a gate and made to fail at a
/// chosen count.
class CGatedStream : public qo::CDelegatingIOStream {
public:
  explicit CGatedStream(int failOnWrite = 0, bool gated = false, P<Bytes> const& buffer = qo::newP<Bytes>())
      : CDelegatingIOStream(qo::newP<CBufferStream>(buffer.get()).get()), bytes(buffer), m_failOn(failOnWrite) {
    if (!gated) gate.set();
  }
  void write(void const* data, int size, IWriteBarrier* barrier) override {
    (void)gate.wait(-1);
    if (++writes == m_failOn) {
      throw CIOError(CIOError::kWriteFailed, u"injected", qo::CProps().addLong(u"write", writes));
    }
    CDelegatingIOStream::write(data, size, barrier);
  }
  void writeKeepBuffer(qo::TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier) override {
    write(data.getData(), static_cast<int>(data.getLength()), barrier);
  }
  void flush() override {
    ++flushes;
    CDelegatingIOStream::flush();
  }
  P<Bytes> bytes;
  CSignal gate;
  std::atomic<int> writes{0};
  std::atomic<int> flushes{0};

private:
  int const m_failOn;
};

class CListener : public qo::CBase, public CReliableIOStream::IBarrierListener {
public:
  void onBarrierDone(IWriteBarrier* barrier, CError const* error) override {
    told = barrier;
    code = error ? error->getErrorCode() : 0;
    ++calls;
    called.set();
  }
  IWriteBarrier* told = nullptr;
  long long code = -2;
  std::atomic<int> calls{0};
  CSignal called;
};

}  // namespace

// Writes at random positions, with and without barriers and kept buffers,
// land as in a plain memory stream; other threads waiting on barriers
// meanwhile all see them done.
TEST(CReliableIOStreamTest, WritesLandInOrderAndBarriersComplete) {
  P<CGatedStream> inner = qo::newP<CGatedStream>();
  P<CReliableIOStream> out = qo::newP<CReliableIOStream>(inner.get(), 16384);
  P<CBufferStream> model = qo::newP<CBufferStream>();
  std::mt19937 random(7);
  std::vector<P<IWriteBarrier>> barriers{out->createWriteBarrier(nullptr)};
  std::vector<std::thread> waiters;
  std::atomic<int> done{0};
  for (int step = 0; step < 1000; ++step) {
    if (step % 125 == 0) {
      barriers.push_back(out->createWriteBarrier(barriers.back().get()));
      IWriteBarrier* const b = barriers.back().get();
      waiters.emplace_back([&out, &done, b] { done += out->waitBarrier(b, -1) ? 1 : 0; });
    }
    if (random() % 8 == 0) {
      long long const to = static_cast<long long>(random() % static_cast<unsigned>(model->getLength() + 1));
      out->seek(to);
      model->seek(to);
    }
    P<Bytes> chunk = qo::newP<Bytes>(static_cast<long long>(random() % 300 + 1));
    for (long long i = 0; i < chunk->getSize(); ++i) (*chunk)[i] = static_cast<unsigned char>(random());
    IWriteBarrier* const b = random() % 2 ? barriers.back().get() : nullptr;
    if (random() % 2) {
      out->writeKeepBuffer(qo::TConstBufferSlice<unsigned char>(chunk), b);
    } else {
      out->write(chunk->getData(), static_cast<int>(chunk->getSize()), b);
    }
    model->write(chunk->getData(), static_cast<int>(chunk->getSize()));
    ASSERT_EQ(out->getPosition(), model->getPosition());
    ASSERT_EQ(out->getLength(), model->getLength());
  }
  out->flush();
  for (auto& t : waiters) t.join();
  EXPECT_EQ(done.load(), static_cast<int>(waiters.size()));
  for (auto const& b : barriers) EXPECT_TRUE(out->isBarrierDone(b.get()));
  // Reading waits for the queue and reads at the stream's position.
  out->seek(0);
  std::vector<unsigned char> back(static_cast<std::size_t>(model->getLength()));
  out->read(back.data(), static_cast<int>(back.size()));
  out->close();
  ASSERT_EQ(inner->bytes->getSize(), model->getLength());
  EXPECT_EQ(0, std::memcmp(inner->bytes->getData(), model->getBuffer()->getData(), back.size()));
  EXPECT_EQ(0, std::memcmp(back.data(), model->getBuffer()->getData(), back.size()));
}

// A write returns once queued; the barrier is done only after the write and
// a flush of the inner stream; a listener hears of it once.
TEST(CReliableIOStreamTest, BarrierWaitsForTheDevice) {
  P<CGatedStream> inner = qo::newP<CGatedStream>(0, true);
  P<CReliableIOStream> out = qo::newP<CReliableIOStream>(inner.get());
  P<IWriteBarrier> empty = out->createWriteBarrier(nullptr);
  EXPECT_TRUE(out->isBarrierDone(empty.get()));  // covers nothing
  P<IWriteBarrier> b = out->createWriteBarrier(nullptr);
  out->write("abc", 3, b.get());
  P<CListener> listener = qo::newP<CListener>();
  out->setBarrierDoneListener(b.get(), listener.get());
  EXPECT_FALSE(out->waitBarrier(b.get(), 0));
  EXPECT_EQ(inner->writes.load(), 0);
  EXPECT_EQ(listener->calls.load(), 0);
  inner->gate.set();
  EXPECT_TRUE(out->waitBarrier(b.get(), -1));
  EXPECT_TRUE(listener->called.wait(-1));
  EXPECT_EQ(listener->told, b.get());
  EXPECT_EQ(listener->code, 0);
  EXPECT_GE(inner->flushes.load(), 1);
  EXPECT_EQ(inner->bytes->getSize(), 3);
  P<CListener> late = qo::newP<CListener>();
  out->setBarrierDoneListener(b.get(), late.get());  // done already: told at once, here
  EXPECT_EQ(late->calls.load(), 1);
  out->close();
  EXPECT_EQ(listener->calls.load(), 1);
}

// The inner stream fails on write k of four, each under its own chained
// barrier: the barriers before k are done, the others report the error, as
// do flush, close and a later write.
TEST(CReliableIOStreamTest, ErrorsReachTheBarriersThatCoverThem) {
  for (int failOn = 1; failOn <= 4; ++failOn) {
    SCOPED_TRACE(failOn);
    P<CGatedStream> inner = qo::newP<CGatedStream>(failOn, true);
    P<CReliableIOStream> out = qo::newP<CReliableIOStream>(inner.get());
    std::vector<P<IWriteBarrier>> barriers;
    P<CListener> listener = qo::newP<CListener>();
    for (int i = 0; i < 4; ++i) {
      barriers.push_back(out->createWriteBarrier(i ? barriers.back().get() : nullptr));
      out->write("0123", 4, barriers.back().get());
    }
    out->setBarrierDoneListener(barriers.back().get(), listener.get());
    inner->gate.set();
    for (int i = 0; i < 4; ++i) {
      SCOPED_TRACE(i);
      if (i + 1 < failOn) {
        EXPECT_TRUE(out->waitBarrier(barriers[static_cast<std::size_t>(i)].get(), -1));
      } else {
        qo::test::ioError([&] { (void)out->waitBarrier(barriers[static_cast<std::size_t>(i)].get(), -1); },
                          CIOError::kWriteFailed, u"injected");
      }
    }
    EXPECT_TRUE(listener->called.wait(-1));
    EXPECT_EQ(listener->code, CIOError::kWriteFailed);
    EXPECT_EQ(inner->writes.load(), failOn);  // the rest was dropped
    EXPECT_EQ(inner->bytes->getSize(), 4 * (failOn - 1));
    qo::test::ioError([&] { out->flush(); }, CIOError::kWriteFailed, u"injected");
    qo::test::ioError([&] { out->write("x", 1); }, CIOError::kWriteFailed, u"injected");
    auto error = qo::test::ioError([&] { out->close(); }, CIOError::kWriteFailed, u"injected");
    if (error) EXPECT_EQ(error->getParams().lookupLong(u"write", -1), failOn);
    qo::test::ioError([&] { out->write("x", 1); }, CIOError::kStreamClosed);
  }
}

TEST(CReliableIOStreamTest, RefusesBarriersOfOtherStreams) {
  P<CReliableIOStream> out = qo::newP<CReliableIOStream>(qo::newP<CGatedStream>().get());
  P<CReliableIOStream> other = qo::newP<CReliableIOStream>(qo::newP<CGatedStream>().get());
  P<IWriteBarrier> foreign[] = {other->createWriteBarrier(nullptr), qo::newP<qo::CDummyWriteBarrier>()};
  for (auto const& b : foreign) {
    auto error = qo::test::catchError<CError>([&] { out->write("x", 1, b.get()); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage(),
              qo::String(u"INTERNAL ERROR: Write barrier object from a different stream passed to CReliableIOStream::write"));
    qo::test::catchError<qo::CInvalidArgError>([&] { (void)out->waitBarrier(b.get(), 0); });
    qo::test::catchError<qo::CInvalidArgError>([&] { (void)out->createWriteBarrier(b.get()); });
  }
  EXPECT_EQ(out->getLength(), 0);  // nothing was queued
}

// write() queues a copy; writeKeepBuffer() queues the caller's slice itself,
// so a change made before the bytes are written shows on the device.
TEST(CReliableIOStreamTest, KeepBufferWritesTheSliceNotACopy) {
  P<CGatedStream> inner = qo::newP<CGatedStream>(0, true);
  P<CReliableIOStream> out = qo::newP<CReliableIOStream>(inner.get());
  P<Bytes> kept = qo::newP<Bytes>(reinterpret_cast<unsigned char const*>("kept"), 4);
  P<Bytes> copied = qo::newP<Bytes>(reinterpret_cast<unsigned char const*>("copy"), 4);
  out->writeKeepBuffer(qo::TConstBufferSlice<unsigned char>(kept), nullptr);
  out->write(copied->getData(), 4);
  (*kept)[0] = 'K';
  (*copied)[0] = 'C';
  inner->gate.set();
  out->close();
  EXPECT_EQ(std::string(reinterpret_cast<char const*>(inner->bytes->getData()), 8), "Keptcopy");
}
