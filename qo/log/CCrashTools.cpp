#include "qo/log/CCrashTools.h"

#include <cstring>

#include "qo/platform/Crash.h"

namespace qo {

CCrashTools::CCrashTools() noexcept {
  m_tempBuffer[0] = 0;
  m_pathBuffer[0] = 0;
}

CCrashTools::~CCrashTools() = default;

void CCrashTools::clear() noexcept {
  m_fileA.close();
  m_fileB.close();
  std::memset(m_tempBuffer, 0, sizeof m_tempBuffer);
  m_pathBuffer[0] = 0;
}

int CCrashTools::getStringLength(char const* text) noexcept {
  return text == nullptr ? 0 : static_cast<int>(std::strlen(text));
}

int CCrashTools::getFSStringLength(wchar_t const* text) noexcept {
  int n = 0;
  if (text != nullptr) {
    while (text[n] != 0) ++n;
  }
  return n;
}

int CCrashTools::fsStringCopy(wchar_t* target, int capacity, String const& source) noexcept {
  if (target == nullptr || capacity <= 0) return -1;
  char16_t const* units = source.data();
  std::size_t const count = source.length();
  int n = 0;
  for (std::size_t i = 0; i < count; ++i) {
    unsigned long c = units[i];
    if constexpr (sizeof(wchar_t) != 2) {
      if (c >= 0xD800 && c <= 0xDBFF && i + 1 < count && units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF) {
        c = 0x10000 + ((c - 0xD800) << 10) + (units[i + 1] - 0xDC00u);
        ++i;
      } else if (c >= 0xD800 && c <= 0xDFFF) {
        c = 0xFFFD;
      }
    }
    if (n + 1 >= capacity) {
      target[0] = 0;
      return -1;
    }
    target[n++] = static_cast<wchar_t>(c);
  }
  target[n] = 0;
  return n;
}

int CCrashTools::fsStringCopy(wchar_t* target, int capacity, wchar_t const* source) noexcept {
  if (target == nullptr || capacity <= 0) return -1;
  int const length = getFSStringLength(source);
  if (length >= capacity) {
    target[0] = 0;
    return -1;
  }
  for (int i = 0; i < length; ++i) target[i] = source[i];
  target[length] = 0;
  return length;
}

int CCrashTools::fsStringAppend(wchar_t* target, int capacity, int length, char const* source) noexcept {
  int const add = getStringLength(source);
  if (target == nullptr || length < 0 || length + add >= capacity) return -1;
  for (int i = 0; i < add; ++i) target[length + i] = static_cast<wchar_t>(static_cast<unsigned char>(source[i]));
  target[length + add] = 0;
  return length + add;
}

int CCrashTools::formatDecimal(char* target, long long value, int minDigits) noexcept {
  char digits[24];
  int n = 0;
  // Through the unsigned value, so the most negative number needs no
  // special case.
  unsigned long long magnitude =
      value < 0 ? 0ull - static_cast<unsigned long long>(value) : static_cast<unsigned long long>(value);
  do {
    digits[n++] = static_cast<char>('0' + magnitude % 10);
    magnitude /= 10;
  } while (magnitude != 0);
  if (minDigits > 20) minDigits = 20;
  while (n < minDigits) digits[n++] = '0';
  int length = 0;
  if (value < 0) target[length++] = '-';
  while (n > 0) target[length++] = digits[--n];
  target[length] = 0;
  return length;
}

void CCrashTools::sleep(int millis) noexcept { platform::crashSleep(millis); }

}  // namespace qo
