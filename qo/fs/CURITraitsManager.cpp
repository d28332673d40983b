#include "qo/fs/CURITraitsManager.h"

#include <cassert>

#include "qo/core/CSafeGlobalSlot.h"
#include "qo/fs/CURITraits_Empty.h"
#include "qo/fs/CURITraits_FTP.h"
#include "qo/fs/CURITraits_File.h"
#include "qo/fs/CURITraits_Generic.h"
#include "qo/fs/CURITraits_HTTP.h"
#include "qo/thread/CMutexLock.h"

namespace qo {

static CSafeGlobalSlot g_instanceSlot;

CURITraitsManager::CURITraitsManager() : m_generic(new CURITraits_Generic) {
  m_traits[u""] = P<IURITraits>(new CURITraits_Empty);
  m_traits[u"file"] = P<IURITraits>(new CURITraits_File);
  m_traits[u"http"] = P<IURITraits>(new CURITraits_HTTP(80));
  m_traits[u"https"] = P<IURITraits>(new CURITraits_HTTP(443));
  m_traits[u"ftp"] = P<IURITraits>(new CURITraits_FTP);
}

CURITraitsManager::~CURITraitsManager() = default;

std::atomic<void*> CURITraitsManager::g_pInstance{nullptr};

P<CURITraitsManager> const& CURITraitsManager::getSlow() {
  return TSafeGlobal<CURITraitsManager>::get(g_instanceSlot, g_pInstance);
}

void CURITraitsManager::disposeGlobalInstance() { g_instanceSlot.dispose(); }

P<IURITraits> CURITraitsManager::getTraitsForScheme(String const& scheme) const {
  CMutexLock lock(m_mutex);
  auto it = m_traits.find(scheme);
  return it != m_traits.end() ? it->second : m_generic;
}

void CURITraitsManager::registerTraits(String const& scheme, P<IURITraits> const& traits) {
  assert(traits);
  CMutexLock lock(m_mutex);
  m_traits[scheme.Lower()] = traits;
}

}  // namespace qo
