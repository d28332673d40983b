// qo/core/CSafeGlobalDisposer.h - a registry of clean-up functions run at
// shutdown.
//
//   CSafeGlobalDisposer::get().addDisposeFunc(&CFoo::disposeGlobal);
//   ...
//   CSafeGlobalDisposer::get().disposeAll();  // oldest first
// disposeAll() does not empty the list: a second call runs every function
// again, so each function must tolerate being called when there is nothing
// left to dispose.
#ifndef QO_CORE_CSAFEGLOBALDISPOSER_H
#define QO_CORE_CSAFEGLOBALDISPOSER_H

#include <list>

#include "qo/core/Export.h"

namespace qo {

/// Thread-safe: both operations run under getGlobalMutex().
class QO_API CSafeGlobalDisposer {
public:
  using DisposeFunc = void (*)();

  /// The process-wide instance (created on first use, destroyed at exit).
  static CSafeGlobalDisposer& get();

  /// Appends a function.
  void addDisposeFunc(DisposeFunc func);
  /// Calls every registered function in registration order. A function may
  /// register further functions; they run in the same call.
  void disposeAll();

  CSafeGlobalDisposer(CSafeGlobalDisposer const&) = delete;
  CSafeGlobalDisposer& operator=(CSafeGlobalDisposer const&) = delete;

private:
  CSafeGlobalDisposer() = default;
  std::list<DisposeFunc> m_funcs;
};

}  // namespace qo

#endif  // QO_CORE_CSAFEGLOBALDISPOSER_H
