#pragma once
// The small vectors of the engine: points and directions, grid dimensions, and the host's 3x4 matrix.

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace orlix {

template <class T>
struct TVec2D {
  T x{}, y{};
  constexpr bool operator==(const TVec2D&) const = default;
};

template <class T>
struct TVec3D {
  T x{}, y{}, z{};

  constexpr TVec3D() = default;
  constexpr TVec3D(T ax, T ay, T az) : x(ax), y(ay), z(az) {}
  constexpr explicit TVec3D(T v) : x(v), y(v), z(v) {}
  template <class S>
  constexpr explicit TVec3D(const TVec3D<S>& v) : x(T(v.x)), y(T(v.y)), z(T(v.z)) {}

  constexpr T& operator[](int axis) { return axis == 0 ? x : axis == 1 ? y : z; }
  constexpr const T& operator[](int axis) const { return axis == 0 ? x : axis == 1 ? y : z; }

  constexpr bool operator==(const TVec3D&) const = default;
  constexpr TVec3D operator-() const { return {-x, -y, -z}; }
  constexpr TVec3D& operator+=(const TVec3D& b) { return *this = *this + b; }
  constexpr TVec3D& operator-=(const TVec3D& b) { return *this = *this - b; }
  constexpr TVec3D& operator*=(T s) { return *this = *this * s; }
  friend constexpr TVec3D operator+(const TVec3D& a, const TVec3D& b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
  friend constexpr TVec3D operator-(const TVec3D& a, const TVec3D& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
  // Component by component.
  friend constexpr TVec3D operator*(const TVec3D& a, const TVec3D& b) { return {a.x * b.x, a.y * b.y, a.z * b.z}; }
  friend constexpr TVec3D operator/(const TVec3D& a, const TVec3D& b) { return {a.x / b.x, a.y / b.y, a.z / b.z}; }
  friend constexpr TVec3D operator*(const TVec3D& a, T s) { return {a.x * s, a.y * s, a.z * s}; }
  friend constexpr TVec3D operator*(T s, const TVec3D& a) { return {a.x * s, a.y * s, a.z * s}; }
  friend constexpr TVec3D operator/(const TVec3D& a, T s) { return {a.x / s, a.y / s, a.z / s}; }
};

using Vec2D = TVec2D<double>;
using Vec3D = TVec3D<double>;
using Vec3F = TVec3D<float>;
using VecInt3D = TVec3D<std::int32_t>;

template <class T>
constexpr T Dot(const TVec3D<T>& a, const TVec3D<T>& b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}
template <class T>
constexpr TVec3D<T> Cross(const TVec3D<T>& a, const TVec3D<T>& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
template <class T>
constexpr T LengthSquared(const TVec3D<T>& a) {
  return Dot(a, a);
}
template <class T>
inline T Length(const TVec3D<T>& a) {
  return std::sqrt(Dot(a, a));
}
// The unit vector along a; zero stays zero.
template <class T>
inline TVec3D<T> Normalized(const TVec3D<T>& a) {
  const T length = Length(a);
  return length > T(0) ? a / length : TVec3D<T>();
}
template <class T>
constexpr TVec3D<T> Min(const TVec3D<T>& a, const TVec3D<T>& b) {
  return {b.x < a.x ? b.x : a.x, b.y < a.y ? b.y : a.y, b.z < a.z ? b.z : a.z};
}
template <class T>
constexpr TVec3D<T> Max(const TVec3D<T>& a, const TVec3D<T>& b) {
  return {a.x < b.x ? b.x : a.x, a.y < b.y ? b.y : a.y, a.z < b.z ? b.z : a.z};
}
inline bool IsFinite(const Vec3D& a) { return std::isfinite(a.x) && std::isfinite(a.y) && std::isfinite(a.z); }

// Cells in a box of these dimensions, in 64 bits: sizes come from files and scenes.
constexpr std::int64_t CellCount(const VecInt3D& dims) {
  return std::int64_t(dims.x) * std::int64_t(dims.y) * std::int64_t(dims.z);
}

// The host's 3x4 matrix: a point p maps to off + p.x v1 + p.y v2 + p.z v3.
struct LMatrix {
  Vec3D off, v1{1, 0, 0}, v2{0, 1, 0}, v3{0, 0, 1};

  constexpr bool operator==(const LMatrix&) const = default;
  // A direction: no offset.
  constexpr Vec3D Rotate(const Vec3D& d) const { return v1 * d.x + v2 * d.y + v3 * d.z; }
  constexpr Vec3D operator*(const Vec3D& p) const { return off + Rotate(p); }
  constexpr LMatrix operator*(const LMatrix& b) const {
    return {*this * b.off, Rotate(b.v1), Rotate(b.v2), Rotate(b.v3)};
  }
  constexpr double Determinant() const { return Dot(v1, Cross(v2, v3)); }
  // The inverse; the identity when the axes are linearly dependent.
  constexpr LMatrix Inverse() const {
    const double det = Determinant();
    if (det == 0.0) return {};
    const Vec3D r1 = Cross(v2, v3) / det, r2 = Cross(v3, v1) / det, r3 = Cross(v1, v2) / det;
    LMatrix m;
    m.v1 = {r1.x, r2.x, r3.x};
    m.v2 = {r1.y, r2.y, r3.y};
    m.v3 = {r1.z, r2.z, r3.z};
    m.off = -m.Rotate(off);
    return m;
  }
};

}  // namespace orlix
