#include "fluids/volumes/VolumeBase.h"

#include <fmt/format.h>

#include <new>

#include "fluids/bodies/ObstacleTag.h"
#include "fluids/scene/OrlixScene.h"

namespace orlix {

VolumeBase::VolumeBase(BaseList2D* hostObject, OrlixScene& owner)
    : iVolume(hostObject, owner), rigidBody_(std::make_unique<RigidBody_Variational>()) {}

void VolumeBase::ResetSimulation() {
  FreeLevelSet();
  objectMotion_ = {};
  rigidBody_->Free();
  voxeliser_.Reset();
  SetFlag(NodeActive, false);
}

void VolumeBase::FreeLevelSet() {
  if (levelSet_) LevelSetChanged();
  levelSet_.reset();
  view_ = {};
}

void VolumeBase::GetRetrieveTypes(std::uint32_t& mask) const {
  iVolume::GetRetrieveTypes(mask);
  if (hasRigidBody_ && !hiddenFromLevelSets_) mask |= RetrieveBit(RETRIEVE_LEVELSET);
}

bool VolumeBase::ReadParameters() {
  if (!iVolume::ReadParameters()) return false;
  SetFlag(NodeHasBounds, handler.GetBool(kExtendsContainerId));
  flipSign_ = handler.GetBool(kFlipSignId);
  padding_ = Vec3D(std::max(handler.GetDouble(kPaddingId), 0.0));
  hiddenFromLevelSets_ = handler.GetBool(kHiddenFromLevelSetsId);
  ReadObstacleTag();
  return true;
}

void VolumeBase::ReadObstacleTag() {
  const BaseObject* tag = handler.hostObject()->FindTag(kObstacleTagId);
  hasRigidBody_ = tag != nullptr;
  if (!tag) return;
  rigidBody_->ReadTag(*tag, simulationInfo->time > 0);
}

bool VolumeBase::IsDirty() const {
  return HasFlag(NodeDirty) && (simulationInfo->substep <= 1 || HasFlag(NodeChanged));
}

void VolumeBase::ComputeBounds() {
  const float cell = GetSimulationSpace().cellSize;
  boundsMin -= padding_ * double(cell);
  boundsMax += padding_ * double(cell);
  GridSpace::SnapDown(boundsMin, cell);
  GridSpace::SnapUp(boundsMax, cell);
  TakeBounds();
}

void VolumeBase::TakeBounds() {
  const GridSpace& space = GetSimulationSpace();
  cellSize = space.cellSize;
  cellVector = space.hostPerVoxel;
  resolution = SnappedCell((boundsMax - boundsMin) / cellSize);
  extent = Vec3D(resolution) * cellVector;
  origin = boundsMin * (1.0 / space.cellSize) * cellVector;
  position = boundsMin;
}

bool VolumeBase::PrepareGrid() {
  const double nodes = (resolution.x + 1.0) * (resolution.y + 1.0) * (resolution.z + 1.0);
  if (!IsFinite(boundsMin) || !IsFinite(boundsMax) || std::min({resolution.x, resolution.y, resolution.z}) < 1) {
    Warn("level-set-size", fmt::format("a level set of {} x {} x {} cells can't be made; see where its object is",
                                       resolution.x, resolution.y, resolution.z));
    FreeLevelSet();
    return false;
  }
  if (!(nodes <= double(kMaxGridCells))) {
    FreeLevelSet();
    scene->FailForMemory(*this, resolution);
    return false;
  }
  try {
    SetLattice(resolution, extent, GetSimulationSpace().cellSize, origin);
  } catch (const std::bad_alloc&) {
    scene->FailForMemory(*this, resolution + VecInt3D(1, 1, 1));
    return false;
  }
  levelSet_->activeMin = {};
  levelSet_->activeMax = levelSet_->dims - VecInt3D(1, 1, 1);
  return true;
}

void VolumeBase::SetLattice(const VecInt3D& cells, const Vec3D& hostSize, float cell, const Vec3D& hostOrigin) {
  GridSpace wanted;
  wanted.Build(cells, hostSize, cell, hostOrigin);
  if (levelSet_ && levelSet_->space.Equals(wanted)) return;
  FreeLevelSet();
  levelSet_ = std::make_unique<ScalarGrid>(cells + VecInt3D(1, 1, 1), hostSize, cell, kGridNodalLevelset, hostOrigin);
  view_ = LevelSetView(*levelSet_);
}

void VolumeBase::TakeCacheHeader(const GridCacheHeader& header) {
  if (!header.present) return;
  try {
    SetLattice(header.space.dims, header.space.hostSize, header.space.cellSize, header.space.hostMin);
  } catch (const std::bad_alloc&) {
    FreeLevelSet();
    scene->FailForMemory(*this, header.space.dims + VecInt3D(1, 1, 1));
    return;
  }
  levelSet_->activeMin = {};
  levelSet_->activeMax = levelSet_->dims - VecInt3D(1, 1, 1);
  boundsMin = header.space.simMin, boundsMax = header.space.simMax;
  centre = (boundsMin + boundsMax) * 0.5;
  cellSize = header.space.cellSize;
  voxeliser_.Reset();
  LevelSetChanged();
  SetFlag(NodeActive, true);
}

// A wall folds at its middle; turned round, the inside has the positive distances.
void VolumeBase::CacheLoaded() {
  LevelSetChanged();
  if (!levelSet_) return;
  std::vector<double> deepest(static_cast<std::size_t>(levelSet_->dims.z), 0.0);
  const double sign = flipSign_ ? 1 : -1;
  ParallelRange(scene->pool(), 0, levelSet_->dims.z, [&](int first, int last, int) {
    for (int k = first; k < last; ++k) {
      const double* layer = levelSet_->data + levelSet_->Index(0, 0, k);
      for (std::int64_t i = 0; i < levelSet_->slab; ++i) deepest[k] = std::max(deepest[k], sign * layer[i]);
    }
  });
  const double share = flipSign_ ? 1 : ShellShare();
  const double found = *std::max_element(deepest.begin(), deepest.end());
  deepest_ = share < 1 && share > 0 ? 2 * found / share : found;
}

std::optional<double> VolumeBase::MaximumDepth() const {
  const std::optional<double>& depth = deepest_ ? deepest_ : voxeliser_.maximumDepth();
  return levelSet_ && depth && *depth > 0 ? depth : std::nullopt;
}

// --- queries ---------------------------------------------------------------------------------------------------------

bool VolumeBase::PushOut(Vec3D& p, bool world, double offset) const {
  if (!view_.HasData()) return false;
  const Vec3D index = world ? view_.IndexOfWorld(p) : view_.IndexOfLocal(p);
  const double distance = view_.Sample(index);
  if (!IsNegative(distance, 0)) return false;
  p -= view_.Normal(index) * (cellSize * offset + distance);
  return true;
}

bool VolumeBase::PushOutNormal(const Vec3D& p, Vec3D& place, Vec3D& normal, double offset) const {
  if (!view_.HasData()) return false;
  const Vec3D index = view_.IndexOfLattice(p);
  const double distance = view_.Sample(index);
  if (!IsNegative(distance, 0)) return false;
  normal = view_.Normal(index);
  place = p - normal * (cellSize * offset + distance);
  return true;
}

bool VolumeBase::Collide(const Vec3D& p, VolumeHit& hit, double iso) const {
  const Vec3D index = view_.IndexOfLattice(p);
  hit.distance = view_.HasData() ? view_.Sample(index) - iso : 0;
  hit.inside = view_.HasData() && IsNegative(hit.distance, 0);
  hit.normal = hit.inside ? view_.Normal(index) : Vec3D(0, 1, 0);
  hit.position = hit.inside ? p - hit.normal * hit.distance : p;
  return hit.inside;
}

// --- motion ----------------------------------------------------------------------------------------------------------

// A frame's motion is shared out over its sub-steps, so that it is the same velocity in all of them. A dynamic body has
// a motion of each sub-step.
double VolumeBase::MotionShare() const { return IsDynamicBody() ? 1 : simulationInfo->substepFraction; }

Vec3D VolumeBase::LinearMotion() const {
  const double scale = hasRigidBody_ ? rigidBody_->linearMotionScale : 1;
  return objectMotion_.displacement * (scale * MotionShare());
}

Vec3D VolumeBase::AngularMotion() const {
  const double scale = hasRigidBody_ ? rigidBody_->angularMotionScale : 1;
  return objectMotion_.rotation * (scale * MotionShare());
}

void VolumeBase::TakeImpulse(const Vec3D& impulse, const Vec3D& angularImpulse) {
  if (!IsDynamicBody()) return;
  rigidBody_->AddImpulse(impulse);
  rigidBody_->AddAngularImpulse(angularImpulse);
  const double dt = simulationInfo->substepDuration;
  objectMotion_.displacement = rigidBody_->state.velocity * dt;
  objectMotion_.rotation = rigidBody_->state.spin * dt;
  objectMotion_.angle = Length(objectMotion_.rotation);
}

Vec3D VolumeBase::VelocityAt(const Vec3D& p) const {
  const double dt = simulationInfo->substepDuration;
  return dt > 0 ? MotionAt(p) / dt : Vec3D();
}

std::vector<VolumeBase*> CollectObstacles(const OrlixScene& scene) {
  std::vector<VolumeBase*> obstacles;
  scene.ForEachNode(NODE_VOLUME, NODE_VOLUME, [&](iBase& node) {
    if (!node.IsEnabled() || !node.HasRetrieveType(RETRIEVE_LEVELSET)) return;
    if (auto* volume = dynamic_cast<iVolume*>(&node)) volume->AppendVolumes(obstacles);
  });
  return obstacles;
}

}  // namespace orlix
