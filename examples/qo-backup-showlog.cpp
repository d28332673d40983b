// examples/qo-backup-showlog.cpp - the session-log viewer of qo-backup.
#include "qo-backup-showlog.h"

#include <cstdio>
#include <map>
#include <memory>
#include <vector>

#include "qo/qo.h"

namespace qobackup {

using qo::String;

namespace {

// The part of XML the session log uses: elements, attributes, text with the
// five named and the numeric character references, the declaration and
// comments. Enough for the library's own writer, which is all it reads.
struct Node {
  std::u16string name;
  std::map<std::u16string, std::u16string> attributes;
  std::u16string text;
  std::vector<std::unique_ptr<Node>> children;

  Node const* child(char16_t const* childName) const {
    for (auto const& c : children) {
      if (c->name == childName) return c.get();
    }
    return nullptr;
  }
  std::u16string attribute(char16_t const* key) const {
    auto const it = attributes.find(key);
    return it == attributes.end() ? std::u16string() : it->second;
  }
};

class CParser {
public:
  explicit CParser(std::u16string const& text) : m_text(text) {}

  std::unique_ptr<Node> parseDocument() {
    skipMisc();
    auto root = parseElement();
    skipMisc();
    if (m_pos != m_text.size()) fail(u"Text after the root element.");
    return root;
  }

private:
  [[noreturn]] void fail(char16_t const* what) const {
    throw qo::CParseError(String(u"The log is not well formed: ") + what,
                          qo::CProps().addLong(u"offset", static_cast<long long>(m_pos)));
  }
  bool startsWith(char16_t const* s) const { return m_text.compare(m_pos, std::u16string(s).size(), s) == 0; }
  void skipBlanks() {
    while (m_pos < m_text.size() && (m_text[m_pos] == u' ' || m_text[m_pos] == u'\n' || m_text[m_pos] == u'\r' ||
                                     m_text[m_pos] == u'\t')) {
      ++m_pos;
    }
  }
  void skipPast(char16_t const* end) {
    std::size_t const at = m_text.find(end, m_pos);
    if (at == std::u16string::npos) fail(u"Unclosed declaration or comment.");
    m_pos = at + std::u16string(end).size();
  }
  void skipMisc() {
    for (;;) {
      skipBlanks();
      if (startsWith(u"<?")) {
        skipPast(u"?>");
      } else if (startsWith(u"<!--")) {
        skipPast(u"-->");
      } else {
        return;
      }
    }
  }
  std::u16string parseName() {
    std::size_t const start = m_pos;
    while (m_pos < m_text.size() && qo::CQuickXMLChecker::isValidNameChar(m_text[m_pos])) ++m_pos;
    if (m_pos == start) fail(u"A name is missing.");
    return m_text.substr(start, m_pos - start);
  }
  std::u16string decode(std::u16string const& raw) const {
    std::u16string out;
    for (std::size_t i = 0; i < raw.size(); ++i) {
      if (raw[i] != u'&') {
        out += raw[i];
        continue;
      }
      std::size_t const end = raw.find(u';', i);
      if (end == std::u16string::npos) fail(u"Unclosed character reference.");
      std::u16string const ref = raw.substr(i + 1, end - i - 1);
      if (ref == u"lt") out += u'<';
      else if (ref == u"gt") out += u'>';
      else if (ref == u"amp") out += u'&';
      else if (ref == u"quot") out += u'"';
      else if (ref == u"apos") out += u'\'';
      else if (ref.size() > 1 && ref[0] == u'#') {
        bool const hex = ref[1] == u'x';
        char32_t value = 0;
        for (std::size_t k = hex ? 2 : 1; k < ref.size(); ++k) {
          char16_t const c = ref[k];
          int const digit = c >= u'0' && c <= u'9' ? c - u'0'
                            : hex && c >= u'a' && c <= u'f' ? c - u'a' + 10
                            : hex && c >= u'A' && c <= u'F' ? c - u'A' + 10
                                                            : -1;
          if (digit < 0) fail(u"Bad character reference.");
          value = value * (hex ? 16 : 10) + static_cast<char32_t>(digit);
          if (value > 0x10FFFF) fail(u"Bad character reference.");
        }
        out += String::fromUTF32(std::u32string(1, value)).str();
      } else {
        fail(u"Unknown entity.");
      }
      i = end;
    }
    return out;
  }
  std::unique_ptr<Node> parseElement(int depth = 0) {
    // A session log nests a handful of levels; a deeper document is damaged
    // (or made to exhaust the stack) and is refused rather than followed.
    if (depth > kMaxDepth) fail(u"The elements are nested too deeply: the log is damaged.");
    if (!startsWith(u"<")) fail(u"An element is missing.");
    ++m_pos;
    auto node = std::make_unique<Node>();
    node->name = parseName();
    for (;;) {
      skipBlanks();
      if (startsWith(u"/>")) {
        m_pos += 2;
        return node;
      }
      if (startsWith(u">")) {
        ++m_pos;
        break;
      }
      std::u16string const key = parseName();
      skipBlanks();
      if (!startsWith(u"=")) fail(u"An attribute has no value.");
      ++m_pos;
      skipBlanks();
      if (m_pos >= m_text.size() || (m_text[m_pos] != u'"' && m_text[m_pos] != u'\'')) fail(u"Unquoted attribute.");
      char16_t const quote = m_text[m_pos++];
      std::size_t const end = m_text.find(quote, m_pos);
      if (end == std::u16string::npos) fail(u"Unclosed attribute value.");
      node->attributes[key] = decode(m_text.substr(m_pos, end - m_pos));
      m_pos = end + 1;
    }
    for (;;) {
      std::size_t const lt = m_text.find(u'<', m_pos);
      if (lt == std::u16string::npos) fail(u"Unclosed element.");
      node->text += decode(m_text.substr(m_pos, lt - m_pos));
      m_pos = lt;
      if (startsWith(u"</")) {
        m_pos += 2;
        if (parseName() != node->name) fail(u"Mismatched end tag.");
        skipBlanks();
        if (!startsWith(u">")) fail(u"Unclosed end tag.");
        ++m_pos;
        return node;
      }
      if (startsWith(u"<!--")) {
        skipPast(u"-->");
        continue;
      }
      node->children.push_back(parseElement(depth + 1));
    }
  }

