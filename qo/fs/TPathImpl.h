// qo/fs/TPathImpl.h - a path value in the normal form of its traits.
//
// TPathImpl<Traits> holds one String, the path text normalised by the
// traits (CWindowsPathTraits, CUnixPathTraits, CMacPathTraits). Construction
// from text:
//   1. the text is checked against the traits (getRootLength refuses "C:",
//      "C:x" ... with CBadPathError);
//   2. separators are normalised and runs of them become one (the two
//      leading ones of a UNC or device path stay);
//   3. the root gets its canonical spelling (normalizeRoot);
//   4. the rest is split into components, which are rejoined with the
//      traits' separator: "." components are dropped, ".." removes the
//      component before it where the traits resolve ".." lexically (never
//      climbing above a root), each component passes normalizeComponent;
//   5. finalizeNormalizedPath runs last (on Windows: the long-path prefix).
// A relative text that collapses to nothing is "."; the empty text gives the
// empty path. Normalising a normalised text changes nothing.
//
// Comparison, hashing, and every operation that matches components follow
// Traits::isCaseSensitive(); the long-path prefix is not part of a path's
// identity for them (a path is compared in its short form). Derived paths
// (parent, child, relative) are normalised again, so a parent of a long path
// loses the prefix once it is short enough.
//
//   using WinPath = TPathImpl<CWindowsPathTraits>;
//   WinPath dir(u"c:/Backup/./2024/../set");   // "c:\Backup\set"
//   WinPath file = dir / u"Disk 1.img";         // "c:\Backup\set\Disk 1.img"
//   file.getExtension();                        // "img"
//   file.makeRelativeTo(WinPath(u"C:\\backup")); // "set\Disk 1.img"
//
// Not thread-safe (a value; give other threads copies).
#ifndef QO_FS_TPATHIMPL_H
#define QO_FS_TPATHIMPL_H

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "qo/core/CBadPathError.h"
#include "qo/core/CBadStateError.h"
#include "qo/core/CError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CProps.h"
#include "qo/core/String.h"
#include "qo/core/TArray.h"

namespace qo {

/// A normalised path of the syntax Traits. Not thread-safe.
template <class Traits>
class TPathImpl {
public:
  using TraitsType = Traits;

  /// The empty path.
  TPathImpl() = default;
  /// The normal form of text (see the top of this file). Throws
  /// CBadPathError for a text the traits refuse.
  explicit TPathImpl(String const& text) : m_text(normalizeText(text)) {}
  explicit TPathImpl(char16_t const* text) : m_text(normalizeText(String(text))) {}

  /// A path a user typed: white space around it is removed
  /// (fixCommonInputMistakes) before it is parsed. Throws CBadPathError.
  static TPathImpl fromUserInput(String const& text) {
    return TPathImpl(Traits::fixCommonInputMistakes(text));
  }

  /// The normal form of text, as a path built from it holds it. Throws
  /// CBadPathError.
  static String normalizeText(String const& text);

  /// The normalised text (with the long-path prefix where the traits add
  /// one).
  String const& toString() const noexcept { return m_text; }
  /// The text to hand to the platform (Traits::toAPIPath; only for traits
  /// that have it). Throws CBadPathError when the platform refuses it.
  String toAPIPath() const { return Traits::toAPIPath(m_text); }

  /// True for the path built from an empty text.
  bool isEmpty() const noexcept { return m_text.isEmpty(); }
  /// Traits::isAbsolute of the text.
  bool isAbsolute() const { return Traits::isAbsolute(m_text); }
  /// True when the path has a root (every absolute path, and on Windows a
  /// path rooted on the current drive such as "\x").
  bool hasRoot() const { return rootLength() > 0; }
  /// The root in its short form ("C:\", "\\srv\share", "/"), "" for a
  /// relative path.
  String getRoot() const { return shortRoot(); }
  /// The root as a path; the empty path for a relative one.
  TPathImpl getRootPath() const { return TPathImpl(shortRoot()); }

