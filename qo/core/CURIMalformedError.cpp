#include "qo/core/CURIMalformedError.h"

namespace qo {

static CProps withURI(String const& uriText, CProps const& props) {
  CProps all(props);
  all.add(u"uri", uriText);
  return all;
}

CURIMalformedError::CURIMalformedError(String const& uriText, CProps const& props)
    : CError(u"Malformed URI", String(), -1, withURI(uriText, props)) {}

CURIMalformedError::CURIMalformedError(CURIMalformedError const& other) = default;
CURIMalformedError& CURIMalformedError::operator=(CURIMalformedError const& other) = default;
CURIMalformedError::~CURIMalformedError() = default;

P<CError> CURIMalformedError::clone() const { return P<CError>(new CURIMalformedError(*this)); }

void CURIMalformedError::throwClone() const { throw CURIMalformedError(*this); }

String CURIMalformedError::paramReason() { return u"reason"; }

}  // namespace qo
