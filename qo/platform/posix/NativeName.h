// qo/platform/posix/NativeName.h - file names as the kernel has them (bytes)
// and as the library has them (UTF-16), without loss (internal).
//
// A POSIX name is any string of bytes without NUL; most are UTF-8, some are
// not (old Latin-1 names, broken copies). Valid UTF-8 is decoded; each byte
// that is not part of a valid UTF-8 sequence becomes one lone low surrogate,
// U+DC80..U+DCFF (0x80..0xFF), which no decoded text contains. The way back
// turns such a surrogate into its byte again, so every name the system can
// give can be listed, opened, stored and deleted, and a copy gets the same
// bytes. Other lone surrogates and NUL have no byte form and are refused.
//
//   std::string bytes;
//   if (!nameToNative(u"caf\xDCE9", 5, bytes)) ...;   // bytes: "caf\xE9"
//   std::u16string name = nameFromNative(bytes.data(), bytes.size());
#ifndef QO_PLATFORM_POSIX_NATIVENAME_H
#define QO_PLATFORM_POSIX_NATIVENAME_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace qo::platform {

/// The bytes of the UTF-16 name text of length units; false (out
/// unspecified) for a NUL or a lone surrogate outside U+DC80..U+DCFF.
inline bool nameToNative(char16_t const* text, std::size_t length, std::string& out) {
  out.clear();
  out.reserve(length);
  for (std::size_t i = 0; i < length; ++i) {
    std::uint32_t c = text[i];
    if (c == 0) return false;
    if (c >= 0xD800 && c <= 0xDFFF) {
      bool const paired = c < 0xDC00 && i + 1 < length && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF;
      if (!paired) {
        if (c < 0xDC80 || c > 0xDCFF) return false;
        out += static_cast<char>(c - 0xDC00);  // a byte that was not UTF-8
        continue;
      }
      c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00u);
    }
    int const extra = c < 0x80 ? 0 : c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    static unsigned char const kLead[4] = {0x00, 0xC0, 0xE0, 0xF0};
    out += static_cast<char>(kLead[extra] | (c >> (6 * extra)));
    for (int k = extra - 1; k >= 0; --k) out += static_cast<char>(0x80 | ((c >> (6 * k)) & 0x3F));
  }
  return true;
}

/// The UTF-16 text of the name bytes of length bytes (see the top).
inline std::u16string nameFromNative(char const* bytes, std::size_t length) {
  static constexpr std::uint32_t kMin[4] = {0, 0x80, 0x800, 0x10000};
  std::u16string out;
  out.reserve(length);
  std::size_t i = 0;
  while (i < length) {
    auto const b = static_cast<unsigned char>(bytes[i]);
    int const extra = b < 0x80 ? 0 : (b & 0xE0) == 0xC0 ? 1 : (b & 0xF0) == 0xE0 ? 2 : (b & 0xF8) == 0xF0 ? 3 : -1;
    std::uint32_t c = 0;
    bool good = extra >= 0 && length - i > static_cast<std::size_t>(extra);
    if (good) {
      c = extra == 0 ? b : (b & (0x3Fu >> extra));
      for (int k = 1; k <= extra && good; ++k) {
        auto const cb = static_cast<unsigned char>(bytes[i + static_cast<std::size_t>(k)]);
        good = (cb & 0xC0) == 0x80;
        c = (c << 6) | (cb & 0x3Fu);
      }
      good = good && c >= kMin[extra] && c <= 0x10FFFF && !(c >= 0xD800 && c <= 0xDFFF);
    }
    if (!good) {
      out += static_cast<char16_t>(0xDC00 + b);  // b >= 0x80: ASCII is always good
      ++i;
      continue;
    }
    if (c >= 0x10000) {
      out += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
      out += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
    } else {
      out += static_cast<char16_t>(c);
    }
    i += static_cast<std::size_t>(extra) + 1;
  }
  return out;
}

}  // namespace qo::platform

#endif  // QO_PLATFORM_POSIX_NATIVENAME_H
