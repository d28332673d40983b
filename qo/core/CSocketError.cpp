#include "qo/core/CSocketError.h"

namespace qo {

CSocketError::CSocketError(String const& message, CProps const& props) : CError(message, String(), -1, props) {}

CSocketError::CSocketError(CSocketError const& other) = default;
CSocketError& CSocketError::operator=(CSocketError const& other) = default;
CSocketError::~CSocketError() = default;

P<CError> CSocketError::clone() const { return P<CError>(new CSocketError(*this)); }

void CSocketError::throwClone() const { throw CSocketError(*this); }

}  // namespace qo
