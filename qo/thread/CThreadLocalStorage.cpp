#include "qo/thread/CThreadLocalStorage.h"

#include "qo/thread/CThreadLocalStorageManager.h"

namespace qo {

CThreadLocalStorage::CThreadLocalStorage()
    : m_manager(CThreadLocalStorageManager::get()), m_slot(m_manager->createSlot()) {}

CThreadLocalStorage::~CThreadLocalStorage() = default;

P<IBase> CThreadLocalStorage::getValue() const { return m_manager->getValue(m_slot); }

void CThreadLocalStorage::setValue(IBase* value) { m_manager->setValue(m_slot, value); }

}  // namespace qo
