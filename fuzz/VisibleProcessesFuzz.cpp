// Fuzzes the reader of the visible-process list over arbitrary bytes.
//
// Checks: nothing crashes; only CError subclasses are thrown; a list that
// reads is ordered by id without repeats, and written again it reads back
// equal, in exactly the bytes that write() gives for it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "qo/core/CError.h"
#include "qo/core/P.h"
#include "qo/core/TBuffer.h"
#include "qo/stream/CBufferStream.h"
#include "qo/stream/CDataInStream.h"
#include "qo/stream/CDataOutStream.h"
#include "qo/sys/CVisibleProcessMonitor.h"

namespace {

using Buffer = qo::TBuffer<unsigned char>;
using Entry = qo::CVisibleProcessMonitor::CEntry;

void check(bool condition) {
  if (!condition) std::abort();
}

std::vector<Entry> readFrom(unsigned char const* data, std::size_t size) {
  qo::P<Buffer> buffer = qo::newP<Buffer>(data, static_cast<long long>(size));
  qo::P<qo::CBufferStream> stream = qo::newP<qo::CBufferStream>(static_cast<Buffer const*>(buffer.get()));
  qo::CDataInStream in(stream.get());
  return qo::CVisibleProcessMonitor::read(in);
}

std::string writeOut(std::vector<Entry> const& entries) {
  qo::P<qo::CBufferStream> stream = qo::newP<qo::CBufferStream>();
  qo::CDataOutStream out(stream.get());
  qo::CVisibleProcessMonitor::write(out, entries);
  qo::P<Buffer> bytes = stream->getBuffer();
  return std::string(reinterpret_cast<char const*>(bytes->getData()), static_cast<std::size_t>(bytes->getSize()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::vector<Entry> entries;
  try {
    entries = readFrom(data, size);
  } catch (qo::CError const&) {
    return 0;
  }
  for (std::size_t i = 1; i < entries.size(); ++i) check(entries[i - 1].id < entries[i].id);
  std::string const again = writeOut(entries);
  std::vector<Entry> const back = readFrom(reinterpret_cast<unsigned char const*>(again.data()), again.size());
  check(back == entries);
  check(writeOut(back) == again);
  return 0;
}
