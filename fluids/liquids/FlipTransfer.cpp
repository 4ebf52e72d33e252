#include "fluids/liquids/FlipTransfer.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "globals/Multiversion.h"

namespace orlix {

namespace {

// A slab of cell layers splats into the face layers from one below it to one above it. Slabs of one colour touch
// different layers and run side by side.
constexpr int kSlabLayers = 4;

typedef double Four __attribute__((vector_size(32)));

// Sums of weight x velocity and of weights, side by side: [2 index] and [2 index + 1].
struct Sums {
  double* data;
  VecInt3D dims;
  std::int64_t row, slab;  // in faces
};

struct Place {
  Vec3D origin;
  double inverseCell;
  Vec3D operator()(const Vec3D& position) const { return (position - origin) * inverseCell; }
};

// A sorted particle's row, found anew only where an entry is of another group than the one before.
class Rows {
 public:
  explicit Rows(const ParticleSort& sort) : sort_(sort) {}
  ParticleChunk& ChunkOf(std::int32_t flatIndex, std::int32_t& row) {
    if (flatIndex < begin_ || flatIndex >= end_) Find(flatIndex);
    const std::int32_t index = flatIndex + shift_;
    row = index & (kChunkRows - 1);
    return list_->ChunkOf(index);
  }
  // A cache gives the last one's group its velocities.
  bool IsPlayed() const { return played_; }

 private:
  void Find(std::int32_t flatIndex) {
    begin_ = end_ = 0;
    std::size_t group = 0;
    for (; group < sort_.ranges().size(); ++group) {
      begin_ = end_;
      end_ = begin_ + sort_.ranges()[group].count;
      if (flatIndex < end_) break;
    }
    list_ = sort_.groups()[group]->list(sort_.kind());
    played_ = sort_.groups()[group]->KindIsKept(sort_.kind());
    shift_ = sort_.ranges()[group].first - begin_;
  }

