#include "qo/core/CSafeGlobalDisposer.h"

#include "qo/thread/CMutex.h"
#include "qo/thread/CMutexLock.h"

namespace qo {

CSafeGlobalDisposer& CSafeGlobalDisposer::get() {
  static CSafeGlobalDisposer instance;
  return instance;
}

void CSafeGlobalDisposer::addDisposeFunc(DisposeFunc func) {
  CMutexLock lock(getGlobalMutex());
  m_funcs.push_back(func);
}

void CSafeGlobalDisposer::disposeAll() {
  CMutexLock lock(getGlobalMutex());
  // std::list iterators stay valid while functions append more.
  for (auto it = m_funcs.begin(); it != m_funcs.end(); ++it) (*it)();
}

}  // namespace qo
