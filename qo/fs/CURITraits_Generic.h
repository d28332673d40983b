// qo/fs/CURITraits_Generic.h - URI rules for schemes without traits of
// their own, and the base of the specific traits.
//
// No default port, case-sensitive paths, root "/" for absolute paths,
// normalisation drops a port equal to getDefaultPort(). A subclass usually
// overrides one or two operations.
//
// Thread-safe (no state).
#ifndef QO_FS_CURITRAITS_GENERIC_H
#define QO_FS_CURITRAITS_GENERIC_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/fs/IURITraits.h"

namespace qo {

/// Generic URI rules. Thread-safe.
class QO_API CURITraits_Generic : public CBase, public IURITraits {
public:
  CURITraits_Generic();
  ~CURITraits_Generic() override;
  /// -1.
  long long getDefaultPort() const override;
  /// True.
  bool isPathCaseSensitive(CURI const& uri) const override;
  /// "/" for an absolute path, else "".
  String getRootPath(CURI const& uri) const override;
  /// uri without a port equal to getDefaultPort().
  CURI normalize(CURI const& uri) const override;
};

}  // namespace qo

#endif  // QO_FS_CURITRAITS_GENERIC_H
