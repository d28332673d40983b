// Conversion between file URIs and Windows or Unix file paths.
#include "qo/fs/CURI.h"

#include "qo/core/CBadPathError.h"
#include "qo/core/CURIIncompatibleError.h"
#include "qo/fs/CUnixPathTraits.h"
#include "qo/fs/CWindowsPathTraits.h"
#include "qo/fs/TPathImpl.h"
#include "qo/fs/URIText.h"

namespace qo {

using namespace uritext;

namespace {

constexpr char16_t const* kIPv6LiteralSuffix = u".ipv6-literal.net";

// A segment Windows would not keep as one name: it holds a separator, or is
// made of dots and spaces only, which the platform trims to "", "." or "..".
// The dot segments themselves are resolved before anyone asks.
bool isUnsafeWindowsSegment(String const& segment) {
  if (segment.Find(u'\\') != String::npos) return true;
  if (segment.isEmpty() || segment == u"." || segment == u"..") return false;
  for (char16_t c : segment.str())
    if (c != u'.' && c != u' ') return false;
  return true;
}

// The reason a file path built from the URI's path (dot segments already
// removed) would name something else than the URI, or nullptr. A NUL ends
// the path for every platform call; on Windows a backslash is a separator
// as well. Containment and conversion share this check, so that a URI found
// inside a folder never converts to a path outside it.
char16_t const* unsafeFilePathReason(String const& host, String const& path, bool windows) {
  if (path.Find(u'\0') != String::npos || host.Find(u'\0') != String::npos) return u"Path holds a NUL character.";
  if (!windows) return nullptr;
  for (char16_t c : host.str()) {
    if (c == u'\\' || c == u'/' || c == u'?' || c == u'*' || c == u'"' || c == u'<' || c == u'>' || c == u'|')
      return u"Host is not a server name.";
  }
  if (host == u"." || host == u"..") return u"Host is not a server name.";
  for (String const& segment : splitSegments(path)) {
    if (isUnsafeWindowsSegment(segment)) return u"A path segment holds a separator or only dots and spaces.";
  }
  return nullptr;
}

}  // namespace

// --- files -------------------------------------------------------------------

bool CURI::hasUnsafeFilePath() const {
  if (m_scheme != u"file") return false;
  String const path = removeDotSegments(m_path);
  bool const windows = !m_host.isEmpty() || isWindowsStyleFileURIPath(path) || isWindowsStyleFileURIPath(m_path);
  return unsafeFilePathReason(isStoredIPv6Host(m_host) ? String() : m_host, path, windows) != nullptr;
}

bool CURI::isWindowsStyleFileURIPath(String const& path) {
  std::size_t n = path.length();
  if (n >= 2 && path[1] == u'/') return true;
  if (n < 3 || path[0] != u'/' || !isAlpha(path[1]) || path[2] != u':') return false;
  return n == 3 || path[3] == u'/';
}

TPathImpl<CWindowsPathTraits> CURI::toFilePath() const { return toWindowsFilePath(); }

TPathImpl<CWindowsPathTraits> CURI::toWindowsFilePath() const {
  if (m_scheme != u"file")
    throw CURIIncompatibleError(*this, u"Cannot convert URI to windows file path. URI has an incompatible scheme.");
  String text;
  // Dot segments are resolved here, as containment resolves them, never by
  // the platform, which would not stop at the same place.
  String const path = removeDotSegments(m_path);
  if (m_host.isEmpty() && !isWindowsStyleFileURIPath(path))
    throw CURIIncompatibleError(*this, u"Cannot convert URI to windows file path. Path does not have windows style.");
  if (m_host.StartsWith(u"["))
    throw CURIIncompatibleError(*this, u"Unable to convert URI with 'future style' IP address to Windows file path.");
  if (char16_t const* reason = unsafeFilePathReason(isStoredIPv6Host(m_host) ? String() : m_host, path, true))
    throw CURIIncompatibleError(*this, u"Cannot convert URI to windows file path. " + String(reason));
  String const device = CWindowsPathTraits::findReservedDeviceName(path);
  if (!device.isEmpty())
    throw CURIIncompatibleError(
        *this, u"Cannot convert URI to windows file path. Path contains the reserved device name '" + device + u"'.");
  if (!m_host.isEmpty()) {
    String server = m_host;
    if (isStoredIPv6Host(server)) {
      // The UNC spelling of an IPv6 address: "-" for ":", "s" for the
      // zone's "%", and a fixed domain that Windows resolves to the address.
      std::size_t percent = server.Find(u'%');
      server = server.Left(percent).Replace(u":", u"-") +
               (percent == String::npos ? String() : u"s" + server.Mid(percent + 1)) + kIPv6LiteralSuffix;
    }
    text = u"\\\\" + server + path.Replace(u"/", u"\\");
  } else {
    text = path[1] == u'/' ? path : path.Mid(1);
    text = text.Replace(u"/", u"\\");
    if (text.length() == 2) text += u'\\';  // "/c:" is the drive's root
  }
  return TPathImpl<CWindowsPathTraits>(text);
}

TPathImpl<CUnixPathTraits> CURI::toUnixFilePath() const {
  if (m_scheme != u"file")
    throw CURIIncompatibleError(*this, u"Cannot convert URI to unix file path. URI has an incompatible scheme.");
  if (!m_host.isEmpty())
    throw CURIIncompatibleError(*this, u"Cannot convert URI to unix file path. Path is network path.");
  if (isWindowsStyleFileURIPath(m_path))
    throw CURIIncompatibleError(*this, u"Cannot convert URI to posix file path. Path has windows style.");
  String const path = removeDotSegments(m_path);
  if (char16_t const* reason = unsafeFilePathReason(String(), path, false))
    throw CURIIncompatibleError(*this, u"Cannot convert URI to unix file path. " + String(reason));
  return TPathImpl<CUnixPathTraits>(path);
}

CURI::CURI(TPathImpl<CWindowsPathTraits> const& path, bool isFolder) : m_scheme(u"file") {
  String text = path.toString();
  if (text.StartsWith(u"\\\\?\\unc\\", true)) text = u"\\\\" + text.Mid(8);
  if (text.length() >= 6 && text.StartsWith(u"\\\\?\\") && isAlpha(text[4]) && text[5] == u':') text = text.Mid(4);
  m_hasAuthority = m_hasHost = true;
  if (text.StartsWith(u"\\\\")) {
    bool device = text.length() >= 4 && (text[2] == u'?' || text[2] == u'.') && text[3] == u'\\';
    if (device) {
      m_path = text.Replace(u"\\", u"/");
    } else {
      std::size_t end = text.Find(u'\\', 2);
      String server = text.Mid(2, end == String::npos ? String::npos : end - 2).Lower();
      m_path = end == String::npos ? String(u"/") : text.Mid(end).Replace(u"\\", u"/");
      if (server.EndsWith(kIPv6LiteralSuffix)) {
        String literal = server.Left(server.length() - String(kIPv6LiteralSuffix).length());
        std::size_t zone = literal.Find(u's');
        String address = literal.Left(zone).Replace(u"-", u":");
        if (zone != String::npos) address += u"%" + literal.Mid(zone + 1);
        if (isStoredIPv6Host(address)) server = address;
      }
      m_host = server;
    }
  } else if (text.length() >= 3 && isAlpha(text[0]) && text[1] == u':' && text[2] == u'\\') {
    m_path = u"/" + text.Replace(u"\\", u"/");
  } else {
    throw CBadPathError(text);
  }
  if (isFolder && !m_path.EndsWith(u"/")) m_path += u'/';
}

CURI::CURI(TPathImpl<CUnixPathTraits> const& path, bool isFolder) : m_scheme(u"file") {
  String const& text = path.toString();
  if (!text.StartsWith(u"/")) throw CBadPathError(text);
  m_hasAuthority = m_hasHost = true;
  m_path = text;
  if (isFolder && !m_path.EndsWith(u"/")) m_path += u'/';
}
}  // namespace qo
