#include "fluids/surfacing/MeshOperator.h"

#include "fluids/helpers/Duration.h"
#include "fluids/helpers/PropertyIds.h"
#include "fluids/scene/OrlixScene.h"

namespace orlix {

namespace {

constexpr std::int32_t kPriority = 20;

}  // namespace

bool MeshOperator::ReadParameters() {
  priority = kPriority;
  stageMask = StageBit(kStageVolumes);
  ownStage_ = handler.GetInt(kStageId) == 0;
  return iObject::ReadParameters();
}

bool MeshOperator::ResolveLinks() {
  if (!iObject::ResolveLinks()) return false;
  iBase* source = scene->Retrieve(handler.GetLink(kSourceId), NODE_VOLUME, RETRIEVE_ANY, RETRIEVE_ANY);
  volume_ = dynamic_cast<VolumeMesh*>(source);
  mesher_ = dynamic_cast<ImplicitMesher*>(source);
  constraints_ = RetrieveConstraints(*scene, handler);
  // A mesher's mesh is there only after its stage; a volume's is emitted from in the stage after the volumes'.
  if (ownStage_) stageMask = StageBit(mesher_ ? kStageVisualPost : kStageVolumes);
  return true;
}

void MeshOperator::ReleaseLinks() {
  volume_ = nullptr;
  mesher_ = nullptr;
  constraints_.clear();
  iObject::ReleaseLinks();
}

void MeshOperator::Advise() {
  if (!volume_ && !mesher_) Warn("no-source", "no mesh is linked: nothing happens; link a mesher under \"source\"");
  const int stage = static_cast<int>(handler.GetInt(kStageId));
  if (mesher_ && !ownStage_ && stage <= kStageMeshing) {
    Warn("late-by-a-frame",
         "it runs before the stage in which its mesher runs, and so works on the mesh of the frame "
         "before; set \"stage\" to 0 or 22");
  }
}

// What it did before can't be undone: with other settings the mesh is made anew.
void MeshOperator::CheckDirty() {
  if (HasFlag(NodeDirtyChecked)) return;
  iObject::CheckDirty();
  const bool varies = !constraints_.empty() || handler.GetLink(kDurationId);
  if (!HasFlag(NodeDirty) && !varies) return;
  if (mesher_) mesher_->Rebuild();
  if (volume_) volume_->ReadAgain();
}

bool MeshOperator::IsDirty() const {
  if (mesher_) return mesher_->BuildCount() != seenBuild_ && !LeavesPlayed();
  // A volume reads its mesh in the same stage, after it was asked what has work.
  return volume_ && (volume_->IsDirty() || volume_->MeshReads() != seenBuild_);
}

bool MeshOperator::WorksOnPlayed(const BaseObject& object) {
  const std::int32_t type = object.typeId();
  return (type == MeshCurvatureOperator::Type().id || type == MeshSmoothingOperator::Type().id) &&
         object.GetBool(kOnPlayedId);
}

bool MeshOperator::LeavesPlayed() const { return mesher_->HasFlag(NodeFromCache) && !handler.GetBool(kOnPlayedId); }

TriMeshSTL* MeshOperator::Mesh() const {
  if (mesher_ && mesher_->IsEnabled()) return LeavesPlayed() ? nullptr : &mesher_->Mesh();
  return volume_ && volume_->IsEnabled() ? &volume_->Mesh() : nullptr;
}

void MeshOperator::Prepare(iBase*) {
  const auto* duration = scene->RetrieveAs<Duration>(handler.GetLink(kDurationId), NODE_HELPER);
  strength_ = DurationWeight(duration, scene->clock.time);
  const TriMeshSTL* mesh = Mesh();
  const bool done = volume_ && volume_->MeshReads() == seenBuild_;
  SetFlag(NodeActive, mesh && mesh->PointCount() > 0 && strength_ != 0 && !done);
}

void MeshOperator::Process(ProcessData&) {
  if (!IsActive()) return;
  TriMeshSTL& mesh = *Mesh();
  MeshAdjacency adjacency;
  adjacency.Build(mesh);
  std::vector<double> shares(static_cast<std::size_t>(mesh.PointCount()), strength_);
  if (!constraints_.empty()) {
    for (Constraint* constraint : constraints_) constraint->Prepare(this);
    for (std::size_t p = 0; p < shares.size(); ++p) EvaluateChain(constraints_, mesh.Points()[p], shares[p], this, 0);
    for (Constraint* constraint : constraints_) constraint->Finish();
  }
  Work(mesh, adjacency, shares);
  if (mesher_) mesher_->MeshEdited(adjacency, MovesPoints());
  seenBuild_ = mesher_ ? mesher_->BuildCount() : volume_->MeshReads();
}

void MeshOperator::Finish() { SetFlag(NodeActive, false); }

// --- curvature -------------------------------------------------------------------------------------------------------

const TypeInfo& MeshCurvatureOperator::Type() {
  static constexpr Parameter kParameters[] = {
      SourceParameter(),
      OnPlayedParameter(),
      BoolParameter(kSmoothId, "smooth", true, "The mean over each point and its neighbours, by their areas"),
  };
  static const TypeInfo kType = {
      .id = 1300135,
      .resource = "zq_mop_curvature",
      .className = "C4D_Operator_Curvature_Object",
      .label = "MOP::Curvature",
      .text =
          "Measures the mean curvature at the points of a mesh, |k1 + k2| in 1/m: 2 / radius on a sphere. Files hold "
          "it as \"curvature\", particle mesh emitters can go by it.",
      .kinds = kLinkOperator,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool MeshCurvatureOperator::ReadParameters() {
  smooth_ = handler.GetBool(kSmoothId);
  return MeshOperator::ReadParameters();
}

void MeshCurvatureOperator::Work(TriMeshSTL& mesh, const MeshAdjacency& adjacency, std::span<const double> shares) {
  std::vector<double> curvatures, areas;
  MeanCurvatures(mesh, adjacency, scene->pool(), curvatures, areas);
  if (smooth_) curvatures = SmoothByArea(mesh, adjacency, scene->pool(), curvatures, areas);
  mesh.pointAttributes.Resize(static_cast<std::size_t>(mesh.PointCount()));
  std::vector<double>& stored = mesh.pointAttributes.Column<double>(PP::Curvature);
  for (std::size_t p = 0; p < shares.size(); ++p) {
    if (shares[p] != 0) stored[p] = curvatures[p];
  }
}

// --- smoothing -------------------------------------------------------------------------------------------------------

const TypeInfo& MeshSmoothingOperator::Type() {
  static constexpr Parameter kParameters[] = {
      SourceParameter(),
      OnPlayedParameter(),
      IntParameter(kSmoothingsId, "smoothings", 1, "", "How often points move towards the mean of their neighbours")
          .Between(0, 10000),
  };
  static const TypeInfo kType = {
      .id = 1300136,
      .resource = "zq_mop_smoothing",
      .className = "C4D_Operator_Smoothing_Object",
      .label = "MOP::Smoother",
      .text =
          "Smooths a mesh: bumps go, and the shape becomes a little smaller with each round. A mesher's mesh is "
          "smoothed in the frame in which it was made.",
      .kinds = kLinkOperator,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool MeshSmoothingOperator::ReadParameters() {
  smoothings_ = handler.GetInt(kSmoothingsId);
  return MeshOperator::ReadParameters();
}

void MeshSmoothingOperator::Work(TriMeshSTL& mesh, const MeshAdjacency& adjacency, std::span<const double> shares) {
  const bool hasVectors = mesh.pointAttributes.Find(kPointNormalId) != nullptr;
  std::vector<Vec3D>* vectors = hasVectors ? &mesh.pointAttributes.Column(kPointNormalId) : nullptr;
  for (std::int32_t n = 0; n < smoothings_ && !scene->TestBreak(); ++n) {
    SmoothPoints(adjacency, scene->pool(), shares, vectors, mesh);
  }
}

}  // namespace orlix
