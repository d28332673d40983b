#include "qo/fs/CURI.h"

#include <string>
#include <tuple>
#include <vector>

#include "qo/core/CInvalidArgError.h"
#include "qo/fs/CURITraitsManager.h"
#include "qo/fs/IURITraits.h"
#include "qo/fs/URIText.h"

// The parts of CURI live in several sources: parsing and resolution in
// CURI_Parse.cpp, escaping and toString in CURI_Escape.cpp, file paths in
// CURI_FilePath.cpp; this one holds construction, derived parts,
// combination and comparison.

namespace qo {

using namespace uritext;

namespace {

bool segmentsEqual(String const& a, String const& b, bool caseSensitive) {
  return caseSensitive ? a == b : a.CmpNoCase(b) == 0;
}

}  // namespace

std::vector<String> uritext::splitSegments(String const& path) {
  std::vector<String> segments;
  std::size_t start = path.StartsWith(u"/") ? 1 : 0;
  while (true) {
    std::size_t slash = path.Find(u'/', start);
    segments.push_back(path.Mid(start, slash == String::npos ? String::npos : slash - start));
    if (slash == String::npos) break;
    start = slash + 1;
  }
  return segments;
}

// --- construction ------------------------------------------------------------

CURI::CURI() = default;

CURI::CURI(String const& text) { parse(text); }

CURI::CURI(String const& scheme, String const& path, TConstOptRef<String> userName, TConstOptRef<String> userAuthInfo,
           TConstOptRef<String> host, long long port, TConstOptRef<String> query, TConstOptRef<String> fragment)
    : m_scheme(asciiLower(scheme)), m_path(path), m_port(port < 0 ? -1 : port) {
  if (!m_scheme.isEmpty() && !isValidScheme(m_scheme)) throwMalformed(scheme, u"Invalid scheme.");
  if (userName) {
    m_userName = *userName;
    m_hasUserName = true;
  }
  if (userAuthInfo) {
    m_userAuthInfo = *userAuthInfo;
    m_hasUserAuthInfo = m_hasUserName = true;
  }
  m_hasAuthority = host || m_hasUserName || m_port >= 0;
  if (m_hasAuthority) {
    m_hasHost = true;
    if (host) {
      checkHost(*host);
      m_host = normalizeHost(*host);
    }
    if (m_path.isEmpty()) m_path = u"/";
    if (m_path[0] != u'/')
      throwMalformed(path, u"When an authority component is specified, then the path must start with a slash.");
  }
  if (query) {
    m_query = normalizeEscapedUnicodeQuery(*query);
    m_hasQuery = true;
  }
  if (fragment) {
    m_fragment = *fragment;
    m_hasFragment = true;
  }
}

CURI::CURI(CURI const& base, String const* relative) : CURI(base) {
  if (relative != nullptr) resolve(base, CURI(*relative));
}

CURI::CURI(CURI const& base, CURI const& relative) { resolve(base, relative); }

CURI::CURI(CURI const& other) = default;
CURI::CURI(CURI&& other) noexcept = default;
CURI& CURI::operator=(CURI const& other) = default;
CURI& CURI::operator=(CURI&& other) noexcept = default;
CURI::~CURI() = default;

// --- derived -----------------------------------------------------------------

bool CURI::isEmpty() const noexcept {
  return m_scheme.isEmpty() && !m_hasAuthority && !m_hasHost && !m_hasUserName && m_port < 0 && !m_hasQuery &&
         !m_hasFragment && m_path.isEmpty();
}

String CURI::getName() const {
  std::size_t end = m_path.length();
  if (end > 0 && m_path[end - 1] == u'/') --end;
  std::size_t slash = end == 0 ? String::npos : m_path.str().rfind(u'/', end - 1);
  std::size_t start = slash == String::npos ? 0 : slash + 1;
  return m_path.Mid(start, end - start);
}

String CURI::getExtension() const {
  String name = getName();
  std::size_t dot = name.FindLast(u'.');
  return dot == String::npos || dot == 0 ? String() : name.Mid(dot + 1);
}

String CURI::getTitle() const {
  String name = getName();
  std::size_t dot = name.FindLast(u'.');
  return dot == String::npos || dot == 0 ? name : name.Left(dot);
}

CURI CURI::getParent() const {
  CURI parent(*this);
  parent.m_hasQuery = parent.m_hasFragment = false;
  parent.m_query.clear();
  parent.m_fragment.clear();
  std::size_t end = m_path.length();
  if (end > 1 && m_path[end - 1] == u'/') --end;
  std::size_t slash = end == 0 ? String::npos : m_path.str().rfind(u'/', end - 1);
  if (slash == String::npos)
    parent.m_path.clear();
  else
    parent.m_path = m_path.Left(slash == 0 ? 1 : slash);
  return parent;
}

CURI CURI::getRoot() const {
  CURI root(*this);
  root.m_hasQuery = root.m_hasFragment = false;
  root.m_query.clear();
  root.m_fragment.clear();
  root.m_path = getTraits()->getRootPath(*this);
  return root;
}

P<IURITraits> CURI::getTraits() const { return CURITraitsManager::get()->getTraitsForScheme(m_scheme); }

bool CURI::isParentOfOrEqual(CURI const& other) const {
  if (m_scheme != other.m_scheme || m_hasUserName != other.m_hasUserName || m_userName != other.m_userName ||
      m_hasHost != other.m_hasHost || m_host != other.m_host || m_port != other.m_port)
    return false;
  if (!isAbsolute() || !other.isAbsolute()) return false;
  if (other.hasUnsafeFilePath()) return false;
  bool caseSensitive = getTraits()->isPathCaseSensitive(*this);
  std::vector<String> mine = splitSegments(removeDotSegments(m_path));
  std::vector<String> theirs = splitSegments(removeDotSegments(other.m_path));
  if (!mine.empty() && mine.back().isEmpty()) mine.pop_back();  // "/a/" is the folder "/a"
  if (mine.size() > theirs.size()) return false;
  for (std::size_t i = 0; i < mine.size(); ++i)
    if (!segmentsEqual(mine[i], theirs[i], caseSensitive)) return false;
  return true;
}

// --- combination -------------------------------------------------------------

CURI CURI::operator<<(String const& component) const {
  CURI result(*this);
  if (!result.m_path.isEmpty() && !result.m_path.EndsWith(u"/")) result.m_path += u'/';
  result.m_path += component;
  return result;
}

CURI CURI::operator<<(CURI const& relative) const {
  if (relative.hasScheme() && relative.m_scheme != m_scheme) {
    throw CInvalidArgError(u"CURI::operator<<", u"URI schemes are different",
                           CProps().add(u"scheme1", m_scheme).add(u"scheme2", relative.m_scheme));
  }
  CURI result(*this);
  if (relative.m_hasAuthority) {
    result.m_hasAuthority = relative.m_hasAuthority;
    result.m_hasUserName = relative.m_hasUserName;
    result.m_userName = relative.m_userName;
    result.m_hasUserAuthInfo = relative.m_hasUserAuthInfo;
    result.m_userAuthInfo = relative.m_userAuthInfo;
    result.m_hasHost = relative.m_hasHost;
    result.m_host = relative.m_host;
    result.m_port = relative.m_port;
    result.m_path = removeDotSegments(relative.m_path);
  } else if (relative.isAbsolute()) {
    result.m_path = removeDotSegments(relative.m_path);
  } else if (!relative.m_path.isEmpty()) {
    String joined = m_path;
    if (!joined.isEmpty() && !joined.EndsWith(u"/")) joined += u'/';
    joined += relative.m_path;
    // Dot segments of a relative path cannot be resolved without a root.
    result.m_path = joined.StartsWith(u"/") ? removeDotSegments(joined) : joined;
  }
  result.m_hasQuery = relative.m_hasQuery;
  result.m_query = relative.m_query;
  result.m_hasFragment = relative.m_hasFragment;
  result.m_fragment = relative.m_fragment;
  return result;
}

CURI CURI::toRelative(CURI const& base) const {
  auto fail = [&](char16_t const* description) {
    throw CInvalidArgError(u"CURI::toRelative", description,
                           CProps().add(u"baseURI", base.toString(true)).add(u"uri", toString(true)));
  };
  if (m_scheme != base.m_scheme) fail(u"Both input URIs must have the same scheme.");
  if (m_hasHost != base.m_hasHost || m_host != base.m_host) fail(u"Both input URIs must have the same host.");
  if (m_port != base.m_port) fail(u"Both input URIs must have the same port.");
  if (m_hasUserName != base.m_hasUserName || m_userName != base.m_userName)
    fail(u"Both input URIs must have the same user name.");
  if (!isAbsolute() || !base.isAbsolute()) fail(u"Both input URIs must have an absolute path.");

  std::vector<String> folder = splitSegments(base.m_path);
  if (folder.back().isEmpty()) folder.pop_back();  // "/a/" and "/a" are the same folder
  std::vector<String> target = splitSegments(m_path);
  std::size_t common = 0;
  while (common < folder.size() && common < target.size() && folder[common] == target[common]) ++common;

  String path;
  if (common == target.size() && (common < folder.size() || m_path != base.m_path)) {
    // The target is an ancestor of the folder: climbing to it with ".."
    // would leave a trailing slash, so climb past it and name it again (the
    // same when only the base has the trailing slash).
    --common;
  }
  for (std::size_t i = common; i < folder.size(); ++i) path += u"../";
  String rest;
  for (std::size_t i = common; i < target.size(); ++i) {
    if (i > common) rest += u'/';
    rest += target[i];
  }
  if (common < target.size() && rest.isEmpty() && path.isEmpty()) {
    rest = u"./";  // the folder with a trailing slash
  } else if (path.isEmpty() && (rest.StartsWith(u"/") || rest.Left(rest.Find(u'/')).Contains(u":"))) {
    rest = u"./" + rest;  // not an absolute path, nor a scheme
  }
  path += rest;

  CURI relative;
  relative.m_path = path;
  relative.m_hasQuery = m_hasQuery;
  relative.m_query = m_query;
  relative.m_hasFragment = m_hasFragment;
  relative.m_fragment = m_fragment;
  return relative;
}

CURI CURI::toNormalized() const {
  CURI result(*this);
  if (result.isAbsolute()) result.m_path = removeDotSegments(m_path);
  return getTraits()->normalize(result);
}

// --- comparison --------------------------------------------------------------

bool CURI::operator==(CURI const& other) const noexcept {
  return m_scheme == other.m_scheme && m_path == other.m_path && m_host == other.m_host && m_port == other.m_port &&
         m_hasAuthority == other.m_hasAuthority && m_hasHost == other.m_hasHost &&
         m_hasUserName == other.m_hasUserName && m_userName == other.m_userName &&
         m_hasUserAuthInfo == other.m_hasUserAuthInfo && m_userAuthInfo == other.m_userAuthInfo &&
         m_hasQuery == other.m_hasQuery && m_query == other.m_query && m_hasFragment == other.m_hasFragment &&
         m_fragment == other.m_fragment;
}

bool CURI::operator<(CURI const& other) const noexcept {
  auto refs = [](CURI const& u) {
    return std::tie(u.m_scheme, u.m_hasAuthority, u.m_hasUserName, u.m_userName, u.m_hasUserAuthInfo,
                    u.m_userAuthInfo, u.m_hasHost, u.m_host, u.m_port, u.m_path, u.m_hasQuery, u.m_query,
                    u.m_hasFragment, u.m_fragment);
  };
  return refs(*this) < refs(other);
}


}  // namespace qo
