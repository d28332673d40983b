#include "qo/core/CParseError.h"

namespace qo {

CParseError::CParseError(String const& message, CProps const& props) : CError(message, String(), -1, props) {}

CParseError::CParseError(CParseError const& other) = default;
CParseError& CParseError::operator=(CParseError const& other) = default;
CParseError::~CParseError() = default;

P<CError> CParseError::clone() const { return P<CError>(new CParseError(*this)); }

void CParseError::throwClone() const { throw CParseError(*this); }

}  // namespace qo
