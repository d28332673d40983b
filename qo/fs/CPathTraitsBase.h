// qo/fs/CPathTraitsBase.h - what the path traits of every operating system
// share.
//
// Path traits are classes of static operations only; TPathImpl<Traits> uses
// them to parse, normalise and compare path texts. CPathTraitsBase holds the
// pieces that do not depend on the syntax: the clean-up of typed input and
// the set of characters that are unsafe in a file name on any system.
//
// Character sets live in process-wide safe global slots (created on first
// use, released when CQoInit ends); the references returned stay valid until
// then.
//
//   String typed = CPathTraitsBase::fixCommonInputMistakes(u"  C:\\data  ");
//   // "C:\\data"
#ifndef QO_FS_CPATHTRAITSBASE_H
#define QO_FS_CPATHTRAITSBASE_H

#include "qo/core/CSafeGlobalSlot.h"
#include "qo/core/Export.h"
#include "qo/core/String.h"

namespace qo {

/// Operations shared by all path traits. Thread-safe.
class QO_API CPathTraitsBase {
public:
  CPathTraitsBase() = delete;

  /// A copy of text without leading and trailing white space (String::trim);
  /// for paths a user typed, before they are parsed. Thread-safe.
  static String fixCommonInputMistakes(String const& text);
  /// False: normalizeComponent changes nothing, so TPathImpl need not hand
  /// each component to it. Traits whose normalizeComponent rewrites
  /// components hide this with one that says true. Thread-safe.
  static constexpr bool rewritesComponents() noexcept { return false; }

  /// U+0001 to U+001F except tab, then the ten characters * / : < > ? \ | " '
  /// (no U+0000): characters that are unsafe in a file name on some system.
  /// The shared instance, valid until library shutdown. Thread-safe.
  static String const& getUnsafeComponentChars();

protected:
  /// The shared string of slot, made by create on first use. Thread-safe.
  static String const& sharedString(CSafeGlobalSlot& slot, CSafeGlobalSlot::CreateFunc create,
                                    CSafeGlobalSlot::DisposeFunc dispose);
  /// A heap P<String> holding text, as a slot instance. Never throws except
  /// for lack of memory.
  static void* newSharedString(String const& text);
  /// Releases an instance made by newSharedString.
  static void deleteSharedString(void* instance) noexcept;

  /// The control characters U+0001 to U+001F without the tab, which a file
  /// name may hold.
  static String controlCharsWithoutTab();

private:
  static void* _createUnsafeComponentCharsString();
  static void _disposeUnsafeComponentChars(void* instance);
};

}  // namespace qo

#endif  // QO_FS_CPATHTRAITSBASE_H
