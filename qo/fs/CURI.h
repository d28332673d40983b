// qo/fs/CURI.h - the name of every file and folder the library handles.
//
// A CURI is a parsed URI reference (scheme, user information, host, port,
// path, query, fragment). Each optional component has a presence flag, so
// "http://a/?" (empty query) and "http://a/" (no query) differ. Parsing is
// strict about structure and throws CURIMalformedError (message "Malformed
// URI", properties "uri" and "reason"). Stored forms:
//   scheme, host   lower case; an IPv6 literal host without its brackets
//                  ("fe80::1"), an IPvFuture host with them ("[v1.x]")
//   user name, user auth info, host, path, fragment   unescaped text
//   query          escaped, normalised: escapes of non-ASCII UTF-8 become the
//                  characters, escaped unreserved characters are decoded,
//                  other escapes keep upper-case hex digits
//   path           "/" when an authority is present and the path is empty
// toString() escapes each component again, so for every URI u that parses,
// CURI(u.toString(true)) == u (and the same with false).
//
// File URIs convert to and from paths:
//   CURI(TPathImpl<CWindowsPathTraits>(u"C:\\data\\a b.txt"), false)  -> file:///C:/data/a%20b.txt
//   CURI(TPathImpl<CWindowsPathTraits>(u"\\\\srv\\share\\x"), false)   -> file://srv/share/x
//   CURI(u"file:///home/me").toUnixFilePath()                          -> /home/me
//
// Relative references:
//   CURI(base, &text)        RFC 3986 resolution (the base's last segment is
//                            a file name: "http://a/b/c" + "d" = "http://a/b/d")
//   folder << u"name"        appends one path component
//   folder << relativeURI    appends a relative URI, taking the folder as a
//                            folder whether or not its path ends in "/"
//   uri.toRelative(folder)   the inverse: folder << uri.toRelative(folder) == uri
//
// A value class. Not thread-safe (share copies, not one object, between
// writers).
#ifndef QO_FS_CURI_H
#define QO_FS_CURI_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/String.h"
#include "qo/core/TConstOptRef.h"

namespace qo {

template <class Traits>
class TPathImpl;
class CWindowsPathTraits;
class CUnixPathTraits;
class IURITraits;

class QO_API CURI : public CBase {
public:
  /// The empty URI: no component present, empty path.
  CURI();
  /// Parses a URI reference (absolute or relative). Throws
  /// CURIMalformedError for a bad scheme, an unclosed or misplaced bracketed
  /// host, a port that is not a decimal number, or a path that does not
  /// start with "/" after an authority.
  explicit CURI(String const& text);
  /// Builds from parts (unescaped, except query, which is escaped text and is
  /// normalised). An empty scheme means none; port < 0 means none. Any
  /// authority part (user name, user auth info, host, port) implies the
  /// authority; an absent host is then taken as empty, an absent user name
  /// as empty when user auth info is given. Throws CURIMalformedError for a
  /// scheme that is not ALPHA *(ALPHA / DIGIT / "+" / "-" / "."), or for a
  /// non-empty path without leading "/" when there is an authority (an empty
  /// one becomes "/").
  CURI(String const& scheme, String const& path, TConstOptRef<String> userName = nil,
       TConstOptRef<String> userAuthInfo = nil, TConstOptRef<String> host = nil, long long port = -1,
       TConstOptRef<String> query = nil, TConstOptRef<String> fragment = nil);
  /// Resolves the reference *relative against base by RFC 3986 section 5.2
  /// (dot segments removed); a null relative gives a copy of base. Throws
  /// CURIMalformedError when *relative does not parse.
  CURI(CURI const& base, String const* relative);
  /// Resolves an already parsed reference against base (RFC 3986 5.2).
  CURI(CURI const& base, CURI const& relative);
  /// A "file" URI for an absolute Windows path: "C:\x" gives
  /// "file:///C:/x", "\\srv\share\x" gives "file://srv/share/x" (a server
  /// "fe80--1.ipv6-literal.net" gives the host "fe80::1"), "\\?\unc\..." as
  /// the plain UNC path, other "\\?\" and "\\.\" forms "file:////?/...".
  /// isFolder makes the path end in "/". Throws CBadPathError for a relative
  /// path.
  CURI(TPathImpl<CWindowsPathTraits> const& path, bool isFolder);
  /// A "file" URI for an absolute POSIX path: "/home/x" gives
  /// "file:///home/x". isFolder makes the path end in "/". Throws
  /// CBadPathError for a relative path.
  CURI(TPathImpl<CUnixPathTraits> const& path, bool isFolder);
  CURI(CURI const& other);
  CURI(CURI&& other) noexcept;
  CURI& operator=(CURI const& other);
  CURI& operator=(CURI&& other) noexcept;
  ~CURI() override;

