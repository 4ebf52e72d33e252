#pragma once
// What works on the points of a mesh, of a volume or of a mesher.

#include "fluids/constraints/Constraint.h"
#include "fluids/meshes/TriMeshSTL.h"
#include "fluids/surfacing/ImplicitMesher.h"
#include "fluids/surfacing/MeshKernels.h"
#include "fluids/volumes/VolumeMesh.h"

namespace orlix {

class MeshOperator : public iObject {
 public:
  using iObject::iObject;
  static constexpr int kSourceId = 1001, kOnPlayedId = 1010;
  // Whether an object is a mesh operator that works on what caches play.
  static bool WorksOnPlayed(const BaseObject& object);

  std::int32_t GetNodeBaseType() const override { return NODE_OPERATOR; }
  std::int32_t GetNodeSubType() const override { return 62; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_MESH); }
  bool RunsSerially() const override { return true; }
  bool EvaluatesOnUpdate() const override { return true; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void CheckDirty() override;
  // There is a mesh that it hasn't worked on.
  bool IsDirty() const override;
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;
  void Finish() override;

 protected:
  static constexpr Parameter SourceParameter() {
    return LinkParameter(kSourceId, "source", kLinkVolume | kLinkGeometry, "A mesher, or a volume");
  }
  static constexpr Parameter OnPlayedParameter() {
    return BoolParameter(kOnPlayedId, "on_played", false,
                         "Works on a mesh that a cache plays, too; such a mesh was recorded as operators left it");
  }
  // shares: what strength and constraints leave at each point.
  virtual void Work(TriMeshSTL& mesh, const MeshAdjacency& adjacency, std::span<const double> shares) = 0;
  virtual bool MovesPoints() const = 0;

 private:
  TriMeshSTL* Mesh() const;
  bool LeavesPlayed() const;

  VolumeMesh* volume_ = nullptr;
  ImplicitMesher* mesher_ = nullptr;
  std::vector<Constraint*> constraints_;
  double strength_ = 1;
  bool ownStage_ = true;         // the user set none
  std::uint64_t seenBuild_ = 0;  // of the mesher's meshes, or of the volume's
};

// The mean curvature at each point, as its curvature attribute.
class MeshCurvatureOperator final : public MeshOperator {
 public:
  using MeshOperator::MeshOperator;
  static constexpr int kSmoothId = 1004;
  static const TypeInfo& Type();
  bool ReadParameters() override;

 protected:
  void Work(TriMeshSTL& mesh, const MeshAdjacency& adjacency, std::span<const double> shares) override;
  bool MovesPoints() const override { return false; }

 private:
  bool smooth_ = true;
};

// Moves each point towards the mean of its neighbours, a number of times.
class MeshSmoothingOperator final : public MeshOperator {
 public:
  using MeshOperator::MeshOperator;
  static constexpr int kSmoothingsId = 1004;
  static const TypeInfo& Type();
  bool ReadParameters() override;

 protected:
  void Work(TriMeshSTL& mesh, const MeshAdjacency& adjacency, std::span<const double> shares) override;
  bool MovesPoints() const override { return true; }

 private:
  std::int32_t smoothings_ = 1;
};

}  // namespace orlix
