// Fuzzes the IPC frame reader over arbitrary bytes: frames are read one
// after another with a 4 KiB limit until the bytes run out or a frame is
// refused.
//
// Checks: nothing crashes; only CIOError is thrown (kind 5 for a count
// outside 0..limit, kind 4 for a frame cut short); every frame read, written
// again, gives exactly the bytes it was read from.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "qo/core/CIOError.h"
#include "qo/core/P.h"
#include "qo/core/TBuffer.h"
#include "qo/ipc/CIPCConnection.h"
#include "qo/stream/CBufferStream.h"

namespace {

using Buffer = qo::TBuffer<unsigned char>;
constexpr int kLimit = 4096;

void check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size > (1u << 20)) return 0;
  qo::P<Buffer> input = qo::newP<Buffer>(data, static_cast<int>(size));
  qo::P<qo::CBufferStream> in = qo::newP<qo::CBufferStream>(static_cast<Buffer const*>(input.get()));
  std::size_t offset = 0;
  try {
    for (;;) {
      if (offset == size) return 0;
      std::vector<unsigned char> frame;
      qo::CIPCConnection::readFrameFrom(*in, kLimit, frame);
      check(frame.size() <= static_cast<std::size_t>(kLimit));
      qo::P<qo::CBufferStream> out = qo::newP<qo::CBufferStream>();
      qo::CIPCConnection::writeFrameTo(*out, frame.data(), static_cast<int>(frame.size()));
      qo::PC<Buffer> again = out->getBuffer();
      std::size_t const used = 4 + frame.size();
      check(static_cast<std::size_t>(again->getSize()) == used && offset + used <= size);
      check(std::memcmp(again->getData(), data + offset, used) == 0);
      offset += used;
    }
  } catch (qo::CIOError const& e) {
    check(e.getErrorCode() == qo::CIOError::kCorruptData || e.getErrorCode() == qo::CIOError::kUnexpectedEOF);
  }
  return 0;
}
