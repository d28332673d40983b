#include "qo/core/CUnencodableStringError.h"

namespace qo {

CUnencodableStringError::CUnencodableStringError()
    : CError(u"The text cannot be represented in the requested encoding.") {}

CUnencodableStringError::CUnencodableStringError(CUnencodableStringError const& other) = default;
CUnencodableStringError& CUnencodableStringError::operator=(CUnencodableStringError const& other) = default;
CUnencodableStringError::~CUnencodableStringError() = default;

P<CError> CUnencodableStringError::clone() const { return P<CError>(new CUnencodableStringError(*this)); }

void CUnencodableStringError::throwClone() const { throw CUnencodableStringError(*this); }

}  // namespace qo
