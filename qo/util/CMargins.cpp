#include "qo/util/CMargins.h"

#include <algorithm>
#include <cmath>

namespace qo {

CMargins CMargins::unionWith(CMargins const& o) const noexcept {
  return CMargins(std::max(m_left, o.m_left), std::max(m_top, o.m_top), std::max(m_right, o.m_right),
                  std::max(m_bottom, o.m_bottom));
}

CMargins CMargins::intersectWith(CMargins const& o) const noexcept {
  return CMargins(std::min(m_left, o.m_left), std::min(m_top, o.m_top), std::min(m_right, o.m_right),
                  std::min(m_bottom, o.m_bottom));
}

CMargins CMargins::scaled(double factor) const noexcept {
  auto scale = [factor](int v) { return static_cast<int>(std::lround(v * factor)); };
  return CMargins(scale(m_left), scale(m_top), scale(m_right), scale(m_bottom));
}

String CMargins::toString() const {
  return qo::toString(m_left) + u"," + qo::toString(m_top) + u"," + qo::toString(m_right) + u"," +
         qo::toString(m_bottom);
}

}  // namespace qo
