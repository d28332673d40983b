#include "qo/platform/CodePage.h"

#include <climits>

#include <windows.h>

namespace qo::platform {

namespace {

constexpr std::size_t kNpos = static_cast<std::size_t>(-1);

// Pages for which Windows refuses WC_NO_BEST_FIT_CHARS, the used-default
// flag and MB_ERR_INVALID_CHARS: the stateful and Unicode ones.
bool takesNoFlags(unsigned cp) {
  return cp == 42 || cp == 65000 || cp == 65001 || cp == 54936 || (cp >= 50220 && cp <= 50229) ||
         (cp >= 57002 && cp <= 57011);
}

wchar_t const* wide(char16_t const* text) {
  static_assert(sizeof(wchar_t) == sizeof(char16_t), "Windows wide characters are UTF-16 units");
  return reinterpret_cast<wchar_t const*>(text);
}

// Without the flags Windows would replace what it cannot encode silently;
// decoding the result again and comparing shows whether it did.
CodePageResult encodeChecked(UINT cp, char16_t const* text, int length, std::string& out) {
  int const size = WideCharToMultiByte(cp, 0, wide(text), length, nullptr, 0, nullptr, nullptr);
  if (size <= 0) return GetLastError() == ERROR_NO_UNICODE_TRANSLATION ? CodePageResult::Unencodable
                                                                       : CodePageResult::Unsupported;
  out.resize(static_cast<std::size_t>(size));
  WideCharToMultiByte(cp, 0, wide(text), length, out.data(), size, nullptr, nullptr);
  int const back = MultiByteToWideChar(cp, 0, out.data(), size, nullptr, 0);
  if (back != length) return CodePageResult::Unencodable;
  std::u16string check(static_cast<std::size_t>(back), u'\0');
  MultiByteToWideChar(cp, 0, out.data(), size, reinterpret_cast<wchar_t*>(check.data()), back);
  return check.compare(0, check.size(), text, static_cast<std::size_t>(length)) == 0 ? CodePageResult::Ok
                                                                                      : CodePageResult::Unencodable;
}

// MultiByteToWideChar does not say where the bad byte is; for single- and
// double-byte pages it can be found by converting one character at a time.
std::size_t findBadByte(UINT cp, char const* bytes, std::size_t length) {
  CPINFO info;
  if (!GetCPInfo(cp, &info) || info.MaxCharSize > 2) return kNpos;
  wchar_t unit[2];
  for (std::size_t i = 0; i < length;) {
    int n = 1;
    if (info.MaxCharSize == 2 && IsDBCSLeadByteEx(cp, static_cast<BYTE>(bytes[i]))) {
      if (i + 1 == length) return i;
      n = 2;
    }
    if (MultiByteToWideChar(cp, MB_ERR_INVALID_CHARS, bytes + i, n, unit, 2) == 0) return i;
    i += static_cast<std::size_t>(n);
  }
  return kNpos;
}

}  // namespace

CodePageResult encodeCodePage(unsigned codePage, char16_t const* text, std::size_t length, std::string& out,
                              std::size_t* errorOffset) {
  if (errorOffset) *errorOffset = kNpos;
  out.clear();
  if (!IsValidCodePage(codePage)) return CodePageResult::Unsupported;
  if (length > static_cast<std::size_t>(INT_MAX)) return CodePageResult::TooLong;
  if (length == 0) return CodePageResult::Ok;
  int const n = static_cast<int>(length);
  CodePageResult result = CodePageResult::Ok;
  if (takesNoFlags(codePage)) {
    result = encodeChecked(codePage, text, n, out);
  } else {
    BOOL usedDefault = FALSE;
    int const size = WideCharToMultiByte(codePage, WC_NO_BEST_FIT_CHARS, wide(text), n, nullptr, 0, nullptr,
                                         &usedDefault);
    if (size <= 0) {
      // A page missing from takesNoFlags: fall back to the round trip check.
      DWORD const err = GetLastError();
      result = err == ERROR_INVALID_FLAGS || err == ERROR_INVALID_PARAMETER ? encodeChecked(codePage, text, n, out)
                                                                           : CodePageResult::Unencodable;
    } else {
      out.resize(static_cast<std::size_t>(size));
      usedDefault = FALSE;
      WideCharToMultiByte(codePage, WC_NO_BEST_FIT_CHARS, wide(text), n, out.data(), size, nullptr, &usedDefault);
      if (usedDefault) result = CodePageResult::Unencodable;
    }
  }
  if (result != CodePageResult::Ok) out.clear();
  return result;
}

CodePageResult decodeCodePage(unsigned codePage, char const* bytes, std::size_t length, std::u16string& out,
                              std::size_t* errorOffset) {
  if (errorOffset) *errorOffset = kNpos;
  out.clear();
  if (!IsValidCodePage(codePage)) return CodePageResult::Unsupported;
  if (length > static_cast<std::size_t>(INT_MAX)) return CodePageResult::TooLong;
  if (length == 0) return CodePageResult::Ok;
  int const n = static_cast<int>(length);
  DWORD flags = takesNoFlags(codePage) && codePage != 65001 && codePage != 54936 ? 0 : MB_ERR_INVALID_CHARS;
  int size = MultiByteToWideChar(codePage, flags, bytes, n, nullptr, 0);
  if (size <= 0 && flags != 0 && GetLastError() == ERROR_INVALID_FLAGS) {
    flags = 0;
    size = MultiByteToWideChar(codePage, flags, bytes, n, nullptr, 0);
  }
  if (size <= 0) {
    if (GetLastError() != ERROR_NO_UNICODE_TRANSLATION) return CodePageResult::Unsupported;
    if (errorOffset) *errorOffset = findBadByte(codePage, bytes, length);
    return CodePageResult::Unencodable;
  }
  out.resize(static_cast<std::size_t>(size));
  MultiByteToWideChar(codePage, flags, bytes, n, reinterpret_cast<wchar_t*>(out.data()), size);
  return CodePageResult::Ok;
}

}  // namespace qo::platform
