#include "qo/core/CSystemError.h"

#include "qo/platform/ErrorDomain.h"

namespace qo {

namespace {
CProps withPlace(CProps props, String const& function, String const& api, String const& sysErrorText) {
  props.add(CSystemError::paramFunction(), function).add(CSystemError::paramAPI(), api);
  props.addCond(!sysErrorText.isEmpty(), CSystemError::paramSysErrorText(), sysErrorText);
  return props;
}
}  // namespace

CSystemError::CSystemError(String const& message, String const& function, String const& api, std::uint32_t code,
                           String const& sysErrorText, CProps const& props)
    : CError(message, getPlatformDomain(), static_cast<long long>(code), withPlace(props, function, api, sysErrorText)) {}

CSystemError::CSystemError(String const& message, String const& function, String const& windowsApi,
                           platform::SysError const& error, CProps const& props)
    : CSystemError(message, function, error.api != nullptr ? String(error.api) : windowsApi, error.code,
                   String::wstringFromUTF8WithLatin1Fallback(error.text), props) {}

CSystemError::CSystemError(CSystemError const& other) = default;
CSystemError& CSystemError::operator=(CSystemError const& other) = default;
CSystemError::~CSystemError() = default;

P<CError> CSystemError::clone() const { return P<CError>(new CSystemError(*this)); }

void CSystemError::throwClone() const { throw CSystemError(*this); }

String CSystemError::getPlatformDomain() { return String(platform::sysErrorDomain()); }
String CSystemError::paramFunction() { return u"function"; }
String CSystemError::paramAPI() { return u"api"; }
String CSystemError::paramSysErrorText() { return u"sysErrorText"; }

}  // namespace qo
