// qo/thread/IBackgroundOpPacer.h - lets an application hold back the
// background-operation worker while the machine is wanted for other work.
//
// CBackgroundOpThread asks its pacer before each job whether to start it
// now. The pacer answers with a delay: 0 runs the job at once; a positive
// delay makes the worker wait that long (or until it is told to stop) and
// then ask again, so a pacer that wants a pause keeps answering a delay. The
// worker tells how long the previous job took, so a pacer can slow the
// worker to a share of the time (run d, then wait d * (1 - rate) / rate).
//
//   class CPacer : public CBase, public IBackgroundOpPacer {
//     int getDelayBeforeNextJob(long long lastJobMicros) override { return busy() ? 500 : 0; }
//   };
//   worker->setPacer(newP<CPacer>());
//
// The worker knows only this interface; the system-load aware pacer lives
// with the system services (CStealthController).
#ifndef QO_THREAD_IBACKGROUNDOPPACER_H
#define QO_THREAD_IBACKGROUNDOPPACER_H

#include "qo/core/Export.h"
#include "qo/core/IBase.h"

namespace qo {

/// Decides when the background worker may run its next job. Called on the
/// worker thread; implementations shared between workers must be
/// thread-safe.
class QO_API IBackgroundOpPacer : public virtual IBase {
public:
  ~IBackgroundOpPacer() override;

  /// Milliseconds to wait before asking again (0 or less: run the next job
  /// now). lastJobMicros is the duration of the previous job on this
  /// worker; 0 before the first, once a delay has been waited and after
  /// the worker was idle. An exception counts as 0 and is ignored.
  virtual int getDelayBeforeNextJob(long long lastJobMicros) = 0;
};

}  // namespace qo

#endif  // QO_THREAD_IBACKGROUNDOPPACER_H
