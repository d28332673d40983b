#include "qo/stream/IeeeExtended.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include "stream/DataStreamTestSupport.h"

using namespace qo;
using qo::test::Bytes;
using qo::test::bitsOf;
using qo::test::fromBits;
using qo::test::hexBytes;

namespace {

Bytes encode(double value) {
  char bytes[kIeeeExtendedSize];
  convertToIeeeExtended(value, bytes);
  return Bytes(bytes, sizeof bytes);
}

double const kInf = std::numeric_limits<double>::infinity();
double const kMinDenormal = std::numeric_limits<double>::denorm_min();
double const kMaxDenormal = fromBits(0x000FFFFFFFFFFFFFull);

struct Encoding {
  double value;
  char const* bytes;
};

}  // namespace

TEST(IeeeExtendedTest, EncodesKnownValues) {
  Encoding const cases[] = {
      {1.0, "3FFF 80000000 00000000"},
      {-2.0, "C000 80000000 00000000"},
      {0.0, "0000 00000000 00000000"},
      {-0.0, "0000 00000000 00000000"},
      {44100.0, "400E AC440000 00000000"},
      {0.5, "3FFE 80000000 00000000"},
      {3.0, "4000 C0000000 00000000"},
      {-1.5, "BFFF C0000000 00000000"},
      {0.1, "3FFB CCCCCCCC CCCCD000"},
      {std::numeric_limits<double>::max(), "43FE FFFFFFFF FFFFF800"},
      {-std::numeric_limits<double>::max(), "C3FE FFFFFFFF FFFFF800"},
      {std::numeric_limits<double>::min(), "3C01 80000000 00000000"},
      {kMinDenormal, "3BCD 80000000 00000000"},
      {-kMinDenormal, "BBCD 80000000 00000000"},
      {kMaxDenormal, "3C00 FFFFFFFF FFFFF000"},
      {kInf, "7FFF 00000000 00000000"},
      {-kInf, "FFFF 00000000 00000000"},
      {std::numeric_limits<double>::quiet_NaN(), "7FFF 00000000 00000000"},
      {-std::numeric_limits<double>::quiet_NaN(), "7FFF 00000000 00000000"},
  };
  for (Encoding const& c : cases) {
    SCOPED_TRACE(c.bytes);
    EXPECT_EQ(hexBytes(c.bytes), encode(c.value));
  }
}

TEST(IeeeExtendedTest, DecodesKnownValues) {
  Encoding const cases[] = {
      {1.0, "3FFF 80000000 00000000"},
      {-2.0, "C000 80000000 00000000"},
      {44100.0, "400E AC440000 00000000"},
      {0.1, "3FFB CCCCCCCC CCCCD000"},
      {kMinDenormal, "3BCD 80000000 00000000"},
      {kMaxDenormal, "3C00 FFFFFFFF FFFFF000"},
      {kInf, "7FFF 00000000 00000000"},
      {-kInf, "FFFF 00000000 00000000"},
      // Exponent 0x7FFF is infinity whatever the mantissa.
      {kInf, "7FFF C0000000 00000001"},
      // Without the integer bit the value is still mantissa x 2^exponent.
      {0.5, "3FFF 40000000 00000000"},
      // Mantissa bits past the double's 53 round to nearest, ties to even.
      {1.0, "3FFF 80000000 00000400"},
      {1.0 + std::ldexp(1.0, -52), "3FFF 80000000 00000401"},
      {1.0 + std::ldexp(1.0, -51), "3FFF 80000000 00000C00"},
      // Out of the double's range.
      {kInf, "7FFE 80000000 00000000"},
      {-kInf, "FFFE 80000000 00000000"},
      {0.0, "0001 80000000 00000000"},
      {0.0, "0000 00000000 00000001"},
      {0.0, "0000 00000000 00000000"},
      {-0.0, "8000 00000000 00000000"},  // the sign bit negates zero
  };
  for (Encoding const& c : cases) {
    SCOPED_TRACE(c.bytes);
    double const decoded = convertFromIeeeExtended(hexBytes(c.bytes).data());
    EXPECT_EQ(bitsOf(c.value), bitsOf(decoded)) << decoded;
  }
}

// The x87 long double is the same format stored little-endian, so where the
// compiler has it, it judges the encoder independently.
TEST(IeeeExtendedTest, MatchesX87LongDouble) {
  if (std::numeric_limits<long double>::digits != 64 || std::numeric_limits<long double>::max_exponent != 16384) {
    GTEST_SKIP() << "long double is not the 80-bit extended format here";
  }
  std::mt19937_64 random(7);
  for (int i = 0; i < 20000; ++i) {
    double value = fromBits(random());
    if (i % 4 == 0) value = fromBits(random() & 0x800FFFFFFFFFFFFFull);  // denormals
    if (!std::isfinite(value) || value == 0) continue;
    long double const wide = value;
    unsigned char little[sizeof(long double)] = {};
    std::memcpy(little, &wide, sizeof wide);
    Bytes expected;
    for (int b = kIeeeExtendedSize - 1; b >= 0; --b) expected += static_cast<char>(little[b]);
    ASSERT_EQ(expected, encode(value)) << "bits " << std::hex << bitsOf(value);
  }
}

TEST(IeeeExtendedTest, EveryExponentRoundTrips) {
  std::uint64_t const mantissas[] = {0, 1, 0x8000000000000ull, 0xFFFFFFFFFFFFFull, 0x5555555555555ull};
  for (std::uint64_t exponent = 0; exponent < 0x7FF; ++exponent) {
    for (std::uint64_t mantissa : mantissas) {
      for (std::uint64_t sign : {0ull, 1ull}) {
        std::uint64_t const bits = (sign << 63) | (exponent << 52) | mantissa;
        if (bits == (1ull << 63)) continue;  // -0.0, below
        char bytes[kIeeeExtendedSize];
        convertToIeeeExtended(fromBits(bits), bytes);
        ASSERT_EQ(bits, bitsOf(convertFromIeeeExtended(bytes))) << std::hex << bits;
      }
    }
  }
  EXPECT_EQ(bitsOf(0.0), bitsOf(convertFromIeeeExtended(encode(-0.0).data())));
}

TEST(IeeeExtendedTest, RandomFiniteDoublesRoundTripBitForBit) {
  std::mt19937_64 random(20240611);
  int checked = 0;
  int denormals = 0;
  for (int i = 0; i < 2000000; ++i) {
    std::uint64_t bits = random();
    switch (i & 3) {
      case 0: bits &= 0x800FFFFFFFFFFFFFull; break;                                   // denormal
      case 1: bits = (bits & 0x801FFFFFFFFFFFFFull) | 0x7FC0000000000000ull; break;  // near max
      default: break;                                                                 // any
    }
    if ((bits & 0x7FF0000000000000ull) == 0x7FF0000000000000ull) continue;  // inf / NaN
    if ((bits << 1) == 0) continue;                                          // +-0
    char bytes[kIeeeExtendedSize];
    convertToIeeeExtended(fromBits(bits), bytes);
    std::uint64_t const back = bitsOf(convertFromIeeeExtended(bytes));
    if (back != bits) FAIL() << "bits " << std::hex << bits << " came back as " << back;
    ++checked;
    if ((bits & 0x7FF0000000000000ull) == 0) ++denormals;
  }
  EXPECT_GT(checked, 1900000);
  EXPECT_GT(denormals, 400000);
}
