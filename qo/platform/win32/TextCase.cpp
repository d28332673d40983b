#include "qo/platform/TextCase.h"

#include <windows.h>

namespace qo::platform {

namespace {

// CharUpperBuffW/CharLowerBuffW take a DWORD count; longer texts go in
// pieces. A piece ends before a high surrogate so pairs stay together.
template <typename Fn>
void inPieces(char16_t* text, std::size_t length, Fn fn) {
  static_assert(sizeof(wchar_t) == sizeof(char16_t), "Windows wide characters are UTF-16 units");
  constexpr std::size_t kMaxPiece = 0x40000000;
  while (length > 0) {
    std::size_t n = length < kMaxPiece ? length : kMaxPiece;
    if (n < length && text[n - 1] >= 0xD800 && text[n - 1] <= 0xDBFF) --n;
    fn(reinterpret_cast<wchar_t*>(text), static_cast<DWORD>(n));
    text += n;
    length -= n;
  }
}

}  // namespace

void toUpperInPlace(char16_t* text, std::size_t length) { inPieces(text, length, CharUpperBuffW); }
void toLowerInPlace(char16_t* text, std::size_t length) { inPieces(text, length, CharLowerBuffW); }

}  // namespace qo::platform
