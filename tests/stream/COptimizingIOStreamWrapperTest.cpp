#include "qo/stream/COptimizingIOStreamWrapper.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "qo/core/CIOError.h"
#include "qo/core/TBuffer.h"
#include "qo/stream/CBufferStream.h"
#include "qo/stream/CDummyWriteBarrier.h"
#include "qo/stream/CEnforcingIOStreamWrapper.h"
#include "TempFolder.h"
#include "qo/fs/CLocalFileStream.h"
#include "stream/StreamTestSupport.h"

using qo::CBufferStream;
using qo::CEnforcingIOStreamWrapper;
using qo::CIOError;
using qo::COptimizingIOStreamWrapper;
using qo::IWriteBarrier;
using qo::P;
using qo::TBuffer;
using Bytes = TBuffer<unsigned char>;

namespace {

/// Counts the writes that reach the stream below and the barrier each named.
class CRecordingStream : public qo::CDelegatingIOStream {
public:
  using CDelegatingIOStream::CDelegatingIOStream;
  void write(void const* data, int size, IWriteBarrier* barrier) override {
    barriers.push_back(barrier);
    CDelegatingIOStream::write(data, size, barrier);
  }
  int readLax(void* buffer, int size) override {
    ++reads;
    return CDelegatingIOStream::readLax(buffer, size);
  }
  std::vector<IWriteBarrier*> barriers;
  int reads = 0;
};

struct Stack {
  Stack(int posAlign, int bufAlign, int best, int blockSize, std::vector<unsigned char> const& initial) {
    bytes->append(initial.data(), static_cast<long long>(initial.size()));
    memory = qo::newP<CBufferStream>(bytes.get());
    strict = qo::newP<CEnforcingIOStreamWrapper>(memory.get(), posAlign, bufAlign, best);
    recorder = qo::newP<CRecordingStream>(strict.get());
    fast = qo::newP<COptimizingIOStreamWrapper>(recorder.get(), blockSize);
  }
  P<Bytes> bytes = qo::newP<Bytes>();
  P<CBufferStream> memory;
  P<CEnforcingIOStreamWrapper> strict;
  P<CRecordingStream> recorder;
  P<COptimizingIOStreamWrapper> fast;
};

}  // namespace

// Random reads, writes, seeks, flushes, barriers and cuts through the wrapper
// over a strict 512-aligned stream behave as on a plain memory stream; any
// misaligned inner call would throw.
TEST(COptimizingIOStreamWrapperTest, MatchesPlainStreamUnderRandomOperations) {
  struct Case {
    int posAlign, bufAlign, best, blockSize, initialUnits;
  } const cases[] = {
      {512, 512, 4096, 4096, 7},
      {512, 4096, 4096, 8192, 0},
      {1, 1, 1, 64, 3},
      {512, 16, 1024, 1, 20},
  };
  alignas(4096) static unsigned char scratch[3 * 8192 + 64];
  alignas(4096) static unsigned char got[3 * 8192 + 64];
  for (auto const& c : cases) {
    SCOPED_TRACE(testing::Message() << "posAlign " << c.posAlign << " bufAlign " << c.bufAlign << " block "
                                    << c.blockSize);
    std::mt19937 random(static_cast<unsigned>(c.posAlign + c.bufAlign + c.blockSize));
    std::vector<unsigned char> initial(static_cast<std::size_t>(c.initialUnits * c.posAlign * 37));
    initial.resize(initial.size() - initial.size() % static_cast<std::size_t>(c.posAlign));
    for (auto& b : initial) b = static_cast<unsigned char>(random());
    Stack stack(c.posAlign, c.bufAlign, c.best, c.blockSize, initial);
    P<Bytes> modelBytes = qo::newP<Bytes>(initial.data(), static_cast<long long>(initial.size()));
    P<CBufferStream> model = qo::newP<CBufferStream>(modelBytes.get());
    int const block = stack.fast->getBlockSize();
    ASSERT_EQ(block % c.best, 0);
    P<IWriteBarrier> barrier;
    for (int step = 0; step < 1500; ++step) {
      SCOPED_TRACE(step);
      int const op = static_cast<int>(random() % 10);
      // Sizes from 1 byte to three blocks; offset 0 of scratch is aligned
      // for the direct path, other offsets are not.
      int size = static_cast<int>(random() % 3 == 0 ? random() % (3 * block) : random() % 200) + 1;
      unsigned char* const from = scratch + (random() % 2 ? 0 : random() % 64);
      if (op < 4) {
        for (int i = 0; i < size; ++i) from[i] = static_cast<unsigned char>(random());
        IWriteBarrier* named = random() % 4 == 0 ? barrier.get() : nullptr;
        stack.fast->write(from, size, named);
        model->write(from, size);
      } else if (op < 7) {
        unsigned char* const to = got + (from - scratch);
        std::vector<unsigned char> expected(static_cast<std::size_t>(size));
        int const n = model->readLax(expected.data(), size);
        ASSERT_EQ(stack.fast->readLax(to, size), n);
        ASSERT_EQ(0, std::memcmp(to, expected.data(), static_cast<std::size_t>(n)));
      } else if (op == 7) {
        long long const to = static_cast<long long>(random() % static_cast<unsigned>(model->getLength() + 1));
        stack.fast->seek(to);
        model->seek(to);
      } else if (op == 8) {
        long long const length = static_cast<long long>(random() % static_cast<unsigned>(model->getLength() + 2 * block));
        stack.fast->setLength(length);
        model->setLength(length);
      } else if (random() % 2) {
        stack.fast->flush();
      } else {
        barrier = stack.fast->createWriteBarrier(barrier.get());
      }
      ASSERT_EQ(stack.fast->getPosition(), model->getPosition());
      ASSERT_EQ(stack.fast->getLength(), model->getLength());
      ASSERT_EQ(stack.fast->isEndOfStream(), model->isEndOfStream());
    }
    stack.fast->close();
    long long const length = model->getLength();
    long long const rounded = (length + c.posAlign - 1) / c.posAlign * c.posAlign;
    ASSERT_EQ(stack.bytes->getSize(), rounded);
    EXPECT_EQ(0, std::memcmp(stack.bytes->getData(), modelBytes->getData(), static_cast<std::size_t>(length)));
    for (long long i = length; i < rounded; ++i) ASSERT_EQ((*stack.bytes)[i], 0) << "padding at " << i;
  }
}

