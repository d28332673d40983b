// String's conversions: construction from and conversion to UTF-8, UTF-32,
// Latin-1, wide strings and code pages, and the printable forms. The text
// operations are in String.cpp.
#include "qo/core/String.h"

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CParseError.h"
#include "qo/core/CProps.h"
#include "qo/core/CUnencodableStringError.h"
#include "qo/platform/CodePage.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ostream>

namespace qo {

namespace {

constexpr char16_t kReplacement = 0xFFFD;
constexpr unsigned kUtf8CodePage = 65001;

bool isHighSurrogate(char32_t u) { return u >= 0xD800 && u <= 0xDBFF; }
bool isLowSurrogate(char32_t u) { return u >= 0xDC00 && u <= 0xDFFF; }
bool isSurrogate(char32_t u) { return u >= 0xD800 && u <= 0xDFFF; }

char32_t combine(char16_t high, char16_t low) {
  return 0x10000 + ((static_cast<char32_t>(high) - 0xD800) << 10) + (static_cast<char32_t>(low) - 0xDC00);
}

// Builds a string through a buffer on the stack. Resizing a u16string or
// u32string first and writing into it costs an element-by-element fill that
// is slower than the conversion itself; appending whole chunks is a copy.
template <typename Text>
class ChunkWriter {
public:
  using Unit = typename Text::value_type;
  static constexpr std::size_t kSize = 256;

  explicit ChunkWriter(Text& out) : m_out(out) {}
  ChunkWriter(ChunkWriter const&) = delete;
  ChunkWriter& operator=(ChunkWriter const&) = delete;

