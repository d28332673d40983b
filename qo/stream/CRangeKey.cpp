#include "qo/stream/CRangeKey.h"

namespace qo {

String CRangeKey::toString() const {
  return u"[" + qo::toString(m_start) + u", " + qo::toString(getEnd()) + u")";
}

}  // namespace qo
