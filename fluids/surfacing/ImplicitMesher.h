#pragma once
// The surface of a level set as polygons: of a volume, of volumes that were combined, of particles.

#include "fluids/level_sets/iLevelSet.h"
#include "fluids/surfacing/MeshKernels.h"
#include "fluids/surfacing/SurfaceExtractor.h"
#include "fluids/surfacing/VertexData.h"

namespace orlix {

class ImplicitMesher final : public iObject {
 public:
  using iObject::iObject;
  static constexpr int kRenderOnlyId = 1000, kInputId = 1001, kMethodId = 1002, kDivisorId = 1003, kNormalsId = 1005,
                       kAdvectionTimeId = 1007, kIsoId = 1008, kVelocityId = 1009, kSamplingId = 1012, kClosedId = 1100,
                       kVertexDataId = 1101, kVertexGroupsId = 1102, kVertexRadiusId = 1103;
  static const TypeInfo& Type();

  std::int32_t GetNodeBaseType() const override { return NODE_VOLUME; }
  std::int32_t GetNodeSubType() const override { return 85; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_MESH); }
  bool RunsSerially() const override { return true; }
  bool EvaluatesOnUpdate() const override { return true; }
  // Nothing is shown of a surface that isn't made.
  void RestsInStage() override;
  void ResetSimulation() override;
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void CheckDirty() override;
  bool IsDirty() const override;
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;
  void Finish() override;
  std::int64_t DerivedBytes() const override;

  // In simulation space.
  const TriMeshSTL& Mesh() const { return mesh_; }
  TriMeshSTL& Mesh() { return mesh_; }
  // Grows with each mesh that was made.
  std::uint64_t BuildCount() const { return builds_; }
  // The next mesh is made although nothing that it is made from changes.
  void Rebuild() { builtFrom_ = 0; }
  // A cache plays a mesh, in the object's local space, and nothing is made in this frame; null takes it away.
  void TakePlayed(PolygonObject* played);
  // What the host object shows; null without a mesh.
  const PolygonObject* Shown() const;
  // Another node changed the mesh: gives it to the host object.
  void MeshEdited(const MeshAdjacency& adjacency, bool pointsMoved);

 private:
  void ShowMesh();
  const ScalarGrid* InputGrid() const;

  ExtractionSettings settings_;
  bool renderOnly_ = false, gradientNormals_ = true;
  double advectionTime_ = 0;  // s
  iBase* inputNode_ = nullptr;
  iLevelSet* input_ = nullptr;
  iSolver* velocity_ = nullptr;
  VertexData vertexData_;
  TriMeshSTL mesh_;
  std::uint64_t builtVersion_ = 0;
  std::uint64_t builds_ = 0;
  std::uint64_t builtFrom_ = 0;  // the creation number of the input's object
};

}  // namespace orlix
