#include "qo/util/CTempPathBufferPool.h"

#include <utility>

#include "qo/core/CSafeGlobalSlot.h"
#include "qo/thread/CMutexLock.h"

namespace qo {

CTempPathBufferPool::CLease::CLease(P<CTempPathBufferPool> const& pool, P<TBuffer<wchar_t>> buffer) noexcept
    : m_pool(pool), m_buffer(std::move(buffer)) {}

CTempPathBufferPool::CLease::CLease(CLease&& other) noexcept
    : m_pool(std::move(other.m_pool)), m_buffer(std::move(other.m_buffer)) {}

CTempPathBufferPool::CLease& CTempPathBufferPool::CLease::operator=(CLease&& other) noexcept {
  if (this != &other) {
    if (m_pool && m_buffer) m_pool->giveBack(std::move(m_buffer));
    m_pool = std::move(other.m_pool);
    m_buffer = std::move(other.m_buffer);
  }
  return *this;
}

CTempPathBufferPool::CLease::~CLease() {
  if (m_pool && m_buffer) m_pool->giveBack(std::move(m_buffer));
}

// The room is reserved up front so that giving a buffer back never allocates.
CTempPathBufferPool::CTempPathBufferPool() { m_idle.reserve(kMaxPooled); }
CTempPathBufferPool::~CTempPathBufferPool() = default;

P<CTempPathBufferPool> const& CTempPathBufferPool::get() {
  static CSafeGlobalSlot g_pInstanceSlot;
  return TSafeGlobal<CTempPathBufferPool>::get(g_pInstanceSlot);
}

CTempPathBufferPool::CLease CTempPathBufferPool::acquire() {
  P<TBuffer<wchar_t>> buffer;
  {
    CMutexLock lock(m_mutex);
    if (!m_idle.empty()) {
      buffer = std::move(m_idle.back());
      m_idle.pop_back();
    }
  }
  if (!buffer) buffer = newP<TBuffer<wchar_t>>(kBufferChars);
  // The lease keeps the pool alive, so a buffer can always go back.
  return CLease(P<CTempPathBufferPool>::share(this), std::move(buffer));
}

std::size_t CTempPathBufferPool::getIdleCount() const {
  CMutexLock lock(m_mutex);
  return m_idle.size();
}

void CTempPathBufferPool::giveBack(P<TBuffer<wchar_t>> buffer) noexcept {
  // A borrower may have resized it; every lease must start at full size.
  if (buffer->getSize() != kBufferChars) return;
  CMutexLock lock(m_mutex);
  if (m_idle.size() < kMaxPooled) m_idle.push_back(std::move(buffer));
}

}  // namespace qo
