// qo/thread/CWindowsSemaphore.h - a counting semaphore of the OS, unnamed
// or named (shared between processes).
//
//   CWindowsSemaphore pool(u"", 4, 4);                // unnamed, 4 permits
//   CWindowsSemaphore shared(u"qo.sem.x", 1, 1);      // created or opened
//   CWindowsSemaphore other(u"qo.sem.x");             // must exist
//   if (pool.decValue(-1)) { ...; pool.incValue(); }
// On POSIX a name outlives its users until removeName() (see
// qo/platform/Semaphore.h for how names map).
#ifndef QO_THREAD_CWINDOWSSEMAPHORE_H
#define QO_THREAD_CWINDOWSSEMAPHORE_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/String.h"
#include "qo/thread/ISemaphore.h"

namespace qo {

namespace platform {
struct NativeSemaphore;
}

/// An OS semaphore. Thread-safe; not copyable.
class QO_API CWindowsSemaphore : public CBase, public ISemaphore {
public:
  /// Creates a semaphore with initialValue permits, at most maxValue
  /// (1 .. 0x7fffffff); with a non-empty name an existing one of that name is
  /// opened instead (wasCreated() false). Throws CSystemError (function
  /// "CWindowsSemaphore::constructCreateOrOpen", api "CreateSemaphore").
  CWindowsSemaphore(String const& name, unsigned int initialValue, unsigned int maxValue);
  /// Opens the existing semaphore of that name. Throws CSystemError
  /// (function "CWindowsSemaphore::constructOpen", api "OpenSemaphore").
  explicit CWindowsSemaphore(String const& name);
  ~CWindowsSemaphore() override;
  CWindowsSemaphore(CWindowsSemaphore const&) = delete;
  CWindowsSemaphore& operator=(CWindowsSemaphore const&) = delete;

  /// Takes one permit within timeoutMillis (-1: no limit). Throws
  /// CSystemError (function "CWindowsSemaphore::decValue", api
  /// "WaitForSingleObject").
  [[nodiscard]] bool decValue(int timeoutMillis) override;
  /// Returns one permit. Throws CSystemError (function
  /// "CWindowsSemaphore::incValue", api "ReleaseSemaphore"), also when that
  /// would exceed the maximum.
  void incValue() override;

  /// False when the constructor opened an existing named semaphore.
  [[nodiscard]] bool wasCreated() const noexcept { return m_created; }
  [[nodiscard]] String const& getName() const noexcept { return m_name; }

  /// POSIX: removes the name, so later opens fail and the semaphore goes
  /// with its last user. Windows: nothing (names go with their last handle).
  /// Never throws.
  static void removeName(String const& name) noexcept;

private:
  void constructCreateOrOpen(unsigned int initialValue, unsigned int maxValue);
  void constructOpen();

  String m_name;
  platform::NativeSemaphore* m_native = nullptr;
  bool m_created = false;
};

}  // namespace qo

#endif  // QO_THREAD_CWINDOWSSEMAPHORE_H
