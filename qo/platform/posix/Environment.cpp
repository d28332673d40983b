#include "qo/platform/Environment.h"

#include <cstring>

extern "C" char** environ;

namespace qo::platform {

namespace {

// Appends the UTF-16 form of UTF-8 bytes; a byte that does not start a
// valid sequence is taken as a Latin-1 character.
void appendText(std::u16string& out, char const* s, std::size_t n) {
  auto const* p = reinterpret_cast<unsigned char const*>(s);
  std::size_t i = 0;
  while (i < n) {
    unsigned c = p[i];
    std::size_t extra = c >= 0xC2 && c <= 0xDF ? 1 : c >= 0xE0 && c <= 0xEF ? 2 : c >= 0xF0 && c <= 0xF4 ? 3 : 0;
    unsigned cp = c;
    bool ok = c < 0x80;
    if (extra > 0) {
      ok = true;
      cp = c & (0x3Fu >> extra);
      for (std::size_t k = 1; ok && k <= extra; ++k) {
        if (i + k >= n || (p[i + k] & 0xC0) != 0x80) {
          ok = false;
        } else {
          cp = (cp << 6) | (p[i + k] & 0x3Fu);
        }
      }
      // Overlong forms, surrogates and values past U+10FFFF are not UTF-8.
      if (ok && ((extra == 2 && cp < 0x800) || (extra == 3 && (cp < 0x10000 || cp > 0x10FFFF)) ||
                 (cp >= 0xD800 && cp <= 0xDFFF))) {
        ok = false;
      }
    }
    if (!ok) {
      out += static_cast<char16_t>(c);
      ++i;
      continue;
    }
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out += static_cast<char16_t>(0xD800 + (cp >> 10));
      out += static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
    } else {
      out += static_cast<char16_t>(cp);
    }
    i += extra + 1;
  }
}

}  // namespace

// The environment is the process's environ array: reading it makes no call
// that could fail; errors would name it.
char const* environmentApiName() { return "environ"; }

SysError readEnvironment(std::vector<EnvVar>& out) {
  out.clear();
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    char const* text = *entry;
    std::size_t length = std::strlen(text);
    char const* eq = length > 1 ? static_cast<char const*>(std::memchr(text + 1, '=', length - 1)) : nullptr;
    std::size_t nameLength = eq != nullptr ? static_cast<std::size_t>(eq - text) : length;
    EnvVar var;
    appendText(var.name, text, nameLength);
    if (eq != nullptr) appendText(var.value, eq + 1, length - nameLength - 1);
    out.push_back(std::move(var));
  }
  return SysError();
}

bool environmentNamesIgnoreCase() { return false; }

}  // namespace qo::platform
