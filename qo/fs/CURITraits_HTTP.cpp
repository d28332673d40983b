#include "qo/fs/CURITraits_HTTP.h"

namespace qo {

CURITraits_HTTP::CURITraits_HTTP(long long defaultPort) : m_defaultPort(defaultPort) {}
CURITraits_HTTP::~CURITraits_HTTP() = default;

long long CURITraits_HTTP::getDefaultPort() const { return m_defaultPort; }

}  // namespace qo
