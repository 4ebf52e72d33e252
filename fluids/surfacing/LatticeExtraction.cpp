#include "fluids/surfacing/LatticeExtraction.h"

#include <array>
#include <limits>

#include "fluids/surfacing/CubeTables.h"

namespace orlix {

namespace {

struct SurfaceCell {
  std::int32_t i;
  std::uint16_t tiling;
};

// Cells [begin of row j, begin of row j + 1) in one layer of cells, and what they make.
struct CellLayer {
  std::vector<SurfaceCell> cells;
  std::vector<std::uint32_t> rowBegin;
  std::uint32_t centres = 0, triangles = 0;
  std::uint32_t edges = 0;                         // of the layer of nodes below
  std::int64_t pointBegin = 0, triangleBegin = 0;  // centres come after the points of edges
};

class LatticeExtraction {
 public:
  LatticeExtraction(const SurfaceField& field, bool tetrahedra, WorkerPool& pool)
      : field_(field),
        tetrahedra_(tetrahedra),
        families_(tetrahedra ? kEdgeFamilies : 3),
        pool_(pool),
        outside_(OutsideNodes(field, pool)),
        layers_(static_cast<std::size_t>(field.grid.dims.z)) {
    for (int f = 0; f < families_; ++f) edges_[static_cast<std::size_t>(f)] = BitRows(field.grid.dims);
  }

  bool Run(const Vec3D& origin, double spacing, TriMeshSTL& mesh) {
    const VecInt3D low = field_.low, high = field_.high;
    ForLayers(pool_, low.z, high.z + 1, [&](int k) { layers_[At(k)].edges = FindEdges(k); });
    ForLayers(pool_, low.z, high.z, [&](int k) { FindCells(k); });
    std::int64_t points = 0, triangles = 0;
    for (int k = low.z; k <= high.z; ++k) {
      CellLayer& layer = layers_[At(k)];
      layer.pointBegin = points, layer.triangleBegin = triangles;
      points += std::int64_t(layer.edges) + layer.centres;
      triangles += layer.triangles;
    }
    constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
    if (points > kMost || triangles > kMost) return false;
    ResizeForWriting(pool_, mesh.Triangles(), triangles, mesh.Points(), points);
    ForLayers(pool_, low.z, high.z + 1, [&](int k) { PlacePoints(k, origin, spacing, mesh.Points()); });
    ForLayers(pool_, low.z, high.z, [&](int k) { PlaceTriangles(k, origin, spacing, mesh); });
    return true;
  }

 private:
  static std::size_t At(int k) { return static_cast<std::size_t>(k); }
  static std::uint64_t Shifted(const std::uint64_t* row, int w, int words) {
    return row[w] >> 1 | (w + 1 < words ? row[w + 1] << 63 : 0);
  }
  // Of a face's diagonals the one between (0,0) and (1,1) where the sum of the cell's indices is odd, else the other.
  static std::uint64_t OddCells(int j, int k) {
    return ((j + k) & 1) == 0 ? 0xaaaaaaaaaaaaaaaaull : 0x5555555555555555ull;
  }

  // The cut edges that belong to a layer of nodes, numbered from 0; gives their count.
  std::uint32_t FindEdges(int k) {
    const VecInt3D low = field_.low, high = field_.high;
    const int words = outside_.words();
    std::uint32_t count = 0;
    for (int j = low.y; j <= high.y; ++j) {
      const bool up = j < high.y, above = k < high.z;
      const std::uint64_t* a = outside_.Row(j, k);
      const std::uint64_t* b = up ? outside_.Row(j + 1, k) : a;
      const std::uint64_t* c = above ? outside_.Row(j, k + 1) : a;
      const std::uint64_t* d = up && above ? outside_.Row(j + 1, k + 1) : a;
      for (int w = low.x / 64; w <= high.x / 64; ++w) {
        const std::uint64_t nodes = WordOfRange(w, low.x, high.x + 1), cells = WordOfRange(w, low.x, high.x);
        const std::uint64_t ax = Shifted(a, w, words);
        edges_[0].Row(j, k)[w] = (a[w] ^ ax) & cells;
        edges_[1].Row(j, k)[w] = up ? (a[w] ^ b[w]) & nodes : 0;
        edges_[2].Row(j, k)[w] = above ? (a[w] ^ c[w]) & nodes : 0;
        if (!tetrahedra_) continue;
        const std::uint64_t odd = OddCells(j, k);
        const std::uint64_t bx = Shifted(b, w, words), cx = Shifted(c, w, words);
        edges_[3].Row(j, k)[w] = up && above ? (((a[w] ^ d[w]) & odd) | ((b[w] ^ c[w]) & ~odd)) & nodes : 0;
        edges_[4].Row(j, k)[w] = above ? (((a[w] ^ cx) & odd) | ((ax ^ c[w]) & ~odd)) & cells : 0;
        edges_[5].Row(j, k)[w] = up ? (((a[w] ^ bx) & odd) | ((ax ^ b[w]) & ~odd)) & cells : 0;
      }
      for (int f = 0; f < families_; ++f) count = edges_[static_cast<std::size_t>(f)].NumberRow(j, k, count);
    }
    return count;
  }

