#include "host/objects/PlaceObject.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace orlix {

namespace {

// Angles about x, y, z in degrees, applied in this order: the columns are Rz Ry Rx.
Vec3D AnglesOf(const Vec3D& v1, const Vec3D& v2, const Vec3D& v3) {
  constexpr double kDegrees = 180 / std::numbers::pi, kUpright = 1 - 1e-12;
  const double sine = std::clamp(-v1.z, -1.0, 1.0);
  if (std::abs(sine) < kUpright) {
    return Vec3D(std::atan2(v2.z, v3.z), std::asin(sine), std::atan2(v1.y, v1.x)) * kDegrees;
  }
  // Looking along z, turns about x and z are the same: all of it goes to x.
  const double sign = sine > 0 ? 1 : -1;
  return Vec3D(std::atan2(sign * v2.x, v2.y), sign * (std::numbers::pi / 2), 0) * kDegrees;
}

}  // namespace

void SetGlobalMatrix(BaseObject& object, const LMatrix& matrix) {
  LMatrix local = matrix;
  if (const BaseObject* parent = object.parent()) {
    const LMatrix above = parent->GlobalMatrix();
    if (above.Determinant() == 0) return;
    local = above.Inverse() * matrix;
  }
  if (local == object.LocalMatrix()) return;
  Vec3D scale(Length(local.v1), Length(local.v2), Length(local.v3));
  if (local.Determinant() < 0) scale.x = -scale.x;
  if (!IsFinite(local.off) || !IsFinite(scale) || scale.x * scale.y * scale.z == 0) return;
  object.Set(kPositionId, local.off);
  object.Set(kScaleId, scale);
  object.Set(kRotationId, AnglesOf(local.v1 / scale.x, local.v2 / scale.y, local.v3 / scale.z));
}

LMatrix NormalMatrix(const LMatrix& matrix) {
  const double sign = matrix.Determinant() < 0 ? -1 : 1;
  return {
      {}, Cross(matrix.v2, matrix.v3) * sign, Cross(matrix.v3, matrix.v1) * sign, Cross(matrix.v1, matrix.v2) * sign};
}

void ReverseCorners(PolygonObject& polygons) {
  const bool textured = polygons.textureCoordinates.size() == polygons.polygons.size();
  for (std::size_t n = 0; n < polygons.polygons.size(); ++n) {
    PolygonObject::Polygon& p = polygons.polygons[n];
    const bool triangle = p.IsTriangle();
    p = triangle ? PolygonObject::Polygon{p.a, p.c, p.b, p.b} : PolygonObject::Polygon{p.a, p.d, p.c, p.b};
    if (textured) std::swap(polygons.textureCoordinates[n][1], polygons.textureCoordinates[n][triangle ? 2 : 3]);
  }
}

}  // namespace orlix
