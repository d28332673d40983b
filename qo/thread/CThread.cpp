#include "qo/thread/CThread.h"

#include <string>

#include "qo/core/CStdExceptionError.h"
#include "qo/core/CSystemError.h"
#include "qo/core/ErrorLog.h"
#include "qo/log/CCrashManager.h"
#include "qo/platform/Thread.h"
#include "qo/platform/Yield.h"
#include "qo/thread/CMutexLock.h"
#include "qo/thread/CThreadList.h"
#include "qo/thread/CThreadLocalStorageManager.h"
#include "qo/thread/IThreadInitService.h"

namespace qo {

namespace {

CSystemError systemError(char16_t const* message, char16_t const* function, char16_t const* api,
                         platform::SysError const& error, CProps const& props = CProps()) {
  return CSystemError(message, function, api, error, props);
}

// Runs one step of the entry routine; an escaping exception comes back as a
// CError (same class when it is one) and is logged with summary.
template <class F>
P<CError> runCatching(F&& step, char16_t const* summary) noexcept {
  try {
    step();
    return P<CError>();
  } catch (CError const& e) {
    logError(e, summary);
    try {
      return e.clone();
    } catch (...) {
    }
  } catch (std::exception const& e) {
    logError(e, summary);
    try {
      return CStdExceptionError::exceptionToError(&e);
    } catch (...) {
    }
  } catch (...) {
    try {
      CError unknown(u"Unknown exception (not derived from std::exception).");
      logError(unknown, summary);
      return unknown.clone();
    } catch (...) {
    }
  }
  // Not even the error could be built (out of memory): keep a shared one.
  static CError* const g_outOfMemory = new CError(u"Out of memory while keeping a thread's error.");
  return P<CError>::share(g_outOfMemory);
}

}  // namespace

CThread::CThread(IRunnable* runnable, bool userFlag) : m_userFlag(userFlag) {
  m_runnable = runnable;
  CThreadList::get()->add(this);
}

CThread::~CThread() {
  stopJoinAndUnregister();
  // Still held only when the object died on its own thread, where join()
  // does not wait.
  platform::threadClose(m_handle.exchange(nullptr));
}

void CThread::stopJoinAndUnregister() noexcept {
  if (m_unregistered) return;
  m_unregistered = true;
  try {
    if (!m_detached) {
      signalStop();
      join(false);
    }
    CThreadList::get()->remove(this);
  } catch (std::exception const& e) {
    logError(e, u"Exception in destructor of qo::CThread. Ignoring.");
  } catch (...) {
    logError(CError(u"Unknown exception."), u"Exception in destructor of qo::CThread. Ignoring.");
  }
}

void CThread::deleteThis() {
  {
    CMutexLock lock(m_stateMutex);
    if (m_entryActive && m_threadId.load() == platform::threadCurrentId()) {
      // Dying here would pull the object from under the entry routine.
      m_pDeferredSelf = cancelDeleteThisAndReturnNewReference();
      return;
    }
  }
  // While the object is whole, so the body never runs against a
  // half-destroyed subclass; the destructor then finds nothing to do.
  stopJoinAndUnregister();
  CBase::deleteThis();
}

void CThread::start() {
  if (m_detached) {
    throw CError(u"Detached threads cannot be restarted", String(), -1,
                 CProps().add(CSystemError::paramFunction(), u"CThread::start"));
  }
  if (m_started && isAlive()) signalStop();
  join(false);
  {
    CMutexLock lock(m_stateMutex);
    m_started = false;
    m_finished = false;
    m_stopSignalled = false;
    m_threadId = 0;
  }
  unsigned long long id = 0;
  {
    // Held across the creation, so that a concurrent joiner sees either the
    // old joined state or the new handle.
    CMutexLock lock(m_joinMutex);
    m_joined = false;
    platform::NativeThread* handle = nullptr;
    std::uint64_t newId = 0;
    int crtErrno = 0;
    platform::setLastSysError(0);
    platform::SysError error = platform::threadStart(&CThread::threadFunc, this, handle, newId, crtErrno);
    if (error) {
      m_joined = true;
      throw systemError(u"Error creating thread.", u"CThread::start", u"_beginthreadex", error,
                        CProps().addCond(crtErrno != 0, u"errno", toString(crtErrno)));
    }
    id = newId;
    m_threadId = id;
    m_handle = handle;
  }
  String name;
  {
    CMutexLock lock(m_stateMutex);
    name = m_name;
    m_started = true;
  }
  if (!name.isEmpty()) setThreadName(static_cast<long long>(id), name);
}

unsigned CThread::threadFunc(void* self) {
  static_cast<CThread*>(self)->threadHandler();
  return 0;
}

void CThread::threadHandler() {
  String name;
  {
    CMutexLock lock(m_stateMutex);
    name = m_name;
    // The starter stores the same id, maybe only after the body has begun;
    // join() from the body must already recognise its own thread.
    m_threadId = platform::threadCurrentId();
    m_entryActive = true;
  }
  P<IThreadInitService> initService;
  P<CError> initError = runCatching(
      [&] {
        initService = IThreadInitService::get();
        initService->initThread(name);
      },
      u"IThreadInitService::initThread threw an exception.");
  if (initError) {
    // The thread is not prepared for the body; it must not run.
    storeThreadError(initError);
  } else {
    CCrashManager::ensureThreadInitialized();
    if (!name.isEmpty()) setThreadName(static_cast<long long>(platform::threadCurrentId()), name);
    // Stored at once, so that onRunFinished() can see it.
    P<CError> runError = runCatching([this] { runImpl(); }, u"CThread::runImpl threw an exception.");
    storeThreadError(runError);
    P<CError> finishError =
        runCatching([this] { onRunFinished(); }, u"CThread::onRunFinished threw an exception.");
    // Caught likewise: a failing onRunFinished() leaves its own error as the
    // thread's error, also after a failed body (both are logged).
    storeThreadError(finishError);
  }

  // After this block the object may die at any moment (an owner of a
  // detached thread, a release on another thread), unless one of these
  // references keeps it; the rest of the routine touches only locals.
  P<CThread> self;
  P<IBase> deferred;
  {
    CMutexLock lock(m_stateMutex);
    m_finished = true;
    m_entryActive = false;
    if (m_detached) self = std::move(m_pSelf);
    deferred = std::move(m_pDeferredSelf);
  }
  runCatching([] { CThreadLocalStorageManager::get()->releaseAllThreadValues(); },
              u"Releasing the thread-local values of a CThread failed.");
  initService.reset();
  deferred.reset();
  self.reset();
}

void CThread::storeThreadError(P<CError> const& error) {
  if (!error) return;
  CMutexLock lock(m_stateMutex);
  m_threadError = error;
}

void CThread::stop(bool rethrowThreadError) {
  signalStop();
  join(rethrowThreadError);
}

void CThread::signalStop() {
  CMutexLock lock(m_stateMutex);
  m_stopSignalled = true;
}

bool CThread::checkContinue() { return !m_stopSignalled; }

void CThread::join(bool rethrowThreadError) {
  platform::NativeThread* toClose = nullptr;
  {
    CMutexLock lock(m_joinMutex);
    if (!m_joined && platform::threadCurrentId() != m_threadId.load()) {
      if (!m_detached) {
        if (platform::NativeThread* handle = m_handle.load()) {
          bool finished = false;
          platform::SysError error = platform::threadWait(handle, -1, finished);
          if (error) throw systemError(u"Error waiting for thread.", u"CThread::join", u"WaitForSingleObject", error);
          toClose = m_handle.exchange(nullptr);
        }
      } else {
        while (m_started && isThreadAlive(static_cast<long long>(m_threadId.load()))) sleep(50);
      }
      m_joined = true;
    }
  }
  if (toClose) {
    // isAlive() tests the handle under the state lock.
    CMutexLock lock(m_stateMutex);
    platform::threadClose(toClose);
  }
  if (rethrowThreadError) throwThreadError();
}

void CThread::detach(bool stopBeforeProcessExits) {
  CMutexLock lock(m_stateMutex);
  if (m_detached || m_joined) return;
  m_detached = true;
  m_stopBeforeProcessExits = stopBeforeProcessExits;
  if (!m_finished) m_pSelf = this;
  platform::threadClose(m_handle.exchange(nullptr));
}

bool CThread::isAlive() const {
  CMutexLock lock(m_stateMutex);
  if (!m_started) return false;
  if (platform::NativeThread* handle = m_handle.load()) return platform::threadIsRunning(handle);
  // Without a handle: detached (ask the OS by id) or joined (ended).
  if (m_detached) return isThreadAlive(static_cast<long long>(m_threadId.load()));
  return false;
}

bool CThread::isDetached() const { return m_detached; }

bool CThread::getStopBeforeProcessExits() const {
  CMutexLock lock(m_stateMutex);
  return m_stopBeforeProcessExits;
}

void CThread::setStopBeforeProcessExits(bool stopBeforeProcessExits) {
  CMutexLock lock(m_stateMutex);
  m_stopBeforeProcessExits = stopBeforeProcessExits;
}

PC<CError> CThread::getThreadError() const {
  CMutexLock lock(m_stateMutex);
  return m_threadError;
}

void CThread::throwThreadError() const {
  PC<CError> error = getThreadError();
  if (error) error->throwClone();
}

String CThread::getThreadName() const {
  CMutexLock lock(m_stateMutex);
  return m_name;
}

void CThread::setThreadName(String const& name) {
  CMutexLock lock(m_stateMutex);
  m_name = name;
}

unsigned long long CThread::getID() const { return m_threadId; }

void CThread::setThreadName(long long threadId, String const& name) noexcept {
  try {
    platform::threadSetName(static_cast<std::uint64_t>(threadId), name.toUTF8Lossy().c_str());
  } catch (...) {
    // Naming is a courtesy to debuggers; it never fails a caller.
  }
}

unsigned long long CThread::getCurrentID() { return platform::threadCurrentId(); }

bool CThread::isThreadAlive(long long threadId) {
  bool alive = false;
  platform::SysError error = platform::threadIsAliveById(static_cast<std::uint64_t>(threadId), alive);
  if (error)
    throw systemError(u"Error testing whether a thread is alive.", u"CThread::isThreadAlive", u"OpenThread", error);
  return alive;
}

void CThread::killThread(long long threadId, int exitCode) {
  platform::SysError error = platform::threadKillById(static_cast<std::uint64_t>(threadId), exitCode);
  if (error) throw systemError(u"Error killing thread.", u"CThread::killThread", u"TerminateThread", error);
}

void CThread::sleep(unsigned int millis) { platform::sleepMillis(millis); }

void CThread::yield(bool sleepOneMilli) { platform::yieldThread(sleepOneMilli); }

void CThread::runImpl() {
  if (m_runnable) m_runnable->run();
}

void CThread::onRunFinished() {}

}  // namespace qo
