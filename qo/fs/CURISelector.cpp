#include "qo/fs/CURISelector.h"

#include "qo/core/CIOError.h"
#include "qo/fs/CURI.h"
#include "qo/fs/IURITraits.h"
#include "qo/stream/CDataInStream.h"
#include "qo/stream/CDataOutStream.h"

namespace qo {

namespace {

constexpr std::int32_t kVersion = 1;

String normalizeSelectorPath(String const& path) {
  String normal = path.StartsWith(u"/") ? CURI::removeDotSegments(path) : path;
  if (normal.length() > 1 && normal.EndsWith(u"/")) normal = normal.Left(normal.length() - 1);
  return normal;
}

// Hosts as CURI stores them.
String normalizeSelectorHost(String const& host) {
  if (host.length() >= 2 && host[0] == u'[' && host.Contains(u":") && !host.StartsWith(u"[v") &&
      !host.StartsWith(u"[V"))
    return host.Mid(1, host.length() - 2).Lower();
  return host.Lower();
}

void storeTexts(CDataOutStream& out, std::set<String> const& texts) {
  out.writeInt32(static_cast<std::int32_t>(texts.size()));
  for (String const& text : texts) out.writeString(CURI::escape(text, false));
}

std::int32_t readCount(CDataInStream& in) {
  std::int32_t count = in.readInt32();
  if (count < 0) throw CIOError(CIOError::kCorruptData, String(), CProps().addLong(u"count", count));
  return count;
}

std::set<String> loadTexts(CDataInStream& in) {
  std::set<String> texts;
  for (std::int32_t i = readCount(in); i > 0; --i) texts.insert(CURI::unescape(in.readString()));
  return texts;
}

}  // namespace

CURISelector::CURISelector() = default;
CURISelector::CURISelector(CURISelector const& other) = default;
CURISelector& CURISelector::operator=(CURISelector const& other) = default;
CURISelector::~CURISelector() = default;

CURISelector& CURISelector::scheme(String const& scheme) {
  m_schemes.insert(scheme.Lower());
  return *this;
}

CURISelector& CURISelector::host(String const& host) {
  m_hosts.insert(normalizeSelectorHost(host));
  return *this;
}

CURISelector& CURISelector::port(long long port) {
  m_ports.insert(port);
  return *this;
}

CURISelector& CURISelector::user(String const& userName) {
  m_users.insert(userName);
  return *this;
}

CURISelector& CURISelector::path(String const& path) {
  m_paths.insert(normalizeSelectorPath(path));
  return *this;
}

CURISelector CURISelector::fromURI(CURI const& uri, bool withPath) {
  CURISelector selector;
  selector.scheme(uri.getScheme());
  if (uri.hasHost()) selector.host(uri.getHost());
  if (uri.hasPort()) selector.port(uri.getPort());
  if (uri.hasUserName()) selector.user(uri.getUserName());
  if (withPath) selector.path(uri.getPath());
  return selector;
}

bool CURISelector::componentMatches(std::set<String> const& allowed, TConstOptRef<String> value) {
  return allowed.empty() || (value && allowed.count(*value) != 0);
}

bool CURISelector::componentMatches(std::set<long long> const& allowed, long long port) {
  return allowed.empty() || (port >= 0 && allowed.count(port) != 0);
}

bool CURISelector::pathMatches(String const& path, bool caseSensitive) const {
  if (m_paths.empty()) return true;
  String normal = path.StartsWith(u"/") ? CURI::removeDotSegments(path) : path;
  for (String const& allowed : m_paths) {
    if (allowed == u"/" && normal.StartsWith(u"/")) return true;
    if (normal.length() < allowed.length()) continue;
    String head = normal.Left(allowed.length());
    bool same = caseSensitive ? head == allowed : head.CmpNoCase(allowed) == 0;
    if (same && (normal.length() == allowed.length() || normal[allowed.length()] == u'/')) return true;
  }
  return false;
}

bool CURISelector::matches(CURI const& uri) const {
  if (!componentMatches(m_schemes, uri.getScheme()) || !componentMatches(m_hosts, uri.getHostOptRef()) ||
      !componentMatches(m_users, uri.getUserNameOptRef()))
    return false;
  if (m_ports.empty() && m_paths.empty()) return true;
  // A path that converts to a file path outside the one it spells is below
  // no selected folder.
  if (!m_paths.empty() && uri.hasUnsafeFilePath()) return false;
  P<IURITraits> traits = uri.getTraits();
  long long port = uri.hasPort() ? uri.getPort() : traits->getDefaultPort();
  return componentMatches(m_ports, port) && pathMatches(uri.getPath(), traits->isPathCaseSensitive(uri));
}

void CURISelector::store(CDataOutStream& out) const {
  out.writeInt32(kVersion);
  storeTexts(out, m_schemes);
  storeTexts(out, m_hosts);
  out.writeInt32(static_cast<std::int32_t>(m_ports.size()));
  for (long long port : m_ports) out.writeInt64(port);
  storeTexts(out, m_users);
  storeTexts(out, m_paths);
}

CURISelector CURISelector::load(CDataInStream& in) {
  std::int32_t version = in.readInt32();
  if (version != kVersion)
    throw CIOError(CIOError::kBadVersion,
                   u"Invalid version number encountered in CURISelector::load: " + qo::toString(version));
  CURISelector selector;
  selector.m_schemes = loadTexts(in);
  selector.m_hosts = loadTexts(in);
  for (std::int32_t i = readCount(in); i > 0; --i) selector.m_ports.insert(in.readInt64());
  selector.m_users = loadTexts(in);
  selector.m_paths = loadTexts(in);
  return selector;
}

}  // namespace qo
