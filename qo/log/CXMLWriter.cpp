#include "qo/log/CXMLWriter.h"

#include <algorithm>
#include <string>

#include "qo/core/CError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/log/xmlEscape.h"

namespace qo {

CXMLWriter::CXMLWriter(IOutStream* out, bool writeDeclaration) : m_out(P<IOutStream>::share(out)) {
  if (writeDeclaration) writeRawString(getDeclaration());
}

CXMLWriter::CXMLWriter(IOutStream* out, TList<String> const& openElements, bool closedLast)
    : m_out(P<IOutStream>::share(out)), m_openElements(openElements), m_closedLast(closedLast) {}

CXMLWriter::~CXMLWriter() = default;

String CXMLWriter::getDeclaration() { return u"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"; }

void CXMLWriter::openElement(String const& name, CProps const& attributes) {
  openElement(name, &attributes.getMap());
}

void CXMLWriter::openElement(String const& name, std::map<String, String> const* attributes) {
  newLine(getOpenElementCount());
  writeStartTag(name, attributes);
  m_openElements.push_back(name);
  m_closedLast = false;
}

void CXMLWriter::closeElement() {
  if (m_openElements.empty())
    throw CError(u"Internal error: CXMLWriter cannot close the element because no element is open.");
  String const name = m_openElements.back();
  m_openElements.pop_back();
  String out;
  if (m_closedLast) out = u"\n" + getIndentString(getOpenElementCount());
  out += u"</" + name + u">";
  if (m_openElements.empty()) out += u'\n';
  writeUTF8(out);
  m_closedLast = true;
}

void CXMLWriter::writeElement(String const& name, String const& text, CProps const& attributes) {
  openElement(name, attributes);
  writeText(text);
  closeElement();
}

void CXMLWriter::writeElement(CXMLElement const& element) {
  openElement(element.getName(), element.getAttributes());
  if (!element.getText().isEmpty()) writeText(element.getText());
  for (PC<CXMLElement> const& child : element.getSubElements()) writeElement(*child);
  closeElement();
}

void CXMLWriter::writeText(String const& text) {
  if (!text.isEmpty()) writeUTF8(xmlEscape(text));
}

void CXMLWriter::writeRawString(String const& text) {
  if (!text.isEmpty()) writeUTF8(text);
}

void CXMLWriter::writeRawElementBegin(String const& name, CProps const& attributes) {
  newLine(getOpenElementCount());
  writeStartTag(name, &attributes.getMap());
  m_closedLast = false;
}

void CXMLWriter::writeRawElementEnd(String const& name) {
  writeUTF8(u"</" + name + u">");
  m_closedLast = true;
}

void CXMLWriter::newLine(int depth) { writeUTF8(u"\n" + getIndentString(depth)); }

String CXMLWriter::getIndentString(int depth) {
  return depth > 0 ? String(static_cast<std::size_t>(depth) * 2, u' ') : String();
}

void CXMLWriter::seekToEnd() {
  long long const length = m_out->getLength();
  if (length >= 0) m_out->seek(length);
}

String const& CXMLWriter::getOpenElementName(int depth) const {
  if (depth < 0 || depth >= getOpenElementCount())
    throw CInvalidArgError(u"CXMLWriter::getOpenElementName", u"no element is open at that depth",
                           CProps().addLong(u"depth", depth).addLong(u"openElements", getOpenElementCount()));
  auto it = m_openElements.begin();
  for (int i = 0; i < depth; ++i) ++it;
  return *it;
}

String CXMLWriter::getEndTagsOfOpenElements() const {
  String out;
  bool closedLast = m_closedLast;
  int depth = getOpenElementCount();
  for (auto it = m_openElements.rbegin(); it != m_openElements.rend(); ++it) {
    --depth;
    if (closedLast) out += u"\n" + getIndentString(depth);
    out += u"</" + *it + u">";
    closedLast = true;
  }
  if (!m_openElements.empty()) out += u'\n';
  return out;
}

void CXMLWriter::writeStartTag(String const& name, CProps::Map const* attributes) {
  String tag = u"<" + name;
  if (attributes != nullptr) {
    for (auto const& [key, value] : *attributes) tag += u" " + key + u"=\"" + xmlEscape(value) + u"\"";
  }
  tag += u'>';
  writeUTF8(tag);
}

void CXMLWriter::writeUTF8(String const& text) {
  std::string const bytes = text.toUTF8Lossy();
  std::size_t done = 0;
  // IOutStream takes int sizes; huge texts go in pieces.
  while (done < bytes.size()) {
    std::size_t const chunk = std::min<std::size_t>(bytes.size() - done, 1u << 30);
    m_out->write(bytes.data() + done, static_cast<int>(chunk));
    done += chunk;
  }
}

}  // namespace qo
