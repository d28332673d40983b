#include "qo/core/CPreserveLastSysError.h"

#include "qo/platform/LastError.h"

namespace qo {

std::uint32_t getLastSysError() { return platform::getLastSysError(); }
void setLastSysError(std::uint32_t code) { platform::setLastSysError(code); }

CPreserveLastSysError::CPreserveLastSysError() : m_savedError(platform::getLastSysError()) {}
CPreserveLastSysError::~CPreserveLastSysError() { platform::setLastSysError(m_savedError); }

}  // namespace qo
