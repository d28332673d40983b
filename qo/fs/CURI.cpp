#include "qo/fs/CURI.h"

#include <algorithm>
#include <ostream>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "qo/core/CBadPathError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CURIIncompatibleError.h"
#include "qo/core/CURIMalformedError.h"
#include "qo/fs/CURITraitsManager.h"
#include "qo/fs/CUnixPathTraits.h"
#include "qo/fs/CWindowsPathTraits.h"
#include "qo/fs/IURITraits.h"
#include "qo/fs/TPathImpl.h"

namespace qo {

namespace {

// Characters each component may carry unescaped besides the unreserved ones.
// ":" is left out of the user name (it ends it) and "@" out of both user
// parts (it ends the user information).
constexpr char16_t const* kUserNameAllowed = u"!$&'()*+,;=";
constexpr char16_t const* kUserAuthInfoAllowed = u"!$&'()*+,;=:";
constexpr char16_t const* kHostAllowed = u"!$&'()*+,;=";
constexpr char16_t const* kPathAllowed = u"/:@!$&'()*+,;=";
constexpr char16_t const* kFirstRelativeSegmentAllowed = u"/@!$&'()*+,;=";
constexpr char16_t const* kFragmentAllowed = u"/?:@!$&'()*+,;=";
constexpr char16_t const* kQueryAllowed = u"/?:@!$&'()*+,;=";
constexpr char16_t const* kReserved = u":/?#[]@!$&'()*+,;=";

constexpr char16_t const* kIPv6LiteralSuffix = u".ipv6-literal.net";

using Bytes = std::string;

bool isAlpha(char16_t c) { return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z'); }
bool isDigit(char16_t c) { return c >= u'0' && c <= u'9'; }
bool isHex(char16_t c) { return isDigit(c) || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F'); }
int hexValue(char16_t c) {
  if (isDigit(c)) return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  return c - u'A' + 10;
}
bool isUnreserved(char16_t c) { return isAlpha(c) || isDigit(c) || c == u'-' || c == u'.' || c == u'_' || c == u'~'; }
bool isSubDelim(char16_t c) { return c != 0 && std::u16string_view(u"!$&'()*+,;=").find(c) != std::u16string_view::npos; }
bool contains(char16_t const* set, char16_t c) {
  return c != 0 && std::u16string_view(set).find(c) != std::u16string_view::npos;
}
bool isEscapeAt(std::u16string_view text, std::size_t i) {
  return text[i] == u'%' && i + 2 < text.size() && isHex(text[i + 1]) && isHex(text[i + 2]);
}
bool isEscapeAt(String const& text, std::size_t i) { return isEscapeAt(std::u16string_view(text.str()), i); }

String asciiLower(String text) {
  for (std::size_t i = 0; i < text.length(); ++i)
    if (text[i] >= u'A' && text[i] <= u'Z') text[i] = static_cast<char16_t>(text[i] + 32);
  return text;
}

// String::Lower() in place, without a copy when the text is ASCII.
void lowerInPlace(String& text) {
  for (char16_t c : text.str()) {
    if (c >= 0x80) {
      text = text.Lower();
      return;
    }
  }
  for (char16_t& c : text.str())
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
}

void appendPercent(String& out, unsigned byte) {
  static char16_t const kDigits[] = u"0123456789ABCDEF";
  out += u'%';
  out += kDigits[(byte >> 4) & 0xF];
  out += kDigits[byte & 0xF];
}

// The code point starting at text[i] (a surrogate pair counts as one) and
// the number of units it takes. A lone surrogate is returned as itself.
char32_t codePointAt(String const& text, std::size_t i, std::size_t& units) {
  char16_t c = text[i];
  if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.length() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
    units = 2;
    return 0x10000 + ((static_cast<char32_t>(c) - 0xD800) << 10) + (text[i + 1] - 0xDC00);
  }
  units = 1;
  return c;
}

// UTF-8, except that a lone surrogate is written in the three-byte form a
// surrogate code point would take (generalised UTF-8), so that unescaping
// gives it back: Windows file names may hold lone surrogates.
void appendEscapedCodePoint(String& out, char32_t cp) {
  if (cp < 0x80) {
    appendPercent(out, cp);
  } else if (cp < 0x800) {
    appendPercent(out, 0xC0 | (cp >> 6));
    appendPercent(out, 0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    appendPercent(out, 0xE0 | (cp >> 12));
    appendPercent(out, 0x80 | ((cp >> 6) & 0x3F));
    appendPercent(out, 0x80 | (cp & 0x3F));
  } else {
    appendPercent(out, 0xF0 | (cp >> 18));
    appendPercent(out, 0x80 | ((cp >> 12) & 0x3F));
    appendPercent(out, 0x80 | ((cp >> 6) & 0x3F));
    appendPercent(out, 0x80 | (cp & 0x3F));
  }
}

// Length of the generalised UTF-8 sequence at bytes[i] and its code point;
// 0 when the byte starts no valid sequence. Overlong forms and values above
// U+10FFFF are refused; surrogate code points are accepted (see above).
std::size_t decodeSequence(Bytes const& bytes, std::size_t i, char32_t& cp) {
  auto b = [&](std::size_t k) { return static_cast<unsigned char>(bytes[k]); };
  auto cont = [&](std::size_t k) { return k < bytes.size() && (b(k) & 0xC0) == 0x80; };
  unsigned lead = b(i);
  if (lead < 0x80) {
    cp = lead;
    return 1;
  }
  if (lead >= 0xC2 && lead <= 0xDF && cont(i + 1)) {
    cp = ((lead & 0x1F) << 6) | (b(i + 1) & 0x3F);
    return 2;
  }
  if (lead >= 0xE0 && lead <= 0xEF && cont(i + 1) && cont(i + 2)) {
    cp = ((lead & 0x0F) << 12) | ((b(i + 1) & 0x3F) << 6) | (b(i + 2) & 0x3F);
    return cp >= 0x800 ? 3 : 0;
  }
  if (lead >= 0xF0 && lead <= 0xF4 && cont(i + 1) && cont(i + 2) && cont(i + 3)) {
    cp = ((lead & 0x07) << 18) | ((b(i + 1) & 0x3F) << 12) | ((b(i + 2) & 0x3F) << 6) | (b(i + 3) & 0x3F);
    return cp >= 0x10000 && cp <= 0x10FFFF ? 4 : 0;
  }
  return 0;
}

void appendCodePoint(String& out, char32_t cp) {
  if (cp >= 0x10000) {
    cp -= 0x10000;
    out += static_cast<char16_t>(0xD800 + (cp >> 10));
    out += static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
  } else {
    out += static_cast<char16_t>(cp);
  }
}

// Turns the collected escape bytes into text; a byte that starts no valid
// sequence stands for its Latin-1 character, so no input is refused.
void flushUTF8Buffer(String& out, Bytes& buffer) {
  for (std::size_t i = 0; i < buffer.size();) {
    char32_t cp = 0;
    std::size_t length = decodeSequence(buffer, i, cp);
    if (length == 0) {
      out += static_cast<char16_t>(static_cast<unsigned char>(buffer[i]));
      ++i;
    } else {
      appendCodePoint(out, cp);
      i += length;
    }
  }
  buffer.clear();
}

// Collects the bytes of consecutive "%XX" escapes from text[i]; i ends after
// them.
void collectEscapes(std::u16string_view text, std::size_t& i, Bytes& buffer) {
  while (i < text.size() && isEscapeAt(text, i)) {
    buffer += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
    i += 3;
  }
}

String unescapeRange(std::u16string_view text);
String normalizeQueryRange(std::u16string_view query);

[[noreturn]] void throwMalformed(String const& text, char16_t const* reason) {
  throw CURIMalformedError(text, CProps().add(CURIMalformedError::paramReason(), reason));
}

bool isValidScheme(std::u16string_view scheme) {
  if (scheme.empty() || !isAlpha(scheme[0])) return false;
  for (std::size_t i = 1; i < scheme.size(); ++i) {
    char16_t c = scheme[i];
    if (!isAlpha(c) && !isDigit(c) && c != u'+' && c != u'-' && c != u'.') return false;
  }
  return true;
}

bool isIPv4(std::u16string_view text) {
  int parts = 0;
  std::size_t i = 0;
  while (true) {
    std::size_t start = i;
    int value = 0;
    while (i < text.size() && isDigit(text[i]) && i - start < 3) value = value * 10 + (text[i++] - u'0');
    std::size_t digits = i - start;
    if (digits == 0 || value > 255 || (digits > 1 && text[start] == u'0')) return false;
    ++parts;
    if (i == text.size()) return parts == 4;
    if (text[i] != u'.' || parts == 4) return false;
    ++i;
  }
}

// RFC 3986 IPv6address: eight groups of 1-4 hex digits (the last two may be
// a dotted IPv4 address), a run of zero groups written "::" at most once.
bool isIPv6(std::u16string_view text) {
  if (text.empty()) return false;
  int groups = 0;
  bool doubleColon = false;
  std::size_t i = 0;
  if (text.substr(0, 2) == u"::") {
    doubleColon = true;
    i = 2;
    if (i == text.size()) return true;
  } else if (text[0] == u':') {
    return false;
  }
  while (i < text.size()) {
    std::size_t start = i;
    while (i < text.size() && isHex(text[i]) && i - start < 5) ++i;
    if (i < text.size() && text[i] == u'.') {
      if (!isIPv4(text.substr(start))) return false;
      groups += 2;
      i = text.size();
      break;
    }
    if (i == start || i - start > 4) return false;
    ++groups;
    if (i == text.size()) break;
    if (text[i] != u':') return false;
    ++i;
    if (i < text.size() && text[i] == u':') {
      if (doubleColon) return false;
      doubleColon = true;
      ++i;
      if (i == text.size()) break;
    } else if (i == text.size()) {
      return false;  // a single trailing colon
    }
  }
  return doubleColon ? groups <= 7 : groups == 8;
}

// An IPv6 host as stored: the address, optionally "%" and a zone (RFC 6874).
bool isStoredIPv6Host(String const& host) {
  std::size_t percent = host.Find(u'%');
  if (percent == String::npos) return isIPv6(host.str());
  return percent + 1 < host.length() && isIPv6(std::u16string_view(host.str()).substr(0, percent));
}

// IPvFuture with its brackets: "[v" 1*HEXDIG "." 1*(unreserved / sub-delims / ":") "]".
bool isIPFutureHost(String const& host) {
  std::size_t n = host.length();
  if (n < 6 || host[0] != u'[' || host[n - 1] != u']' || (host[1] != u'v' && host[1] != u'V')) return false;
  std::size_t i = 2;
  while (i < n - 1 && isHex(host[i])) ++i;
  if (i == 2 || i >= n - 2 || host[i] != u'.') return false;
  for (++i; i < n - 1; ++i)
    if (!isUnreserved(host[i]) && !isSubDelim(host[i]) && host[i] != u':') return false;
  return true;
}

// The host between brackets (without them); throws for anything but an
// IPv6 address (with an optional "%25" zone) or an IPvFuture address.
String parseBracketedHost(String const& text, String const& inner) {
  if (!inner.isEmpty() && (inner[0] == u'v' || inner[0] == u'V')) {
    String host = u"[" + asciiLower(inner) + u"]";
    if (!isIPFutureHost(host)) throwMalformed(text, u"Invalid IP literal host.");
    return host;
  }
  std::size_t percent = inner.Find(u'%');
  String address = inner.Left(percent);
  if (!isIPv6(address.str())) throwMalformed(text, u"Invalid IPv6 address.");
  if (percent == String::npos) return asciiLower(address);
  String zone = inner.Mid(percent);
  if (!zone.StartsWith(u"%25") || zone.length() == 3) throwMalformed(text, u"Invalid IPv6 zone.");
  for (std::size_t i = 3; i < zone.length(); ++i) {
    if (zone[i] == u'%') {
      if (!isEscapeAt(zone, i)) throwMalformed(text, u"Invalid IPv6 zone.");
    } else if (zone[i] < 0x80 && !isUnreserved(zone[i])) {
      throwMalformed(text, u"Invalid IPv6 zone.");
    }
  }
  return asciiLower(address) + u"%" + CURI::unescape(zone.Mid(3)).Lower();
}

// Checks a host given to the parts constructor: one that looks like an IP
// literal must be one, or toString could not write it back.
void checkHost(String const& host) {
  if (host.StartsWith(u"[")) {
    if (!isIPFutureHost(host)) throwMalformed(host, u"Invalid IP literal host.");
  } else if (host.Contains(u":") && !isStoredIPv6Host(host)) {
    throwMalformed(host, u"Invalid IPv6 address.");
  }
}

String normalizeHost(String const& host) { return host.StartsWith(u"[") ? asciiLower(host) : host.Lower(); }

void appendHost(String& out, String const& host, bool keepNonASCII) {
  if (isIPFutureHost(host)) {
    out += host;
  } else if (isStoredIPv6Host(host)) {
    std::size_t percent = host.Find(u'%');
    out += u'[';
    out += host.Left(percent);
    if (percent != String::npos) {
      out += u"%25";
      CURI::escapeAndAppend(out, host.Mid(percent + 1), keepNonASCII, String());
    }
    out += u']';
  } else {
    CURI::escapeAndAppend(out, host, keepNonASCII, kHostAllowed);
  }
}

std::vector<String> splitSegments(String const& path) {
  std::vector<String> segments;
  std::size_t start = path.StartsWith(u"/") ? 1 : 0;
  while (true) {
    std::size_t slash = path.Find(u'/', start);
    segments.push_back(path.Mid(start, slash == String::npos ? String::npos : slash - start));
    if (slash == String::npos) break;
    start = slash + 1;
  }
  return segments;
}

bool segmentsEqual(String const& a, String const& b, bool caseSensitive) {
  return caseSensitive ? a == b : a.CmpNoCase(b) == 0;
}

// A segment Windows would not keep as one name: it holds a separator, or is
// made of dots and spaces only, which the platform trims to "", "." or "..".
// The dot segments themselves are resolved before anyone asks.
bool isUnsafeWindowsSegment(String const& segment) {
  if (segment.Find(u'\\') != String::npos) return true;
  if (segment.isEmpty() || segment == u"." || segment == u"..") return false;
  for (char16_t c : segment.str())
    if (c != u'.' && c != u' ') return false;
  return true;
}

// The reason a file path built from the URI's path (dot segments already
// removed) would name something else than the URI, or nullptr. A NUL ends
// the path for every platform call; on Windows a backslash is a separator
// as well. Containment and conversion share this check, so that a URI found
// inside a folder never converts to a path outside it.
char16_t const* unsafeFilePathReason(String const& host, String const& path, bool windows) {
  if (path.Find(u'\0') != String::npos || host.Find(u'\0') != String::npos) return u"Path holds a NUL character.";
  if (!windows) return nullptr;
  for (char16_t c : host.str()) {
    if (c == u'\\' || c == u'/' || c == u'?' || c == u'*' || c == u'"' || c == u'<' || c == u'>' || c == u'|')
      return u"Host is not a server name.";
  }
  if (host == u"." || host == u"..") return u"Host is not a server name.";
  for (String const& segment : splitSegments(path)) {
    if (isUnsafeWindowsSegment(segment)) return u"A path segment holds a separator or only dots and spaces.";
  }
  return nullptr;
}

}  // namespace

// --- construction ------------------------------------------------------------

CURI::CURI() = default;

CURI::CURI(String const& text) { parse(text); }

CURI::CURI(String const& scheme, String const& path, TConstOptRef<String> userName, TConstOptRef<String> userAuthInfo,
           TConstOptRef<String> host, long long port, TConstOptRef<String> query, TConstOptRef<String> fragment)
    : m_scheme(asciiLower(scheme)), m_path(path), m_port(port < 0 ? -1 : port) {
  if (!m_scheme.isEmpty() && !isValidScheme(m_scheme)) throwMalformed(scheme, u"Invalid scheme.");
  if (userName) {
    m_userName = *userName;
    m_hasUserName = true;
  }
  if (userAuthInfo) {
    m_userAuthInfo = *userAuthInfo;
    m_hasUserAuthInfo = m_hasUserName = true;
  }
  m_hasAuthority = host || m_hasUserName || m_port >= 0;
  if (m_hasAuthority) {
    m_hasHost = true;
    if (host) {
      checkHost(*host);
      m_host = normalizeHost(*host);
    }
    if (m_path.isEmpty()) m_path = u"/";
    if (m_path[0] != u'/')
      throwMalformed(path, u"When an authority component is specified, then the path must start with a slash.");
  }
  if (query) {
    m_query = normalizeEscapedUnicodeQuery(*query);
    m_hasQuery = true;
  }
  if (fragment) {
    m_fragment = *fragment;
    m_hasFragment = true;
  }
}

CURI::CURI(CURI const& base, String const* relative) : CURI(base) {
  if (relative != nullptr) resolve(base, CURI(*relative));
}

CURI::CURI(CURI const& base, CURI const& relative) { resolve(base, relative); }

CURI::CURI(CURI const& other) = default;
CURI::CURI(CURI&& other) noexcept = default;
CURI& CURI::operator=(CURI const& other) = default;
CURI& CURI::operator=(CURI&& other) noexcept = default;
CURI::~CURI() = default;

// Works on ranges of text and builds each component once: a parsed URI
// costs one string per component present (none for short ones).
void CURI::parse(String const& text) {
  std::u16string_view const t(text.str());
  std::size_t begin = 0;
  std::size_t end = t.size();
  // A colon before any "/", "?" or "#" ends the scheme; later ones belong to
  // the path of a relative reference.
  std::size_t delim = t.find_first_of(u":/?#");
  if (delim != std::u16string_view::npos && t[delim] == u':') {
    std::u16string_view scheme = t.substr(0, delim);
    if (!isValidScheme(scheme)) throwMalformed(text, u"Invalid scheme.");
    m_scheme = asciiLower(String(std::u16string(scheme)));
    begin = delim + 1;
  }
  std::size_t hash = t.find(u'#', begin);
  if (hash != std::u16string_view::npos) {
    m_fragment = unescapeRange(t.substr(hash + 1));
    m_hasFragment = true;
    end = hash;
  }
  std::size_t question = t.find(u'?', begin);
  if (question != std::u16string_view::npos && question < end) {
    m_query = normalizeQueryRange(t.substr(question + 1, end - question - 1));
    m_hasQuery = true;
    end = question;
  }
  if (end - begin >= 2 && t[begin] == u'/' && t[begin + 1] == u'/') {
    m_hasAuthority = m_hasHost = true;
    std::size_t authorityBegin = begin + 2;
    std::size_t authorityEnd = t.find(u'/', authorityBegin);
    if (authorityEnd == std::u16string_view::npos || authorityEnd > end) authorityEnd = end;
    std::u16string_view authority = t.substr(authorityBegin, authorityEnd - authorityBegin);
    begin = authorityEnd;

    std::size_t at = authority.rfind(u'@');
    std::u16string_view hostPort = authority;
    if (at != std::u16string_view::npos) {
      std::u16string_view userInfo = authority.substr(0, at);
      hostPort = authority.substr(at + 1);
      if (userInfo.find_first_of(u"[]") != std::u16string_view::npos)
        throwMalformed(text, u"Invalid character in user information.");
      std::size_t colon = userInfo.find(u':');
      m_userName = unescapeRange(userInfo.substr(0, colon));
      m_hasUserName = true;
      if (colon != std::u16string_view::npos) {
        m_userAuthInfo = unescapeRange(userInfo.substr(colon + 1));
        m_hasUserAuthInfo = true;
      }
    }
    std::u16string_view portText;
    bool hasPortText = false;
    if (!hostPort.empty() && hostPort[0] == u'[') {
      std::size_t close = hostPort.find(u']');
      if (close == std::u16string_view::npos) throwMalformed(text, u"Missing closing bracket of an IP literal host.");
      if (close + 1 < hostPort.size()) {
        if (hostPort[close + 1] != u':') throwMalformed(text, u"Unexpected character after an IP literal host.");
        portText = hostPort.substr(close + 2);
        hasPortText = true;
      }
      m_host = parseBracketedHost(text, String(std::u16string(hostPort.substr(1, close - 1))));
    } else {
      std::size_t colon = hostPort.find(u':');
      std::u16string_view host = hostPort.substr(0, colon);
      if (colon != std::u16string_view::npos) {
        portText = hostPort.substr(colon + 1);
        hasPortText = true;
      }
      if (host.find_first_of(u"[]") != std::u16string_view::npos) throwMalformed(text, u"Invalid character in host.");
      m_host = unescapeRange(host);
      lowerInPlace(m_host);
    }
    if (hasPortText) {
      // At most 18 digits, so that the value fits a signed 64-bit integer.
      if (portText.empty() || portText.size() > 18) throwMalformed(text, u"The port is not a decimal number.");
      long long port = 0;
      for (char16_t c : portText) {
        if (!isDigit(c)) throwMalformed(text, u"The port is not a decimal number.");
        port = port * 10 + (c - u'0');
      }
      m_port = port;
    }
    // The authority ends at the first slash, so a path after it always
    // starts with one; the check matters for the parts constructor.
    m_path = begin < end ? unescapeRange(t.substr(begin, end - begin)) : String(u"/");
    return;
  }
  m_path = unescapeRange(t.substr(begin, end - begin));
}

// RFC 3986 section 5.2.2, strict (a reference with a scheme is taken whole).
void CURI::resolve(CURI const& base, CURI const& relative) {
  CURI target;
  if (relative.hasScheme()) {
    target = relative;
    target.m_path = removeDotSegments(target.m_path);
  } else {
    if (relative.m_hasAuthority) {
      target = relative;
      target.m_path = removeDotSegments(relative.m_path);
    } else {
      target = base;
      target.m_hasFragment = false;
      target.m_fragment.clear();
      if (relative.m_path.isEmpty()) {
        if (relative.m_hasQuery) {
          target.m_query = relative.m_query;
          target.m_hasQuery = true;
        }
      } else {
        if (relative.isAbsolute()) {
          target.m_path = removeDotSegments(relative.m_path);
        } else {
          String merged;
          if (base.m_hasAuthority && base.m_path.isEmpty()) {
            merged = u"/" + relative.m_path;
          } else {
            std::size_t slash = base.m_path.FindLast(u'/');
            merged = (slash == String::npos ? String() : base.m_path.Left(slash + 1)) + relative.m_path;
          }
          target.m_path = removeDotSegments(merged);
        }
        target.m_query = relative.m_query;
        target.m_hasQuery = relative.m_hasQuery;
      }
    }
    target.m_scheme = base.m_scheme;
  }
  target.m_fragment = relative.m_fragment;
  target.m_hasFragment = relative.m_hasFragment;
  if (target.m_hasAuthority && target.m_path.isEmpty()) target.m_path = u"/";
  *this = std::move(target);
}

String CURI::removeDotSegments(String const& path) {
  std::u16string_view in(path.str());
  std::u16string out;
  auto dropLastSegment = [&out] {
    std::size_t slash = out.rfind(u'/');
    out.erase(slash == std::u16string::npos ? 0 : slash);
  };
  std::size_t i = 0;
  while (i < in.size()) {
    std::u16string_view rest = in.substr(i);
    if (rest.substr(0, 3) == u"../") {
      i += 3;
    } else if (rest.substr(0, 2) == u"./") {
      i += 2;
    } else if (rest.substr(0, 3) == u"/./") {
      i += 2;
    } else if (rest == u"/.") {
      out += u'/';
      break;
    } else if (rest.substr(0, 4) == u"/../") {
      i += 3;
      dropLastSegment();
    } else if (rest == u"/..") {
      dropLastSegment();
      out += u'/';
      break;
    } else if (rest == u"." || rest == u"..") {
      break;
    } else {
      std::size_t next = in.find(u'/', i + 1);
      if (next == std::u16string_view::npos) next = in.size();
      out.append(in.substr(i, next - i));
      i = next;
    }
  }
  return String(std::move(out));
}

// --- text --------------------------------------------------------------------

void CURI::escapeAndAppend(String& out, String const& text, bool keepNonASCII, String const& extraAllowed,
                           bool onlyNonASCII) {
  // Which ASCII characters are copied, decided once per call: the
  // unreserved ones and the reserved ones that extraAllowed names.
  struct Tables {
    bool unreserved[0x80] = {};
    bool reserved[0x80] = {};
    Tables() {
      for (char16_t c = 0; c < 0x80; ++c) {
        unreserved[c] = isUnreserved(c);
        reserved[c] = contains(kReserved, c);
      }
    }
  };
  static Tables const tables;
  bool copyASCII[0x80];
  if (onlyNonASCII) {
    std::fill(copyASCII, copyASCII + 0x80, true);
  } else {
    std::copy(tables.unreserved, tables.unreserved + 0x80, copyASCII);
    for (char16_t c : extraAllowed.str())
      if (c < 0x80 && tables.reserved[c]) copyASCII[c] = true;
  }
  bool const copyNonASCII = keepNonASCII && !onlyNonASCII;
  std::u16string& result = out.str();
  std::u16string const& in = text.str();
  std::size_t const n = in.size();
  std::size_t i = 0;
  while (i < n) {
    std::size_t run = i;
    while (run < n && (in[run] < 0x80 ? copyASCII[in[run]] : copyNonASCII)) ++run;
    result.append(in, i, run - i);
    i = run;
    if (i < n) {
      std::size_t units = 1;
      appendEscapedCodePoint(out, codePointAt(text, i, units));
      i += units;
    }
  }
}

String CURI::escape(String const& text, bool keepNonASCII, String const& extraAllowed) {
  String out;
  out.str().reserve(text.length() + text.length() / 2);
  escapeAndAppend(out, text, keepNonASCII, extraAllowed);
  return out;
}

String CURI::unescape(String const& text) {
  if (text.Find(u'%') == String::npos) return text;
  return unescapeRange(text.str());
}

namespace {

// unescape() of a part of a text, without copying the part first.
String unescapeRange(std::u16string_view text) {
  if (text.find(u'%') == std::u16string_view::npos) return String(std::u16string(text));
  String out;
  out.str().reserve(text.size());
  Bytes buffer;
  for (std::size_t i = 0; i < text.size();) {
    if (isEscapeAt(text, i)) {
      collectEscapes(text, i, buffer);
      flushUTF8Buffer(out, buffer);
    } else {
      // The plain run up to the next "%" in one piece.
      std::size_t next = text.find(u'%', i + 1);
      if (next == std::u16string_view::npos) next = text.size();
      out.str().append(text.substr(i, next - i));
      i = next;
    }
  }
  return out;
}

}  // namespace

// Escapes of non-ASCII characters become the characters and escapes of
// unreserved ones the plain characters (RFC 3986 6.2.2.2); escapes of
// other ASCII characters stay, since they may be significant ("%26" is not
// "&"), with upper-case digits, as do bytes that form no UTF-8 character.
// Characters a query may not hold plainly are escaped, and a "%" that starts
// no escape becomes "%25".
String CURI::normalizeEscapedUnicodeQuery(String const& query) { return normalizeQueryRange(query.str()); }

namespace {

String normalizeQueryRange(std::u16string_view query) {
  String out;
  out.str().reserve(query.size());
  Bytes buffer;
  for (std::size_t i = 0; i < query.size();) {
    char16_t c = query[i];
    if (isEscapeAt(query, i)) {
      collectEscapes(query, i, buffer);
      for (std::size_t k = 0; k < buffer.size();) {
        char32_t cp = 0;
        std::size_t length = decodeSequence(buffer, k, cp);
        if (length == 0 || (length == 1 && !isUnreserved(static_cast<char16_t>(cp)))) {
          appendPercent(out, static_cast<unsigned char>(buffer[k]));
          ++k;
        } else {
          appendCodePoint(out, cp);
          k += length;
        }
      }
      buffer.clear();
      continue;
    }
    if (c >= 0x80 || isUnreserved(c) || contains(kQueryAllowed, c)) {
      out += c;
    } else {
      appendPercent(out, c);
    }
    ++i;
  }
  return out;
}

}  // namespace

String CURI::toString(bool keepNonASCII) const {
  String out;
  out.str().reserve(m_path.length() + m_host.length() + m_query.length() + m_fragment.length() + 16);
  if (hasScheme()) {
    out += m_scheme;
    out += u':';
  }
  if (m_hasAuthority) {
    out += u"//";
    if (m_hasUserName) {
      escapeAndAppend(out, m_userName, keepNonASCII, kUserNameAllowed);
      if (m_hasUserAuthInfo) {
        out += u':';
        escapeAndAppend(out, m_userAuthInfo, keepNonASCII, kUserAuthInfoAllowed);
      }
      out += u'@';
    }
    appendHost(out, m_host, keepNonASCII);
    if (m_port >= 0) {
      out += u':';
      out += qo::toString(m_port);
    }
  }
  std::size_t pathStart = 0;
  if (!m_hasAuthority && m_path.StartsWith(u"//")) {
    // Written plainly it would read back as an authority.
    out += u"%2F";
    pathStart = 1;
  } else if (!m_hasAuthority && !hasScheme()) {
    // A colon in the first segment would read back as the end of a scheme.
    std::size_t slash = m_path.Find(u'/');
    escapeAndAppend(out, m_path.Left(slash), keepNonASCII, kFirstRelativeSegmentAllowed);
    pathStart = slash == String::npos ? m_path.length() : slash;
  }
  escapeAndAppend(out, pathStart == 0 ? m_path : m_path.Mid(pathStart), keepNonASCII, kPathAllowed);
  if (m_hasQuery) {
    out += u'?';
    if (keepNonASCII)
      out += m_query;
    else
      escapeAndAppend(out, m_query, false, String(), true);
  }
  if (m_hasFragment) {
    out += u'#';
    escapeAndAppend(out, m_fragment, keepNonASCII, kFragmentAllowed);
  }
  return out;
}

std::ostream& operator<<(std::ostream& out, CURI const& uri) { return out << uri.toString(true); }

void PrintTo(CURI const& uri, std::ostream* out) { *out << uri; }

// --- derived -----------------------------------------------------------------

bool CURI::isEmpty() const noexcept {
  return m_scheme.isEmpty() && !m_hasAuthority && !m_hasHost && !m_hasUserName && m_port < 0 && !m_hasQuery &&
         !m_hasFragment && m_path.isEmpty();
}

String CURI::getName() const {
  std::size_t end = m_path.length();
  if (end > 0 && m_path[end - 1] == u'/') --end;
  std::size_t slash = end == 0 ? String::npos : m_path.str().rfind(u'/', end - 1);
  std::size_t start = slash == String::npos ? 0 : slash + 1;
  return m_path.Mid(start, end - start);
}

String CURI::getExtension() const {
  String name = getName();
  std::size_t dot = name.FindLast(u'.');
  return dot == String::npos || dot == 0 ? String() : name.Mid(dot + 1);
}

String CURI::getTitle() const {
  String name = getName();
  std::size_t dot = name.FindLast(u'.');
  return dot == String::npos || dot == 0 ? name : name.Left(dot);
}

CURI CURI::getParent() const {
  CURI parent(*this);
  parent.m_hasQuery = parent.m_hasFragment = false;
  parent.m_query.clear();
  parent.m_fragment.clear();
  std::size_t end = m_path.length();
  if (end > 1 && m_path[end - 1] == u'/') --end;
  std::size_t slash = end == 0 ? String::npos : m_path.str().rfind(u'/', end - 1);
  if (slash == String::npos)
    parent.m_path.clear();
  else
    parent.m_path = m_path.Left(slash == 0 ? 1 : slash);
  return parent;
}

CURI CURI::getRoot() const {
  CURI root(*this);
  root.m_hasQuery = root.m_hasFragment = false;
  root.m_query.clear();
  root.m_fragment.clear();
  root.m_path = getTraits()->getRootPath(*this);
  return root;
}

P<IURITraits> CURI::getTraits() const { return CURITraitsManager::get()->getTraitsForScheme(m_scheme); }

bool CURI::isParentOfOrEqual(CURI const& other) const {
  if (m_scheme != other.m_scheme || m_hasUserName != other.m_hasUserName || m_userName != other.m_userName ||
      m_hasHost != other.m_hasHost || m_host != other.m_host || m_port != other.m_port)
    return false;
  if (!isAbsolute() || !other.isAbsolute()) return false;
  if (other.hasUnsafeFilePath()) return false;
  bool caseSensitive = getTraits()->isPathCaseSensitive(*this);
  std::vector<String> mine = splitSegments(removeDotSegments(m_path));
  std::vector<String> theirs = splitSegments(removeDotSegments(other.m_path));
  if (!mine.empty() && mine.back().isEmpty()) mine.pop_back();  // "/a/" is the folder "/a"
  if (mine.size() > theirs.size()) return false;
  for (std::size_t i = 0; i < mine.size(); ++i)
    if (!segmentsEqual(mine[i], theirs[i], caseSensitive)) return false;
  return true;
}

// --- files -------------------------------------------------------------------

bool CURI::hasUnsafeFilePath() const {
  if (m_scheme != u"file") return false;
  String const path = removeDotSegments(m_path);
  bool const windows = !m_host.isEmpty() || isWindowsStyleFileURIPath(path) || isWindowsStyleFileURIPath(m_path);
  return unsafeFilePathReason(isStoredIPv6Host(m_host) ? String() : m_host, path, windows) != nullptr;
}

bool CURI::isWindowsStyleFileURIPath(String const& path) {
  std::size_t n = path.length();
  if (n >= 2 && path[1] == u'/') return true;
  if (n < 3 || path[0] != u'/' || !isAlpha(path[1]) || path[2] != u':') return false;
  return n == 3 || path[3] == u'/';
}

TPathImpl<CWindowsPathTraits> CURI::toFilePath() const { return toWindowsFilePath(); }

TPathImpl<CWindowsPathTraits> CURI::toWindowsFilePath() const {
  if (m_scheme != u"file")
    throw CURIIncompatibleError(*this, u"Cannot convert URI to windows file path. URI has an incompatible scheme.");
  String text;
  // Dot segments are resolved here, as containment resolves them, never by
  // the platform, which would not stop at the same place.
  String const path = removeDotSegments(m_path);
  if (m_host.isEmpty() && !isWindowsStyleFileURIPath(path))
    throw CURIIncompatibleError(*this, u"Cannot convert URI to windows file path. Path does not have windows style.");
  if (m_host.StartsWith(u"["))
    throw CURIIncompatibleError(*this, u"Unable to convert URI with 'future style' IP address to Windows file path.");
  if (char16_t const* reason = unsafeFilePathReason(isStoredIPv6Host(m_host) ? String() : m_host, path, true))
    throw CURIIncompatibleError(*this, u"Cannot convert URI to windows file path. " + String(reason));
  String const device = CWindowsPathTraits::findReservedDeviceName(path);
  if (!device.isEmpty())
    throw CURIIncompatibleError(
        *this, u"Cannot convert URI to windows file path. Path contains the reserved device name '" + device + u"'.");
  if (!m_host.isEmpty()) {
    String server = m_host;
    if (isStoredIPv6Host(server)) {
      // The UNC spelling of an IPv6 address: "-" for ":", "s" for the
      // zone's "%", and a fixed domain that Windows resolves to the address.
      std::size_t percent = server.Find(u'%');
      server = server.Left(percent).Replace(u":", u"-") +
               (percent == String::npos ? String() : u"s" + server.Mid(percent + 1)) + kIPv6LiteralSuffix;
    }
    text = u"\\\\" + server + path.Replace(u"/", u"\\");
  } else {
    text = path[1] == u'/' ? path : path.Mid(1);
    text = text.Replace(u"/", u"\\");
    if (text.length() == 2) text += u'\\';  // "/c:" is the drive's root
  }
  return TPathImpl<CWindowsPathTraits>(text);
}

TPathImpl<CUnixPathTraits> CURI::toUnixFilePath() const {
  if (m_scheme != u"file")
    throw CURIIncompatibleError(*this, u"Cannot convert URI to unix file path. URI has an incompatible scheme.");
  if (!m_host.isEmpty())
    throw CURIIncompatibleError(*this, u"Cannot convert URI to unix file path. Path is network path.");
  if (isWindowsStyleFileURIPath(m_path))
    throw CURIIncompatibleError(*this, u"Cannot convert URI to posix file path. Path has windows style.");
  String const path = removeDotSegments(m_path);
  if (char16_t const* reason = unsafeFilePathReason(String(), path, false))
    throw CURIIncompatibleError(*this, u"Cannot convert URI to unix file path. " + String(reason));
  return TPathImpl<CUnixPathTraits>(path);
}

CURI::CURI(TPathImpl<CWindowsPathTraits> const& path, bool isFolder) : m_scheme(u"file") {
  String text = path.toString();
  if (text.StartsWith(u"\\\\?\\unc\\", true)) text = u"\\\\" + text.Mid(8);
  if (text.length() >= 6 && text.StartsWith(u"\\\\?\\") && isAlpha(text[4]) && text[5] == u':') text = text.Mid(4);
  m_hasAuthority = m_hasHost = true;
  if (text.StartsWith(u"\\\\")) {
    bool device = text.length() >= 4 && (text[2] == u'?' || text[2] == u'.') && text[3] == u'\\';
    if (device) {
      m_path = text.Replace(u"\\", u"/");
    } else {
      std::size_t end = text.Find(u'\\', 2);
      String server = text.Mid(2, end == String::npos ? String::npos : end - 2).Lower();
      m_path = end == String::npos ? String(u"/") : text.Mid(end).Replace(u"\\", u"/");
      if (server.EndsWith(kIPv6LiteralSuffix)) {
        String literal = server.Left(server.length() - String(kIPv6LiteralSuffix).length());
        std::size_t zone = literal.Find(u's');
        String address = literal.Left(zone).Replace(u"-", u":");
        if (zone != String::npos) address += u"%" + literal.Mid(zone + 1);
        if (isStoredIPv6Host(address)) server = address;
      }
      m_host = server;
    }
  } else if (text.length() >= 3 && isAlpha(text[0]) && text[1] == u':' && text[2] == u'\\') {
    m_path = u"/" + text.Replace(u"\\", u"/");
  } else {
    throw CBadPathError(text);
  }
  if (isFolder && !m_path.EndsWith(u"/")) m_path += u'/';
}

CURI::CURI(TPathImpl<CUnixPathTraits> const& path, bool isFolder) : m_scheme(u"file") {
  String const& text = path.toString();
  if (!text.StartsWith(u"/")) throw CBadPathError(text);
  m_hasAuthority = m_hasHost = true;
  m_path = text;
  if (isFolder && !m_path.EndsWith(u"/")) m_path += u'/';
}

// --- combination -------------------------------------------------------------

CURI CURI::operator<<(String const& component) const {
  CURI result(*this);
  if (!result.m_path.isEmpty() && !result.m_path.EndsWith(u"/")) result.m_path += u'/';
  result.m_path += component;
  return result;
}

CURI CURI::operator<<(CURI const& relative) const {
  if (relative.hasScheme() && relative.m_scheme != m_scheme) {
    throw CInvalidArgError(u"CURI::operator<<", u"URI schemes are different",
                           CProps().add(u"scheme1", m_scheme).add(u"scheme2", relative.m_scheme));
  }
  CURI result(*this);
  if (relative.m_hasAuthority) {
    result.m_hasAuthority = relative.m_hasAuthority;
    result.m_hasUserName = relative.m_hasUserName;
    result.m_userName = relative.m_userName;
    result.m_hasUserAuthInfo = relative.m_hasUserAuthInfo;
    result.m_userAuthInfo = relative.m_userAuthInfo;
    result.m_hasHost = relative.m_hasHost;
    result.m_host = relative.m_host;
    result.m_port = relative.m_port;
    result.m_path = removeDotSegments(relative.m_path);
  } else if (relative.isAbsolute()) {
    result.m_path = removeDotSegments(relative.m_path);
  } else if (!relative.m_path.isEmpty()) {
    String joined = m_path;
    if (!joined.isEmpty() && !joined.EndsWith(u"/")) joined += u'/';
    joined += relative.m_path;
    // Dot segments of a relative path cannot be resolved without a root.
    result.m_path = joined.StartsWith(u"/") ? removeDotSegments(joined) : joined;
  }
  result.m_hasQuery = relative.m_hasQuery;
  result.m_query = relative.m_query;
  result.m_hasFragment = relative.m_hasFragment;
  result.m_fragment = relative.m_fragment;
  return result;
}

CURI CURI::toRelative(CURI const& base) const {
  auto fail = [&](char16_t const* description) {
    throw CInvalidArgError(u"CURI::toRelative", description,
                           CProps().add(u"baseURI", base.toString(true)).add(u"uri", toString(true)));
  };
  if (m_scheme != base.m_scheme) fail(u"Both input URIs must have the same scheme.");
  if (m_hasHost != base.m_hasHost || m_host != base.m_host) fail(u"Both input URIs must have the same host.");
  if (m_port != base.m_port) fail(u"Both input URIs must have the same port.");
  if (m_hasUserName != base.m_hasUserName || m_userName != base.m_userName)
    fail(u"Both input URIs must have the same user name.");
  if (!isAbsolute() || !base.isAbsolute()) fail(u"Both input URIs must have an absolute path.");

  std::vector<String> folder = splitSegments(base.m_path);
  if (folder.back().isEmpty()) folder.pop_back();  // "/a/" and "/a" are the same folder
  std::vector<String> target = splitSegments(m_path);
  std::size_t common = 0;
  while (common < folder.size() && common < target.size() && folder[common] == target[common]) ++common;

  String path;
  if (common == target.size() && (common < folder.size() || m_path != base.m_path)) {
    // The target is an ancestor of the folder: climbing to it with ".."
    // would leave a trailing slash, so climb past it and name it again (the
    // same when only the base has the trailing slash).
    --common;
  }
  for (std::size_t i = common; i < folder.size(); ++i) path += u"../";
  String rest;
  for (std::size_t i = common; i < target.size(); ++i) {
    if (i > common) rest += u'/';
    rest += target[i];
  }
  if (common < target.size() && rest.isEmpty() && path.isEmpty()) {
    rest = u"./";  // the folder with a trailing slash
  } else if (path.isEmpty() && (rest.StartsWith(u"/") || rest.Left(rest.Find(u'/')).Contains(u":"))) {
    rest = u"./" + rest;  // not an absolute path, nor a scheme
  }
  path += rest;

  CURI relative;
  relative.m_path = path;
  relative.m_hasQuery = m_hasQuery;
  relative.m_query = m_query;
  relative.m_hasFragment = m_hasFragment;
  relative.m_fragment = m_fragment;
  return relative;
}

CURI CURI::toNormalized() const {
  CURI result(*this);
  if (result.isAbsolute()) result.m_path = removeDotSegments(m_path);
  return getTraits()->normalize(result);
}

// --- comparison --------------------------------------------------------------

bool CURI::operator==(CURI const& other) const noexcept {
  return m_scheme == other.m_scheme && m_path == other.m_path && m_host == other.m_host && m_port == other.m_port &&
         m_hasAuthority == other.m_hasAuthority && m_hasHost == other.m_hasHost &&
         m_hasUserName == other.m_hasUserName && m_userName == other.m_userName &&
         m_hasUserAuthInfo == other.m_hasUserAuthInfo && m_userAuthInfo == other.m_userAuthInfo &&
         m_hasQuery == other.m_hasQuery && m_query == other.m_query && m_hasFragment == other.m_hasFragment &&
         m_fragment == other.m_fragment;
}

bool CURI::operator<(CURI const& other) const noexcept {
  auto refs = [](CURI const& u) {
    return std::tie(u.m_scheme, u.m_hasAuthority, u.m_hasUserName, u.m_userName, u.m_hasUserAuthInfo,
                    u.m_userAuthInfo, u.m_hasHost, u.m_host, u.m_port, u.m_path, u.m_hasQuery, u.m_query,
                    u.m_hasFragment, u.m_fragment);
  };
  return refs(*this) < refs(other);
}

}  // namespace qo
