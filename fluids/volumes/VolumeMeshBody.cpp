// What a volume of a mesh does for its body.

#include <algorithm>

#include "fluids/bodies/ObstacleTag.h"
#include "fluids/scene/OrlixScene.h"
#include "fluids/volumes/AlignmentVector3D.h"
#include "fluids/volumes/VolumeMesh.h"
#include "globals/Hash.h"
#include "host/objects/PlaceObject.h"

namespace orlix {

namespace {

constexpr double kSameShape = 1e-6;  // of a body's size: more than its turning makes of the points

// Of points and polygons: other settings, or another frame's file, may make the same ones anew.
std::uint64_t ShapeHash(const PolygonObject& polygons) {
  StateHash hash;
  hash.Add(polygons.points.data(), polygons.points.size() * sizeof(Vec3D));
  hash.Add(polygons.polygons.data(), polygons.polygons.size() * sizeof(PolygonObject::Polygon));
  return hash.Value();
}

bool IsSameShape(const std::vector<Vec3D>& rest, const LMatrix& pose, const std::vector<Vec3D>& points) {
  if (rest.size() != points.size()) return false;
  Vec3D low, high;
  for (const Vec3D& p : rest) low = Min(low, p), high = Max(high, p);
  const double most = kSameShape * Length(high - low);
  for (std::size_t i = 0; i < rest.size(); ++i) {
    if (!(LengthSquared(pose * rest[i] - points[i]) <= most * most)) return false;
  }
  return true;
}

}  // namespace

bool VolumeMesh::IsReplaying() const {
  const BaseObject* tag = IsDrivenBody() ? handler.hostObject()->FindTag(kObstacleTagId) : nullptr;
  return tag && tag->GetBool(ObstacleTag::kReplayId);
}

LMatrix VolumeMesh::DrivingMatrix() const {
  const GridSpace& space = GetSimulationSpace();
  LMatrix matrix = SimulationMatrix(hostGeometry_->GlobalMatrix(), space.simPerHost);
  if (!IsReplaying()) return matrix;
  const BaseObject* tag = handler.hostObject()->FindTag(kObstacleTagId);
  const std::int32_t frame = simulationInfo->frame + std::int32_t(tag->GetInt(ObstacleTag::kReplayOffsetId));
  recorded_.Replay(frame, 1, matrix);
  return matrix;
}

void VolumeMesh::RecordMotion() {
  const BaseObject* tag = handler.hostObject()->FindTag(kObstacleTagId);
  const auto recording = tag->GetChoice<ObstacleTag::Recording>(ObstacleTag::kRecordId);
  if (recording == ObstacleTag::Recording::Off || IsReplaying()) return;
  const SimulationInfo& info = *simulationInfo;
  if (info.substep <= 1) recorded_.ClearFrame(info.frame);
  if (recording == ObstacleTag::Recording::Frames && !info.lastSubstep) return;
  recorded_.Store(info.frame, mesh_.matrix, float(info.lastSubstep ? 1 : 1 - std::max(info.frameRemaining, 0.0)));
}

double VolumeMesh::InsideVolume() const {
  if (!LevelSet()) return 0;
  const ScalarGrid& phi = *LevelSet();
  std::int64_t count = 0;
  for (int k = 1; k < phi.dims.z - 2; ++k) {
    for (int j = 1; j < phi.dims.y - 2; ++j) {
      for (int i = 1; i < phi.dims.x - 2; ++i) {
        double sum = 0;
        for (int corner = 0; corner < 8; ++corner)
          sum += phi(i + (corner & 1), j + (corner >> 1 & 1), k + (corner >> 2));
        count += !(static_cast<float>(sum * 0.125) > 0);
      }
    }
  }
  return double(count) * cellSize * cellSize * cellSize;
}

bool VolumeMesh::EnsureBody() {
  if (!IsObstacle() || !IsEnabled()) return false;
  if (rigidBody_->HasBody()) return true;
  if (mesh_.Triangles().empty() || !rigidBody_->Create(mesh_, false)) return false;
  rigidBody_->SetVolume(InsideVolume());
  rigidBody_->ApplySettings();
  filledPose_.reset();
  if (rigidBody_->WantsDynamic() && !IsDynamicBody()) {
    Warn("no-volume",
         "its mesh encloses nothing, so that its density gives no mass: it stands still; close the mesh, "
         "or give a mass");
  }
  if (const double m = rigidBody_->GetMass(); m > 0 && (m < RigidBody::kLeastMass || m > RigidBody::kMostMass)) {
    Warn("mass-range", "a mass between a milligram and a billion tons is what a body can have: it gets the nearest");
  }
  if (!hostGeometry_) return true;
  if (!IsDrivenBody()) startMatrix_ = hostGeometry_->GlobalMatrix(), hasStart_ = true;
  bodyShape_ = hostGeometry_->Polygons() ? ShapeHash(*hostGeometry_->Polygons()) : 0;
  if (IsDynamicBody()) StartVelocity();
  return true;
}

void VolumeMesh::StartVelocity() {
  const BaseObject* tag = handler.hostObject()->FindTag(kObstacleTagId);
  auto* field = scene->RetrieveAs<AlignmentVector3D>(tag->GetLink(ObstacleTag::kVelocityFieldId), NODE_HELPER);
  if (!field) return;
  field->Prepare(this);
  rigidBody_->state.velocity = Normalized(field->GetDirection(mesh_.matrix.off)) * rigidBody_->velocitySpeed;
}

RigidEntry VolumeMesh::BodyEntry() {
  LMatrix target = lastPose_ = rigidBody_->state.pose;
  if (IsDrivenBody() && hostGeometry_) {
    // The frame's motion is shared out over its sub-steps: the rest of it over what is left of the frame.
    const SimulationInfo& info = *simulationInfo;
    const double left = info.frameRemaining + info.substepFraction;
    const double share = info.lastSubstep || !(left > info.substepFraction) ? 1 : info.substepFraction / left;
    const LMatrix end = rigidBody_->PoseOf(DrivingMatrix());
    target = share == 1 ? end : MovedBy(target, MotionBetween(target, end), share);
  }
  return rigidBody_->Entry(target, GetSimulationSpace().hostPerSim.x);
}

void VolumeMesh::UpdateBodyShape(GeometryChange change) {
  if (!IsObstacle() || !rigidBody_->HasBody()) return;
  RecordMotion();
  if (change != GeometryChange::Moved) return;
  // Made anew where it is now, if that is elsewhere: what goes on from a checkpoint sees its mesh for the first time.
  if (IsStaticBody() || simulationInfo->time == 0) {
    if (!IsSameShape(rigidBody_->RestPoints(), rigidBody_->state.pose, mesh_.Points())) rigidBody_->Free();
    return;
  }
  if (!IsSameShape(rigidBody_->RestPoints(), rigidBody_->PoseOf(mesh_.matrix), mesh_.Points())) {
    const RigidState state = rigidBody_->state;
    rigidBody_->state.pose = rigidBody_->PoseOf(mesh_.matrix);
    rigidBody_->Create(mesh_, true);
    rigidBody_->state = state;
  }
}

// Other polygons of the object, where it started: the body has them where it is.
void VolumeMesh::ReshapeBody() {
  const PolygonObject* polygons = hostGeometry_ ? hostGeometry_->Polygons() : nullptr;
  if (!polygons || !hasStart_ || simulationInfo->substep > 1 || polygons->version == bodyVersion_) return;
  bodyVersion_ = polygons->version;
  const std::uint64_t shape = ShapeHash(*polygons);
  if (shape == bodyShape_) return;
  bodyShape_ = shape;
  TriMeshSTL mesh;
  if (ReadHostGeometry(*polygons, startMatrix_, GetSimulationSpace().simPerHost, mesh) == GeometryChange::Failed)
    return;
  // From its start to where it is.
  const LMatrix atStart = rigidBody_->PoseOf(SimulationMatrix(startMatrix_, GetSimulationSpace().simPerHost));
  // After a resume the hash isn't known.
  if (IsSameShape(rigidBody_->RestPoints(), atStart, mesh.Points())) return;
  const LMatrix way = rigidBody_->state.pose * atStart.Inverse();
  for (Vec3D& p : mesh.Points()) p = way * p;
  mesh.matrix = rigidBody_->MeshMatrix();
  rigidBody_->Create(mesh, true);
  TellDeforming();
  field_ = {};
  filledPose_.reset();
}

// The fluid is told of a motion that turns and moves the whole: of what else its points do, it sees the shape alone.
void VolumeMesh::WarnOfDeforming(const std::vector<Vec3D>& before, const LMatrix& matrixBefore) {
  const LMatrix moved = MovedBy(matrixBefore, MotionBetween(matrixBefore, mesh_.matrix), 1);
  if (!IsSameShape(before, moved * matrixBefore.Inverse(), mesh_.Points())) TellDeforming();
}

void VolumeMesh::TellDeforming() {
  Warn("deforms",
       "its mesh changes its shape: fluids make room for it, but feel only the speed at which its object moves and "
       "turns "
       "as a whole, and a surface that bends or grows doesn't push them; make it of parts that each move as a whole, a "
       "volume_multi of them");
}

void VolumeMesh::ShowBody() {
  // When a state is read, links are released.
  auto* object =
      hostGeometry_ ? hostGeometry_ : dynamic_cast<BaseObject*>(scene->GetHostDocument()->FindObject(linkedObject_));
  if (!object) return;
  LMatrix matrix = mesh_.matrix;
  matrix.off = matrix.off * GetSimulationSpace().hostPerSim;
  SetGlobalMatrix(*object, matrix);
}

const BaseObject* VolumeMesh::LinkedObject() const {
  return dynamic_cast<const BaseObject*>(scene->GetHostDocument()->FindObject(linkedObject_));
}

void VolumeMesh::ReturnToStart() {
  filledPose_.reset();
  field_ = {};
  if (!hasStart_ || !IsDynamicBody()) return;
  hasStart_ = false;
  if (auto* object = dynamic_cast<BaseObject*>(scene->GetHostDocument()->FindObject(linkedObject_))) {
    SetGlobalMatrix(*object, startMatrix_);
  }
}

void VolumeMesh::PrepareBody() {
  if (!scene->HasFlag(TimeMoved)) {
    SetFlag(NodeDirty | NodeHardDirty, false);
    SetFlag(NodeActive, HasLevelSet());
    return;
  }
  ReshapeBody();
  const LMatrix& pose = rigidBody_->state.pose;
  objectMotion_ = MotionBetween(lastPose_, pose);
  const VoxeliserSettings wanted = WantedSettings();
  const bool sameField = field_.Bytes() > 0 && field_.settings().SameResult(wanted);
  if (!sameField || !filledPose_ || !(*filledPose_ == pose)) rigidBody_->TakeMesh(mesh_), ++meshReads_;
  ShowBody();
  RecordMotion();
  SetFlag(NodeActive, HasLevelSet());
  if (sameField && HasLevelSet() && filledPose_ && *filledPose_ == pose) return;
  previousMatrix_ = mesh_.matrix;
  hasPrevious_ = true;
  filledPose_.reset();
  if (!sameField && !field_.Build(rigidBody_->RestPoints(), mesh_.Triangles(), GetSimulationSpace().cellSize, wanted,
                                  scene->pool())) {
    return SetFlag(NodeActive, false);
  }
  ComputeBounds();
  const bool prepared = PrepareGrid();
  SetFlag(NodeActive, prepared);
  needsVoxelising_ = prepared;
  if (prepared) filledPose_ = pose;
}

}  // namespace orlix
