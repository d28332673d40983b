#include "qo/sys/CWindowsThreadedGlobalMessageReceiver.h"

#include <atomic>

#include "qo/core/CSafeGlobalSlot.h"
#include "qo/core/CSystemError.h"
#include "qo/core/ErrorLog.h"
#include "qo/platform/SystemSignals.h"
#include "qo/thread/CMutexLock.h"
#include "qo/thread/CThread.h"

namespace qo {

// The two lists of kinds are one list.
static_assert(static_cast<int>(platform::SystemSignal::Interrupt) == CSystemSignalReceiver::Interrupt &&
                  static_cast<int>(platform::SystemSignal::SessionLock) == CSystemSignalReceiver::SessionLock &&
                  static_cast<int>(platform::SystemSignal::DeviceRemoval) == CSystemSignalReceiver::DeviceRemoval,
              "platform::SystemSignal and CSystemSignalReceiver::Signal differ");

// Runs the platform's loop; a stop request ends the loop.
class CWindowsThreadedGlobalMessageReceiver::CLoopThread : public CThread {
public:
  CLoopThread(platform::NativeSystemSignals* handle, CWindowsThreadedGlobalMessageReceiver* owner)
      : m_handle(handle), m_owner(owner) {
    setThreadName(u"qo.globalMessages");
  }
  // One stop per run, and only for a run that was started: a stop nobody
  // reads would end the next run at once.
  void signalStop() override {
    CThread::signalStop();
    if (getID() != 0 && !m_stopSent.exchange(true)) platform::systemSignalsStop(m_handle);
  }

protected:
  void runImpl() override {
    if (platform::SysError e = platform::systemSignalsRun(m_handle, &CWindowsThreadedGlobalMessageReceiver::deliver, m_owner))
      throw CSystemError(u"Error receiving system messages.", u"CWindowsThreadedGlobalMessageReceiver", u"CreateWindowExW", e);
  }

private:
  platform::NativeSystemSignals* const m_handle;
  CWindowsThreadedGlobalMessageReceiver* const m_owner;  // outlives the thread
  std::atomic<bool> m_stopSent{false};
};

CWindowsThreadedGlobalMessageReceiver::CWindowsThreadedGlobalMessageReceiver() {
  if (platform::SysError e = platform::systemSignalsInstall(m_handle)) {
    m_installError = newP<CSystemError>(u"Error installing the system signal handlers.",
                                        u"CWindowsThreadedGlobalMessageReceiver", u"SetConsoleCtrlHandler", e);
    logError(*m_installError, u"System signals will not be received.");
    return;
  }
}

CWindowsThreadedGlobalMessageReceiver::~CWindowsThreadedGlobalMessageReceiver() { _deinit(); }

P<CWindowsThreadedGlobalMessageReceiver> const& CWindowsThreadedGlobalMessageReceiver::get() {
  static CSafeGlobalSlot g_pInstanceSlot;
  return TSafeGlobal<CWindowsThreadedGlobalMessageReceiver>::get(g_pInstanceSlot);
}

void CWindowsThreadedGlobalMessageReceiver::setListener(CSystemSignalReceiver::IListener* listener) {
  // Taking the delivery lock waits for a call to the old listener to end.
  CMutexLock lock(m_listenerMutex);
  m_listener = listener;
}

void CWindowsThreadedGlobalMessageReceiver::setTakeOver(bool takeOver) {
  P<CThread> stopped;
  {
    CMutexLock lock(m_mutex);
    if (!m_handle) return;
    platform::systemSignalsSetTakeOver(m_handle, takeOver);
    if (takeOver && !m_thread) {
      // The thread runs only while someone listens: a process that never
      // asks has no extra thread.
      try {
        P<CThread> thread = newP<CLoopThread>(m_handle, this);
        thread->start();
        m_thread = thread;
        // Once this returns the window exists: nothing sent to it later is
        // lost.
        platform::systemSignalsWaitReady(m_handle, 10000);
      } catch (CError const& e) {
        logError(e, u"System signals will not be received.");
      }
    } else if (!takeOver && m_thread && m_thread->getID() != CThread::getCurrentID()) {
      // (On the thread itself, from a listener, it runs on until later.)
      stopped = m_thread;
      m_thread = nil;
    }
  }
  // Outside the lock: a listener running on the thread may still call in.
  if (stopped) {
    try {
      stopped->stop(false);
    } catch (std::exception const& e) {
      logError(e, u"Stopping the system message thread failed.");
    }
  }
}

void CWindowsThreadedGlobalMessageReceiver::_deinit() noexcept {
  platform::NativeSystemSignals* handle = nullptr;
  P<CThread> thread;
  {
    CMutexLock lock(m_mutex);
    handle = m_handle;
    thread = m_thread;
    m_handle = nullptr;
    m_thread = nil;
  }
  // Outside the lock: a listener running on the thread may still call in.
  try {
    if (thread) thread->stop(false);
  } catch (std::exception const& e) {
    logError(e, u"Stopping the system message thread failed.");
  }
  // The thread object goes first: its end signals a stop through the
  // handle once more.
  thread = nil;
  platform::systemSignalsUninstall(handle);
}

bool CWindowsThreadedGlobalMessageReceiver::isActive() const {
  CMutexLock lock(m_mutex);
  return m_handle != nullptr && m_thread && m_thread->isAlive();
}

bool CWindowsThreadedGlobalMessageReceiver::hasMessageWindow() const {
  CMutexLock lock(m_mutex);
  return platform::systemSignalsHaveWindow(m_handle);
}

PC<CError> CWindowsThreadedGlobalMessageReceiver::getInstallError() const {
  CMutexLock lock(m_mutex);
  return m_installError;
}

void CWindowsThreadedGlobalMessageReceiver::deliver(void* self, platform::SystemSignal signal) {
  auto* receiver = static_cast<CWindowsThreadedGlobalMessageReceiver*>(self);
  CMutexLock lock(receiver->m_listenerMutex);
  if (!receiver->m_listener) return;
  try {
    receiver->m_listener->onSystemSignal(static_cast<CSystemSignalReceiver::Signal>(signal));
  } catch (std::exception const& e) {
    logError(e, u"A system signal listener threw an exception.");
  }
}

}  // namespace qo
