#include "qo/thread/CBackgroundOpThread.h"

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CStdExceptionError.h"
#include "qo/core/CTime.h"
#include "qo/core/ErrorLog.h"
#include "qo/core/TFlags.h"
#include "qo/fs/CURI.h"
#include "qo/fs/IFileSystem.h"
#include "qo/stream/IIOStream.h"
#include "qo/stream/IInStream.h"
#include "qo/thread/CMutexLock.h"

#include <algorithm>
#include <vector>

namespace qo {

namespace {

String abortMessage() {
  return u"Background store operation aborted because CBackgroundOpThread needs to exit.";
}

void checkFileSystem(IFileSystem* fs, char16_t const* place) {
  if (!fs) throw CInvalidArgError(place, u"the file system is null");
}

}  // namespace

// --- CJob --------------------------------------------------------------------

CBackgroundOpThread::CJob::CJob(IDoneListener* listener) { m_listener = listener; }

CBackgroundOpThread::CJob::~CJob() = default;

bool CBackgroundOpThread::CJob::hasFinished() const { return m_done.isSet(); }

bool CBackgroundOpThread::CJob::waitFinished(int timeoutMs) const { return m_done.wait(timeoutMs); }

void CBackgroundOpThread::CJob::throwErrorIfFailed() const {
  P<CError> error;
  {
    CMutexLock lock(m_mutex);
    error = m_error;
  }
  if (error) error->throwClone();
}

void CBackgroundOpThread::CJob::finish(CError const* error) noexcept {
  P<IDoneListener> listener;
  {
    CMutexLock lock(m_mutex);
    m_error = error ? error->clone() : P<CError>();
    dropReferences();
    m_done.set();
    // Taken out under the lock: whoever finishes first calls it, nobody after.
    listener.swap(m_listener);
  }
  if (!listener) return;
  try {
    listener->onBackgroundOpDone(this, error);
  } catch (std::exception const& e) {
    logError(e, u"CBackgroundOpThread: a done listener threw an exception.");
  } catch (...) {
    logError(CError(u"Unknown exception."), u"CBackgroundOpThread: a done listener threw an exception.");
  }
}

// --- the four jobs -------------------------------------------------------------

class CBackgroundOpThread::CStoreJob : public CJob {
public:
  CStoreJob(IFileSystem* fs, CURI const& target, long long length, IInStream* source, bool overwrite,
            IDoneListener* listener)
      : CJob(listener), m_target(target), m_length(length), m_overwrite(overwrite) {
    static char16_t const kPlace[] = u"CBackgroundOpThread::CStoreJob constructor";
    checkFileSystem(fs, kPlace);
    if (!source) throw CInvalidArgError(kPlace, u"the source stream is null");
    if (length < -1) {
      throw CInvalidArgError(kPlace, u"the length is below -1", CProps().addLong(u"length", length));
    }
    m_fs = fs;
    m_source = source;
  }

  void run(void*, CBackgroundOpThread*) override {
    TFlags<IIOStream::Flags> flags{IIOStream::FlagCreate};
    flags.set(m_overwrite ? IIOStream::FlagTruncate : IIOStream::FlagFailIfExists);
    P<IIOStream> out = m_fs->createStream(m_target, IIOStream::AccessWriteOnly, flags);
    std::vector<unsigned char> buffer(kChunk);
    if (m_length < 0) {
      while (int got = m_source->readLax(buffer.data(), kChunk)) out->write(buffer.data(), got);
    } else {
      for (long long left = m_length; left > 0;) {
        int const chunk = static_cast<int>(std::min<long long>(left, kChunk));
        // read() rather than readLax(): a source shorter than promised fails
        // the job with "Unexpected end of data." instead of a short file.
        m_source->read(buffer.data(), chunk);
        out->write(buffer.data(), chunk);
        left -= chunk;
      }
    }
    out->flush();
    out->close();
  }

protected:
  void dropReferences() noexcept override {
    m_fs = nil;
    m_source = nil;
  }

private:
  static constexpr int kChunk = 64 * 1024;

