#include "qo/thread/CThreadList.h"

#include <algorithm>
#include <chrono>

#include "qo/core/CSafeGlobalSlot.h"
#include "qo/thread/CMutexLock.h"
#include "qo/thread/CMutexUnlock.h"
#include "qo/thread/CThread.h"

namespace qo {

namespace {
CSafeGlobalSlot& instanceSlot() {
  static CSafeGlobalSlot g_pInstanceSlot;
  return g_pInstanceSlot;
}
}  // namespace

CThreadList::CThreadList() = default;
CThreadList::~CThreadList() = default;

P<CThreadList> const& CThreadList::get() { return TSafeGlobal<CThreadList>::get(instanceSlot()); }

void CThreadList::disposeGlobalInstance() { instanceSlot().dispose(); }

void CThreadList::add(CThread* thread) {
  CMutexLock lock(m_mutex);
  m_threads.push_back(thread);
}

void CThreadList::remove(CThread* thread) {
  CMutexLock lock(m_mutex);
  auto it = std::find(m_threads.begin(), m_threads.end(), thread);
  if (it != m_threads.end()) m_threads.erase(it);
}

int CThreadList::getSize() const {
  CMutexLock lock(m_mutex);
  return static_cast<int>(m_threads.size());
}

bool CThreadList::anySelectedAlive(bool onlyStopBeforeProcessExits) const {
  for (CThread* thread : m_threads) {
    if ((!onlyStopBeforeProcessExits || thread->getStopBeforeProcessExits()) && thread->isAlive()) return true;
  }
  return false;
}

bool CThreadList::stopAllThreads(int timeoutMillis, bool onlyStopBeforeProcessExits) {
  using Clock = std::chrono::steady_clock;
  CMutexLock lock(m_mutex);
  for (CThread* thread : m_threads) {
    if (!onlyStopBeforeProcessExits || thread->getStopBeforeProcessExits()) thread->signalStop();
  }
  bool const limited = timeoutMillis != -1;
  Clock::time_point deadline = Clock::time_point::max();
  if (limited) {
    Clock::time_point now = Clock::now();
    auto span = std::chrono::milliseconds(std::max(timeoutMillis, 0));
    if (Clock::time_point::max() - now > span) deadline = now + span;
  }
  for (;;) {
    if (!anySelectedAlive(onlyStopBeforeProcessExits)) return true;
    {
      // Threads that end meanwhile leave the list.
      CMutexUnlock open(m_mutex);
      CThread::sleep(100);
    }
    if (limited && Clock::now() >= deadline) return false;
  }
}

}  // namespace qo
