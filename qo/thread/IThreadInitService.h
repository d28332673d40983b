// qo/thread/IThreadInitService.h - the process's hook for preparing each
// library thread.
//
// Every CThread calls IThreadInitService::get()->initThread(name) on its own
// thread before its body runs, and holds the service until the thread ends.
// The default service (CDummyThreadInitService) does nothing; an application
// installs its own:
//   IThreadInitService::getGlobalSlot()->set(newP<CMyInit>());
#ifndef QO_THREAD_ITHREADINITSERVICE_H
#define QO_THREAD_ITHREADINITSERVICE_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/IBase.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/thread/CMutex.h"

namespace qo {

/// Prepares a thread as it begins. Implementations must be thread-safe.
class QO_API IThreadInitService : public virtual IBase {
public:
  /// Called on the new thread with its name (may be empty) before the body.
  /// An exception becomes the thread's error and the body does not run.
  virtual void initThread(String const& threadName) = 0;

  /// Holder of the installed service. Thread-safe.
  class QO_API CGlobalSlot : public CBase {
  public:
    CGlobalSlot();
    ~CGlobalSlot() override;
    /// The installed service; installs a CDummyThreadInitService when none
    /// is.
    [[nodiscard]] P<IThreadInitService> get();
    /// Installs service (null: back to the default on the next get()).
    /// Threads already running keep the service they took.
    void set(P<IThreadInitService> const& service);

  private:
    CMutex m_mutex;
    P<IThreadInitService> m_service;
  };

  /// The installed service (getGlobalSlot()->get()). Thread-safe.
  [[nodiscard]] static P<IThreadInitService> get();
  /// The process-wide slot, created on first use. Thread-safe.
  [[nodiscard]] static P<CGlobalSlot> const& getGlobalSlot();
  /// Disposes the slot with its service; the next use starts from the
  /// default. Not thread-safe with the other two.
  static void disposeGlobalSlot();
};

}  // namespace qo

#endif  // QO_THREAD_ITHREADINITSERVICE_H
