// Fuzzes CDataInStream over arbitrary bytes. The input is its own script:
// a selector byte, read through the data stream like any value, picks the
// next operation (one of the typed reads, the raw-text read, a seek back to
// a position taken from the input); the loop ends when the bytes run out.
// A string count may be anything up to 2^31 - 1, in which case the reader
// allocates that much before the short read fails: run with
// -malloc_limit_mb above 2048. Under ASan such an allocation costs seconds,
// so a string is read whatever its count only in five-byte inputs, the
// selector 0xFB (String) or 0xFC (raw text) and the count; elsewhere the
// string selectors end the run when the count lies far beyond the input.
//
// Checks: nothing crashes; only CError subclasses are thrown; every integer
// read gives back exactly the bytes it consumed when written again; a double
// survives a second write and read unchanged; a string that decodes is
// written again as the record it came from, cut at its first NUL.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "qo/core/CError.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/core/TBuffer.h"
#include "qo/stream/CBufferStream.h"
#include "qo/stream/CDataInStream.h"
#include "qo/stream/CDataOutStream.h"
#include "qo/stream/IeeeExtended.h"

namespace {

using Buffer = qo::TBuffer<unsigned char>;

void check(bool condition) {
  if (!condition) std::abort();
}

/// The bytes that writeOp puts on a fresh stream.
template <class TWrite>
std::string encode(TWrite const& writeOp) {
  qo::P<qo::CBufferStream> sink = qo::newP<qo::CBufferStream>();
  qo::CDataOutStream out(sink.get());
  writeOp(out);
  qo::PC<Buffer> bytes = sink->getBuffer();
  return std::string(reinterpret_cast<char const*>(bytes->getData()), static_cast<std::size_t>(bytes->getSize()));
}

std::uint64_t bitsOf(double value) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

class CRunner {
public:
  CRunner(std::uint8_t const* data, std::size_t size)
      : m_data(data),
        m_source(qo::newP<qo::CBufferStream>(static_cast<Buffer const*>(
            qo::newP<Buffer>(data, static_cast<long long>(size)).get()))),
        m_in(m_source.get()) {}

  void run() {
    for (int steps = 0; steps < 512 && !m_done; ++steps) step();
  }

private:
  /// The input bytes from start to the current position.
  std::string consumedSince(long long start) const {
    return std::string(reinterpret_cast<char const*>(m_data) + start,
                       static_cast<std::size_t>(m_in.getPosition() - start));
  }

  template <class TRead, class TWrite>
  void integer(TRead const& readOp, TWrite const& writeOp) {
    long long const start = m_in.getPosition();
    auto const value = readOp(m_in);
    check(encode([&](qo::CDataOutStream& out) { writeOp(out, value); }) == consumedSince(start));
  }

  /// False when the string count ahead lies far beyond the input.
  bool countIsNearTheInput() const {
    long long const position = m_in.getPosition();
    long long const left = m_source->getLength() - position;
    if (left < 4) return true;
    std::uint32_t count = 0;
    for (int i = 3; i >= 0; --i) count = (count << 8) | m_data[position + i];
    return count >= 0x80000000u || static_cast<long long>(count) <= left + 64;
  }

  void readString() {
    long long const start = m_in.getPosition();
    qo::String const text = m_in.readString();
    std::string record = consumedSince(start);
    std::size_t const nul = record.find('\0', 4);
    if (nul != std::string::npos) {
      record.resize(nul);
      std::uint32_t const count = static_cast<std::uint32_t>(nul - 4);
      for (int i = 0; i < 4; ++i) record[i] = static_cast<char>((count >> (8 * i)) & 0xFF);
    }
    check(encode([&](qo::CDataOutStream& out) { out.writeString(text); }) == record);
  }

  void readUTF8() {
    long long const start = m_in.getPosition();
    std::unique_ptr<char[]> text(m_in.readUTF8());
    long long const length = m_in.getPosition() - start - 4;
    check(text[length] == '\0');
    check(std::memcmp(text.get(), m_data + start + 4, static_cast<std::size_t>(length)) == 0);
  }

  void step() {
    std::uint8_t const selector = m_in.readUInt8();
    if (m_source->getLength() == 5 && selector == 0xFB) return readString();
    if (m_source->getLength() == 5 && selector == 0xFC) return readUTF8();
    switch (selector % 16) {
      case 0: integer([](qo::CDataInStream& in) { return in.readInt8(); },
                      [](qo::CDataOutStream& out, std::int8_t v) { out.writeInt8(v); }); break;
      case 1: integer([](qo::CDataInStream& in) { return in.readUInt8(); },
                      [](qo::CDataOutStream& out, std::uint8_t v) { out.writeUInt8(v); }); break;
      case 2: integer([](qo::CDataInStream& in) { return in.readInt16(); },
                      [](qo::CDataOutStream& out, std::int16_t v) { out.writeInt16(v); }); break;
      case 3: integer([](qo::CDataInStream& in) { return in.readUInt16(); },
                      [](qo::CDataOutStream& out, std::uint16_t v) { out.writeUInt16(v); }); break;
      case 4: integer([](qo::CDataInStream& in) { return in.readInt32(); },
                      [](qo::CDataOutStream& out, std::int32_t v) { out.writeInt32(v); }); break;
      case 5: integer([](qo::CDataInStream& in) { return in.readUInt32(); },
                      [](qo::CDataOutStream& out, std::uint32_t v) { out.writeUInt32(v); }); break;
      case 6: integer([](qo::CDataInStream& in) { return in.readInt64(); },
                      [](qo::CDataOutStream& out, long long v) { out.writeInt64(v); }); break;
      case 7: integer([](qo::CDataInStream& in) { return in.readUInt64(); },
                      [](qo::CDataOutStream& out, unsigned long long v) { out.writeUInt64(v); }); break;
      case 8: {
        long long const start = m_in.getPosition();
        bool const value = m_in.readBool();
        check(value == (m_data[start] != 0));
        break;
      }
      case 9: {
        double const value = m_in.readDouble();
        char bytes[qo::kIeeeExtendedSize];
        qo::convertToIeeeExtended(value, bytes);
        double const again = qo::convertFromIeeeExtended(bytes);
        check(!std::isnan(value));
        check(bitsOf(again) == bitsOf(value == 0 ? 0.0 : value));
        break;
      }
      case 10:
      case 11:
      case 12:
        if (!countIsNearTheInput()) {
          m_done = true;
        } else if (selector % 16 == 12) {
          readUTF8();
        } else {
          readString();
        }
        break;
      case 13: {
        // Back to an earlier position, so that bytes are read again as
        // other types.
        long long const position = m_in.readUInt16();
        if (position < m_in.getPosition()) m_in.seek(position);
        break;
      }
      default: {
        char skipped[8];
        m_in.read(skipped, selector % 8);
        break;
      }
    }
  }

  std::uint8_t const* m_data;
  qo::P<qo::CBufferStream> m_source;
  qo::CDataInStream m_in;
  bool m_done = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static std::uint8_t const kNothing = 0;
  if (size == 0) data = &kNothing;  // libFuzzer may pass null for the empty input
  try {
    CRunner(data, size).run();
  } catch (qo::CError const&) {
    // The end of the input, a negative count or text that is not UTF-8.
  }
  return 0;
}
