#include "qo/thread/CThreadLocalStorageManager.h"

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "qo/core/CSafeGlobalSlot.h"
#include "qo/core/CSystemError.h"
#include "qo/thread/CMutexLock.h"

namespace qo {

namespace {

CSafeGlobalSlot& instanceSlot() {
  static CSafeGlobalSlot g_pInstanceSlot;
  return g_pInstanceSlot;
}

[[noreturn]] void throwTlsError(char16_t const* message, char16_t const* function, char16_t const* api,
                                platform::SysError const& error) {
  throw CSystemError(message, function, api, error);
}

// Every live manager, so that a thread's map handed back at the thread's end
// finds the manager that made it. A plain std::mutex: constant-initialised,
// so usable by threads that end while statics are set up or torn down.
std::mutex g_liveMutex;
CThreadLocalStorageManager* g_pFirstLive = nullptr;

}  // namespace

CThreadLocalStorageManager::CThreadLocalStorageManager() {
  if (platform::SysError error = platform::tlsCreate(m_key, &releaseMapAtThreadExit))
    throwTlsError(u"Error allocating a thread-local index.", u"CThreadLocalStorageManager constructor", u"TlsAlloc",
                  error);
  std::lock_guard<std::mutex> lock(g_liveMutex);
  m_pNextLive = g_pFirstLive;
  g_pFirstLive = this;
}

void CThreadLocalStorageManager::releaseMapAtThreadExit(void* value) {
  auto* map = static_cast<TValueMap*>(value);
  bool owned = false;
  {
    std::lock_guard<std::mutex> lock(g_liveMutex);
    for (CThreadLocalStorageManager* m = g_pFirstLive; m != nullptr && !owned; m = m->m_pNextLive) {
      CMutexLock mapsLock(m->m_mapsMutex);
      owned = m->m_maps.erase(map) != 0;
    }
  }
  // Values released here may store new ones; the new map comes back in the
  // next round of thread-exit calls.
  if (owned) delete map;
}

CThreadLocalStorageManager::~CThreadLocalStorageManager() {
  {
    std::lock_guard<std::mutex> lock(g_liveMutex);
    CThreadLocalStorageManager** link = &g_pFirstLive;
    while (*link != nullptr && *link != this) link = &(*link)->m_pNextLive;
    if (*link == this) *link = m_pNextLive;
  }
  std::unordered_set<TValueMap*> maps;
  {
    CMutexLock lock(m_mapsMutex);
    maps.swap(m_maps);
  }
  platform::tlsSet(m_key, nullptr);
  for (TValueMap* map : maps) delete map;
  platform::tlsDestroy(m_key);
}

P<CThreadLocalStorageManager> const& CThreadLocalStorageManager::get() {
  return TSafeGlobal<CThreadLocalStorageManager>::get(instanceSlot());
}

void CThreadLocalStorageManager::disposeGlobal() { instanceSlot().dispose(); }

int CThreadLocalStorageManager::createSlot() { return m_slotCounter.fetch_add(1) + 1; }

CThreadLocalStorageManager::TValueMap* CThreadLocalStorageManager::getValueMapForThread(bool create) {
  auto* map = static_cast<TValueMap*>(platform::tlsGet(m_key));
  if (map || !create) return map;
  map = new TValueMap;
  {
    CMutexLock lock(m_mapsMutex);
    m_maps.insert(map);
  }
  if (platform::SysError error = platform::tlsSet(m_key, map)) {
    {
      CMutexLock lock(m_mapsMutex);
      m_maps.erase(map);
    }
    delete map;
    throwTlsError(u"Error storing the thread's value map.", u"CThreadLocalStorageManager::getValueMapForThread",
                  u"TlsSetValue", error);
  }
  return map;
}

void CThreadLocalStorageManager::setValueMapForThread(TValueMap* map) {
  if (platform::SysError error = platform::tlsSet(m_key, map))
    throwTlsError(u"Error storing the thread's value map.", u"CThreadLocalStorageManager::setValueMapForThread",
                  u"TlsSetValue", error);
}

P<IBase> CThreadLocalStorageManager::getValue(int slot) {
  TValueMap* map = getValueMapForThread(false);
  if (!map) return P<IBase>();
  auto it = map->find(slot);
  return it == map->end() ? P<IBase>() : it->second;
}

void CThreadLocalStorageManager::setValue(int slot, IBase* value) {
  P<IBase> old;
  if (!value) {
    TValueMap* map = getValueMapForThread(false);
    if (!map) return;
    auto it = map->find(slot);
    if (it == map->end()) return;
    old = std::move(it->second);
    map->erase(it);
  } else {
    P<IBase>& entry = (*getValueMapForThread(true))[slot];
    old = std::move(entry);
    entry = value;
  }
  // old dies here, after the map is consistent.
}

void CThreadLocalStorageManager::releaseAllThreadValues() {
  while (TValueMap* map = getValueMapForThread(false)) {
    setValueMapForThread(nullptr);
    {
      CMutexLock lock(m_mapsMutex);
      m_maps.erase(map);
    }
    delete map;
  }
}

}  // namespace qo
