// qo/core/TList.h - the library's name for a linked sequence.
//
// TList<T> is std::list<T>: the name keeps the library's T prefix in
// signatures (the open-element stack of CXMLWriter is a TList<String>) while
// callers get the standard container. Elements do not move when others are
// inserted or erased.
//
//   TList<String> names;
//   names.push_back(u"log");
//
// Not thread-safe (as std::list).
#ifndef QO_CORE_TLIST_H
#define QO_CORE_TLIST_H

#include <list>

namespace qo {

/// A doubly linked sequence: std::list. Not thread-safe.
template <class T>
using TList = std::list<T>;

}  // namespace qo

#endif  // QO_CORE_TLIST_H