  /// The components after the root, in order; none for the root alone, "."
  /// and the empty path.
  TArray<String> getComponents() const;
  /// The number of components.
  int getComponentCount() const { return static_cast<int>(getComponents().size()); }
  /// The last component; "" when there is none.
  String getName() const;
  /// The part of the name after its last dot, without the dot; "" when the
  /// name has no dot, or only a leading one (".profile"), or is "..".
  String getExtension() const;
  /// The name without its extension and the dot before it.
  String getTitle() const;
  /// A copy whose name has the extension ext (without dot; "" removes the
  /// extension). Throws CBadStateError when the path has no name and
  /// CInvalidArgError when ext holds a separator.
  TPathImpl withExtension(String const& ext) const;

  /// True when the path has at least one component.
  bool hasParent() const { return !getComponents().empty(); }
  /// The path without its last component ("C:\a" gives "C:\", "a" gives
  /// "."). Throws CBadStateError when there is no component.
  TPathImpl getParent() const;

  /// A copy with the component name appended. Throws CInvalidArgError when
  /// name is empty or holds a separator; CBadPathError when the result is
  /// refused.
  TPathImpl getChild(String const& name) const {
    TPathImpl result(*this);
    result.appendComponent(name);
    return result;
  }
  /// Appends the component name; "." changes nothing, ".." goes up where
  /// the traits resolve it. Throws as getChild.
  TPathImpl& appendComponent(String const& name);
  /// Appends a relative path. Throws CInvalidArgError when relative has a
  /// root.
  TPathImpl& append(TPathImpl const& relative);
  TPathImpl& operator/=(TPathImpl const& relative) { return append(relative); }
  /// Appends the relative path text (parsed first). Throws CBadPathError or
  /// CInvalidArgError.
  TPathImpl& operator/=(String const& relative) { return append(TPathImpl(relative)); }
  friend TPathImpl operator/(TPathImpl base, TPathImpl const& relative) { return std::move(base.append(relative)); }
  friend TPathImpl operator/(TPathImpl base, String const& relative) {
    return std::move(base.append(TPathImpl(relative)));
  }
  friend TPathImpl operator/(TPathImpl base, char16_t const* relative) {
    return std::move(base.append(TPathImpl(relative)));
  }

  /// True when name can be a file name on the traits' default file
  /// systems: not empty, not "." or "..", and free of
  /// Traits::getDefaultFSInvalidComponentChars() (a tab is allowed
  /// everywhere; U+0001 only outside Windows).
  static bool isValidComponent(String const& name);
  /// True when every component passes isValidComponent. The path value
  /// itself accepts any component; file-system layers check with this.
  bool hasOnlyValidComponents() const {
    for (String const& component : getComponents()) {
      if (!isValidComponent(component)) return false;
    }
    return true;
  }

  /// True when both have the same root and this path's components are a
  /// proper prefix of other's.
  bool isParentOf(TPathImpl const& other) const { return prefixOf(other, false); }
  /// As isParentOf, or the paths are equal.
  bool isParentOfOrEqual(TPathImpl const& other) const { return prefixOf(other, true); }

  /// The relative path that leads from base to this path ("." when they are
  /// equal); base / result equals this path. Throws CError "Cannot make
  /// paths relative to each other because they do not have the same root."
  /// with the properties "path", "normalizedPath", "basePath" and
  /// "normalizedBasePath" when the roots differ, and CInvalidArgError when
  /// base climbs out of the common part with "..".
  TPathImpl makeRelativeTo(TPathImpl const& base) const { return relativeImpl(base, m_text, base.m_text); }
  /// makeRelativeTo for two texts; the error properties "path" and
  /// "basePath" hold the texts as given. Throws CBadPathError for a text
  /// the traits refuse.
  static TPathImpl makeRelative(String const& path, String const& basePath) {
    return TPathImpl(path).relativeImpl(TPathImpl(basePath), path, basePath);
  }

  /// Negative, zero or positive. Components are compared in order (a
  /// separator sorts before every character), with the traits' case rule,
  /// on the short form of the texts.
  int compare(TPathImpl const& other) const;
  /// A hash that agrees with ==.
  std::size_t getHash() const;

