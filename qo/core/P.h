// qo/core/P.h - the intrusive smart pointer P<T>, its const form PC<T> and nil.
//
// P<T> holds one reference on an IBase-derived object. The rules:
//   P<CFoo> p(new CFoo);   // adopts the reference `new` created (count 1)
//   P<CFoo> q = p;         // shares: addRef
//   q = rawPointer;        // assigning a raw pointer shares (addRef), too
//   P<IBar> b = p.cast<IBar>();  // checked cast; throws CCastError
//   p = nil;               // drops
// Construction from a raw pointer is explicit because it adopts: a borrowed
// pointer must be assigned (or wrapped with P<T>::share) instead.
// A null P is not checked by ->, * or get().
//
// Not thread-safe: one P must not be written by one thread while another
// reads it; the object it points to may be shared freely.
#ifndef QO_CORE_P_H
#define QO_CORE_P_H

#include <cstddef>
#include <functional>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "qo/core/Export.h"
#include "qo/core/IBase.h"

namespace qo {

/// The null tag: `p = nil`, `p == nil`.
struct CNil {
  constexpr CNil() = default;
};
inline constexpr CNil nil{};

namespace detail {
/// Throws CCastError(object, targetType); lives out of line so that P.h
/// needs no error headers.
[[noreturn]] QO_API void throwCastError(IBase const* object, std::type_info const* targetType);
}  // namespace detail

template <class T>
class P {
public:
  using element_type = T;

  constexpr P() noexcept : m_p(nullptr) {}
  constexpr P(CNil) noexcept : m_p(nullptr) {}
  constexpr P(std::nullptr_t) noexcept : m_p(nullptr) {}
  /// Adopts one reference that the caller already owns (no addRef).
  explicit P(T* p) noexcept : m_p(p) {}
  P(P const& other) noexcept : m_p(other.m_p) {
    if (m_p) m_p->addRef();
  }
  P(P&& other) noexcept : m_p(other.m_p) { other.m_p = nullptr; }
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  P(P<U> const& other) noexcept : m_p(other.get()) {
    if (m_p) m_p->addRef();
  }
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  P(P<U>&& other) noexcept : m_p(other.detach()) {}
  ~P() {
    if (m_p) static_cast<IBase const*>(m_p)->release();  // never a release() the class itself declares
  }

  /// A new reference on a borrowed object (addRef).
  [[nodiscard]] static P share(T* p) noexcept {
    if (p) p->addRef();
    return P(p);
  }

  /// Shares a raw pointer: addRef on the new one before release of the old,
  /// so assigning an object to the P that already holds it is safe.
  P& operator=(T* p) noexcept {
    if (p) p->addRef();
    T* old = m_p;
    m_p = p;
    if (old) static_cast<IBase const*>(old)->release();
    return *this;
  }
  P& operator=(P const& other) noexcept { return *this = other.m_p; }
  P& operator=(P&& other) noexcept {
    if (this != &other) {
      T* old = m_p;
      m_p = other.m_p;
      other.m_p = nullptr;
      if (old) static_cast<IBase const*>(old)->release();
    }
    return *this;
  }
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  P& operator=(P<U> const& other) noexcept {
    return *this = static_cast<T*>(other.get());
  }
  P& operator=(CNil) noexcept {
    reset();
    return *this;
  }
  P& operator=(std::nullptr_t) noexcept {
    reset();
    return *this;
  }

  /// Drops the reference; the P is null afterwards.
  void reset() noexcept {
    T* old = m_p;
    m_p = nullptr;
    if (old) static_cast<IBase const*>(old)->release();
  }
  /// Gives up the reference without release; the caller owns it now.
  [[nodiscard]] T* detach() noexcept {
    T* p = m_p;
    m_p = nullptr;
    return p;
  }

  T* get() const noexcept { return m_p; }
  T* operator->() const noexcept { return m_p; }
  T& operator*() const noexcept { return *m_p; }
  explicit operator bool() const noexcept { return m_p != nullptr; }
  bool isNull() const noexcept { return m_p == nullptr; }

  /// Checked cast (down or across interfaces). A null P gives a null
  /// result. Otherwise the object must allow the cast (checkCastAllowed)
  /// and implement U, or CCastError is thrown.
  template <class U>
  P<U> cast() const {
    if (!m_p) return P<U>();
    IBase const* base = static_cast<IBase const*>(m_p);
    if (base->checkCastAllowed(typeid(U))) {
      if (U* target = dynamic_cast<U*>(m_p)) return P<U>::share(target);
    }
    detail::throwCastError(base, &typeid(U));
  }

  void swap(P& other) noexcept { std::swap(m_p, other.m_p); }

private:
  T* m_p;
};

/// The read-only form: a P to a const object.
template <class T>
using PC = P<T const>;

/// Builds a T on the heap and hands back its first reference.
template <class T, class... Args>
[[nodiscard]] P<T> newP(Args&&... args) {
  return P<T>(new T(std::forward<Args>(args)...));
}

// Comparison is by pointer identity.
template <class T, class U>
bool operator==(P<T> const& a, P<U> const& b) noexcept { return a.get() == b.get(); }
template <class T, class U>
bool operator!=(P<T> const& a, P<U> const& b) noexcept { return a.get() != b.get(); }
template <class T, class U>
bool operator==(P<T> const& a, U* b) noexcept { return a.get() == b; }
template <class T, class U>
bool operator!=(P<T> const& a, U* b) noexcept { return a.get() != b; }
template <class T, class U>
bool operator==(U* a, P<T> const& b) noexcept { return a == b.get(); }
template <class T, class U>
bool operator!=(U* a, P<T> const& b) noexcept { return a != b.get(); }
template <class T>
bool operator==(P<T> const& a, CNil) noexcept { return a.get() == nullptr; }
template <class T>
bool operator!=(P<T> const& a, CNil) noexcept { return a.get() != nullptr; }
template <class T>
bool operator==(CNil, P<T> const& a) noexcept { return a.get() == nullptr; }
template <class T>
bool operator!=(CNil, P<T> const& a) noexcept { return a.get() != nullptr; }
template <class T, class U>
bool operator<(P<T> const& a, P<U> const& b) noexcept { return std::less<void const*>()(a.get(), b.get()); }

template <class T>
void swap(P<T>& a, P<T>& b) noexcept { a.swap(b); }

}  // namespace qo

template <class T>
struct std::hash<qo::P<T>> {
  std::size_t operator()(qo::P<T> const& p) const noexcept { return std::hash<T const*>()(p.get()); }
};

#endif  // QO_CORE_P_H