// Small transfers reach the inner stream as whole blocks; large ones with
// a suitable buffer go to it directly.
TEST(COptimizingIOStreamWrapperTest, SmallTransfersBecomeBlockTransfers) {
  struct Case {
    int chunk, count;
    bool aligned;
    std::size_t innerWrites;  // misaligned: ceil(chunk * count / 4096)
    int innerReads;
  } const cases[] = {{1, 10000, false, 3, 3},
                     {100, 1000, false, 25, 25},
                     {4096, 3, false, 3, 3},
                     {5000, 2, false, 3, 3},
                     {8192, 2, true, 2, 2}};
  alignas(4096) static unsigned char storage[8192 + 4096];
  for (auto const& c : cases) {
    SCOPED_TRACE(c.chunk);
    Stack stack(512, 512, 4096, 4096, {});
    unsigned char* const chunk = storage + (c.aligned ? 0 : 1);
    for (int i = 0; i < c.count; ++i) {
      for (int j = 0; j < c.chunk; ++j) chunk[j] = static_cast<unsigned char>(i + j);
      stack.fast->write(chunk, c.chunk);
    }
    stack.fast->flush();
    EXPECT_EQ(stack.recorder->barriers.size(), c.innerWrites);
    EXPECT_EQ(stack.recorder->reads, 0);  // nothing existed to read back
    stack.fast->seek(0);
    for (int i = 0; i < c.count; ++i) {
      stack.fast->read(chunk, c.chunk);
      ASSERT_EQ(chunk[0], static_cast<unsigned char>(i)) << i;
    }
    EXPECT_EQ(stack.recorder->reads, c.innerReads);
  }
}

// Bytes named with different barriers reach the inner stream in separate
// writes that carry their own barrier.
TEST(COptimizingIOStreamWrapperTest, WritesKeepTheirBarrier) {
  Stack stack(1, 1, 1, 4096, {});
  P<IWriteBarrier> a = qo::newP<qo::CDummyWriteBarrier>();
  P<IWriteBarrier> b = qo::newP<qo::CDummyWriteBarrier>();
  stack.fast->write("aa", 2, a.get());
  stack.fast->write("aa", 2, a.get());
  stack.fast->write("bb", 2, b.get());
  stack.fast->write("--", 2, nullptr);
  stack.fast->flush();
  std::vector<IWriteBarrier*> const expected{a.get(), b.get(), nullptr};
  EXPECT_EQ(stack.recorder->barriers, expected);
  EXPECT_EQ(stack.memory->getDataAsString(), qo::String(u"aaaabb--"));
}

TEST(COptimizingIOStreamWrapperTest, ForwardsLocksAndRefusesUseAfterClose) {
  Stack stack(512, 512, 4096, 4096, std::vector<unsigned char>(512, 7));
  qo::test::ioError([&] { (void)stack.fast->lockRange(0, 10, qo::IStreamBase::LockShared); },
                                     CIOError::kUnsupported, u"Buffer stream does not support range locking.");
  stack.fast->write("x", 1);
  stack.fast->close();
  EXPECT_EQ((*stack.bytes)[0], 'x');
  EXPECT_TRUE(stack.fast->getPositionAlign() == 1 && stack.fast->getBufferAlign() == 1);
  char c;
  qo::test::ioError([&] { stack.fast->write("x", 1); }, CIOError::kStreamClosed);
  qo::test::ioError([&] { stack.fast->read(&c, 1); }, CIOError::kStreamClosed);
  qo::test::ioError([&] { stack.fast->seek(0); }, CIOError::kStreamClosed);
  qo::test::ioError([&] { (void)stack.fast->isEndOfStream(); }, CIOError::kStreamClosed);
  stack.fast->close();  // idempotent
}

// On a real file: small writes and a patch behind the end, read back after
// reopening.
TEST(COptimizingIOStreamWrapperTest, RoundTripsThroughALocalFile) {
  qo::test::TempFolder folder("qo-optimizing");
  qo::String const path = folder.path("data.bin");
  std::string expected;
  {
    P<qo::CLocalFileStream> file = qo::newP<qo::CLocalFileStream>(
        path, qo::IIOStream::AccessReadWrite, qo::TFlags<qo::IIOStream::Flags>{qo::IIOStream::FlagCreate});
    P<COptimizingIOStreamWrapper> fast = qo::newP<COptimizingIOStreamWrapper>(file.get(), 4096);
    for (int i = 0; i < 30000; ++i) {
      char const c = static_cast<char>('a' + i % 26);
      fast->write(&c, 1);
      expected += c;
    }
    fast->seek(5000);
    fast->write("PATCH", 5);
    expected.replace(5000, 5, "PATCH");
    fast->close();
  }
  P<qo::CLocalFileStream> file = qo::newP<qo::CLocalFileStream>(
      path, qo::IIOStream::AccessReadOnly, qo::TFlags<qo::IIOStream::Flags>());
  ASSERT_EQ(file->getLength(), static_cast<long long>(expected.size()));
  std::string back(expected.size(), '\0');
  file->read(&back[0], static_cast<int>(back.size()));
  EXPECT_EQ(back, expected);
}
