// qo/fs/CURITraits_HTTP.h - URI rules for "http" and "https".
//
// One instance per scheme, each with its default port (80, 443), which
// toNormalized drops:  CURI(u"http://a:80/x").toNormalized()  ->  http://a/x
//
// Thread-safe (no mutable state).
#ifndef QO_FS_CURITRAITS_HTTP_H
#define QO_FS_CURITRAITS_HTTP_H

#include "qo/core/Export.h"
#include "qo/fs/CURITraits_Generic.h"

namespace qo {

/// URI rules of HTTP and HTTPS. Thread-safe.
class QO_API CURITraits_HTTP : public CURITraits_Generic {
public:
  /// Traits for a scheme whose default port is defaultPort (80 for "http",
  /// 443 for "https").
  explicit CURITraits_HTTP(long long defaultPort);
  ~CURITraits_HTTP() override;
  /// The port given at construction.
  long long getDefaultPort() const override;

private:
  long long m_defaultPort;
};

}  // namespace qo

#endif  // QO_FS_CURITRAITS_HTTP_H
