#include "qo/platform/SystemSignals.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>

#include <windows.h>
#include <dbt.h>
#include <wtsapi32.h>

namespace qo::platform {

// One per process and never freed: a console handler that the system runs
// on a thread of its own may still be inside it while we uninstall.
struct NativeSystemSignals {
  HANDLE stopEvent = nullptr;
  HANDLE queueEvent = nullptr;
  HANDLE readyEvent = nullptr;
  std::mutex mutex;
  std::condition_variable delivered;
  std::deque<SystemSignal> queue;
  unsigned long long queued = 0;
  unsigned long long done = 0;
  bool running = false;
  std::atomic<bool> takeOver{false};
  std::atomic<bool> installed{false};
  std::atomic<bool> hasWindow{false};
  SystemSignalSink sink = nullptr;
  void* context = nullptr;
  bool endSessionReported = false;
};

namespace {

NativeSystemSignals g_signals;

BOOL WINAPI consoleHandler(DWORD type) {
  NativeSystemSignals& h = g_signals;
  if (!h.installed.load() || !h.takeOver.load()) return FALSE;
  SystemSignal signal;
  switch (type) {
    case CTRL_C_EVENT:
    case CTRL_BREAK_EVENT: signal = SystemSignal::Interrupt; break;
    case CTRL_CLOSE_EVENT: signal = SystemSignal::Terminate; break;
    case CTRL_LOGOFF_EVENT: signal = SystemSignal::Logoff; break;
    case CTRL_SHUTDOWN_EVENT: signal = SystemSignal::Shutdown; break;
    default: return FALSE;
  }
  std::unique_lock<std::mutex> lock(h.mutex);
  h.queue.push_back(signal);
  unsigned long long const ticket = ++h.queued;
  SetEvent(h.queueEvent);
  if (type != CTRL_C_EVENT && type != CTRL_BREAK_EVENT) {
    // The system ends the process when this returns: give the listeners
    // their turn first, within the few seconds the system allows.
    h.delivered.wait_for(lock, std::chrono::seconds(5), [&] { return h.done >= ticket || !h.running; });
  }
  return TRUE;
}

void report(NativeSystemSignals& h, SystemSignal signal) {
  if (h.sink) h.sink(h.context, signal);
}

LRESULT CALLBACK windowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  NativeSystemSignals& h = g_signals;
  switch (message) {
    case WM_QUERYENDSESSION:
      // The earliest notice; WM_ENDSESSION repeats it only when no query
      // came first or the query was called off.
      if (!h.endSessionReported)
        report(h, (lParam & ENDSESSION_LOGOFF) ? SystemSignal::Logoff : SystemSignal::Shutdown);
      h.endSessionReported = true;
      return TRUE;
    case WM_ENDSESSION:
      if (wParam && !h.endSessionReported)
        report(h, (lParam & ENDSESSION_LOGOFF) ? SystemSignal::Logoff : SystemSignal::Shutdown);
      h.endSessionReported = false;
      return 0;
    case WM_POWERBROADCAST:
      if (wParam == PBT_APMSUSPEND) report(h, SystemSignal::Suspend);
      // Sent on every resume; PBT_APMRESUMESUSPEND only follows when a user
      // woke the machine, so it would report some resumes twice.
      else if (wParam == PBT_APMRESUMEAUTOMATIC) report(h, SystemSignal::Resume);
      else if (wParam == PBT_APMPOWERSTATUSCHANGE) report(h, SystemSignal::PowerChange);
      return TRUE;
    case WM_WTSSESSION_CHANGE:
      if (wParam == WTS_SESSION_LOCK) report(h, SystemSignal::SessionLock);
      else if (wParam == WTS_SESSION_UNLOCK) report(h, SystemSignal::SessionUnlock);
      return 0;
    case WM_DEVICECHANGE:
      if (wParam == DBT_DEVICEARRIVAL) report(h, SystemSignal::DeviceArrival);
      else if (wParam == DBT_DEVICEREMOVECOMPLETE) report(h, SystemSignal::DeviceRemoval);
      return TRUE;
    default: return DefWindowProcW(window, message, wParam, lParam);
  }
}

void drainQueue(NativeSystemSignals& h) {
  for (;;) {
    SystemSignal signal;
    {
      std::lock_guard<std::mutex> lock(h.mutex);
      if (h.queue.empty()) return;
      signal = h.queue.front();
      h.queue.pop_front();
    }
    report(h, signal);
    {
      std::lock_guard<std::mutex> lock(h.mutex);
      ++h.done;
    }
    h.delivered.notify_all();
  }
}

}  // namespace

