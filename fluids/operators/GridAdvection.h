#pragma once
// Carries a channel, or the velocity itself, through the velocity of a solver.

#include <array>
#include <span>
#include <vector>

#include "fluids/advection/AdvectionKernels.h"
#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"
#include "fluids/scene/iTakesAlong.h"

namespace orlix {

class FluidSolver;
class VelocityGridChannel;

class GridAdvection final : public iObject, public iTakesAlong {
 public:
  enum class Scheme : std::int32_t { SemiLagrangian = 0, MacCormack = 1, Conservative = 2, ConservativeMacCormack = 3 };

  GridAdvection(BaseList2D* object, OrlixScene& owner);
  static constexpr int kChannelId = 1000, kSchemeId = 1002, kIntegratorId = 1003, kInterpolationId = 1004,
                       kSolverId = 1005, kCorrectionStrengthId = 1007, kSmoothCorrectionId = 1008;
  static const TypeInfo& Type();

  void ResetSimulation() override;
  void ClearState(bool deactivate) override;
  // Fits gamma to the target; only the conservative schemes have it, and they need a scalar target.
  bool ApplyBounds(const Vec3D& min, const Vec3D& max) override;
  MemoryNeed MemoryFor(const VecInt3D& cells) const override;
  std::int32_t GetNodeBaseType() const override { return NODE_OPERATOR; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_GRID); }
  bool RunsSerially() const override { return true; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  bool Moves(const iBase& node) const override { return Target() == &node; }
  void CheckDirty() override;
  // Exchanges the target's present and previous grids: the present ones are written.
  void Prepare(iBase* caller = nullptr) override;
  // Scalar channels that are carried alike are traced once.
  bool CanTakeAlong(const iObject& next) const override;
  bool TakesAlong(iObject& next) override;
  void Process(ProcessData& data) override;
  void Finish() override { along_.clear(); }
  void VisitState(StateVisitor& visitor) override;
  void VisitOutputs(StateVisitor& visitor) override;

  Scheme scheme = Scheme::MacCormack;
  Integrator integrator = Integrator::Euler;
  AdvectionSampling interpolation = AdvectionSampling::Trilinear;
  float correctionStrength = 1;
  bool smoothCorrection = false;

  // Between ResolveLinks and ReleaseLinks. velocityChannel is the target when the two others are null.
  ScalarGridChannel* scalarChannel = nullptr;
  VectorGridChannel* vectorChannel = nullptr;
  VelocityGridChannel* velocityChannel = nullptr;

  // What each cell of the scalar target takes; of the conservative schemes.
  std::unique_ptr<ScalarGrid> previousGamma, gamma;

 private:
  void ForgetLinks();
  iBase* Target() const;
  bool IsConservative() const { return scheme == Scheme::Conservative || scheme == Scheme::ConservativeMacCormack; }
  bool CanSwap() const;
  AdvectionField Field();
  AdvectionSource Source(const ScalarGrid& grid);
  // Carries what is in the first grids into the second ones.
  struct Carried {
    const ScalarGrid *source, *result;
    const GridAdvection* node;  // whose settings hold
  };
  void Carry(std::span<const Carried> grids);
  void CarryScalarConservatively();

  FluidSolver* solver_ = nullptr;  // whose velocity carries
  std::vector<GridAdvection*> along_;
};

}  // namespace orlix
