#pragma once
// How a surface passes through a cube of eight values: by the marching cubes of Chernyaev 1995 ("Marching Cubes 33"),
// reduced to the tests of faces, or by five tetrahedra.
//
// Corners, by (x, y, z) of the cube: 0 (0,0,1), 1 (1,0,1), 2 (1,1,1), 3 (0,1,1), 4 (0,0,0), 5 (1,0,0), 6 (1,1,0),
// 7 (0,1,0). Bit c of a code: corner c is outside, its value at or above 0.

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "globals/Vec.h"

namespace orlix {

inline constexpr int kCubeCorners = 8;
inline constexpr VecInt3D kCubeCorner[kCubeCorners] = {{0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1},
                                                       {0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};

// The edges of a lattice on which surfaces have their points: along an axis, or (3 + axis) the diagonal of a face whose
// normal is that axis, and which belongs to the low corner of the face.
inline constexpr int kEdgeFamilies = 6;

// An edge of a cube: its family, and the cell that it belongs to, from the cube's.
struct CubeEdge {
  std::uint8_t family;
  std::uint8_t dx, dy, dz;
};

inline constexpr int kCubeEdges = 18;  // the twelve of a cube, then the diagonals at x = 0, x = 1, y = 0, ...
inline constexpr int kCentre = kCubeEdges;
extern const std::array<CubeEdge, kCubeEdges> kCubeEdge;

// Triangles of a cube, by three edges each (kCentre: the middle of the cube); their normals point outside.
struct CubeTiling {
  std::vector<std::array<std::uint8_t, 3>> triangles;
  bool hasCentre = false;
};

class CubeTables {
 public:
  static const CubeTables& Get();

  // Marching cubes. Two values of a face that lie across from each other are joined when their product isn't below
  // that of the others: neighbours, who see the same four values, decide alike, so no crack opens.
  // value(corner) is asked for cubes with such a face.
  template <class Value>
  std::uint16_t TilingOf(std::uint8_t code, Value&& value) const {
    const Case& c = cases_[code];
    std::uint16_t tiling = c.first;
    for (int n = 0; n < c.faces; ++n) {
      const auto& f = c.face[static_cast<std::size_t>(n)];
      if (value(f[0]) * value(f[2]) >= value(f[1]) * value(f[3]))
        tiling = static_cast<std::uint16_t>(tiling + (1 << n));
    }
    return tiling;
  }
  // Five tetrahedra; odd: of cells whose indices have an odd sum, so that diagonals of neighbours coincide.
  static constexpr std::uint16_t TetrahedraOf(std::uint8_t code, bool odd) {
    return static_cast<std::uint16_t>(kFirstTetrahedra + (odd ? 256 : 0) + code);
  }
  const CubeTiling& Tiling(std::uint16_t number) const { return tilings_[number]; }

 private:
  CubeTables();
  void AddLoops(std::uint8_t code, unsigned joined);
  CubeTiling Tetrahedra(std::uint8_t code, bool odd) const;

  static constexpr std::uint16_t kFirstTetrahedra = 0;
  struct Case {
    std::uint16_t first = 0;  // of 2^faces tilings
    std::uint8_t faces = 0;   // whose corners alternate: outside, inside, outside, inside
    std::array<std::array<std::uint8_t, 4>, 6> face{};
  };
  std::array<Case, 256> cases_;
  std::vector<CubeTiling> tilings_;
};

}  // namespace orlix
