#include "qo/sys/CWindowsComInit.h"

#include "qo/core/CSafeGlobalSlot.h"
#include "qo/platform/Com.h"
#include "qo/thread/CThread.h"

namespace qo {

CWindowsComInit::CWindowsComInit()
    : m_available(platform::comAvailable()),
      m_result(platform::comInitThread(m_mustUninit)),
      m_threadId(CThread::getCurrentID()) {}

CWindowsComInit::~CWindowsComInit() {
  // CoUninitialize belongs to the thread that started COM; elsewhere it
  // would undo another thread's start.
  if (m_mustUninit && CThread::getCurrentID() == m_threadId) platform::comUninitThread();
}

P<CWindowsComInit> const& CWindowsComInit::get() {
  static CSafeGlobalSlot g_pInstanceSlot;
  return TSafeGlobal<CWindowsComInit>::get(g_pInstanceSlot);
}

bool CWindowsComInit::isInitialized() const noexcept {
  return m_available && (m_result >= 0 || m_result == platform::kComChangedMode);
}

}  // namespace qo
