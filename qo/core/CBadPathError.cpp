#include "qo/core/CBadPathError.h"

namespace qo {

CBadPathError::CBadPathError(String const& path) : CError(u"Invalid path: " + path) {}

CBadPathError::CBadPathError(CBadPathError const& other) = default;
CBadPathError& CBadPathError::operator=(CBadPathError const& other) = default;
CBadPathError::~CBadPathError() = default;

P<CError> CBadPathError::clone() const { return P<CError>(new CBadPathError(*this)); }

void CBadPathError::throwClone() const { throw CBadPathError(*this); }

}  // namespace qo
