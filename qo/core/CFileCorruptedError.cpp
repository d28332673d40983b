#include "qo/core/CFileCorruptedError.h"

namespace qo {

CFileCorruptedError::CFileCorruptedError() : CError(u"The file is corrupted.") {}

// Replace does not rescan the inserted path, so a path that itself contains
// "%FILE%" stays intact.
CFileCorruptedError::CFileCorruptedError(String const& path)
    : CError(String(u"The file '%FILE%' is corrupted.").Replace(u"%FILE%", path)) {}

CFileCorruptedError::CFileCorruptedError(CFileCorruptedError const& other) = default;
CFileCorruptedError& CFileCorruptedError::operator=(CFileCorruptedError const& other) = default;
CFileCorruptedError::~CFileCorruptedError() = default;

P<CError> CFileCorruptedError::clone() const { return P<CError>(new CFileCorruptedError(*this)); }

void CFileCorruptedError::throwClone() const { throw CFileCorruptedError(*this); }

}  // namespace qo
