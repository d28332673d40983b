// qo/log/CCrashManager.h - catches crashes and hands them to the crash
// handler.
//
// The process-wide manager installs the crash hooks (initHook) and, on a
// crash, fills one of its ten preallocated slots and calls the global
// handler (setGlobalHandler) on the crashing thread; then the process ends
// as it would have without the hooks. Hooks:
//   Windows: the unhandled-exception filter, the runtime's pure-call,
//     invalid-parameter, terminate and unexpected handlers, and per thread
//     (with compilers that have MSVC's structured-exception translation) the
//     translator. MinGW's g++ does not route structured exceptions through
//     C++ handlers, so there the unhandled-exception filter sees them.
//   POSIX: the fault signals SIGSEGV, SIGBUS, SIGFPE, SIGILL and SIGABRT
//     (on an alternate signal stack, so a stack overflow is reported too)
//     and the terminate and unexpected handlers. libstdc++ reports a pure
//     virtual call through std::terminate; the terminate hook tells it
//     apart by finding __cxa_pure_virtual on the stack, and reports
//     "crt purecall". An abort() that no hook caused is reported as
//     "crt terminate".
//   The unexpected handler is installed only where the standard library
//   still declares std::set_unexpected (libstdc++ up to C++17; libc++ and
//   MSVC's library only when asked to keep it).
// Each library thread calls ensureThreadInitialized() when it starts
// (CThread does); a thread that did not can still report its crashes,
// except a stack overflow on POSIX.
// The C++ runtime's terminate handler is per module where modules link the
// runtime statically (MinGW's -static-libstdc++): such a module must set
// std::set_terminate(&CCrashManager::globalTerminateHook) itself.
//
// Nothing on the crash path allocates, locks or throws. Up to ten threads
// can report at once; a crash that finds no free slot, or no handler, is
// not reported and the process ends.
//
//   CCrashManager::get()->setGlobalHandler(newP<CCrashHandler>(...).get());
//   CCrashManager::get()->initHook();
//   ...
//   CCrashManager::get()->deinitHook();
#ifndef QO_LOG_CCRASHMANAGER_H
#define QO_LOG_CCRASHMANAGER_H

#include <atomic>
#include <exception>
#if defined(__GLIBCXX__)
#  include <cxxabi.h>
#endif

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/log/CCrashInfo.h"
#include "qo/log/CCrashTools.h"
#include "qo/log/ICrashHandler.h"
#include "qo/platform/Crash.h"
#include "qo/thread/CMutex.h"

namespace qo {

/// The process's crash hooks and slots. Thread-safe.
class QO_API CCrashManager : public CBase {
public:
  /// Crash slots: threads that can report at the same time.
  static constexpr int kSlotCount = 10;

  /// The process-wide instance (created on first use). Thread-safe.
  static P<CCrashManager> const& get();
  /// Removes the hooks and drops the instance (library shutdown).
  static void disposeGlobalInstance();

  CCrashManager();
  /// Restores the hooks when they are still installed.
  ~CCrashManager() override;
  CCrashManager(CCrashManager const&) = delete;
  CCrashManager& operator=(CCrashManager const&) = delete;

  /// Installs the hooks (after removing ones installed before), keeping the
  /// previous values, and prepares the calling thread
  /// (ensureThreadInitialized). Thread-safe.
  void initHook();
  /// Restores the previous hooks; nothing when not installed. Thread-safe.
  void deinitHook();
  /// Whether the hooks are installed. Thread-safe.
  bool isHooked() const;

  /// The handler that receives every crash; null for none (crashes are then
  /// not reported). Kept by reference. Replace it only while no crash can
  /// be in progress. Thread-safe.
  void setGlobalHandler(ICrashHandler* handler);
  /// The current handler (may be null). Thread-safe.
  P<ICrashHandler> getGlobalHandler() const;

  /// Prepares the calling thread for crash reporting (POSIX: its alternate
  /// signal stack; Windows: stack reserved for the filter and, with MSVC,
  /// the structured-exception translator). Call at the start of every
  /// thread; later calls do nothing. Thread-safe.
  static void ensureThreadInitialized();

  /// Reports a fault the OS raised and returns 0, so that the platform's
  /// own handling goes on (the process ends). Crash path.
  long handleCrash(platform::CrashContext const& exception) noexcept;
  /// Reports a runtime crash, then abort(). Crash path.
  [[noreturn]] void handleCRTCrash(CCrashInfo::CRTCrash kind) noexcept;
  /// Reports an invalid parameter passed to a runtime function, then
  /// abort(). Crash path.
  [[noreturn]] void handleCRTInvalidParam(wchar_t const* expression, wchar_t const* function, wchar_t const* file,
                                          unsigned line) noexcept;

  /// The handler (kept by the returned P) and a free slot number; null and
  /// slot -1 when there is no handler or every slot is taken. A slot stays
  /// taken until the process ends. Crash path.
  P<ICrashHandler> beginHandleCrash(int& slot) noexcept;

  /// Hooks the C++ runtime of the module that calls it (compiled inline into
  /// the caller): needed in every module that links its own copy of the
  /// runtime (MinGW's -static-libstdc++), whose terminate handler and
  /// pure-virtual-call function are its own. Call after initHook(); harmless
  /// where the runtime is shared. Not undone by deinitHook(). Thread-safe.
  static void hookCallingModuleRuntime() {
    std::set_terminate(&globalTerminateHook);
#if defined(__GLIBCXX__)
    registerPureVirtualFunction(reinterpret_cast<void const*>(&__cxxabiv1::__cxa_pure_virtual));
#endif
  }
  /// Registers a copy of the runtime's pure-virtual-call function, so the
  /// terminate hook recognises a pure virtual call that ends in it.
  /// Thread-safe.
  static void registerPureVirtualFunction(void const* function);

  /// The slots (for handlers and tests).
  CCrashInfo& getCrashInfo(int slot) noexcept { return m_infos[slot]; }
  CCrashTools& getCrashTools(int slot) noexcept { return m_tools[slot]; }

  // The hook entry points; each forwards to the installed manager.
  static void globalCrashHook(platform::CrashContext const& exception);
  static void globalPureCallHook();
  static void globalInvalidParamHook(wchar_t const* expression, wchar_t const* function, wchar_t const* file,
                                     unsigned line);
  static void globalTerminateHook();
  static void globalUnexpectedHook();
  /// The structured-exception translator: reports, then ends the process
  /// with the exception code.
  static void translateWindowsStructuredException(unsigned code, void* exceptionPointers);

private:
  void report(int slot, ICrashHandler& handler) noexcept;

  mutable CMutex m_mutex;
  CCrashInfo m_infos[kSlotCount];
  CCrashTools m_tools[kSlotCount];
  std::atomic<bool> m_slotTaken[kSlotCount];
  std::atomic<int> m_activeReports{0};
  platform::CrashSavedHooks m_previousHooks;
  bool m_hooked = false;
  P<ICrashHandler> m_globalHandler;
  // The crash path reads the handler without the lock.
  std::atomic<ICrashHandler*> m_pHandler{nullptr};
};

}  // namespace qo

#endif  // QO_LOG_CCRASHMANAGER_H
