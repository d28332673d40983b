#include "qo/thread/IThreadInitService.h"

#include "qo/core/CSafeGlobalSlot.h"
#include "qo/thread/CDummyThreadInitService.h"
#include "qo/thread/CMutexLock.h"

namespace qo {

namespace {
CSafeGlobalSlot& instanceSlot() {
  static CSafeGlobalSlot g_pInstanceSlot;
  return g_pInstanceSlot;
}
}  // namespace

IThreadInitService::CGlobalSlot::CGlobalSlot() = default;
IThreadInitService::CGlobalSlot::~CGlobalSlot() = default;

P<IThreadInitService> IThreadInitService::CGlobalSlot::get() {
  CMutexLock lock(m_mutex);
  if (!m_service) m_service = newP<CDummyThreadInitService>();
  return m_service;
}

void IThreadInitService::CGlobalSlot::set(P<IThreadInitService> const& service) {
  P<IThreadInitService> old;
  {
    CMutexLock lock(m_mutex);
    old = m_service;
    m_service = service;
  }
  // old is released outside the lock: its destructor may be slow or log.
}

P<IThreadInitService> IThreadInitService::get() { return getGlobalSlot()->get(); }

P<IThreadInitService::CGlobalSlot> const& IThreadInitService::getGlobalSlot() {
  return TSafeGlobal<CGlobalSlot>::get(instanceSlot());
}

void IThreadInitService::disposeGlobalSlot() { instanceSlot().dispose(); }

}  // namespace qo