  friend bool operator==(TPathImpl const& a, TPathImpl const& b) { return a.compare(b) == 0; }
  friend bool operator!=(TPathImpl const& a, TPathImpl const& b) { return a.compare(b) != 0; }
  friend bool operator<(TPathImpl const& a, TPathImpl const& b) { return a.compare(b) < 0; }
  friend bool operator>(TPathImpl const& a, TPathImpl const& b) { return a.compare(b) > 0; }
  friend bool operator<=(TPathImpl const& a, TPathImpl const& b) { return a.compare(b) <= 0; }
  friend bool operator>=(TPathImpl const& a, TPathImpl const& b) { return a.compare(b) >= 0; }

private:
  int rootLength() const { return rootLengthOf(m_text); }
  // The traits' root length, 0 for none; a text that starts with a
  // separator but has no root in the traits (Windows "\x", rooted on the
  // current drive) keeps that separator as its root. Throws CBadPathError.
  static int rootLengthOf(String const& text) {
    int const length = Traits::getRootLength(text, nullptr);
    if (length > 0) return length;
    return !text.isEmpty() && Traits::isSep(text[0]) ? 1 : 0;
  }
  // The root without a long-path prefix: normalizeRoot maps the long forms
  // that finalizeNormalizedPath adds back to their plain spelling.
  String shortRoot() const {
    String root = m_text.Left(static_cast<std::size_t>(rootLength()));
    Traits::normalizeRoot(root);
    return root;
  }
  String shortText() const { return shortRoot() + m_text.Mid(static_cast<std::size_t>(rootLength())); }
  bool isDot() const { return m_text.getLength() == 1 && m_text[0] == u'.'; }

  static bool sameText(String const& a, String const& b) {
    return Traits::isCaseSensitive() ? a == b : a.CmpNoCase(b) == 0;
  }
  static TPathImpl build(String const& root, TArray<String> const& components, std::size_t count);
  bool prefixOf(TPathImpl const& other, bool orEqual) const;
  TPathImpl relativeImpl(TPathImpl const& base, String const& pathText, String const& baseText) const;

