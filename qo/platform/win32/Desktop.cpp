#include "qo/platform/Desktop.h"

#include <algorithm>
#include <map>

#include <windows.h>
#include <shellapi.h>

namespace qo::platform {

SysError desktopNotificationState(int& state) {
  state = 0;
  QUERY_USER_NOTIFICATION_STATE value;
  HRESULT const hr = SHQueryUserNotificationState(&value);
  if (FAILED(hr)) return sysErrorOf(static_cast<std::uint32_t>(hr));
  state = static_cast<int>(value);
  return SysError{};
}

namespace {

struct Collector {
  std::map<DWORD, VisibleProcessEntry> byId;
  HWND desktop;
  HWND shell;
};

// A window that covers the whole monitor it is on (a game, a slide show, a
// video); the desktop and the shell's own windows do so without being one.
bool coversMonitor(HWND window) {
  RECT rect;
  if (!GetWindowRect(window, &rect)) return false;
  HMONITOR monitor = MonitorFromWindow(window, MONITOR_DEFAULTTONULL);
  if (!monitor) return false;
  MONITORINFO info;
  info.cbSize = sizeof info;
  if (!GetMonitorInfoW(monitor, &info)) return false;
  return rect.left <= info.rcMonitor.left && rect.top <= info.rcMonitor.top && rect.right >= info.rcMonitor.right &&
         rect.bottom >= info.rcMonitor.bottom;
}

BOOL CALLBACK onWindow(HWND window, LPARAM context) {
  Collector& c = *reinterpret_cast<Collector*>(context);
  if (!IsWindowVisible(window) || window == c.desktop || window == c.shell) return TRUE;
  DWORD id = 0;
  GetWindowThreadProcessId(window, &id);
  if (id == 0) return TRUE;
  VisibleProcessEntry& e = c.byId[id];
  if (e.id == 0) {
    e.id = id;
    wchar_t title[256];
    // Not GetWindowTextW: for a window of this process it sends WM_GETTEXT
    // and waits for the window's thread, which may be this one's caller.
    int const n = InternalGetWindowText(window, title, 256);
    if (n > 0) e.name.assign(reinterpret_cast<char16_t const*>(title), static_cast<std::size_t>(n));
  }
  if (!e.fullScreen && coversMonitor(window)) e.fullScreen = true;
  return TRUE;
}

}  // namespace

bool desktopKnowsFullScreen() { return true; }

SysError desktopVisibleProcesses(std::vector<VisibleProcessEntry>& out) {
  out.clear();
  Collector c;
  c.desktop = GetDesktopWindow();
  c.shell = GetShellWindow();
  SetLastError(0);
  if (!EnumWindows(onWindow, reinterpret_cast<LPARAM>(&c))) {
    DWORD const code = GetLastError();
    if (code != 0) return sysErrorOf(code);
  }
  for (auto& entry : c.byId) out.push_back(std::move(entry.second));
  return SysError{};
}

}  // namespace qo::platform
