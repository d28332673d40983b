#include "qo/fs/CPathTraitsBase.h"

#include "qo/core/P.h"

namespace qo {

String CPathTraitsBase::fixCommonInputMistakes(String const& text) { return text.trim(); }

String const& CPathTraitsBase::getUnsafeComponentChars() {
  static CSafeGlobalSlot g_pUnsafeComponentCharsSlot;
  return sharedString(g_pUnsafeComponentCharsSlot, &_createUnsafeComponentCharsString, &_disposeUnsafeComponentChars);
}

String const& CPathTraitsBase::sharedString(CSafeGlobalSlot& slot, CSafeGlobalSlot::CreateFunc create,
                                            CSafeGlobalSlot::DisposeFunc dispose) {
  return **static_cast<P<String>*>(slot.use(create, dispose));
}

void* CPathTraitsBase::newSharedString(String const& text) { return new P<String>(new String(text)); }

void CPathTraitsBase::deleteSharedString(void* instance) noexcept { delete static_cast<P<String>*>(instance); }

String CPathTraitsBase::controlCharsWithoutTab() {
  String chars;
  for (char16_t c = 0x01; c <= 0x1F; ++c) {
    if (c != u'\t') chars += c;
  }
  return chars;
}

void* CPathTraitsBase::_createUnsafeComponentCharsString() {
  return newSharedString(controlCharsWithoutTab() + u"*/:<>?\\|\"'");
}

void CPathTraitsBase::_disposeUnsafeComponentChars(void* instance) { deleteSharedString(instance); }

}  // namespace qo
