// The settings file format: any bytes either parse or fail with
// CFileCorruptedError (never a crash); what parses serialises to a file that
// parses to the same content; and any text, with any UTF-16 units, comes
// back from escape/unescape exactly.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "qo/core/CFileCorruptedError.h"
#include "qo/sys/CSettingsFile.h"

using qo::CSettingsFile;
using qo::CSystemSettings;
using qo::String;

namespace {

bool same(CSettingsFile const& a, CSettingsFile const& b) {
  if (a.sections.size() != b.sections.size()) return false;
  for (std::size_t i = 0; i < a.sections.size(); ++i) {
    auto const& x = a.sections[i];
    auto const& y = b.sections[i];
    if (x.key != y.key || x.values.size() != y.values.size()) return false;
    for (std::size_t k = 0; k < x.values.size(); ++k) {
      CSystemSettings::CValue const& v = x.values[k].second;
      CSystemSettings::CValue const& w = y.values[k].second;
      if (x.values[k].first != y.values[k].first || v.type != w.type || v.text != w.text || v.number != w.number ||
          v.bytes != w.bytes || v.list != w.list)
        return false;
    }
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string bytes(reinterpret_cast<char const*>(data), size);
  try {
    CSettingsFile file = CSettingsFile::parse(bytes, u"fuzz");
    if (!same(CSettingsFile::parse(file.serialize(), u"again"), file)) std::abort();
  } catch (qo::CFileCorruptedError const&) {
  }

  std::u16string units;
  for (std::size_t i = 0; i + 1 < size; i += 2) units.push_back(static_cast<char16_t>(data[i] | (data[i + 1] << 8)));
  String text(units), back;
  String escaped = CSettingsFile::escape(text);
  if (!CSettingsFile::unescape(escaped, back) || back != text) std::abort();
  for (char16_t c : escaped.str())
    if (c < 0x20 || c == u'=' || c == u',' || c == u'[' || c == u']' || c == u'#') std::abort();
  return 0;
}
