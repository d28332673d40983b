#include "qo/fs/CURITraits_Generic.h"

#include "qo/fs/CURI.h"

namespace qo {

CURITraits_Generic::CURITraits_Generic() = default;
CURITraits_Generic::~CURITraits_Generic() = default;

long long CURITraits_Generic::getDefaultPort() const { return -1; }

bool CURITraits_Generic::isPathCaseSensitive(CURI const&) const { return true; }

String CURITraits_Generic::getRootPath(CURI const& uri) const { return uri.isAbsolute() ? String(u"/") : String(); }

CURI CURITraits_Generic::normalize(CURI const& uri) const {
  long long defaultPort = getDefaultPort();
  if (!uri.hasPort() || defaultPort < 0 || uri.getPort() != defaultPort) return uri;
  return CURI(uri.getScheme(), uri.getPath(), uri.getUserNameOptRef(), uri.getUserAuthInfoOptRef(),
              uri.getHostOptRef(), -1, uri.getEscapedUnicodeQueryOptRef(), uri.getFragmentOptRef());
}

}  // namespace qo
