#include "qo/fs/CWindowsPathTraits.h"

#include <cwctype>

#include "qo/core/CBadPathError.h"
#include "qo/core/CSafeGlobalSlot.h"
#include "qo/platform/FullPath.h"

namespace qo {

namespace {

// A drive letter is a letter as iswalpha says.
bool isDriveLetter(char16_t c) { return std::iswalpha(static_cast<std::wint_t>(c)) != 0; }

// text starts with the four characters of prefix ("\\?\" ...), exactly.
bool startsWith4(String const& text, char16_t const* prefix) {
  return text.length() >= 4 && text[0] == prefix[0] && text[1] == prefix[1] && text[2] == prefix[2] &&
         text[3] == prefix[3];
}

bool startsWithLongOrDevicePrefix(String const& text) {
  return startsWith4(text, u"\\\\?\\") || startsWith4(text, u"\\\\.\\") || startsWith4(text, u"\\??\\");
}

// Case-insensitive for ASCII letters only: the fixed words of path syntax
// ("unc", "globalroot") must not depend on the locale.
bool equalsAsciiNoCase(char16_t const* text, int length, char const* word) noexcept {
  int i = 0;
  for (; i < length && word[i] != '\0'; ++i) {
    char16_t c = text[i];
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 0x20);
    if (c != static_cast<unsigned char>(word[i])) return false;
  }
  return i == length && word[i] == '\0';
}

// "." or "..": never a server, share or device name, which ".." could not
// leave again.
bool isDotOrDotDot(String const& text, int start, int end) {
  return (end - start == 1 && text[start] == u'.') || (end - start == 2 && text[start] == u'.' && text[start + 1] == u'.');
}

int firstSepFrom(String const& text, int from) {
  int const n = text.getLength();
  while (from < n && !CWindowsPathTraits::isSep(text[from])) ++from;
  return from;
}

}  // namespace

// --- shared strings ----------------------------------------------------------

String const& CWindowsPathTraits::getSep() {
  static CSafeGlobalSlot g_pSepSlot;
  return sharedString(g_pSepSlot, &_createSepString, &_disposeSepString);
}

String const& CWindowsPathTraits::getAllSeps() {
  static CSafeGlobalSlot g_pAllSepsSlot;
  return sharedString(g_pAllSepsSlot, &_createAllSepsString, &_disposeAllSepsString);
}

String const& CWindowsPathTraits::getDefaultFSInvalidComponentChars() {
  static CSafeGlobalSlot g_pInvalidCharsSlot;
  return sharedString(g_pInvalidCharsSlot, &_createDefaultFSInvalidCharsString, &_disposeDefaultFSInvalidCharsString);
}

void* CWindowsPathTraits::_createAllSepsString() { return newSharedString(u"\\/"); }
void CWindowsPathTraits::_disposeAllSepsString(void* instance) { deleteSharedString(instance); }
void* CWindowsPathTraits::_createSepString() { return newSharedString(u"\\"); }
void CWindowsPathTraits::_disposeSepString(void* instance) { deleteSharedString(instance); }

void* CWindowsPathTraits::_createDefaultFSInvalidCharsString() {
  return newSharedString(controlCharsWithoutTab() + u"\\:*?\"<>|/" + String(1, u'\0'));
}
void CWindowsPathTraits::_disposeDefaultFSInvalidCharsString(void* instance) { deleteSharedString(instance); }

// --- parsing -----------------------------------------------------------------

bool CWindowsPathTraits::isAbsolute(String const& text) {
  std::size_t const n = text.length();
  if (n == 0) return false;
  if (n >= 2 && text[0] == u'\\' && text[1] == u'\\') return true;
  if (n < 3) return false;
  if (text[0] == u'\\' && text[1] == u'?' && text[2] == u'?') return true;
  return isDriveLetter(text[0]) && text[1] == u':' && isSep(text[2]);
}

bool CWindowsPathTraits::findNextComponent(String const& text, int from, int& start, int& end) {
  start = -1;
  end = -1;
  int const n = text.getLength();
  int i = from < 0 ? 0 : from;
  while (i < n && isSep(text[i])) ++i;
  if (i >= n) return false;
  start = i;
  end = firstSepFrom(text, i);
  return true;
}

