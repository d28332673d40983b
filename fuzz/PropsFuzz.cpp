// libFuzzer target for the property-bag text form: fromString of any text
// either gives a bag or throws CParseError, and a bag read that way reads
// back equal from its own text; a bag built from the input (keys and values
// split at NUL bytes, raw UTF-16 code units so lone surrogates and every
// control character get in) survives toString and fromString unchanged.
#include <cstddef>
#include <cstdint>
#include <string>

#include "qo/core/CParseError.h"
#include "qo/core/CProps.h"
#include "qo/core/String.h"

namespace {

void check(bool condition) {
  if (!condition) __builtin_trap();
}

void checkRoundTrip(qo::CProps const& props) {
  qo::String text = props.toString();
  check(qo::CProps::fromString(text) == props);
  check(qo::CProps::fromString(text).toString() == text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string narrow(reinterpret_cast<char const*>(data), size);
  qo::CProps parsed;
  bool ok = true;
  try {
    parsed = qo::CProps::fromString(qo::String::wstringFromUTF8WithLatin1Fallback(narrow));
  } catch (qo::CParseError const&) {
    ok = false;
  }
  if (ok) checkRoundTrip(parsed);

  qo::CProps built;
  std::u16string wide(size / 2, u'\0');
  for (std::size_t i = 0; i < wide.size(); ++i)
    wide[i] = static_cast<char16_t>(data[2 * i] | (data[2 * i + 1] << 8));
  std::size_t start = 0;
  qo::String key;
  bool haveKey = false;
  for (std::size_t i = 0; i <= wide.size(); ++i) {
    if (i < wide.size() && wide[i] != u'\0') continue;
    qo::String part(wide.substr(start, i - start));
    if (haveKey) built.add(key, part);
    else key = part;
    haveKey = !haveKey;
    start = i + 1;
  }
  if (haveKey) built.add(key, qo::String());
  checkRoundTrip(built);
  return 0;
}
