// libFuzzer target for CBase64: decoding any text never crashes and throws
// only CParseError; every text that decodes is the one encoding of its
// bytes (encoding the result gives the text back, as strict decoding
// promises), for both alphabets with and without padding; and the input
// taken as bytes survives encode/decode.
#include <cstddef>
#include <cstdint>
#include <string>

#include "qo/core/CParseError.h"
#include "qo/util/CBase64.h"

namespace {

void check(bool condition) {
  if (!condition) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string input(reinterpret_cast<char const*>(data), size);
  for (auto alphabet : {qo::CBase64::kStandard, qo::CBase64::kUrlSafe}) {
    for (bool pad : {true, false}) {
      try {
        std::string bytes = qo::CBase64::decode(input, alphabet, pad);
        check(qo::CBase64::encode(bytes, alphabet, pad) == input);
      } catch (qo::CParseError const& e) {
        long long offset = e.getParams().lookupLong(u"offset", -1);
        check(offset >= 0 && offset <= static_cast<long long>(size));
      }
      std::string text = qo::CBase64::encode(input, alphabet, pad);
      check(text.size() == qo::CBase64::getEncodedLength(size, pad));
      check(qo::CBase64::decode(text, alphabet, pad) == input);
    }
  }
  return 0;
}
