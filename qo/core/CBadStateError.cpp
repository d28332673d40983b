#include "qo/core/CBadStateError.h"

namespace qo {

CBadStateError::CBadStateError(String const& description) : CError(u"Bad state: " + description) {}

CBadStateError::CBadStateError(CBadStateError const& other) = default;
CBadStateError& CBadStateError::operator=(CBadStateError const& other) = default;
CBadStateError::~CBadStateError() = default;

P<CError> CBadStateError::clone() const { return P<CError>(new CBadStateError(*this)); }

void CBadStateError::throwClone() const { throw CBadStateError(*this); }

}  // namespace qo
