// qo/fs/CURITraits_Empty.h - URI rules for references without a scheme.
//
// Relative references ("../a", "?q") follow the generic rules; the traits
// manager keeps this class under the empty scheme "".
//
// Thread-safe (no mutable state).
#ifndef QO_FS_CURITRAITS_EMPTY_H
#define QO_FS_CURITRAITS_EMPTY_H

#include "qo/core/Export.h"
#include "qo/fs/CURITraits_Generic.h"

namespace qo {

/// URI rules of relative references. Thread-safe.
class QO_API CURITraits_Empty : public CURITraits_Generic {
public:
  CURITraits_Empty();
  ~CURITraits_Empty() override;
};

}  // namespace qo

#endif  // QO_FS_CURITRAITS_EMPTY_H
