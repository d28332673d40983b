// qo/sys/CSystemSignalReceiver.h - one place where the process learns that
// the system or the user wants something of it: interrupt (Ctrl+C,
// SIGINT), terminate (SIGTERM, console closed), hang-up (SIGHUP), logoff,
// shutdown, session lock and unlock, suspend and resume, a change of power
// source, device arrival and removal.
//
// Listeners are called one after the other, in the order they were added,
// on the library thread "qo.globalMessages" (see
// CWindowsThreadedGlobalMessageReceiver), never inside a signal handler.
// An exception a listener throws is logged and goes no further.
//
// Rules:
// - While at least one listener is registered, interrupt, terminate and
//   hang-up are taken over: the process no longer ends on them, the
//   listeners decide. With no listener they do what they did before qo
//   was loaded (by default: the process ends), so merely starting the
//   library changes nothing.
// - Where each notice comes from: Windows, the console control handler
//   and a hidden window's messages (WM_QUERYENDSESSION, WM_ENDSESSION,
//   WM_POWERBROADCAST, WM_WTSSESSION_CHANGE, WM_DEVICECHANGE); Linux,
//   SIGINT, SIGTERM and SIGHUP only (the others need the desktop's message
//   bus, which the library does not speak).
// - CQoInit creates the receiver; _deinit() (also run at disposal) drops
//   the listeners and restores the previous signal dispositions.
//
//   class CStopOnSignal : public CBase, public CSystemSignalReceiver::IListener {
//     void onSystemSignal(CSystemSignalReceiver::Signal s) override { g_stop.set(); }
//   };
//   P<CStopOnSignal> l = newP<CStopOnSignal>();
//   CSystemSignalReceiver::get()->addListener(l.get());
//   ...
//   CSystemSignalReceiver::get()->removeListener(l.get());
//
// Thread-safe.
#ifndef QO_SYS_CSYSTEMSIGNALRECEIVER_H
#define QO_SYS_CSYSTEMSIGNALRECEIVER_H

#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/IBase.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/thread/CMutex.h"

namespace qo {

class CWindowsThreadedGlobalMessageReceiver;

/// The process's receiver of system signals. Thread-safe.
class QO_API CSystemSignalReceiver : public CBase {
public:
  /// What happened.
  enum Signal : int {
    Interrupt,      ///< Ctrl+C or Ctrl+Break, SIGINT
    Terminate,      ///< SIGTERM; the console window is being closed
    HangUp,         ///< SIGHUP: the terminal went away
    Logoff,         ///< the user logs off
    Shutdown,       ///< the system shuts down
    SessionLock,    ///< the session was locked
    SessionUnlock,  ///< the session was unlocked
    Suspend,        ///< the machine goes to sleep
    Resume,         ///< the machine woke up
    PowerChange,    ///< the power source or battery state changed
    DeviceArrival,  ///< a device (say, a USB disk) was added
    DeviceRemoval,  ///< a device was removed
  };

  /// Told of every signal.
  class QO_API IListener : public virtual IBase {
  public:
    ~IListener() override;
    /// Called on the receiver's thread. May add or remove listeners. What
    /// it throws is logged.
    virtual void onSystemSignal(Signal signal) = 0;
  };

  /// Use get(). Attaches to CWindowsThreadedGlobalMessageReceiver.
  CSystemSignalReceiver();
  /// _deinit(); never throws.
  ~CSystemSignalReceiver() override;
  CSystemSignalReceiver(CSystemSignalReceiver const&) = delete;
  CSystemSignalReceiver& operator=(CSystemSignalReceiver const&) = delete;

  /// The process-wide receiver, created on first call (CQoInit creates
  /// it). Thread-safe.
  static P<CSystemSignalReceiver> const& get();

  /// Adds listener (shared; adding one twice calls it once). Throws
  /// CInvalidArgError (place "CSystemSignalReceiver::addListener") for
  /// null. Thread-safe.
  void addListener(IListener* listener);
  /// Removes listener; an unknown one is ignored. Once this returns the
  /// listener is not called again, unless this runs inside a listener call.
  /// Thread-safe.
  void removeListener(IListener* listener);
  /// The number of listeners. Thread-safe.
  int getListenerCount() const;
  /// True while signals reach the listeners (the hooks are installed and
  /// the thread runs). Thread-safe.
  bool isActive() const;
  /// Drops all listeners, stops the thread and restores the signal
  /// dispositions and console handler that were there before.
  /// Idempotent; never throws. Thread-safe.
  /// Not from inside a listener (the thread it runs on is the one it
  /// ends).
  void _deinit() noexcept;

  /// "interrupt", "terminate", "hangUp", "logoff", "shutdown",
  /// "sessionLock", "sessionUnlock", "suspend", "resume", "powerChange",
  /// "deviceArrival", "deviceRemoval"; the number for any other value.
  /// Thread-safe.
  static String getSignalName(Signal signal);

private:
  class CFanOut;
  void dispatch(Signal signal);

  mutable CMutex m_mutex;  // the list; held while listeners are called
  std::vector<P<IListener>> m_listeners;
  P<CFanOut> m_fanOut;
  P<CWindowsThreadedGlobalMessageReceiver> m_messages;
};

}  // namespace qo

#endif  // QO_SYS_CSYSTEMSIGNALRECEIVER_H
