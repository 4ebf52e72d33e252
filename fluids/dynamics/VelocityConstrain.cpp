#include "fluids/dynamics/VelocityConstrain.h"

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

// What a blocked face's velocity is made of.
struct SolidFaces {
  const VelocityConstrain& node;
  const GridBoundary& boundary;
  SolidView solid;
  MacView velocity;
  Vec3D origin;
  double cellSize;

  Vec3D SolidVelocity(const Vec3D& p) const {
    for (const VolumeBase* obstacle : node.obstacles) {
      if (obstacle->IsStaticBody() || !obstacle->IsEnabled() || !(obstacle->SampleWorld(p) < cellSize)) continue;
      return obstacle->VelocityAt(p);
    }
    return {};
  }

  double NewValue(int axis, int i, int j, int k) const {
    const Vec3D index = Vec3D(i, j, k) + CellSampleOffset(static_cast<std::uint32_t>(axis));
    const Vec3D position = index * cellSize + origin;
    const Vec3D moving = node.moveWithObstacles ? SolidVelocity(position) : Vec3D();
    if (!(node.slip > 0)) return moving[axis];
    const Vec3D v = InterpolateVelocityAtFace(velocity, i, j, k, axis);
    Vec3D n;
    if (!node.useObstacleNormals || !boundary.ObstacleNormal(n, position)) n = Normalized(solid.GradientIndex(index));
    const double tangential = v[axis] - n[axis] * Dot(v, n);
    return node.slip == 1.0 ? tangential : (tangential - moving[axis]) * node.slip + moving[axis];
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
  const SolidFaces faces{*this,
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
