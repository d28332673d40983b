#include "qo/core/CInvalidArgError.h"

namespace qo {

CInvalidArgError::CInvalidArgError(String const& place, String const& description, CProps const& props)
    : CError(makeText(place, description), String(), -1, props) {}

CInvalidArgError::CInvalidArgError(CInvalidArgError const& other) = default;
CInvalidArgError& CInvalidArgError::operator=(CInvalidArgError const& other) = default;
CInvalidArgError::~CInvalidArgError() = default;

P<CError> CInvalidArgError::clone() const { return P<CError>(new CInvalidArgError(*this)); }

void CInvalidArgError::throwClone() const { throw CInvalidArgError(*this); }

String CInvalidArgError::makeText(String const& place, String const& description) {
  String text = u"Invalid argument passed to '" + place + u"': " + description;
  if (description.isEmpty() || description[description.length() - 1] != u'.') text += u'.';
  return text;
}

}  // namespace qo
