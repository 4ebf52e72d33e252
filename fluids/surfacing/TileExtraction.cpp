#include "fluids/surfacing/TileExtraction.h"

#include <limits>

#include "fluids/surfacing/AcuteTile.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

// A cell whose own edges or whose tile may be cut.
struct TileCell {
  std::int32_t i;
  std::uint8_t signs;          // of the cell's samples; bit: outside
  std::int32_t values = -1;    // of the samples; -1: not known, they have one sign
  std::uint64_t cut = 0;       // of the cell's edges
  std::uint64_t vertices = 0;  // bits of the tile's vertices that are outside
  std::uint32_t points = 0;    // number of the first cut edge in the layer
};

struct TileLayer {
  std::vector<TileCell> cells;
  std::vector<std::uint32_t> rowBegin;
  std::vector<double> values;
  std::uint32_t points = 0, triangles = 0;
  std::int64_t pointBegin = 0, triangleBegin = 0;
};

// How many triangles the surface has in a tile, by its vertices outside.
ORLIX_MULTIVERSION std::uint32_t CountTriangles(const AcuteTile& tile, std::uint64_t vertices) {
  static constexpr std::uint8_t kTriangles[5] = {0, 1, 2, 1, 0};  // by the number of corners outside
  std::uint32_t triangles = 0;
  for (const auto& t : tile.tetrahedra) triangles += kTriangles[std::popcount(vertices & t.mask)];
  return triangles;
}

class TileExtraction {
 public:
  TileExtraction(const SurfaceField& field, Interpolation sampling, WorkerPool& pool)
      : field_(field),
        sampling_(sampling),
        pool_(pool),
        tile_(AcuteTile::Get()),
        outside_(OutsideNodes(field, pool)),
        mixed_(field.grid.dims),
        kept_(field.grid.dims),
        layers_(static_cast<std::size_t>(field.grid.dims.z)) {}

  bool Run(const Vec3D& origin, double spacing, TriMeshSTL& mesh) {
    const int low = field_.low.z, high = field_.high.z;
    ForLayers(pool_, low, high + 1, [&](int k) { FindMixed(k); });
    ForLayers(pool_, low, high + 1, [&](int k) { FindKept(k); });
    ForLayers(pool_, low, high + 1, [&](int k) { FindCuts(k); });
    std::int64_t points = 0, triangles = 0;
    for (int k = low; k <= high; ++k) {
      TileLayer& layer = layers_[At(k)];
      layer.pointBegin = points, layer.triangleBegin = triangles;
      points += layer.points, triangles += layer.triangles;
    }
    constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
    if (points > kMost || triangles > kMost) return false;
    ResizeForWriting(mesh.Triangles(), triangles);
    ResizeForWriting(mesh.Points(), points);
    ForLayers(pool_, low, high + 1, [&](int k) { PlacePoints(k, origin, spacing, mesh.Points()); });
    ForLayers(pool_, low, high, [&](int k) { PlaceTriangles(k, mesh); });
    return true;
  }

 private:
  static std::size_t At(int k) { return static_cast<std::size_t>(k); }
  VecInt3D Clamped(const VecInt3D& v) const {
    return {std::clamp(v.x, field_.low.x, field_.high.x), std::clamp(v.y, field_.low.y, field_.high.y),
            std::clamp(v.z, field_.low.z, field_.high.z)};
  }

  // Cells whose samples may differ in sign: by their nodes, and the nodes beside these where the kernel reaches
  // further.
  void FindMixed(int k) {
    const int reach = sampling_ == Interpolation::Trilinear || sampling_ == Interpolation::Cosine ? 0 : 1;
    const VecInt3D low = field_.low, high = field_.high;
    const int words = outside_.words();
    for (int j = low.y; j <= high.y; ++j) {
      std::uint64_t* row = mixed_.Row(j, k);
      for (int w = low.x / 64; w <= high.x / 64; ++w) {
        std::uint64_t any = 0, all = ~std::uint64_t(0);
        for (int kk = std::max(k - reach, low.z); kk <= std::min(k + 1 + reach, high.z); ++kk) {
          for (int jj = std::max(j - reach, low.y); jj <= std::min(j + 1 + reach, high.y); ++jj) {
            const std::uint64_t* nodes = outside_.Row(jj, kk);
            for (int d = -reach; d <= 1 + reach; ++d) {
              const std::uint64_t word = NodesAt(nodes, w, d, words);
              any |= word, all &= word;
            }
          }
        }
        row[w] = any & ~all & WordOfRange(w, low.x, high.x + 1);
      }
    }
  }

