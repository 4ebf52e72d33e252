#include "fluids/boundary/GridBoundary.h"

#include <algorithm>
#include <limits>

#include "fluids/boundary/InsideKernel.h"
#include "fluids/boundary/SolidDistance.h"
#include "fluids/volumes/VolumeBase.h"

namespace orlix {

namespace {

struct FaceParameter {
  std::int32_t id;
  ClosedFace bit;
};
constexpr FaceParameter kFaces[] = {{GridBoundary::kFaceXMinId, kClosedXMin}, {GridBoundary::kFaceXMaxId, kClosedXMax},
                                    {GridBoundary::kFaceYMaxId, kClosedYMax}, {GridBoundary::kFaceYMinId, kClosedYMin},
                                    {GridBoundary::kFaceZMinId, kClosedZMin}, {GridBoundary::kFaceZMaxId, kClosedZMax}};
constexpr double kLargest = std::numeric_limits<double>::max();

}  // namespace

GridBoundary::GridBoundary(BaseList2D* solverObject, OrlixScene& ownerScene)
    : iObject(solverObject, ownerScene), solidDistance(solverObject, ownerScene) {
  solidDistance.channelType = {kGridNodalLevelset};
  solidDistance.valueMin = -kLargest;
  solidDistance.valueMax = kLargest;
  solidDistance.backgroundValue = kLargest;
}

void GridBoundary::ResetSimulation() {
  solidDistance.ResetSimulation();
  MarkStale();
}

void GridBoundary::ClearState(bool deactivate) {
  iObject::ClearState(deactivate);
  solidDistance.ClearState(deactivate);
  MarkStale();
}

void GridBoundary::MarkStale() {
  builtFrom_ = {};
  for (CellMask& mask : inside_) mask.Clear();
}

bool GridBoundary::ApplyBounds(const Vec3D& min, const Vec3D& max) {
  // Everything is computed anew on another lattice: no reason to carry it over.
  ContainerLattice lattice;
  const bool fits = solidDistance.grid && ContainerLattice::Of(GetSimulationSpace(), min, max, lattice) &&
                    lattice.SameAs(*solidDistance.grid);
  if (!fits) solidDistance.ClearState(true);
  MarkStale();
  bool applied = true;
  if (!HasFlag(NodeFromCache)) applied = solidDistance.ApplyBounds(min, max);
  SetFlag(NodeActive, applied && HasSolidGrid());
  MarkDirty(false);
  return applied;
}

bool GridBoundary::ReadParameters() {
  std::uint8_t closed = 0;
  for (const FaceParameter& face : kFaces) {
    if (handler.GetChoice<Face>(face.id) != Face::Open) closed = static_cast<std::uint8_t>(closed | face.bit);
  }
  if (closed != closedFaces) MarkDirty(false);
  closedFaces = closed;
  return handler.HasObject();
}

bool GridBoundary::ResolveLinks() {
  obstacles = CollectObstacles(*scene);
  return handler.HasObject();
}

void GridBoundary::ReleaseLinks() {
  iObject::ReleaseLinks();
  obstacles.clear();
}

GridBoundary::Sources GridBoundary::PresentSources() const {
  Sources sources;
  if (!HasSolidGrid()) return sources;
  sources.valid = true;
  sources.origin = solidDistance.grid->space.hostMin;
  sources.cells = solidDistance.grid->space.dims;
  sources.closedFaces = closedFaces;
  for (const VolumeBase* volume : obstacles) {
    if (!volume->IsEnabled() || !volume->HasLevelSet()) continue;
    sources.levelSets.emplace_back(volume->handler.hostObject()->creationNumber(), volume->LevelSetVersion());
  }
  return sources;
}

void GridBoundary::Build() {
  if (IsCurrent() || !HasSolidGrid()) return;
  ScalarGrid& nodes = *solidDistance.grid;
  WorkerPool& pool = scene->pool();
  FillWallDistance(nodes, nodes.space.cellSize, closedFaces, pool);
  for (const VolumeBase* volume : obstacles) {
    if (volume->IsEnabled() && volume->HasLevelSet()) LowerByLevelSet(nodes, *volume->LevelSet(), pool);
  }
  FindSolidBox(nodes, pool);
  MarkStale();
  builtFrom_ = PresentSources();
  ++revision_;
}

const CellMask& GridBoundary::InsideSolid(std::uint32_t gridType) {
  const std::uint32_t type = gridType <= kGridVelocityW ? gridType : kGridCustom;
  CellMask& mask = inside_[std::min(type, 3u)];
  if (mask.IsEmpty() && HasSolidGrid()) {
    const VecInt3D dims = solidDistance.grid->space.dims + ExtraCells(type);
    FindInside(*solidDistance.grid, CellSampleOffset(type), dims, mask, scene->pool());
  }
  return mask;
}

const SolidBricks& GridBoundary::ObstacleBricks() {
  if (bricksRevision_ != revision_) {
    bricks_.Build(HasSolidGrid() ? GridView<const double>(*solidDistance.grid) : GridView<const double>());
    bricksRevision_ = revision_;
  }
  return bricks_;
}

std::int64_t GridBoundary::DerivedBytes() const {
  std::int64_t bytes = HasSolidGrid() ? solidDistance.grid->MemorySize() : 0;
  for (const CellMask& mask : inside_) bytes += mask.Bytes();
  return bytes;
}

bool GridBoundary::IsInsideSolid(const Vec3D& p, const ScalarGrid* grid, bool remap) const {
  if (!HasSolidGrid()) return false;
  const GridSpace& own = solidDistance.grid->space;
  return View().IsInsideSolid(remap && grid ? own.VoxelOfHost(grid->space.HostOfVoxel(p)) : p);
}

bool GridBoundary::ResolveCollision(Vec3D& p, bool isLocal, double margin) const {
  const Vec3D origin = isLocal ? Vec3D() : View().origin();
  p -= origin;
  const bool moved = View().ResolveCollision(p, margin);
  p += origin;
  return moved;
}

void GridBoundary::WallContact(const Vec3D& p, SolidContact& contact, double margin) const {
  if (HasSolidGrid()) View().WallContact(p, contact, static_cast<float>(margin));
}

bool GridBoundary::ResolveContact(const Vec3D& p, bool isWorld, SolidContact& contact, double margin) const {
  const bool hit = View().ResolveContact(isWorld ? Local(p) : p, contact, margin);
  if (isWorld && HasSolidGrid()) contact.position += View().origin();
  return hit;
}

bool GridBoundary::PushOutVector(const Vec3D& p, bool isLocal, Vec3D& correction) const {
  return View().PushOutVector(isLocal ? p : Local(p), correction);
}

bool GridBoundary::ObstacleNormal(Vec3D& out, const Vec3D& p) const {
  for (const VolumeBase* volume : obstacles) {
    if (!volume->IsEnabled() || !volume->InBox(p)) continue;
    const VecInt3D cell = SnappedCell(volume->View().IndexOfWorld(p));
    out = volume->NormalGrid(Vec3D(cell) + Vec3D(0.5));
    if (out != Vec3D()) return true;
  }
  out = Vec3D();
  return false;
}

}  // namespace orlix
