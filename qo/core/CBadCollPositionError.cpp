#include "qo/core/CBadCollPositionError.h"

namespace qo {

CBadCollPositionError::CBadCollPositionError() : CError(u"Bad collection position.") {}

CBadCollPositionError::CBadCollPositionError(CBadCollPositionError const& other) = default;
CBadCollPositionError& CBadCollPositionError::operator=(CBadCollPositionError const& other) = default;
CBadCollPositionError::~CBadCollPositionError() = default;

P<CError> CBadCollPositionError::clone() const { return P<CError>(new CBadCollPositionError(*this)); }

void CBadCollPositionError::throwClone() const { throw CBadCollPositionError(*this); }

}  // namespace qo
