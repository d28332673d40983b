// qo/thread/IBackgroundOp.h - handle on an operation that runs in the background.
//
// The four background operations of IFileSystem return one at once; the work
// itself runs on a worker thread (CBackgroundOpThread). The handle reports
// when the work is done and rethrows its failure, with the error's own class:
//
//   P<IBackgroundOp> op = fs->backgroundStore(target, -1, source, true, nullptr);
//   ...
//   op->waitFinished(-1);
//   op->throwErrorIfFailed();   // the CIOError, CFileSystemError ... of the job
//
// A handle never goes back from finished to unfinished.
#ifndef QO_THREAD_IBACKGROUNDOP_H
#define QO_THREAD_IBACKGROUNDOP_H

#include "qo/core/Export.h"
#include "qo/core/IBase.h"

namespace qo {

/// A background operation. Thread-safe: any thread may wait or ask.
class QO_API IBackgroundOp : public virtual IBase {
public:
  ~IBackgroundOp() override;

  /// True once the operation has finished, successfully or not.
  [[nodiscard]] virtual bool hasFinished() const = 0;
  /// Waits until the operation has finished or timeoutMs (-1: no limit, 0:
  /// just look) ran out; true when it has finished. Throws CSystemError when
  /// the wait itself fails.
  [[nodiscard]] virtual bool waitFinished(int timeoutMs) const = 0;
  /// Throws the error the operation finished with, as a copy of its own
  /// class; returns normally when it succeeded or has not finished yet.
  virtual void throwErrorIfFailed() const = 0;
};

}  // namespace qo

#endif  // QO_THREAD_IBACKGROUNDOP_H
