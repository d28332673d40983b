#include "qo/log/CAppendableXMLWriter.h"

#include <algorithm>
#include <string>

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

}  // namespace

CAppendableXMLWriter::CAppendableXMLWriter(String const& path, bool append)
    : m_path(path), m_suffixPath(getSuffixFilePath(path)) {
  m_pendingBytes = newP<TBuffer<unsigned char>>();
  m_pending = newP<CBufferStream>(m_pendingBytes.get());
  if (append && localFileExists(path)) {
    TList<String> openElements;
    bool closedLast = true;
    if (localFileExists(m_suffixPath)) {
      String const suffix = String::wstringFromUTF8WithLatin1Fallback(readLocalFile(m_suffixPath));
      if (!readSuffix(suffix, openElements, closedLast)) throw CFileCorruptedError(m_suffixPath);
      m_writtenSuffix = suffix;
      m_suffixWritten = true;
    }
    openMainFile(false);
    m_writer = newP<CXMLWriter>(m_pending.get(), openElements, closedLast);
  } else {
    openMainFile(true);
    m_writer = newP<CXMLWriter>(m_pending.get(), true);
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
  if (!m_pendingBytes->isEmpty()) {
    writeAll(*m_main, getPendingBytes());
    m_pending->setLength(0);
    m_pending->seek(0);
  }
  // Entries leave the open elements as they were, so most flushes append to
  // the main file and nothing else: the suffix file is only rewritten (with
  // its short moment of truncation) when the end tags change.
  String const suffix = m_writer->getEndTagsOfOpenElements();
  if (!m_suffixWritten || suffix != m_writtenSuffix || !localFileExists(m_suffixPath)) {
    m_suffixWritten = false;
    writeSuffixFile(suffix);
    m_writtenSuffix = suffix;
    m_suffixWritten = true;
  }
}

void CAppendableXMLWriter::writeSuffixFile(String const& text) {
  TFlags<IIOStream::Flags> flags = sharedFlags();
  flags.set(IIOStream::FlagCreate).set(IIOStream::FlagTruncate);
  CLocalFileStream out(m_suffixPath, IIOStream::AccessWriteOnly, flags);
  writeAll(out, text.toUTF8Lossy());
  out.close();
}

String CAppendableXMLWriter::getMainData() const {
  return String::wstringFromUTF8WithLatin1Fallback(readLocalFile(m_path) + getPendingBytes());
}

long long CAppendableXMLWriter::getMainDataSize() const { return m_main->getLength() + m_pendingBytes->getSize(); }

void CAppendableXMLWriter::replaceMainData(String const& data) {
  m_pending->setLength(0);
  m_pending->seek(0);
  m_main->setLength(0);
  writeAll(*m_main, data.toUTF8Lossy());
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
