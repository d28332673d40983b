// qo/fs/CWindowsPathTraits.h - the syntax of Windows paths.
//
// The traits of TPathImpl<CWindowsPathTraits>, the path type of every file,
// process and system-folder interface of the library. They know:
//   - separators: backslash and slash both separate, backslash is written;
//   - roots: "C:\", "\\server\share", the long and device forms "\\?\...",
//     "\\.\...", the NT form "\??\...", long UNC "\\?\UNC\server\share",
//     volume GUIDs "\\?\Volume{...}\", "\\?\GLOBALROOT\Device\<name>\" and a
//     bare "\" (rooted on the current drive; not absolute);
//   - one canonical spelling of each root (normalizeRoot);
//   - the long-path prefix: absolute paths of 247 characters or more are
//     written "\\?\C:\..." or "\\?\unc\server\share\..." (247 leaves room
//     below the platform's 260 for a file name appended later);
//   - comparison without regard to case.
// "C:" and "C:name" (a drive without a separator) are refused with
// CBadPathError: they depend on a per-drive current directory.
//
//   int rootLength = CWindowsPathTraits::getRootLength(u"\\\\srv\\share\\x");  // 11
//   String api = CWindowsPathTraits::toAPIPath(u"C:\\dir\\name ");  // "\\\\?\\C:\\dir\\name "
//
// All operations are static and thread-safe.
#ifndef QO_FS_CWINDOWSPATHTRAITS_H
#define QO_FS_CWINDOWSPATHTRAITS_H

#include "qo/core/Export.h"
#include "qo/core/String.h"
#include "qo/fs/CPathTraitsBase.h"

namespace qo {

/// Windows path syntax. Thread-safe.
class QO_API CWindowsPathTraits : public CPathTraitsBase {
public:
  CWindowsPathTraits() = delete;

  /// The written separator: backslash.
  static char16_t getSepChar() noexcept { return u'\\'; }
  /// "\" (shared instance). Thread-safe.
  static String const& getSep();
  /// "\/": backslash, then slash (shared instance). Thread-safe.
  static String const& getAllSeps();
  /// True for backslash and slash.
  static bool isSep(char16_t c) noexcept { return c == u'\\' || c == u'/'; }
  /// False: Windows names compare without regard to case.
  static bool isCaseSensitive() noexcept { return false; }
  /// True: the library's native path type.
  static bool isNativePathType() noexcept { return true; }
  /// True: "." and ".." are resolved while normalising, as the platform
  /// itself resolves them lexically.
  static bool collapsesDotDotComponents() noexcept { return true; }

  /// True for UNC, long and device paths (two leading backslashes), the NT
  /// form "\??", and a letter (iswalpha), a colon and a separator ("C:\",
  /// "C:/"). "C:", "C:x", "\x" and "//srv" (slashes) are not absolute.
  /// Never throws.
  static bool isAbsolute(String const& text);

  /// The length of the root of text (-1 when it has none); the same value is
  /// stored through rootEnd when it is not null. A drive root takes its
  /// separator ("C:\" is 3); "\\server\share" stops after the share; a long
  /// UNC root "\\?\UNC\server\share" likewise; a drive in long or device
  /// form takes its separator ("\\?\C:\" is 7); a volume GUID, GLOBALROOT
  /// device ("\\?\GLOBALROOT\Device\<name>") or other device root takes the
  /// separator that follows it, since with it the root names the device's
  /// root folder and without it the device itself; "\x" (rooted on the
  /// current drive) has no root, -1, like a relative path. Throws CBadPathError ("Invalid path: "
  /// and text) for "C:", "C:x", "\\?\C:x", a UNC path without server, a
  /// bare long or device prefix, "\??" without a separator after it, and "."
  /// or ".." as server, share or device name.
  static int getRootLength(String const& text, int* rootEnd = nullptr);

  /// Finds the next component at or after from: start is its first
  /// character, end the position after it. Both are -1 when the result is
  /// false (no component left). Runs of separators count as one.
  static bool findNextComponent(String const& text, int from, int& start, int& end);

  /// Every slash becomes a backslash.
  static void normalizeSeparators(String& text);
  /// Gives each root one spelling (text has backslash separators only):
  /// "\\?\C:\x", "\\.\C:\x" and "\??\C:\x" become "C:\x"; "\??\" becomes
  /// "\\?\"; "\\?\UNC\srv\share" becomes "\\srv\share"; the server name of a
  /// UNC path and the whole text of a remaining device or long form are
  /// lower-cased. A drive letter keeps its case. A long or device prefix
  /// before a drive is dropped even without a separator after the colon
  /// ("\\.\C:" becomes "C:", which TPathImpl then refuses).
  static void normalizeRoot(String& text);
  /// No change: Windows components need no rewriting.
  static void normalizeComponent(String& component);
  /// True when the text must go through TPathImpl's normalisation to be
  /// usable: it needs the long prefix, or it is a "\\?\" path (which the
  /// platform takes literally) holding a slash, "\.\" or "\..\", or ending
  /// in "\." or "\..".
  static bool pathNeedsToBeNormalizedToBeValid(String const& text);
  /// Adds the long-path prefix when mustAddLongPathPrefix says so.
  static void finalizeNormalizedPath(String& text);
  /// True when text is absolute, at least 247 characters long and starts
  /// with none of "\\?\", "\\.\" and "\??\".
  static bool mustAddLongPathPrefix(String const& text);
  /// Puts "\\?\" before a drive path ("C:\x" becomes "\\?\C:\x") and turns
  /// "\\server\share..." into "\\?\unc\server\share...".
  static void addLongPathPrefix(String& text);
  /// The text to hand to the platform. A text ending in a space is made
  /// absolute through the platform's full-path service (GetFullPathNameW)
  /// with the space kept, and gets the long prefix, so that the platform
  /// does not strip the space; every other text is returned unchanged.
  /// Throws CBadPathError when the full-path service refuses the text.
  static String toAPIPath(String const& text);

  /// True when component is a name that Windows takes for a device
  /// wherever it stands: CON, PRN, AUX, NUL, COM1 to COM9 and LPT1 to LPT9
  /// (also with a superscript 1, 2 or 3 for the digit), in any case, alone
  /// or before an extension ("con.txt"), with trailing dots or spaces
  /// ("nul. ", "aux .txt"). Never throws.
  static bool isReservedDeviceName(String const& component);
  /// The first component of text (separated by slashes or backslashes)
  /// that isReservedDeviceName, or an empty text when none is. Never throws.
  static String findReservedDeviceName(String const& text);

  /// The characters a component may not hold on the default Windows file
  /// systems: U+0001 to U+001F except tab, then \ : * ? " < > | /, then
  /// U+0000 (shared instance). Thread-safe.
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

#endif  // QO_FS_CWINDOWSPATHTRAITS_H
