#include "qo/platform/TextCase.h"

#include <locale.h>
#include <wctype.h>

namespace qo::platform {

namespace {

// One locale for the whole process, made on first use and never freed:
// towupper_l needs it for as long as any thread may change case. Null when
// the system has no UTF-8 locale; only ASCII changes case then.
locale_t caseLocale() {
  static locale_t const loc = [] {
    locale_t l = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(0));
    if (l == static_cast<locale_t>(0)) l = newlocale(LC_CTYPE_MASK, "en_US.UTF-8", static_cast<locale_t>(0));
    return l;
  }();
  return loc;
}

template <bool kUpper>
char32_t mapCodePoint(char32_t c, locale_t loc) {
  if (c < 0x80) {
    if (kUpper) return c >= U'a' && c <= U'z' ? c - 0x20 : c;
    return c >= U'A' && c <= U'Z' ? c + 0x20 : c;
  }
  if (loc == static_cast<locale_t>(0)) return c;
  wint_t const mapped = kUpper ? towupper_l(static_cast<wint_t>(c), loc) : towlower_l(static_cast<wint_t>(c), loc);
  return static_cast<char32_t>(mapped);
}

bool isHigh(char16_t u) { return u >= 0xD800 && u <= 0xDBFF; }
bool isLow(char16_t u) { return u >= 0xDC00 && u <= 0xDFFF; }
bool isSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDFFF; }

template <bool kUpper>
void mapInPlace(char16_t* text, std::size_t length) {
  locale_t const loc = caseLocale();
  for (std::size_t i = 0; i < length; ++i) {
    char16_t const u = text[i];
    if (u < 0x80) {
      text[i] = static_cast<char16_t>(mapCodePoint<kUpper>(u, loc));
      continue;
    }
    if (isHigh(u) && i + 1 < length && isLow(text[i + 1])) {
      char32_t const c = 0x10000 + ((static_cast<char32_t>(u) - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      char32_t const m = mapCodePoint<kUpper>(c, loc);
      // The text keeps its length: a mapping that leaves the supplementary
      // planes is not taken.
      if (m >= 0x10000 && m <= 0x10FFFF) {
        text[i] = static_cast<char16_t>(0xD800 + ((m - 0x10000) >> 10));
        text[i + 1] = static_cast<char16_t>(0xDC00 + ((m - 0x10000) & 0x3FF));
      }
      ++i;
      continue;
    }
    if (isHigh(u) || isLow(u)) continue;  // a lone surrogate has no case
    char32_t const m = mapCodePoint<kUpper>(u, loc);
    if (m < 0x10000 && !isSurrogate(m)) text[i] = static_cast<char16_t>(m);
  }
}

}  // namespace

void toUpperInPlace(char16_t* text, std::size_t length) { mapInPlace<true>(text, length); }
void toLowerInPlace(char16_t* text, std::size_t length) { mapInPlace<false>(text, length); }

}  // namespace qo::platform
