// qo/fs/CURITraits_FTP.h - URI rules for "ftp".
//
// Default port 21, which toNormalized drops.
//
// Thread-safe (no mutable state).
#ifndef QO_FS_CURITRAITS_FTP_H
#define QO_FS_CURITRAITS_FTP_H

#include "qo/core/Export.h"
#include "qo/fs/CURITraits_Generic.h"

namespace qo {

/// URI rules of FTP. Thread-safe.
class QO_API CURITraits_FTP : public CURITraits_Generic {
public:
  CURITraits_FTP();
  ~CURITraits_FTP() override;
  /// 21.
  long long getDefaultPort() const override;
};

}  // namespace qo

#endif  // QO_FS_CURITRAITS_FTP_H
