// qo/fs/CURISelector.h - a pattern over URIs.
//
// A selector holds, for each of scheme, host, port, user name and path, a
// set of allowed values; an empty set allows everything, so the empty
// selector matches every URI. A path value selects that path and everything
// below it (whole segments; "/data" selects "/data/x" but not "/database").
// Paths of the URI are taken with their dot segments removed and compared
// with or without letter case as the scheme's traits say. A URI without a
// port matches a port set through its scheme's default port (80 for http).
// A file URI that no file path names faithfully (CURI::hasUnsafeFilePath)
// matches no path set.
//
//   CURISelector backups = CURISelector().scheme(u"file").path(u"/c:/backups");
//   backups.matches(CURI(u"file:///C:/Backups/set1/disk.img"));   // true
//   backups.store(out);  ...  CURISelector copy = CURISelector::load(in);
//
// Record layout (CDataOutStream): int32 version (1); then the schemes, the
// hosts, the ports, the users and the paths, each as an int32 count followed
// by the values, ports as int64, texts as strings in their URI-escaped ASCII
// form (so any text, lone surrogates included, survives).
//
// A value class. Not thread-safe.
#ifndef QO_FS_CURISELECTOR_H
#define QO_FS_CURISELECTOR_H

#include <set>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/String.h"
#include "qo/core/TConstOptRef.h"

namespace qo {

class CURI;
class CDataInStream;
class CDataOutStream;

/// Sets of allowed URI components. Not thread-safe.
class QO_API CURISelector : public CBase {
public:
  /// Matches every URI.
  CURISelector();
  CURISelector(CURISelector const& other);
  CURISelector& operator=(CURISelector const& other);
  ~CURISelector() override;

  /// Allows the scheme (stored in lower case). Returns *this.
  CURISelector& scheme(String const& scheme);
  /// Allows the host (stored in lower case, IPv6 without brackets). Returns *this.
  CURISelector& host(String const& host);
  /// Allows the port. Returns *this.
  CURISelector& port(long long port);
  /// Allows the user name. Returns *this.
  CURISelector& user(String const& userName);
  /// Allows the path and everything below it (stored with dot segments
  /// removed and without a trailing "/", except "/" itself). Returns *this.
  CURISelector& path(String const& path);

  /// The selector of uri's scheme, host, port and user name (those it has)
  /// and, with withPath, of its path and everything below it.
  static CURISelector fromURI(CURI const& uri, bool withPath);

  /// True when every component of uri is allowed.
  bool matches(CURI const& uri) const;
  /// True when allowed is empty or holds the value; an absent value only
  /// matches the empty set.
  static bool componentMatches(std::set<String> const& allowed, TConstOptRef<String> value);
  /// The same for ports; a negative port (none) only matches the empty set.
  static bool componentMatches(std::set<long long> const& allowed, long long port);
  /// True when the path set is empty or path (dot segments removed) equals
  /// or lies below one of its paths, compared with case when caseSensitive.
  bool pathMatches(String const& path, bool caseSensitive) const;

  std::set<String> const& getSchemes() const noexcept { return m_schemes; }
  std::set<String> const& getHosts() const noexcept { return m_hosts; }
  std::set<long long> const& getPorts() const noexcept { return m_ports; }
  std::set<String> const& getUsers() const noexcept { return m_users; }
  std::set<String> const& getPaths() const noexcept { return m_paths; }

  /// Writes the record described at the top. Throws what out throws.
  void store(CDataOutStream& out) const;
  /// Reads a record written by store. Throws CIOError kind 6 ("Invalid
  /// version number encountered in CURISelector::load: " and the number)
  /// for an unknown version, CIOError kind 5 for a negative count, and what
  /// in throws.
  static CURISelector load(CDataInStream& in);

  friend bool operator==(CURISelector const& a, CURISelector const& b) {
    return a.m_schemes == b.m_schemes && a.m_hosts == b.m_hosts && a.m_ports == b.m_ports &&
           a.m_users == b.m_users && a.m_paths == b.m_paths;
  }
  friend bool operator!=(CURISelector const& a, CURISelector const& b) { return !(a == b); }

private:
  std::set<String> m_schemes;
  std::set<String> m_hosts;
  std::set<long long> m_ports;
  std::set<String> m_users;
  std::set<String> m_paths;
};

}  // namespace qo

#endif  // QO_FS_CURISELECTOR_H
