// qo/sys/CWindowsThreadedGlobalMessageReceiver.h - the library thread on
// which the system's notices to the process arrive.
//
// Windows: a hidden top-level window (class "qo.globalMessages") whose
// message loop runs on the thread "qo.globalMessages": end of session
// (WM_QUERYENDSESSION, WM_ENDSESSION), power (WM_POWERBROADCAST), session
// lock (WM_WTSSESSION_CHANGE after WTSRegisterSessionNotification), devices
// (WM_DEVICECHANGE); console control events (SetConsoleCtrlHandler) are
// handed over to the same thread. POSIX has no such window: the same thread
// reads the pipe into which the signal handler for SIGINT, SIGTERM and
// SIGHUP writes the signal's number, so nothing but that byte happens
// inside a signal handler.
//
// It has one listener, CSystemSignalReceiver, which fans the notices out;
// applications use that class. The hooks are installed at construction and
// the previous ones restored by _deinit() (also at disposal). The thread
// (and on Windows the window) exists only while signals are taken over
// (setTakeOver(true), that is while CSystemSignalReceiver has listeners).
//
//   P<CWindowsThreadedGlobalMessageReceiver> r = CWindowsThreadedGlobalMessageReceiver::get();
//   r->setListener(receiver);  r->setTakeOver(true);
//
// Thread-safe.
#ifndef QO_SYS_CWINDOWSTHREADEDGLOBALMESSAGERECEIVER_H
#define QO_SYS_CWINDOWSTHREADEDGLOBALMESSAGERECEIVER_H

#include "qo/core/CBase.h"
#include "qo/core/CError.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/sys/CSystemSignalReceiver.h"
#include "qo/thread/CMutex.h"

namespace qo {

namespace platform {
struct NativeSystemSignals;
enum class SystemSignal;
}  // namespace platform

class CThread;

/// The thread of the system's notices. Thread-safe.
class QO_API CWindowsThreadedGlobalMessageReceiver : public CBase {
public:
  /// Installs the hooks. Never throws: a failure is kept
  /// (getInstallError) and the receiver stays silent.
  CWindowsThreadedGlobalMessageReceiver();
  /// _deinit(); never throws.
  ~CWindowsThreadedGlobalMessageReceiver() override;
  CWindowsThreadedGlobalMessageReceiver(CWindowsThreadedGlobalMessageReceiver const&) = delete;
  CWindowsThreadedGlobalMessageReceiver& operator=(CWindowsThreadedGlobalMessageReceiver const&) = delete;

  /// The process-wide instance, created on first call. Thread-safe.
  static P<CWindowsThreadedGlobalMessageReceiver> const& get();

  /// The one listener (null: none), called on the thread for every notice.
  /// Borrowed: it must stay alive until it is replaced; once this returns,
  /// the previous listener is no longer called (unless this is called from
  /// inside it). Thread-safe.
  void setListener(CSystemSignalReceiver::IListener* listener);
  /// true: interrupt, terminate and hang-up are consumed and reported, and
  /// the thread runs (started here; on Windows its window exists when this
  /// returns); false (the start): they do what they did before (POSIX: the
  /// previous disposition, by default the end of the process; Windows: the
  /// next console handler), and the thread is stopped (not when this is
  /// called on the thread itself). Thread-safe.
  void setTakeOver(bool takeOver);
  /// Stops the thread and restores the previous signal dispositions and
  /// console handler. Idempotent; never throws. Thread-safe.
  /// Not from inside a listener (the thread it runs on is the one it
  /// ends).
  void _deinit() noexcept;
  /// True while the hooks are installed and the thread runs. Thread-safe.
  bool isActive() const;
  /// True while the hidden window exists (Windows with a desktop; false
  /// on POSIX and under Wine without a display, where only the console
  /// events come). Thread-safe.
  bool hasMessageWindow() const;
  /// Why installing failed, or null. Thread-safe.
  PC<CError> getInstallError() const;

private:
  class CLoopThread;
  static void deliver(void* self, platform::SystemSignal signal);

  mutable CMutex m_mutex;          // the handle, the thread, the error
  CMutex m_listenerMutex;          // held while the listener is called
  CSystemSignalReceiver::IListener* m_listener = nullptr;
  platform::NativeSystemSignals* m_handle = nullptr;
  P<CThread> m_thread;
  P<CError> m_installError;
};

}  // namespace qo

#endif  // QO_SYS_CWINDOWSTHREADEDGLOBALMESSAGERECEIVER_H