namespace {

// The end of "server\share" starting at from (the share may be missing).
int uncRootLength(String const& text, int from) {
  int start = -1;
  int end = -1;
  if (!CWindowsPathTraits::findNextComponent(text, from, start, end)) throw CBadPathError(text);  // no server
  if (isDotOrDotDot(text, start, end)) throw CBadPathError(text);
  int rootEnd = end;
  if (CWindowsPathTraits::findNextComponent(text, end, start, end)) {
    if (isDotOrDotDot(text, start, end)) throw CBadPathError(text);
    rootEnd = end;
  }
  return rootEnd;
}

// The root of a long, device or NT path whose prefix ends before p.
int deviceRootLength(String const& text, int p) {
  int const n = text.getLength();
  while (p < n && CWindowsPathTraits::isSep(text[p])) ++p;
  if (p >= n) throw CBadPathError(text);  // a bare prefix names nothing
  auto withFollowingSep = [&](int end) { return end < n && CWindowsPathTraits::isSep(text[end]) ? end + 1 : end; };

  if (p + 1 < n && isDriveLetter(text[p]) && text[p + 1] == u':') {
    if (p + 2 == n) return n;  // the volume itself
    if (CWindowsPathTraits::isSep(text[p + 2])) return p + 3;
    throw CBadPathError(text);
  }
  int const wordEnd = firstSepFrom(text, p);
  if (isDotOrDotDot(text, p, wordEnd)) throw CBadPathError(text);
  char16_t const* word = text.data() + p;
  int const wordLength = wordEnd - p;
  int start = -1;
  int end = -1;
  if (equalsAsciiNoCase(word, wordLength, "unc")) {
    return uncRootLength(text, wordEnd);
  }
  if (wordLength >= 8 && equalsAsciiNoCase(word, 7, "volume{") && word[wordLength - 1] == u'}') {
    return withFollowingSep(wordEnd);
  }
  if (equalsAsciiNoCase(word, wordLength, "globalroot")) {
    // "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1": the object folder
    // and the device name belong to the root.
    int rootEnd = wordEnd;
    for (int part = 0; part < 2 && CWindowsPathTraits::findNextComponent(text, rootEnd, start, end); ++part) {
      if (isDotOrDotDot(text, start, end)) throw CBadPathError(text);
      rootEnd = end;
    }
    return withFollowingSep(rootEnd);
  }
  return withFollowingSep(wordEnd);
}

}  // namespace

int CWindowsPathTraits::getRootLength(String const& text, int* rootEnd) {
  int const n = text.getLength();
  int length = -1;
  if (n >= 2 && isSep(text[0]) && isSep(text[1])) {
    if (n >= 4 && (text[2] == u'?' || text[2] == u'.') && isSep(text[3])) {
      length = deviceRootLength(text, 4);
    } else {
      length = uncRootLength(text, 2);
    }
  } else if (n >= 3 && text[0] == u'\\' && text[1] == u'?' && text[2] == u'?') {
    // isAbsolute takes every "\??" text for the NT form; anything but
    // "\??\" after it would be a name holding "?", which no file has.
    if (n < 4 || !isSep(text[3])) throw CBadPathError(text);
    length = deviceRootLength(text, 4);
  } else if (n >= 2 && isDriveLetter(text[0]) && text[1] == u':') {
    if (n < 3 || !isSep(text[2])) throw CBadPathError(text);
    length = 3;
  }
  if (rootEnd != nullptr) *rootEnd = length;
  return length;
}

// --- normalisation -------------------------------------------------------------

void CWindowsPathTraits::normalizeSeparators(String& text) {
  for (char16_t& c : text.str()) {
    if (c == u'/') c = u'\\';
  }
}

void CWindowsPathTraits::normalizeRoot(String& text) {
  std::u16string& s = text.str();
  // A drive in long or device form is the plain drive path; the long prefix
  // comes back in finalizeNormalizedPath when the length needs it.
  if (startsWithLongOrDevicePrefix(text) && s.size() >= 6 && isDriveLetter(s[4]) && s[5] == u':') {
    s.erase(0, 4);
  }
  if (startsWith4(text, u"\\??\\")) s.replace(0, 4, u"\\\\?\\");
  if (s.size() > 7 && startsWith4(text, u"\\\\?\\") && equalsAsciiNoCase(s.data() + 4, 3, "unc") && s[7] == u'\\') {
    s.replace(0, 8, u"\\\\");
  }
  if (s.size() > 3 && s[0] == u'\\' && s[1] == u'\\') {
    if ((s[2] == u'.' || s[2] == u'?') && s[3] == u'\\') {
      text = text.Lower();
      // A letter such as U+0130 or the Kelvin sign lower-cases to an ASCII
      // drive letter: the text is a drive path after all.
      std::u16string& lowered = text.str();
      if (lowered.size() >= 7 && isDriveLetter(lowered[4]) && lowered[5] == u':' && lowered[6] == u'\\') {
        lowered.erase(0, 4);
      }
    } else {
      std::size_t const serverEnd = s.find(u'\\', 2);
      std::size_t const end = serverEnd == std::u16string::npos ? s.size() : serverEnd;
      String const server = text.Mid(2, end - 2).Lower();
      text.str().replace(2, end - 2, server.str());
    }
  }
}

