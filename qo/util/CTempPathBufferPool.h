// qo/util/CTempPathBufferPool.h - reusable wide-character buffers for
// building file paths.
//
// Path functions need room for the longest Windows path (32767 characters
// and the terminating NUL). Allocating 64-128 KiB for every call is wasted
// work, so they borrow a buffer from this pool for the duration of the call:
// acquire() hands out a pooled buffer (or a new one), and the lease gives
// it back when it ends. The pool keeps at most kMaxPooled idle buffers and
// frees the rest, as it frees a buffer whose size the borrower changed.
// A pooled buffer's contents are whatever the last borrower left.
//
//   CTempPathBufferPool::CLease lease = CTempPathBufferPool::get()->acquire();
//   wchar_t* room = lease.getData();          // lease.getCapacity() chars
//
// Thread-safe: any thread may acquire and end leases at the same time. A
// lease itself is used by one thread at a time.
#ifndef QO_UTIL_CTEMPPATHBUFFERPOOL_H
#define QO_UTIL_CTEMPPATHBUFFERPOOL_H

#include <cstddef>
#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/TBuffer.h"
#include "qo/thread/CMutex.h"

namespace qo {

/// A pool of path-sized wide-character buffers. Thread-safe.
class QO_API CTempPathBufferPool : public CBase {
public:
  // Enumerators rather than static members, so that callers in other
  // modules can take them by reference without importing a variable.
  enum : long long {
    /// Characters in every buffer: the longest Windows path plus its NUL.
    kBufferChars = 32768
  };
  enum : std::size_t {
    /// Idle buffers kept at most.
    kMaxPooled = 8
  };

  /// A borrowed buffer, returned to its pool when the lease ends. Movable,
  /// not copyable. Not thread-safe.
  class QO_API CLease {
  public:
    CLease(CLease&& other) noexcept;
    CLease& operator=(CLease&& other) noexcept;
    CLease(CLease const&) = delete;
    CLease& operator=(CLease const&) = delete;
    ~CLease();  ///< Gives the buffer back.
    /// The buffer's characters; null after the lease was moved away.
    wchar_t* getData() noexcept { return m_buffer ? m_buffer->getData() : nullptr; }
    /// kBufferChars, or 0 after the lease was moved away.
    long long getCapacity() const noexcept { return m_buffer ? m_buffer->getSize() : 0; }
    /// The buffer itself (null after a move); valid while the lease lasts.
    TBuffer<wchar_t>* getBuffer() noexcept { return m_buffer.get(); }

  private:
    friend class CTempPathBufferPool;
    CLease(P<CTempPathBufferPool> const& pool, P<TBuffer<wchar_t>> buffer) noexcept;
    P<CTempPathBufferPool> m_pool;
    P<TBuffer<wchar_t>> m_buffer;
  };

  CTempPathBufferPool();
  ~CTempPathBufferPool() override;
  CTempPathBufferPool(CTempPathBufferPool const&) = delete;
  CTempPathBufferPool& operator=(CTempPathBufferPool const&) = delete;

  /// The process-wide pool. Thread-safe.
  static P<CTempPathBufferPool> const& get();
  /// A buffer of kBufferChars characters, pooled or new. Throws
  /// std::bad_alloc when memory runs out. Thread-safe.
  [[nodiscard]] CLease acquire();
  /// How many idle buffers the pool holds now. Thread-safe.
  std::size_t getIdleCount() const;

private:
  void giveBack(P<TBuffer<wchar_t>> buffer) noexcept;
  mutable CMutex m_mutex;
  std::vector<P<TBuffer<wchar_t>>> m_idle;
};

}  // namespace qo

#endif  // QO_UTIL_CTEMPPATHBUFFERPOOL_H