SysError systemSignalsInstall(SystemSignalsHandle& handle) {
  handle = nullptr;
  NativeSystemSignals& h = g_signals;
  h.stopEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (!h.stopEvent) return lastSysError();
  h.queueEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  h.readyEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (!h.queueEvent || !h.readyEvent) {
    SysError e = lastSysError();
    CloseHandle(h.stopEvent);
    if (h.queueEvent) CloseHandle(h.queueEvent);
    if (h.readyEvent) CloseHandle(h.readyEvent);
    return e;
  }
  {
    std::lock_guard<std::mutex> lock(h.mutex);
    h.queue.clear();
    h.queued = h.done = 0;
  }
  h.installed.store(true);
  if (!SetConsoleCtrlHandler(&consoleHandler, TRUE)) {
    SysError e = lastSysError();
    h.installed.store(false);
    CloseHandle(h.stopEvent);
    CloseHandle(h.queueEvent);
    CloseHandle(h.readyEvent);
    return e;
  }
  handle = &h;
  return SysError();
}

void systemSignalsSetTakeOver(SystemSignalsHandle handle, bool takeOver) {
  if (handle) handle->takeOver.store(takeOver);
}

SysError systemSignalsRun(SystemSignalsHandle handle, SystemSignalSink sink, void* context) {
  if (!handle) return sysErrorOf(ERROR_INVALID_HANDLE);
  NativeSystemSignals& h = *handle;
  HINSTANCE instance = GetModuleHandleW(nullptr);
  WNDCLASSW windowClass = {};
  windowClass.lpfnWndProc = &windowProc;
  windowClass.hInstance = instance;
  windowClass.lpszClassName = reinterpret_cast<wchar_t const*>(kMessageWindowClass);
  h.sink = sink;
  h.context = context;
  h.endSessionReported = false;
  // A top-level window that is never shown: the broadcasts (end of session,
  // power, devices) do not reach message-only windows. Without a window
  // (no desktop, as under Wine without a display) the console events
  // still come.
  HWND window = nullptr;
  if (RegisterClassW(&windowClass) || GetLastError() == ERROR_CLASS_ALREADY_EXISTS)
    window = CreateWindowExW(0, windowClass.lpszClassName, L"qo", WS_OVERLAPPED, 0, 0, 0, 0, nullptr, nullptr, instance,
                             nullptr);
  h.hasWindow.store(window != nullptr);
  // Lock and unlock come only to registered windows; where the session
  // service is missing they just do not come.
  bool const sessionNotes = window && WTSRegisterSessionNotification(window, NOTIFY_FOR_THIS_SESSION) != FALSE;
  {
    std::lock_guard<std::mutex> lock(h.mutex);
    h.running = true;
  }
  SetEvent(h.readyEvent);
  HANDLE const events[2] = {h.stopEvent, h.queueEvent};
  for (;;) {
    DWORD r = MsgWaitForMultipleObjects(2, events, FALSE, INFINITE, QS_ALLINPUT);
    if (r == WAIT_OBJECT_0) {
      // Each stop ends one run; the next run starts unstopped.
      ResetEvent(h.stopEvent);
      break;
    }
    if (r == WAIT_OBJECT_0 + 1) {
      drainQueue(h);
    } else if (r == WAIT_OBJECT_0 + 2) {
      MSG message;
      while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
      }
    } else {
      break;
    }
  }
  {
    std::lock_guard<std::mutex> lock(h.mutex);
    h.running = false;
  }
  h.delivered.notify_all();
  if (sessionNotes) WTSUnRegisterSessionNotification(window);
  if (window) DestroyWindow(window);
  h.hasWindow.store(false);
  ResetEvent(h.readyEvent);
  h.sink = nullptr;
  h.context = nullptr;
  return SysError();
}

bool systemSignalsWaitReady(SystemSignalsHandle handle, int timeoutMillis) {
  return handle && WaitForSingleObject(handle->readyEvent, timeoutMillis < 0 ? INFINITE : static_cast<DWORD>(timeoutMillis)) ==
                       WAIT_OBJECT_0;
}

bool systemSignalsHaveWindow(SystemSignalsHandle handle) { return handle && handle->hasWindow.load(); }

void systemSignalsStop(SystemSignalsHandle handle) {
  if (handle) SetEvent(handle->stopEvent);
}

void systemSignalsUninstall(SystemSignalsHandle handle) {
  if (!handle) return;
  handle->takeOver.store(false);
  handle->installed.store(false);
  SetConsoleCtrlHandler(&consoleHandler, FALSE);
  CloseHandle(handle->stopEvent);
  CloseHandle(handle->queueEvent);
  CloseHandle(handle->readyEvent);
  handle->stopEvent = handle->queueEvent = handle->readyEvent = nullptr;
}

}  // namespace qo::platform
