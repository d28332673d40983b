// libFuzzer target for CIniContent: loading any bytes never crashes and
// throws only CParseError; what loads saves back byte for byte; and after
// setting values in the sections and keys it found (and in a new section),
// the content saves, loads again and reads back what was set.
#include <cstddef>
#include <cstdint>
#include <string>

#include "qo/core/CParseError.h"
#include "qo/util/CIniContent.h"

namespace {

void check(bool condition) {
  if (!condition) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  auto ini = qo::newP<qo::CIniContent>();
  try {
    ini->load(data, size);
  } catch (qo::CParseError const& e) {
    check(e.getParams().lookupLong(u"line", -1) >= 1);
    return 0;
  }
  check(ini->save() == std::string(reinterpret_cast<char const*>(data), size));
  qo::String const value(u" \"odd\"\tvalue\n;x\\ ");
  int edits = 0;
  for (auto const& section : ini->getSections()) {
    for (auto const& key : ini->getKeys(section)) {
      if (++edits > 20) break;
      ini->setValue(section, key, value);
    }
  }
  ini->setValue(u"fuzz new section", u"fuzz key", value);
  std::string saved = ini->save();
  auto again = qo::newP<qo::CIniContent>();
  again->load(saved.data(), saved.size());
  check(again->getValue(u"fuzz new section", u"fuzz key") == value);
  check(again->getSections().size() == ini->getSections().size());
  for (auto const& section : ini->getSections()) {
    for (auto const& key : ini->getKeys(section)) check(again->getValue(section, key) == ini->getValue(section, key));
  }
  return 0;
}
