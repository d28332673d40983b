// qo/ipc/CIPCSemaphore.h - a named counting semaphore shared between
// processes.
//
// Every process that opens the same name shares its units; the first one
// fixes the count. On Linux and other POSIX systems a unit taken by a
// process that dies, even by SIGKILL, comes back by itself (each unit is a
// file lock the kernel drops with the process). On Windows it is a named
// kernel semaphore (CreateSemaphoreW), where a dead holder's unit stays
// taken. A unit must be returned through the object that took it.
//
//   CIPCSemaphore jobs(u"backup-jobs", 2);     // at most 2 jobs machine-wide
//   { CSemaphoreLock unit(&jobs); runJob(); }
//
// Thread-safe.
#ifndef QO_IPC_CIPCSEMAPHORE_H
#define QO_IPC_CIPCSEMAPHORE_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/String.h"
#include "qo/thread/ISemaphore.h"

namespace qo {

namespace platform {
struct IPCSemaphore;
}

/// A process-shared counting semaphore. Thread-safe.
class QO_API CIPCSemaphore : public CBase, public ISemaphore {
public:
  /// Opens the semaphore name (up to 80 bytes, no '/' or '\'), creating it
  /// with count units (1 .. 1024) when nobody has it yet. Throws
  /// CSystemError "Error opening IPC semaphore." (function
  /// "CIPCSemaphore", properties "api", "name") when the OS refuses or the
  /// arguments are out of range.
  CIPCSemaphore(String const& name, int count);
  /// Units still held by this object go back.
  ~CIPCSemaphore() override;
  CIPCSemaphore(CIPCSemaphore const&) = delete;
  CIPCSemaphore& operator=(CIPCSemaphore const&) = delete;
  /// Takes a unit, waiting up to timeoutMillis (-1: no limit, 0: only
  /// try). True when taken. Throws CSystemError (function
  /// "CIPCSemaphore::decValue"). Thread-safe.
  [[nodiscard]] bool decValue(int timeoutMillis) override;
  /// Returns a unit taken through this object. Throws CSystemError
  /// (function "CIPCSemaphore::incValue") when it holds none. Thread-safe.
  void incValue() override;
  /// The name given. Thread-safe.
  [[nodiscard]] String getName() const;

private:
  String m_name;
  platform::IPCSemaphore* m_native = nullptr;
};

}  // namespace qo

#endif  // QO_IPC_CIPCSEMAPHORE_H
