// qo/core/CTestSafeGlobalHelper.h - exercises the singleton machinery from
// every place a slot can be declared.
//
// Each get...() returns the instance of a slot declared in a different
// place: inline in this header, in this header's class but defined out of
// line, and only in the source file. Each ...Proxy() reaches the same slot
// through a function compiled into the library, so a test can check that an
// accessor compiled into a program and one compiled into the library share
// one instance. Slots inline in a header are shared across modules only
// where the platform merges inline functions' statics (ELF does; a Windows
// DLL and its program each get their own).
#ifndef QO_CORE_CTESTSAFEGLOBALHELPER_H
#define QO_CORE_CTESTSAFEGLOBALHELPER_H

#include "qo/core/CBase.h"
#include "qo/core/CSafeGlobalSlot.h"
#include "qo/core/Export.h"

namespace qo {

/// Test helper. Thread-safe like any singleton accessor.
class QO_API CTestSafeGlobalHelper : public CBase {
public:
  CTestSafeGlobalHelper();
  ~CTestSafeGlobalHelper() override;

  /// Slot in an inline function of this header.
  static P<CTestSafeGlobalHelper> getInline() { return TSafeGlobal<CTestSafeGlobalHelper>::get(inlineSlot()); }
  static P<CTestSafeGlobalHelper> getInlineProxy();
  /// Slot in a function declared here, defined in the library.
  static P<CTestSafeGlobalHelper> getHeaderButNotInline();
  static P<CTestSafeGlobalHelper> getHeaderButNotInlineProxy();
  /// Slot known only to the library's source.
  static P<CTestSafeGlobalHelper> getNotHeader();
  static P<CTestSafeGlobalHelper> getNotHeaderProxy();
  /// Disposes the instances of all three slots (of the inline one, the
  /// library's copy).
  static void disposeGlobal();

  /// Helpers alive right now (for leak checks).
  static int getLiveCount();

private:
  static CSafeGlobalSlot& inlineSlot() {
    static CSafeGlobalSlot g_pInstanceSlot;
    return g_pInstanceSlot;
  }
};

}  // namespace qo

#endif  // QO_CORE_CTESTSAFEGLOBALHELPER_H
