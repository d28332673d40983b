#include "qo/fs/CMacPathTraits.h"

#include "qo/core/CSafeGlobalSlot.h"

namespace qo {

String CMacPathTraits::toAPIPath(String const& text) { return text; }

String const& CMacPathTraits::getDefaultFSInvalidComponentChars() {
  static CSafeGlobalSlot g_pInvalidCharsSlot;
  return sharedString(g_pInvalidCharsSlot, &_createMacDefaultFSInvalidCharsString,
                      &_disposeMacDefaultFSInvalidCharsString);
}

void* CMacPathTraits::_createMacDefaultFSInvalidCharsString() { return newSharedString(String(u"/:") + String(1, u'\0')); }
void CMacPathTraits::_disposeMacDefaultFSInvalidCharsString(void* instance) { deleteSharedString(instance); }

}  // namespace qo
