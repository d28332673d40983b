// qo/fs/IURITraits.h - the scheme-specific rules of URIs.
//
// CURI asks the traits of its scheme (CURITraitsManager::getTraitsForScheme)
// for the few things that differ between schemes: the default port, whether
// paths compare with case, what the root of a path is, and the last step of
// toNormalized. The classes:
//   CURITraits_Generic  unknown schemes; also the base of the others
//   CURITraits_Empty    references without a scheme
//   CURITraits_File     "file": Windows-style paths ("/c:/", "//srv/share")
//                       and UNC hosts compare without case
//   CURITraits_HTTP     "http" (port 80) and "https" (port 443)
//   CURITraits_FTP      "ftp" (port 21)
//
// Implementations hold no mutable state. Thread-safe.
#ifndef QO_FS_IURITRAITS_H
#define QO_FS_IURITRAITS_H

#include "qo/core/Export.h"
#include "qo/core/IBase.h"
#include "qo/core/String.h"

namespace qo {

class CURI;

/// Scheme rules for CURI. Thread-safe.
class QO_API IURITraits : public virtual IBase {
public:
  ~IURITraits() override;
  /// The port a URI of the scheme means when it names none; -1 when the
  /// scheme has no ports.
  virtual long long getDefaultPort() const = 0;
  /// True when paths of uri differ by letter case.
  virtual bool isPathCaseSensitive(CURI const& uri) const = 0;
  /// The root of uri's path: "/" for an absolute path, "" for a relative
  /// one, or a longer scheme-specific root ("/c:/").
  virtual String getRootPath(CURI const& uri) const = 0;
  /// The scheme's part of CURI::toNormalized, given the URI with its dot
  /// segments already removed.
  virtual CURI normalize(CURI const& uri) const = 0;
};

}  // namespace qo

#endif  // QO_FS_IURITRAITS_H
