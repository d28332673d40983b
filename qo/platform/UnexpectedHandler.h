// qo/platform/UnexpectedHandler.h - the C++ runtime's unexpected handler,
// where the standard library still has one (internal, OS-free; used by both
// crash-hook sources).
//
// std::set_unexpected was removed in C++17: libstdc++ keeps it deprecated up
// to C++17, libc++ and MSVC's library offer it only on request. Where it is
// missing, swapping does nothing and answers null.
#ifndef QO_PLATFORM_UNEXPECTEDHANDLER_H
#define QO_PLATFORM_UNEXPECTEDHANDLER_H

#include <exception>

#if defined(_LIBCPP_VERSION)
#  if _LIBCPP_STD_VER <= 14 || defined(_LIBCPP_ENABLE_CXX17_REMOVED_UNEXPECTED_FUNCTIONS)
#    define QO_HAVE_SET_UNEXPECTED 1
#  endif
#elif defined(__GLIBCXX__)
#  if __cplusplus < 201703L || (__cplusplus <= 201703L && _GLIBCXX_USE_DEPRECATED)
#    define QO_HAVE_SET_UNEXPECTED 1
#  endif
#elif defined(_HAS_UNEXPECTED)
#  if _HAS_UNEXPECTED
#    define QO_HAVE_SET_UNEXPECTED 1
#  endif
#endif

namespace qo::platform {

/// Installs handler as the unexpected handler and returns the previous one;
/// null (and nothing installed) where the library has no such handler.
inline void* swapUnexpectedHandler(void (*handler)()) {
#if defined(QO_HAVE_SET_UNEXPECTED)
#  if defined(__GNUC__)
#    pragma GCC diagnostic push
#    pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#  endif
  return reinterpret_cast<void*>(std::set_unexpected(handler));
#  if defined(__GNUC__)
#    pragma GCC diagnostic pop
#  endif
#else
  (void)handler;
  return nullptr;
#endif
}

}  // namespace qo::platform

#endif  // QO_PLATFORM_UNEXPECTEDHANDLER_H
