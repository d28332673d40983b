#include "qo/fs/CUnixPathTraits.h"

#include "qo/core/CSafeGlobalSlot.h"

namespace qo {

String const& CUnixPathTraits::getSep() {
  static CSafeGlobalSlot g_pSepSlot;
  return sharedString(g_pSepSlot, &_createSepString, &_disposeSepString);
}

String const& CUnixPathTraits::getAllSeps() {
  static CSafeGlobalSlot g_pAllSepsSlot;
  return sharedString(g_pAllSepsSlot, &_createAllSepsString, &_disposeAllSepsString);
}

String const& CUnixPathTraits::getDefaultFSInvalidComponentChars() {
  static CSafeGlobalSlot g_pInvalidCharsSlot;
  return sharedString(g_pInvalidCharsSlot, &_createDefaultFSInvalidCharsString, &_disposeDefaultFSInvalidCharsString);
}

void* CUnixPathTraits::_createAllSepsString() { return newSharedString(u"/"); }
void CUnixPathTraits::_disposeAllSepsString(void* instance) { deleteSharedString(instance); }
void* CUnixPathTraits::_createSepString() { return newSharedString(u"/"); }
void CUnixPathTraits::_disposeSepString(void* instance) { deleteSharedString(instance); }
void* CUnixPathTraits::_createDefaultFSInvalidCharsString() { return newSharedString(String(u"/") + String(1, u'\0')); }
void CUnixPathTraits::_disposeDefaultFSInvalidCharsString(void* instance) { deleteSharedString(instance); }

bool CUnixPathTraits::isAbsolute(String const& text) { return !text.isEmpty() && text[0] == u'/'; }

int CUnixPathTraits::getRootLength(String const& text, int* rootEnd) {
  int const length = isAbsolute(text) ? 1 : -1;
  if (rootEnd != nullptr) *rootEnd = length;
  return length;
}

bool CUnixPathTraits::findNextComponent(String const& text, int from, int& start, int& end) {
  start = -1;
  end = -1;
  int const n = text.getLength();
  int i = from < 0 ? 0 : from;
  while (i < n && isSep(text[i])) ++i;
  if (i >= n) return false;
  start = i;
  while (i < n && !isSep(text[i])) ++i;
  end = i;
  return true;
}

void CUnixPathTraits::normalizeSeparators(String& /*text*/) {}
void CUnixPathTraits::normalizeRoot(String& /*text*/) {}
void CUnixPathTraits::normalizeComponent(String& /*component*/) {}
bool CUnixPathTraits::pathNeedsToBeNormalizedToBeValid(String const& /*text*/) { return false; }
void CUnixPathTraits::finalizeNormalizedPath(String& /*text*/) {}

}  // namespace qo
