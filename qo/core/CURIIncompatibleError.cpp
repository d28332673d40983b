#include "qo/core/CURIIncompatibleError.h"

#include "qo/fs/CURI.h"

namespace qo {

static CProps describe(CURI const& uri) {
  CProps props;
  props.add(u"scheme", uri.getScheme())
      .addCond(uri.hasUserName(), u"userName", uri.getUserName())
      .addBool(u"hasUserAuthInfo", uri.hasUserAuthInfo())
      .addCond(uri.hasHost(), u"host", uri.getHost())
      .add(u"path", uri.getPath())
      .addCond(uri.hasQuery(), u"query", uri.getEscapedUnicodeQuery())
      .addCond(uri.hasFragment(), u"fragment", uri.getFragment());
  if (uri.hasPort()) props.addLong(u"port", uri.getPort());
  return props;
}

CURIIncompatibleError::CURIIncompatibleError(CURI const& uri, String const& message)
    : CError(message, String(), -1, describe(uri)) {}

CURIIncompatibleError::CURIIncompatibleError(CURIIncompatibleError const& other) = default;
CURIIncompatibleError& CURIIncompatibleError::operator=(CURIIncompatibleError const& other) = default;
CURIIncompatibleError::~CURIIncompatibleError() = default;

P<CError> CURIIncompatibleError::clone() const { return P<CError>(new CURIIncompatibleError(*this)); }

void CURIIncompatibleError::throwClone() const { throw CURIIncompatibleError(*this); }

}  // namespace qo
