// qo/platform/posix/Utf8Text.h - UTF-16 text to and from the UTF-8 bytes
// the system hands over for texts that are not file names (internal).
//
// From the system: valid UTF-8 is decoded; every byte that is not part of a
// valid sequence is taken as a Latin-1 character, so no text is lost (file
// names use the lossless mapping of NativeName.h instead). To the system:
// strict UTF-8; a lone surrogate has no UTF-8 form and is refused.
//
//   std::u16string user = utf16FromSystem(pw->pw_name, std::strlen(pw->pw_name));
//   std::string arg;
//   if (!utf8ForSystem(u"caf\u00E9", arg)) ...;   // arg: "caf\xC3\xA9"
#ifndef QO_PLATFORM_POSIX_UTF8TEXT_H
#define QO_PLATFORM_POSIX_UTF8TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace qo::platform {

/// Appends the UTF-16 text of the length bytes at bytes (see the top).
inline void appendUtf16FromSystem(std::u16string& out, char const* bytes, std::size_t length) {
  static constexpr std::uint32_t kMin[4] = {0, 0x80, 0x800, 0x10000};
  out.reserve(out.size() + length);
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
      // Overlong forms, surrogates and values past U+10FFFF are not UTF-8.
      good = good && c >= kMin[extra] && c <= 0x10FFFF && !(c >= 0xD800 && c <= 0xDFFF);
    }
    if (!good) {
      out += static_cast<char16_t>(b);  // Latin-1
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
}

/// The UTF-16 text of bytes (see the top).
inline std::u16string utf16FromSystem(std::string const& bytes) {
  std::u16string out;
  appendUtf16FromSystem(out, bytes.data(), bytes.size());
  return out;
}

/// The UTF-8 bytes of text; false (out unspecified) for a lone surrogate,
/// which would reach the system changed.
inline bool utf8ForSystem(std::u16string const& text, std::string& out) {
  out.clear();
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    std::uint32_t c = text[i];
    if (c >= 0xD800 && c < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00u);
    } else if (c >= 0xD800 && c < 0xE000) {
      return false;
    }
    int const extra = c < 0x80 ? 0 : c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    static unsigned char const kLead[4] = {0x00, 0xC0, 0xE0, 0xF0};
    out += static_cast<char>(kLead[extra] | (c >> (6 * extra)));
    for (int k = extra - 1; k >= 0; --k) out += static_cast<char>(0x80 | ((c >> (6 * k)) & 0x3F));
  }
  return true;
}

}  // namespace qo::platform

#endif  // QO_PLATFORM_POSIX_UTF8TEXT_H
