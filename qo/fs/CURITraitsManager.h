// qo/fs/CURITraitsManager.h - the URI traits of each scheme.
//
// One process-wide instance (get()) maps scheme names to IURITraits. It
// starts with "file" (CURITraits_File), "http" and "https" (CURITraits_HTTP
// with 80 and 443), "ftp" (CURITraits_FTP) and "" (CURITraits_Empty); any
// other scheme gets CURITraits_Generic. Register further schemes at start-up:
//   CURITraitsManager::get()->registerTraits(u"smb", newP<CMySmbTraits>());
// The instance lives in a safe global slot and is released at library
// shutdown (disposeGlobalInstance); a later get() creates a fresh one.
//
// Thread-safe.
#ifndef QO_FS_CURITRAITSMANAGER_H
#define QO_FS_CURITRAITSMANAGER_H

#include <atomic>
#include <map>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/CSafeGlobalSlot.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/fs/IURITraits.h"
#include "qo/thread/CMutex.h"

namespace qo {

/// Scheme name -> URI traits. Thread-safe.
class QO_API CURITraitsManager : public CBase {
public:
  /// With the built-in traits listed at the top.
  CURITraitsManager();
  ~CURITraitsManager() override;
  CURITraitsManager(CURITraitsManager const&) = delete;
  CURITraitsManager& operator=(CURITraitsManager const&) = delete;

  /// The process-wide instance, created on first use; once created, an
  /// inline load and test. Thread-safe.
  static P<CURITraitsManager> const& get() {
    P<CURITraitsManager> const* instance = TSafeGlobal<CURITraitsManager>::peek(g_pInstance);
    return instance != nullptr ? *instance : getSlow();
  }
  /// Releases the process-wide instance (library shutdown). Must not race
  /// with get().
  static void disposeGlobalInstance();

  /// The traits registered for scheme (lower case, as CURI stores it), or
  /// the generic traits. Never null. Thread-safe.
  P<IURITraits> getTraitsForScheme(String const& scheme) const;
  /// Adds or replaces the traits of scheme (stored in lower case). traits
  /// must not be null. Thread-safe.
  void registerTraits(String const& scheme, P<IURITraits> const& traits);

private:
  static P<CURITraitsManager> const& getSlow();
  // The instance as the slot publishes it, for get().
  static std::atomic<void*> g_pInstance;

  mutable CMutex m_mutex;
  std::map<String, P<IURITraits>> m_traits;
  P<IURITraits> m_generic;
};

}  // namespace qo

#endif  // QO_FS_CURITRAITSMANAGER_H
