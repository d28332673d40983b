// qo/core/Export.h - the one export macro of the qo shared library.
//
// Every exported class and free function is declared with QO_API:
//   class QO_API CError : ... { ... };
// The library is built with hidden visibility (and, on Windows, as a DLL), so
// a declaration without QO_API is internal. QO_BUILDING_LIBRARY is defined
// only while the library itself is compiled.
#ifndef QO_CORE_EXPORT_H
#define QO_CORE_EXPORT_H

#if defined(_WIN32) || defined(__CYGWIN__)
#  if defined(QO_BUILDING_LIBRARY)
#    define QO_API __declspec(dllexport)
#  else
#    define QO_API __declspec(dllimport)
#  endif
#else
#  define QO_API __attribute__((visibility("default")))
#endif

#endif  // QO_CORE_EXPORT_H
