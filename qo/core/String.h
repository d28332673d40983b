// qo/core/String.h - the library's text type.
//
// String holds UTF-16 code units on every platform, so lengths, indices and
// surrogate pairs behave the same on Windows and POSIX. It is a value class
// (copies are independent) that also derives from CBase, so a heap String
// can be held by P.
//
// Conversions:
//   toUTF8 / fromUTF8        strict UTF-8 both ways
//   wstringFromUTF8WithLatin1Fallback  narrow text of unknown origin: UTF-8
//                            where it is valid, each other byte as Latin-1
//   toLatin1 / fromLatin1    ISO 8859-1
//   toCP / fromCP            Windows code page numbers (1252, 437, ...)
//   toUTF32 / fromUTF32      code points
//   toWString / String(wchar_t const*)  the platform's wide text (UTF-16 on
//                            Windows, UTF-32 on POSIX)
// Encoding a character the target cannot hold (a lone surrogate, or one
// outside the code page) throws CUnencodableStringError; decoding bytes that
// are not valid in the source encoding throws CParseError. Both carry the
// property "offset": the index of the unit that could not be encoded, or of
// the first byte (unit) of the first ill-formed sequence. Code page errors add
// "codePage" (and give "offset" only where the OS tells it). No conversion
// crashes on any input.
//
//   std::string utf8 = name.toUTF8();                  // may throw
//   String fromLog = String::wstringFromUTF8WithLatin1Fallback(bytes);  // never throws
//
// Comparison operators and hashing are ordinal (by code unit). The named
// operations keep the library's historic names (StartsWith, Mid, ...).
// Positions and counts are code units; out-of-range arguments of Left, Mid
// and Right are clamped rather than refused.
//
// Not thread-safe (a value; share copies, not one object, between writers).
#ifndef QO_CORE_STRING_H
#define QO_CORE_STRING_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"

namespace qo {

class QO_API String : public CBase {
public:
  using Char = char16_t;
  static constexpr std::size_t npos = std::u16string::npos;

  String() noexcept = default;
  String(char16_t const* text);  ///< NUL-terminated; null gives "".
  String(char16_t const* text, std::size_t length);
  String(std::u16string text) noexcept : m_text(std::move(text)) {}
  explicit String(std::u16string_view text) : m_text(text) {}
  String(std::size_t count, char16_t c) : m_text(count, c) {}
  /// Narrow text, read as UTF-8 with the Latin-1 fallback (never throws for
  /// any bytes). For strict decoding use fromUTF8.
  String(char const* text);
  explicit String(std::string_view text);
  /// The platform's wide text: UTF-16 on Windows, UTF-32 on POSIX (where
  /// values that are not Unicode scalar values become U+FFFD).
  String(wchar_t const* text);
  explicit String(std::wstring_view text);

  String(String const&) = default;
  String(String&&) noexcept = default;
  String& operator=(String const&) = default;
  String& operator=(String&&) noexcept = default;
  ~String() override;

  // --- access ---------------------------------------------------------------
  std::size_t length() const noexcept { return m_text.size(); }
  /// Length in code units, as an int for the library's int-based APIs.
  int getLength() const noexcept { return static_cast<int>(m_text.size()); }
  bool isEmpty() const noexcept { return m_text.empty(); }
  bool empty() const noexcept { return m_text.empty(); }
  void clear() noexcept { m_text.clear(); }
  char16_t operator[](std::size_t i) const noexcept { return m_text[i]; }
  char16_t& operator[](std::size_t i) noexcept { return m_text[i]; }
  char16_t const* c_str() const noexcept { return m_text.c_str(); }
  char16_t const* data() const noexcept { return m_text.data(); }
  std::u16string const& str() const noexcept { return m_text; }
  std::u16string& str() noexcept { return m_text; }
  operator std::u16string_view() const noexcept { return m_text; }

  // --- conversions ----------------------------------------------------------
  /// Strict UTF-8. Throws CUnencodableStringError ("offset") for a lone
  /// surrogate.
  std::string toUTF8() const;
  /// UTF-8 with every lone surrogate written as U+FFFD. Never throws for
  /// encoding reasons; for logs and diagnostics.
  std::string toUTF8Lossy() const;
  /// Strict: throws CParseError ("Invalid UTF-8 text.", "offset") for overlong
  /// forms, encoded surrogates, values above U+10FFFF, truncated sequences and
  /// stray continuation bytes; "offset" is where the bad sequence starts.
  static String fromUTF8(std::string_view utf8);
  static String fromUTF8(char const* utf8, std::size_t length) { return fromUTF8(std::string_view(utf8, length)); }
  /// Valid UTF-8 sequences decode; every byte that does not start one is
  /// taken as a Latin-1 character. Never throws for encoding reasons.
  static String wstringFromUTF8WithLatin1Fallback(std::string_view bytes);
  /// Throws CUnencodableStringError ("offset") for a unit above U+00FF.
  std::string toLatin1() const;
  static String fromLatin1(std::string_view latin1);
  /// To a Windows code page (1252, 437, 65001 ...). Throws
  /// CUnencodableStringError for a character the page lacks (no best-fit
  /// substitutes) or a lone surrogate, CInvalidArgError for a code page the
  /// OS does not know (and, on Windows, for text of 2^31 units or more).
  /// 65001 is toUTF8 itself, so it is equally strict on every platform.
  std::string toCP(unsigned codePage) const;
  /// From a code page. Throws CParseError for bytes invalid in the page,
  /// CInvalidArgError for an unknown code page. 65001 is fromUTF8 itself.
  /// Which bytes a page leaves undefined follows the OS's tables (glibc
  /// refuses 0x81 in 1252, Windows maps it to U+0081).
  static String fromCP(std::string_view bytes, unsigned codePage);
  /// Throws CUnencodableStringError ("offset") for a lone surrogate.
  std::u32string toUTF32() const;
  /// Throws CParseError ("offset") for surrogates and values above U+10FFFF.
  static String fromUTF32(std::u32string_view text);
  /// The platform's wide text; on POSIX a lone surrogate becomes U+FFFD.
  std::wstring toWString() const;

