#include "fluids/foam/MeshSeeding.h"

#include <algorithm>
#include <cmath>

namespace orlix {

namespace {

constexpr double kRowShare = 0.8660254037844386;  // of rows of equilateral triangles: sqrt(3) / 2
constexpr double kJitter = 0.6666666666666666;
constexpr double kMostSamples = 1e8;  // of one triangle

double CrossOf(const Vec2D& a, const Vec2D& b, const Vec2D& c) {
  return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

// Squared areas decide, of the triangle and of the three that p makes with its edges: p may lie a little beyond an
// edge, so that triangles overlap and no seam shows.
bool InTriangle(const Vec2D v[3], const Vec2D& p, double weights[3]) {
  const double whole = CrossOf(v[0], v[1], v[2]);
  const double a = CrossOf(p, v[0], v[1]), b = CrossOf(p, v[1], v[2]), c = CrossOf(p, v[2], v[0]);
  const double T = whole * whole, A = a * a, B = b * b, C = c * c;
  if (!(T > A + B && T > B + C && T > A + C)) return false;
  weights[0] = b / whole, weights[1] = c / whole, weights[2] = a / whole;
  return true;
}

}  // namespace

Vec3D FoamField::Curl(const Vec3D& p) const {
  const Vec3D x = (p - origin) / cellSize;
  const VecInt3D cells(velocity.component[1].dims.x, velocity.component[0].dims.y, velocity.component[0].dims.z);
  for (int axis = 0; axis < 3; ++axis) {
    if (!(x[axis] >= 1 && x[axis] <= cells[axis] - 1)) return {};
  }
  const Vec3D ex(1, 0, 0), ey(0, 1, 0), ez(0, 0, 1);
  const Vec3D dx = velocity.At(x + ex) - velocity.At(x - ex), dy = velocity.At(x + ey) - velocity.At(x - ey),
              dz = velocity.At(x + ez) - velocity.At(x - ez);
  return Vec3D(dy.z - dz.y, dz.x - dx.z, dx.y - dy.x) / (2 * cellSize);
}

MeshSeeding::Triangle MeshSeeding::TriangleOf(std::int32_t index) const {
  const TriMeshSTL& mesh = *surface_.mesh();
  const VecInt3D& corners = mesh.Triangles()[static_cast<std::size_t>(index)];
  Triangle t;
  for (int c = 0; c < 3; ++c) {
    const auto point = static_cast<std::size_t>(corners[c]);
    t.corner[c] = mesh.Points()[point];
    t.curvature[c] = surface_.pointCurvatures().empty() ? 0 : surface_.pointCurvatures()[point];
  }
  t.normal = Normalized(Cross(t.corner[1] - t.corner[0], t.corner[2] - t.corner[0]));
  return t;
}

void MeshSeeding::Seed(std::int32_t index, FoamRandom& random, DiffuseBirths& births, std::int32_t thread) const {
  const Triangle t = TriangleOf(index);
  const double most = std::max({t.curvature[0], t.curvature[1], t.curvature[2]});
  const double s = s_.sampleSpacing, step = kRowShare * s;
  if ((s_.foam.curvature >= most && s_.spray.curvature >= most) || !(s > 0) || t.normal == Vec3D()) return;
  // The plane's axes and its origin, which chance moves about the centroid.
  const Vec3D u = Normalized(t.corner[1] - t.corner[0]), v = Cross(t.normal, u);
  const double shiftX = random.Rand() * 2 * s - s, shiftY = random.Rand() * 2 * s - s;
  const Vec3D origin = (t.corner[0] + t.corner[1] + t.corner[2]) * 0.3333333333333333 + shiftX * u + shiftY * v;
  Vec2D flat[3], low{1e300, 1e300}, high{-1e300, -1e300};
  for (int c = 0; c < 3; ++c) {
    flat[c] = {Dot(t.corner[c] - origin, u), Dot(t.corner[c] - origin, v)};
    low = {std::min(low.x, flat[c].x), std::min(low.y, flat[c].y)};
    high = {std::max(high.x, flat[c].x), std::max(high.y, flat[c].y)};
  }
  if (!((high.x - low.x) / s * ((high.y - low.y) / step) < kMostSamples)) return;
  low.y -= random.Rand() * step;
  low.x -= random.Rand() * s;
  for (int row = 0; row * step + low.y < high.y + step; ++row) {
    const double offset = (row % 2) * s * 0.5;
    for (int column = 0; column * s + low.x + offset < high.x + s; ++column) {
      const double x = (column + random.Rand() * kJitter) * s + low.x + offset;
      const double y = (row + random.Rand() * kJitter) * step + low.y;
      double weights[3];
      if (x >= high.x || y >= high.y || !InTriangle(flat, {x, y}, weights)) continue;
      SeedAt(t, weights, random, births, thread);
    }
  }
}

void MeshSeeding::SeedAt(const Triangle& t, const double weights[3], FoamRandom& random, DiffuseBirths& births,
                         std::int32_t thread) const {
  Vec3D place;
  double curvature = 0;
  for (int c = 0; c < 3; ++c) place += weights[c] * t.corner[c], curvature += weights[c] * t.curvature[c];
  if (!constraints_.empty()) {
    double amount = curvature;
    EvaluateChain(constraints_, place, amount, caller_, thread);
    if (amount == 0) return;
  }
  bool foam = s_.foam.enabled && curvature >= s_.foam.curvature;
  bool spray = s_.spray.enabled && curvature >= s_.spray.curvature;
  if (!foam && !spray) return;
  const Vec3D u = field_.At(place);
  const double speed2 = LengthSquared(u);
  foam = foam && random.Scale(s_.foam.speedVariation) * speed2 >= s_.foam.speed;
  spray = spray && random.Scale(s_.spray.speedVariation) * speed2 >= s_.spray.speed;
  if (!foam && !spray) return;
  foam = foam && random.Scale(s_.foam.secondVariation) * LengthSquared(field_.Curl(place)) >= s_.foam.second;
  spray = spray && random.Scale(s_.spray.secondVariation) * speed2 >= s_.spray.second;
  if (spray) {
    const double life = random.Vary(s_.spray.life), factor = random.Vary(s_.sprayBoost) + 1;
    Vec3D q = u * factor + t.normal * (s_.sprayKick * random.Scale(s_.sprayKickVariation));
    if (s_.sprayKeepSpeed) q = Normalized(q) * Length(u * factor);
    const double angle = random.Vary(s_.sprayAngle);
    const CrossFrame frame(Normalized(u));
    const Vec3D aside = frame.a * std::cos(angle) + frame.b * std::sin(angle);
    births.push_back({place + s_.surfaceCell * aside, q, life, DiffuseClass::Spray});
  } else if (foam) {
    births.push_back({place, u, random.Vary(s_.foam.life), DiffuseClass::Foam});
  }
}

}  // namespace orlix