  String m_text;
};

template <class Traits>
String TPathImpl<Traits>::normalizeText(String const& text) {
  if (text.isEmpty()) return String();
  Traits::getRootLength(text, nullptr);  // refuses "C:x" and the like as given

  String s(text);
  Traits::normalizeSeparators(s);
  // Runs of separators become one; the first two characters stay, since a
  // doubled separator there introduces a UNC or device root. This comes
  // before normalizeRoot so that its prefix tests see the final spelling.
  {
    std::u16string& raw = s.str();
    char16_t const sep = Traits::getSepChar();
    std::size_t out = raw.size() < 2 ? raw.size() : 2;
    for (std::size_t i = out; i < raw.size(); ++i) {
      if (raw[i] == sep && raw[out - 1] == sep) continue;
      raw[out++] = raw[i];
    }
    raw.resize(out);
  }
  Traits::normalizeRoot(s);

  int rootLength = 0;
  try {
    rootLength = rootLengthOf(s);
  } catch (CBadPathError const&) {
    throw CBadPathError(text);  // name the text as given
  }
  char16_t const sep = Traits::getSepChar();
  std::u16string out;
  out.reserve(s.length());
  out.assign(s.str(), 0, static_cast<std::size_t>(rootLength));
  // out's length before each kept component; on the stack for the usual
  // depths.
  std::size_t inlineMarks[32];
  std::vector<std::size_t> moreMarks;
  std::size_t markCount = 0;
  auto pushMark = [&](std::size_t mark) {
    if (markCount < 32) {
      inlineMarks[markCount] = mark;
    } else {
      moreMarks.push_back(mark);
    }
    ++markCount;
  };
  auto popMark = [&]() -> std::size_t {
    --markCount;
    if (markCount < 32) return inlineMarks[markCount];
    std::size_t mark = moreMarks.back();
    moreMarks.pop_back();
    return mark;
  };
  std::size_t leadingDotDots = 0;  // ".." kept at the start of a relative path
  int from = rootLength;
  int start = -1;
  int end = -1;
  while (Traits::findNextComponent(s, from, start, end)) {
    from = end;
    char16_t const* p = s.data() + start;
    int const length = end - start;
    if (length == 1 && p[0] == u'.') continue;
    if (length == 2 && p[0] == u'.' && p[1] == u'.' && Traits::collapsesDotDotComponents()) {
      if (markCount > leadingDotDots) {
        out.resize(popMark());
        continue;
      }
      if (rootLength > 0) continue;  // nothing is above a root
      ++leadingDotDots;
    }
    pushMark(out.size());
    if (!out.empty() && !Traits::isSep(out.back())) out += sep;
    if (Traits::rewritesComponents()) {
      String component(p, static_cast<std::size_t>(length));
      Traits::normalizeComponent(component);
      out += component.str();
    } else {
      out.append(p, static_cast<std::size_t>(length));
    }
  }
  if (out.empty()) return String(u".");

  String result(std::move(out));
  // The first components must not join the root when the text is parsed
  // again: "a\..\C:\x" would become the drive path "C:\x", "\x\..\??\y" the
  // NT form "\??\y".
  int reparsedRootLength = 0;
  try {
    reparsedRootLength = rootLengthOf(result);
  } catch (CBadPathError const&) {
    throw CBadPathError(text);
  }
  if (reparsedRootLength != rootLength) throw CBadPathError(text);
  Traits::finalizeNormalizedPath(result);
  return result;
}

template <class Traits>
bool TPathImpl<Traits>::isValidComponent(String const& name) {
  if (name.isEmpty() || name == String(u".") || name == String(u"..")) return false;
  String const& invalid = Traits::getDefaultFSInvalidComponentChars();
  for (std::size_t i = 0; i < name.length(); ++i) {
    if (invalid.str().find(name[i]) != std::u16string::npos) return false;
  }
  return true;
}

template <class Traits>
TArray<String> TPathImpl<Traits>::getComponents() const {
  TArray<String> components;
  if (isDot()) return components;
  int from = rootLength();
  int start = -1;
  int end = -1;
  while (Traits::findNextComponent(m_text, from, start, end)) {
    components.emplace_back(m_text.data() + start, static_cast<std::size_t>(end - start));
    from = end;
  }
  return components;
}

template <class Traits>
String TPathImpl<Traits>::getName() const {
  TArray<String> const components = getComponents();
  return components.empty() ? String() : components.back();
}

template <class Traits>
String TPathImpl<Traits>::getExtension() const {
  String const name = getName();
  std::size_t const dot = name.FindLast(u'.');
  if (dot == String::npos || dot == 0 || name == String(u"..")) return String();
  return name.Mid(dot + 1);
}

template <class Traits>
String TPathImpl<Traits>::getTitle() const {
  String const name = getName();
  std::size_t const dot = name.FindLast(u'.');
  if (dot == String::npos || dot == 0 || name == String(u"..")) return name;
  return name.Left(dot);
}

template <class Traits>
TPathImpl<Traits> TPathImpl<Traits>::withExtension(String const& ext) const {
  TArray<String> components = getComponents();
  if (components.empty()) throw CBadStateError(u"the path '" + m_text + u"' has no name to give an extension");
  for (std::size_t i = 0; i < ext.length(); ++i) {
    if (Traits::isSep(ext[i])) {
      throw CInvalidArgError(u"TPathImpl::withExtension", u"the extension holds a separator",
                             CProps().add(u"extension", ext));
    }
  }
  String name = getTitle();
  if (!ext.isEmpty()) name += u"." + ext;
  components.back() = name;
  return build(shortRoot(), components, components.size());
}

template <class Traits>
TPathImpl<Traits> TPathImpl<Traits>::getParent() const {
  TArray<String> const components = getComponents();
  if (components.empty()) throw CBadStateError(u"the path '" + m_text + u"' has no parent");
  return build(shortRoot(), components, components.size() - 1);
}

template <class Traits>
TPathImpl<Traits>& TPathImpl<Traits>::appendComponent(String const& name) {
  bool bad = name.isEmpty();
  for (std::size_t i = 0; i < name.length() && !bad; ++i) bad = Traits::isSep(name[i]);
  if (bad) {
    throw CInvalidArgError(u"TPathImpl::appendComponent", u"the name is empty or holds a separator",
                           CProps().add(u"path", m_text).add(u"name", name));
  }
  TArray<String> components = getComponents();
  components.push_back(name);
  *this = build(shortRoot(), components, components.size());
  return *this;
}

template <class Traits>
TPathImpl<Traits>& TPathImpl<Traits>::append(TPathImpl const& relative) {
  if (relative.hasRoot()) {
    throw CInvalidArgError(u"TPathImpl::append", u"the appended path has a root",
                           CProps().add(u"path", m_text).add(u"appended", relative.m_text));
  }
  TArray<String> components = getComponents();
  TArray<String> const more = relative.getComponents();
  components.insert(components.end(), more.begin(), more.end());
  *this = build(shortRoot(), components, components.size());
  return *this;
}

template <class Traits>
TPathImpl<Traits> TPathImpl<Traits>::build(String const& root, TArray<String> const& components, std::size_t count) {
  String text = root;
  for (std::size_t i = 0; i < count; ++i) {
    if (!text.isEmpty() && !Traits::isSep(text[text.length() - 1])) text += Traits::getSepChar();
    text += components[i];
  }
  if (text.isEmpty()) return TPathImpl(String(u"."));
  return TPathImpl(text);
}

template <class Traits>
bool TPathImpl<Traits>::prefixOf(TPathImpl const& other, bool orEqual) const {
  if (isEmpty() || other.isEmpty()) return orEqual && isEmpty() && other.isEmpty();
  if (!sameText(shortRoot(), other.shortRoot())) return false;
  TArray<String> const mine = getComponents();
  TArray<String> const theirs = other.getComponents();
  if (mine.size() > theirs.size() || (!orEqual && mine.size() == theirs.size())) return false;
  for (std::size_t i = 0; i < mine.size(); ++i) {
    if (!sameText(mine[i], theirs[i])) return false;
  }
  return true;
}

template <class Traits>
TPathImpl<Traits> TPathImpl<Traits>::relativeImpl(TPathImpl const& base, String const& pathText,
                                                  String const& baseText) const {
  String const root = shortRoot();
  if (!sameText(root, base.shortRoot())) {
    throw CError(u"Cannot make paths relative to each other because they do not have the same root.", String(), -1,
                 CProps()
                     .add(u"path", pathText)
                     .add(u"normalizedPath", m_text)
                     .add(u"basePath", baseText)
                     .add(u"normalizedBasePath", base.m_text));
  }
  TArray<String> const mine = getComponents();
  TArray<String> const theirs = base.getComponents();
  std::size_t common = 0;
  while (common < mine.size() && common < theirs.size() && sameText(mine[common], theirs[common])) ++common;
  TArray<String> result;
  for (std::size_t i = common; i < theirs.size(); ++i) {
    if (theirs[i] == String(u"..")) {
      throw CInvalidArgError(u"TPathImpl::makeRelativeTo", u"the base path leaves the common part through '..'",
                             CProps().add(u"path", m_text).add(u"basePath", base.m_text));
    }
    result.emplace_back(u"..");
  }
  result.insert(result.end(), mine.begin() + static_cast<std::ptrdiff_t>(common), mine.end());
  return build(String(), result, result.size());
}

template <class Traits>
int TPathImpl<Traits>::compare(TPathImpl const& other) const {
  if (m_text == other.m_text) return 0;
  String a = shortText();
  String b = other.shortText();
  if (!Traits::isCaseSensitive()) {
    a = a.Upper();
    b = b.Upper();
  }
  std::size_t const n = a.length() < b.length() ? a.length() : b.length();
  char16_t const sep = Traits::getSepChar();
  for (std::size_t i = 0; i < n; ++i) {
    if (a[i] == b[i]) continue;
    // A separator ends a component, so it sorts first: "a\b" before "a b".
    long const ca = a[i] == sep ? 0L : static_cast<long>(a[i]) + 1;
    long const cb = b[i] == sep ? 0L : static_cast<long>(b[i]) + 1;
    return ca < cb ? -1 : 1;
  }
  if (a.length() == b.length()) return 0;
  return a.length() < b.length() ? -1 : 1;
}

template <class Traits>
std::size_t TPathImpl<Traits>::getHash() const {
  // Equal paths have equal stored texts up to case: the long prefix follows
  // from the short form.
  if (Traits::isCaseSensitive()) return std::hash<String>()(m_text);
  return std::hash<String>()(m_text.Upper());
}

}  // namespace qo

template <class Traits>
struct std::hash<qo::TPathImpl<Traits>> {
  std::size_t operator()(qo::TPathImpl<Traits> const& path) const { return path.getHash(); }
};

#endif  // QO_FS_TPATHIMPL_H