  const ParticleSort& sort_;
  const ParticleList* list_ = nullptr;
  std::int32_t begin_ = 0, end_ = 0, shift_ = 0;
  bool played_ = false;
};

using Entries = std::span<const std::int32_t>;

// Two faces that are neighbours along x stand in one vector.
ORLIX_MULTIVERSION void SplatEntries(Entries entries, const ParticleSort& sort, const Place& place,
                                     const Sums (&sums)[3]) {
  Rows rows(sort);
  for (const std::int32_t entry : entries) {
    std::int32_t row;
    const ParticleChunk& chunk = rows.ChunkOf(entry, row);
    const Vec3D p = place(chunk.positions[row]);
    const Vec3D velocity = chunk.velocities[row];
    for (int axis = 0; axis < 3; ++axis) {
      const Sums& s = sums[axis];
      const FaceStencil at = FaceStencil::At(p, axis, s.dims, s.slab);
      const double v = velocity[axis], low = 1 - at.fx;
      const Four pair = {low * v, low, at.fx * v, at.fx};
      const double weights[4] = {(1 - at.fy) * (1 - at.fz), at.fy * (1 - at.fz), (1 - at.fy) * at.fz, at.fy * at.fz};
      const std::int64_t steps[4] = {0, s.row, s.slab, s.slab + s.row};
      for (int corner = 0; corner < 4; ++corner) {
        double* target = s.data + 2 * (at.index + steps[corner]);
        Four sum;
        std::memcpy(&sum, target, sizeof sum);
        sum += pair * weights[corner];
        std::memcpy(target, &sum, sizeof sum);
      }
    }
  }
}

ORLIX_MULTIVERSION void DivideSums(const double* __restrict sums, std::int64_t n, double* __restrict faces) {
  for (std::int64_t i = 0; i < n; ++i) faces[i] = sums[2 * i + 1] != 0 ? sums[2 * i] / sums[2 * i + 1] : -0.0;
}

// old = current - ratio old.
ORLIX_MULTIVERSION void BlendRow(const double* __restrict current, double ratio, std::int64_t n,
                                 double* __restrict old) {
  for (std::int64_t i = 0; i < n; ++i) old[i] = current[i] - ratio * old[i];
}

inline double Sample(const double* faces, const FaceStencil& at, std::int64_t row, std::int64_t slab) {
  const double* f = faces + at.index;
  const auto along = [&](std::int64_t i) { return f[i] + at.fx * (f[i + 1] - f[i]); };
  const double near = along(0) + at.fy * (along(row) - along(0));
  const double far = along(slab) + at.fy * (along(slab + row) - along(slab));
  return near + at.fz * (far - near);
}

ORLIX_MULTIVERSION void UpdateEntries(Entries entries, const ParticleSort& sort, const Place& place,
                                      const GridView<const double> (&grids)[3], double ratio) {
  Rows rows(sort);
  for (const std::int32_t entry : entries) {
    std::int32_t row;
    ParticleChunk& chunk = rows.ChunkOf(entry, row);
    if (rows.IsPlayed()) continue;
    const Vec3D p = place(chunk.positions[row]);
    Vec3D& velocity = chunk.velocities[row];
    for (int axis = 0; axis < 3; ++axis) {
      const GridView<const double>& grid = grids[axis];
      const double value = Sample(grid.data, FaceStencil::At(p, axis, grid.dims, grid.slab), grid.dims.x, grid.slab);
      velocity[axis] = ratio * velocity[axis] + value;
    }
  }
}

// work(slab) for the slabs of each colour, dealt out in turn: liquid at one end of the container keeps all busy.
template <class F>
void ForSlabs(int layers, int colours, WorkerPool& pool, F&& work) {
  const int slabs = (layers + kSlabLayers - 1) / kSlabLayers;
  for (int colour = 0; colour < colours; ++colour) {
    const int count = (slabs - colour + colours - 1) / colours;
    pool.Run(std::min(count, pool.count()), [&](int worker) {
      for (int s = worker; s < count; s += std::min(count, pool.count())) work(s * colours + colour);
    });
  }
}

Entries SlabEntries(const ParticleSort& sort, int slab) {
  const VecInt3D& dims = sort.space().dims;
  const std::int32_t layer = dims.x * dims.y * kSlabLayers;
  const Entries cells = sort.Cells();
  const auto begin = std::lower_bound(cells.begin(), cells.end(), slab * layer);
  const auto end = std::lower_bound(begin, cells.end(), (slab + 1) * layer);
  const std::int32_t from = sort.CellBegins()[std::size_t(begin - cells.begin())];
  const std::int32_t to = sort.CellBegins()[std::size_t(end - cells.begin())];
  return sort.AllEntries().subspan(std::size_t(from), std::size_t(to - from));
}

}  // namespace

void SplatVelocities(const ParticleSort& sort, const FlipLattice& lattice, ScratchPool& scratch, WorkerPool& pool) {
  if (sort.AllEntries().empty()) return;
  ScratchPool::Lease<double> leases[3];
  Sums sums[3];
  for (int axis = 0; axis < 3; ++axis) {
    const VecInt3D& dims = lattice.faces[axis].dims;
    leases[axis] = scratch.Take<double>({2 * dims.x, dims.y, dims.z});
    leases[axis]->Fill(0, &pool);
    sums[axis] = {leases[axis]->data, dims, dims.x, lattice.faces[axis].slab};
  }
  const Place place{lattice.origin, lattice.inverseCell};
  ForSlabs(sort.space().dims.z, 2, pool, [&](int slab) { SplatEntries(SlabEntries(sort, slab), sort, place, sums); });
  for (int axis = 0; axis < 3; ++axis) {
    const GridView<double>& faces = lattice.faces[axis];
    ParallelRange(pool, 0, faces.dims.z, [&](int k0, int k1, int) {
      DivideSums(sums[axis].data + 2 * faces.slab * k0, faces.slab * (k1 - k0), faces.data + faces.slab * k0);
    });
  }
}

namespace {

// The weighted mean of a component over the particles around a face.
double GatherFace(const ParticleSort& sort, const FlipLattice& lattice, const Gathering& how, Rows& rows, int axis,
                  const VecInt3D& face) {
  Vec3D q = Vec3D(face.x, face.y, face.z) + Vec3D(0.5);
  q[axis] -= 0.5;
  const Place place{lattice.origin, lattice.inverseCell};
  const double squaredRadius = how.radius * how.radius;
  double sum = 0, total = 0;
  sort.ForEachRow(face, static_cast<std::int32_t>(how.radius), false, [&](Entries entries) {
    for (const std::int32_t entry : entries) {
      std::int32_t row;
      const ParticleChunk& chunk = rows.ChunkOf(entry, row);
      const Vec3D p = place(chunk.positions[row]);
      double w = 0;
      if (how.kernel) {
        w = how.kernel->Evaluate(q, p, how.radius);
      } else if (const double d2 = LengthSquared(q - p); d2 < squaredRadius) {
        w = std::fmax(squaredRadius / std::fmax(d2, 1e-5) - 1, 0.0);
      }
      const PropertyColumn* mass = chunk.column(PP::Mass);
      if (mass && mass->Has(row)) w *= mass->values<double>()[row];
      if (!(w > 0)) continue;
      sum += w * chunk.velocities[row][axis];
      total += w;
    }
  });
  return total == 0 ? -0.0 : sum / total;
}

}  // namespace

void GatherVelocities(const ParticleSort& sort, const FlipLattice& lattice, const Gathering& how, WorkerPool& pool) {
  for (int axis = 0; axis < 3; ++axis) {
    const GridView<double>& faces = lattice.faces[axis];
    ParallelRange(pool, 0, faces.dims.z, [&](int k0, int k1, int) {
      Rows rows(sort);
      for (int k = k0; k < k1; ++k) {
        for (int j = 0; j < faces.dims.y; ++j) {
          for (int i = 0; i < faces.dims.x; ++i) faces(i, j, k) = GatherFace(sort, lattice, how, rows, axis, {i, j, k});
        }
      }
    });
  }
}

void BlendVelocities(const ParticleSort& sort, const FlipLattice& lattice, const GridView<double> (&change)[3],
                     double ratio, WorkerPool& pool) {
  const double share = std::clamp(ratio, 0.0, 1.0);
  GridView<const double> grids[3];
  for (int axis = 0; axis < 3; ++axis) {
    const GridView<double>& faces = lattice.faces[axis];
    grids[axis] = faces;
    if (share == 0) continue;
    grids[axis] = change[axis];
    ParallelRange(pool, 0, faces.dims.z, [&](int k0, int k1, int) {
      BlendRow(faces.data + faces.slab * k0, share, faces.slab * (k1 - k0), change[axis].data + faces.slab * k0);
    });
  }
  if (sort.AllEntries().empty()) return;
  const Place place{lattice.origin, lattice.inverseCell};
  ForSlabs(sort.space().dims.z, 1, pool,
           [&](int slab) { UpdateEntries(SlabEntries(sort, slab), sort, place, grids, share); });
}

}  // namespace orlix
