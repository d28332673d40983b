// qo/sys/CNotificationSettings.h - whether the user wants to be left alone
// right now, so that a program holds back its pop-ups.
//
// Windows answers with SHQueryUserNotificationState: presenting, a
// full-screen program or game, quiet hours (do not disturb), no one logged
// on at the screen, or free to be notified. Other systems have no
// desktop-neutral way to tell and answer StateUnknown; a caller decides
// for itself what unknown means (usually: show the pop-up).
//
//   if (!CNotificationSettings::shouldHoldBackPopups()) showBalloon(text);
//
// Thread-safe.
#ifndef QO_SYS_CNOTIFICATIONSETTINGS_H
#define QO_SYS_CNOTIFICATIONSETTINGS_H

#include "qo/core/Export.h"
#include "qo/core/String.h"

namespace qo {

/// The user's notification state. Thread-safe.
class QO_API CNotificationSettings {
public:
  /// The states, numbered as Windows numbers them.
  enum EState {
    StateUnknown = 0,             ///< the system does not tell
    StateNotPresent = 1,          ///< screen locked, screen saver, other user
    StateBusy = 2,                ///< a full-screen program runs
    StateFullScreen3D = 3,        ///< a full-screen Direct3D program (a game)
    StatePresentation = 4,        ///< presentation mode
    StateAcceptsNotifications = 5,
    StateQuietTime = 6,           ///< quiet hours, do not disturb
    StateApp = 7                  ///< a Windows Store app runs full screen
  };

  /// The state now. Throws CSystemError (function
  /// "CNotificationSettings::getState", api "SHQueryUserNotificationState",
  /// the HRESULT as code) when the system fails to answer. Thread-safe.
  static EState getState();
  /// True when the state asks for quiet: every known state except
  /// StateAcceptsNotifications. StateUnknown gives false. Throws as
  /// getState(). Thread-safe.
  static bool shouldHoldBackPopups();
  /// The state's name: "unknown", "not present", "busy", "full-screen 3D",
  /// "presentation", "accepts notifications", "quiet time", "app". Never
  /// throws. Thread-safe.
  static String toString(EState state);
};

}  // namespace qo

#endif  // QO_SYS_CNOTIFICATIONSETTINGS_H
