// qo/platform/FullPath.h - the platform's full-path service for Windows path
// texts (internal, OS-free).
//
// Windows: exactly GetFullPathNameW, with its current directory and current
// drives. Elsewhere a pure function that gives the same answer for absolute
// Windows paths:
//   - slashes become backslashes, runs of separators become one;
//   - "." and ".." components are resolved, never above the root ("C:\",
//     "\\server\share\", the four characters of "\\.\");
//   - a component followed by a separator loses one trailing dot ("a.\b"
//     gives "a\b");
//   - a text that does not end in a separator loses its trailing dots and
//     spaces ("C:\a\b. ." gives "C:\a\b"), so a trailing separator is how a
//     name ending in a space survives;
//   - a text starting with "\\?\" is returned as it is.
// POSIX has no Windows current directory or current drives, so there a
// relative input stays relative: "a\.\b" gives "a\b", "..\b" gives "b", a
// drive-relative "C:x" gives "C:\x" and a text rooted on the current drive
// ("\x") keeps its single leading backslash. Windows makes all of these
// absolute against its current directories.
//
//   std::u16string full;
//   SysError e = getFullPath(u"C:\\a\\..\\b", 9, full);  // full == u"C:\\b"
//
// Never throws; thread-safe (on Windows as far as the process's current
// directory is not changed meanwhile).
#ifndef QO_PLATFORM_FULLPATH_H
#define QO_PLATFORM_FULLPATH_H

#include <cstddef>
#include <string>

#include "qo/platform/LastError.h"

namespace qo::platform {

/// The full path of length units at path, into out (replaced). An empty
/// text, or one the OS refuses, gives a SysError and leaves out empty.
SysError getFullPath(char16_t const* path, std::size_t length, std::u16string& out);

}  // namespace qo::platform

#endif  // QO_PLATFORM_FULLPATH_H
