#include "qo/core/String.h"

#include "qo/platform/TextCase.h"

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// String's text operations (search, compare, case, trim, padding) and the
// number texts. The conversions between encodings are in String_Convert.cpp.

namespace qo {

namespace {

// --- case and white space -----------------------------------------------------

std::u16string upperCopy(std::u16string_view text) {
  std::u16string copy(text);
  platform::toUpperInPlace(copy.data(), copy.size());
  return copy;
}

bool isSpace(char16_t c) {
  if (c <= 0x20) return c == 0x20 || (c >= 0x09 && c <= 0x0D);
  if (c < 0x85) return false;
  switch (c) {
    case 0x0085: case 0x00A0: case 0x1680: case 0x2028: case 0x2029:
    case 0x202F: case 0x205F: case 0x3000: case 0xFEFF:
      return true;
    default:
      return c >= 0x2000 && c <= 0x200A;
  }
}

}  // namespace

// --- the named operations ---------------------------------------------------------

bool String::StartsWith(String const& prefix, bool ignoreCase) const {
  std::size_t const n = prefix.m_text.size();
  if (n > m_text.size()) return false;
  std::u16string_view const head(m_text.data(), n);
  if (!ignoreCase) return head == prefix.m_text;
  // Case mapping keeps lengths, so equal-length heads are enough.
  return upperCopy(head) == upperCopy(prefix.m_text);
}

bool String::EndsWith(String const& suffix, bool ignoreCase) const {
  std::size_t const n = suffix.m_text.size();
  if (n > m_text.size()) return false;
  std::u16string_view const tail(m_text.data() + (m_text.size() - n), n);
  if (!ignoreCase) return tail == suffix.m_text;
  return upperCopy(tail) == upperCopy(suffix.m_text);
}

bool String::Contains(String const& part, bool ignoreCase) const {
  if (!ignoreCase) return m_text.find(part.m_text) != npos;
  if (part.m_text.size() > m_text.size()) return false;
  return upperCopy(m_text).find(upperCopy(part.m_text)) != npos;
}

std::size_t String::Find(String const& part, std::size_t from) const noexcept { return m_text.find(part.m_text, from); }

std::size_t String::Find(char16_t c, std::size_t from) const noexcept { return m_text.find(c, from); }

std::size_t String::FindLast(String const& part) const noexcept { return m_text.rfind(part.m_text); }

std::size_t String::FindLast(char16_t c) const noexcept { return m_text.rfind(c); }

int String::Compare(String const& other) const noexcept {
  int const c = m_text.compare(other.m_text);
  return (c > 0) - (c < 0);
}

int String::CmpNoCase(String const& other) const {
  int const c = upperCopy(m_text).compare(upperCopy(other.m_text));
  return (c > 0) - (c < 0);
}

String String::Replace(String const& from, String const& to) const {
  std::u16string const& pattern = from.m_text;
  std::size_t pos = pattern.empty() ? npos : m_text.find(pattern);
  if (pos == npos) return *this;
  std::u16string result;
  result.reserve(m_text.size());
  std::size_t start = 0;
  do {
    result.append(m_text, start, pos - start);
    result += to.m_text;
    start = pos + pattern.size();
    pos = m_text.find(pattern, start);
  } while (pos != npos);
  result.append(m_text, start, npos);
  return String(std::move(result));
}

String String::Trim() const {
  std::size_t begin = 0;
  std::size_t end = m_text.size();
  while (begin < end && isSpace(m_text[begin])) ++begin;
  while (end > begin && isSpace(m_text[end - 1])) --end;
  return String(m_text.substr(begin, end - begin));
}

String String::TrimLeft() const {
  std::size_t begin = 0;
  while (begin < m_text.size() && isSpace(m_text[begin])) ++begin;
  return String(m_text.substr(begin));
}

String String::TrimRight() const {
  std::size_t end = m_text.size();
  while (end > 0 && isSpace(m_text[end - 1])) --end;
  return String(m_text.substr(0, end));
}

String String::Left(std::size_t count) const { return String(m_text.substr(0, count)); }

String String::Mid(std::size_t start, std::size_t count) const {
  if (start >= m_text.size()) return String();
  return String(m_text.substr(start, count));
}

String String::Right(std::size_t count) const {
  std::size_t const n = std::min(count, m_text.size());
  return String(m_text.substr(m_text.size() - n));
}

String String::Lower() const {
  String result(*this);
  platform::toLowerInPlace(result.m_text.data(), result.m_text.size());
  return result;
}

String String::Upper() const {
  String result(*this);
  platform::toUpperInPlace(result.m_text.data(), result.m_text.size());
  return result;
}

String String::padLeft(std::size_t width, char16_t fill) const {
  if (m_text.size() >= width) return *this;
  std::u16string result(width - m_text.size(), fill);
  result += m_text;
  return String(std::move(result));
}

// --- free functions ------------------------------------------------------------------

namespace {

template <typename Int>
String integerText(Int value) {
  char buffer[24];
  auto const end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
  return String::fromLatin1(std::string_view(buffer, static_cast<std::size_t>(end - buffer)));
}

}  // namespace

String toString(long long value) { return integerText(value); }

String toString(unsigned long long value) { return integerText(value); }

String toString(double value) {
  char buffer[40];
  int length = 0;
  // 17 significant digits always read back exactly; fewer are tried first
  // so that 0.1 prints as "0.1", not "0.10000000000000001".
  for (int precision = 15; precision <= 17; ++precision) {
    length = std::snprintf(buffer, sizeof buffer, "%.*g", precision, value);
    if (precision == 17 || std::strtod(buffer, nullptr) == value || value != value) break;
  }
  std::string text(buffer, length > 0 ? static_cast<std::size_t>(length) : 0);
  // snprintf and strtod follow the C locale's decimal point; the text does not.
  char const* const point = std::localeconv()->decimal_point;
  if (point && *point && std::strcmp(point, ".") != 0) {
    std::size_t const at = text.find(point);
    if (at != std::string::npos) text.replace(at, std::strlen(point), ".");
  }
  return String::fromLatin1(text);
}

String toString(void const* address) {
  char buffer[24];
  int const length = std::snprintf(buffer, sizeof buffer, "0x%08llx",
                                   static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(address)));
  return String::fromLatin1(std::string_view(buffer, static_cast<std::size_t>(length)));
}

}  // namespace qo
