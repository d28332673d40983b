#include "qo/log/CAppendableXMLWriter.h"

#include <algorithm>
#include <string>
#include <vector>

#include "qo/core/CFileCorruptedError.h"
#include "qo/fs/CLocalFileStream.h"
#include "qo/fs/LocalFile.h"
#include "qo/stream/CBufferStream.h"

namespace qo {

namespace {

// Others may read the document (and the crash handler append to it) while
// it is open here.
TFlags<IIOStream::Flags> sharedFlags() {
  return TFlags<IIOStream::Flags>{IIOStream::FlagShareRead, IIOStream::FlagShareWrite, IIOStream::FlagShareDelete};
}

void writeAll(IOutStream& out, std::string const& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    std::size_t const chunk = std::min<std::size_t>(bytes.size() - done, 1u << 30);
    out.write(bytes.data() + done, static_cast<int>(chunk));
    done += chunk;
  }
}

bool isBlank(char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; }

bool isBlankByte(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool allBlank(std::string const& bytes, std::size_t from) {
  for (std::size_t i = from; i < bytes.size(); ++i)
    if (!isBlankByte(bytes[i])) return false;
  return true;
}

// A write() that stays inside one page of the file is never cut short by a
// kill: the kernel copies a write page by page and only looks for a fatal
// signal between pages. So output of up to a page that would straddle a
// page boundary is preceded by white space up to that boundary; a kill then
// leaves at worst the white space, which the document does not mind.
constexpr std::size_t kAtomicWriteSize = 4096;

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

}  // namespace

CAppendableXMLWriter::CAppendableXMLWriter(String const& path, bool append)
    : m_path(path), m_suffixPath(getSuffixFilePath(path)) {
  m_pendingBytes = newP<TBuffer<unsigned char>>();
  m_pending = newP<CBufferStream>(m_pendingBytes.get());
  if (!append || !localFileExists(path)) {
    // Nothing reaches the disk before the first flush, which puts the new
    // document in place whole (see commitMainFile).
    m_newDocument = true;
    m_writer = newP<CXMLWriter>(m_pending.get(), true);
    return;
  }
  TList<String> openElements;
  bool closedLast = true;
  bool const haveSuffix = localFileExists(m_suffixPath);
  if (haveSuffix) {
    String const suffix = String::wstringFromUTF8WithLatin1Fallback(readLocalFile(m_suffixPath));
    if (!readSuffix(suffix, openElements, closedLast)) throw CFileCorruptedError(m_suffixPath);
    m_writtenSuffix = suffix;
    m_suffixWritten = true;
  }
  openMainFile(false);
  // A process that died between its writes to the two files, or in the
  // middle of a write larger than a page, leaves a main file that the
  // suffix file does not fit. The main file is what was written last, so
  // it decides: a cut-off tail is removed and the end tags are rebuilt.
  MainFileState state;
  std::string const main = readLocalFile(path);
  bool repaired = false;
  if (scanMainFile(main, state)) {
    if (!allBlank(main, state.completeEnd)) {
      m_main->setLength(static_cast<long long>(state.completeEnd));
      m_mainLength = static_cast<long long>(state.completeEnd);
      repaired = true;
    }
    if (!haveSuffix || state.openElements != openElements) {
      openElements = state.openElements;
      closedLast = state.closedLast;
      repaired = true;
    }
  }
  m_writer = newP<CXMLWriter>(m_pending.get(), openElements, closedLast);
  if (repaired) {
    m_suffixWritten = false;
    flush();
  }
}

CAppendableXMLWriter::~CAppendableXMLWriter() {
  try {
    if (m_main) m_main->close();
  } catch (...) {
    // Closing a file we only appended to loses nothing that flush kept.
  }
}

void CAppendableXMLWriter::openMainFile(bool truncate) {
  TFlags<IIOStream::Flags> flags = sharedFlags();
  flags.set(IIOStream::FlagCreate);
  if (truncate) flags.set(IIOStream::FlagTruncate);
  m_main = newP<CLocalFileStream>(m_path, IIOStream::AccessAppend, flags);
  m_mainLength = m_main->getLength();
}

void CAppendableXMLWriter::openElement(String const& name, CProps const& attributes) {
  m_writer->openElement(name, attributes);
}
void CAppendableXMLWriter::openElement(String const& name, std::map<String, String> const* attributes) {
  m_writer->openElement(name, attributes);
}
void CAppendableXMLWriter::closeElement() { m_writer->closeElement(); }
void CAppendableXMLWriter::writeElement(String const& name, String const& text, CProps const& attributes) {
  m_writer->writeElement(name, text, attributes);
}
void CAppendableXMLWriter::writeElement(CXMLElement const& element) { m_writer->writeElement(element); }
void CAppendableXMLWriter::writeText(String const& text) { m_writer->writeText(text); }
void CAppendableXMLWriter::writeRawString(String const& text) { m_writer->writeRawString(text); }
void CAppendableXMLWriter::writeRawElementBegin(String const& name, CProps const& attributes) {
  m_writer->writeRawElementBegin(name, attributes);
}
void CAppendableXMLWriter::writeRawElementEnd(String const& name) { m_writer->writeRawElementEnd(name); }
void CAppendableXMLWriter::newLine(int depth) { m_writer->newLine(depth); }
void CAppendableXMLWriter::seekToEnd() { m_writer->seekToEnd(); }
TList<String> const& CAppendableXMLWriter::getOpenElementStack() const noexcept {
  return m_writer->getOpenElementStack();
}
int CAppendableXMLWriter::getOpenElementCount() const noexcept { return m_writer->getOpenElementCount(); }
String const& CAppendableXMLWriter::getOpenElementName(int depth) const { return m_writer->getOpenElementName(depth); }

std::string CAppendableXMLWriter::getPendingBytes() const {
  return std::string(reinterpret_cast<char const*>(m_pendingBytes->getData()),
                     static_cast<std::size_t>(m_pendingBytes->getSize()));
}

void CAppendableXMLWriter::flush() {
  if (m_newDocument) {
    commitMainFile(getPendingBytes(), true);
    return;
  }
  if (!m_pendingBytes->isEmpty()) {
    std::string bytes = getPendingBytes();
    // Pad only before output that starts a new line: that is white space
    // between elements, never inside an element's text.
    if (bytes.size() <= kAtomicWriteSize && bytes[0] == '\n') {
      std::size_t const inPage = static_cast<std::size_t>(m_mainLength % kAtomicWriteSize);
      if (inPage != 0 && inPage + bytes.size() > kAtomicWriteSize) bytes.insert(0, kAtomicWriteSize - inPage, ' ');
    }
    writeAll(*m_main, bytes);
    m_mainLength += static_cast<long long>(bytes.size());
    m_pending->setLength(0);
    m_pending->seek(0);
  }
  // Entries leave the open elements as they were, so most flushes append to
  // the main file and nothing else: the suffix file is only rewritten when
  // the end tags change.
  String const suffix = m_writer->getEndTagsOfOpenElements();
  if (!m_suffixWritten || suffix != m_writtenSuffix || !localFileExists(m_suffixPath)) {
    m_suffixWritten = false;
    writeSuffixFile(suffix);
    m_writtenSuffix = suffix;
    m_suffixWritten = true;
  }
}

void CAppendableXMLWriter::writeSuffixFile(String const& text) {
  // Rewritten in place, never truncated first: one write at offset 0 (the
  // end tags fit in a page, so a kill cannot split it) with white space
  // over whatever was longer, then the file is cut to the new length. A
  // kill between the two leaves the end tags followed by white space.
  std::string bytes = text.toUTF8Lossy();
  std::size_t const length = bytes.size();
  TFlags<IIOStream::Flags> flags = sharedFlags();
  flags.set(IIOStream::FlagCreate);
  CLocalFileStream out(m_suffixPath, IIOStream::AccessWriteOnly, flags);
  long long const oldLength = out.getLength();
  if (oldLength > static_cast<long long>(length)) bytes.append(static_cast<std::size_t>(oldLength) - length, ' ');
  writeAll(out, bytes);
  if (oldLength > static_cast<long long>(length)) out.setLength(static_cast<long long>(length));
  out.close();
}

void CAppendableXMLWriter::commitMainFile(std::string const& bytes, bool newDocument) {
  // The new main file is written beside the old one and renamed over it, so
  // a reader (or a kill) finds the old file or the new one, never a part.
  String const temporary = m_path + u".tmp";
  writeLocalFile(temporary, bytes.data(), bytes.size());
  if (m_main) {
    m_main->close();
    m_main = nil;
  }
  try {
    if (newDocument) {
      // The old pair goes first, so no moment shows the old main file with
      // the new end tags: between the steps there is no document at all.
      deleteLocalFile(m_path, 20);
      writeSuffixFile(m_writer->getEndTagsOfOpenElements());
    }
    replaceLocalFile(temporary, m_path);
    openMainFile(false);
  } catch (...) {
    if (!newDocument && !m_main) {
      try {
        openMainFile(false);
      } catch (...) {
        // The first failure is the one to report.
      }
    }
    throw;
  }
  m_pending->setLength(0);
  m_pending->seek(0);
  if (newDocument) {
    m_newDocument = false;
    m_writtenSuffix = m_writer->getEndTagsOfOpenElements();
    m_suffixWritten = true;
  }
}

String CAppendableXMLWriter::getMainData() const {
  std::string bytes = m_newDocument ? std::string() : readLocalFile(m_path);
  return String::wstringFromUTF8WithLatin1Fallback(bytes + getPendingBytes());
}

long long CAppendableXMLWriter::getMainDataSize() const {
  return (m_newDocument ? 0 : m_mainLength) + m_pendingBytes->getSize();
}

void CAppendableXMLWriter::replaceMainData(String const& data) {
  m_pending->setLength(0);
  m_pending->seek(0);
  commitMainFile(data.toUTF8Lossy(), m_newDocument);
}

String CAppendableXMLWriter::getFullData() const { return getMainData() + m_writer->getEndTagsOfOpenElements(); }

String CAppendableXMLWriter::readFullData(String const& path) {
  std::string bytes = readLocalFile(path);
  String const suffixPath = getSuffixFilePath(path);
  if (localFileExists(suffixPath)) bytes += readLocalFile(suffixPath);
  return String::wstringFromUTF8WithLatin1Fallback(bytes);
}

String CAppendableXMLWriter::getSuffixFilePath(String const& path) {
  std::size_t const slash = path.str().find_last_of(u"/\\");
  std::size_t const nameStart = slash == std::u16string::npos ? 0 : slash + 1;
  std::size_t const dot = path.FindLast(u'.');
  if (dot == String::npos || dot <= nameStart) return path + u"-suffix";
  return path.Left(dot) + u"-suffix" + path.Mid(dot);
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
