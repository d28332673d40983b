#include "qo/thread/CErrorBackgroundOp.h"

#include "qo/core/CStdExceptionError.h"
#include "qo/core/ErrorLog.h"

namespace qo {

CErrorBackgroundOp::CErrorBackgroundOp(std::exception const& error, IDoneListener* listener)
    : m_error(CStdExceptionError::exceptionToError(&error)) {
  if (!listener) return;
  try {
    listener->onBackgroundOpDone(this, m_error.get());
  } catch (std::exception const& e) {
    logError(e, u"CErrorBackgroundOp: a done listener threw an exception.");
  } catch (...) {
    logError(CError(u"Unknown exception."), u"CErrorBackgroundOp: a done listener threw an exception.");
  }
}

CErrorBackgroundOp::~CErrorBackgroundOp() = default;

bool CErrorBackgroundOp::hasFinished() const { return true; }

bool CErrorBackgroundOp::waitFinished(int) const { return true; }

void CErrorBackgroundOp::throwErrorIfFailed() const { m_error->throwClone(); }

}  // namespace qo
