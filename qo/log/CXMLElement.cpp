#include "qo/log/CXMLElement.h"

namespace qo {

CXMLElement::CXMLElement(String const& name, CProps const& attributes, String const& text)
    : m_name(name), m_attributes(attributes), m_text(text) {}

CXMLElement::CXMLElement(CXMLElement const& other)
    : IBase(other),
      CBase(other),
      m_name(other.m_name),
      m_attributes(other.m_attributes),
      m_text(other.m_text),
      m_subElements(other.m_subElements) {}

CXMLElement& CXMLElement::operator=(CXMLElement const& other) {
  if (this != &other) {
    m_name = other.m_name;
    m_attributes = other.m_attributes;
    m_text = other.m_text;
    m_subElements = other.m_subElements;
  }
  return *this;
}

CXMLElement::~CXMLElement() = default;

CXMLElement& CXMLElement::add(CXMLElement const& child) {
  m_subElements.push_back(PC<CXMLElement>(new CXMLElement(child)));
  return *this;
}

CXMLElement& CXMLElement::add(PC<CXMLElement> const& child) {
  if (child) m_subElements.push_back(child);
  return *this;
}

PC<CXMLElement> CXMLElement::findFirstSubElement(String const& name) const {
  for (PC<CXMLElement> const& child : m_subElements)
    if (child->getName() == name) return child;
  return PC<CXMLElement>();
}

}  // namespace qo
