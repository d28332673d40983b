#include "qo/sys/CNotificationSettings.h"

#include "qo/core/CSystemError.h"
#include "qo/platform/Desktop.h"

namespace qo {

CNotificationSettings::EState CNotificationSettings::getState() {
  int state = 0;
  if (platform::SysError e = platform::desktopNotificationState(state)) {
    throw CSystemError(u"Error asking for the user's notification state.", u"CNotificationSettings::getState",
                       u"SHQueryUserNotificationState", e);
  }
  // A state that a newer Windows may add is not one we can judge.
  return state >= StateNotPresent && state <= StateApp ? static_cast<EState>(state) : StateUnknown;
}

bool CNotificationSettings::shouldHoldBackPopups() {
  EState const state = getState();
  return state != StateUnknown && state != StateAcceptsNotifications;
}

String CNotificationSettings::toString(EState state) {
  switch (state) {
    case StateNotPresent: return u"not present";
    case StateBusy: return u"busy";
    case StateFullScreen3D: return u"full-screen 3D";
    case StatePresentation: return u"presentation";
    case StateAcceptsNotifications: return u"accepts notifications";
    case StateQuietTime: return u"quiet time";
    case StateApp: return u"app";
    case StateUnknown: break;
  }
  return u"unknown";
}

}  // namespace qo
