// qo/thread/CErrorBackgroundOp.h - a background operation that failed before
// it could start.
//
// A file system that cannot even queue a background operation returns one
// of these instead of throwing, so the caller handles every failure the same
// way: the operation is finished from birth, waitFinished() returns true at
// once, throwErrorIfFailed() throws the error (a copy of its own class) and
// the listener is told once, from the constructor.
//
//   try { return m_worker->addStoreJob(this, target, length, source, overwrite, listener); }
//   catch (std::exception const& e) { return newP<CErrorBackgroundOp>(e, listener); }
#ifndef QO_THREAD_CERRORBACKGROUNDOP_H
#define QO_THREAD_CERRORBACKGROUNDOP_H

#include <exception>

#include "qo/core/CBase.h"
#include "qo/core/CError.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/thread/IBackgroundOp.h"
#include "qo/thread/IDoneListener.h"

namespace qo {

/// A finished, failed background operation. Thread-safe (immutable).
class QO_API CErrorBackgroundOp : public CBase, public virtual IBackgroundOp {
public:
  /// Keeps error as a CError (a clone when it is one, a CStdExceptionError
  /// otherwise), then calls listener (may be null) with this operation and
  /// that error; an exception of the listener is logged and dropped. The
  /// listener is not kept.
  CErrorBackgroundOp(std::exception const& error, IDoneListener* listener);
  ~CErrorBackgroundOp() override;
  CErrorBackgroundOp(CErrorBackgroundOp const&) = delete;
  CErrorBackgroundOp& operator=(CErrorBackgroundOp const&) = delete;

  /// True.
  [[nodiscard]] bool hasFinished() const override;
  /// True, at once.
  [[nodiscard]] bool waitFinished(int timeoutMs) const override;
  /// Throws a copy of the error, with its own class.
  void throwErrorIfFailed() const override;
  /// The error (never null).
  [[nodiscard]] PC<CError> getError() const noexcept { return m_error; }

private:
  P<CError> m_error;
};

}  // namespace qo

#endif  // QO_THREAD_CERRORBACKGROUNDOP_H