  // The nodes d places after those of word w; beyond the box, its last ones.
  std::uint64_t NodesAt(const std::uint64_t* row, int w, int d, int words) const {
    std::uint64_t word = row[w];
    if (d > 0) word = word >> d | (w + 1 < words ? row[w + 1] << (64 - d) : 0);
    if (d < 0) word = word << -d | (w > 0 ? row[w - 1] >> (64 + d) : 0);
    const auto repeat = [&](int from, int begin, int end) {
      const std::uint64_t range = WordOfRange(w, begin, end);
      word = (row[from / 64] >> (from % 64) & 1) != 0 ? word | range : word & ~range;
    };
    if (d > 0) repeat(field_.high.x, field_.high.x + 1 - d, field_.high.x + 1);
    if (d < 0) repeat(field_.low.x, field_.low.x, field_.low.x - d);
    return word;
  }

  void FindKept(int k) {
    const VecInt3D low = field_.low, high = field_.high;
    const int words = mixed_.words();
    TileLayer& layer = layers_[At(k)];
    layer.rowBegin.assign(At(field_.grid.dims.y) + 1, 0);
    std::uint32_t count = 0;
    for (int j = low.y; j <= high.y; ++j) {
      std::uint64_t* row = kept_.Row(j, k);
      for (int kk = k; kk <= std::min(k + 1, high.z); ++kk) {
        for (int jj = j; jj <= std::min(j + 1, high.y); ++jj) {
          const std::uint64_t* mixed = mixed_.Row(jj, kk);
          for (int w = 0; w < words; ++w) row[w] |= mixed[w] | mixed[w] >> 1 | (w + 1 < words ? mixed[w + 1] << 63 : 0);
        }
      }
      for (int w = 0; w < words; ++w) row[w] &= WordOfRange(w, low.x, high.x + 1);
      layer.rowBegin[At(j)] = count;
      count = kept_.NumberRow(j, k, count);
    }
    std::fill(layer.rowBegin.begin() + high.y + 1, layer.rowBegin.end(), count);
    layer.cells.reserve(count);
    for (int j = low.y; j <= high.y; ++j) {
      for (int w = 0; w < words; ++w) {
        ForSetBits(kept_.Row(j, k)[w], 64 * w, [&](int i) {
          layer.cells.push_back({.i = i, .signs = outside_.Has(i, j, k) ? std::uint8_t(255) : std::uint8_t(0)});
          if (mixed_.Has(i, j, k)) Sample(layer, layer.cells.back(), i, j, k);
        });
      }
    }
  }

  void Sample(TileLayer& layer, TileCell& cell, int i, int j, int k) {
    cell.values = static_cast<std::int32_t>(layer.values.size());
    cell.signs = 0;
    for (int s = 0; s < AcuteTile::kSamples; ++s) {
      const double v = ValueAt(i, j, k, s);
      if (v >= 0) cell.signs = static_cast<std::uint8_t>(cell.signs | 1 << s);
      layer.values.push_back(v);
    }
  }

  double ValueAt(int i, int j, int k, int s) const {
    const Vec3D at = Vec3D(i, j, k) + tile_.sample[s];
    double v = SampleGrid(field_.grid, at.x, at.y, at.z, sampling_) - field_.iso;
    if (field_.closed) v = std::max(v, BeyondBox(at));
    return v == 0 ? field_.nearest : v;
  }
  // With the sign that the sample counts with: in a cell that wasn't sampled, that of its nodes. cell: null when it
  // isn't kept.
  double KnownValue(const TileCell* cell, int i, int j, int k, int s) const {
    if (cell && cell->values >= 0) return layers_[At(k)].values[At(cell->values + s)];
    const VecInt3D in = Clamped({i, j, k});
    const double v = ValueAt(i, j, k, s);
    return outside_.Has(in.x, in.y, in.z) ? std::max(v, field_.nearest) : std::min(v, -field_.nearest);
  }
  // How far a place (in cells) lies outside of the box, m. The border of the tiles isn't flat: at the low faces it runs
  // through the first three quarters of a cell, which the box leaves out.
  double BeyondBox(const Vec3D& at) const {
    const Vec3D low = Vec3D(field_.low) + Vec3D(0.75) - at, high = at - Vec3D(field_.high);
    return std::max({low.x, low.y, low.z, high.x, high.y, high.z}) * field_.cellSize;
  }