  // --- components ------------------------------------------------------------
  bool hasScheme() const noexcept { return !m_scheme.isEmpty(); }
  bool hasUserName() const noexcept { return m_hasUserName; }
  bool hasUserAuthInfo() const noexcept { return m_hasUserAuthInfo; }
  bool hasHost() const noexcept { return m_hasHost; }
  bool hasPort() const noexcept { return m_port >= 0; }
  bool hasAuthority() const noexcept { return m_hasAuthority; }
  bool hasQuery() const noexcept { return m_hasQuery; }
  bool hasFragment() const noexcept { return m_hasFragment; }

  /// Lower case; "" when there is none.
  String const& getScheme() const noexcept { return m_scheme; }
  /// Unescaped; "" when absent.
  String const& getUserName() const noexcept { return m_userName; }
  /// The password part, unescaped; "" when absent.
  String const& getUserAuthInfo() const noexcept { return m_userAuthInfo; }
  /// Lower case, IPv6 without brackets; "" when absent.
  String const& getHost() const noexcept { return m_host; }
  /// The port; -1 when absent.
  long long getPort() const noexcept { return m_port; }
  /// Unescaped.
  String const& getPath() const noexcept { return m_path; }
  /// The normalised escaped query (non-ASCII as characters); "" when absent.
  String const& getEscapedUnicodeQuery() const noexcept { return m_query; }
  /// Unescaped; "" when absent.
  String const& getFragment() const noexcept { return m_fragment; }

  TConstOptRef<String> getUserNameOptRef() const noexcept { return opt(m_hasUserName, m_userName); }
  TConstOptRef<String> getUserAuthInfoOptRef() const noexcept { return opt(m_hasUserAuthInfo, m_userAuthInfo); }
  TConstOptRef<String> getHostOptRef() const noexcept { return opt(m_hasHost, m_host); }
  TConstOptRef<String> getEscapedUnicodeQueryOptRef() const noexcept { return opt(m_hasQuery, m_query); }
  TConstOptRef<String> getFragmentOptRef() const noexcept { return opt(m_hasFragment, m_fragment); }

  // --- derived ---------------------------------------------------------------
  /// The last path component; a single trailing "/" is ignored ("/a/b/"
  /// gives "b"); "" for "/" and the empty path.
  String getName() const;
  /// The part of getName() after its last ".", without the dot; "" when the
  /// name has no dot or only a leading one (".profile").
  String getExtension() const;
  /// getName() without "." and extension ("a.tar.gz" gives "a.tar").
  String getTitle() const;
  /// The URI of the folder holding this one: same scheme and authority, path
  /// without its last component (and without a trailing "/" unless it is
  /// "/"), no query or fragment. The parent of "/" is "/", of a one-segment
  /// relative path the empty path.
  CURI getParent() const;
  /// Same scheme and authority with the root path of the scheme's traits
  /// ("/" in general; "/c:/" or "//srv/share/" for Windows-style file
  /// paths), no query or fragment.
  CURI getRoot() const;
  /// True when the path starts with "/".
  bool isAbsolute() const noexcept { return !m_path.isEmpty() && m_path[0] == u'/'; }
  /// True when no component is present and the path is empty.
  bool isEmpty() const noexcept;
  /// True when other has the same scheme, user name, host and port and its
  /// path (dot segments removed) equals this path or lies below it, whole
  /// segments compared, case-insensitively where the traits say so; false
  /// when other.hasUnsafeFilePath(). When it holds and both convert to file
  /// paths, the child's path lies below the parent's.
  bool isParentOfOrEqual(CURI const& other) const;
  /// True for a "file" URI that no file path can name faithfully: its path
  /// (dot segments removed) or host holds a NUL, or it converts to a
  /// Windows path (a host, or a path of Windows style) and a segment holds
  /// a backslash or only dots and spaces, or the host holds a separator or
  /// a wildcard. The conversions refuse such URIs and isParentOfOrEqual and
  /// CURISelector never take them as inside a folder. Not thread-safe.
  bool hasUnsafeFilePath() const;
  /// The traits registered for the scheme (CURITraitsManager). Thread-safe
  /// after start-up registration.
  P<IURITraits> getTraits() const;

  // --- text ------------------------------------------------------------------
  /// The URI text with every component escaped; keepNonASCII keeps
  /// characters at or above U+0080 as they are (an IRI), false writes them
  /// as UTF-8 escapes (plain ASCII). Never throws for any stored URI.
  String toString(bool keepNonASCII = false) const;

