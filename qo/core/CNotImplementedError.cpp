#include "qo/core/CNotImplementedError.h"

namespace qo {

CNotImplementedError::CNotImplementedError(String const& name)
    : CError(u"The function '" + name + u"' is not implemented.") {}

CNotImplementedError::CNotImplementedError(CNotImplementedError const& other) = default;
CNotImplementedError& CNotImplementedError::operator=(CNotImplementedError const& other) = default;
CNotImplementedError::~CNotImplementedError() = default;

P<CError> CNotImplementedError::clone() const { return P<CError>(new CNotImplementedError(*this)); }

void CNotImplementedError::throwClone() const { throw CNotImplementedError(*this); }

}  // namespace qo
