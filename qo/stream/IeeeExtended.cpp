#include "qo/stream/IeeeExtended.h"

#include <cmath>
#include <cstdint>

namespace qo {

namespace {
constexpr int kExponentBias = 16383;
constexpr unsigned kInfinityExponent = 0x7FFF;

void putBigEndian16(unsigned value, char* bytes) {
  bytes[0] = static_cast<char>((value >> 8) & 0xFF);
  bytes[1] = static_cast<char>(value & 0xFF);
}

void putBigEndian32(std::uint32_t value, char* bytes) {
  bytes[0] = static_cast<char>((value >> 24) & 0xFF);
  bytes[1] = static_cast<char>((value >> 16) & 0xFF);
  bytes[2] = static_cast<char>((value >> 8) & 0xFF);
  bytes[3] = static_cast<char>(value & 0xFF);
}

std::uint32_t getBigEndian32(char const* bytes) {
  unsigned char const* b = reinterpret_cast<unsigned char const*>(bytes);
  return (std::uint32_t(b[0]) << 24) | (std::uint32_t(b[1]) << 16) | (std::uint32_t(b[2]) << 8) | std::uint32_t(b[3]);
}
}  // namespace

void convertToIeeeExtended(double value, char* bytes) {
  unsigned sign = 0;
  if (value < 0) {
    sign = 0x8000;
    value = -value;
  }
  unsigned exponentField = 0;
  std::uint32_t high = 0;
  std::uint32_t low = 0;
  if (value != 0) {
    int exponent = 0;
    double fraction = std::frexp(value, &exponent);
    // Written as "not below 1" so that NaN (which compares false with
    // everything) takes the infinity pattern as well.
    if (exponent > kExponentBias + 1 || !(fraction < 1)) {
      exponentField = sign | kInfinityExponent;
    } else {
      exponent += kExponentBias - 1;
      if (exponent < 0) {
        // Below the smallest normal extended number; unreachable from a
        // double, kept so the encoder stays complete.
        fraction = std::ldexp(fraction, exponent);
        exponent = 0;
      }
      exponentField = static_cast<unsigned>(exponent) | sign;
      // fraction < 1, so each step's integer part fits 32 bits; a double's
      // 53 mantissa bits fit the 64 exactly.
      fraction = std::ldexp(fraction, 32);
      double const highPart = std::floor(fraction);
      high = static_cast<std::uint32_t>(highPart);
      fraction = std::ldexp(fraction - highPart, 32);
      low = static_cast<std::uint32_t>(std::floor(fraction));
    }
  }
  putBigEndian16(exponentField, bytes);
  putBigEndian32(high, bytes + 2);
  putBigEndian32(low, bytes + 6);
}

double convertFromIeeeExtended(char const* bytes) {
  unsigned char const* b = reinterpret_cast<unsigned char const*>(bytes);
  int const exponent = ((b[0] & 0x7F) << 8) | b[1];
  std::uint32_t const high = getBigEndian32(bytes + 2);
  std::uint32_t const low = getBigEndian32(bytes + 6);
  double value;
  if (exponent == 0 && high == 0 && low == 0) {
    value = 0;
  } else if (exponent == static_cast<int>(kInfinityExponent)) {
    value = HUGE_VAL;
  } else {
    // For every value a double can hold both parts, and so their sum, are
    // exact; otherwise the sum rounds.
    value = std::ldexp(static_cast<double>(high), exponent - kExponentBias - 31) +
            std::ldexp(static_cast<double>(low), exponent - kExponentBias - 63);
  }
  return (b[0] & 0x80) ? -value : value;
}

}  // namespace qo
