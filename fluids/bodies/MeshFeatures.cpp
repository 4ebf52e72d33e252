#include "fluids/bodies/MeshFeatures.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <tuple>

namespace orlix {

namespace {

// Cosines: of faces that are level with each other, and of normals that count as one.
constexpr double kLevel = 0.9986, kOne = 0.999;

// The number of each point's place.
std::vector<std::int32_t> PlaceOfPoints(std::span<const Vec3D> points) {
  std::vector<std::int32_t> order(points.size()), places(points.size());
  std::iota(order.begin(), order.end(), 0);
  const auto key = [&](std::int32_t i) { return std::tuple(points[i].x, points[i].y, points[i].z); };
  std::sort(order.begin(), order.end(), [&](std::int32_t a, std::int32_t b) { return key(a) < key(b); });
  for (std::size_t n = 0; n < order.size(); ++n) {
    const bool same = n > 0 && key(order[n]) == key(order[n - 1]);
    places[order[n]] = same ? places[order[n - 1]] : order[n];
  }
  return places;
}

struct EdgeOf {
  std::int32_t low, high, face;
  int side;
};

std::vector<EdgeOf> SortedEdges(std::span<const VecInt3D> triangles, const std::vector<std::int32_t>& places) {
  std::vector<EdgeOf> edges;
  edges.reserve(3 * triangles.size());
  for (std::size_t t = 0; t < triangles.size(); ++t) {
    for (int side = 0; side < 3; ++side) {
      const std::int32_t a = places[triangles[t][side]], b = places[triangles[t][(side + 1) % 3]];
      edges.push_back({std::min(a, b), std::max(a, b), std::int32_t(t), side});
    }
  }
  std::sort(edges.begin(), edges.end(), [](const EdgeOf& a, const EdgeOf& b) {
    return std::tie(a.low, a.high, a.face, a.side) < std::tie(b.low, b.high, b.face, b.side);
  });
  return edges;
}

}  // namespace

MeshFeatures::MeshFeatures(std::span<const Vec3D> points, std::span<const VecInt3D> triangles)
    : faces_(triangles.size()), corners_(points.size()) {
  const std::vector<std::int32_t> places = PlaceOfPoints(points);
  double volume = 0;
  for (std::size_t t = 0; t < triangles.size(); ++t) {
    Face& face = faces_[t];
    for (int c = 0; c < 3; ++c) face.points[c] = points[triangles[t][c]], face.corners[c] = places[triangles[t][c]];
    face.normal = Normalized(Cross(face.points[1] - face.points[0], face.points[2] - face.points[0]));
    for (int e = 0; e < 3; ++e) {
      const Vec3D way = face.points[(e + 1) % 3] - face.points[e];
      face.ways[e] = Normalized(way);
      face.into[e] = Normalized(Cross(face.normal, way));
    }
    volume += Dot(face.points[0] - points[0], Cross(face.points[1] - points[0], face.points[2] - points[0]));
  }
  FindEdges(places, triangles);
  // A closed mesh that faces inwards is turned.
  if (closed_ && volume < 0) {
    for (Face& face : faces_) {
      face.normal = -face.normal;
      for (int e = 0; e < 3; ++e) {
        face.across[e] = -face.across[e];
        Edge& edge = face.edges[e];
        edge = edge == Edge::Sharp ? Edge::Hollow : edge == Edge::Hollow ? Edge::Sharp : edge;
      }
    }
  }
  FindCorners();
}

void MeshFeatures::FindEdges(const std::vector<std::int32_t>& places, std::span<const VecInt3D> triangles) {
  const std::vector<EdgeOf> edges = SortedEdges(triangles, places);
  closed_ = true;
  for (std::size_t n = 0, next; n < edges.size(); n = next) {
    next = n + 1;
    while (next < edges.size() && edges[next].low == edges[n].low && edges[next].high == edges[n].high) ++next;
    closed_ &= next == n + 2;
    if (next != n + 2) continue;
    for (const auto& [own, other] : {std::pair(n, n + 1), std::pair(n + 1, n)}) {
      Face& face = faces_[edges[own].face];
      const Face& behind = faces_[edges[other].face];
      const int side = edges[own].side;
      face.across[side] = behind.normal;
      face.intoAcross[side] = behind.into[edges[other].side];
      const bool level = Dot(face.normal, behind.normal) > kLevel;
      const bool falls = Dot(face.normal, face.intoAcross[side]) < 0;
      face.edges[side] = level ? Edge::Level : falls ? Edge::Sharp : Edge::Hollow;
    }
  }
}

void MeshFeatures::FindCorners() {
  for (const Face& face : faces_) {
    for (int c = 0; c < 3; ++c) {
      Corner& corner = corners_[face.corners[c]];
      for (const int other : {1, 2}) {
        corner.ways.push_back(Normalized(face.points[(c + other) % 3] - face.points[c]));
        const Edge edge = face.edges[(c + (other == 1 ? 0 : 2)) % 3];
        corner.hollow |= edge == Edge::Hollow;
      }
      const bool isNew = std::none_of(corner.normals.begin(), corner.normals.end(),
                                      [&](const Vec3D& known) { return Dot(known, face.normal) > kOne; });
      if (isNew) corner.normals.push_back(face.normal);
    }
  }
}

MeshFeatures::Touch MeshFeatures::TouchAt(int triangle, const Vec3D& place, double reach, const Vec3D& towards) const {
  const Face& face = faces_[std::size_t(triangle)];
  Touch touch{triangle, place, reach, towards};
  if (!closed_ && Dot(face.normal, towards - place) < 0) touch.side = -1;
  for (int e = 0; e < 3; ++e) {
    touch.edges[e] = Dot(face.into[e], place - face.points[e]) < reach && face.edges[e] != Edge::Hollow;
  }
  for (int c = 0; c < 3; ++c) {
    touch.corners[c] = LengthSquared(place - face.points[c]) < reach * reach && !corners_[face.corners[c]].hollow;
  }
  return touch;
}

double MeshFeatures::Misfit(const Touch& touch, const Vec3D& direction) const {
  constexpr double kLevelWeight = 4, kWrongSide = 8;
  const Face& face = faces_[std::size_t(touch.triangle)];
  if (face.normal == Vec3D()) return 0;
  const double up = Dot(direction, face.normal) * touch.side;
  double least = kLevelWeight * std::sqrt(std::max(0.0, 1 - up * up)) + (up < 0 ? kWrongSide : 0);
  for (int n = 0; n < 3; ++n) {
    if (touch.edges[n] && face.edges[n] == Edge::Free) return 0;
    if (touch.edges[n] && face.edges[n] == Edge::Sharp) {
      least = std::min(least, std::max({std::abs(Dot(direction, face.ways[n])), Dot(direction, face.into[n]),
                                        Dot(direction, face.intoAcross[n])}));
    }
    const Corner& corner = corners_[face.corners[n]];
    if (!touch.corners[n] || corner.normals.size() < 3) continue;  // the edges say as much
    double most = 0;
    for (const Vec3D& way : corner.ways) most = std::max(most, Dot(direction, way));
    least = std::min(least, most);
  }
  return std::max(least, 0.0);
}

int MeshFeatures::NormalsAt(const Touch& touch, std::array<Vec3D, kMostNormals>& normals) const {
  const Face& face = faces_[std::size_t(touch.triangle)];
  if (face.normal == Vec3D()) return 0;
  int count = 0;
  normals[count++] = face.normal * touch.side;
  for (int n = 0; n < 3; ++n) {
    if (touch.edges[n] && face.edges[n] == Edge::Sharp && count < kMostNormals)
      normals[count++] = face.across[n] * touch.side;
    if (!touch.corners[n]) continue;
    for (const Vec3D& normal : corners_[face.corners[n]].normals) {
      if (count < kMostNormals && Dot(normal, face.normal) <= kOne) normals[count++] = normal * touch.side;
    }
  }
  return count;
}

Vec3D MeshFeatures::Nearest(int triangle, const Vec3D& place) const {
  const Face& face = faces_[std::size_t(triangle)];
  bool inside = face.normal != Vec3D();
  Vec3D nearest = face.points[0];
  for (int e = 0; e < 3; ++e) {
    const Vec3D way = face.points[(e + 1) % 3] - face.points[e], to = place - face.points[e];
    inside &= Dot(face.into[e], to) >= 0;
    const double length = LengthSquared(way);
    const Vec3D on = face.points[e] + way * (length > 0 ? std::clamp(Dot(way, to) / length, 0.0, 1.0) : 0.0);
    if (LengthSquared(on - place) < LengthSquared(nearest - place)) nearest = on;
  }
  return inside ? place - face.normal * Dot(face.normal, place - face.points[0]) : nearest;
}

}  // namespace orlix
