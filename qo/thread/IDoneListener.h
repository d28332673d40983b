// qo/thread/IDoneListener.h - callback told when a background operation ends.
//
// Handed to IFileSystem's background operations (and CBackgroundOpThread's
// add*Job). The operation keeps a reference on the listener until it has
// called it, and calls it at most once, on the thread that finished the
// operation (usually the worker thread), after the operation reports
// hasFinished() == true. The listener must return quickly: the worker runs
// no other job meanwhile.
//
//   class CProgress : public CBase, public IDoneListener {
//     void onBackgroundOpDone(IBackgroundOp* op, CError const* error) override { ... }
//   };
#ifndef QO_THREAD_IDONELISTENER_H
#define QO_THREAD_IDONELISTENER_H

#include "qo/core/Export.h"
#include "qo/core/IBase.h"

namespace qo {

class CError;
class IBackgroundOp;

/// Receiver of a background operation's end. Implementations must be
/// thread-safe with respect to the threads that finish operations.
class QO_API IDoneListener : public virtual IBase {
public:
  ~IDoneListener() override;

  /// Called once when op has finished; error is the failure (null on
  /// success), valid only during the call (clone() it to keep it). An
  /// exception thrown from here is logged and otherwise ignored.
  virtual void onBackgroundOpDone(IBackgroundOp* op, CError const* error) = 0;
};

}  // namespace qo

#endif  // QO_THREAD_IDONELISTENER_H
