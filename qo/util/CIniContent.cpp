#include "qo/util/CIniContent.h"

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CParseError.h"
#include "qo/core/CProps.h"

namespace qo {

namespace {

[[noreturn]] void parseFailure(char16_t const* message, long long lineNumber) {
  throw CParseError(message, CProps().addLong(u"line", lineNumber));
}

bool isCommentStart(char16_t c) { return c == u';' || c == u'#'; }

bool sameName(String const& a, String const& b) { return a.CmpNoCase(b) == 0; }

// The 1-based line of a byte offset, counting "\r\n", "\n" and "\r" as
// line ends, as the line splitter does.
long long lineOfOffset(char const* bytes, std::size_t offset) {
  long long line = 1;
  for (std::size_t i = 0; i < offset; ++i) {
    if (bytes[i] == '\n' || (bytes[i] == '\r' && (i + 1 >= offset || bytes[i + 1] != '\n'))) ++line;
  }
  return line;
}

int hexValue(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

}  // namespace

CIniContent::CIniContent() = default;
CIniContent::~CIniContent() = default;

void CIniContent::parseLine(Line& line, String const& section, long long lineNumber) {
  line.section = section;
  String trimmed = line.text.Trim();
  if (trimmed.isEmpty()) {
    line.kind = kBlank;
    return;
  }
  if (isCommentStart(trimmed[0])) {
    line.kind = kComment;
    return;
  }
  if (trimmed[0] == u'[') {
    std::size_t close = trimmed.Find(u']');
    if (close == String::npos) parseFailure(u"Missing ']' in a section header.", lineNumber);
    String rest = trimmed.Mid(close + 1).Trim();
    if (!rest.isEmpty() && !isCommentStart(rest[0])) {
      parseFailure(u"Unexpected text after a section header.", lineNumber);
    }
    line.kind = kHeader;
    line.key = trimmed.Mid(1, close - 1).Trim();
    line.section = line.key;
    return;
  }
  std::size_t eq = line.text.Find(u'=');
  if (eq == String::npos) {
    line.kind = kOther;
    return;
  }
  line.kind = kEntry;
  line.key = line.text.Left(eq).Trim();
  if (line.key.isEmpty()) parseFailure(u"Missing key name before '='.", lineNumber);
  String raw = line.text.Mid(eq + 1);
  String valueText = raw.Trim();
  line.valueStart = eq + 1 + (raw.length() - raw.TrimLeft().length());
  if (valueText.isEmpty() || valueText[0] != u'"') {
    line.value = valueText;
    return;
  }
  std::u16string value;
  std::size_t i = 1;
  for (;; ++i) {
    if (i >= valueText.length()) parseFailure(u"Unterminated quoted value.", lineNumber);
    char16_t c = valueText[i];
    if (c == u'"') break;
    if (c != u'\\') {
      value += c;
      continue;
    }
    char16_t e = ++i < valueText.length() ? valueText[i] : u'\0';
    switch (e) {
      case u'\\': value += u'\\'; break;
      case u'"': value += u'"'; break;
      case u'n': value += u'\n'; break;
      case u'r': value += u'\r'; break;
      case u't': value += u'\t'; break;
      case u'0': value += u'\0'; break;
      case u'x': {
        int high = i + 1 < valueText.length() ? hexValue(valueText[i + 1]) : -1;
        int low = i + 2 < valueText.length() ? hexValue(valueText[i + 2]) : -1;
        if (high < 0 || low < 0) parseFailure(u"Bad \\x escape in a quoted value.", lineNumber);
        value += static_cast<char16_t>(high * 16 + low);
        i += 2;
        break;
      }
      default:
        parseFailure(u"Unknown escape sequence in a quoted value.", lineNumber);
    }
  }
  String rest = valueText.Mid(i + 1).Trim();
  if (!rest.isEmpty() && !isCommentStart(rest[0])) parseFailure(u"Unexpected text after a quoted value.", lineNumber);
  line.value = String(std::move(value));
}

std::vector<CIniContent::Line> CIniContent::parse(String const& text) {
  std::vector<Line> lines;
  std::u16string const& t = text.str();
  String section;
  std::size_t start = 0;
  while (start < t.size()) {
    std::size_t stop = start;
    while (stop < t.size() && t[stop] != u'\n' && t[stop] != u'\r') ++stop;
    Line line;
    line.text = String(t.substr(start, stop - start));
    std::size_t next = stop;
    if (stop < t.size()) {
      next = stop + (t[stop] == u'\r' && stop + 1 < t.size() && t[stop + 1] == u'\n' ? 2 : 1);
      line.end = String(t.substr(stop, next - stop));
    }
    parseLine(line, section, static_cast<long long>(lines.size()) + 1);
    section = line.section;
    lines.push_back(std::move(line));
    start = next;
  }
  return lines;
}

void CIniContent::loadText(String const& text) {
  std::vector<Line> lines = parse(text);
  m_lines = std::move(lines);
  for (auto const& line : m_lines) {
    if (!line.end.isEmpty()) {
      m_newLine = line.end;
      break;
    }
  }
}

void CIniContent::load(void const* data, std::size_t size) {
  auto const* bytes = static_cast<char const*>(data);
  auto const* u = static_cast<unsigned char const*>(data);
  Encoding encoding = kUTF8;
  String text;
  if (size >= 2 && u[0] == 0xFF && u[1] == 0xFE) {
    encoding = kUTF16LE;
    std::u16string units((size - 2) / 2, u'\0');
    for (std::size_t i = 0; i < units.size(); ++i)
      units[i] = static_cast<char16_t>(u[2 + 2 * i] | (u[3 + 2 * i] << 8));
    if (size % 2 != 0) {
      long long line = 1;
      for (std::size_t i = 0; i < units.size(); ++i)
        line += units[i] == u'\n' || (units[i] == u'\r' && (i + 1 >= units.size() || units[i + 1] != u'\n'));
      parseFailure(u"Truncated UTF-16 text.", line);
    }
    text = String(std::move(units));
  } else if (size >= 2 && u[0] == 0xFE && u[1] == 0xFF) {
    parseFailure(u"Big-endian UTF-16 text is not supported.", 1);
  } else {
    std::size_t skip = 0;
    if (size >= 3 && u[0] == 0xEF && u[1] == 0xBB && u[2] == 0xBF) {
      encoding = kUTF8BOM;
      skip = 3;
    }
    try {
      text = String::fromUTF8(bytes + skip, size - skip);
    } catch (CParseError const& e) {
      long long offset = e.getParams().lookupLong(u"offset", 0);
      throw CParseError(u"Invalid UTF-8 text.",
                        CProps()
                            .addLong(u"line", lineOfOffset(bytes + skip, static_cast<std::size_t>(offset)))
                            .addLong(u"offset", offset + static_cast<long long>(skip)));
    }
  }
  loadText(text);
  m_encoding = encoding;
}

String CIniContent::toText() const {
  std::u16string out;
  for (auto const& line : m_lines) {
    out += line.text.str();
    out += line.end.str();
  }
  return String(std::move(out));
}

std::string CIniContent::save() const {
  String text = toText();
  if (m_encoding == kUTF16LE) {
    std::string out("\xFF\xFE", 2);
    out.reserve(2 + 2 * text.length());
    for (char16_t c : text.str()) {
      out += static_cast<char>(c & 0xFF);
      out += static_cast<char>(c >> 8);
    }
    return out;
  }
  return (m_encoding == kUTF8BOM ? std::string("\xEF\xBB\xBF") : std::string()) + text.toUTF8();
}

std::vector<String> CIniContent::getSections() const {
  std::vector<String> names;
  for (auto const& line : m_lines) {
    if (line.kind != kHeader && line.kind != kEntry) continue;
    bool seen = false;
    for (auto const& n : names) seen = seen || sameName(n, line.section);
    if (!seen) names.push_back(line.section);
  }
  return names;
}

std::vector<String> CIniContent::getKeys(String const& section) const {
  std::vector<String> keys;
  for (auto const& line : m_lines) {
    if (line.kind != kEntry || !sameName(line.section, section)) continue;
    bool seen = false;
    for (auto const& k : keys) seen = seen || sameName(k, line.key);
    if (!seen) keys.push_back(line.key);
  }
  return keys;
}

bool CIniContent::hasSection(String const& section) const {
  for (auto const& line : m_lines) {
    if ((line.kind == kHeader || line.kind == kEntry) && sameName(line.section, section)) return true;
  }
  return false;
}

CIniContent::Line const* CIniContent::findEntry(String const& section, String const& key) const {
  for (auto const& line : m_lines) {
    if (line.kind == kEntry && sameName(line.key, key) && sameName(line.section, section)) return &line;
  }
  return nullptr;
}

bool CIniContent::lookup(String const& section, String const& key, String& value) const {
  Line const* line = findEntry(section, key);
  if (line == nullptr) return false;
  value = line->value;
  return true;
}

String CIniContent::getValue(String const& section, String const& key, String const& defaultValue) const {
  Line const* line = findEntry(section, key);
  return line != nullptr ? line->value : defaultValue;
}

String CIniContent::encodeValue(String const& value) {
  bool quote = !value.isEmpty() && (value.Trim() != value || value[0] == u'"');
  for (char16_t c : value.str()) quote = quote || c < 0x20;
  if (!quote) return value;
  std::u16string out = u"\"";
  for (char16_t c : value.str()) {
    switch (c) {
      case u'\\': out += u"\\\\"; break;
      case u'"': out += u"\\\""; break;
      case u'\n': out += u"\\n"; break;
      case u'\r': out += u"\\r"; break;
      case u'\t': out += u"\\t"; break;
      case u'\0': out += u"\\0"; break;
      default:
        if (c < 0x20) {
          char16_t const digits[] = u"0123456789ABCDEF";
          out += u"\\x";
          out += digits[c >> 4];
          out += digits[c & 15];
        } else {
          out += c;
        }
    }
  }
  out += u'"';
  return String(std::move(out));
}

void CIniContent::setValue(String const& section, String const& key, String const& value) {
  auto hasBreak = [](String const& s) { return s.Find(u'\n') != String::npos || s.Find(u'\r') != String::npos; };
  if (key.isEmpty() || key.Trim() != key || key[0] == u'[' || isCommentStart(key[0]) || key.Find(u'=') != String::npos ||
      hasBreak(key)) {
    throw CInvalidArgError(u"CIniContent::setValue", u"the key cannot be written", CProps().add(u"key", key));
  }
  if (section.Trim() != section || section.Find(u']') != String::npos || hasBreak(section)) {
    throw CInvalidArgError(u"CIniContent::setValue", u"the section name cannot be written",
                           CProps().add(u"section", section));
  }
  std::size_t lastEntry = String::npos, header = String::npos;
  for (std::size_t i = 0; i < m_lines.size(); ++i) {
    Line& line = m_lines[i];
    if (!sameName(line.section, section)) continue;
    if (line.kind == kEntry && sameName(line.key, key)) {
      line.text = line.text.Left(line.valueStart) + encodeValue(value);
      line.value = value;
      return;
    }
    if (line.kind == kEntry) lastEntry = i;
    if (line.kind == kHeader && header == String::npos) header = i;
  }
  Line entry;
  entry.kind = kEntry;
  entry.text = key + u"=" + encodeValue(value);
  entry.end = m_newLine;
  entry.section = section;
  entry.key = key;
  entry.value = value;
  entry.valueStart = key.length() + 1;
  std::size_t pos = lastEntry != String::npos ? lastEntry + 1 : header != String::npos ? header + 1 : String::npos;
  if (pos == String::npos && section.isEmpty()) pos = 0;
  if (pos == String::npos) {
    if (!m_lines.empty() && m_lines.back().end.isEmpty()) m_lines.back().end = m_newLine;
    if (!m_lines.empty() && m_lines.back().kind != kBlank) {
      Line blank;
      blank.end = m_newLine;
      blank.section = m_lines.back().section;
      m_lines.push_back(blank);
    }
    Line head;
    head.kind = kHeader;
    head.text = u"[" + section + u"]";
    head.end = m_newLine;
    head.section = head.key = section;
    m_lines.push_back(head);
    pos = m_lines.size();
  }
  if (pos == m_lines.size() && !m_lines.empty() && m_lines.back().end.isEmpty()) m_lines.back().end = m_newLine;
  m_lines.insert(m_lines.begin() + static_cast<std::ptrdiff_t>(pos), entry);
}

bool CIniContent::removeKey(String const& section, String const& key) {
  std::size_t before = m_lines.size();
  std::vector<Line> kept;
  for (auto& line : m_lines) {
    if (!(line.kind == kEntry && sameName(line.key, key) && sameName(line.section, section))) {
      kept.push_back(std::move(line));
    }
  }
  m_lines = std::move(kept);
  return m_lines.size() != before;
}

bool CIniContent::removeSection(String const& section) {
  std::size_t before = m_lines.size();
  std::vector<Line> kept;
  for (auto& line : m_lines) {
    // The section "" has no header: only its entries go.
    bool gone = sameName(line.section, section) && (!section.isEmpty() || line.kind == kEntry);
    if (!gone) kept.push_back(std::move(line));
  }
  m_lines = std::move(kept);
  return m_lines.size() != before;
}

}  // namespace qo