  // A cell and those after it along the axes, in the order of AcuteTile::Corner::cell; null where one isn't kept.
  void GatherCells(int i, int j, int k, const TileCell* (&cells)[8]) const {
    for (int row = 0; row < 4; ++row) {
      const int jj = j + (row & 1), kk = k + (row >> 1);
      cells[2 * row] = cells[2 * row + 1] = nullptr;
      if (jj > field_.high.y || kk > field_.high.z) continue;
      const bool here = kept_.Has(i, jj, kk), after = i < field_.high.x && kept_.Has(i + 1, jj, kk);
      if (!here && !after) continue;
      const TileCell* first = layers_[At(kk)].cells.data() + kept_.Number(i, jj, kk);
      if (here) cells[2 * row] = first;
      if (after) cells[2 * row + 1] = first + here;
    }
  }
  // Calls f(cell, j) for the kept cells of a layer.
  template <class F>
  void ForCells(int k, F&& f) {
    TileLayer& layer = layers_[At(k)];
    for (int j = field_.low.y; j <= field_.high.y; ++j) {
      for (std::uint32_t n = layer.rowBegin[At(j)]; n < layer.rowBegin[At(j) + 1]; ++n) f(layer.cells[n], j);
    }
  }

  // The signs of the samples of a cell and of those after it along the axes, in the order of AcuteTile::Corner::cell.
  void GatherSigns(int i, int j, int k, std::uint8_t (&signs)[8]) const {
    for (int row = 0; row < 4; ++row) {
      const int jj = std::min(j + (row & 1), field_.high.y), kk = std::min(k + (row >> 1), field_.high.z);
      const std::vector<TileCell>& cells = layers_[At(kk)].cells;
      const bool here = kept_.Has(i, jj, kk), last = i == field_.high.x;
      const std::uint32_t number = kept_.Number(i, jj, kk);
      signs[2 * row] = here ? cells[number].signs : SignsOfNode(i, jj, kk);
      if (last) {
        signs[2 * row + 1] = signs[2 * row];
      } else {
        signs[2 * row + 1] = kept_.Has(i + 1, jj, kk) ? cells[number + here].signs : SignsOfNode(i + 1, jj, kk);
      }
    }
  }
  std::uint8_t SignsOfNode(int i, int j, int k) const {
    return outside_.Has(i, j, k) ? std::uint8_t(255) : std::uint8_t(0);
  }

  void FindCuts(int k) {
    TileLayer& layer = layers_[At(k)];
    ForCells(k, [&](TileCell& cell, int j) {
      std::uint8_t signs[8];
      GatherSigns(cell.i, j, k, signs);
      for (int n = 0; n < 8; ++n) {
        cell.cut ^= tile_.cutBits[n][signs[n]];
        cell.vertices |= tile_.vertexBits[n][signs[n]];
      }
      const int at[3] = {cell.i, j, k};
      bool atEnd = false;
      for (int axis = 0; axis < 3; ++axis) {
        if (at[axis] != field_.high[axis]) continue;
        cell.cut &= tile_.edgesWithin[axis];
        atEnd = true;
      }
      cell.points = layer.points;
      layer.points += static_cast<std::uint32_t>(std::popcount(cell.cut));
      if (atEnd) cell.vertices = 0;  // the box holds no tile there
      if (cell.vertices != 0) layer.triangles += CountTriangles(tile_, cell.vertices);
    });
  }

