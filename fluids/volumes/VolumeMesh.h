#pragma once
// A volume that is filled from one host object's polygons.
//
// What stands still costs nothing: points are read each frame, and only when one moved, the lattice changed, or a
// setting that shapes the level set did, is the level set built again.

#include "fluids/bodies/RecordedMotion.h"
#include "fluids/meshes/HostGeometry.h"
#include "fluids/volumes/BodyField.h"
#include "fluids/volumes/VolumeBase.h"

namespace orlix {

class VolumeMesh final : public VolumeBase {
 public:
  VolumeMesh(BaseList2D* hostObject, OrlixScene& owner);
  // Of a volume of many objects: settings are those of its host object, polygons those of the object given before each
  // ResolveLinks.
  void BeMember(BaseObject* geometry) { isMember_ = true, memberGeometry_ = geometry; }
  static const TypeInfo& Type();

  void ResetSimulation() override;
  std::int32_t GetNodeSubType() const override { return 78; }
  void GetRetrieveTypes(std::uint32_t& mask) const override;
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void CheckDirty() override;
  bool StillBox(Vec3D& min, Vec3D& max) const override;
  MemoryNeed MemoryFor(const VecInt3D& cells) const override;
  bool ForecastBox(Vec3D& min, Vec3D& max) const override;
  void ComputeBounds() override;
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;
  void VisitState(StateVisitor& visitor) override;
  std::int64_t DerivedBytes() const override { return VolumeBase::DerivedBytes() + field_.Bytes(); }
  bool EnsureBody() override;
  RigidEntry BodyEntry() override;
  LMatrix BodyMatrix() const override { return mesh_.matrix; }

  // The object whose polygons the volume had last; null when it left the document.
  const BaseObject* LinkedObject() const;
  // In simulation space.
  const TriMeshSTL& Mesh() const { return mesh_; }
  TriMeshSTL& Mesh() { return mesh_; }
  // Grows each time that the mesh is as its object has it, without what others changed.
  std::uint64_t MeshReads() const { return meshReads_; }
  // The mesh is read in the next Prepare although its object didn't change.
  void ReadAgain();
  // The object whose polygons are the volume, from ResolveLinks to ReleaseLinks.
  BaseObject* HostGeometry() const { return hostGeometry_; }
  // Its Process reads a body's own field into a grid too small to divide, and touches nothing else.
  bool FillsSmallGrid() const;

 private:
  double ShellShare() const override { return shell_; }
  // Whether its object's polygons come from a node that runs after volumes.
  bool ShowsFrameBefore() const;
  GeometryChange ReadGeometry();
  VoxeliserSettings WantedSettings() const;
  void WarnOfEmpty();
  void WarnOfDeforming(const std::vector<Vec3D>& before, const LMatrix& matrixBefore);
  void TellDeforming();
  void UpdateMotion();
  void FillLevelSet(ProcessData& data);

  // --- the body
  // What is simulated places the mesh: its object is read at the start alone.
  bool FollowsBody() const { return simulationInfo->time > 0 && IsDynamicBody() && rigidBody_->HasBody(); }
  void PrepareBody();
  // A body that doesn't move by forces: its shape after the mesh was read.
  void UpdateBodyShape(GeometryChange change);
  void ReshapeBody();
  void StartVelocity();
  // Puts the host object where the body is.
  void ShowBody();
  void ReturnToStart();
  // The host object's place, or the recorded one.
  LMatrix DrivingMatrix() const;
  void RecordMotion();
  bool IsReplaying() const;
  double InsideVolume() const;

  BaseObject* hostGeometry_ = nullptr;
  BaseObject* memberGeometry_ = nullptr;
  bool isMember_ = false;
  std::uint64_t linkedObject_ = 0;  // its creation number
  TriMeshSTL mesh_;
  LMatrix previousMatrix_;  // the mesh's, one frame back
  bool hasPrevious_ = false;
  std::uint32_t seenData_ = 0, seenParents_ = 0;  // change counters of the object and of those above it
  std::uint64_t seenVersion_ = 0;                 // of its polygons
  double shell_ = 1;
  std::int32_t threadLimit_ = 0;
  bool needsVoxelising_ = false;
  bool showsPlayed_ = false;  // the level set is what a cache played last
  bool hadInside_ = false;    // at some time
  std::uint64_t meshReads_ = 0;

  LMatrix startMatrix_;  // of the host object of a dynamic body, host units
  bool hasStart_ = false;
  LMatrix lastPose_;  // of the body, before the rigid world's step
  BodyField field_;
  std::uint64_t bodyShape_ = 0;        // of the polygons that the body has: a hash
  std::uint64_t bodyVersion_ = 0;      // of its polygons when that was found; 0: not yet
  LMatrix readMatrix_;                 // of the host object, when its points were read
  std::uint64_t readVersion_ = 0;      // of its polygons then; 0: none were
  std::optional<LMatrix> filledPose_;  // that the level set shows
  RecordedMotion recorded_;
};

}  // namespace orlix
