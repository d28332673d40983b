// qo/util/CMargins.h - the four margins of a rectangle (left, top, right,
// bottom), as a layout adds them around content or takes them off a frame.
//
// A plain value of four ints. Margins add and subtract side by side, scale
// (for another screen resolution, rounding half away from zero), combine to
// the larger or smaller side (union / intersection of two requirements),
// and turn an outer size into the inner one and back. The arithmetic does
// not check for int overflow; inner sizes never go below 0.
//
//   CMargins pad(8, 4);                        // 8 left/right, 4 top/bottom
//   CMargins frame = pad + CMargins(1);        // a 1-pixel border around it
//   int inner = frame.innerWidth(200);         // 200 - 18 = 182
//   CMargins hiDpi = frame.scaled(1.5);
//
// Thread-safe to read; not thread-safe to assign.
#ifndef QO_UTIL_CMARGINS_H
#define QO_UTIL_CMARGINS_H

#include "qo/core/Export.h"
#include "qo/core/String.h"

namespace qo {

/// Left, top, right and bottom margins. Thread-safe to read; not
/// thread-safe to assign.
class QO_API CMargins {
public:
  /// All zero.
  constexpr CMargins() noexcept = default;
  /// The same margin on all four sides.
  constexpr explicit CMargins(int all) noexcept : m_left(all), m_top(all), m_right(all), m_bottom(all) {}
  /// horizontal on the left and right, vertical on the top and bottom.
  constexpr CMargins(int horizontal, int vertical) noexcept
      : m_left(horizontal), m_top(vertical), m_right(horizontal), m_bottom(vertical) {}
  /// Each side given.
  constexpr CMargins(int left, int top, int right, int bottom) noexcept
      : m_left(left), m_top(top), m_right(right), m_bottom(bottom) {}

  /// The sides; setters change one side.
  constexpr int getLeft() const noexcept { return m_left; }
  constexpr int getTop() const noexcept { return m_top; }
  constexpr int getRight() const noexcept { return m_right; }
  constexpr int getBottom() const noexcept { return m_bottom; }
  void setLeft(int v) noexcept { m_left = v; }
  void setTop(int v) noexcept { m_top = v; }
  void setRight(int v) noexcept { m_right = v; }
  void setBottom(int v) noexcept { m_bottom = v; }

  /// left + right.
  constexpr int getHorizontal() const noexcept { return m_left + m_right; }
  /// top + bottom.
  constexpr int getVertical() const noexcept { return m_top + m_bottom; }
  constexpr bool isZero() const noexcept { return m_left == 0 && m_top == 0 && m_right == 0 && m_bottom == 0; }
  /// True when no side is negative.
  constexpr bool isNonNegative() const noexcept { return m_left >= 0 && m_top >= 0 && m_right >= 0 && m_bottom >= 0; }

  /// The width inside an outer width: outer - getHorizontal(), at least 0.
  constexpr int innerWidth(int outer) const noexcept { return clampZero(outer - getHorizontal()); }
  /// The height inside an outer height, at least 0.
  constexpr int innerHeight(int outer) const noexcept { return clampZero(outer - getVertical()); }
  /// The width around an inner width: inner + getHorizontal().
  constexpr int outerWidth(int inner) const noexcept { return inner + getHorizontal(); }
  /// The height around an inner height.
  constexpr int outerHeight(int inner) const noexcept { return inner + getVertical(); }

  /// Each side the larger of the two (room for both requirements).
  CMargins unionWith(CMargins const& other) const noexcept;
  /// Each side the smaller of the two.
  CMargins intersectWith(CMargins const& other) const noexcept;
  /// Each side multiplied by factor, rounded half away from zero.
  CMargins scaled(double factor) const noexcept;
  /// "left,top,right,bottom", e.g. "8,4,8,4".
  String toString() const;

  constexpr CMargins operator-() const noexcept { return CMargins(-m_left, -m_top, -m_right, -m_bottom); }
  friend constexpr CMargins operator+(CMargins const& a, CMargins const& b) noexcept {
    return CMargins(a.m_left + b.m_left, a.m_top + b.m_top, a.m_right + b.m_right, a.m_bottom + b.m_bottom);
  }
  friend constexpr CMargins operator-(CMargins const& a, CMargins const& b) noexcept { return a + -b; }
  friend constexpr CMargins operator*(CMargins const& a, int k) noexcept {
    return CMargins(a.m_left * k, a.m_top * k, a.m_right * k, a.m_bottom * k);
  }
  CMargins& operator+=(CMargins const& other) noexcept { return *this = *this + other; }
  CMargins& operator-=(CMargins const& other) noexcept { return *this = *this - other; }
  friend constexpr bool operator==(CMargins const& a, CMargins const& b) noexcept {
    return a.m_left == b.m_left && a.m_top == b.m_top && a.m_right == b.m_right && a.m_bottom == b.m_bottom;
  }
  friend constexpr bool operator!=(CMargins const& a, CMargins const& b) noexcept { return !(a == b); }

private:
  static constexpr int clampZero(int v) noexcept { return v < 0 ? 0 : v; }
  int m_left = 0;
  int m_top = 0;
  int m_right = 0;
  int m_bottom = 0;
};

}  // namespace qo

#endif  // QO_UTIL_CMARGINS_H
