// libFuzzer target for URI containment: whenever a URI is found inside a
// folder URI (isParentOfOrEqual, or a selector on the folder's path) and
// both convert to file paths, the child's path lies inside the folder's
// path: it starts with it, on a component boundary. A caller may check
// containment on URIs and then open the converted path; escaped separators
// or dot segments must not let it out.
//
// The input holds two texts separated by a NUL byte (UTF-8 with the Latin-1
// fallback). The first byte picks a prefix for each text, so that most runs
// produce file URIs of both path styles.
#include <cstddef>
#include <cstdint>
#include <string>

#include "qo/core/CError.h"
#include "qo/core/String.h"
#include "qo/fs/CURI.h"
#include "qo/fs/CURISelector.h"
#include "qo/fs/CUnixPathTraits.h"
#include "qo/fs/CWindowsPathTraits.h"
#include "qo/fs/TPathImpl.h"

namespace {

void check(bool condition) {
  if (!condition) __builtin_trap();
}

template <class F>
bool runAllowingErrors(F&& body) {
  try {
    body();
    return true;
  } catch (qo::CError const&) {
    return false;
  } catch (...) {
    __builtin_trap();
  }
}

// The path without the long-path prefix ("\\?\C:\x" is "C:\x",
// "\\?\unc\srv\x" is "\\srv\x").
qo::String shortForm(qo::String const& path) {
  if (path.StartsWith(u"\\\\?\\unc\\", true)) return u"\\\\" + path.Mid(8);
  if (path.StartsWith(u"\\\\?\\")) return path.Mid(4);
  return path;
}

// child starts with parent on a component boundary.
bool inside(qo::String const& parent, qo::String const& child, char16_t sep, bool ignoreCase) {
  if (!child.StartsWith(parent, ignoreCase)) return false;
  std::size_t n = parent.length();
  return child.length() == n || (n > 0 && parent[n - 1] == sep) || child[n] == sep;
}

void checkPair(qo::CURI const& parent, qo::CURI const& child) {
  bool contained = parent.isParentOfOrEqual(child);
  bool selected = false;
  if (parent.getScheme() == u"file" && parent.isAbsolute() && !child.getPath().isEmpty()) {
    qo::CURISelector selector = qo::CURISelector::fromURI(parent, true);
    selected = selector.matches(child);
  }
  if (!contained && !selected) return;
  qo::String parentPath, childPath;
  if (runAllowingErrors([&] { parentPath = parent.toWindowsFilePath().toString(); }) &&
      runAllowingErrors([&] { childPath = child.toWindowsFilePath().toString(); })) {
    check(inside(shortForm(parentPath), shortForm(childPath), u'\\', true));
  }
  if (runAllowingErrors([&] { parentPath = parent.toUnixFilePath().toString(); }) &&
      runAllowingErrors([&] { childPath = child.toUnixFilePath().toString(); })) {
    check(inside(parentPath, childPath, u'/', false));
  }
}

char16_t const* const kPrefixes[] = {u"", u"file:///", u"file:///C:/", u"file://"};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size == 0) return 0;
  std::string rest(reinterpret_cast<char const*>(data + 1), size - 1);
  std::size_t split = rest.find('\0');
  std::string first = rest.substr(0, split);
  std::string second = split == std::string::npos ? first : rest.substr(split + 1);
  qo::String parentText = qo::String(kPrefixes[data[0] & 3]) + qo::String::wstringFromUTF8WithLatin1Fallback(first);
  qo::String childText =
      qo::String(kPrefixes[(data[0] >> 2) & 3]) + qo::String::wstringFromUTF8WithLatin1Fallback(second);
  qo::CURI parent, child;
  if (!runAllowingErrors([&] { parent = qo::CURI(parentText); })) return 0;
  if (!runAllowingErrors([&] { child = qo::CURI(childText); })) return 0;
  checkPair(parent, child);
  // The same child below the folder, as a caller building it would.
  runAllowingErrors([&] { checkPair(parent, parent << child); });
  return 0;
}
