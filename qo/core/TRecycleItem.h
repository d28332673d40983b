// qo/core/TRecycleItem.h - an object that goes back to its pool when its
// last reference goes, instead of dying.
//
// Items are made and handed out by a TRecyclePool (qo/core/TRecyclePool.h).
// When the last P on an item drops, the item's deleteThis() resets it
// (onRecycle()) and keeps it alive with cancelDeleteThisAndReturnNewReference()
// for its pool, which stores it for the next get() or, when it keeps enough
// already or is itself ending, lets it die. An item not from a pool (or
// after its pool refused it) dies as any CBase.
//
//   class CPacket : public TRecycleItem<> {
//     void onRecycle() noexcept override { m_size = 0; }
//     int m_size = 0;
//   };
//   P<TRecyclePool<CPacket>> pool = newP<TRecyclePool<CPacket>>(8);
//   P<CPacket> packet = pool->get();  // reused when one came back
#ifndef QO_CORE_TRECYCLEITEM_H
#define QO_CORE_TRECYCLEITEM_H

#include <utility>

#include "qo/core/CBase.h"
#include "qo/core/P.h"

namespace qo {

template <class TItem>
class TRecyclePool;

/// Where a recycled item goes back to. Internal to TRecyclePool.
class _IRecycleHome {
public:
  /// Takes an item whose last reference went; item owns its one reference.
  /// Keeps it for reuse or drops it (which deletes it). Never throws.
  virtual void takeBack(P<IBase>&& item) noexcept = 0;

protected:
  ~_IRecycleHome() = default;
};

/// Base of a pooled item; TBase is CBase or a class derived from it.
template <class TBase = CBase>
class TRecycleItem : public TBase {
public:
  /// Forwards to TBase's constructors. The item belongs to no pool until a
  /// TRecyclePool hands it out.
  template <class... Args>
  explicit TRecycleItem(Args&&... args) : TBase(std::forward<Args>(args)...) {}
  /// A copy belongs to no pool.
  TRecycleItem(TRecycleItem const& other) : TBase(other) {}
  /// Copies TBase; the target stays with its own pool.
  TRecycleItem& operator=(TRecycleItem const& other) {
    TBase::operator=(other);
    return *this;
  }

protected:
  /// Called when the item's last reference went and it goes back to its
  /// pool, before anyone can get it again: reset its state here. Default:
  /// nothing. Runs on the thread that dropped the last reference.
  virtual void onRecycle() noexcept {}

  /// Hands the item to its pool; without one, deletes it.
  void deleteThis() override {
    _IRecycleHome* home = m_pHome;
    m_pHome = nullptr;  // back from the pool, the item belongs to no user
    if (home == nullptr) {
      TBase::deleteThis();
      return;
    }
    onRecycle();
    home->takeBack(this->cancelDeleteThisAndReturnNewReference());
  }

private:
  template <class>
  friend class TRecyclePool;
  _IRecycleHome* m_pHome = nullptr;
};

}  // namespace qo

#endif  // QO_CORE_TRECYCLEITEM_H
