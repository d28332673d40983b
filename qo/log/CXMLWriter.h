// qo/log/CXMLWriter.h - writes an XML document to an output stream as it is
// produced, one element at a time.
//
// Output is UTF-8, indented by two spaces per depth. Every start tag begins
// on a new line ("\n" plus the indent of its depth), written without looking
// at what came before, so that a document can be continued at the end of an
// existing file. An end tag follows its element's text on the same line when
// the element has no children; otherwise it begins a new line at the
// element's own indent. The end tag of the root is followed by "\n".
//
//   CXMLWriter w(stream.get(), true);        // "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
//   w.openElement(u"log", CProps());         // "\n<log>"
//   w.writeElement(u"entry", u"a<b", CProps().add(u"level", u"info"));
//                                            // "\n  <entry level=\"info\">a&lt;b</entry>"
//   w.closeElement();                        // "\n</log>\n"
//
// Text and attribute values are escaped (xmlEscape); names are written as
// given. Lone surrogates are written as U+FFFD. Stream errors pass through
// unchanged.
//
// Not thread-safe.
#ifndef QO_LOG_CXMLWRITER_H
#define QO_LOG_CXMLWRITER_H

#include <map>

#include "qo/core/CBase.h"
#include "qo/core/CProps.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/core/TList.h"
#include "qo/log/CXMLElement.h"
#include "qo/stream/IOutStream.h"

namespace qo {

/// A streaming XML writer. Not thread-safe.
class QO_API CXMLWriter : public CBase {
public:
  /// Writes to out (held by reference count until the writer ends; must not
  /// be null). writeDeclaration: write the XML declaration at once. Throws
  /// what the stream throws.
  CXMLWriter(IOutStream* out, bool writeDeclaration);
  /// Continues a document written earlier: openElements (root first) are
  /// taken as open and closedLast as the state after the last output.
  /// Writes nothing.
  CXMLWriter(IOutStream* out, TList<String> const& openElements, bool closedLast);
  ~CXMLWriter() override;
  CXMLWriter(CXMLWriter const&) = delete;
  CXMLWriter& operator=(CXMLWriter const&) = delete;

  /// "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n".
  static String getDeclaration();

  /// Starts the element name with attributes (in the bag's order) on a new
  /// line at the current depth and makes it the innermost open element.
  void openElement(String const& name, CProps const& attributes = CProps());
  /// As above with the attributes of a map (null for none).
  void openElement(String const& name, std::map<String, String> const* attributes);
  /// Ends the innermost open element (see the top for where its end tag
  /// goes). Throws CError "Internal error: CXMLWriter cannot close the
  /// element because no element is open." when none is open.
  void closeElement();
  /// An element with text and no children, all on one line.
  void writeElement(String const& name, String const& text, CProps const& attributes = CProps());
  /// element and its whole subtree: text first, then the children.
  void writeElement(CXMLElement const& element);
  /// text, escaped, at the current position.
  void writeText(String const& text);
  /// text as it is (UTF-8), for markup made elsewhere.
  void writeRawString(String const& text);
  /// A start tag on a new line at the current depth, not recorded as open:
  /// the caller writes the matching writeRawElementEnd itself.
  void writeRawElementBegin(String const& name, CProps const& attributes = CProps());
  /// "</name>" at the current position.
  void writeRawElementEnd(String const& name);
  /// "\n" and the indent of depth.
  void newLine(int depth);
  /// Two spaces times depth ("" for 0 or less).
  static String getIndentString(int depth);
  /// Moves the stream's position to its end, so that the next output is
  /// appended. Throws what the stream throws.
  void seekToEnd();

  /// The open elements, root first.
  TList<String> const& getOpenElementStack() const noexcept { return m_openElements; }
  int getOpenElementCount() const noexcept { return static_cast<int>(m_openElements.size()); }
  /// The name of the open element at depth (0 the root). Throws
  /// CInvalidArgError when no element is open at that depth.
  String const& getOpenElementName(int depth) const;
  /// True after a close (and at the start), false right after an open.
  bool getClosedLast() const noexcept { return m_closedLast; }
  /// The end tags that closing every open element now would write, as
  /// closeElement writes them.
  String getEndTagsOfOpenElements() const;

private:
  void writeStartTag(String const& name, CProps::Map const* attributes);
  void writeUTF8(String const& text);

  P<IOutStream> m_out;
  TList<String> m_openElements;
  bool m_closedLast = true;
};

}  // namespace qo

#endif  // QO_LOG_CXMLWRITER_H
