// tests/stream/DataStreamTestSupport.h - byte helpers shared by the tests of
// the record format (CDataOutStream, CDataInStream, IeeeExtended).
#ifndef QO_TESTS_STREAM_DATASTREAMTESTSUPPORT_H
#define QO_TESTS_STREAM_DATASTREAMTESTSUPPORT_H

#include <cstdint>
#include <cstring>
#include <string>

namespace qo::test {

/// Raw bytes, compared and printed by GoogleTest as a string.
using Bytes = std::string;

/// The bytes of hexadecimal text such as "3F FF 8000"; spaces are ignored.
inline Bytes hexBytes(char const* hex) {
  Bytes out;
  for (char const* p = hex; *p;) {
    if (*p == ' ') {
      ++p;
      continue;
    }
    out += static_cast<char>(std::stoi(std::string(p, 2), nullptr, 16));
    p += 2;
  }
  return out;
}

/// The bit pattern of a double, so that -0.0 and 0.0 differ in a comparison.
inline std::uint64_t bitsOf(double value) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

inline double fromBits(std::uint64_t bits) {
  double value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

}  // namespace qo::test

#endif  // QO_TESTS_STREAM_DATASTREAMTESTSUPPORT_H
