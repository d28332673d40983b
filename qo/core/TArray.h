// qo/core/TArray.h - the library's name for a contiguous, growable sequence.
//
// TArray<T> is std::vector<T>: the name keeps the library's T prefix in
// signatures (a CConcatInStream is built from a TArray<P<IInStream>>) while
// callers get the standard container, its iterators and algorithms.
//
//   TArray<P<IInStream>> parts{first, second};
//
// Not thread-safe (as std::vector).
#ifndef QO_CORE_TARRAY_H
#define QO_CORE_TARRAY_H

#include <vector>

namespace qo {

/// A contiguous sequence: std::vector. Not thread-safe.
template <class T>
using TArray = std::vector<T>;

}  // namespace qo

#endif  // QO_CORE_TARRAY_H
