#pragma once
// Turns a liquid's motion into foam, spray and bubbles: once a frame it finds where the water breaks, and makes diffuse
// particles there; then it looks where those that exist stand, and changes their class or ends them. ParticleAdvection
// moves them in between: foam rides the flow, spray flies, bubbles are dragged along.
//
// Two rounds in stage 22: births, then the changes of class. Chance comes in streams, one for each chunk of the liquid
// or run of triangles, seeded alike in each frame: the same particles at any number of workers.

#include "fluids/foam/MeshSeeding.h"
#include "fluids/foam/ParticleSeeding.h"
#include "fluids/liquids/WaterSolver.h"
#include "fluids/surfacing/ImplicitMesher.h"

namespace orlix {

class FoamSprayBubbles final : public iObject {
 public:
  static constexpr std::int32_t kSubType = 89;
  static constexpr int kGroupId = 1000, kSprayOutputId = 1002, kSolverId = 1006, kSurfaceMeshId = 1008,
                       kSurfaceVolumeId = 1010, kFoamOutputId = 1012, kSurfaceResolutionId = 1025,
                       kSampleSpacingId = 1026, kCurvatureSmoothingId = 1027, kSourceId = 1028, kFoamEnabledId = 1050,
                       kFoamToSprayId = 1051, kFoamCurvatureId = 1053, kSurfaceOffsetId = 1054, kFoamSpeedId = 1055,
                       kFoamSpeedVariationId = 1056, kFoamVorticityId = 1057, kFoamVorticityVariationId = 1058,
                       kFoamLifeId = 1059, kFoamLifeVariationId = 1060, kSprayEnabledId = 1100, kSprayToFoamId = 1101,
                       kSprayMassId = 1103, kSprayDragId = 1104, kSprayCurvatureId = 1105, kSpraySpeedId = 1106,
                       kSpraySpeedVariationId = 1107, kSpraySpeed2Id = 1108, kSpraySpeed2VariationId = 1109,
                       kSprayLifeId = 1110, kSprayLifeVariationId = 1111, kSprayBoostId = 1112,
                       kSprayBoostVariationId = 1113, kSprayKickId = 1114, kSprayKickVariationId = 1115,
                       kSprayAngleId = 1116, kSprayAngleVariationId = 1117, kBubblesEnabledId = 1118,
                       kSprayKeepSpeedId = 1119, kCrestRateId = 1150, kCrestMinId = 1151, kCrestMaxId = 1152,
                       kTrappedAirRateId = 1153, kTrappedAirMinId = 1154, kTrappedAirMaxId = 1155, kEnergyMinId = 1156,
                       kEnergyMaxId = 1157;

  FoamSprayBubbles(BaseList2D* hostObject, OrlixScene& owner) : iObject(hostObject, owner) { iterationCount = kRounds; }
  static const TypeInfo& Type();

  std::int32_t GetNodeBaseType() const override { return NODE_OPERATOR; }
  std::int32_t GetNodeSubType() const override { return kSubType; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_PARTICLE); }
  // It divides its own work.
  bool RunsSerially() const override { return true; }
  bool IsIterated() const override { return true; }
  bool EvaluatesOnUpdate() const override { return true; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void Conclude() override;
  void CheckDirty() override;
  bool ComesBefore(const iBase& other) const override;
  void ResetSimulation() override;
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;
  void Finish() override;
  void VisitState(StateVisitor& visitor) override;
  void VisitOutputs(StateVisitor& visitor) override;

 private:
  static constexpr int kRounds = 2;

  void ReadClasses();
  void ScaleCurvatures(double surfaceCell);
  ParticleGroup* Output() const { return output_ ? output_ : group_; }
  ParticleList* Diffuse() const { return Output() ? Output()->list(PK_Diffuse) : nullptr; }
  const ScalarGrid* LinkedLevelSet() const;
  bool HasSource();
  // The liquid's surface as it stands now; false where there is none to work on.
  bool BuildSurface();
  bool MakeLattice(GridSpace& lattice) const;
  FoamField Field() const;
  void TakeBack();
  void Births();
  void SeedByParticles(std::vector<DiffuseBirths>& pieces);
  void SeedByMesh(std::vector<DiffuseBirths>& pieces);
  void UpdateClasses();

  FoamSettings settings_;
  LiquidCells cells_;
  FoamSurface surface_;                            // between the rounds
  double surfaceResolution_ = 1.5;                 // cells of the mesh's level set a cell
  double foamCurvature_ = 0, sprayCurvature_ = 0;  // in cells of the surface
  std::int32_t countAtRebuild_ = 0;                // of the diffuse particles, before this frame's births
  // For what is told at the run's end.
  bool linked_ = false, played_ = false, everBorn_ = false;

  // Between ResolveLinks and ReleaseLinks.
  ParticleGroup *group_ = nullptr, *output_ = nullptr;
  iSolver* solver_ = nullptr;
  ImplicitMesher* mesher_ = nullptr;
  iBase* volumeNode_ = nullptr;
  std::vector<Constraint*> constraints_;
};

}  // namespace orlix
