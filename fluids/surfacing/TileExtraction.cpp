#include "fluids/surfacing/TileExtraction.h"

#include <limits>
#include <numeric>
#include <utility>

#include "fluids/surfacing/AcuteTile.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr int kSamples = AcuteTile::kSamples, kTetrahedra = AcuteTile::kTetrahedra;
constexpr int kMostTriangles = 2 * kTetrahedra;  // of a tile

// A cell whose own edges or whose tile may be cut.
struct TileCell {
  std::int32_t i;
  std::int32_t values;     // of the samples; -1: not known, they have one sign
  std::uint64_t cut;       // of the cell's edges
  std::uint64_t vertices;  // bits of the tile's vertices that are outside
  std::uint32_t points;    // number of the first cut edge in the layer
  std::uint8_t signs;      // of the cell's samples; bit: outside
};

struct TileLayer {
  std::uint32_t cells = 0, sampled = 0;  // how many, then the number of the first
  std::uint32_t points = 0, triangles = 0;
  std::int64_t pointBegin = 0, triangleBegin = 0;
  bool cutAtEnd = false;  // some cell at the end of the box, whose tiles not all are there, has a cut edge
};

// Values of one cell's samples. Whole elements of grids, as these stand on large pages and aren't cleared.
struct TileValues {
  double v[kSamples];
};

// The interpolant between the eight nodes about a cell, at its samples, less iso: the operations of SampleTrilinear.
ORLIX_MULTIVERSION void SampleNodes(const AcuteTile& tile, const double* node, std::int64_t row, std::int64_t slab,
                                    double iso, double* __restrict values) {
  const double p000 = node[0], p100 = node[1], p010 = node[row], p110 = node[row + 1];
  const double p001 = node[slab], p101 = node[slab + 1], p011 = node[slab + row], p111 = node[slab + row + 1];
  const double *x = tile.along[0], *y = tile.along[1], *z = tile.along[2];
  for (int s = 0; s < kSamples; ++s) {
    const double low = (p000 * (1 - x[s]) + p100 * x[s]) * (1 - y[s]) + (p010 * (1 - x[s]) + p110 * x[s]) * y[s];
    const double high = (p001 * (1 - x[s]) + p101 * x[s]) * (1 - y[s]) + (p011 * (1 - x[s]) + p111 * x[s]) * y[s];
    values[s] = low * (1 - z[s]) + high * z[s] - iso;
  }
}

// How many triangles the surface has in a tile, by its vertices outside.
ORLIX_MULTIVERSION std::uint32_t CountTriangles(const AcuteTile& tile, std::uint64_t vertices) {
  static constexpr std::uint8_t kTriangles[5] = {0, 1, 2, 1, 0};  // by the number of corners outside
  std::uint32_t triangles = 0;
  for (const std::uint64_t bits : tile.tetrahedronBits) triangles += kTriangles[std::popcount(vertices & bits)];
  return triangles;
}

