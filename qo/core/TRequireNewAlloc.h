// qo/core/TRequireNewAlloc.h - a base for objects that may only live on the
// heap.
//
// Objects whose life is governed by reference counting must not be built on
// the stack or as members: a P would never be their last owner. Deriving
// from TRequireNewAlloc<CBase, CWorker> (instead of CBase) enforces it at run
// time:
//   class CWorker : public TRequireNewAlloc<CBase, CWorker> { ... };
//   P<CWorker> w(new CWorker);  // fine
//   CWorker onStack;            // throws CError "Objects of class CWorker
//                               // must be allocated with new."
// The check runs in a base constructor, where the object's own class is not
// yet known to the run-time type system; so the class names itself as the
// second argument. Without it (TRequireNewAlloc<CBase>) the message can only
// name qo::TRequireNewAlloc<qo::CBase>.
// Every allocation form of the class passes through
// operator new(size_t, CBase::RawNew const&), which sets a per-thread flag;
// the constructor reads and clears it in one step. The flag is per thread,
// so allocations on different threads do not interfere.
#ifndef QO_CORE_TREQUIRENEWALLOC_H
#define QO_CORE_TREQUIRENEWALLOC_H

#include <cstddef>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"

namespace qo {

/// The per-thread allocated-with-new flag. Internal to TRequireNewAlloc.
class QO_API _CRequireNewAllocHelper {
public:
  /// Sets the calling thread's flag.
  static void setAllocatedWithNew();
  /// Returns the calling thread's flag and clears it.
  static bool takeAllocatedWithNew();
  /// Clears the calling thread's flag (shutdown; the key itself stays, since
  /// objects may still be built afterwards).
  static void disposeGlobalAllocatedWithNew();
  /// Throws the CError for an object of the given type built without new.
  [[noreturn]] static void throwNotAllocatedWithNew(std::type_info const& type);
};

/// Takes the flag before anything else of the object is built, so that a
/// base constructor that throws cannot leave a stray flag behind. Empty.
template <class TObject>
struct _CRequireNewAllocCheck {
  _CRequireNewAllocCheck() {
    if (!_CRequireNewAllocHelper::takeAllocatedWithNew()) _CRequireNewAllocHelper::throwNotAllocatedWithNew(typeid(TObject));
  }
};

/// TObject: the class being made heap-only, named in the error (void: the
/// error names this template's instance).
template <class TBase, class TObject = void>
class TRequireNewAlloc
    : private _CRequireNewAllocCheck<std::conditional_t<std::is_void_v<TObject>, TRequireNewAlloc<TBase>, TObject>>,
      public TBase {
public:
  /// Forwards to TBase's constructors. Throws CError when the object is not
  /// being built by new.
  template <class... Args>
  explicit TRequireNewAlloc(Args&&... args) : TBase(std::forward<Args>(args)...) {}
  TRequireNewAlloc(TRequireNewAlloc const& other) : TBase(other) {}

  static void* operator new(std::size_t size) { return operator new(size, CBase::RawNew()); }
  static void* operator new(std::size_t size, CBase::RawNew const&) {
    void* memory = ::operator new(size);
    _CRequireNewAllocHelper::setAllocatedWithNew();
    return memory;
  }
  static void operator delete(void* p) noexcept { ::operator delete(p); }
  static void operator delete(void* p, CBase::RawNew const&) noexcept { ::operator delete(p); }
};

}  // namespace qo

#endif  // QO_CORE_TREQUIRENEWALLOC_H