  P<IFileSystem> m_fs;
  CURI m_target;
  long long m_length;
  P<IInStream> m_source;
  bool m_overwrite;
};

class CBackgroundOpThread::CMoveFileJob : public CJob {
public:
  CMoveFileJob(IFileSystem* fs, CURI const& from, CURI const& to, bool overwrite, IDoneListener* listener)
      : CJob(listener), m_from(from), m_to(to), m_overwrite(overwrite) {
    checkFileSystem(fs, u"CBackgroundOpThread::CMoveFileJob constructor");
    m_fs = fs;
  }

  void run(void*, CBackgroundOpThread*) override { m_fs->moveFileOrFolder(m_from, m_to, m_overwrite); }

protected:
  void dropReferences() noexcept override { m_fs = nil; }

private:
  P<IFileSystem> m_fs;
  CURI m_from;
  CURI m_to;
  bool m_overwrite;
};

class CBackgroundOpThread::CCreateFolderJob : public CJob {
public:
  CCreateFolderJob(IFileSystem* fs, CURI const& uri, int options, IDoneListener* listener)
      : CJob(listener), m_uri(uri), m_options(options) {
    checkFileSystem(fs, u"CBackgroundOpThread::CCreateFolderJob constructor");
    m_fs = fs;
  }

  void run(void*, CBackgroundOpThread*) override { m_fs->createFolder(m_uri, m_options); }

protected:
  void dropReferences() noexcept override { m_fs = nil; }

private:
  P<IFileSystem> m_fs;
  CURI m_uri;
  int m_options;
};

class CBackgroundOpThread::CDeleteFileJob : public CJob {
public:
  CDeleteFileJob(IFileSystem* fs, CURI const& uri, IDoneListener* listener) : CJob(listener), m_uri(uri) {
    checkFileSystem(fs, u"CBackgroundOpThread::CDeleteFileJob constructor");
    m_fs = fs;
  }

