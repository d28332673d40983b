#include "qo/log/CLogErrorXMLElement.h"

#include <typeinfo>

#include "qo/core/CError.h"
#include "qo/core/TypeName.h"

namespace qo {

namespace {

void render(CXMLElement& element, std::exception const& exception) {
  CProps& attributes = element.getAttributes();
  attributes.add(u"class", String::wstringFromUTF8WithLatin1Fallback(typeNameOf(typeid(exception))));
  if (auto const* error = dynamic_cast<CError const*>(&exception)) {
    attributes.add(u"domain", error->getErrorCodeDomain()).addLong(u"code", error->getErrorCode());
    if (PC<CError> cause = error->getCause()) {
      CXMLElement causeElement(u"cause");
      CXMLElement causeError(u"error");
      render(causeError, *cause);
      causeElement.add(causeError);
      element.add(causeElement);
    }
    element.add(CXMLElement(u"message", CProps(), error->getMessage()));
    element.add(CXMLElement(u"properties", error->getParams()));
  } else {
    char const* what = exception.what();
    element.add(CXMLElement(u"message", CProps(),
                            String::wstringFromUTF8WithLatin1Fallback(what != nullptr ? what : "")));
    element.add(CXMLElement(u"properties"));
  }
}

}  // namespace

CLogErrorXMLElement::CLogErrorXMLElement(std::exception const& exception) : CXMLElement(u"error") {
  render(*this, exception);
}

CLogErrorXMLElement::CLogErrorXMLElement(CLogErrorXMLElement const& other) = default;

CLogErrorXMLElement::~CLogErrorXMLElement() = default;

}  // namespace qo
