#pragma once
// Triangle distances of four at a time: four points to one triangle, or four points to a triangle each. The operations
// are those of SquaredDistance in the same order, so the bits are the same.

#include <cstring>

#include "fluids/level_sets/TriangleDistance.h"
#include "globals/Multiversion.h"

namespace orlix {

inline constexpr int kLanes = 4;
using Lanes = double __attribute__((vector_size(kLanes * sizeof(double))));

template <class T>
struct LaneVector {
  T x, y, z;
};

// T is double, one triangle for all lanes, or Lanes.
template <class T>
struct LaneTriangle {
  LaneVector<T> x1, x2, x3;
  T m13, m23, d, inverseDeterminant, inv12, inv13, inv23;
};

ORLIX_INLINE void Broadcast(LaneTriangle<double>& out, const TriangleTerms& t) {
  out.x1 = {t.x1.x, t.x1.y, t.x1.z}, out.x2 = {t.x2.x, t.x2.y, t.x2.z}, out.x3 = {t.x3.x, t.x3.y, t.x3.z};
  out.m13 = t.m13, out.m23 = t.m23, out.d = t.d, out.inverseDeterminant = t.inverseDeterminant;
  out.inv12 = t.inv12, out.inv13 = t.inv13, out.inv23 = t.inv23;
}

// Rows of four doubles become columns, of the kLanes triangles' terms as they lie.
ORLIX_INLINE void Gather(LaneTriangle<Lanes>& out, const TriangleTerms* const t[kLanes]) {
  static_assert(sizeof(TriangleTerms) == 16 * sizeof(double) && kLanes == 4);
  const auto columns = [&](int first, Lanes& c0, Lanes& c1, Lanes& c2, Lanes& c3) __attribute__((always_inline)) {
    const auto row = [&](Lanes & r, int l) __attribute__((always_inline)) {
      std::memcpy(&r, reinterpret_cast<const double*>(t[l]) + first, sizeof r);
    };
    Lanes r0, r1, r2, r3;  // not in a loop, which would keep them in memory
    row(r0, 0), row(r1, 1), row(r2, 2), row(r3, 3);
    const Lanes even01 = __builtin_shufflevector(r0, r1, 0, 4, 2, 6),
                odd01 = __builtin_shufflevector(r0, r1, 1, 5, 3, 7);
    const Lanes even23 = __builtin_shufflevector(r2, r3, 0, 4, 2, 6),
                odd23 = __builtin_shufflevector(r2, r3, 1, 5, 3, 7);
    c0 = __builtin_shufflevector(even01, even23, 0, 1, 4, 5), c1 = __builtin_shufflevector(odd01, odd23, 0, 1, 4, 5);
    c2 = __builtin_shufflevector(even01, even23, 2, 3, 6, 7), c3 = __builtin_shufflevector(odd01, odd23, 2, 3, 6, 7);
  };
  columns(0, out.x1.x, out.x1.y, out.x1.z, out.x2.x);
  columns(4, out.x2.y, out.x2.z, out.x3.x, out.x3.y);
  columns(8, out.x3.z, out.m13, out.m23, out.d);
  columns(12, out.inverseDeterminant, out.inv12, out.inv13, out.inv23);
}

template <class T>
ORLIX_INLINE void LaneSegment(Lanes& out, const LaneVector<Lanes>& p, const LaneVector<T>& a, const LaneVector<T>& b,
                              const T& inverse) {
  const Lanes zero{}, one = zero + 1.0;
  Lanes s = ((a.x - p.x) * (a.x - b.x) + (a.y - p.y) * (a.y - b.y) + (a.z - p.z) * (a.z - b.z)) * inverse;
  s = s > zero ? (s < one ? s : one) : zero;
  const Lanes rest = 1.0 - s;
  const Lanes dx = p.x - (b.x * s + a.x * rest), dy = p.y - (b.y * s + a.y * rest), dz = p.z - (b.z * s + a.z * rest);
  out = dx * dx + dy * dy + dz * dz;
}

template <class T>
ORLIX_INLINE void LaneSquaredDistances(Lanes& out, const LaneVector<Lanes>& p, const LaneTriangle<T>& t) {
  const Lanes zero{};
  const LaneVector<T> x13{t.x1.x - t.x3.x, t.x1.y - t.x3.y, t.x1.z - t.x3.z};
  const LaneVector<T> x23{t.x2.x - t.x3.x, t.x2.y - t.x3.y, t.x2.z - t.x3.z};
  const Lanes dx = p.x - t.x3.x, dy = p.y - t.x3.y, dz = p.z - t.x3.z;
  const Lanes a = x13.x * dx + x13.y * dy + x13.z * dz, b = x23.x * dx + x23.y * dy + x23.z * dz;
  const Lanes w23 = t.inverseDeterminant * (t.m23 * a - t.d * b);
  const Lanes w31 = t.inverseDeterminant * (t.m13 * b - t.d * a);
  const Lanes w12 = 1.0 - w23 - w31;
  const Lanes ex = p.x - (t.x1.x * w23 + t.x2.x * w31 + t.x3.x * w12);
  const Lanes ey = p.y - (t.x1.y * w23 + t.x2.y * w31 + t.x3.y * w12);
  const Lanes ez = p.z - (t.x1.z * w23 + t.x2.z * w31 + t.x3.z * w12);
  const Lanes face = ex * ex + ey * ey + ez * ez;
  Lanes s12, s13, s23;
  LaneSegment(s12, p, t.x1, t.x2, t.inv12);
  LaneSegment(s13, p, t.x1, t.x3, t.inv13);
  LaneSegment(s23, p, t.x2, t.x3, t.inv23);
  const Lanes at1 = s13 < s12 ? s13 : s12, at2 = s23 < s12 ? s23 : s12, at3 = s23 < s13 ? s23 : s13;
  const Lanes edge = w23 > zero ? at1 : (w31 > zero ? at2 : at3);
  const auto inside = (w23 >= zero) & (w31 >= zero) & (w12 >= zero);
  out = inside ? face : edge;
}

}  // namespace orlix
