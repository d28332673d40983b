// qo/fs/CMacPathTraits.h - the syntax of macOS paths.
//
// POSIX syntax (CUnixPathTraits) with two differences: names compare without
// regard to case, as on the default macOS file systems, and the colon is an
// invalid name character as well (the Finder shows it as a slash and older
// layers use it as a separator).
//
//   TPathImpl<CMacPathTraits>(u"/Users/A") == TPathImpl<CMacPathTraits>(u"/users/a")  // true
//
// All operations are static and thread-safe.
#ifndef QO_FS_CMACPATHTRAITS_H
#define QO_FS_CMACPATHTRAITS_H

#include "qo/core/Export.h"
#include "qo/core/String.h"
#include "qo/fs/CUnixPathTraits.h"

namespace qo {

/// macOS path syntax. Thread-safe.
class QO_API CMacPathTraits : public CUnixPathTraits {
public:
  CMacPathTraits() = delete;

  /// False: the default macOS file systems ignore case.
  static bool isCaseSensitive() noexcept { return false; }

  /// The text unchanged: the macOS file-system layer applies its own Unicode
  /// normalisation to names, so the library hands paths on as they are.
  static String toAPIPath(String const& text);

  /// "/", ":" and U+0000 (shared instance). Thread-safe.
  static String const& getDefaultFSInvalidComponentChars();

private:
  static void* _createMacDefaultFSInvalidCharsString();
  static void _disposeMacDefaultFSInvalidCharsString(void* instance);
};

}  // namespace qo

#endif  // QO_FS_CMACPATHTRAITS_H
