#include "qo/core/CProps.h"

#include "qo/core/CParseError.h"

#include <limits>

namespace qo {

namespace {

bool isBlank(char16_t c) { return c == u' ' || c == u'\t'; }

char16_t asciiLower(char16_t c) { return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c - u'A' + u'a') : c; }

bool equalsAsciiNoCase(String const& text, char16_t const* word) {
  std::size_t i = 0;
  for (; word[i] != 0; ++i) {
    if (i >= text.length() || asciiLower(text[i]) != word[i]) return false;
  }
  return i == text.length();
}

void appendQuoted(String& out, String const& text) {
  out += u'\'';
  for (char16_t c : text.str()) {
    switch (c) {
      case u'\\': out += u"\\\\"; break;
      case u'\'': out += u"\\'"; break;
      case u'\n': out += u"\\n"; break;
      case u'\r': out += u"\\r"; break;
      case u'\t': out += u"\\t"; break;
      default: out += c; break;
    }
  }
  out += u'\'';
}

// Reads the text form; every failure names the offset where it was noticed.
class CPropsParser {
public:
  explicit CPropsParser(String const& text) : m_text(text.str()) {}

  CProps parse() {
    CProps props;
    skipBlanks();
    if (m_pos == m_text.size()) return props;
    for (;;) {
      String key = readQuoted();
      skipBlanks();
      expect(u'=');
      skipBlanks();
      String value = readQuoted();
      props.add(key, value);
      skipBlanks();
      if (m_pos == m_text.size()) return props;
      expect(u',');
      skipBlanks();
    }
  }

private:
  [[noreturn]] void fail() const {
    throw CParseError(u"Malformed property text.",
                      CProps().addLong(u"offset", static_cast<long long>(m_pos)));
  }

  void skipBlanks() {
    while (m_pos < m_text.size() && isBlank(m_text[m_pos])) ++m_pos;
  }

  void expect(char16_t c) {
    if (m_pos >= m_text.size() || m_text[m_pos] != c) fail();
    ++m_pos;
  }

  String readQuoted() {
    expect(u'\'');
    std::u16string out;
    for (;;) {
      if (m_pos >= m_text.size()) fail();
      char16_t c = m_text[m_pos];
      if (c == u'\'') {
        ++m_pos;
        return String(std::move(out));
      }
      if (c == u'\\') {
        ++m_pos;
        if (m_pos >= m_text.size()) fail();
        switch (m_text[m_pos]) {
          case u'\\': out += u'\\'; break;
          case u'\'': out += u'\''; break;
          case u'n': out += u'\n'; break;
          case u'r': out += u'\r'; break;
          case u't': out += u'\t'; break;
          default: fail();
        }
      } else {
        out += c;
      }
      ++m_pos;
    }
  }

  std::u16string const& m_text;
  std::size_t m_pos = 0;
};

}  // namespace

CProps::~CProps() = default;

CProps& CProps::add(String const& key, String const& value) {
  m_map[key] = value;
  return *this;
}

CProps& CProps::addCond(bool condition, String const& key, String const& value) {
  if (condition) add(key, value);
  return *this;
}

CProps& CProps::addBool(String const& key, bool value) { return add(key, value ? u"true" : u"false"); }

CProps& CProps::addLong(String const& key, long long value) { return add(key, qo::toString(value)); }

CProps& CProps::addAll(CProps const& other) {
  if (&other == this) return *this;
  for (auto const& entry : other.m_map) m_map[entry.first] = entry.second;
  return *this;
}

bool CProps::remove(String const& key) { return m_map.erase(key) != 0; }

String CProps::lookup(String const& key) const {
  auto it = m_map.find(key);
  return it == m_map.end() ? String() : it->second;
}

bool CProps::contains(String const& key) const { return m_map.find(key) != m_map.end(); }

bool CProps::lookupBool(String const& key, bool defaultValue) const {
  auto it = m_map.find(key);
  if (it == m_map.end()) return defaultValue;
  String const& value = it->second;
  if (value == String(u"1") || equalsAsciiNoCase(value, u"true")) return true;
  if (value == String(u"0") || equalsAsciiNoCase(value, u"false")) return false;
  return defaultValue;
}

long long CProps::lookupLong(String const& key, long long defaultValue) const {
  auto it = m_map.find(key);
  if (it == m_map.end()) return defaultValue;
  std::u16string const& text = it->second.str();
  std::size_t pos = 0;
  bool negative = false;
  if (pos < text.size() && (text[pos] == u'+' || text[pos] == u'-')) {
    negative = text[pos] == u'-';
    ++pos;
  }
  if (pos == text.size()) return defaultValue;
  // Accumulate the magnitude unsigned so that the most negative value, whose
  // magnitude exceeds the largest positive one, still fits.
  unsigned long long const limit = negative
      ? static_cast<unsigned long long>(std::numeric_limits<long long>::max()) + 1u
      : static_cast<unsigned long long>(std::numeric_limits<long long>::max());
  unsigned long long magnitude = 0;
  for (; pos < text.size(); ++pos) {
    char16_t c = text[pos];
    if (c < u'0' || c > u'9') return defaultValue;
    unsigned digit = static_cast<unsigned>(c - u'0');
    if (magnitude > (limit - digit) / 10u) return defaultValue;
    magnitude = magnitude * 10u + digit;
  }
  if (!negative) return static_cast<long long>(magnitude);
  if (magnitude == 0) return 0;
  return -static_cast<long long>(magnitude - 1u) - 1;
}

String CProps::toString() const {
  String out;
  bool first = true;
  for (auto const& entry : m_map) {
    if (!first) out += u", ";
    first = false;
    appendQuoted(out, entry.first);
    out += u'=';
    appendQuoted(out, entry.second);
  }
  return out;
}

CProps CProps::fromString(String const& text) { return CPropsParser(text).parse(); }

}  // namespace qo
