// Copyright Marvolith contributors.
// Box3: an axis-aligned bounding box, as the host's objects report their extents.
#pragma once

#include <algorithm>

#include "host/math/matrix3.h"
#include "host/math/point3.h"

/// An axis-aligned box given by its minimum and maximum corners. A new box is empty (pmin
/// above pmax); adding a point to an empty box makes the box that point.
class Box3 {
 public:
  constexpr Box3() { Init(); }
  constexpr Box3(const Point3& p, const Point3& q)
      : pmin(std::min(p.x, q.x), std::min(p.y, q.y), std::min(p.z, q.z)),
        pmax(std::max(p.x, q.x), std::max(p.y, q.y), std::max(p.z, q.z)) {}

  /// Makes the box empty.
  constexpr void Init() {
    pmin = Point3(1e30f, 1e30f, 1e30f);
    pmax = Point3(-1e30f, -1e30f, -1e30f);
  }
  constexpr bool IsEmpty() const { return pmin.x > pmax.x || pmin.y > pmax.y || pmin.z > pmax.z; }

  constexpr const Point3& Min() const { return pmin; }
  constexpr const Point3& Max() const { return pmax; }
  /// Centre of the box; the origin for an empty box.
  constexpr Point3 Center() const { return IsEmpty() ? Point3() : (pmin + pmax) * 0.5f; }
  /// Edge lengths; zero for an empty box.
  constexpr Point3 Width() const { return IsEmpty() ? Point3() : pmax - pmin; }

  /// Grows the box to hold p.
  constexpr Box3& operator+=(const Point3& p) {
    pmin = Point3(std::min(pmin.x, p.x), std::min(pmin.y, p.y), std::min(pmin.z, p.z));
    pmax = Point3(std::max(pmax.x, p.x), std::max(pmax.y, p.y), std::max(pmax.z, p.z));
    return *this;
  }
  /// Grows the box to hold b; an empty b changes nothing.
  constexpr Box3& operator+=(const Box3& b) {
    if (b.IsEmpty()) return *this;
    *this += b.pmin;
    *this += b.pmax;
    return *this;
  }
  /// The box around the eight corners transformed by tm; empty stays empty.
  constexpr Box3 operator*(const Matrix3& tm) const {
    Box3 out;
    if (IsEmpty()) return out;
    for (int i = 0; i < 8; ++i) out += (*this)[i] * tm;
    return out;
  }
  /// Corner i (0..7): bit 0 picks max x, bit 1 max y, bit 2 max z.
  constexpr Point3 operator[](int i) const {
    return {(i & 1) ? pmax.x : pmin.x, (i & 2) ? pmax.y : pmin.y, (i & 4) ? pmax.z : pmin.z};
  }
  /// True when p lies inside or on the box.
  constexpr bool Contains(const Point3& p) const {
    return !IsEmpty() && p.x >= pmin.x && p.x <= pmax.x && p.y >= pmin.y && p.y <= pmax.y &&
           p.z >= pmin.z && p.z <= pmax.z;
  }
  /// Grows every side by s (shrinking with a negative s may empty the box).
  constexpr void EnlargeBy(float s) {
    if (IsEmpty()) return;
    pmin -= s;
    pmax += s;
  }

  Point3 pmin;
  Point3 pmax;
};
