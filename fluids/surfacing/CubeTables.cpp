#include "fluids/surfacing/CubeTables.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace orlix {

namespace {

// Corners of the faces, counter-clockwise from outside: x = 0, x = 1, y = 0, y = 1, z = 0, z = 1.
constexpr int kFaces[6][4] = {{7, 4, 0, 3}, {5, 6, 2, 1}, {4, 5, 1, 0}, {6, 7, 3, 2}, {4, 7, 6, 5}, {0, 1, 2, 3}};
constexpr int kEdgeCorners[12][2] = {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {4, 5}, {5, 6},
                                     {6, 7}, {7, 4}, {0, 4}, {1, 5}, {2, 6}, {3, 7}};

constexpr std::array<CubeEdge, kCubeEdges> MakeEdges() {
  std::array<CubeEdge, kCubeEdges> edges{};
  for (int e = 0; e < 12; ++e) {
    const VecInt3D a = kCubeCorner[kEdgeCorners[e][0]], b = kCubeCorner[kEdgeCorners[e][1]];
    const int family = a.x != b.x ? 0 : a.y != b.y ? 1 : 2;
    edges[static_cast<std::size_t>(e)] = {
        static_cast<std::uint8_t>(family), static_cast<std::uint8_t>(std::min(a.x, b.x)),
        static_cast<std::uint8_t>(std::min(a.y, b.y)), static_cast<std::uint8_t>(std::min(a.z, b.z))};
  }
  for (int f = 0; f < 6; ++f) {
    const int axis = f / 2, high = f % 2;
    edges[static_cast<std::size_t>(12 + f)] = {
        static_cast<std::uint8_t>(3 + axis), static_cast<std::uint8_t>(axis == 0 ? high : 0),
        static_cast<std::uint8_t>(axis == 1 ? high : 0), static_cast<std::uint8_t>(axis == 2 ? high : 0)};
  }
  return edges;
}

int EdgeBetween(int a, int b) {
  for (int e = 0; e < 12; ++e) {
    const auto& [p, q] = kEdgeCorners[e];
    if ((p == a && q == b) || (p == b && q == a)) return e;
  }
  for (int f = 0; f < 6; ++f) {  // a diagonal: the face that holds both
    const auto holds = [&](int c) { return std::find(kFaces[f], kFaces[f] + 4, c) != kFaces[f] + 4; };
    if (holds(a) && holds(b)) return 12 + f;
  }
  return -1;
}

bool Outside(std::uint8_t code, int corner) { return (code >> corner & 1) != 0; }

// Bits of the faces that an edge of the cube lies in.
unsigned FacesOf(int edge) {
  unsigned faces = 0;
  for (int f = 0; f < 6; ++f) {
    const auto holds = [&](int c) { return std::find(kFaces[f], kFaces[f] + 4, c) != kFaces[f] + 4; };
    if (holds(kEdgeCorners[edge][0]) && holds(kEdgeCorners[edge][1])) faces |= 1u << f;
  }
  return faces;
}

Vec3D Middle(int edge) {
  return (Vec3D(kCubeCorner[kEdgeCorners[edge][0]]) + Vec3D(kCubeCorner[kEdgeCorners[edge][1]])) * 0.5;
}

// The triangulation of a loop whose inner edges are shortest. One that lies in a face of the cube would meet one of the
// neighbour there: true when there is none of these.
bool Triangulate(const std::vector<int>& loop, CubeTiling& tiling) {
  const int n = static_cast<int>(loop.size());
  constexpr double kInFace = 1e6;
  const auto cost = [&](int a, int b) {
    if (b - a == 1 || (a == 0 && b == n - 1)) return 0.0;
    const int p = loop[static_cast<std::size_t>(a)], q = loop[static_cast<std::size_t>(b)];
    const Vec3D d = Middle(p) - Middle(q);
    return (FacesOf(p) & FacesOf(q)) != 0 ? kInFace : Dot(d, d);
  };
  double least[12][12] = {};
  int split[12][12] = {};
  for (int width = 2; width < n; ++width) {
    for (int a = 0; a + width < n; ++a) {
      const int b = a + width;
      least[a][b] = std::numeric_limits<double>::max();
      for (int m = a + 1; m < b; ++m) {
        const double sum = least[a][m] + least[m][b] + cost(a, m) + cost(m, b);
        if (sum < least[a][b] - 1e-9) least[a][b] = sum, split[a][b] = m;
      }
    }
  }
  if (least[0][n - 1] >= kInFace) return false;
  std::vector<std::array<int, 2>> open{{0, n - 1}};
  while (!open.empty()) {
    const auto [a, b] = open.back();
    open.pop_back();
    if (b - a < 2) continue;
    const int m = split[a][b];
    tiling.triangles.push_back({static_cast<std::uint8_t>(loop[static_cast<std::size_t>(a)]),
                                static_cast<std::uint8_t>(loop[static_cast<std::size_t>(m)]),
                                static_cast<std::uint8_t>(loop[static_cast<std::size_t>(b)])});
    open.push_back({a, m});
    open.push_back({m, b});
  }
  return true;
}

}  // namespace

const std::array<CubeEdge, kCubeEdges> kCubeEdge = MakeEdges();

const CubeTables& CubeTables::Get() {
  static const CubeTables tables;
  return tables;
}

