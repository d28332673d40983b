// qo/core/TRecyclePool.h - a pool that reuses items instead of building new
// ones.
//
// get() hands out an item that came back (see TRecycleItem) or, when there
// is none, a new one. Up to maxFree items that came back are kept; more die.
// The pool lives while anyone holds it or while any of its items is still
// out: when its last reference goes with items out, its deleteThis() keeps
// it (cancelDeleteThisAndReturnNewReference()) until the last item comes
// back, and frees the items it kept at once. Whatever it keeps dies with it.
//
//   P<TRecyclePool<CPacket>> pool = newP<TRecyclePool<CPacket>>(8);
//   {
//     P<CPacket> packet = pool->get();
//   }                                 // back in the pool
//   P<CPacket> again = pool->get();   // the same object
//
// Thread-safe: items may be got and dropped on any thread.
#ifndef QO_CORE_TRECYCLEPOOL_H
#define QO_CORE_TRECYCLEPOOL_H

#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/P.h"
#include "qo/core/TRecycleItem.h"

namespace qo {

/// Pool of TItem, which derives from TRecycleItem<...>.
template <class TItem>
class TRecyclePool : public CBase, private _IRecycleHome {
public:
  /// Makes a new item (owning its first reference).
  using TCreate = std::function<TItem*()>;

  /// maxFree: how many items that came back are kept (-1: no limit, 0:
  /// none). create: makes a new item (default: new TItem()).
  explicit TRecyclePool(int maxFree = -1, TCreate create = [] { return new TItem(); })
      : m_maxFree(maxFree), m_create(std::move(create)) {}
  TRecyclePool(TRecyclePool const&) = delete;
  TRecyclePool& operator=(TRecyclePool const&) = delete;
  /// Frees the items kept.
  ~TRecyclePool() override = default;

  /// An item that came back (last in, first out), else a new one. Throws
  /// what creating throws. Thread-safe.
  [[nodiscard]] P<TItem> get() {
    P<TItem> item;
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      if (!m_free.empty()) {
        item = std::move(m_free.back());
        m_free.pop_back();
      }
      ++m_out;
    }
    if (!item) {
      try {
        item = P<TItem>(m_create());
      } catch (...) {
        std::lock_guard<std::mutex> lock(m_mutex);
        --m_out;
        throw;
      }
    }
    item->m_pHome = this;
    return item;
  }

  /// How many items wait in the pool for reuse. Thread-safe.
  [[nodiscard]] int getFreeCount() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<int>(m_free.size());
  }

protected:
  /// Keeps the pool alive while items are out; frees the kept ones at once.
  void deleteThis() override {
    std::vector<P<TItem>> kept;
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      if (m_out > 0) {
        m_closing = true;
        kept.swap(m_free);
        m_pSelf = cancelDeleteThisAndReturnNewReference();
        return;  // kept die here, outside the lock
      }
    }
    CBase::deleteThis();
  }

private:
  void takeBack(P<IBase>&& returned) noexcept override {
    P<IBase> item = std::move(returned);
    P<IBase> self;
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      --m_out;
      if (!m_closing && (m_maxFree < 0 || static_cast<int>(m_free.size()) < m_maxFree)) {
        if (TItem* typed = dynamic_cast<TItem*>(item.get())) {
          m_free.push_back(P<TItem>::share(typed));
        }
      }
      if (m_closing && m_out == 0) self = std::move(m_pSelf);
    }
    // Outside the lock: an item not kept dies first, then maybe the pool.
    item.reset();
    self.reset();
  }

  mutable std::mutex m_mutex;  // guards the fields below
  int const m_maxFree;
  TCreate const m_create;
  std::vector<P<TItem>> m_free;
  int m_out = 0;         // items handed out and not back yet
  bool m_closing = false;
  P<IBase> m_pSelf;      // keeps a closing pool alive until m_out is 0
};

}  // namespace qo

#endif  // QO_CORE_TRECYCLEPOOL_H
