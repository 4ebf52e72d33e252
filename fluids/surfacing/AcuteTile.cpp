#include "fluids/surfacing/AcuteTile.h"

#include <algorithm>
#include <bit>
#include <vector>

namespace orlix {

namespace {

// In quarters of a cell.
constexpr VecInt3D kVertex[AcuteTile::kVertices] = {
    {1, 0, 0}, {2, 2, 0}, {1, 4, 0}, {3, 4, 0}, {2, 6, 0}, {1, 0, 4}, {3, 0, 4}, {2, 1, 2}, {0, 2, 1}, {0, 2, 3},
    {2, 2, 4}, {1, 4, 4}, {3, 4, 4}, {0, 4, 2}, {2, 3, 2}, {2, 5, 2}, {4, 2, 1}, {4, 2, 3}, {5, 4, 4}, {4, 4, 2},
    {0, 6, 1}, {0, 6, 3}, {2, 6, 4}, {2, 7, 2}, {4, 6, 1}, {4, 6, 3}, {0, 2, 5}, {2, 3, 6}, {2, 5, 6}, {4, 2, 5},
    {4, 4, 6}, {4, 6, 5}, {2, 1, 6}, {0, 0, 2}, {5, 0, 4}, {4, 0, 2}, {3, 0, 0}, {4, 0, 6}, {5, 0, 0}, {5, 4, 0}};

constexpr std::uint8_t kTetrahedron[AcuteTile::kTetrahedra][4] = {
    {2, 3, 15, 14},   {2, 15, 13, 14}, {6, 29, 17, 10},  {6, 17, 34, 35},  {12, 14, 17, 10}, {0, 36, 1, 7},
    {29, 12, 18, 17}, {3, 14, 16, 19}, {3, 15, 14, 19},  {14, 16, 1, 3},   {0, 7, 8, 33},    {7, 16, 36, 1},
    {9, 7, 5, 33},    {8, 7, 9, 33},   {14, 12, 17, 19}, {12, 29, 10, 17}, {14, 9, 13, 8},   {8, 2, 14, 1},
    {14, 17, 16, 19}, {17, 14, 7, 10}, {16, 7, 36, 35},  {17, 6, 7, 35},   {11, 15, 14, 13}, {3, 2, 1, 14},
    {9, 14, 7, 8},    {9, 14, 11, 10}, {1, 8, 0, 7},     {14, 8, 1, 7},    {12, 15, 19, 14}, {19, 39, 16, 3},
    {17, 12, 18, 19}, {14, 9, 11, 13}, {14, 12, 11, 10}, {2, 8, 14, 13},   {6, 17, 7, 10},   {5, 9, 26, 10},
    {14, 9, 7, 10},   {11, 9, 10, 26}, {7, 9, 5, 10},    {17, 6, 34, 29},  {6, 7, 5, 10},    {15, 12, 11, 14},
    {16, 14, 1, 7},   {7, 17, 35, 16}, {38, 35, 16, 36}, {14, 16, 17, 7}};

VecInt3D CellOf(const VecInt3D& v) { return {v.x >> 2, v.y >> 2, v.z >> 2}; }
std::uint8_t Bits(const VecInt3D& cell) { return static_cast<std::uint8_t>(cell.x | cell.y << 1 | cell.z << 2); }

struct EdgePlace {
  VecInt3D a, b;  // in quarters of a cell, from the owner's corner; ordered
  friend bool operator==(const EdgePlace&, const EdgePlace&) = default;
};

// The corners of a tetrahedron go a, b, c, d with d on the side to which the normal of a, b, c points; normals of the
// surface point outside. edge(n, m): the number of that between two corners.
template <class EdgeBetween>
AcuteTile::Surface SurfaceOf(int outsideCorners, EdgeBetween&& edge) {
  // For each corner that is alone on its side: the others, so that seen from it they go round to the left.
  static constexpr int kOthers[4][3] = {{1, 2, 3}, {0, 3, 2}, {0, 1, 3}, {0, 2, 1}};
  const int outside = std::popcount(static_cast<unsigned>(outsideCorners));
  if (outside == 0 || outside == 4) return {};
  if (outside != 2) {
    const int alone = std::countr_zero(static_cast<unsigned>(outside == 1 ? outsideCorners : ~outsideCorners & 15));
    const int* o = kOthers[alone];
    const std::uint8_t p = edge(alone, o[0]), q = edge(alone, o[1]), r = edge(alone, o[2]);
    return outside == 1 ? AcuteTile::Surface{1, {{p, r, q}, {p, r, q}}} : AcuteTile::Surface{1, {{p, q, r}, {p, q, r}}};
  }
  const int a = std::countr_zero(static_cast<unsigned>(outsideCorners));
  const int b = 31 - std::countl_zero(static_cast<unsigned>(outsideCorners));
  // kOthers[a] turned so that b comes first: then the two inside corners, in the same sense.
  const int* o = kOthers[a];
  const int at = o[0] == b ? 0 : o[1] == b ? 1 : 2, c = o[(at + 1) % 3], d = o[(at + 2) % 3];
  const std::uint8_t ac = edge(a, c), ad = edge(a, d), bc = edge(b, c), bd = edge(b, d);
  return {2, {{ac, bd, ad}, {ac, bc, bd}}};
}

bool Before(const VecInt3D& a, const VecInt3D& b) {
  return a.x != b.x ? a.x < b.x : a.y != b.y ? a.y < b.y : a.z < b.z;
}

}  // namespace

const AcuteTile& AcuteTile::Get() {
  static const AcuteTile tile;
  return tile;
}

AcuteTile::AcuteTile() {
  std::vector<VecInt3D> places;
  std::vector<EdgePlace> edges;
  const auto cornerOf = [&](const VecInt3D& v) {
    const VecInt3D cell = CellOf(v);
    const VecInt3D place = v - VecInt3D(4 * cell.x, 4 * cell.y, 4 * cell.z);
    auto found = std::find(places.begin(), places.end(), place);
    if (found == places.end()) found = places.insert(found, place);
    return Corner{Bits(cell), static_cast<std::uint8_t>(found - places.begin())};
  };
  std::vector<Edge> used;
  // An edge belongs to the lowest cell that its ends reach into.
  const auto edgeBetween = [&](const VecInt3D& a, const VecInt3D& b) {
    const VecInt3D owner = CellOf({std::min(a.x, b.x), std::min(a.y, b.y), std::min(a.z, b.z)});
    const VecInt3D from(4 * owner.x, 4 * owner.y, 4 * owner.z);
    const EdgePlace place = Before(a, b) ? EdgePlace{a - from, b - from} : EdgePlace{b - from, a - from};
    auto found = std::find(edges.begin(), edges.end(), place);
    if (found == edges.end()) found = edges.insert(found, place);
    const Edge edge{(std::uint64_t(1) << (found - edges.begin())) - 1, Bits(owner)};
    auto known = std::find(used.begin(), used.end(), edge);
    if (known == used.end()) known = used.insert(known, edge);
    return static_cast<std::uint8_t>(known - used.begin());
  };
  std::uint64_t inUse = 0;
  for (int t = 0; t < kTetrahedra; ++t) {
    Tetrahedron& tetrahedron = tetrahedra[t];
    std::uint8_t edge[4][4] = {};
    tetrahedronBits[t] = 0;
    for (int n = 0; n < 4; ++n) {
      tetrahedron.vertex[n] = kTetrahedron[t][n];
      tetrahedronBits[t] |= std::uint64_t(1) << kTetrahedron[t][n];
      for (int m = 0; m < 4; ++m) {
        if (m != n) edge[n][m] = edgeBetween(kVertex[kTetrahedron[t][n]], kVertex[kTetrahedron[t][m]]);
      }
    }
    for (int code = 0; code < 16; ++code) {
      tetrahedron.surface[code] = SurfaceOf(code, [&](int n, int m) { return edge[n][m]; });
    }
    inUse |= tetrahedronBits[t];
  }
  std::copy(used.begin(), used.end(), tileEdges);
  for (int v = 0; v < kVertices; ++v) {
    if ((inUse >> v & 1) != 0) cornerOf(kVertex[v]);
  }
  for (std::size_t s = 0; s < places.size(); ++s) {
    sample[s] = Vec3D(places[s]) * 0.25;
    for (int axis = 0; axis < 3; ++axis) along[axis][s] = sample[s][axis];
  }
  for (auto& table : vertexBits) std::fill_n(table, 256, 0);
  for (auto& table : cutBits) std::fill_n(table, 256, 0);
  for (std::uint64_t& within : edgesWithin) within = 0;
  for (int signs = 0; signs < 256; ++signs) {
    for (int v = 0; v < kVertices; ++v) {
      if ((inUse >> v & 1) == 0) continue;
      const Corner c = cornerOf(kVertex[v]);
      if ((signs >> c.sample & 1) != 0) vertexBits[c.cell][signs] |= std::uint64_t(1) << v;
    }
  }
  for (std::size_t e = 0; e < edges.size(); ++e) {
    edgeEnd[e][0] = cornerOf(edges[e].a), edgeEnd[e][1] = cornerOf(edges[e].b);
    for (const Corner& end : edgeEnd[e]) {
      for (int signs = 0; signs < 256; ++signs) {
        if ((signs >> end.sample & 1) != 0) cutBits[end.cell][signs] ^= std::uint64_t(1) << e;
      }
    }
    for (int axis = 0; axis < 3; ++axis) {
      const bool next = ((edgeEnd[e][0].cell | edgeEnd[e][1].cell) >> axis & 1) != 0;
      if (!next) edgesWithin[axis] |= std::uint64_t(1) << e;
    }
  }
}

}  // namespace orlix
