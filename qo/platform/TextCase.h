// qo/platform/TextCase.h - Unicode upper and lower case of UTF-16 text
// (internal, OS-free).
//
// The OS's simple (one-to-one) case mapping, so that case-insensitive
// comparison agrees with the platform's own: CharUpperBuffW/CharLowerBuffW on
// Windows, towupper_l/towlower_l in the "C.UTF-8" locale elsewhere (ASCII
// only if that locale is missing). Surrogate pairs map as one character; the
// length never changes, so a mapping that would turn a BMP character into a
// supplementary one (or back) is not made. Lone surrogates stay as they are.
//
//   std::u16string s = u"stra\u00DFe";
//   toUpperInPlace(s.data(), s.size());
//
// The functions never throw. Thread-safe.
#ifndef QO_PLATFORM_TEXTCASE_H
#define QO_PLATFORM_TEXTCASE_H

#include <cstddef>

namespace qo::platform {

/// Upper-cases length units at text.
void toUpperInPlace(char16_t* text, std::size_t length);
/// Lower-cases length units at text.
void toLowerInPlace(char16_t* text, std::size_t length);

}  // namespace qo::platform

#endif  // QO_PLATFORM_TEXTCASE_H
