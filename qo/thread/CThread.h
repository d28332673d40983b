// qo/thread/CThread.h - the library's thread object.
//
// A CThread runs a body on its own OS thread: the runnable given to the
// constructor, or a subclass's runImpl(). Every CThread is listed in
// CThreadList from construction to destruction, and every run goes through
// one entry routine that
//   - calls IThreadInitService::get()->initThread(name) first,
//   - names the OS thread (debuggers, /proc) when the object has a name,
//   - keeps an exception escaping runImpl() or onRunFinished() as the
//     thread's error (rethrown by join(true), stop(true), throwThreadError())
//     and logs it (logError),
//   - releases the thread's thread-local values at its end.
//
//   P<CThread> t = newP<CThread>(runnable.get());
//   t->setThreadName(u"qo.worker");
//   t->start();
//   ...
//   t->stop(true);   // signalStop() (the body polls checkContinue()), then
//                    // join(true): waits, and rethrows the body's error
//
// States: created (joined, not started) -> running (started) -> finished ->
// joined; start() is allowed again after a join and stops and joins a run
// that is still going first. detach() hands the object to its running
// thread, which keeps it alive until the body ends; a detached thread cannot
// be started again.
//
// Destruction: the last release on another thread stops and joins an
// undetached running thread before any destructor runs, so a subclass's
// members outlive its body. The last release on the thread itself (its body
// dropped the last P) is handed off: the object lives on until the entry
// routine has finished with it and dies there.
//
// Thread-safe, except that start(), join() and detach() of one object must
// not run concurrently with each other (join() from several threads is fine).
#ifndef QO_THREAD_CTHREAD_H
#define QO_THREAD_CTHREAD_H

#include <atomic>

#include "qo/core/CBase.h"
#include "qo/core/CError.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/thread/CMutex.h"
#include "qo/thread/IRunnable.h"

namespace qo {

namespace platform {
struct NativeThread;
}

/// A library thread. Thread-safe (see the top of the file for start/join/detach).
class QO_API CThread : public CBase {
public:
  /// A thread that will run runnable->run() (runnable may be null when a
  /// subclass overrides runImpl; the thread shares it). userFlag is kept for
  /// the owner (getUserFlag) and means nothing to CThread. Registers the
  /// thread with CThreadList.
  explicit CThread(IRunnable* runnable = nullptr, bool userFlag = false);
  /// Not detached: signalStop() and join(false). Then leaves CThreadList.
  /// Never throws: failures are logged ("Exception in destructor of
  /// qo::CThread. Ignoring.").
  ~CThread() override;
  CThread(CThread const&) = delete;
  CThread& operator=(CThread const&) = delete;

  /// Starts a run. A run still going is signalled and joined first. The
  /// error of an earlier run stays until a later run stores its own.
  /// Throws CError "Detached threads cannot be restarted" (property
  /// "function" = "CThread::start") for a detached thread, CSystemError
  /// "Error creating thread." (function "CThread::start", api
  /// "_beginthreadex") when the OS refuses; the object stays startable.
  void start();

  /// signalStop(), then join(rethrowThreadError).
  virtual void stop(bool rethrowThreadError);
  /// Asks the body to end: checkContinue() returns false from now on.
  /// Subclasses extend it to wake a waiting body.
  virtual void signalStop();
  /// False once a stop was signalled; the body polls it.
  virtual bool checkContinue();

  /// Waits for the run to end (nothing to wait for when already joined,
  /// never started, or when called by the thread itself), then, when
  /// rethrowThreadError is true and the thread has an error, throws it with
  /// its own class. A detached thread is polled every 50 ms until its OS
  /// thread is gone. Throws CSystemError (function "CThread::join") when the
  /// wait fails.
  void join(bool rethrowThreadError);
  /// Gives the running thread up: it keeps this object alive until its body
  /// ends; stopBeforeProcessExits is stored. Does nothing for a thread that
  /// is detached already or joined (or never started).
  void detach(bool stopBeforeProcessExits);

