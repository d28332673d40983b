// qo/fs/CURITraits_File.h - URI rules for "file".
//
// A file URI names either a Windows path ("file:///c:/x", UNC as
// "file://srv/share/x" or "file:////srv/share/x") or a POSIX path
// ("file:///home/x"). Windows paths compare without letter case and have the
// roots "/c:/", "//srv/share/" and, with a host, "/share/"; POSIX paths
// compare with case and have the root "/".
//
// Thread-safe (no state).
#ifndef QO_FS_CURITRAITS_FILE_H
#define QO_FS_CURITRAITS_FILE_H

#include "qo/core/Export.h"
#include "qo/fs/CURITraits_Generic.h"

namespace qo {

/// URI rules of local and network files. Thread-safe.
class QO_API CURITraits_File : public CURITraits_Generic {
public:
  CURITraits_File();
  ~CURITraits_File() override;
  /// False for a Windows-style path or a URI with a host (a UNC path).
  bool isPathCaseSensitive(CURI const& uri) const override;
  /// "/c:/" for "/c:..." paths, "//srv/share/" for "//srv/share...", with a
  /// host "/share/", otherwise as the generic rules.
  String getRootPath(CURI const& uri) const override;
};

}  // namespace qo

#endif  // QO_FS_CURITRAITS_FILE_H
