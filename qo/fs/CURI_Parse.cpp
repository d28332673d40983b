// Parsing of URI text and reference resolution.
#include "qo/fs/CURI.h"

#include <string>
#include <string_view>

#include "qo/core/CURIMalformedError.h"
#include "qo/fs/URIText.h"

namespace qo {

using namespace uritext;

void uritext::throwMalformed(String const& text, char16_t const* reason) {
  throw CURIMalformedError(text, CProps().add(CURIMalformedError::paramReason(), reason));
}

namespace {

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

}  // namespace

bool uritext::isValidScheme(std::u16string_view scheme) {
  if (scheme.empty() || !isAlpha(scheme[0])) return false;
  for (std::size_t i = 1; i < scheme.size(); ++i) {
    char16_t c = scheme[i];
    if (!isAlpha(c) && !isDigit(c) && c != u'+' && c != u'-' && c != u'.') return false;
  }
  return true;
}

// An IPv6 host as stored: the address, optionally "%" and a zone (RFC 6874).
bool uritext::isStoredIPv6Host(String const& host) {
  std::size_t percent = host.Find(u'%');
  if (percent == String::npos) return isIPv6(host.str());
  return percent + 1 < host.length() && isIPv6(std::u16string_view(host.str()).substr(0, percent));
}

// IPvFuture with its brackets: "[v" 1*HEXDIG "." 1*(unreserved / sub-delims / ":") "]".
bool uritext::isIPFutureHost(String const& host) {
  std::size_t n = host.length();
  if (n < 6 || host[0] != u'[' || host[n - 1] != u']' || (host[1] != u'v' && host[1] != u'V')) return false;
  std::size_t i = 2;
  while (i < n - 1 && isHex(host[i])) ++i;
  if (i == 2 || i >= n - 2 || host[i] != u'.') return false;
  for (++i; i < n - 1; ++i)
    if (!isUnreserved(host[i]) && !isSubDelim(host[i]) && host[i] != u':') return false;
  return true;
}

// Checks a host given to the parts constructor: one that looks like an IP
// literal must be one, or toString could not write it back.
void uritext::checkHost(String const& host) {
  if (host.StartsWith(u"[")) {
    if (!isIPFutureHost(host)) throwMalformed(host, u"Invalid IP literal host.");
  } else if (host.Contains(u":") && !isStoredIPv6Host(host)) {
    throwMalformed(host, u"Invalid IPv6 address.");
  }
}

String uritext::normalizeHost(String const& host) { return host.StartsWith(u"[") ? asciiLower(host) : host.Lower(); }

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

}  // namespace qo
