#include "qo/thread/CMutexWithStarveProtection.h"

#include "qo/core/TSimpleType.h"

namespace qo {

namespace {

using Count = TSimpleType<long long>;

Count* findCount(CThreadLocalStorage const& storage) {
  P<IBase> value = storage.getValue();
  // The storage keeps the object alive after value goes.
  return value ? dynamic_cast<Count*>(value.get()) : nullptr;
}

}  // namespace

CMutexWithStarveProtection::CMutexWithStarveProtection() = default;
CMutexWithStarveProtection::~CMutexWithStarveProtection() = default;

void CMutexWithStarveProtection::lock() {
  Count* count = findCount(m_recursionCount);
  if (!count) {
    P<Count> fresh = newP<Count>(0);
    m_recursionCount.setValue(fresh.get());
    count = fresh.get();
  }
  if (count->get() == 0) {
    // The gate is held while waiting for the main lock, so a thread that
    // has just unlocked queues behind this one.
    m_gate.lock();
    CMutex::lock();
    m_gate.unlock();
  }
  count->set(count->get() + 1);
}

void CMutexWithStarveProtection::unlock() {
  Count* count = findCount(m_recursionCount);
  if (!count || count->get() <= 0) return;
  count->set(count->get() - 1);
  if (count->get() == 0) CMutex::unlock();
}

long long CMutexWithStarveProtection::getRecursionCount() const {
  Count* count = findCount(m_recursionCount);
  return count ? count->get() : 0;
}

}  // namespace qo