  /// True from start() until the OS thread has ended.
  [[nodiscard]] bool isAlive() const;
  [[nodiscard]] bool isDetached() const;
  /// Whether CThreadList::stopAllThreads(..., true) signals and waits for
  /// this thread. Default true.
  [[nodiscard]] bool getStopBeforeProcessExits() const;
  void setStopBeforeProcessExits(bool stopBeforeProcessExits);

  /// The error that escaped the last failed run, or null.
  [[nodiscard]] PC<CError> getThreadError() const;
  /// Throws the thread's error (its own class) when there is one.
  void throwThreadError() const;

  [[nodiscard]] String getThreadName() const;
  /// Names the thread; published to the OS when the next run starts.
  void setThreadName(String const& name);
  /// The OS id of the current or last run; 0 before the first start.
  [[nodiscard]] unsigned long long getID() const;
  /// The flag given to the constructor.
  [[nodiscard]] bool getUserFlag() const noexcept { return m_userFlag; }

  /// Publishes name for the thread with that id to debuggers and system
  /// tools (POSIX keeps 15 bytes of UTF-8). Best effort; never throws.
  static void setThreadName(long long threadId, String const& name) noexcept;
  /// The calling thread's OS id (never 0).
  [[nodiscard]] static unsigned long long getCurrentID();
  /// Whether a thread of this process with that id runs. Throws CSystemError
  /// (function "CThread::isThreadAlive", api "OpenThread") when the OS
  /// cannot tell.
  [[nodiscard]] static bool isThreadAlive(long long threadId);
  /// Ends the thread with that id at once (TerminateThread). Locks it holds
  /// stay held. Throws CSystemError (function "CThread::killThread"); POSIX
  /// always throws (code ENOTSUP): it has no safe way to end another thread.
  static void killThread(long long threadId, int exitCode);
  /// Sleeps millis milliseconds, not alertable.
  static void sleep(unsigned int millis);
  /// true: sleeps about one millisecond; false: gives up the time slice.
  static void yield(bool sleepOneMilli);

protected:
  /// Keeps the object alive when its last reference drops on its own
  /// running thread; otherwise stops, joins and deletes it.
  void deleteThis() override;
  /// The body. Default: runs the runnable (nothing when there is none).
  virtual void runImpl();
  /// Called after runImpl() on the thread, also when it threw. Default:
  /// nothing. An exception it throws becomes the thread's error, replacing
  /// one from runImpl() (both are logged).
  virtual void onRunFinished();

private:
  static unsigned threadFunc(void* self);
  void threadHandler();
  void storeThreadError(P<CError> const& error);
  void stopJoinAndUnregister() noexcept;

  bool const m_userFlag;
  P<IRunnable> m_runnable;
  mutable CMutex m_stateMutex;  // the flags' writers, the name, the error
  mutable CMutex m_joinMutex;   // one joiner at a time; the handle's owner side
  P<CError> m_threadError;
  String m_name;
  // Flags are atomics, so readers that hold neither lock (the entry routine,
  // deleteThis) see whole values; writers still take the locks above.
  std::atomic<bool> m_joined{true};
  std::atomic<bool> m_detached{false};
  std::atomic<bool> m_stopBeforeProcessExits{true};
  std::atomic<bool> m_started{false};
  std::atomic<bool> m_finished{false};
  std::atomic<bool> m_stopSignalled{false};
  std::atomic<unsigned long long> m_threadId{0};
  std::atomic<platform::NativeThread*> m_handle{nullptr};
  // Under the state lock: the entry routine still uses the object; the
  // reference a detached thread holds on itself; the reference kept by
  // deleteThis() for the entry routine to drop.
  bool m_entryActive = false;
  P<CThread> m_pSelf;
  P<IBase> m_pDeferredSelf;
  // Set by the first stopJoinAndUnregister(); deleteThis() and the destructor
  // both call it, and the second call must not touch the thread list, which
  // may already be gone at process exit.
  bool m_unregistered = false;
};

}  // namespace qo

#endif  // QO_THREAD_CTHREAD_H
