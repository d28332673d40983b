#include "qo/log/CCrashManager.h"

#include <exception>

#include "qo/core/CSafeGlobalSlot.h"
#include "qo/platform/Minidump.h"
#include "qo/thread/CMutexLock.h"

namespace qo {

namespace {

// The manager whose hooks are installed; the hooks must not create one.
std::atomic<CCrashManager*> g_pHookedManager{nullptr};

CSafeGlobalSlot g_instanceSlot;

// How long a finished report waits for reports on other threads before it
// lets the process end.
constexpr int kWaitForOthersMillis = 10000;

}  // namespace

P<CCrashManager> const& CCrashManager::get() { return TSafeGlobal<CCrashManager>::get(g_instanceSlot); }

void CCrashManager::disposeGlobalInstance() { g_instanceSlot.dispose(); }

CCrashManager::CCrashManager() {
  for (auto& taken : m_slotTaken) taken = false;
}

CCrashManager::~CCrashManager() {
  deinitHook();
  m_pHandler = nullptr;
}

void CCrashManager::initHook() {
  CMutexLock lock(m_mutex);
  deinitHook();
  platform::CrashHooks hooks;
  hooks.onFault = &globalCrashHook;
  hooks.onPureCall = &globalPureCallHook;
  hooks.onInvalidParameter = &globalInvalidParamHook;
  hooks.onUnexpected = &globalUnexpectedHook;
  platform::crashPrepareMinidump();
  g_pHookedManager = this;
  platform::crashInstallHooks(hooks, m_previousHooks);
  m_previousHooks.terminateHandler = reinterpret_cast<void*>(std::set_terminate(&globalTerminateHook));
  m_hooked = true;
  ensureThreadInitialized();
}

void CCrashManager::deinitHook() {
  CMutexLock lock(m_mutex);
  if (!m_hooked) return;
  std::set_terminate(reinterpret_cast<std::terminate_handler>(m_previousHooks.terminateHandler));
  platform::crashRestoreHooks(m_previousHooks);
  m_hooked = false;
  CCrashManager* self = this;
  g_pHookedManager.compare_exchange_strong(self, nullptr);
}

bool CCrashManager::isHooked() const {
  CMutexLock lock(m_mutex);
  return m_hooked;
}

void CCrashManager::setGlobalHandler(ICrashHandler* handler) {
  CMutexLock lock(m_mutex);
  P<ICrashHandler> const keep = P<ICrashHandler>::share(handler);
  m_pHandler = handler;
  m_globalHandler = keep;
}

P<ICrashHandler> CCrashManager::getGlobalHandler() const {
  CMutexLock lock(m_mutex);
  return m_globalHandler;
}

void CCrashManager::registerPureVirtualFunction(void const* function) {
  platform::crashRegisterPureVirtualFunction(function);
}

void CCrashManager::ensureThreadInitialized() { platform::crashPrepareThread(&translateWindowsStructuredException); }

P<ICrashHandler> CCrashManager::beginHandleCrash(int& slot) noexcept {
  slot = -1;
  // Taking a reference is one atomic increment: safe on the crash path.
  P<ICrashHandler> handler = P<ICrashHandler>::share(m_pHandler.load());
  if (!handler) return handler;
  for (int i = 0; i < kSlotCount; ++i) {
    bool expected = false;
    if (m_slotTaken[i].compare_exchange_strong(expected, true)) {
      slot = i;
      return handler;
    }
  }
  return P<ICrashHandler>();
}

void CCrashManager::report(int slot, ICrashHandler& handler) noexcept {
  ++m_activeReports;
  m_tools[slot].clear();
  try {
    handler.handleCrash(m_infos[slot], m_tools[slot]);
  } catch (...) {
    // A handler must not throw; the crash is reported as far as it got.
  }
  m_tools[slot].clear();
  --m_activeReports;
  // The first report to return ends the process; give reports of crashes on
  // other threads a chance to finish first.
  for (int waited = 0; m_activeReports.load() > 0 && waited < kWaitForOthersMillis; waited += 10) {
    CCrashTools::sleep(10);
  }
}

long CCrashManager::handleCrash(platform::CrashContext const& exception) noexcept {
  int slot = -1;
  P<ICrashHandler> const handler = beginHandleCrash(slot);
  if (handler) {
    m_infos[slot].init(exception, platform::crashTimeNow());
    report(slot, *handler);
  }
  return 0;
}

void CCrashManager::handleCRTCrash(CCrashInfo::CRTCrash kind) noexcept {
  {
    int slot = -1;
    P<ICrashHandler> const handler = beginHandleCrash(slot);
    if (handler) {
      m_infos[slot].init(kind, platform::crashTimeNow());
      report(slot, *handler);
    }
  }
  platform::crashAbort();
}

void CCrashManager::handleCRTInvalidParam(wchar_t const* expression, wchar_t const* function, wchar_t const* file,
                                          unsigned line) noexcept {
  {
    int slot = -1;
    P<ICrashHandler> const handler = beginHandleCrash(slot);
    if (handler) {
      m_infos[slot].initCRTInvalidParam(expression, function, file, line, platform::crashTimeNow());
      report(slot, *handler);
    }
  }
  platform::crashAbort();
}

void CCrashManager::globalCrashHook(platform::CrashContext const& exception) {
  if (CCrashManager* manager = g_pHookedManager.load()) manager->handleCrash(exception);
}

void CCrashManager::globalPureCallHook() {
  if (CCrashManager* manager = g_pHookedManager.load()) manager->handleCRTCrash(CCrashInfo::kCRTPureCall);
  platform::crashAbort();
}

void CCrashManager::globalInvalidParamHook(wchar_t const* expression, wchar_t const* function, wchar_t const* file,
                                           unsigned line) {
  if (CCrashManager* manager = g_pHookedManager.load()) {
    manager->handleCRTInvalidParam(expression, function, file, line);
  }
  platform::crashAbort();
}

void CCrashManager::globalTerminateHook() {
  CCrashInfo::CRTCrash const kind =
      platform::crashIsInPureVirtualCall() ? CCrashInfo::kCRTPureCall : CCrashInfo::kCRTTerminate;
  if (CCrashManager* manager = g_pHookedManager.load()) manager->handleCRTCrash(kind);
  platform::crashAbort();
}

void CCrashManager::globalUnexpectedHook() {
  if (CCrashManager* manager = g_pHookedManager.load()) manager->handleCRTCrash(CCrashInfo::kCRTUnexpected);
  platform::crashAbort();
}

void CCrashManager::translateWindowsStructuredException(unsigned code, void* exceptionPointers) {
  if (CCrashManager* manager = g_pHookedManager.load()) {
    platform::CrashContext context;
    context.exceptionPointers = exceptionPointers;
    manager->handleCrash(context);
  }
  platform::crashTerminateProcess(code);
}

}  // namespace qo
