// libFuzzer target for CURI: parsing any text never crashes and throws only
// CError subclasses; every URI that parses reads back equal from its text
// (with and without non-ASCII kept); escape and unescape are inverse; and
// resolution, relative references and file-path conversions of what parses
// throw nothing but CErrors.
//
// The input is read two ways: as narrow text (UTF-8 with the Latin-1
// fallback) and as raw UTF-16 code units, so lone surrogates get in too.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "qo/core/CError.h"
#include "qo/core/String.h"
#include "qo/fs/CURI.h"
#include "qo/fs/CUnixPathTraits.h"
#include "qo/fs/CWindowsPathTraits.h"
#include "qo/fs/TPathImpl.h"

namespace {

[[noreturn]] void fail(char const* what) {
  __builtin_trap();
  (void)what;
}

void check(bool condition, char const* what) {
  if (!condition) fail(what);
}

// Runs body; a CError is an accepted outcome, anything else is a finding.
template <class F>
bool runAllowingErrors(F&& body) {
  try {
    body();
    return true;
  } catch (qo::CError const&) {
    return false;
  } catch (...) {
    fail("non-CError exception");
  }
}

void checkText(qo::String const& text) {
  qo::CURI uri;
  if (!runAllowingErrors([&] { uri = qo::CURI(text); })) return;
  check(qo::CURI(uri.toString(true)) == uri, "round trip with non-ASCII kept");
  check(qo::CURI(uri.toString(false)) == uri, "round trip in ASCII");
  check(uri.toNormalized().toNormalized() == uri.toNormalized(), "normalising twice");

  static qo::CURI const base(u"http://a/b/c/d;p?q");
  runAllowingErrors([&] {
    qo::CURI resolved(base, &text);
    check(qo::CURI(resolved.toString(true)) == resolved, "resolved round trip");
  });
  runAllowingErrors([&] {
    qo::CURI folder(u"file:///c:/data/set");
    qo::CURI target = folder << uri;
    qo::CURI relative = target.toRelative(folder);
    check(folder << relative == target, "relative reference inverse");
  });
  runAllowingErrors([&] { (void)uri.toWindowsFilePath(); });
  runAllowingErrors([&] { (void)uri.toUnixFilePath(); });
  (void)uri.getName();
  (void)uri.getParent();
  runAllowingErrors([&] { (void)uri.getRoot(); });

  for (bool keep : {false, true}) {
    qo::String escaped = qo::CURI::escape(text, keep, u"/:@");
    check(qo::CURI::unescape(escaped) == text, "escape/unescape");
  }
  qo::String query = qo::CURI::normalizeEscapedUnicodeQuery(text);
  check(qo::CURI::normalizeEscapedUnicodeQuery(query) == query, "query normalisation idempotent");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string narrow(reinterpret_cast<char const*>(data), size);
  checkText(qo::String::wstringFromUTF8WithLatin1Fallback(narrow));
  std::u16string wide(size / 2, u'\0');
  for (std::size_t i = 0; i < wide.size(); ++i)
    wide[i] = static_cast<char16_t>(data[2 * i] | (data[2 * i + 1] << 8));
  checkText(qo::String(std::move(wide)));
  return 0;
}
