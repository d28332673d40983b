#include "qo/log/CQuickXMLChecker.h"

#include <vector>

namespace qo {

namespace {

bool isBlank(char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; }
bool isDigit(char16_t c) { return c >= u'0' && c <= u'9'; }
bool isHexDigit(char16_t c) { return isDigit(c) || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F'); }

}  // namespace

CQuickXMLChecker::CQuickXMLChecker(String const& text) : m_text(text) {}

char16_t CQuickXMLChecker::getChar(int pos) const noexcept {
  if (pos < 0 || pos >= m_text.getLength()) return 0;
  return m_text[static_cast<std::size_t>(pos)];
}

bool CQuickXMLChecker::goToNext(char16_t c) noexcept {
  std::size_t const found = m_text.Find(c, static_cast<std::size_t>(m_pos));
  if (found == String::npos) {
    m_pos = m_text.getLength();
    return false;
  }
  m_pos = static_cast<int>(found);
  return true;
}

bool CQuickXMLChecker::goToNext(String const& text) noexcept {
  std::size_t const found = m_text.Find(text, static_cast<std::size_t>(m_pos));
  if (found == String::npos) {
    m_pos = m_text.getLength();
    return false;
  }
  m_pos = static_cast<int>(found);
  return true;
}

void CQuickXMLChecker::skipWhiteSpace() noexcept {
  while (m_pos < m_text.getLength() && isBlank(m_text[static_cast<std::size_t>(m_pos)])) ++m_pos;
}

bool CQuickXMLChecker::isValidNameChar(char16_t c) noexcept {
  return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || isDigit(c) || c == u'_' || c == u':' || c == u'-' ||
         c == u'.' || c >= 0x80;
}

bool CQuickXMLChecker::startsWith(char16_t const* text) const noexcept {
  int pos = m_pos;
  for (; *text != 0; ++text, ++pos)
    if (getChar(pos) != *text) return false;
  return true;
}

bool CQuickXMLChecker::readName(String* name) noexcept {
  int const start = m_pos;
  char16_t const first = getChar(m_pos);
  if (!isValidNameChar(first) || isDigit(first) || first == u'-' || first == u'.') return false;
  while (isValidNameChar(getChar(m_pos))) ++m_pos;
  if (name != nullptr) *name = m_text.Mid(static_cast<std::size_t>(start), static_cast<std::size_t>(m_pos - start));
  return true;
}

// At '&': one of the five predefined entities or a character reference.
bool CQuickXMLChecker::readReference() noexcept {
  ++m_pos;
  if (getChar(m_pos) == u'#') {
    ++m_pos;
    bool const hex = getChar(m_pos) == u'x';
    if (hex) ++m_pos;
    int const start = m_pos;
    while (hex ? isHexDigit(getChar(m_pos)) : isDigit(getChar(m_pos))) ++m_pos;
    if (m_pos == start || getChar(m_pos) != u';') return false;
    ++m_pos;
    return true;
  }
  for (char16_t const* entity : {u"lt;", u"gt;", u"amp;", u"quot;", u"apos;"}) {
    if (startsWith(entity)) {
      m_pos += static_cast<int>(std::char_traits<char16_t>::length(entity));
      return true;
    }
  }
  return false;
}

// At '<' of a start tag: the name, the attributes and '>' or "/>".
bool CQuickXMLChecker::readStartTag(bool& selfClosing, String& name) {
  ++m_pos;
  if (!readName(&name)) return false;
  while (true) {
    int const beforeBlank = m_pos;
    skipWhiteSpace();
    char16_t const c = getChar(m_pos);
    if (c == u'>') {
      ++m_pos;
      selfClosing = false;
      return true;
    }
    if (c == u'/' && getChar(m_pos + 1) == u'>') {
      m_pos += 2;
      selfClosing = true;
      return true;
    }
    // Attributes are separated from the name and from each other.
    if (m_pos == beforeBlank || !readName(nullptr)) return false;
    skipWhiteSpace();
    if (getChar(m_pos) != u'=') return false;
    ++m_pos;
    skipWhiteSpace();
    char16_t const quote = getChar(m_pos);
    if (quote != u'"' && quote != u'\'') return false;
    ++m_pos;
    while (true) {
      char16_t const v = getChar(m_pos);
      if (v == 0 || v == u'<') return false;
      if (v == quote) break;
      if (v == u'&') {
        if (!readReference()) return false;
      } else {
        ++m_pos;
      }
    }
    ++m_pos;
  }
}

bool CQuickXMLChecker::doCheck() {
  m_pos = 0;
  int const end = m_text.getLength();
  if (getChar(0) == 0xFEFF) m_pos = 1;
  std::vector<String> open;
  bool rootDone = false;
  bool rootSeen = false;
  while (m_pos < end) {
    char16_t const c = getChar(m_pos);
    if (c != u'<') {
      if (open.empty()) {
        // Outside the root only white space.
        if (!isBlank(c)) return false;
        ++m_pos;
      } else if (c == u'&') {
        if (!readReference()) return false;
      } else {
        ++m_pos;
      }
      continue;
    }
    if (startsWith(u"<!--")) {
      m_pos += 4;
      if (!goToNext(String(u"-->"))) return false;
      m_pos += 3;
    } else if (startsWith(u"<![CDATA[")) {
      if (open.empty()) return false;
      m_pos += 9;
      if (!goToNext(String(u"]]>"))) return false;
      m_pos += 3;
    } else if (startsWith(u"<?")) {
      m_pos += 2;
      if (!goToNext(String(u"?>"))) return false;
      m_pos += 2;
    } else if (startsWith(u"<!")) {
      // A document type declaration, before the root only; internal subsets
      // are not looked into.
      if (rootSeen) return false;
      if (!goToNext(u'>')) return false;
      ++m_pos;
    } else if (startsWith(u"</")) {
      m_pos += 2;
      String name;
      if (!readName(&name)) return false;
      skipWhiteSpace();
      if (getChar(m_pos) != u'>') return false;
      ++m_pos;
      if (open.empty() || open.back() != name) return false;
      open.pop_back();
      if (open.empty()) rootDone = true;
    } else {
      if (rootDone) return false;
      bool selfClosing = false;
      String name;
      if (!readStartTag(selfClosing, name)) return false;
      rootSeen = true;
      if (selfClosing) {
        if (open.empty()) rootDone = true;
      } else {
        open.push_back(name);
      }
    }
  }
  return rootDone && open.empty();
}

}  // namespace qo