  static constexpr int kMaxDepth = 100;

  std::u16string const& m_text;
  std::size_t m_pos = 0;
};

std::string utf8(std::u16string const& text) { return String(text).toUTF8Lossy(); }

// Text content without the indentation the writer puts around children.
std::string trimmed(std::u16string const& text) {
  std::size_t const begin = text.find_first_not_of(u" \r\n\t");
  if (begin == std::u16string::npos) return std::string();
  std::size_t const end = text.find_last_not_of(u" \r\n\t");
  return utf8(text.substr(begin, end - begin + 1));
}

// "qo::CIOError IO 1: Error opening the file. (uri='...')", then the causes.
std::string describeError(Node const& error) {
  std::string text = utf8(error.attribute(u"class"));
  std::u16string const domain = error.attribute(u"domain");
  if (!domain.empty()) text += " " + utf8(domain) + " " + utf8(error.attribute(u"code"));
  if (Node const* message = error.child(u"message")) text += ": " + trimmed(message->text);
  if (Node const* properties = error.child(u"properties")) {
    std::string list;
    for (auto const& [key, value] : properties->attributes) {
      if (key == u"_trace") continue;
      list += (list.empty() ? "" : ", ") + utf8(key) + "='" + utf8(value) + "'";
    }
    if (!list.empty()) text += " (" + list + ")";
  }
  if (Node const* cause = error.child(u"cause")) {
    if (Node const* inner = cause->child(u"error")) text += "\n" + std::string(26, ' ') + "caused by " + describeError(*inner);
  }
  return text;
}

std::string formatHeader(Node const& header) {
  std::string text;
  if (Node const* app = header.child(u"appInfo")) {
    text += utf8(app->attribute(u"id")) + " " + utf8(app->attribute(u"version"));
  }
  if (Node const* sys = header.child(u"sysInfo")) {
    if (Node const* os = sys->child(u"osInfo")) text += ", " + utf8(os->attribute(u"desc"));
  }
  if (Node const* backup = header.child(u"backup")) {
    text += "\n    " + utf8(backup->attribute(u"source")) + " -> " + utf8(backup->attribute(u"target"));
    std::u16string const mode = backup->attribute(u"mode");
    if (!mode.empty()) text += " (" + utf8(mode) + ")";
  }
  return text;
}

std::string formatEntry(Node const& entry) {
  char head[80];
  std::snprintf(head, sizeof head, "  %s %-8s ", utf8(entry.attribute(u"time")).c_str(),
                utf8(entry.attribute(u"level")).c_str());
  std::string text = head;
  if (entry.name == u"entry") return text + trimmed(entry.text);
  Node const* summary = entry.child(u"summary");
  Node const* context = entry.child(u"context");
  text += summary ? trimmed(summary->text) : std::string("(no summary)");
  if (context) text += " [" + trimmed(context->text) + "]";
  for (auto const& child : entry.children) {
    if (child->name == u"summary" || child->name == u"context") continue;
    std::string detail = utf8(child->name);
    if (child->name == u"error") {
      detail = describeError(*child);
    } else if (child->name == u"crash") {
      detail = "crash: " + utf8(child->attribute(u"type"));
      if (Node const* module = child->child(u"moduleName")) detail += " in " + trimmed(module->text);
      if (Node const* address = child->child(u"codeAddress")) detail += " at " + trimmed(address->text);
    }
    text += "\n" + std::string(26, ' ') + detail;
  }
  return text;
}

}  // namespace

std::string formatLog(String const& document) {
  std::unique_ptr<Node> root = CParser(document.str()).parseDocument();
  if (root->name != u"log") throw qo::CParseError(u"The document is not a session log.");
  std::string out;
  int number = 0;
  for (auto const& child : root->children) {
    if (child->name == u"snip") {
      out += "(older sessions were cut to keep the log small)\n";
      continue;
    }
    if (child->name != u"session") continue;
    Node const& session = *child;
    out += "Session " + std::to_string(++number) + "  started " + utf8(session.attribute(u"time"));
    if (Node const* header = session.child(u"sessionHeader")) out += "  " + formatHeader(*header);
    out += "\n";
    bool unfinished = false;
    int entries = 0;
    for (auto const& item : session.children) {
      if (item->name == u"entry" || item->name == u"centry") {
        out += formatEntry(*item) + "\n";
        ++entries;
      } else if (item->name == u"sessionUnfinished") {
        unfinished = true;
      } else if (item->name == u"snip") {
        out += "  (earlier entries were cut)\n";
      }
    }
    if (entries == 0) out += "  (no entries)\n";
    if (unfinished) out += "  UNFINISHED: the program ended without closing this session (crash or kill).\n";
    out += "\n";
  }
  out += std::to_string(number) + (number == 1 ? " session\n" : " sessions\n");
  return out;
}

int showLog(String const& path) {
  try {
    std::string const text = formatLog(qo::CXMLLog::readLogRaw(path));
    std::fwrite(text.data(), 1, text.size(), stdout);
    return 0;
  } catch (std::exception const& e) {
    std::fprintf(stderr, "qo-backup: cannot show the log %s: %s\n", path.toUTF8Lossy().c_str(), e.what());
    return 1;
  }
}

}  // namespace qobackup
