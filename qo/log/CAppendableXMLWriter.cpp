#include "qo/log/CAppendableXMLWriter.h"

#include <string>

#include "qo/fs/LocalFile.h"
#include "qo/stream/CBufferStream.h"

namespace qo {

CAppendableXMLWriter::CAppendableXMLWriter(String const& path, bool append)
    : m_path(path), m_suffixPath(getSuffixFilePath(path)) {
  m_pendingBytes = newP<TBuffer<unsigned char>>();
  m_pending = newP<CBufferStream>(m_pendingBytes.get());
  try {
    if (append && localFileExists(path)) {
      openExisting();
      return;
    }
  } catch (...) {
    closeFiles();
    throw;
  }
  // Nothing reaches the disk before the first flush, which puts the new
  // document in place whole. The elements that the replaced document has
  // open decide how (see commitNewDocument).
  m_newDocument = true;
  m_writer = newP<CXMLWriter>(m_pending.get(), true);
  if (localFileExists(path) && localFileExists(m_suffixPath)) {
    try {
      std::string const bytes = readLocalFile(m_suffixPath);
      bool closedLast = true;
      if (bytes.find("?>") == std::string::npos &&
          readSuffix(String::wstringFromUTF8WithLatin1Fallback(bytes), m_replacedElements, closedLast))
        m_haveReplacedElements = true;
    } catch (CError const&) {
      // Unreadable: nothing of it to keep complete.
    }
  }
}

CAppendableXMLWriter::~CAppendableXMLWriter() {
  // Nothing buffered in the files: closing loses nothing a flush finished.
  closeFiles();
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

void CAppendableXMLWriter::clearPending() {
  m_pending->setLength(0);
  m_pending->seek(0);
}

String CAppendableXMLWriter::getMainData() const {
  std::string bytes = m_newDocument ? std::string() : readLocalFile(m_path);
  return String::wstringFromUTF8WithLatin1Fallback(bytes + getPendingBytes());
}

long long CAppendableXMLWriter::getMainDataSize() const {
  return (m_newDocument ? 0 : m_mainLength) + m_pendingBytes->getSize();
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

}  // namespace qo
