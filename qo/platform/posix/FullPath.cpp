#include "qo/platform/FullPath.h"

#include <cerrno>
#include <vector>

namespace qo::platform {

namespace {

bool isAsciiLetter(char16_t c) { return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z'); }

// Index after the part that ".." cannot remove: the drive root, the share of a
// UNC path with its separator, the device prefix, the leading backslash of a
// text rooted on the current drive; 0 for a relative text.
std::size_t fixedPrefixLength(std::u16string& s) {
  std::size_t const n = s.size();
  if (n >= 2 && s[0] == u'\\' && s[1] == u'\\') {
    if (n >= 4 && (s[2] == u'.' || s[2] == u'?') && s[3] == u'\\') return 4;
    std::size_t i = 2;
    for (int part = 0; part < 2; ++part) {
      while (i < n && s[i] != u'\\') ++i;
      if (i < n) ++i;  // the separator after server, then after share
    }
    return i;
  }
  if (n >= 2 && isAsciiLetter(s[0]) && s[1] == u':') {
    // Without a current directory per drive, "C:x" stands at the drive root.
    if (n == 2 || s[2] != u'\\') s.insert(2, 1, u'\\');
    return 3;
  }
  if (n >= 1 && s[0] == u'\\') return 1;
  return 0;
}

}  // namespace

SysError getFullPath(char16_t const* path, std::size_t length, std::u16string& out) {
  out.clear();
  if (length == 0) return SysError{static_cast<std::uint32_t>(EINVAL), sysErrorText(EINVAL)};
  std::u16string s(path, length);
  if (s.size() >= 4 && s[0] == u'\\' && s[1] == u'\\' && s[2] == u'?' && s[3] == u'\\') {
    out = s;  // the platform takes these literally
    return SysError{};
  }
  for (char16_t& c : s) {
    if (c == u'/') c = u'\\';
  }
  std::size_t const mark = fixedPrefixLength(s);
  std::u16string prefix = s.substr(0, mark);

  std::vector<std::u16string> segments;
  std::size_t i = mark;
  bool endsWithSep = false;
  while (i < s.size()) {
    std::size_t j = i;
    while (j < s.size() && s[j] != u'\\') ++j;
    bool const followedBySep = j < s.size();
    std::u16string segment = s.substr(i, j - i);
    i = followedBySep ? j + 1 : j;
    if (segment.empty()) continue;  // a run of separators
    endsWithSep = followedBySep;
    if (segment == u".") continue;
    if (segment == u"..") {
      if (!segments.empty()) segments.pop_back();
      continue;
    }
    if (followedBySep && segment.back() == u'.') segment.pop_back();
    segments.push_back(std::move(segment));
  }
  // A text that is only a run of separators after its prefix keeps none.
  if (segments.empty()) endsWithSep = false;

  out = prefix;
  for (std::size_t k = 0; k < segments.size(); ++k) {
    if (k > 0) out += u'\\';
    out += segments[k];
  }
  if (endsWithSep) {
    out += u'\\';
  } else {
    while (out.size() > mark && (out.back() == u' ' || out.back() == u'.')) out.pop_back();
  }
  return SysError{};
}

}  // namespace qo::platform
