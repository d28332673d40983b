#include "qo/thread/CSemaphoreLock.h"

#include <exception>

#include "qo/core/ErrorLog.h"

namespace qo {

CSemaphoreLock::CSemaphoreLock(ISemaphore* semaphore) : m_pSemaphore(semaphore) {
  // Without a time limit the wait only ends with a permit (or throws).
  (void)m_pSemaphore->decValue(-1);
}

CSemaphoreLock::~CSemaphoreLock() {
  try {
    m_pSemaphore->incValue();
  } catch (std::exception const& e) {
    logError(e, u"Exception in destructor of qo::CSemaphoreLock. Ignoring.");
  }
}

}  // namespace qo
