#include "fluids/volumes/VolumeMesh.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

#include "fluids/bodies/ObstacleTag.h"
#include "fluids/level_sets/InsideCells.h"
#include "fluids/meshes/MeshHoles.h"
#include "fluids/scene/EarlierNodes.h"

namespace orlix {

namespace {

constexpr int kMostWorkers = 8;  // there are eight sweeps

// Whether keyframes change the object or one above it.
bool IsKeyed(const BaseObject& object) {
  const auto& tracks = object.document().tracks();
  for (const BaseObject* up = &object; up; up = up->parent()) {
    const std::uint64_t number = up->creationNumber();
    if (std::any_of(tracks.begin(), tracks.end(), [=](const KeyTrack& track) { return track.object == number; })) {
      return true;
    }
  }
  return false;
}

std::uint32_t ParentsDirtyCount(const BaseObject& object) {
  std::uint32_t count = 0;
  for (const BaseObject* up = object.parent(); up; up = up->parent()) count += up->dirtyCount();
  return count;
}

// What Obstacle tags say and can't do.
void AdviseTags(const VolumeMesh& volume) {
  const BaseObject& object = *volume.handler.hostObject();
  const BaseObject& tag = *object.FindTag(kObstacleTagId);
  const auto isObstacle = [](const auto& each) { return each->typeId() == kObstacleTagId; };
  if (std::count_if(object.tags().begin(), object.tags().end(), isObstacle) > 1) {
    volume.Warn("two-tags", "it has more than one Obstacle tag, and only the first counts; take the others out");
  }
  const double speed = tag.GetDouble(ObstacleTag::kVelocitySpeedId);
  if (speed != ObstacleTag::kVelocitySpeed && speed != 0 && !tag.GetLink(ObstacleTag::kVelocityFieldId)) {
    volume.Warn("no-direction", "\"velocity_speed\" has no direction, so it starts at rest; link \"velocity_field\"");
  }
  if (tag.GetBool(ObstacleTag::kReplayId) && tag.GetInt(ObstacleTag::kRecordId) == 0) {
    volume.Warn("nothing-recorded", "there is no motion to replay, so it follows its object; set \"record_motion\"");
  }
}

void AdviseHoles(const VolumeMesh& volume) {
  const MeshHoles holes = FindHoles(volume.Mesh());
  const std::string name = "\"" + volume.HostGeometry()->Path() + "\"";
  if (holes.openEdges > 0) {
    volume.Warn("hole",
                fmt::format("{} edges of {} have no face on one of their sides: rows of cells through such a hole "
                            "take what is outside for inside; close it",
                            holes.openEdges, name));
  }
  if (holes.doubled > 0) {
    volume.Warn("doubled-faces",
                fmt::format("{} of {} triangles of {} are there twice, which is as if they weren't there; "
                            "take one of each out",
                            holes.doubled, volume.Mesh().TriangleCount(), name));
  }
}

}  // namespace

const TypeInfo& VolumeMesh::Type() {
  static const TypeInfo kType = {
      .id = 1028106,
      .resource = "zq_volume",
      .className = "C4D_Volume_Object",
      .label = "Volume",
      .text =
          "A signed distance field made from an object's polygons. Emitters fill it, constraints ask how deep a place "
          "lies in it, and with an Obstacle tag fluids flow around it.",
      .kinds = kLinkVolume,
      .parameters = Parameters(),
      .common = PlainNodeParameters(),
  };
  return kType;
}

VolumeMesh::VolumeMesh(BaseList2D* hostObject, OrlixScene& owner) : VolumeBase(hostObject, owner) {
  stageMask = StageBit(kStageVolumes);
}

void VolumeMesh::ResetSimulation() {
  ReturnToStart();
  readVersion_ = 0;
  VolumeBase::ResetSimulation();
  mesh_.Clear();
  mesh_.matrix = {};
  previousMatrix_ = {};
  hasPrevious_ = false;
}

void VolumeMesh::GetRetrieveTypes(std::uint32_t& mask) const {
  VolumeBase::GetRetrieveTypes(mask);
  mask |= RetrieveBit(RETRIEVE_MESH);
}

bool VolumeMesh::ReadParameters() {
  priority = 0;
  if (!VolumeBase::ReadParameters()) return false;
  shell_ = handler.GetDouble(kShellId);
  threadLimit_ = handler.GetInt(kThreadsId);
  return true;
}

bool VolumeMesh::ResolveLinks() {
  hostGeometry_ = isMember_ ? memberGeometry_ : handler.GetObjectLink(kObjectId);
  const std::uint64_t linked = hostGeometry_ ? hostGeometry_->creationNumber() : 0;
  // Another object's motion isn't that from the old one to it.
  if (linked != linkedObject_ && linkedObject_ != 0) {
    hasPrevious_ = hasStart_ = false;
    readVersion_ = 0;
    rigidBody_->Free();
  }
  linkedObject_ = linked;
  return VolumeBase::ResolveLinks();
}

bool VolumeMesh::StillBox(Vec3D& min, Vec3D& max) const {
  return hostGeometry_ && !IsKeyed(*hostGeometry_) &&
         FindBox(*hostGeometry_, GetSimulationSpace().simPerHost, min, max);
}

bool VolumeMesh::ForecastBox(Vec3D& min, Vec3D& max) const {
  const BaseObject* object = LinkedObject();
  if (!object || !FindBox(*object, GetSimulationSpace().simPerHost, min, max)) return false;
  const Vec3D padding = padding_ * double(GetSimulationSpace().cellSize);
  min -= padding, max += padding;
  return true;
}

// The level set about where the object stands now, and what fills it.
MemoryNeed VolumeMesh::MemoryFor(const VecInt3D&) const {
  Vec3D min, max;
  if (scene->IsPlayed(*this) || !ForecastBox(min, max)) return {};
  const double bytes = LevelSetBytes(min, max, GetSimulationSpace().cellSize);
  constexpr double kNearest = 0.8;  // of a voxeliser's triangles by node; measured
  return {.kept = IsDynamicBody() ? 2 * bytes : bytes, .scratch = kNearest * bytes};
}

void VolumeMesh::Advise() {
  if (scene->IsPlayed(*this)) return;
  if (IsObstacle()) AdviseTags(*this);
  ForEachEarlier(*this, [&](const VolumeMesh& other) {
    if (!hostGeometry_ || other.HostGeometry() != hostGeometry_ || !(IsDynamicBody() || other.IsDynamicBody())) return;
    if (!Body() || !other.Body()) return;
    Warn("two-bodies", "\"" + other.DisplayName() +
                           "\" makes a body of the same object, which goes where the last of them "
                           "is; give each an object of its own, or take one's Obstacle tag out");
  });
  if (!hostGeometry_) return Warn("no-geometry", "no object is linked, so it has no inside; link one with polygons");
  if (ShowsFrameBefore()) {
    Warn("late", "\"" + hostGeometry_->Path() + "\" is made later in a frame: this volume is that of the frame before");
  }
  Vec3D min, max;
  if (!IsObstacle() || simulationInfo->time != 0 || !StillBox(min, max)) return;
  // What is thin in one axis closes faces where nodes lie in it: that shows when it runs.
  const Vec3D cells = (max - min) / GetSimulationSpace().cellSize;
  constexpr double kFlat = 1e-3;
  if (std::max({cells.x, cells.y, cells.z}) >= 1 && std::min({cells.x, cells.y, cells.z}) >= kFlat) return;
  Warn("no-cell", "nothing flows around it: " + TooThinText(max - min, GetSimulationSpace().cellSize));
}

bool VolumeMesh::ShowsFrameBefore() const {
  const iBase* maker = scene->Retrieve(hostGeometry_, NODE_VOLUME, RETRIEVE_ANY, RETRIEVE_ANY);
  return maker && maker->stageMask > StageBit(kStageVolumes);
}

void VolumeMesh::WarnOfEmpty() {
  if (hadInside_ || !IsObstacle()) return;
  hadInside_ = HasInsideNode(*LevelSet(), scene->pool());
  if (hadInside_) return AdviseHoles(*this);
  Warn("no-cell",
       "no point of the grid lies in it, so nothing flows around it; it may be thinner than a cell, without area, or "
       "open: make it larger, or voxel_size smaller");
}

void VolumeMesh::ReleaseLinks() {
  VolumeBase::ReleaseLinks();
  hostGeometry_ = memberGeometry_ = nullptr;
}

void VolumeMesh::CheckDirty() {
  if (HasFlag(NodeDirtyChecked)) return;
  VolumeBase::CheckDirty();
  if (!IsEnabled()) return;
  if (!hostGeometry_) {
    ResetSimulation();
    return;
  }
  const LMatrix matrix = DrivingMatrix();
  const bool moves = IsDynamicBody() && rigidBody_->HasBody();
  if (moves ? !scene->HasFlag(TimeMoved) : matrix.off == mesh_.matrix.off) {
    previousMatrix_ = mesh_.matrix;
    objectMotion_ = {};
    SetChanged(false);
  } else {
    MarkDirty(false);
    SetChanged(true);
  }
  const PolygonObject* polygons = hostGeometry_->Polygons();
  const std::uint32_t data = hostGeometry_->dirtyCount(), parents = ParentsDirtyCount(*hostGeometry_);
  const std::uint64_t version = polygons ? polygons->version : 0;
  if (data != seenData_ || parents != seenParents_ || version != seenVersion_) MarkDirty(false);
  seenData_ = data, seenParents_ = parents, seenVersion_ = version;
  const FrameClock& clock = scene->clock;
  if (scene->HasFlag(ContainerChanged) || (clock.frame >= clock.startFrame && clock.frame < clock.endFrame)) {
    MarkDirty(false);
  }
}

void VolumeMesh::ComputeBounds() {
  ResetBounds();
  Vec3D min = boundsMin, max = boundsMax;
  for (const Vec3D& p : mesh_.Points()) min = Min(min, p), max = Max(max, p);
  mesh_.SetBox(min, max);
  centre = mesh_.BoxCentre();
  mesh_.ExtendBox(boundsMin, boundsMax);
  VolumeBase::ComputeBounds();
}

GeometryChange VolumeMesh::ReadGeometry() {
  const PolygonObject* polygons = hostGeometry_ ? hostGeometry_->Polygons() : nullptr;
  if (!polygons) {
    if (hostGeometry_ && !ShowsFrameBefore())
      Warn("no-geometry", "\"" + hostGeometry_->Path() + "\" has no polygons; link an object with some");
    return GeometryChange::Failed;
  }
  // What neither moved nor changed isn't read again.
  const bool still = readVersion_ == polygons->version && readVersion_ != 0 && !IsReplaying() &&
                     readMatrix_ == hostGeometry_->GlobalMatrix() && mesh_.PointCount() > 0;
  if (still && !scene->HasFlag(ContainerChanged)) return GeometryChange::Same;
  LMatrix matrix = DrivingMatrix();
  matrix.off = matrix.off * GetSimulationSpace().hostPerSim;
  const GeometryChange change = ReadHostGeometry(*polygons, IsReplaying() ? matrix : hostGeometry_->GlobalMatrix(),
                                                 GetSimulationSpace().simPerHost, mesh_);
  ++meshReads_;
  readVersion_ = IsReplaying() || change == GeometryChange::Failed ? 0 : polygons->version;
  readMatrix_ = hostGeometry_->GlobalMatrix();
  if (change == GeometryChange::Failed) {
    Warn("no-triangles", "\"" + hostGeometry_->Path() + "\" has no triangles, or a point that isn't finite");
  }
  return change;
}

void VolumeMesh::ReadAgain() {
  readVersion_ = 0;
  MarkDirty(false);
}

VoxeliserSettings VolumeMesh::WantedSettings() const {
  VoxeliserSettings settings;
  settings.shell = shell_;
  settings.flip = flipSign_;
  settings.workers = std::clamp(threadLimit_ >= 1 ? threadLimit_ : scene->threadCount, 1, kMostWorkers);
  return settings;
}

void VolumeMesh::UpdateMotion() {
  objectMotion_ = hasPrevious_ ? MotionBetween(previousMatrix_, mesh_.matrix) : ObjectMotion();
  previousMatrix_ = mesh_.matrix;
  hasPrevious_ = true;
}

void VolumeMesh::Prepare(iBase*) {
  if (!IsDirty()) return;
  needsVoxelising_ = false;
  if (FollowsBody() && !HasFlag(NodeFromCache)) return PrepareBody();
  if (HasFlag(NodeFromCache)) {
    // The shape comes from the cache, the motion from the object; and what emitters scatter over.
    showsPlayed_ = true;
    if (!hostGeometry_ || simulationInfo->substep > 1) return;
    if (!IsObstacle() && hostGeometry_->Polygons()) ReadGeometry();
    mesh_.matrix = SimulationMatrix(hostGeometry_->GlobalMatrix(), GetSimulationSpace().simPerHost);
    return UpdateMotion();
  }
  // What only moves has the polygons that were read.
  const PolygonObject* polygons = hostGeometry_ ? hostGeometry_->Polygons() : nullptr;
  const bool otherPolygons = polygons && readVersion_ != 0 && polygons->version != readVersion_;
  const bool mayDeform = IsObstacle() && hasPrevious_ && otherPolygons;
  const std::vector<Vec3D> before = mayDeform ? mesh_.Points() : std::vector<Vec3D>();
  const LMatrix matrixBefore = mesh_.matrix;
  const GeometryChange change = ReadGeometry();
  if (change == GeometryChange::Failed) {
    FreeLevelSet();
    SetFlag(NodeActive, false);
    return;
  }
  if (!HasLevelSet() && !IsObstacle()) AdviseHoles(*this);
  if (change == GeometryChange::Moved && !before.empty()) WarnOfDeforming(before, matrixBefore);
  VoxeliserSettings wanted = WantedSettings();
  wanted.keep = otherPolygons;
  const bool sameShape =
      HasLevelSet() && !showsPlayed_ && change == GeometryChange::Same && voxeliser_.settings.SameResult(wanted);
  showsPlayed_ = false;
  voxeliser_.settings = wanted;
  const bool asksAgain = HasFlag(NodeHardDirty) && simulationInfo->substep <= 1;
  if (sameShape && simulationInfo->time > 0 && !asksAgain && !scene->HasFlag(ContainerChanged)) {
    SetFlag(NodeDirty | NodeHardDirty, false);
    SetFlag(NodeActive, true);
    return;
  }
  UpdateMotion();
  UpdateBodyShape(change);
  const std::uint64_t version = LevelSetVersion();
  const bool hadLevelSet = HasLevelSet();
  ComputeBounds();
  SetFlag(NodeActive, PrepareGrid());
  needsVoxelising_ = !(sameShape && hadLevelSet && version == LevelSetVersion());
}

void VolumeMesh::Process(ProcessData& data) {
  if (!IsDirty() || !IsActive() || !needsVoxelising_ || HasFlag(NodeFromCache)) return;
  needsVoxelising_ = false;
  deepest_.reset();
  LevelSetChanged();
  FillLevelSet(data);
}

bool VolumeMesh::FillsSmallGrid() const {
  return IsDirty() && IsActive() && needsVoxelising_ && !HasFlag(NodeFromCache) && filledPose_ &&
         LevelSet()->count < BodyField::kSmall;
}

void VolumeMesh::FillLevelSet(ProcessData& data) {
  try {
    if (filledPose_) {
      deepest_ = field_.maximumDepth();
      return field_.Fill(*filledPose_, *LevelSet(), scene->pool());
    }
    if (voxeliser_.Run(mesh_, *LevelSet(), scene->pool(), data.hostThread)) return WarnOfEmpty();
    if (scene->TestBreak(data.hostThread)) return;
    Warn("too-many-triangles", "the mesh has too many triangles for a level set");
    FreeLevelSet();
    SetFlag(NodeActive, false);
  } catch (const std::bad_alloc&) {
    scene->FailForMemory(*this, resolution + VecInt3D(1, 1, 1));
  }
}

void VolumeMesh::VisitState(StateVisitor& visitor) {
  visitor.Visit("matrix", mesh_.matrix);
  visitor.Visit("previousMatrix", previousMatrix_);
  visitor.Visit("hasPrevious", hasPrevious_);
  visitor.Visit("motion", objectMotion_);
  visitor.Visit("linkedObject", linkedObject_);
  visitor.Visit("showsPlayed", showsPlayed_);
  if (!IsObstacle()) return;
  bool hasBody = rigidBody_->HasBody();
  visitor.Visit("hasBody", hasBody);
  recorded_.VisitState(visitor);
  if (!hasBody) return rigidBody_->HasBody() ? rigidBody_->Free() : void();
  rigidBody_->VisitState(visitor);
  visitor.Visit("startMatrix", startMatrix_);
  visitor.Visit("hasStart", hasStart_);
  if (!visitor.Reading()) return;
  filledPose_.reset(), bodyShape_ = bodyVersion_ = 0;
  if (IsDynamicBody()) ShowBody();
}

}  // namespace orlix
