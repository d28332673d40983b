// qo/core/CPreserveLastSysError.h - keeps the last system error code across
// clean-up code.
//
//   ...a call failed; the caller will read getLastSysError()
//   { CPreserveLastSysError keep; closeSomething(); }  // code unchanged
// The last system error is GetLastError() on Windows and errno elsewhere.
#ifndef QO_CORE_CPRESERVELASTSYSERROR_H
#define QO_CORE_CPRESERVELASTSYSERROR_H

#include <cstdint>

#include "qo/core/Export.h"

namespace qo {

/// The calling thread's last system error code. Thread-safe (per thread).
QO_API std::uint32_t getLastSysError();
/// Sets the calling thread's last system error code. Thread-safe.
QO_API void setLastSysError(std::uint32_t code);

/// Saves the last system error code on construction and restores it on
/// destruction. Copies carry the saved value. Not thread-safe (one thread).
class QO_API CPreserveLastSysError {
public:
  CPreserveLastSysError();
  ~CPreserveLastSysError();
  CPreserveLastSysError(CPreserveLastSysError const&) = default;
  CPreserveLastSysError& operator=(CPreserveLastSysError const&) = default;

  std::uint32_t getSavedError() const { return m_savedError; }

private:
  std::uint32_t m_savedError;
};

}  // namespace qo

#endif  // QO_CORE_CPRESERVELASTSYSERROR_H
