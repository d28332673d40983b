// Escaping and unescaping of URI components, and writing a URI as text.
#include "qo/fs/CURI.h"

#include <algorithm>
#include <ostream>
#include <string>
#include <string_view>

#include "qo/fs/URIText.h"

namespace qo {

using namespace uritext;

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

}  // namespace

String uritext::asciiLower(String text) {
  for (std::size_t i = 0; i < text.length(); ++i)
    if (text[i] >= u'A' && text[i] <= u'Z') text[i] = static_cast<char16_t>(text[i] + 32);
  return text;
}

void uritext::lowerInPlace(String& text) {
  for (char16_t c : text.str()) {
    if (c >= 0x80) {
      text = text.Lower();
      return;
    }
  }
  for (char16_t& c : text.str())
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
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

// unescape() of a part of a text, without copying the part first.
String uritext::unescapeRange(std::u16string_view text) {
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

// Escapes of non-ASCII characters become the characters and escapes of
// unreserved ones the plain characters (RFC 3986 6.2.2.2); escapes of
// other ASCII characters stay, since they may be significant ("%26" is not
// "&"), with upper-case digits, as do bytes that form no UTF-8 character.
// Characters a query may not hold plainly are escaped, and a "%" that starts
// no escape becomes "%25".
String CURI::normalizeEscapedUnicodeQuery(String const& query) { return normalizeQueryRange(query.str()); }

String uritext::normalizeQueryRange(std::u16string_view query) {
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

}  // namespace qo