  void FindCells(int k) {
    const CubeTables& tables = CubeTables::Get();
    const VecInt3D low = field_.low, high = field_.high;
    const int words = outside_.words();
    CellLayer& layer = layers_[At(k)];
    layer.rowBegin.assign(static_cast<std::size_t>(field_.grid.dims.y) + 1, 0);
    for (int j = low.y; j < high.y; ++j) {
      layer.rowBegin[At(j)] = static_cast<std::uint32_t>(layer.cells.size());
      const std::uint64_t *a = outside_.Row(j, k), *b = outside_.Row(j + 1, k);
      const std::uint64_t *c = outside_.Row(j, k + 1), *d = outside_.Row(j + 1, k + 1);
      for (int w = low.x / 64; w <= (high.x - 1) / 64; ++w) {
        const std::uint64_t ax = Shifted(a, w, words), bx = Shifted(b, w, words);
        const std::uint64_t cx = Shifted(c, w, words), dx = Shifted(d, w, words);
        const std::uint64_t any = a[w] | b[w] | c[w] | d[w] | ax | bx | cx | dx;
        const std::uint64_t all = a[w] & b[w] & c[w] & d[w] & ax & bx & cx & dx;
        ForSetBits(any & ~all & WordOfRange(w, low.x, high.x), 64 * w, [&](int i) {
          const int s = i % 64;
          const auto bit = [s](std::uint64_t word, int corner) { return (word >> s & 1) << corner; };
          const auto code = static_cast<std::uint8_t>(bit(c[w], 0) | bit(cx, 1) | bit(dx, 2) | bit(d[w], 3) |
                                                      bit(a[w], 4) | bit(ax, 5) | bit(bx, 6) | bit(b[w], 7));
          const std::uint16_t tiling = tetrahedra_ ? CubeTables::TetrahedraOf(code, ((i + j + k) & 1) != 0)
                                                   : tables.TilingOf(code, [&](int corner) {
                                                       const VecInt3D& o = kCubeCorner[corner];
                                                       return field_.Value(i + o.x, j + o.y, k + o.z);
                                                     });
          layer.cells.push_back({i, tiling});
          layer.centres += tables.Tiling(tiling).hasCentre;
          layer.triangles += static_cast<std::uint32_t>(tables.Tiling(tiling).triangles.size());
        });
      }
    }
    std::fill(layer.rowBegin.begin() + high.y, layer.rowBegin.end(), static_cast<std::uint32_t>(layer.cells.size()));
  }

  void PlacePoints(int k, const Vec3D& origin, double spacing, std::vector<Vec3D>& points) const {
    const VecInt3D low = field_.low, high = field_.high;
    for (int f = 0; f < families_; ++f) {
      const BitRows& edges = edges_[static_cast<std::size_t>(f)];
      for (int j = low.y; j <= high.y; ++j) {
        const std::uint64_t* row = edges.Row(j, k);
        for (int w = low.x / 64; w <= high.x / 64; ++w) {
          auto n = row[w] == 0 ? std::size_t(0)
                               : static_cast<std::size_t>(layers_[At(k)].pointBegin) + edges.Number(64 * w, j, k);
          ForSetBits(row[w], 64 * w, [&](int i) { points[n++] = PointOf(f, {i, j, k}, origin, spacing); });
        }
      }
    }
  }

  // Where the value is 0 between the ends of an edge, taken as linear.
  Vec3D PointOf(int family, const VecInt3D& at, const Vec3D& origin, double spacing) const {
    VecInt3D a = at, b = at;
    if (family < 3) {
      ++b[family];
    } else {
      const int first = family == 3 ? 1 : 0, second = family == 5 ? 1 : 2;
      const bool odd = ((at.x + at.y + at.z) & 1) != 0;
      odd ? ++b[first] : ++a[first];
      ++b[second];
    }
    const double va = field_.Value(a.x, a.y, a.z), vb = field_.Value(b.x, b.y, b.z), span = vb - va;
    const Vec3D xa = origin + Vec3D(a) * spacing, xb = origin + Vec3D(b) * spacing;
    Vec3D x = xa;
    for (int axis = 0; axis < 3; ++axis) {
      if (a[axis] != b[axis]) x[axis] = (vb * xa[axis] - va * xb[axis]) / span;
    }
    return x;
  }

  void PlaceTriangles(int k, const Vec3D& origin, double spacing, TriMeshSTL& mesh) const {
    const CubeTables& tables = CubeTables::Get();
    const CellLayer& layer = layers_[At(k)];
    VecInt3D* triangle = mesh.Triangles().data() + layer.triangleBegin;
    auto centre = static_cast<std::int32_t>(layer.pointBegin + layer.edges);
    for (int j = field_.low.y; j < field_.high.y; ++j) {
      for (std::uint32_t n = layer.rowBegin[At(j)]; n < layer.rowBegin[At(j) + 1]; ++n) {
        const int i = layer.cells[n].i;
        const CubeTiling& tiling = tables.Tiling(layer.cells[n].tiling);
        const auto point = [&](std::uint8_t edge) {
          if (edge == kCentre) return centre;
          const CubeEdge& e = kCubeEdge[edge];
          return static_cast<std::int32_t>(layers_[At(k + e.dz)].pointBegin +
                                           edges_[e.family].Number(i + e.dx, j + e.dy, k + e.dz));
        };
        for (const auto& t : tiling.triangles) *triangle++ = {point(t[0]), point(t[1]), point(t[2])};
        if (!tiling.hasCentre) continue;
        mesh.Points()[static_cast<std::size_t>(centre++)] = origin + (Vec3D(i, j, k) + Vec3D(0.5)) * spacing;
      }
    }
  }

  const SurfaceField& field_;
  bool tetrahedra_;
  int families_;
  WorkerPool& pool_;
  BitRows outside_;
  std::array<BitRows, kEdgeFamilies> edges_;  // cut ones, by the node at their low end, numbered within a layer
  std::vector<CellLayer> layers_;
};

}  // namespace

bool ExtractLattice(const SurfaceField& field, bool tetrahedra, const Vec3D& origin, double spacing, WorkerPool& pool,
                    TriMeshSTL& mesh) {
  return LatticeExtraction(field, tetrahedra, pool).Run(origin, spacing, mesh);
}

}  // namespace orlix
