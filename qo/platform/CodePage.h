// qo/platform/CodePage.h - conversion between UTF-16 and legacy code pages
// (internal, OS-free).
//
// Code pages are named by their Windows numbers (1252, 437, 850, 65001 ...).
// Windows converts with WideCharToMultiByte/MultiByteToWideChar; POSIX maps
// the number to an iconv charset ("CP1252", "CP437", "UTF-8" ...) and uses
// iconv from the C library. Neither side substitutes anything: a character
// the page lacks, or a byte the page does not define, is reported, never
// replaced by a best-fit or default character.
//
//   std::string bytes;
//   if (encodeCodePage(1252, text, n, bytes) == CodePageResult::Ok) ...
//
// The functions never throw and keep no state between calls. Thread-safe.
#ifndef QO_PLATFORM_CODEPAGE_H
#define QO_PLATFORM_CODEPAGE_H

#include <cstddef>
#include <string>

namespace qo::platform {

enum class CodePageResult {
  Ok,
  Unencodable,  ///< Some character has no representation (or the input is invalid).
  Unsupported,  ///< The OS knows no such code page.
  TooLong,      ///< The input exceeds what the OS converts in one call.
};

/// UTF-16 to the code page; out receives the bytes (replaced, not appended).
/// Characters the code page lacks, and lone surrogates, give Unencodable.
/// errorOffset, when given, receives the index of the first unit that could
/// not be converted if the OS tells it, otherwise npos.
CodePageResult encodeCodePage(unsigned codePage, char16_t const* text, std::size_t length, std::string& out,
                              std::size_t* errorOffset = nullptr);

/// Code page to UTF-16; out receives the text (replaced, not appended).
/// Bytes that are invalid in the code page give Unencodable; errorOffset,
/// when given, receives the index of the first bad byte if it can be found,
/// otherwise npos.
CodePageResult decodeCodePage(unsigned codePage, char const* bytes, std::size_t length, std::u16string& out,
                              std::size_t* errorOffset = nullptr);

}  // namespace qo::platform

#endif  // QO_PLATFORM_CODEPAGE_H