  // --- the named operations -------------------------------------------------
  /// With ignoreCase the upper-cased texts are compared (see Upper).
  bool StartsWith(String const& prefix, bool ignoreCase = false) const;
  bool EndsWith(String const& suffix, bool ignoreCase = false) const;
  bool Contains(String const& part, bool ignoreCase = false) const;
  /// First position of part at or after from, or npos.
  std::size_t Find(String const& part, std::size_t from = 0) const noexcept;
  std::size_t Find(char16_t c, std::size_t from = 0) const noexcept;
  /// Last position of part, or npos.
  std::size_t FindLast(String const& part) const noexcept;
  std::size_t FindLast(char16_t c) const noexcept;
  /// Ordinal comparison by code unit: -1, 0 or 1.
  int Compare(String const& other) const noexcept;
  /// Ordinal comparison of the upper-cased texts: -1, 0 or 1.
  int CmpNoCase(String const& other) const;
  /// Every occurrence of from replaced by to, left to right, not rescanning
  /// replaced text. An empty from changes nothing.
  String Replace(String const& from, String const& to) const;
  /// Without leading and trailing white space (ASCII white space and the
  /// Unicode space separators, U+0085, U+2028, U+2029, U+FEFF).
  String Trim() const;
  String trim() const { return Trim(); }
  String TrimLeft() const;
  String TrimRight() const;
  String Left(std::size_t count) const;
  String Mid(std::size_t start, std::size_t count = npos) const;
  String Right(std::size_t count) const;
  /// The OS's simple one-to-one case mapping ("C.UTF-8" on POSIX,
  /// CharLowerBuffW/CharUpperBuffW on Windows); the length never changes, so
  /// U+00DF stays as it is in Upper.
  String Lower() const;
  String Upper() const;
  /// Fill characters put in front until the text is width units long.
  String padLeft(std::size_t width, char16_t fill = u' ') const;

  String& operator+=(String const& other) {
    m_text += other.m_text;
    return *this;
  }
  String& operator+=(char16_t c) {
    m_text += c;
    return *this;
  }
  String& operator+=(char16_t const* text) {
    m_text += text;
    return *this;
  }

  friend bool operator==(String const& a, String const& b) noexcept { return a.m_text == b.m_text; }
  friend bool operator!=(String const& a, String const& b) noexcept { return a.m_text != b.m_text; }
  friend bool operator<(String const& a, String const& b) noexcept { return a.m_text < b.m_text; }
  friend bool operator>(String const& a, String const& b) noexcept { return a.m_text > b.m_text; }
  friend bool operator<=(String const& a, String const& b) noexcept { return a.m_text <= b.m_text; }
  friend bool operator>=(String const& a, String const& b) noexcept { return a.m_text >= b.m_text; }

private:
  std::u16string m_text;
};

inline String operator+(String a, String const& b) {
  a += b;
  return a;
}
inline String operator+(String a, char16_t const* b) {
  a += b;
  return a;
}
inline String operator+(char16_t const* a, String const& b) { return String(a) + b; }
inline String operator+(String a, char16_t b) {
  a += b;
  return a;
}

/// Decimal text of a number.
QO_API String toString(long long value);
QO_API String toString(unsigned long long value);
inline String toString(int value) { return toString(static_cast<long long>(value)); }
inline String toString(long value) { return toString(static_cast<long long>(value)); }
inline String toString(unsigned value) { return toString(static_cast<unsigned long long>(value)); }
inline String toString(unsigned long value) { return toString(static_cast<unsigned long long>(value)); }
/// Shortest text of 15 to 17 significant digits that reads back as the
/// same double ("1.5", "0.1", "1e+100", "inf", "nan"); always with ".",
/// whatever the C locale.
QO_API String toString(double value);
/// "0x" and the address in hexadecimal, at least 8 digits.
QO_API String toString(void const* address);

/// Writes the text as UTF-8 (lone surrogates as U+FFFD).
QO_API std::ostream& operator<<(std::ostream& out, String const& text);
/// For GoogleTest's failure messages.
QO_API void PrintTo(String const& text, std::ostream* out);

}  // namespace qo

template <>
struct std::hash<qo::String> {
  std::size_t operator()(qo::String const& s) const noexcept { return std::hash<std::u16string>()(s.str()); }
};

#endif  // QO_CORE_STRING_H
