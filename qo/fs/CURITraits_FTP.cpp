#include "qo/fs/CURITraits_FTP.h"

namespace qo {

CURITraits_FTP::CURITraits_FTP() = default;
CURITraits_FTP::~CURITraits_FTP() = default;

long long CURITraits_FTP::getDefaultPort() const { return 21; }

}  // namespace qo
