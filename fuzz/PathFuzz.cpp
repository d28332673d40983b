// Fuzzes path construction under the three traits. The first byte picks the
// traits; every further byte is one character, bytes below 0x80 as ASCII
// and the others from a small set of characters that matter to path syntax
// (U+0000, control characters, non-ASCII letters whose case mapping is
// special, a lone surrogate).
//
// Checks: nothing crashes; only CError subclasses are thrown; normalising a
// normal form changes nothing; a path equals and hashes as its reparse;
// parent / name gives the path back; a normalised Windows path never needs
// normalisation to be valid; toAPIPath keeps a trailing space.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "qo/core/CBadStateError.h"
#include "qo/core/CError.h"
#include "qo/core/String.h"
#include "qo/fs/CMacPathTraits.h"
#include "qo/fs/CUnixPathTraits.h"
#include "qo/fs/CWindowsPathTraits.h"
#include "qo/fs/TPathImpl.h"
#include "qo/platform/FullPath.h"

namespace {

char16_t const kSpecial[] = {u'\0',     u'\x01',   u'\t',     u'\x1f',   u'\u00C4', u'\u00E4', u'\u0130',
                             u'\u0131', u'\u00DF', u'\u03A3', static_cast<char16_t>(0xD800), static_cast<char16_t>(0xDC00), u'\uFF0F', u'\u3000'};

qo::String decode(std::uint8_t const* data, std::size_t size) {
  std::u16string text;
  text.reserve(size);
  for (std::size_t i = 0; i < size; ++i) {
    std::uint8_t const b = data[i];
    text += b < 0x80 ? static_cast<char16_t>(b) : kSpecial[b % (sizeof kSpecial / sizeof kSpecial[0])];
  }
  return qo::String(std::move(text));
}

void check(bool condition) {
  if (!condition) std::abort();
}

template <class Traits>
void fuzzPath(qo::String const& text) {
  using Path = qo::TPathImpl<Traits>;
  Path once;
  try {
    once = Path(text);
  } catch (qo::CError const&) {
    return;  // refused input
  }
  Path twice;
  try {
    twice = Path(once.toString());
  } catch (qo::CError const&) {
    std::abort();  // a normal form must parse
  }
  check(twice.toString() == once.toString());
  check(twice == once);
  check(twice.getHash() == once.getHash());
  check(once.compare(twice) == 0);
  if (once.hasParent()) {
    Path const parent = once.getParent();
    check(parent.isParentOf(once) || once.getName() == qo::String(u".."));
    try {
      check(parent / once.getName() == once);
    } catch (qo::CError const&) {
      // A name that parses as a root on its own ("C:") cannot be appended
      // as text; the component form must work.
      check(parent.getChild(once.getName()) == once);
    }
  }
  (void)once.getExtension();
  (void)once.getTitle();
  (void)once.getRoot();
}

void fuzzWindowsExtras(qo::String const& text) {
  using Path = qo::TPathImpl<qo::CWindowsPathTraits>;
  std::u16string full;
  (void)qo::platform::getFullPath(text.data(), text.length(), full);
  try {
    Path const path(text);
    check(!qo::CWindowsPathTraits::pathNeedsToBeNormalizedToBeValid(path.toString()));
    qo::String const api = path.toAPIPath();
    if (!path.isEmpty() && path.toString()[path.toString().length() - 1] == u' ') {
      check(!api.isEmpty() && api[api.length() - 1] == u' ');
    } else {
      check(api == path.toString());
    }
  } catch (qo::CError const&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size == 0) return 0;
  qo::String const text = decode(data + 1, size - 1);
  try {
    switch (data[0] % 3) {
      case 0:
        fuzzPath<qo::CWindowsPathTraits>(text);
        fuzzWindowsExtras(text);
        break;
      case 1:
        fuzzPath<qo::CUnixPathTraits>(text);
        break;
      default:
        fuzzPath<qo::CMacPathTraits>(text);
        break;
    }
  } catch (qo::CError const&) {
    // Only from the derived operations, which may refuse (getChild of an
    // invalid name); construction errors return above.
  } catch (...) {
    std::abort();  // an exception that is not a CError
  }
  return 0;
}
