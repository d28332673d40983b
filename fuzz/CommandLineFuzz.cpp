// Fuzzes Windows command-line quoting and splitting. The input is a list of
// strings: byte 0xFF separates them; other bytes below 0x80 are ASCII and
// the rest come from the characters that matter to quoting (quote,
// backslash, blank, tab, newline, NUL, a non-ASCII letter, a lone
// surrogate).
//
// Checks: nothing crashes; quoteArguments then parseArguments gives the
// list back exactly; quote then parse does too when the first string holds
// no '"', and quote refuses it with CInvalidArgError otherwise; the input
// read as one line splits into a list that quotes and splits back to
// itself.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "qo/core/CInvalidArgError.h"
#include "qo/core/String.h"
#include "qo/sys/CCommandLine.h"

namespace {

char16_t const kSpecial[] = {u'"', u'\\', u' ', u'\t', u'\n', u'\0', u'\u00E9', static_cast<char16_t>(0xD800)};

char16_t decodeChar(std::uint8_t b) {
  return b < 0x80 ? static_cast<char16_t>(b) : kSpecial[b % (sizeof kSpecial / sizeof kSpecial[0])];
}

void check(bool condition) {
  if (!condition) std::abort();
}

bool hasQuote(qo::String const& s) { return s.str().find(u'"') != std::u16string::npos; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using qo::CCommandLine;
  std::vector<qo::String> list;
  std::u16string current, line;
  bool any = false;
  for (std::size_t i = 0; i < size; ++i) {
    any = true;
    if (data[i] == 0xFF) {
      list.emplace_back(std::move(current));
      current.clear();
      continue;
    }
    current += decodeChar(data[i]);
    line += decodeChar(data[i]);
  }
  if (any) list.emplace_back(std::move(current));

  check(CCommandLine::parseArguments(CCommandLine::quoteArguments(list)) == list);
  if (!list.empty() && hasQuote(list[0])) {
    bool refused = false;
    try {
      (void)CCommandLine::quote(list);
    } catch (qo::CInvalidArgError const&) {
      refused = true;
    }
    check(refused);
  } else {
    check(CCommandLine::parse(CCommandLine::quote(list)) == list);
  }

  std::vector<qo::String> const split = CCommandLine::parseArguments(qo::String(line));
  check(CCommandLine::parseArguments(CCommandLine::quoteArguments(split)) == split);
  std::vector<qo::String> const whole = CCommandLine::parse(qo::String(line));
  if (whole.empty() || !hasQuote(whole[0])) check(CCommandLine::parse(CCommandLine::quote(whole)) == whole);
  return 0;
}