  /// Appends text to out, character by character: below U+0021 escaped;
  /// unreserved ASCII ("a"-"z", "A"-"Z", "0"-"9", "-._~") copied; reserved
  /// ones (":/?#[]@!$&'()*+,;=") copied only when extraAllowed holds them;
  /// other ASCII escaped; U+0080 and above copied when keepNonASCII, else
  /// escaped. With onlyNonASCII, characters from U+0080 are escaped and all
  /// others copied. An escape is "%" and two upper-case hex digits per UTF-8
  /// byte; a lone surrogate takes its three-byte generalised UTF-8 form, so
  /// that unescape gives it back. Never throws.
  static void escapeAndAppend(String& out, String const& text, bool keepNonASCII, String const& extraAllowed,
                              bool onlyNonASCII = false);
  /// escapeAndAppend into a new string.
  static String escape(String const& text, bool keepNonASCII, String const& extraAllowed = String());
  /// Decodes "%XX" escapes as UTF-8 (a lone surrogate's three-byte form
  /// included); bytes that form no character are taken as Latin-1, a "%"
  /// not followed by two hexadecimal digits stays as it is. Never throws.
  /// unescape(escape(s, k, x)) == s for every s.
  static String unescape(String const& text);
  /// The stored form of a query: see the top of this file. Idempotent.
  static String normalizeEscapedUnicodeQuery(String const& query);
  /// True for a file-URI path of Windows style: "//srv/share..." (second
  /// character a slash), "/c:" or "/c:/...".
  static bool isWindowsStyleFileURIPath(String const& path);

  // --- files -----------------------------------------------------------------
  /// toWindowsFilePath().
  TPathImpl<CWindowsPathTraits> toFilePath() const;
  /// The Windows path of a "file" URI: a host gives a UNC path (IPv6 in the
  /// "fe80--1.ipv6-literal.net" form), else the path must be of Windows
  /// style. Dot segments are removed first (as isParentOfOrEqual removes
  /// them). Long paths get the long prefix. Throws CURIIncompatibleError
  /// ("Cannot convert URI to windows file path. " and the reason) for a URI
  /// with hasUnsafeFilePath(), and
  /// ("Cannot convert URI to windows file path. URI has an incompatible
  /// scheme." / "... Path does not have windows style." / "Unable to convert
  /// URI with 'future style' IP address to Windows file path.").
  TPathImpl<CWindowsPathTraits> toWindowsFilePath() const;
  /// The POSIX path of a "file" URI, dot segments removed first. Throws
  /// CURIIncompatibleError ("Cannot convert URI to unix file path. Path
  /// holds a NUL character." /"Cannot
  /// convert URI to unix file path. URI has an incompatible scheme." /
  /// "Cannot convert URI to unix file path. Path is network path." /
  /// "Cannot convert URI to posix file path. Path has windows style.").
  TPathImpl<CUnixPathTraits> toUnixFilePath() const;

  // --- combination -----------------------------------------------------------
  /// A copy with component (unescaped text) appended to the path after a
  /// "/" (none added when the path is empty or ends in "/"). Query and
  /// fragment are kept.
  CURI operator<<(String const& component) const;
  /// This URI, taken as a folder, combined with relative: a relative path is
  /// appended and dot segments removed, an absolute path replaces the path,
  /// an authority replaces authority and path; query and fragment are those
  /// of relative. Throws CInvalidArgError ("URI schemes are different",
  /// place "CURI::operator<<", properties "scheme1", "scheme2") when
  /// relative has another scheme.
  CURI operator<<(CURI const& relative) const;
  /// The relative reference r with base << r == *this (base taken as a
  /// folder), with this query and fragment. Throws CInvalidArgError
  /// (place "CURI::toRelative", property "baseURI") unless scheme, host,
  /// port and user name agree ("Both input URIs must have the same
  /// scheme." ...) and both paths are absolute ("Both input URIs must have an
  /// absolute path.").
  CURI toRelative(CURI const& base) const;
  /// Dot segments removed from the path, then the scheme's normalisation
  /// (HTTP and FTP drop their default port).
  CURI toNormalized() const;

  /// Component-by-component equality, presence flags included.
  bool operator==(CURI const& other) const noexcept;
  bool operator!=(CURI const& other) const noexcept { return !(*this == other); }
  /// A strict weak order over the components (for ordered containers).
  bool operator<(CURI const& other) const noexcept;

  /// RFC 3986 5.2.4: "." and ".." segments of path removed.
  static String removeDotSegments(String const& path);

private:
  static TConstOptRef<String> opt(bool has, String const& value) noexcept {
    return has ? TConstOptRef<String>(value) : TConstOptRef<String>();
  }
  void parse(String const& text);
  void resolve(CURI const& base, CURI const& relative);

  String m_scheme;
  String m_userName;
  String m_userAuthInfo;
  String m_host;
  String m_path;
  String m_query;
  String m_fragment;
  long long m_port = -1;
  bool m_hasUserName = false;
  bool m_hasUserAuthInfo = false;
  bool m_hasHost = false;
  bool m_hasAuthority = false;
  bool m_hasQuery = false;
  bool m_hasFragment = false;
};

/// Writes uri.toString(true) as UTF-8.
QO_API std::ostream& operator<<(std::ostream& out, CURI const& uri);
/// For GoogleTest's failure messages.
QO_API void PrintTo(CURI const& uri, std::ostream* out);

}  // namespace qo

#endif  // QO_FS_CURI_H
