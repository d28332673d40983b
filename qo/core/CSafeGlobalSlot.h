// qo/core/CSafeGlobalSlot.h - lazily created process-wide instances that are
// torn down in a fixed order.
//
// A slot is a plain static object whose all-zero state needs no constructor,
// so it works from any static initialiser. The first use() creates the
// instance; later calls cost one pointer test. disposeAll() destroys every
// instance, newest first, at library shutdown (CQoInit); a slot used again
// afterwards creates a fresh instance that the next disposeAll() destroys.
//
// The singleton convention:
//   P<CFoo> const& CFoo::get() {
//     static CSafeGlobalSlot g_pInstanceSlot;
//     return TSafeGlobal<CFoo>::get(g_pInstanceSlot);
//   }
// TSafeGlobal keeps the instance in a heap P<CFoo> and releases it on dispose.
//
// A hot singleton reached from outside the library gets an inline get():
// the slot also publishes its instance in a "mirror" (an exported
// std::atomic<void*> of the class), which the accessor reads inline, so a
// created singleton costs the caller one load and one test:
//   static P<CFoo> const& get() {                       // in the header
//     P<CFoo> const* p = TSafeGlobal<CFoo>::peek(g_pInstance);
//     return p ? *p : getSlow();
//   }
//   P<CFoo> const& CFoo::getSlow() {                     // in the source
//     static CSafeGlobalSlot g_pInstanceSlot;
//     return TSafeGlobal<CFoo>::get(g_pInstanceSlot, g_pInstance);
//   }
// The slot clears the mirror before it disposes the instance.
#ifndef QO_CORE_CSAFEGLOBALSLOT_H
#define QO_CORE_CSAFEGLOBALSLOT_H

#include <atomic>
#include <cstdint>

#include "qo/core/Export.h"
#include "qo/core/P.h"

namespace qo {

/// Holder of one lazily created instance. Thread-safe for use() and
/// dispose(); disposeAll() must not race with use() of the same slots.
class QO_API CSafeGlobalSlot {
public:
  using CreateFunc = void* (*)();
  using DisposeFunc = void (*)(void*);

  enum : std::uint32_t {
    kClaimed = 1u,  ///< Creation claimed by some thread.
    kReady = 2u,    ///< Creation finished (the instance may be disposed since).
  };

  constexpr CSafeGlobalSlot() noexcept = default;
  CSafeGlobalSlot(CSafeGlobalSlot const&) = delete;
  CSafeGlobalSlot& operator=(CSafeGlobalSlot const&) = delete;

  /// The instance, created with create() on first use (or after a dispose).
  /// Concurrent first callers: one creates, the others yield until it is
  /// ready and all get the same instance. create() must not throw: if it
  /// does, the exception reaches the creating caller and the slot stays
  /// claimed, so later callers wait forever.
  void* use(CreateFunc create, DisposeFunc dispose) {
    void* instance = m_instance.load(std::memory_order_acquire);
    if (instance != nullptr) return instance;
    return useSlow(create, dispose, nullptr);
  }
  /// As use(), and publishes the instance in mirror (see the top), which the
  /// slot clears before the instance is disposed. Pass the same mirror on
  /// every call.
  void* use(CreateFunc create, DisposeFunc dispose, std::atomic<void*>& mirror) {
    void* instance = m_instance.load(std::memory_order_acquire);
    if (instance != nullptr) return instance;
    return useSlow(create, dispose, &mirror);
  }

  /// Disposes the instance (if any); the slot stays registered and the next
  /// use() creates a new instance.
  void dispose();

  /// Disposes every registered slot, newest first. Slots created meanwhile
  /// (by a dispose function) are disposed in the same call.
  static void disposeAll();

  /// Flag bits (kClaimed | kReady), for tests.
  std::uint32_t getFlags() const noexcept { return m_flags.load() & (kClaimed | kReady); }
  /// The instance or null, without creating it.
  void* peek() const noexcept { return m_instance.load(std::memory_order_acquire); }

protected:
  /// Newest registered slot; heads the list linked through m_pNext.
  static std::atomic<CSafeGlobalSlot*> g_pLast;

private:
  enum : std::uint32_t { kLinked = 4u };  // In the g_pLast list.

  void* useSlow(CreateFunc create, DisposeFunc dispose, std::atomic<void*>* mirror);
  void link();
  // Takes the instance out of the slot and its mirror; null when none.
  void* take();

  std::atomic<std::uint32_t> m_flags{0};
  std::atomic<void*> m_instance{nullptr};
  DisposeFunc m_dispose = nullptr;
  std::atomic<std::atomic<void*>*> m_pMirror{nullptr};
  CSafeGlobalSlot* m_pNext = nullptr;
};

/// The singleton convention for a CBase-derived X built by `new X`.
template <class X>
struct TSafeGlobal {
  static void* create() {
    auto* holder = new P<X>();
    *holder = P<X>(new X);
    return holder;
  }
  static void dispose(void* instance) {
    auto* holder = static_cast<P<X>*>(instance);
    if (holder != nullptr) {
      holder->reset();
      delete holder;
    }
  }
  /// The heap P of the slot; valid until the slot is disposed.
  static P<X> const& get(CSafeGlobalSlot& slot) { return *static_cast<P<X>*>(slot.use(&create, &dispose)); }
  /// As get(slot), publishing the instance in mirror for peek().
  static P<X> const& get(CSafeGlobalSlot& slot, std::atomic<void*>& mirror) {
    return *static_cast<P<X>*>(slot.use(&create, &dispose, mirror));
  }
  /// The heap P published in mirror, or null while there is none (not yet
  /// created, or disposed). One load; for inline accessors. Thread-safe.
  static P<X> const* peek(std::atomic<void*> const& mirror) noexcept {
    return static_cast<P<X> const*>(mirror.load(std::memory_order_acquire));
  }
};

}  // namespace qo

#endif  // QO_CORE_CSAFEGLOBALSLOT_H
