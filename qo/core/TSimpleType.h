// qo/core/TSimpleType.h - a reference-counted box around one value.
//
// TSimpleType<T> makes a plain value holdable by P, so it can sit where the
// library keeps objects: in thread-local storage (a per-thread flag is a
// TSimpleType<bool>), in property-like maps of objects, or shared between
// owners that all see one changing value.
//
//   P<TSimpleType<bool>> flag = newP<TSimpleType<bool>>(false);
//   flag->set(true);
//   if (flag->get()) ...
//
// Not thread-safe (the value); the reference count is thread-safe.
#ifndef QO_CORE_TSIMPLETYPE_H
#define QO_CORE_TSIMPLETYPE_H

#include <utility>

#include "qo/core/CBase.h"

namespace qo {

/// A reference-counted value of T. Not thread-safe.
template <class T>
class TSimpleType : public CBase {
public:
  using value_type = T;

  /// A value-initialised T (false, 0, empty).
  TSimpleType() : m_value() {}
  explicit TSimpleType(T value) : m_value(std::move(value)) {}

  T const& get() const noexcept { return m_value; }
  /// The value itself, for changes in place.
  T& getRef() noexcept { return m_value; }
  void set(T value) { m_value = std::move(value); }

private:
  T m_value;
};

}  // namespace qo

#endif  // QO_CORE_TSIMPLETYPE_H
