#include "qo/core/CQoInit.h"

#include <clocale>
#include <cstring>

#include "qo/core/CSafeGlobalDisposer.h"
#include "qo/core/CSafeGlobalSlot.h"
#include "qo/fs/CNetworkAutoMounter.h"
#include "qo/platform/Debug.h"
#include "qo/platform/ErrorMode.h"
#include "qo/sys/CSystemSignalReceiver.h"
#include "qo/sys/CWindowsComInit.h"
#include "qo/sys/CWindowsComSecurityInit.h"
#include "qo/thread/CThreadList.h"
#include "qo/thread/CThreadLocalStorageManager.h"
#include "qo/util/CCachedEnvVars.h"

namespace qo {

CQoInit::CQoInit() {
  // The thread list first, so it is disposed after everything that may still
  // own threads.
  (void)CThreadList::get();
  (void)CQoInitHelper::get();
}

CQoInit::~CQoInit() {
  // Shares connected on demand go first, while everything they need lives.
  CNetworkAutoMounter::get()->_deinit();
  if (!CThreadList::get()->stopAllThreads(30000, true)) {
    platform::debugOutput(
        "\n\nWARNING, WARNING, WARNING: not all threads could be stopped in ~CQoInit. Deadlocks, crashes and "
        "memory leaks may occur.\n\n\n");
  }
  CSafeGlobalSlot::disposeAll();
  CSafeGlobalDisposer::get().disposeAll();
}

CQoInit::CQoInitHelper::CQoInitHelper() {
  // Keep a locale the application chose; leave "C" for the user's own.
  char const* current = std::setlocale(LC_ALL, nullptr);
  if (current == nullptr || std::strcmp(current, "C") == 0) std::setlocale(LC_ALL, "");
  // TODO(#7): prepare the calling thread for crash handling here.
  platform::suppressCriticalErrorDialogs();
  // COM before its security, both before anything that may use COM; the
  // signal receiver early, so that no notice is missed.
  (void)CWindowsComInit::get();
  (void)CWindowsComSecurityInit::get();
  (void)CThreadLocalStorageManager::get();
  (void)CSystemSignalReceiver::get();
  (void)CCachedEnvVars::get();
}

CQoInit::CQoInitHelper::~CQoInitHelper() { CThreadLocalStorageManager::get()->releaseAllThreadValues(); }

P<CQoInit::CQoInitHelper> const& CQoInit::CQoInitHelper::get() {
  static CSafeGlobalSlot g_pInstanceSlot;
  return TSafeGlobal<CQoInitHelper>::get(g_pInstanceSlot);
}

}  // namespace qo