  void run(void*, CBackgroundOpThread*) override { m_fs->deleteFile(m_uri, false); }

protected:
  void dropReferences() noexcept override { m_fs = nil; }

private:
  P<IFileSystem> m_fs;
  CURI m_uri;
};

// --- the worker ------------------------------------------------------------------

CBackgroundOpThread::CBackgroundOpThread(void* context) : m_context(context) { setThreadName(u"qo.bgOp"); }

CBackgroundOpThread::~CBackgroundOpThread() {
  // Normally the thread was stopped before any destructor ran (CThread's
  // deleteThis); an object that lives inside another one gets here running,
  // and its body must end before the queue and the signal go away.
  try {
    stop(false);
  } catch (std::exception const& e) {
    logError(e, u"Exception in destructor of qo::CBackgroundOpThread. Ignoring.");
  }
  abortQueuedJobs();
}

P<IBackgroundOp> CBackgroundOpThread::addStoreJob(IFileSystem* fs, CURI const& target, long long length,
                                                  IInStream* source, bool overwrite, IDoneListener* listener) {
  return addJob(P<CJob>(new CStoreJob(fs, target, length, source, overwrite, listener)));
}

P<IBackgroundOp> CBackgroundOpThread::addMoveFileJob(IFileSystem* fs, CURI const& from, CURI const& to,
                                                     bool overwrite, IDoneListener* listener) {
  return addJob(P<CJob>(new CMoveFileJob(fs, from, to, overwrite, listener)));
}

P<IBackgroundOp> CBackgroundOpThread::addCreateFolderJob(IFileSystem* fs, CURI const& uri, int options,
                                                         IDoneListener* listener) {
  return addJob(P<CJob>(new CCreateFolderJob(fs, uri, options, listener)));
}

P<IBackgroundOp> CBackgroundOpThread::addDeleteFileJob(IFileSystem* fs, CURI const& uri, IDoneListener* listener) {
  return addJob(P<CJob>(new CDeleteFileJob(fs, uri, listener)));
}

P<IBackgroundOp> CBackgroundOpThread::addJob(P<CJob> const& job) {
  {
    CMutexLock lock(m_queueMutex);
    // After a restart stopSignalled is clear again while the new loop may
    // not have begun yet; such a job waits for that loop.
    if (!m_loopEnded || checkContinue()) {
      m_queue.push_back(job);
      m_workSignal.set();
      return job;
    }
  }
  // No loop will ever take it: waiting for it would hang.
  CError const error(abortMessage());
  job->finish(&error);
  return job;
}

void CBackgroundOpThread::signalStop() {
  CThread::signalStop();
  // Set under the queue lock, so that it cannot fall between the worker's
  // reset and its second look at checkContinue() (see runImpl).
  CMutexLock lock(m_queueMutex);
  m_workSignal.set();
  m_stopSignal.set();
}

void CBackgroundOpThread::setPacer(P<IBackgroundOpPacer> const& pacer) {
  CMutexLock lock(m_queueMutex);
  m_pacer = pacer;
}

int CBackgroundOpThread::askPacer(long long lastJobMicros) {
  P<IBackgroundOpPacer> pacer;
  {
    CMutexLock lock(m_queueMutex);
    if (m_queue.empty()) return 0;
    pacer = m_pacer;
  }
  if (!pacer) return 0;
  try {
    return pacer->getDelayBeforeNextJob(lastJobMicros);
  } catch (...) {
    return 0;  // a failing pacer must not stop the work
  }
}

void CBackgroundOpThread::runImpl() {
  {
    CMutexLock lock(m_queueMutex);
    m_loopEnded = false;
    // A stop signalled before this reset has set the flag that the loop
    // tests first.
    m_stopSignal.reset();
  }
  long long lastJobMicros = 0;
  while (checkContinue()) {
    int const delay = askPacer(lastJobMicros);
    if (delay > 0) {
      (void)m_stopSignal.wait(delay);
      lastJobMicros = 0;  // that job's rest is over
      continue;
    }
    P<CJob> job;
    {
      CMutexLock lock(m_queueMutex);
      if (m_queue.empty()) {
        m_workSignal.reset();
        // A stop signalled after the loop's test has set the signal before
        // our reset; without this second look the wait below would not end.
        if (!checkContinue()) break;
      } else {
        job = m_queue.front();
        m_queue.pop_front();
      }
    }
    if (!job) {
      (void)m_workSignal.wait(-1);
      lastJobMicros = 0;  // the time idle was rest enough
      continue;
    }
    // Measures the job for the pacer, also when it throws.
    struct JobTimer {
      long long& micros;
      long long const started = CTime::now().getMicros();
      ~JobTimer() { micros = std::max<long long>(0, CTime::now().getMicros() - started); }
    } timer{lastJobMicros};
    try {
      job->run(m_context, this);
    } catch (CError const& e) {
      job->finish(&e);
      continue;
    } catch (std::exception const& e) {
      CStdExceptionError const error(e);
      job->finish(&error);
      continue;
    } catch (...) {
      CError const error(u"Unknown exception in a background operation.");
      job->finish(&error);
      continue;
    }
    job->finish(nullptr);
  }
  CMutexLock lock(m_queueMutex);
  m_loopEnded = true;
  abortQueuedJobs();
}

void CBackgroundOpThread::abortQueuedJobs() noexcept {
  CMutexLock lock(m_queueMutex);
  if (m_queue.empty()) return;
  CError const error(abortMessage());
  // One at a time: a listener may queue another job meanwhile, which is
  // then aborted as well.
  while (!m_queue.empty()) {
    P<CJob> job = m_queue.front();
    m_queue.pop_front();
    job->finish(&error);
  }
}

}  // namespace qo
