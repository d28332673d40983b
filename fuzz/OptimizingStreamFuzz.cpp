// Fuzzes COptimizingIOStreamWrapper over a strict aligned stream. The input
// is a script: the first byte picks the inner alignment and the block size,
// then each three bytes are an operation (write, read, seek, setLength,
// flush, barrier; the low bits of the first byte also shift the caller's
// buffer off its alignment) and a 16-bit size or position. The same
// operations run on a plain memory stream.
//
// Checks: the wrapper never makes a call that the strict stream refuses (any
// exception aborts); reads, positions, lengths and end states agree with the
// memory stream after every operation; after close the strict stream holds
// the memory stream's bytes, padded with zero bytes to its alignment.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "qo/core/P.h"
#include "qo/core/TBuffer.h"
#include "qo/stream/CBufferStream.h"
#include "qo/stream/CEnforcingIOStreamWrapper.h"
#include "qo/stream/COptimizingIOStreamWrapper.h"

namespace {

using Buffer = qo::TBuffer<unsigned char>;

void check(bool condition) {
  if (!condition) std::abort();
}

struct Config {
  int posAlign, bufAlign, best, block;
};
constexpr Config kConfigs[] = {{512, 512, 4096, 4096}, {512, 16, 1024, 1024}, {1, 1, 1, 64}, {4, 8, 8, 24}};

alignas(4096) unsigned char g_from[3 * 8192 + 64];
alignas(4096) unsigned char g_to[3 * 8192 + 64];

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size < 1) return 0;
  Config const& c = kConfigs[data[0] % (sizeof kConfigs / sizeof kConfigs[0])];
  qo::P<Buffer> bytes = qo::newP<Buffer>();
  qo::P<qo::CBufferStream> memory = qo::newP<qo::CBufferStream>(bytes.get());
  qo::P<qo::CEnforcingIOStreamWrapper> strict =
      qo::newP<qo::CEnforcingIOStreamWrapper>(memory.get(), c.posAlign, c.bufAlign, c.best);
  qo::P<qo::COptimizingIOStreamWrapper> fast = qo::newP<qo::COptimizingIOStreamWrapper>(strict.get(), c.block);
  qo::P<Buffer> modelBytes = qo::newP<Buffer>();
  qo::P<qo::CBufferStream> model = qo::newP<qo::CBufferStream>(modelBytes.get());
  qo::P<qo::IWriteBarrier> barrier;
  unsigned counter = 0;
  for (std::size_t at = 1; at + 3 <= size; at += 3) {
    int const op = data[at] & 7;
    std::size_t const shift = data[at] >> 5;  // 0..7 bytes off the aligned buffer
    int const value = data[at + 1] | (data[at + 2] << 8);
    int const length = value % (3 * c.block + 1);
    switch (op) {
      case 0:
      case 1: {
        for (int i = 0; i < length; ++i) g_from[shift + static_cast<std::size_t>(i)] = static_cast<unsigned char>(++counter);
        fast->write(g_from + shift, length, op == 1 ? barrier.get() : nullptr);
        model->write(g_from + shift, length);
        break;
      }
      case 2:
      case 3: {
        std::vector<unsigned char> expected(static_cast<std::size_t>(length));
        int const n = model->readLax(expected.data(), length);
        check(fast->readLax(g_to + shift, length) == n);
        check(n == 0 || std::memcmp(g_to + shift, expected.data(), static_cast<std::size_t>(n)) == 0);
        break;
      }
      case 4: {
        long long const to = value % (model->getLength() + 1);
        fast->seek(to);
        model->seek(to);
        break;
      }
      case 5: {
        long long const to = value % (model->getLength() + c.block + 1);
        fast->setLength(to);
        model->setLength(to);
        break;
      }
      case 6:
        fast->flush();
        break;
      default:
        barrier = fast->createWriteBarrier(barrier.get());
        break;
    }
    check(fast->getPosition() == model->getPosition());
    check(fast->getLength() == model->getLength());
    check(fast->isEndOfStream() == model->isEndOfStream());
  }
  fast->close();
  long long const length = model->getLength();
  long long const rounded = (length + c.posAlign - 1) / c.posAlign * c.posAlign;
  check(bytes->getSize() == rounded);
  check(length == 0 || std::memcmp(bytes->getData(), modelBytes->getData(), static_cast<std::size_t>(length)) == 0);
  for (long long i = length; i < rounded; ++i) check((*bytes)[i] == 0);
  return 0;
}
