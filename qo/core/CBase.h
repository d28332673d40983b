// qo/core/CBase.h - the reference count behind every qo object.
//
// Every concrete class derives from CBase. The count starts at 1 in every
// constructor (copies included): a heap object hands that reference to its
// first P (`P<CFoo> p(new CFoo)`), while an object on the stack or inside
// another keeps it forever, so P's that borrow it for a while move the count
// 1 -> 2 -> 1 and never delete it.
//
// The last release biases the count to 0xC0000000 before deleteThis() runs,
// so addRef/release pairs made during destruction (a destructor that wraps
// `this` in a P for a moment) can never reach 1 -> 0 again. A class that
// overrides deleteThis() may keep the object alive with
// cancelDeleteThisAndReturnNewReference().
//
// Thread-safe: the count changes only by atomic read-modify-write.
#ifndef QO_CORE_CBASE_H
#define QO_CORE_CBASE_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "qo/core/Export.h"
#include "qo/core/IBase.h"
#include "qo/core/P.h"

namespace qo {

class QO_API CBase : public virtual IBase {
public:
  /// Tag for the allocation form that heap-only classes route through.
  struct RawNew {};

  CBase() noexcept : m_refCount(1) {}
  /// A copy starts with its own count of 1; the source's count is not copied.
  CBase(CBase const&) noexcept : IBase(), m_refCount(1) {}
  /// Copies nothing; the target keeps its count.
  CBase& operator=(CBase const&) noexcept { return *this; }
  ~CBase() override;

  /// One atomic increment.
  void addRef() const override { m_refCount.fetch_add(1, std::memory_order_seq_cst); }
  /// One atomic decrement; the last reference biases the count and calls
  /// deleteThis().
  void release() const override {
    if (m_refCount.fetch_sub(1, std::memory_order_seq_cst) == 1) releaseLast();
  }
  /// True: CBase vetoes no cast. Classes override it to refuse given types.
  bool checkCastAllowed(std::type_info const& type) const override;

  /// The current count, for tests and diagnostics only: it may change at
  /// any moment on another thread.
  std::int32_t getRefCountForDebugging() const noexcept { return m_refCount.load(std::memory_order_relaxed); }

  static void* operator new(std::size_t size);
  static void* operator new(std::size_t size, RawNew const&);
  static void operator delete(void* p) noexcept;
  static void operator delete(void* p, RawNew const&) noexcept;

protected:
  /// Called once the last reference is gone. Default: delete this. An
  /// override may keep the object with cancelDeleteThisAndReturnNewReference.
  virtual void deleteThis();
  /// Inside deleteThis(): undoes the bias so the count is exactly 1 again
  /// and returns a P owning that reference (no further addRef). Dropping
  /// that P runs the ordinary release path again.
  [[nodiscard]] P<IBase> cancelDeleteThisAndReturnNewReference();

private:
  void releaseLast() const;

  mutable std::atomic<std::int32_t> m_refCount;
};

}  // namespace qo

#endif  // QO_CORE_CBASE_H
