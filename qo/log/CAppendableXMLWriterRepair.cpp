// CAppendableXMLWriter: continuing a document found on disk, and finishing
// what a process killed in the middle of a flush left (see the header).
#include "qo/log/CAppendableXMLWriter.h"

#include <string>
#include <vector>

#include "qo/core/CFileCorruptedError.h"
#include "qo/fs/LocalFile.h"
#include "qo/stream/CBufferStream.h"

namespace qo {

namespace {

bool isBlank(char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; }

bool isBlankByte(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }


// What the main file itself says about the document: the elements open
// after its last complete piece of markup, whether that markup closed an
// element, and where it ends. Anything after it is text (white space
// between elements, or the start of an element's text that a dying process
// did not finish) or a tag cut off in the middle. False when the bytes are
// not the beginning of a well-formed document at all.
struct MainFileState {
  TList<String> openElements;
  bool closedLast = true;
  std::size_t completeEnd = 0;
};

bool isNameEnd(char c) { return isBlankByte(c) || c == '/' || c == '>'; }

// Scans one start or empty-element tag at pos ('<' already seen at pos).
// Returns 1 and fills name/empty/end when complete, 0 when the bytes end
// inside it, -1 when it is malformed.
int scanStartTag(std::string const& b, std::size_t pos, std::string& name, bool& empty, std::size_t& end) {
  std::size_t const n = b.size();
  std::size_t i = pos + 1;
  while (i < n && !isNameEnd(b[i])) {
    if (b[i] == '<' || b[i] == '=' || b[i] == '"' || b[i] == '\'' || b[i] == '&') return -1;
    ++i;
  }
  if (i == pos + 1 && i < n) return -1;
  name = b.substr(pos + 1, i - pos - 1);
  while (true) {
    while (i < n && isBlankByte(b[i])) ++i;
    if (i >= n) return 0;
    if (b[i] == '>') {
      empty = false;
      end = i + 1;
      return 1;
    }
    if (b[i] == '/') {
      if (i + 1 >= n) return 0;
      if (b[i + 1] != '>') return -1;
      empty = true;
      end = i + 2;
      return 1;
    }
    // An attribute: name = "value" (or 'value').
    std::size_t const attributeStart = i;
    while (i < n && !isBlankByte(b[i]) && b[i] != '=' && b[i] != '>' && b[i] != '/') ++i;
    if (i >= n) return 0;
    if (i == attributeStart) return -1;
    while (i < n && isBlankByte(b[i])) ++i;
    if (i >= n) return 0;
    if (b[i] != '=') return -1;
    ++i;
    while (i < n && isBlankByte(b[i])) ++i;
    if (i >= n) return 0;
    char const quote = b[i];
    if (quote != '"' && quote != '\'') return -1;
    std::size_t const close = b.find(quote, i + 1);
    if (close == std::string::npos) return 0;
    if (b.find('<', i + 1) < close) return -1;
    i = close + 1;
  }
}

bool scanMainFile(std::string const& b, MainFileState& state) {
  std::vector<std::string> stack;
  bool rootClosed = false;
  std::size_t pos = 0;
  std::size_t const n = b.size();
  while (pos < n) {
    std::size_t const lt = b.find('<', pos);
    if (stack.empty()) {
      // Outside the root only white space may stand between the markup.
      for (std::size_t i = pos; i < (lt == std::string::npos ? n : lt); ++i)
        if (!isBlankByte(b[i])) return false;
    }
    if (lt == std::string::npos) break;
    std::size_t end = 0;
    if (b.compare(lt, 2, "<?") == 0) {
      std::size_t const close = b.find("?>", lt + 2);
      if (close == std::string::npos) break;
      end = close + 2;
    } else if (b.compare(lt, 4, "<!--") == 0) {
      std::size_t const close = b.find("-->", lt + 4);
      if (close == std::string::npos) break;
      end = close + 3;
    } else if (b.compare(lt, 9, "<![CDATA[") == 0) {
      if (stack.empty()) return false;
      std::size_t const close = b.find("]]>", lt + 9);
      if (close == std::string::npos) break;
      end = close + 3;
    } else if (b.compare(lt, 2, "<!") == 0) {
      // A document type or the like: not a document this writer started.
      if (n - lt < 9) break;
      return false;
    } else if (b.compare(lt, 2, "</") == 0) {
      std::size_t const close = b.find('>', lt + 2);
      if (close == std::string::npos) break;
      std::size_t nameEnd = close;
      while (nameEnd > lt + 2 && isBlankByte(b[nameEnd - 1])) --nameEnd;
      if (stack.empty() || b.compare(lt + 2, nameEnd - lt - 2, stack.back()) != 0 ||
          nameEnd - lt - 2 != stack.back().size()) {
        return false;
      }
      stack.pop_back();
      if (stack.empty()) rootClosed = true;
      state.closedLast = true;
      end = close + 1;
    } else {
      std::string name;
      bool empty = false;
      int const scanned = scanStartTag(b, lt, name, empty, end);
      if (scanned < 0) return false;
      if (scanned == 0) break;
      if (stack.empty() && rootClosed) return false;
      if (empty) {
        if (stack.empty()) rootClosed = true;
        state.closedLast = true;
      } else {
        stack.push_back(name);
        state.closedLast = false;
      }
    }
    pos = end;
    state.completeEnd = end;
  }
  state.openElements.clear();
  for (std::string const& name : stack) state.openElements.push_back(String::wstringFromUTF8WithLatin1Fallback(name));
  return true;
}

// The suffix text without the "?>" marks a flush puts there for a moment;
// true in hadMarks when there were any.
String withoutMarks(std::string const& bytes, bool& hadMarks) {
  std::string text = bytes;
  hadMarks = false;
  for (std::size_t pos = text.find("?>"); pos != std::string::npos; pos = text.find("?>", pos)) {
    text.erase(pos, 2);
    hadMarks = true;
  }
  return String::wstringFromUTF8WithLatin1Fallback(text);
}

}  // namespace

void CAppendableXMLWriter::openExisting() {
  TList<String> openElements;
  bool closedLast = true;
  bool const haveSuffix = localFileExists(m_suffixPath);
  bool hadMarks = false;
  if (haveSuffix) {
    std::string const bytes = readLocalFile(m_suffixPath);
    if (!readSuffix(withoutMarks(bytes, hadMarks), openElements, closedLast)) throw CFileCorruptedError(m_suffixPath);
    m_writtenSuffix = bytes;
  }
  openMainFile();
  // The main file is what was written last, so it decides what is open: a
  // hidden or cut-off tail is removed and the end tags are rebuilt.
  MainFileState state;
  std::string const main = readLocalFile(m_path);
  if (scanMainFile(main, state)) {
    std::string const suffix = CXMLWriter(m_pending.get(), state.openElements, state.closedLast)
                                   .getEndTagsOfOpenElements()
                                   .toUTF8Lossy();
    std::size_t const tail = main.find_first_not_of(" \t\r\n", state.completeEnd);
    if (tail != std::string::npos) {
      // A hidden tail ("<?q " that the suffix's "?>" closes) goes the way it
      // came: the suffix first closes the instruction, then it is cut off.
      if (main.compare(tail, 2, "<?") == 0 && !state.openElements.empty()) writeSuffix("?>" + suffix);
      truncateMain(static_cast<long long>(state.completeEnd));
    }
    if (tail != std::string::npos || hadMarks || !haveSuffix || state.openElements != openElements) {
      writeSuffix(suffix);
      openElements = state.openElements;
      closedLast = state.closedLast;
    }
  }
  m_writer = newP<CXMLWriter>(m_pending.get(), openElements, closedLast);
  m_flushedElements = openElements;
}

bool CAppendableXMLWriter::readSuffix(String const& suffixText, TList<String>& openElements, bool& closedLast) {
  std::u16string const& text = suffixText.str();
  TList<String> names;  // innermost first, as the end tags come
  bool firstOnNewLine = true;
  std::size_t pos = 0;
  bool sawLineBreak = false;
  while (true) {
    while (pos < text.size() && isBlank(text[pos])) {
      if (text[pos] == u'\n') sawLineBreak = true;
      ++pos;
    }
    if (pos == text.size()) break;
    if (text.compare(pos, 2, u"</") != 0) return false;
    std::size_t const nameStart = pos + 2;
    std::size_t const close = text.find(u'>', nameStart);
    if (close == std::u16string::npos || close == nameStart) return false;
    for (std::size_t i = nameStart; i < close; ++i)
      if (isBlank(text[i]) || text[i] == u'<' || text[i] == u'/' || text[i] == u'&') return false;
    if (names.empty()) firstOnNewLine = sawLineBreak;
    names.push_back(String(text.substr(nameStart, close - nameStart)));
    pos = close + 1;
  }
  openElements.assign(names.rbegin(), names.rend());
  closedLast = names.empty() || firstOnNewLine;
  return true;
}

}  // namespace qo
