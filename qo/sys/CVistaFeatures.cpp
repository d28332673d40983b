#include "qo/sys/CVistaFeatures.h"

#include "qo/core/CNotImplementedError.h"
#include "qo/core/CSafeGlobalSlot.h"
#include "qo/core/CSystemError.h"
#include "qo/platform/SysInfo.h"

namespace qo {

namespace {

void check(platform::SysError const& e, char16_t const* function, char16_t const* api) {
  if (e) throw CSystemError(u"Error reading a system feature switch.", function, api, e);
}

}  // namespace

P<CVistaFeatures> const& CVistaFeatures::get() {
  static CSafeGlobalSlot g_pInstanceSlot;
  return TSafeGlobal<CVistaFeatures>::get(g_pInstanceSlot);
}

CVistaFeatures::CVistaFeatures() = default;
CVistaFeatures::~CVistaFeatures() = default;

bool CVistaFeatures::isProcessElevated() const {
  bool result = false;
  check(platform::getProcessElevated(result), u"CVistaFeatures::isProcessElevated", u"GetTokenInformation");
  return result;
}

bool CVistaFeatures::isUacEnabled() const {
  bool result = false;
  check(platform::getUacEnabled(result), u"CVistaFeatures::isUacEnabled", u"RegGetValueW");
  return result;
}

bool CVistaFeatures::areLongPathsEnabled() const {
  if (!platform::hasWindowsFeatureSwitches()) throw CNotImplementedError(u"CVistaFeatures::areLongPathsEnabled");
  bool result = false;
  check(platform::getLongPathsEnabled(result), u"CVistaFeatures::areLongPathsEnabled", u"RegGetValueW");
  return result;
}

}  // namespace qo
