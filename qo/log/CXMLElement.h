// qo/log/CXMLElement.h - an XML element held in memory: name, attributes,
// text and child elements.
//
// Entries of the session log that carry structure (an error with its cause
// and properties, a session header) are built as a small tree and written
// whole by CXMLWriter::writeElement. Attributes are a CProps bag, so they
// are written in the bag's key order. Children are read-only once added
// (PC), so copies of an element share them safely.
//
//   CXMLElement app(u"appInfo", CProps().add(u"id", u"backup").add(u"version", u"7.1"));
//   CXMLElement header(u"sessionHeader");
//   header.add(app).add(CXMLElement(u"note", CProps(), u"first run"));
//   PC<CXMLElement> found = header.findFirstSubElement(u"note");   // text "first run"
//
// Not thread-safe.
#ifndef QO_LOG_CXMLELEMENT_H
#define QO_LOG_CXMLELEMENT_H

#include "qo/core/CBase.h"
#include "qo/core/CProps.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/core/TList.h"

namespace qo {

/// An element of an XML tree. Not thread-safe.
class QO_API CXMLElement : public CBase {
public:
  using SubElements = TList<PC<CXMLElement>>;

  /// An element named name with the given attributes and text and no
  /// children. The name is written as it is (not checked or escaped).
  explicit CXMLElement(String const& name, CProps const& attributes = CProps(), String const& text = String());
  /// Copies name, attributes and text; shares the children.
  CXMLElement(CXMLElement const& other);
  CXMLElement& operator=(CXMLElement const& other);
  ~CXMLElement() override;

  /// Appends a copy of child as the last child. Returns *this, so that
  /// calls chain.
  CXMLElement& add(CXMLElement const& child);
  /// Appends child itself (shared) as the last child; null is ignored.
  /// Returns *this.
  CXMLElement& add(PC<CXMLElement> const& child);

  String const& getName() const noexcept { return m_name; }
  String const& getText() const noexcept { return m_text; }
  void setText(String const& text) { m_text = text; }
  CProps const& getAttributes() const noexcept { return m_attributes; }
  /// The attributes, for changing them.
  CProps& getAttributes() noexcept { return m_attributes; }
  /// The children in the order they were added.
  SubElements const& getSubElements() const noexcept { return m_subElements; }
  /// The first direct child named name, or null.
  PC<CXMLElement> findFirstSubElement(String const& name) const;

private:
  String m_name;
  CProps m_attributes;
  String m_text;
  SubElements m_subElements;
};

}  // namespace qo

#endif  // QO_LOG_CXMLELEMENT_H