void CWindowsPathTraits::normalizeComponent(String& /*component*/) {}

bool CWindowsPathTraits::pathNeedsToBeNormalizedToBeValid(String const& text) {
  if (mustAddLongPathPrefix(text)) return true;
  if (!startsWith4(text, u"\\\\?\\")) return false;
  // The platform takes "\\?\" paths literally, so nothing resolves these.
  return text.Contains(u"/") || text.Contains(u"\\.\\") || text.Contains(u"\\..\\") || text.EndsWith(u"\\.") ||
         text.EndsWith(u"\\..");
}

void CWindowsPathTraits::finalizeNormalizedPath(String& text) {
  if (mustAddLongPathPrefix(text)) addLongPathPrefix(text);
}

bool CWindowsPathTraits::isReservedDeviceName(String const& component) {
  // As Windows reads a name: trailing dots and spaces go, then everything
  // from the first dot (or stream colon), then spaces before it.
  std::u16string name = component.str();
  while (!name.empty() && (name.back() == u'.' || name.back() == u' ')) name.pop_back();
  name = name.substr(0, name.find_first_of(u".:"));
  while (!name.empty() && name.back() == u' ') name.pop_back();
  for (char16_t& c : name) {
    if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - u'a' + u'A');
  }
  if (name == u"CON" || name == u"PRN" || name == u"AUX" || name == u"NUL") return true;
  if (name.size() != 4 || (name.compare(0, 3, u"COM") != 0 && name.compare(0, 3, u"LPT") != 0)) return false;
  char16_t const digit = name[3];
  return (digit >= u'1' && digit <= u'9') || digit == u'\u00B9' || digit == u'\u00B2' || digit == u'\u00B3';
}

String CWindowsPathTraits::findReservedDeviceName(String const& text) {
  std::u16string const& s = text.str();
  for (std::size_t start = 0; start <= s.size();) {
    std::size_t end = s.find_first_of(u"/\\", start);
    if (end == std::u16string::npos) end = s.size();
    String const component(s.substr(start, end - start));
    if (isReservedDeviceName(component)) return component;
    start = end + 1;
  }
  return String();
}

bool CWindowsPathTraits::mustAddLongPathPrefix(String const& text) {
  return text.length() >= 247 && isAbsolute(text) && !startsWithLongOrDevicePrefix(text);
}

void CWindowsPathTraits::addLongPathPrefix(String& text) {
  if (text.length() >= 2 && text[0] == u'\\' && text[1] == u'\\') {
    // Lower-case "unc", as the library has always written it.
    text.str().replace(0, 2, u"\\\\?\\unc\\");
  } else {
    text.str().insert(0, u"\\\\?\\");
  }
}

String CWindowsPathTraits::toAPIPath(String const& text) {
  if (text.isEmpty() || text[text.length() - 1] != u' ') return text;
  // The platform takes these literally: the space survives as it is.
  if (startsWith4(text, u"\\\\?\\") || startsWith4(text, u"\\??\\")) return text;
  // The full-path service strips trailing spaces unless a separator follows
  // them; the one added here is taken off again.
  std::u16string const input = text.str() + u'\\';
  std::u16string full;
  platform::SysError const error = platform::getFullPath(input.data(), input.size(), full);
  if (error || full.empty()) {
    CBadPathError badPath(text);
    badPath.getParams().addLong(u"sysError", static_cast<long long>(error.code));
    throw badPath;
  }
  if (full.size() > 1 && full.back() == u'\\') full.pop_back();
  String result(std::move(full));
  if (startsWith4(result, u"\\\\.\\")) {
    result[2] = u'?';  // the same device, taken literally
  } else if (isAbsolute(result) && !startsWith4(result, u"\\\\?\\")) {
    addLongPathPrefix(result);
  }
  return result;
}

}  // namespace qo