  // Makes room for count (at most kSize) more units.
  void ensure(std::size_t count) {
    if (m_used + count > kSize) flush();
  }
  // Only after ensure() made room.
  void put(Unit u) { m_buffer[m_used++] = u; }
  // c, a scalar value, as one or two UTF-16 units; needs room for two.
  void putUtf16(char32_t c) {
    if (c < 0x10000) {
      put(static_cast<Unit>(c));
    } else {
      c -= 0x10000;
      put(static_cast<Unit>(0xD800 + (c >> 10)));
      put(static_cast<Unit>(0xDC00 + (c & 0x3FF)));
    }
  }
  void flush() {
    m_out.append(m_buffer, m_used);
    m_used = 0;
  }

private:
  Text& m_out;
  std::size_t m_used = 0;
  Unit m_buffer[kSize];
};

[[noreturn]] void throwUnencodable(std::size_t offset) {
  CUnencodableStringError error;
  error.getParams().addLong("offset", static_cast<long long>(offset));
  throw error;
}

[[noreturn]] void throwParseError(char const* message, std::size_t offset) {
  throw CParseError(String(message), CProps().addLong("offset", static_cast<long long>(offset)));
}

// The error for a failed toCP (encoding) or fromCP; offset may be npos.
[[noreturn]] void throwCodePageError(bool encoding, platform::CodePageResult result, unsigned codePage,
                                     std::size_t offset, std::size_t length) {
  char const* const place = encoding ? "String::toCP" : "String::fromCP";
  if (result == platform::CodePageResult::TooLong) {
    throw CInvalidArgError(place, "text too long for a code page conversion",
                           CProps().addLong("length", static_cast<long long>(length)));
  }
  if (result != platform::CodePageResult::Unencodable) {
    throw CInvalidArgError(place, String(u"unknown code page ") + toString(codePage));
  }
  CProps props;
  props.addLong("codePage", codePage);
  if (offset != String::npos) props.addLong("offset", static_cast<long long>(offset));
  if (!encoding) throw CParseError(String(u"Invalid text for the code page."), props);
  CUnencodableStringError error;
  error.getParams().addAll(props);
  throw error;
}

// --- UTF-8 ------------------------------------------------------------------

bool isContinuation(unsigned char b) { return (b & 0xC0) == 0x80; }

// Decodes the multi-byte sequence at p (p[0] >= 0x80, avail >= 1 bytes
// readable). Returns its length and sets c, or returns 0 when the bytes do
// not start a well-formed sequence: a stray continuation byte, C0/C1/F5..FF,
// an overlong form, an encoded surrogate, a value above U+10FFFF, or a
// sequence cut short. The second-byte ranges are those of the Unicode
// standard's table of well-formed UTF-8.
int decodeSequence(unsigned char const* p, std::size_t avail, char32_t& c) {
  unsigned char const b0 = p[0];
  if (b0 < 0xC2) return 0;
  if (b0 < 0xE0) {
    if (avail < 2 || !isContinuation(p[1])) return 0;
    c = (static_cast<char32_t>(b0 & 0x1F) << 6) | (p[1] & 0x3F);
    return 2;
  }
  if (b0 < 0xF0) {
    if (avail < 3) return 0;
    unsigned char const lo = b0 == 0xE0 ? 0xA0 : 0x80;
    unsigned char const hi = b0 == 0xED ? 0x9F : 0xBF;
    if (p[1] < lo || p[1] > hi || !isContinuation(p[2])) return 0;
    c = (static_cast<char32_t>(b0 & 0x0F) << 12) | (static_cast<char32_t>(p[1] & 0x3F) << 6) | (p[2] & 0x3F);
    return 3;
  }
  if (b0 < 0xF5) {
    if (avail < 4) return 0;
    unsigned char const lo = b0 == 0xF0 ? 0x90 : 0x80;
    unsigned char const hi = b0 == 0xF4 ? 0x8F : 0xBF;
    if (p[1] < lo || p[1] > hi || !isContinuation(p[2]) || !isContinuation(p[3])) return 0;
    c = (static_cast<char32_t>(b0 & 0x07) << 18) | (static_cast<char32_t>(p[1] & 0x3F) << 12) |
        (static_cast<char32_t>(p[2] & 0x3F) << 6) | (p[3] & 0x3F);
    return 4;
  }
  return 0;
}

// UTF-8 to UTF-16. Strict: returns the offset of the first ill-formed
// sequence (npos when there is none). With the fallback every byte that does
// not start a well-formed sequence becomes U+0000..U+00FF, so it never fails.
template <bool kLatin1Fallback>
std::size_t decodeUtf8(std::string_view in, std::u16string& text) {
  auto const* p = reinterpret_cast<unsigned char const*>(in.data());
  std::size_t const n = in.size();
  text.clear();
  // Each byte gives at most one unit (four bytes give two).
  text.reserve(n);
  ChunkWriter<std::u16string> out(text);
  std::size_t i = 0;
  while (i < n) {
    out.ensure(8);
    // Most text is ASCII: take eight bytes at a time while it lasts.
    if (i + 8 <= n) {
      std::uint64_t block;
      std::memcpy(&block, p + i, 8);
      if ((block & 0x8080808080808080ull) == 0) {
        for (int k = 0; k < 8; ++k) out.put(p[i + k]);
        i += 8;
        continue;
      }
    }
    unsigned char const b = p[i];
    if (b < 0x80) {
      out.put(b);
      ++i;
      continue;
    }
    char32_t c = 0;
    int const len = decodeSequence(p + i, n - i, c);
    if (len == 0) {
      if (!kLatin1Fallback) return i;
      out.put(b);
      ++i;
      continue;
    }
    out.putUtf16(c);
    i += static_cast<std::size_t>(len);
  }
  out.flush();
  // Text that is mostly three-byte sequences would keep twice the memory it uses.
  if (text.capacity() > 2 * text.size() + 64) text.shrink_to_fit();
  return String::npos;
}

// Whether the four units at s are all below U+0080.
bool isAsciiBlock(char16_t const* s) {
  std::uint64_t block;
  std::memcpy(&block, s, 8);
  return (block & 0xFF80FF80FF80FF80ull) == 0;
}

// UTF-16 to UTF-8. Strict: throws at the first lone surrogate; lossy: writes
// U+FFFD for it. The exact size is counted first so the text is allocated
// once.
template <bool kLossy>
std::string encodeUtf8(std::u16string const& text) {
  char16_t const* const s = text.data();
  std::size_t const n = text.size();
  std::size_t size = 0;
  for (std::size_t i = 0; i < n; ++i) {
    if (i + 4 <= n && isAsciiBlock(s + i)) {
      size += 4;
      i += 3;
      continue;
    }
    char16_t const u = s[i];
    if (u < 0x80) {
      size += 1;
    } else if (u < 0x800) {
      size += 2;
    } else if (!isSurrogate(u)) {
      size += 3;
    } else if (isHighSurrogate(u) && i + 1 < n && isLowSurrogate(s[i + 1])) {
      size += 4;
      ++i;
    } else {
      if (!kLossy) throwUnencodable(i);
      size += 3;  // U+FFFD
    }
  }
  std::string bytes(size, '\0');
  auto* out = reinterpret_cast<unsigned char*>(bytes.data());
  for (std::size_t i = 0; i < n; ++i) {
    if (i + 4 <= n && isAsciiBlock(s + i)) {
      for (int k = 0; k < 4; ++k) out[k] = static_cast<unsigned char>(s[i + k]);
      out += 4;
      i += 3;
      continue;
    }
    char32_t c = s[i];
    if (c < 0x80) {
      *out++ = static_cast<unsigned char>(c);
      continue;
    }
    if (c < 0x800) {
      *out++ = static_cast<unsigned char>(0xC0 | (c >> 6));
      *out++ = static_cast<unsigned char>(0x80 | (c & 0x3F));
      continue;
    }
    if (isSurrogate(c)) {
      if (isHighSurrogate(c) && i + 1 < n && isLowSurrogate(s[i + 1])) {
        c = combine(s[i], s[i + 1]);
        ++i;
        *out++ = static_cast<unsigned char>(0xF0 | (c >> 18));
        *out++ = static_cast<unsigned char>(0x80 | ((c >> 12) & 0x3F));
        *out++ = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
        *out++ = static_cast<unsigned char>(0x80 | (c & 0x3F));
        continue;
      }
      c = kReplacement;  // only reached when lossy
    }
    *out++ = static_cast<unsigned char>(0xE0 | (c >> 12));
    *out++ = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
    *out++ = static_cast<unsigned char>(0x80 | (c & 0x3F));
  }
  return bytes;
}

// --- UTF-32 -----------------------------------------------------------------

bool isScalarValue(char32_t c) { return c <= 0x10FFFF && !isSurrogate(c); }

// Code points to UTF-16. Strict: returns the index of the first value that is
// not a scalar value (npos when all are); lenient: writes U+FFFD for it.
template <bool kStrict, typename Unit>
std::size_t decodeUtf32(Unit const* in, std::size_t n, std::u16string& text) {
  text.clear();
  text.reserve(n);
  ChunkWriter<std::u16string> out(text);
  for (std::size_t i = 0; i < n; ++i) {
    char32_t const c = static_cast<char32_t>(in[i]);
    out.ensure(2);
    if (isScalarValue(c)) {
      out.putUtf16(c);
    } else {
      if (kStrict) return i;
      out.put(kReplacement);
    }
  }
  out.flush();
  return String::npos;
}

// UTF-16 to code points. Strict: throws for a lone surrogate; lenient: writes
// U+FFFD for it.
template <bool kStrict, typename Text>
Text encodeUtf32(std::u16string const& text) {
  using Unit = typename Text::value_type;
  Text result;
  result.reserve(text.size());
  ChunkWriter<Text> out(result);
  std::size_t const n = text.size();
  for (std::size_t i = 0; i < n; ++i) {
    out.ensure(1);
    char16_t const u = text[i];
    char32_t c = u;
    if (isSurrogate(u)) {
      if (isHighSurrogate(u) && i + 1 < n && isLowSurrogate(text[i + 1])) {
        c = combine(u, text[i + 1]);
        ++i;
      } else {
        if (kStrict) throwUnencodable(i);
        c = kReplacement;
      }
    }
    out.put(static_cast<Unit>(c));
  }
  out.flush();
  return result;
}

}  // namespace

// --- construction -------------------------------------------------------------

// Redundant since C++17, but MinGW exports the member from the DLL only when
// it is defined here; callers that bind npos to a reference import it.
constexpr std::size_t String::npos;

String::String(char16_t const* text) {
  if (text) m_text = text;
}

String::String(char16_t const* text, std::size_t length) {
  if (text) m_text.assign(text, length);
}

String::String(char const* text) {
  if (text) decodeUtf8<true>(std::string_view(text), m_text);
}

String::String(std::string_view text) { decodeUtf8<true>(text, m_text); }

String::String(wchar_t const* text) {
  if (text) *this = String(std::wstring_view(text));
}

String::String(std::wstring_view text) {
  if constexpr (sizeof(wchar_t) == sizeof(char16_t)) {
    m_text.assign(reinterpret_cast<char16_t const*>(text.data()), text.size());
  } else {
    decodeUtf32<false>(text.data(), text.size(), m_text);
  }
}

String::~String() = default;

// --- conversions ----------------------------------------------------------------

std::string String::toUTF8() const { return encodeUtf8<false>(m_text); }

std::string String::toUTF8Lossy() const { return encodeUtf8<true>(m_text); }

String String::fromUTF8(std::string_view utf8) {
  String result;
  std::size_t const bad = decodeUtf8<false>(utf8, result.m_text);
  if (bad != npos) throwParseError("Invalid UTF-8 text.", bad);
  return result;
}

String String::wstringFromUTF8WithLatin1Fallback(std::string_view bytes) {
  String result;
  decodeUtf8<true>(bytes, result.m_text);
  return result;
}

std::string String::toLatin1() const {
  std::string bytes(m_text.size(), '\0');
  for (std::size_t i = 0; i < m_text.size(); ++i) {
    char16_t const u = m_text[i];
    if (u > 0xFF) throwUnencodable(i);
    bytes[i] = static_cast<char>(u);
  }
  return bytes;
}

String String::fromLatin1(std::string_view latin1) {
  String result;
  result.m_text.reserve(latin1.size());
  ChunkWriter<std::u16string> out(result.m_text);
  for (char const b : latin1) {
    out.ensure(1);
    out.put(static_cast<unsigned char>(b));
  }
  out.flush();
  return result;
}

std::string String::toCP(unsigned codePage) const {
  // UTF-8 goes through the library's own codec, so both platforms agree on
  // exactly what is valid.
  if (codePage == kUtf8CodePage) {
    try {
      return toUTF8();
    } catch (CUnencodableStringError& error) {
      error.getParams().addLong("codePage", codePage);
      throw;
    }
  }
  std::string bytes;
  std::size_t offset = npos;
  auto const result = platform::encodeCodePage(codePage, m_text.data(), m_text.size(), bytes, &offset);
  if (result != platform::CodePageResult::Ok) throwCodePageError(true, result, codePage, offset, m_text.size());
  return bytes;
}

String String::fromCP(std::string_view bytes, unsigned codePage) {
  if (codePage == kUtf8CodePage) {
    try {
      return fromUTF8(bytes);
    } catch (CParseError& error) {
      error.getParams().addLong("codePage", codePage);
      throw;
    }
  }
  String text;
  std::size_t offset = npos;
  auto const result = platform::decodeCodePage(codePage, bytes.data(), bytes.size(), text.m_text, &offset);
  if (result != platform::CodePageResult::Ok) throwCodePageError(false, result, codePage, offset, bytes.size());
  return text;
}

std::u32string String::toUTF32() const { return encodeUtf32<true, std::u32string>(m_text); }

String String::fromUTF32(std::u32string_view text) {
  String result;
  std::size_t const bad = decodeUtf32<true>(text.data(), text.size(), result.m_text);
  if (bad != npos) throwParseError("Invalid UTF-32 text.", bad);
  return result;
}

std::wstring String::toWString() const {
  if constexpr (sizeof(wchar_t) == sizeof(char16_t)) {
    return std::wstring(reinterpret_cast<wchar_t const*>(m_text.data()), m_text.size());
  } else {
    return encodeUtf32<false, std::wstring>(m_text);
  }
}

std::ostream& operator<<(std::ostream& out, String const& text) { return out << text.toUTF8Lossy(); }

void PrintTo(String const& text, std::ostream* out) {
  // Quoted, with control characters and lone surrogates escaped, so that a
  // failing comparison shows differences that would print alike.
  std::u16string const& s = text.str();
  std::string printable = "u\"";
  std::size_t run = 0;  // start of the units not yet written
  auto flush = [&](std::size_t end) {
    printable += encodeUtf8<true>(s.substr(run, end - run));
    run = end + 1;
  };
  char escape[8];
  for (std::size_t i = 0; i < s.size(); ++i) {
    char16_t const u = s[i];
    if (isHighSurrogate(u) && i + 1 < s.size() && isLowSurrogate(s[i + 1])) {
      ++i;
    } else if (u < 0x20 || u == 0x7F || isSurrogate(u)) {
      flush(i);
      std::snprintf(escape, sizeof escape, "\\u%04X", static_cast<unsigned>(u));
      printable += escape;
    } else if (u == u'"' || u == u'\\') {
      flush(i);
      printable += '\\';
      printable += static_cast<char>(u);
    }
  }
  flush(s.size());
  printable += '"';
  *out << printable;
}


}  // namespace qo
