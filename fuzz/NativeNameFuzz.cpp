// Fuzzes the mapping between POSIX file names (bytes) and the library's
// UTF-16 names. The input is taken once as name bytes and once as UTF-16
// units (pairs of bytes, little-endian).
//
// Checks: bytes without NUL come back unchanged through UTF-16 (the mapping
// loses nothing); the UTF-16 form never holds a lone surrogate other than
// U+DC80..U+DCFF; a UTF-16 name that has a byte form comes back unchanged
// when it holds no U+DC80..U+DCFF (those stand for bytes and may pair up
// into UTF-8 again).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "qo/platform/posix/NativeName.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using qo::platform::nameFromNative;
  using qo::platform::nameToNative;
  std::string bytes(reinterpret_cast<char const*>(data), size);
  for (char& c : bytes) c = c == '\0' ? 'x' : c;
  std::u16string const name = nameFromNative(bytes.data(), bytes.size());
  for (std::size_t i = 0; i < name.size(); ++i) {
    char16_t const c = name[i];
    if (c >= 0xD800 && c <= 0xDBFF) {
      if (i + 1 >= name.size() || name[i + 1] < 0xDC00 || name[i + 1] > 0xDFFF) std::abort();
      ++i;
    } else if (c >= 0xDC00 && c <= 0xDFFF && (c < 0xDC80 || c > 0xDCFF)) {
      std::abort();
    }
  }
  std::string back;
  if (!nameToNative(name.data(), name.size(), back) || back != bytes) std::abort();

  std::u16string units;
  bool standsForBytes = false;
  for (std::size_t i = 0; i + 1 < size; i += 2) {
    units += static_cast<char16_t>(data[i] | (data[i + 1] << 8));
    standsForBytes = standsForBytes || (units.back() >= 0xDC80 && units.back() <= 0xDCFF);
  }
  std::string native;
  if (nameToNative(units.data(), units.size(), native) && !standsForBytes &&
      nameFromNative(native.data(), native.size()) != units) {
    std::abort();
  }
  return 0;
}