// The surface in a tile: by the cut edges of the eight cells that have them, and the number of each one's first point.
// Room for kMostTriangles; gives their end. Neither loop has a branch to mispredict.
ORLIX_MULTIVERSION VecInt3D* MakeTriangles(const AcuteTile& tile, std::uint64_t vertices, const std::uint64_t (&cut)[8],
                                           const std::int32_t (&first)[8], VecInt3D* to) {
  std::uint8_t cutOnes[kTetrahedra];
  int count = 0;
  for (int t = 0; t < kTetrahedra; ++t) {
    const std::uint64_t own = vertices & tile.tetrahedronBits[t];
    cutOnes[count] = static_cast<std::uint8_t>(t);
    count += (own != 0) & (own != tile.tetrahedronBits[t]);
  }
  const auto point = [&](std::uint8_t edge) {
    const AcuteTile::Edge& e = tile.tileEdges[edge];
    return first[e.cell] + std::popcount(cut[e.cell] & e.before);
  };
  for (int n = 0; n < count; ++n) {
    const AcuteTile::Tetrahedron& t = tile.tetrahedra[cutOnes[n]];
    unsigned outside = 0;
    for (int c = 0; c < 4; ++c) outside |= static_cast<unsigned>(vertices >> t.vertex[c] & 1) << c;
    const AcuteTile::Surface& surface = t.surface[outside];
    to[0] = {point(surface.edge[0][0]), point(surface.edge[0][1]), point(surface.edge[0][2])};
    to[1] = {point(surface.edge[1][0]), point(surface.edge[1][1]), point(surface.edge[1][2])};
    to += surface.triangles;
  }
  return to;
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
        layers_(At(field.grid.dims.z)),
        rowBegin_(At(field.grid.dims.y) * At(field.grid.dims.z) + 1, 0) {}

  bool Run(const Vec3D& origin, double spacing, TriMeshSTL& mesh, bool& allUsed) {
    const int low = field_.low.z, high = field_.high.z;
    ForLayers(pool_, low, high + 1, [&](int k) { FindMixed(k); });
    ForLayers(pool_, low, high + 1, [&](int k) { CountCells(k); });
    std::uint32_t cells = 0, sampled = 0;
    for (TileLayer& layer : layers_) {
      cells += std::exchange(layer.cells, cells);
      sampled += std::exchange(layer.sampled, sampled);
    }
    std::partial_sum(rowBegin_.begin(), rowBegin_.end(), rowBegin_.begin());
    const auto count = [](std::uint32_t n) { return VecInt3D(static_cast<std::int32_t>(n), 1, 1); };
    const Grid<TileCell> cellGrid(count(cells), kGridScratch);
    const Grid<TileValues> valueGrid(count(sampled), kGridScratch);
    cells_ = cellGrid.data, values_ = valueGrid.data;
    ForLayers(pool_, low, high + 1, [&](int k) { FindCells(k); });
    ForLayers(pool_, low, high + 1, [&](int k) { FindCuts(k); });
    std::int64_t points = 0, triangles = 0;
    allUsed = true;
    for (int k = low; k <= high; ++k) {
      TileLayer& layer = layers_[At(k)];
      allUsed &= !layer.cutAtEnd;
      layer.pointBegin = points, layer.triangleBegin = triangles;
      points += layer.points, triangles += layer.triangles;
    }
    constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
    if (points > kMost || triangles > kMost) return false;
    ResizeForWriting(pool_, mesh.Triangles(), triangles, mesh.Points(), points);
    ForLayers(pool_, low, high + 1, [&](int k) { PlacePoints(k, origin, spacing, mesh.Points()); });
    ForLayers(pool_, low, high, [&](int k) { PlaceTriangles(k, mesh); });
    return true;
  }

 private:
  static std::size_t At(int k) { return static_cast<std::size_t>(k); }
  std::size_t RowAt(int j, int k) const { return At(k) * At(field_.grid.dims.y) + At(j); }
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

  // Of word w of a row, the cells that are kept: the mixed ones and those whose tile or edges reach into one.
  std::uint64_t KeptWord(int w, int j, int k) const {
    std::uint64_t kept = 0;
    for (int kk = k; kk <= std::min(k + 1, field_.high.z); ++kk) {
      for (int jj = j; jj <= std::min(j + 1, field_.high.y); ++jj) {
        const std::uint64_t* mixed = mixed_.Row(jj, kk);
        kept |= mixed[w] | mixed[w] >> 1 | (w + 1 < mixed_.words() ? mixed[w + 1] << 63 : 0);
      }
    }
    return kept & WordOfRange(w, field_.low.x, field_.high.x + 1);
  }

  void CountCells(int k) {
    TileLayer& layer = layers_[At(k)];
    for (int j = field_.low.y; j <= field_.high.y; ++j) {
      std::uint32_t cells = 0;
      for (int w = 0; w < mixed_.words(); ++w) {
        cells += static_cast<std::uint32_t>(std::popcount(KeptWord(w, j, k)));
        layer.sampled += static_cast<std::uint32_t>(std::popcount(mixed_.Row(j, k)[w]));
      }
      rowBegin_[RowAt(j, k) + 1] = cells;
      layer.cells += cells;
    }
  }

  void FindCells(int k) {
    TileCell* cell = cells_ + layers_[At(k)].cells;
    auto sampled = static_cast<std::int32_t>(layers_[At(k)].sampled);
    for (int j = field_.low.y; j <= field_.high.y; ++j) {
      for (int w = 0; w < mixed_.words(); ++w) {
        const std::uint64_t mixed = mixed_.Row(j, k)[w];
        ForSetBits(KeptWord(w, j, k), 64 * w, [&](int i) {
          *cell = {.i = i, .values = -1, .cut = 0, .vertices = 0, .points = 0, .signs = SignsOfNode(i, j, k)};
          if ((mixed >> (i % 64) & 1) != 0) {
            cell->values = sampled++;
            cell->signs = Sample(i, j, k, values_[cell->values].v);
          }
          ++cell;
        });
      }
    }
  }

  // Fills the samples of a cell; gives their signs.
  std::uint8_t Sample(int i, int j, int k, double (&values)[kSamples]) const {
    const VecInt3D n = field_.grid.dims;
    if (sampling_ == Interpolation::Trilinear && i + 1 < n.x && j + 1 < n.y && k + 1 < n.z) {
      SampleNodes(tile_, &field_.grid(i, j, k), n.x, field_.grid.slab, field_.iso, values);
    } else {
      for (int s = 0; s < kSamples; ++s) {
        const Vec3D at = Vec3D(i, j, k) + tile_.sample[s];
        values[s] = SampleGrid(field_.grid, at.x, at.y, at.z, sampling_) - field_.iso;
      }
    }
    std::uint8_t signs = 0;
    for (int s = 0; s < kSamples; ++s) {
      double& v = values[s];
      if (field_.closed) v = std::max(v, BeyondBox(Vec3D(i, j, k) + tile_.sample[s]));
      if (v == 0) v = field_.nearest;
      signs = static_cast<std::uint8_t>(signs | (v >= 0) << s);
    }
    return signs;
  }
  // How far a place (in cells) lies outside of the box, m. The border of the tiles isn't flat: at the low faces it runs
  // through the first three quarters of a cell, which the box leaves out.
  double BeyondBox(const Vec3D& at) const {
    const Vec3D low = Vec3D(field_.low) + Vec3D(0.75) - at, high = at - Vec3D(field_.high);
    return std::max({low.x, low.y, low.z, high.x, high.y, high.z}) * field_.cellSize;
  }

  std::uint8_t SignsOfNode(int i, int j, int k) const {
    return outside_.Has(i, j, k) ? std::uint8_t(255) : std::uint8_t(0);
  }

  // Calls f(cell, j, cells) for the kept cells of a layer. cells: the cell and those after it along the axes, in the
  // order of AcuteTile::Corner::cell; null where one isn't kept.
  template <class F>
  void ForCells(int k, F&& f) {
    for (int j = field_.low.y; j <= field_.high.y; ++j) {
      struct {
        TileCell *at, *end;
      } rows[4];
      for (int r = 0; r < 4; ++r) {
        const int jj = j + (r & 1), kk = k + (r >> 1);
        const bool within = jj <= field_.high.y && kk <= field_.high.z;
        const std::size_t row = within ? RowAt(jj, kk) : RowAt(j, k);
        rows[r] = {cells_ + rowBegin_[row + !within], cells_ + rowBegin_[row + 1]};
      }
      for (TileCell *cell = rows[0].at, *end = rows[0].end; cell != end; ++cell) {
        TileCell* cells[8];
        for (int r = 0; r < 4; ++r) {
          auto& [at, rowEnd] = rows[r];
          while (at != rowEnd && at->i < cell->i) ++at;
          const bool here = at != rowEnd && at->i == cell->i;
          TileCell* next = at + here;
          cells[2 * r] = here ? at : nullptr;
          cells[2 * r + 1] = next != rowEnd && next->i == cell->i + 1 ? next : nullptr;
        }
        f(*cell, j, cells);
      }
    }
  }

  void FindCuts(int k) {
    TileLayer& layer = layers_[At(k)];
    ForCells(k, [&](TileCell& cell, int j, TileCell* const(&cells)[8]) {
      const VecInt3D at(cell.i, j, k);
      for (int n = 0; n < 8; ++n) {
        const VecInt3D node = Min(at + VecInt3D(n & 1, n >> 1 & 1, n >> 2), field_.high);
        const std::uint8_t signs = cells[n] ? cells[n]->signs : SignsOfNode(node.x, node.y, node.z);
        cell.cut ^= tile_.cutBits[n][signs];
        cell.vertices |= tile_.vertexBits[n][signs];
      }
      bool atEnd = false, atBegin = false;
      for (int axis = 0; axis < 3; ++axis) {
        atBegin |= at[axis] == field_.low[axis];
        if (at[axis] != field_.high[axis]) continue;
        cell.cut &= tile_.edgesWithin[axis];
        atEnd = true;
      }
      layer.cutAtEnd |= (atBegin || atEnd) && cell.cut != 0;
      cell.points = layer.points;
      layer.points += static_cast<std::uint32_t>(std::popcount(cell.cut));
      if (atEnd) cell.vertices = 0;  // the box holds no tile there
      if (cell.vertices != 0) layer.triangles += CountTriangles(tile_, cell.vertices);
    });
  }

  void PlacePoints(int k, const Vec3D& origin, double spacing, std::vector<Vec3D>& points) {
    ForCells(k, [&](const TileCell& cell, int j, TileCell* const(&cells)[8]) {
      if (cell.cut == 0) return;
      auto n = static_cast<std::size_t>(layers_[At(k)].pointBegin) + cell.points;
      const double* values[8] = {};
      TileValues others[8];
      ForSetBits(cell.cut, 0, [&](int e) {
        Vec3D x[2];
        double v[2];
        for (int end = 0; end < 2; ++end) {
          const AcuteTile::Corner& c = tile_.edgeEnd[e][end];
          const int i = cell.i + (c.cell & 1), jj = j + (c.cell >> 1 & 1), kk = k + (c.cell >> 2);
          if (!values[c.cell]) values[c.cell] = ValuesOf(cells[c.cell], i, jj, kk, others[c.cell].v);
          x[end] = origin + (Vec3D(i, jj, kk) + tile_.sample[c.sample]) * spacing;
          v[end] = values[c.cell][c.sample];
        }
        const double t = v[1] / (v[1] - v[0]);
        points[n++] = x[0] * t + x[1] * (1 - t);
      });
    });
  }

  // A cell's samples, with the signs that they count with: where it wasn't sampled, that of its nodes. cell: null when
  // it isn't kept. room: for those that aren't known.
  const double* ValuesOf(const TileCell* cell, int i, int j, int k, double (&room)[kSamples]) const {
    if (cell && cell->values >= 0) return values_[cell->values].v;
    Sample(i, j, k, room);
    const bool outside = outside_.Has(i, j, k);
    for (double& v : room) v = outside ? std::max(v, field_.nearest) : std::min(v, -field_.nearest);
    return room;
  }

  void PlaceTriangles(int k, TriMeshSTL& mesh) {
    VecInt3D* triangle = mesh.Triangles().data() + layers_[At(k)].triangleBegin;
    VecInt3D made[kMostTriangles];  // MakeTriangles writes beyond what it makes
    ForCells(k, [&](const TileCell& cell, int, TileCell* const(&cells)[8]) {
      if (cell.vertices == 0) return;
      std::uint64_t cut[8];
      std::int32_t first[8];
      for (int n = 0; n < 8; ++n) {
        cut[n] = cells[n] ? cells[n]->cut : 0;
        first[n] = cells[n] ? static_cast<std::int32_t>(layers_[At(k + (n >> 2))].pointBegin + cells[n]->points) : 0;
      }
      triangle = std::copy(made, MakeTriangles(tile_, cell.vertices, cut, first, made), triangle);
    });
  }

  const SurfaceField& field_;
  Interpolation sampling_;
  WorkerPool& pool_;
  const AcuteTile& tile_;
  BitRows outside_, mixed_;
  std::vector<TileLayer> layers_;
  // The kept cells row by row: where each row's begin.
  std::vector<std::uint32_t> rowBegin_;
  TileCell* cells_ = nullptr;
  TileValues* values_ = nullptr;
};

}  // namespace

bool ExtractTiles(const SurfaceField& field, Interpolation sampling, const Vec3D& origin, double spacing,
                  WorkerPool& pool, TriMeshSTL& mesh, bool& allUsed) {
  return TileExtraction(field, sampling, pool).Run(origin, spacing, mesh, allUsed);
}

}  // namespace orlix
