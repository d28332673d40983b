// qo/platform/Desktop.h - what the user's desktop shows: whether it wants
// quiet, and which processes show windows (internal, OS-free).
//
// Windows: SHQueryUserNotificationState; EnumWindows with IsWindowVisible,
// GetWindowThreadProcessId, InternalGetWindowText, and a window covering its whole
// monitor (MonitorFromWindow, GetMonitorInfoW) as full screen. POSIX: no
// notification state; the processes with a controlling terminal (field 7
// of /proc/<pid>/stat), none of them full screen.
//
// Never throws; thread-safe.
#ifndef QO_PLATFORM_DESKTOP_H
#define QO_PLATFORM_DESKTOP_H

#include <cstdint>
#include <string>
#include <vector>

#include "qo/platform/LastError.h"

namespace qo::platform {

/// The user's notification state as SHQueryUserNotificationState numbers
/// it (1 not present ... 7 app), or 0 when the system does not tell.
SysError desktopNotificationState(int& state);

struct VisibleProcessEntry {
  std::uint64_t id = 0;
  bool fullScreen = false;
  /// Windows: the title of its first visible window; POSIX: the command
  /// name.
  std::u16string name;
};
/// Whether desktopVisibleProcesses can tell full-screen windows (Windows).
bool desktopKnowsFullScreen();
/// The processes that show a visible top-level window (POSIX: that have a
/// controlling terminal), one entry per process, ordered by id.
SysError desktopVisibleProcesses(std::vector<VisibleProcessEntry>& out);

}  // namespace qo::platform

#endif  // QO_PLATFORM_DESKTOP_H
