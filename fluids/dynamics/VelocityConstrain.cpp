#include "fluids/dynamics/VelocityConstrain.h"

#include <algorithm>
#include <cmath>

#include "fluids/boundary/FaceVelocity.h"
#include "fluids/dynamics/FluidSolver.h"
#include "fluids/grids/ScratchPool.h"
#include "fluids/volumes/VolumeBase.h"

namespace orlix {

namespace {

// Calls f(i, j, k, index) for the closed faces of a component, without the border and the faces of a wall of the
// container, which let nothing through whatever stands beside them.
template <class F>
void ForEachClosedFace(const CellMask& closed, int axis, bool lowWall, WorkerPool& pool, F&& f) {
  VecInt3D begin(1, 1, 1);
  if (lowWall) ++begin[axis];
  VecInt3D end = closed.dims() - VecInt3D(1, 1, 1);
  --end[axis];
  if (closed.IsEmpty()) return;
  const VecInt3D dims = closed.dims();
  ParallelRange(pool, begin.z, end.z, [&](int k0, int k1, int) {
    for (int k = k0; k < k1; ++k) {
      for (int j = begin.y; j < end.y; ++j) {
        const std::int64_t row = (std::int64_t(k) * dims.y + j) * dims.x;
        CellMask::ForEachSet(closed.Row(j, k), begin.x, end.x, [&](int i) { f(i, j, k, row + i); });
      }
    }
  });
}

// The moving obstacles by bricks of cells that their boxes meet: of hundreds, a face asks those beside it.
class MovingObstacles {
 public:
  MovingObstacles(const std::vector<VolumeBase*>& obstacles, const GridSpace& space) : space_(space) {
    for (int axis = 0; axis < 3; ++axis) bricks_[axis] = space.dims[axis] / kBrick + 1;
    for (const VolumeBase* obstacle : obstacles) {
      if (obstacle->IsStaticBody() || !obstacle->IsEnabled() || !obstacle->HasLevelSet()) continue;
      const GridSpace& box = obstacle->LevelSet()->space;
      const VecInt3D low = BrickOf(box.simMin), high = BrickOf(box.simMax);
      if (lists_.empty()) lists_.resize(static_cast<std::size_t>(CellCount(bricks_)));
      for (int k = low.z; k <= high.z; ++k) {
        for (int j = low.y; j <= high.y; ++j) {
          for (int i = low.x; i <= high.x; ++i) lists_[At({i, j, k})].push_back(obstacle);
        }
      }
    }
  }
  // Of the first one that is less than a cell away.
  Vec3D VelocityAt(const Vec3D& p, double cellSize) const {
    if (lists_.empty()) return {};
    for (const VolumeBase* obstacle : lists_[At(BrickOf(p))]) {
      if (obstacle->SampleWorld(p) < cellSize) return obstacle->VelocityAt(p);
    }
    return {};
  }

 private:
  static constexpr int kBrick = 8;  // cells

  VecInt3D BrickOf(const Vec3D& p) const {
    const Vec3D voxel = space_.VoxelOfSim(p) / kBrick;
    VecInt3D brick;
    for (int a = 0; a < 3; ++a) brick[a] = static_cast<int>(std::clamp(std::floor(voxel[a]), 0.0, bricks_[a] - 1.0));
    return brick;
  }
  std::size_t At(const VecInt3D& b) const {
    return static_cast<std::size_t>((std::int64_t(b.z) * bricks_.y + b.y) * bricks_.x + b.x);
  }

  const GridSpace& space_;
  VecInt3D bricks_;
  std::vector<std::vector<const VolumeBase*>> lists_;
};

// What a blocked face's velocity is made of.
struct SolidFaces {
  const VelocityConstrain& node;
  const MovingObstacles& moving;
  const GridBoundary& boundary;
  SolidView solid;
  MacView velocity;
  Vec3D origin;
  double cellSize;

  double NewValue(int axis, int i, int j, int k) const {
    const Vec3D index = Vec3D(i, j, k) + CellSampleOffset(static_cast<std::uint32_t>(axis));
    const Vec3D position = index * cellSize + origin;
    const Vec3D solidVelocity = node.moveWithObstacles ? moving.VelocityAt(position, cellSize) : Vec3D();
    if (!(node.slip > 0)) return solidVelocity[axis];
    const Vec3D v = InterpolateVelocityAtFace(velocity, i, j, k, axis);
    Vec3D n;
    if (!node.useObstacleNormals || !boundary.ObstacleNormal(n, position)) n = Normalized(solid.GradientIndex(index));
    const double tangential = v[axis] - n[axis] * Dot(v, n);
    return node.slip == 1.0 ? tangential : (tangential - solidVelocity[axis]) * node.slip + solidVelocity[axis];
  }
};

}  // namespace

bool VelocityConstrain::ReadParameters() {
  slip = handler.GetDouble(kSlipId);
  useObstacleNormals = handler.GetBool(kObstacleNormalsId);
  moveWithObstacles = handler.GetBool(kMoveWithObstaclesId);
  return handler.HasObject();
}

bool VelocityConstrain::ResolveLinks() {
  obstacles = CollectObstacles(*scene);
  return solver != nullptr;
}

void VelocityConstrain::ReleaseLinks() {
  iObject::ReleaseLinks();
  obstacles.clear();
}

bool VelocityConstrain::HasInput() const {
  if (!solver) return false;
  for (int c = 0; c < 3; ++c) {
    if (!solver->velocity.grids[c] || !solver->fractions.GetFloatGrid(c, 1)) return false;
  }
  return true;
}

void VelocityConstrain::Apply() {
  SetFlag(NodeActive, HasInput());
  if (!IsActive()) return;
  const auto& grids = solver->velocity.grids;
  const ScalarGrid& first = *grids[0];
  const MovingObstacles moving(moveWithObstacles ? obstacles : std::vector<VolumeBase*>(), first.space);
  const SolidFaces faces{*this,
                         moving,
                         solver->boundary,
                         solver->boundary.View(),
                         {*grids[0], *grids[1], *grids[2]},
                         first.space.simMin,
                         static_cast<double>(first.space.cellSize)};
  const auto forEachFace = [&](int axis, auto&& f) {
    const bool lowWall = (solver->closedFaces & ClosedLow(axis)) != 0;
    ForEachClosedFace(solver->fractions.ClosedFaces(axis), axis, lowWall, scene->pool(), f);
  };
  ScratchPool::Lease<double> values[3];  // only those of blocked faces are filled
  for (int axis = 0; axis < 3; ++axis) {
    values[axis] = scene->scratch().Take<double>(grids[axis]->dims);
    double* out = values[axis]->data;
    forEachFace(axis, [&](int i, int j, int k, std::int64_t index) { out[index] = faces.NewValue(axis, i, j, k); });
  }
  for (int axis = 0; axis < 3; ++axis) {
    const double* from = values[axis]->data;
    double* velocity = grids[axis]->data;
    forEachFace(axis, [&](int, int, int, std::int64_t index) { velocity[index] = from[index]; });
  }
}

}  // namespace orlix
