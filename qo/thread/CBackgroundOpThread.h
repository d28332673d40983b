// qo/thread/CBackgroundOpThread.h - the worker that runs file-system
// operations in the background.
//
// A file system owns one worker ("qo.bgOp") and answers its background*
// operations by queueing a job here; the job is returned at once as an
// IBackgroundOp. The worker runs the jobs one at a time, first in first
// out. Each job calls the file system's ordinary (blocking) operation:
//   store        createStream(target, AccessWriteOnly, {FlagCreate, FlagTruncate
//                or FlagFailIfExists}) and copy the source into it;
//   move         moveFileOrFolder(from, to, overwrite);
//   create       createFolder(uri, options);
//   delete       deleteFile(uri, false).
// A finished job records its error (or none), drops what it worked on, sets
// its done signal and then tells its listener, at most once. When the worker
// stops, every job still queued is finished with the error "Background
// store operation aborted because CBackgroundOpThread needs to exit.", so
// no waitFinished() hangs; a job added after the worker has stopped is
// finished with that error at once.
//
//   m_worker = newP<CBackgroundOpThread>(this);   // context handed to jobs
//   m_worker->start();
//   return m_worker->addDeleteFileJob(this, uri, listener);
//   ...
//   m_worker->stop(false);
//
// A pacer (setPacer) may hold jobs back: before each job the worker asks it
// for a delay and waits that long, or until it is stopped (see
// IBackgroundOpPacer).
//
// A job keeps a reference on its file system until it finishes, so a file
// system that owns its worker stays alive while jobs wait; it should stop the
// worker when it shuts down.
#ifndef QO_THREAD_CBACKGROUNDOPTHREAD_H
#define QO_THREAD_CBACKGROUNDOPTHREAD_H

#include "qo/core/CBase.h"
#include "qo/core/CError.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/TList.h"
#include "qo/thread/CMutex.h"
#include "qo/thread/CSignal.h"
#include "qo/thread/CThread.h"
#include "qo/thread/IBackgroundOp.h"
#include "qo/thread/IBackgroundOpPacer.h"
#include "qo/thread/IDoneListener.h"

namespace qo {

class CURI;
class IFileSystem;
class IInStream;

/// The background-operation worker. Thread-safe: jobs may be added from any
/// thread.
class QO_API CBackgroundOpThread : public CThread {
public:
  /// One queued operation; what add*Job returns. Subclasses do the work in
  /// run(). Thread-safe.
  class QO_API CJob : public CBase, public virtual IBackgroundOp {
  public:
    ~CJob() override;
    CJob(CJob const&) = delete;
    CJob& operator=(CJob const&) = delete;

    [[nodiscard]] bool hasFinished() const override;
    [[nodiscard]] bool waitFinished(int timeoutMs) const override;
    /// Throws a copy (own class) of the error the job finished with.
    void throwErrorIfFailed() const override;

    /// The work, on the worker thread; context is the worker's context
    /// pointer. Throws what the work throws: the worker finishes the job
    /// with it.
    virtual void run(void* context, CBackgroundOpThread* thread) = 0;
    /// Finishes the job with error (null: success): stores a clone of it
    /// (replacing an earlier one), drops the job's references, sets the done
    /// signal, then calls the listener, if it has not been called yet, and
    /// drops it. Never throws: a listener's exception is logged.
    void finish(CError const* error) noexcept;

  protected:
    /// A job that will tell listener (may be null) when it is finished.
    explicit CJob(IDoneListener* listener);
    /// Drops the references on the objects the job works on (file system,
    /// streams). Called once per finish, under the job's lock.
    virtual void dropReferences() noexcept = 0;

  private:
    mutable CMutex m_mutex;
    P<CError> m_error;
    mutable CSignal m_done;
    P<IDoneListener> m_listener;
  };
  class CStoreJob;
  class CMoveFileJob;
  class CCreateFolderJob;
  class CDeleteFileJob;

  /// A worker named "qo.bgOp" that hands context to each job it runs. Does
  /// not start the thread: the owner calls start().
  explicit CBackgroundOpThread(void* context = nullptr);
  /// Stops and joins a running worker; jobs still queued (also when the
  /// worker never ran) are finished with the abort error.
  ~CBackgroundOpThread() override;

  /// Queues storing length bytes (-1: until its end) of source as the file
  /// target of fs, overwriting it when overwrite is true (otherwise an
  /// existing target fails the job). fs, source and listener (may be null)
  /// are kept until the job finishes. Throws CInvalidArgError (place
  /// "CBackgroundOpThread::CStoreJob constructor") for a null fs or source
  /// or a length below -1.
  P<IBackgroundOp> addStoreJob(IFileSystem* fs, CURI const& target, long long length, IInStream* source,
                               bool overwrite, IDoneListener* listener);
  /// Queues fs->moveFileOrFolder(from, to, overwrite). Throws
  /// CInvalidArgError for a null fs.
  P<IBackgroundOp> addMoveFileJob(IFileSystem* fs, CURI const& from, CURI const& to, bool overwrite,
                                  IDoneListener* listener);
  /// Queues fs->createFolder(uri, options). Throws CInvalidArgError for a
  /// null fs.
  P<IBackgroundOp> addCreateFolderJob(IFileSystem* fs, CURI const& uri, int options, IDoneListener* listener);
  /// Queues fs->deleteFile(uri, false). Throws CInvalidArgError for a null fs.
  P<IBackgroundOp> addDeleteFileJob(IFileSystem* fs, CURI const& uri, IDoneListener* listener);

  /// As CThread's, and wakes an idle worker so that it leaves.
  void signalStop() override;
  /// Sets the pacer asked before each job (null: jobs run as soon as they
  /// are queued). The worker keeps a reference. Thread-safe.
  void setPacer(P<IBackgroundOpPacer> const& pacer);
  /// The context pointer given to the constructor.
  [[nodiscard]] void* getContext() const noexcept { return m_context; }

  /// Appends job (a file system's own kind of job) to the queue and wakes
  /// the worker; returns it. Thread-safe.
  P<IBackgroundOp> addJob(P<CJob> const& job);

protected:
  /// The queue loop.
  void runImpl() override;

private:
  void abortQueuedJobs() noexcept;
  // The pacer's delay before the next queued job; 0 without a job or pacer.
  int askPacer(long long lastJobMicros);

  void* const m_context;
  CMutex m_queueMutex;
  TList<P<CJob>> m_queue;
  CSignal m_workSignal;
  // Set by signalStop(); a pacer's delay waits on it.
  CSignal m_stopSignal;
  P<IBackgroundOpPacer> m_pacer;
  // Set (under m_queueMutex) when the worker loop has ended; a job that
  // arrives after that, before a new start, is aborted at once.
  bool m_loopEnded = false;
};

}  // namespace qo

#endif  // QO_THREAD_CBACKGROUNDOPTHREAD_H
