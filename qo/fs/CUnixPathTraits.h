// qo/fs/CUnixPathTraits.h - the syntax of POSIX paths.
//
// The traits of TPathImpl<CUnixPathTraits>, used where a URI becomes a POSIX
// path and for POSIX device paths of volumes. The only separator is the
// slash, the only root "/"; names compare case-sensitively. ".." is kept
// while normalising: through a symbolic link "a/link/.." need not be "a".
//
//   TPathImpl<CUnixPathTraits> p(u"/var//log/./x");  // "/var/log/x"
//
// All operations are static and thread-safe.
#ifndef QO_FS_CUNIXPATHTRAITS_H
#define QO_FS_CUNIXPATHTRAITS_H

#include "qo/core/Export.h"
#include "qo/core/String.h"
#include "qo/fs/CPathTraitsBase.h"

namespace qo {

/// POSIX path syntax. Thread-safe.
class QO_API CUnixPathTraits : public CPathTraitsBase {
public:
  CUnixPathTraits() = delete;

  /// The separator: slash.
  static char16_t getSepChar() noexcept { return u'/'; }
  /// "/" (shared instance). Thread-safe.
  static String const& getSep();
  /// "/" (shared instance). Thread-safe.
  static String const& getAllSeps();
  /// True for slash only.
  static bool isSep(char16_t c) noexcept { return c == u'/'; }
  /// True.
  static bool isCaseSensitive() noexcept { return true; }
  /// False.
  static bool isNativePathType() noexcept { return false; }
  /// False: ".." is kept, since symbolic links make it more than lexical.
  static bool collapsesDotDotComponents() noexcept { return false; }

  /// True when text is not empty and starts with a slash.
  static bool isAbsolute(String const& text);
  /// 1 when text starts with a slash, else -1; the same value is stored
  /// through rootEnd when it is not null. Never throws.
  static int getRootLength(String const& text, int* rootEnd = nullptr);
  /// As CWindowsPathTraits::findNextComponent, with slash as the only
  /// separator.
  static bool findNextComponent(String const& text, int from, int& start, int& end);
  /// No change.
  static void normalizeSeparators(String& text);
  /// No change.
  static void normalizeRoot(String& text);
  /// No change.
  static void normalizeComponent(String& component);
  /// False: POSIX paths are valid as written.
  static bool pathNeedsToBeNormalizedToBeValid(String const& text);
  /// No change.
  static void finalizeNormalizedPath(String& text);

  /// "/" and U+0000: the characters a POSIX name cannot hold (shared
  /// instance). Thread-safe.
  static String const& getDefaultFSInvalidComponentChars();

private:
  static void* _createAllSepsString();
  static void _disposeAllSepsString(void* instance);
  static void* _createSepString();
  static void _disposeSepString(void* instance);
  static void* _createDefaultFSInvalidCharsString();
  static void _disposeDefaultFSInvalidCharsString(void* instance);
};

}  // namespace qo

#endif  // QO_FS_CUNIXPATHTRAITS_H
