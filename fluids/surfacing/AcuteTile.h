#pragma once
// Space filled with acute tetrahedra (Ungor 2001, "Tiling 3D Euclidean space with acute tetrahedra"): a tile of 46 that
// repeats with every cell. Surfaces in it have well-shaped triangles.

#include <array>
#include <cstdint>

#include "globals/Vec.h"

namespace orlix {

class AcuteTile {
 public:
  static constexpr int kSamples = 8;  // vertices that belong to one cell
  static constexpr int kEdges = 54;   // edges that belong to one cell
  static constexpr int kTetrahedra = 46;
  static constexpr int kVertices = 40;
  static const AcuteTile& Get();

  // A corner of a tetrahedron: a sample of the tile's own cell or of the one after it along some axes. Bit a of cell:
  // the next one along axis a.
  struct Corner {
    std::uint8_t cell, sample;
  };
  // An edge by the cell that it belongs to, in the same way, and the bits of that cell's edges before it.
  struct Edge {
    std::uint64_t before;
    std::uint8_t cell;
    friend bool operator==(const Edge&, const Edge&) = default;
  };
  // The surface in a tetrahedron by its corners outside (bit n: corner n): up to two triangles, by indices into
  // tileEdges.
  struct Surface {
    std::uint8_t triangles, edge[2][3];
  };
  struct Tetrahedron {
    std::uint8_t vertex[4];
    Surface surface[16];
  };

  Vec3D sample[kSamples];     // places in the cell, in cells
  double along[3][kSamples];  // the same by axis
  Corner edgeEnd[kEdges][2];  // of the edges that belong to a cell
  Edge tileEdges[160];
  Tetrahedron tetrahedra[kTetrahedra];
  std::uint64_t tetrahedronBits[kTetrahedra];  // of their vertices
  // Bits of the tile's vertices, by the signs of the samples of each of the eight cells.
  std::uint64_t vertexBits[8][256];
  // Bits of a cell's edges that are cut, by the signs of the samples of each of the eight cells: to be combined by xor.
  std::uint64_t cutBits[8][256];
  // Of a cell's edges, those that lie within the cells that aren't next along an axis.
  std::uint64_t edgesWithin[3];

 private:
  AcuteTile();
};

}  // namespace orlix
