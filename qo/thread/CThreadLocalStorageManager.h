// qo/thread/CThreadLocalStorageManager.h - the per-thread value maps behind
// CThreadLocalStorage.
//
// One native thread-local index (TlsAlloc / a pthread key) holds, per
// thread, a hash map from slot number to P<IBase>. Slots are numbered by a
// counter and never reused. The map is created on a thread's first store and
// dropped, with every value in it, by releaseAllThreadValues(): each CThread
// does that at its end. A thread started otherwise (std::thread, the OS)
// has its map dropped when it ends, on that thread. Maps still present when
// the manager dies are dropped then.
//
//   int slot = CThreadLocalStorageManager::get()->createSlot();
// Use CThreadLocalStorage rather than slots directly.
#ifndef QO_THREAD_CTHREADLOCALSTORAGEMANAGER_H
#define QO_THREAD_CTHREADLOCALSTORAGEMANAGER_H

#include <atomic>
#include <unordered_map>
#include <unordered_set>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/platform/ThreadLocal.h"
#include "qo/thread/CMutex.h"

namespace qo {

/// Process-wide owner of the per-thread value maps. Thread-safe.
class QO_API CThreadLocalStorageManager : public CBase {
public:
  using TValueMap = std::unordered_map<int, P<IBase>>;

  /// Allocates the native index. Throws CSystemError (function
  /// "CThreadLocalStorageManager constructor", api "TlsAlloc").
  CThreadLocalStorageManager();
  /// Drops every map still present (on the calling thread) and frees the
  /// index. No thread may use the manager any more.
  ~CThreadLocalStorageManager() override;
  CThreadLocalStorageManager(CThreadLocalStorageManager const&) = delete;
  CThreadLocalStorageManager& operator=(CThreadLocalStorageManager const&) = delete;

  /// The process-wide manager, created on first use. Thread-safe.
  static P<CThreadLocalStorageManager> const& get();
  /// Disposes the process-wide manager (holders of a P keep theirs); the
  /// next get() creates a new one. Not thread-safe with get().
  static void disposeGlobal();

  /// A new slot number, unique for this manager. Thread-safe.
  [[nodiscard]] int createSlot();

  /// The calling thread's value in slot, or null. Thread-safe.
  [[nodiscard]] P<IBase> getValue(int slot);
  /// Stores value (shared) for the calling thread; null removes it. A
  /// replaced value is released after the map is consistent again, so its
  /// destructor may use thread-local storage. Throws CSystemError when the
  /// thread's map cannot be stored. Thread-safe.
  void setValue(int slot, IBase* value);

  /// Drops the calling thread's map with all its values. Values stored by
  /// their destructors meanwhile are dropped too. Throws CSystemError when
  /// the native index cannot be cleared. Thread-safe.
  void releaseAllThreadValues();

  /// The calling thread's map; null when it has none and create is false.
  /// The map belongs to the calling thread only. Throws CSystemError
  /// (function "CThreadLocalStorageManager::getValueMapForThread", api
  /// "TlsSetValue") when a new map cannot be stored.
  TValueMap* getValueMapForThread(bool create);
  /// Makes map the calling thread's map (null: none); the caller frees the
  /// previous one. Throws CSystemError (function
  /// "CThreadLocalStorageManager::setValueMapForThread", api "TlsSetValue").
  void setValueMapForThread(TValueMap* map);

private:
  static void releaseMapAtThreadExit(void* map);

  platform::NativeTlsKey m_key;
  CThreadLocalStorageManager* m_pNextLive = nullptr;  // all live managers, for thread ends
  std::atomic<int> m_slotCounter{0};
  CMutex m_mapsMutex;  // guards m_maps
  std::unordered_set<TValueMap*> m_maps;
};

}  // namespace qo

#endif  // QO_THREAD_CTHREADLOCALSTORAGEMANAGER_H