CubeTables::CubeTables() {
  for (int odd = 0; odd < 2; ++odd) {
    for (int code = 0; code < 256; ++code) {
      tilings_.push_back(Tetrahedra(static_cast<std::uint8_t>(code), odd != 0));
    }
  }
  for (int number = 0; number < 256; ++number) {
    const auto code = static_cast<std::uint8_t>(number);
    Case& c = cases_[code];
    c.first = static_cast<std::uint16_t>(tilings_.size());
    for (const auto& face : kFaces) {
      const bool first = Outside(code, face[0]);
      if (Outside(code, face[1]) == first || Outside(code, face[2]) != first || Outside(code, face[3]) == first) {
        continue;
      }
      const int shift = first ? 0 : 1;  // begins with a corner outside
      for (int n = 0; n < 4; ++n) {
        c.face[c.faces][static_cast<std::size_t>(n)] = static_cast<std::uint8_t>(face[(n + shift) % 4]);
      }
      ++c.faces;
    }
    for (unsigned joined = 0; joined < 1u << c.faces; ++joined) AddLoops(code, joined);
  }
}

// On each face the surface runs from the edge where a walk around the face goes inside to one where it comes out.
// joined: bit n, the outside corners of ambiguous face n are joined.
void CubeTables::AddLoops(std::uint8_t code, unsigned joined) {
  int next[12];
  std::fill_n(next, 12, -1);
  int ambiguous = 0;
  for (const auto& face : kFaces) {
    int in[2], out[2], ins = 0, outs = 0;  // positions in the walk
    for (int n = 0; n < 4; ++n) {
      const bool here = Outside(code, face[n]), there = Outside(code, face[(n + 1) % 4]);
      if (here && !there) in[ins++] = n;
      if (!here && there) out[outs++] = n;
    }
    const auto edge = [&](int n) { return EdgeBetween(face[n], face[(n + 1) % 4]); };
    if (ins == 1) next[edge(in[0])] = edge(out[0]);
    if (ins == 2) {
      const bool join = (joined >> ambiguous++ & 1) != 0;
      // Joined outside corners cut the inside ones off: from the edge before an inside corner to the one after it.
      for (const int n : in) next[edge(n)] = edge(join ? (n + 1) % 4 : (n + 3) % 4);
    }
  }
  CubeTiling tiling;
  bool done[12] = {};
  for (int start = 0; start < 12; ++start) {
    if (next[start] < 0 || done[start]) continue;
    std::vector<int> loop;
    for (int e = start; !done[e]; e = next[e]) done[e] = true, loop.push_back(e);
    constexpr std::size_t kMostWithoutCentre = 7;
    if (loop.size() <= kMostWithoutCentre && Triangulate(loop, tiling)) continue;
    tiling.hasCentre = true;
    for (std::size_t n = 0; n < loop.size(); ++n) {
      tiling.triangles.push_back({static_cast<std::uint8_t>(loop[n]),
                                  static_cast<std::uint8_t>(loop[(n + 1) % loop.size()]),
                                  static_cast<std::uint8_t>(kCentre)});
    }
  }
  tilings_.push_back(std::move(tiling));
}

CubeTiling CubeTables::Tetrahedra(std::uint8_t code, bool odd) const {
  // Corners of the tetrahedra, all of one orientation.
  constexpr int kOdd[5][4] = {{4, 6, 3, 7}, {4, 1, 6, 5}, {1, 3, 6, 2}, {4, 3, 1, 0}, {4, 6, 1, 3}};
  constexpr int kEven[5][4] = {{5, 7, 0, 4}, {5, 2, 7, 6}, {5, 0, 2, 1}, {0, 7, 2, 3}, {5, 7, 2, 0}};
  CubeTiling tiling;
  for (const auto& corners : odd ? kOdd : kEven) {
    int outside[4], inside[4], outsides = 0, insides = 0;
    for (const int c : corners) Outside(code, c) ? outside[outsides++] = c : inside[insides++] = c;
    if (outsides == 0 || insides == 0) continue;
    const auto point = [](int a, int b) { return static_cast<std::uint8_t>(EdgeBetween(a, b)); };
    std::vector<std::uint8_t> loop;
    if (outsides == 2) {
      for (const auto& [a, b] : {std::pair(0, 0), std::pair(0, 1), std::pair(1, 1), std::pair(1, 0)}) {
        loop.push_back(point(outside[a], inside[b]));
      }
    } else {
      for (int n = 0; n < 3; ++n) {
        loop.push_back(outsides == 1 ? point(outside[0], inside[n]) : point(inside[0], outside[n]));
      }
    }
    // Turned so that the first triangle's normal points from the inside corners to the outside ones.
    const auto at = [&](std::uint8_t edge) {
      for (int a = 0; a < 8; ++a) {
        for (int b = a + 1; b < 8; ++b) {
          if (EdgeBetween(a, b) == edge && Outside(code, a) != Outside(code, b)) {
            const bool inTile = std::find(std::begin(corners), std::end(corners), a) != std::end(corners) &&
                                std::find(std::begin(corners), std::end(corners), b) != std::end(corners);
            if (inTile) return (Vec3D(kCubeCorner[a]) + Vec3D(kCubeCorner[b])) * 0.5;
          }
        }
      }
      return Vec3D();
    };
    const Vec3D normal = Cross(at(loop[1]) - at(loop[0]), at(loop[2]) - at(loop[0]));
    if (Dot(normal, Vec3D(kCubeCorner[outside[0]]) - Vec3D(kCubeCorner[inside[0]])) < 0) {
      std::reverse(loop.begin(), loop.end());
    }
    tiling.triangles.push_back({loop[0], loop[1], loop[2]});
    if (loop.size() == 4) tiling.triangles.push_back({loop[0], loop[2], loop[3]});
  }
  return tiling;
}

}  // namespace orlix
