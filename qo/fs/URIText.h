#ifndef QO_FS_URITEXT_H
#define QO_FS_URITEXT_H
// qo/fs/URIText.h - character classes and component helpers shared by the
// CURI sources (parsing, escaping, file-path conversion). Internal to the
// library: not installed for users and not part of qo/qo.h.
//
// Rules: every function works on UTF-16 text as CURI stores it; escapes are
// "%XX" of generalised UTF-8 bytes (a lone surrogate keeps its three-byte
// form). Functions that may fail throw CURIMalformedError.
//   if (uritext::isEscapeAt(text, i)) ...;  String host = uritext::unescapeRange(range);

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "qo/core/String.h"

namespace qo::uritext {

using Bytes = std::string;

inline bool isAlpha(char16_t c) { return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z'); }
inline bool isDigit(char16_t c) { return c >= u'0' && c <= u'9'; }
inline bool isHex(char16_t c) { return isDigit(c) || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F'); }
inline int hexValue(char16_t c) {
  if (isDigit(c)) return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  return c - u'A' + 10;
}
inline bool isUnreserved(char16_t c) {
  return isAlpha(c) || isDigit(c) || c == u'-' || c == u'.' || c == u'_' || c == u'~';
}
inline bool isSubDelim(char16_t c) {
  return c != 0 && std::u16string_view(u"!$&'()*+,;=").find(c) != std::u16string_view::npos;
}
inline bool contains(char16_t const* set, char16_t c) {
  return c != 0 && std::u16string_view(set).find(c) != std::u16string_view::npos;
}
inline bool isEscapeAt(std::u16string_view text, std::size_t i) {
  return text[i] == u'%' && i + 2 < text.size() && isHex(text[i + 1]) && isHex(text[i + 2]);
}
inline bool isEscapeAt(String const& text, std::size_t i) { return isEscapeAt(std::u16string_view(text.str()), i); }

/// The text with ASCII letters lower-cased. Thread-safe.
String asciiLower(String text);
/// String::Lower() in place, without a copy when the text is ASCII. Not thread-safe.
void lowerInPlace(String& text);
/// unescape() of a part of a text, without copying the part first. Thread-safe.
String unescapeRange(std::u16string_view text);
/// The stored form of a query given escaped (see CURI::normalizeEscapedUnicodeQuery). Thread-safe.
String normalizeQueryRange(std::u16string_view query);

/// Throws CURIMalformedError for text with the given reason.
[[noreturn]] void throwMalformed(String const& text, char16_t const* reason);
/// True when scheme is ALPHA *( ALPHA / DIGIT / "+" / "-" / "." ). Thread-safe.
bool isValidScheme(std::u16string_view scheme);
/// True for an IPv6 host as stored: the address, optionally "%" and a zone. Thread-safe.
bool isStoredIPv6Host(String const& host);
/// True for an IPvFuture host with its brackets. Thread-safe.
bool isIPFutureHost(String const& host);
/// Checks a host given to the parts constructor; throws CURIMalformedError for a broken IP literal.
void checkHost(String const& host);
/// The stored form of a host given to the parts constructor. Thread-safe.
String normalizeHost(String const& host);

/// The segments of a path between its slashes (a leading slash starts none). Thread-safe.
std::vector<String> splitSegments(String const& path);

}  // namespace qo::uritext

#endif  // QO_FS_URITEXT_H