  void PlacePoints(int k, const Vec3D& origin, double spacing, std::vector<Vec3D>& points) {
    const TileLayer& layer = layers_[At(k)];
    ForCells(k, [&](const TileCell& cell, int j) {
      if (cell.cut == 0) return;
      auto n = static_cast<std::size_t>(layer.pointBegin) + cell.points;
      const TileCell* cells[8];
      GatherCells(cell.i, j, k, cells);
      ForSetBits(cell.cut, 0, [&](int e) {
        Vec3D x[2];
        double v[2];
        for (int end = 0; end < 2; ++end) {
          const AcuteTile::Corner& c = tile_.edgeEnd[e][end];
          const int i = cell.i + (c.cell & 1), jj = j + (c.cell >> 1 & 1), kk = k + (c.cell >> 2);
          x[end] = origin + (Vec3D(i, jj, kk) + tile_.sample[c.sample]) * spacing;
          v[end] = KnownValue(cells[c.cell], i, jj, kk, c.sample);
        }
        const double t = v[1] / (v[1] - v[0]);
        points[n++] = x[0] * t + x[1] * (1 - t);
      });
    });
  }

  void PlaceTriangles(int k, TriMeshSTL& mesh) {
    VecInt3D* triangle = mesh.Triangles().data() + layers_[At(k)].triangleBegin;
    ForCells(k, [&](const TileCell& cell, int j) {
      const std::uint64_t signs = cell.vertices;
      if (signs == 0) return;
      const TileCell* owners[8];
      std::int64_t first[8];
      GatherCells(cell.i, j, k, owners);
      for (int n = 0; n < 8; ++n) {
        first[n] = owners[n] ? layers_[At(k + (n >> 2))].pointBegin + owners[n]->points : 0;
      }
      for (const auto& t : tile_.tetrahedra) {
        const std::uint64_t own = signs & t.mask;
        if (own == 0 || own == t.mask) continue;
        const auto point = [&](int a, int b) {
          const AcuteTile::Edge e = tile_.tileEdges[t.edge[a][b]];
          const std::uint64_t below = owners[e.cell]->cut & ((std::uint64_t(1) << e.edge) - 1);
          return static_cast<std::int32_t>(first[e.cell] + std::popcount(below));
        };
        triangle = AddTriangles(triangle, t, signs, point);
      }
    });
  }

  // The corners of a tetrahedron go a, b, c, d with d on the side to which the normal of a, b, c points.
  template <class Point>
  static VecInt3D* AddTriangles(VecInt3D* to, const AcuteTile::Tetrahedron& t, std::uint64_t signs, Point&& point) {
    // For each corner that is alone on its side: the others, so that seen from it they go round to the left.
    static constexpr int kOthers[4][3] = {{1, 2, 3}, {0, 3, 2}, {0, 1, 3}, {0, 2, 1}};
    // For two corners outside, 0 and n: those inside, in the same sense.
    int code = 0;
    for (int n = 0; n < 4; ++n) code |= static_cast<int>(signs >> t.vertex[n] & 1) << n;
    const int outside = std::popcount(static_cast<unsigned>(code));
    if (outside != 2) {
      const int alone = std::countr_zero(static_cast<unsigned>(outside == 1 ? code : ~code & 15));
      const int* o = kOthers[alone];
      const std::int32_t p = point(alone, o[0]), q = point(alone, o[1]), r = point(alone, o[2]);
      *to++ = outside == 1 ? VecInt3D(p, r, q) : VecInt3D(p, q, r);
      return to;
    }
    const int a = std::countr_zero(static_cast<unsigned>(code));
    const int b = 31 - std::countl_zero(static_cast<unsigned>(code));
    // kOthers[a] turned so that b comes first: then the two inside corners.
    const int* o = kOthers[a];
    const int at = o[0] == b ? 0 : o[1] == b ? 1 : 2, c = o[(at + 1) % 3], d = o[(at + 2) % 3];
    const std::int32_t ac = point(a, c), ad = point(a, d), bc = point(b, c), bd = point(b, d);
    *to++ = VecInt3D(ac, bd, ad);
    *to++ = VecInt3D(ac, bc, bd);
    return to;
  }

  const SurfaceField& field_;
  Interpolation sampling_;
  WorkerPool& pool_;
  const AcuteTile& tile_;
  BitRows outside_, mixed_, kept_;
  std::vector<TileLayer> layers_;
};

}  // namespace

bool ExtractTiles(const SurfaceField& field, Interpolation sampling, const Vec3D& origin, double spacing,
                  WorkerPool& pool, TriMeshSTL& mesh) {
  return TileExtraction(field, sampling, pool).Run(origin, spacing, mesh);
}

}  // namespace orlix
