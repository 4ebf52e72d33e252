#include "fluids/level_sets/VolumeVoxeliser.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "fluids/level_sets/VoxeliserBand.h"
#include "fluids/level_sets/VoxeliserGuess.h"
#include "fluids/level_sets/VoxeliserHistory.h"
#include "fluids/level_sets/VoxeliserSweeps.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

constexpr int kPieces = 64;  // of the mesh's triangles, gathered by one worker each

// Calls f with the corners of each triangle of a piece that are all finite.
template <class F>
void ForTriangles(const iTriMesh& mesh, int piece, F&& f) {
  const std::vector<Vec3D>& points = mesh.Points();
  const std::int64_t count = mesh.TriangleCount();
  for (std::int64_t t = count * piece / kPieces; t < count * (piece + 1) / kPieces; ++t) {
    const VecInt3D& corners = mesh.Triangles()[static_cast<std::size_t>(t)];
    const Vec3D& a = points[static_cast<std::size_t>(corners.x)];
    const Vec3D& b = points[static_cast<std::size_t>(corners.y)];
    const Vec3D& c = points[static_cast<std::size_t>(corners.z)];
    if (IsFinite(a) && IsFinite(b) && IsFinite(c)) f(a, b, c);
  }
}

using PieceStarts = std::array<std::int32_t, kPieces + 1>;

PieceStarts CountTriangles(const iTriMesh& mesh, WorkerPool& pool) {
  PieceStarts starts{};
  ParallelRange(pool, 0, kPieces, [&](int from, int to, int) {
    for (int p = from; p < to; ++p) {
      std::int32_t finite = 0;
      ForTriangles(mesh, p, [&](const Vec3D&, const Vec3D&, const Vec3D&) { ++finite; });
      starts[p + 1] = finite;
    }
  });
  for (int p = 0; p < kPieces; ++p) starts[p + 1] += starts[p];
  return starts;
}

void GatherTriangles(const iTriMesh& mesh, const PieceStarts& starts, TriangleList& triangles, WorkerPool& pool) {
  ParallelRange(pool, 0, kPieces, [&](int from, int to, int) {
    for (int p = from; p < to; ++p) {
      std::int32_t next = starts[p];
      ForTriangles(mesh, p, [&](const Vec3D& a, const Vec3D& b, const Vec3D& c) {
        triangles[next++] = MakeTriangleTerms(a, b, c);
      });
    }
  });
}

// Distances get their sign. Gives the largest of an inside node, below 0 when there is none.
double SignLayers(GridView<double> values, GridView<const std::uint8_t> crossings, bool flip, int kFirst, int kEnd) {
  double deepest = -1;
  for (std::int64_t row = std::int64_t(kFirst) * values.dims.y; row < std::int64_t(kEnd) * values.dims.y; ++row) {
    double* value = values.data + row * values.dims.x;
    const std::uint8_t* crossing = crossings.data + row * values.dims.x;
    unsigned total = 0;
    for (int i = 0; i < values.dims.x; ++i) {
      total += crossing[i];
      const bool inside = (total & 1) != 0;
      if (inside && value[i] > deepest) deepest = value[i];
      if (inside != flip) value[i] = -value[i];
    }
  }
  return deepest;
}

// Leaves a wall of depth x shell: what lies deeper becomes outside, and the distances fold at the wall's middle.
void HollowLayers(GridView<double> values, double depth, double shell, int kFirst, int kEnd) {
  const double wall = depth * shell, deep = -wall, middle = -(shell * 0.5 * depth);
  for (std::int64_t i = values.Index(0, 0, kFirst); i < values.Index(0, 0, kEnd); ++i) {
    if (values[i] <= deep) {
      values[i] = -(values[i] + wall);
    } else if (values[i] <= middle) {
      values[i] = 2 * middle - values[i];
    }
  }
}

}  // namespace

bool VolumeVoxeliser::Run(const iTriMesh& mesh, ScalarGrid& levelSet, WorkerPool& pool, const BaseThread* hostThread) {
  maximumDepth_.reset();
  if (mesh.PointCount() == 0 || levelSet.count == 0 || mesh.TriangleCount() > kMaxTriangles) return false;
  const NodeLattice lattice(levelSet.dims, levelSet.space);
  const PieceStarts starts = CountTriangles(mesh, pool);
  VoxeliserScratch scratch(levelSet.dims, starts.back());
  GatherTriangles(mesh, starts, scratch.triangles, pool);
  if (!settings.keep) {
    history_.reset();
  } else if (!history_) {
    history_ = std::make_shared<VoxeliserHistory>();
  }
  VoxeliserHistory* history =
      history_ && history_->Begin(mesh, levelSet, settings.exactBand) ? history_.get() : nullptr;
  if (!Measure(levelSet, lattice, scratch, pool, hostThread, history)) {
    history_.reset();
    return false;
  }
  keptShare_ = history ? history->KeptShare() : 0;
  if (history) history->End(mesh, scratch);
  Sign(levelSet, scratch, pool);
  return true;
}

void VolumeVoxeliser::Reset() {
  maximumDepth_.reset();
  history_.reset();
}

bool VolumeVoxeliser::Measure(GridView<double> values, const NodeLattice& lattice, VoxeliserScratch& scratch,
                              WorkerPool& pool, const BaseThread* hostThread, VoxeliserHistory* history) const {
  const int band = settings.exactBand, workers = settings.workers;
  FillExactBand(lattice, band, scratch, values, pool, workers, history);
  MakeSweepBounds(lattice, scratch, pool);
  if (!GuessClosestTriangles(lattice, band, scratch, values, pool, workers, hostThread)) return false;
  if (history) history->TakeGuess(scratch, values, pool);
  return SweepClosestTriangles(lattice, 1, band, scratch, values, scratch.closest.data, pool, workers, hostThread,
                               history);
}

void VolumeVoxeliser::Sign(GridView<double> values, const VoxeliserScratch& scratch, WorkerPool& pool) {
  std::array<double, WorkerPool::kMaxWorkers> deepest;
  deepest.fill(-1);
  ParallelRange(pool, 0, values.dims.z, [&](int from, int to, int worker) {
    deepest[static_cast<std::size_t>(worker)] = SignLayers(values, scratch.crossings, settings.flip, from, to);
  });
  const double depth = *std::max_element(deepest.begin(), deepest.end());
  if (depth < 0) return;  // nothing is inside
  maximumDepth_ = depth;
  if (settings.shell >= 1.0) return;
  ParallelRange(pool, 0, values.dims.z,
                [&](int from, int to, int) { HollowLayers(values, depth, settings.shell, from, to); });
}

}  // namespace orlix
