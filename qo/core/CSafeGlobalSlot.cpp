#include "qo/core/CSafeGlobalSlot.h"

#include "qo/thread/threadYield.h"

namespace qo {

std::atomic<CSafeGlobalSlot*> CSafeGlobalSlot::g_pLast{nullptr};

void* CSafeGlobalSlot::useSlow(CreateFunc create, DisposeFunc dispose, std::atomic<void*>* mirror) {
  std::uint32_t previous = m_flags.fetch_or(kClaimed);
  if (previous & kClaimed) {
    // Another thread creates (or created) the instance.
    for (;;) {
      std::uint32_t flags = m_flags.load();
      if (!(flags & kReady)) {
        threadYield(true);
        continue;
      }
      if (void* instance = m_instance.load(std::memory_order_acquire)) return instance;
      // Disposed since it was ready: whoever clears kReady first creates it
      // again; the others wait for kReady as above.
      if (m_flags.compare_exchange_weak(flags, flags & ~kReady)) break;
    }
  }
  void* instance = create();
  m_dispose = dispose;
  // The mirror before the slot: whoever takes the instance out of the slot
  // then finds it in the mirror too and clears both.
  if (mirror != nullptr) {
    m_pMirror.store(mirror, std::memory_order_relaxed);
    mirror->store(instance, std::memory_order_release);
  }
  m_instance.store(instance, std::memory_order_release);
  std::atomic_thread_fence(std::memory_order_seq_cst);
  link();
  m_flags.fetch_or(kReady);
  return instance;
}

void CSafeGlobalSlot::link() {
  // A slot disposed on its own stays in the list; link it only once.
  if (m_flags.fetch_or(kLinked) & kLinked) return;
  // Slots of different singletons may be created at once on several threads.
  CSafeGlobalSlot* head = g_pLast.load();
  do {
    m_pNext = head;
  } while (!g_pLast.compare_exchange_weak(head, this));
}

void* CSafeGlobalSlot::take() {
  void* instance = m_instance.exchange(nullptr);
  if (instance == nullptr) return nullptr;
  if (std::atomic<void*>* mirror = m_pMirror.load(std::memory_order_relaxed)) mirror->store(nullptr);
  return instance;
}

void CSafeGlobalSlot::dispose() {
  if (void* instance = take()) m_dispose(instance);
}

void CSafeGlobalSlot::disposeAll() {
  while (CSafeGlobalSlot* slot = g_pLast.load()) {
    g_pLast.store(slot->m_pNext);
    slot->m_pNext = nullptr;
    slot->m_flags.fetch_and(~kLinked);
    if (void* instance = slot->take()) slot->m_dispose(instance);
  }
}

}  // namespace qo
