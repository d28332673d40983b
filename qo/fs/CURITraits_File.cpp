#include "qo/fs/CURITraits_File.h"

#include "qo/fs/CURI.h"

namespace qo {

CURITraits_File::CURITraits_File() = default;
CURITraits_File::~CURITraits_File() = default;

bool CURITraits_File::isPathCaseSensitive(CURI const& uri) const {
  return uri.getHost().isEmpty() && !CURI::isWindowsStyleFileURIPath(uri.getPath());
}

// The end of the n-th "/"-separated segment at or after from: the position
// of the "/" that ends it, or the length.
static std::size_t endOfSegments(String const& path, std::size_t from, int n) {
  std::size_t pos = from;
  for (int i = 0; i < n; ++i) {
    std::size_t slash = path.Find(u'/', pos);
    if (slash == String::npos) return path.length();
    pos = i + 1 < n ? slash + 1 : slash;
  }
  return pos;
}

String CURITraits_File::getRootPath(CURI const& uri) const {
  String const& path = uri.getPath();
  if (!uri.isAbsolute()) return String();
  if (!uri.getHost().isEmpty()) return path.Left(endOfSegments(path, 1, 1)) + u"/";
  if (!CURI::isWindowsStyleFileURIPath(path)) return u"/";
  if (path[1] == u'/') return path.Left(endOfSegments(path, 2, 2)) + u"/";
  return path.Left(3) + u"/";
}

}  // namespace qo
