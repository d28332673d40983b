// qo/stream/IeeeExtended.h - doubles as 80-bit extended precision numbers.
//
// The record format of CDataOutStream / CDataInStream stores a double in the
// 10-byte IEEE 754 extended format with an explicit integer bit, big-endian
// (the layout AIFF files use for their sample rate):
//   bytes 0-1  sign bit and 15-bit exponent (bias 16383)
//   bytes 2-5  high 32 bits of the mantissa, integer bit first
//   bytes 6-9  low 32 bits of the mantissa
// Every finite double survives a round trip bit for bit, except that -0.0
// is written as +0.0. Infinity and NaN are both written as infinity (the
// mantissa all zero), so a NaN reads back as an infinity of the same sign.
//
//   char bytes[10];
//   convertToIeeeExtended(44100.0, bytes);   // 40 0E AC 44 00 00 00 00 00 00
//   double rate = convertFromIeeeExtended(bytes);
//
// Thread-safe (pure functions).
#ifndef QO_STREAM_IEEEEXTENDED_H
#define QO_STREAM_IEEEEXTENDED_H

#include "qo/core/Export.h"

namespace qo {

/// Number of bytes of an encoded extended-precision value.
constexpr int kIeeeExtendedSize = 10;

/// Writes value into bytes[0..9] as a big-endian 80-bit extended number.
/// Zero (of either sign) becomes ten zero bytes; infinities and NaN become
/// the infinity pattern (sign | 0x7FFF, mantissa 0). Throws nothing.
/// Thread-safe.
QO_API void convertToIeeeExtended(double value, char* bytes);

/// The value of a big-endian 80-bit extended number in bytes[0..9] as a
/// double: mantissa bits beyond the double's are rounded off, magnitudes
/// beyond its range give infinity, tiny ones denormals or zero. Exponent 0x7FFF gives infinity whatever the
/// mantissa; the sign bit negates every result (so 80 00 ... gives -0.0).
/// Throws nothing. Thread-safe.
QO_API double convertFromIeeeExtended(char const* bytes);

}  // namespace qo

#endif  // QO_STREAM_IEEEEXTENDED_H
