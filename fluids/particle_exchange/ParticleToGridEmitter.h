#pragma once
// Particles into channels: at each cell a weighted mean of a property, or of a constant, over the particles in a
// radius, which the channel then gets as from any emitter.
//
//   b = amount x mass x mass_scale x (particle radius / radius) x radius_scale x falloff(distance / radius)
//   the cell gets  sum(value b) / number of particles
//
// No cell changes before all are gathered: constraints may read the channel that is filled.

#include <atomic>

#include "fluids/channels/ChannelValue.h"
#include "fluids/constraints/Constraint.h"
#include "fluids/emitters/EmissionHandler.h"
#include "fluids/particle_exchange/ParticleGather.h"
#include "fluids/particles/KindChoices.h"
#include "fluids/particles/ParticleGroup.h"

namespace orlix {

class ParticleToGridEmitter final : public iObject {
 public:
  enum class FalloffMode { None = 0, Curve = 2 };
  enum class ConstraintMode { Cell, Particle };

  ParticleToGridEmitter(BaseList2D* object, OrlixScene& owner);
  static constexpr int kGroupId = 1000, kKindId = 1001, kPairsId = 1002, kFalloffModeId = 1003, kFalloffId = 1004,
                       kMassScaleId = 1005, kRadiusScaleId = 1006, kPerSecondId = 1007, kConstraintModeId = 1013,
                       kRadiusId = 1014;
  static const TypeInfo& Type();

  std::int32_t GetNodeBaseType() const override { return NODE_EMITTER; }
  std::int32_t GetNodeSubType() const override { return 8; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_GRID); }
  // Called once a pass: it divides its own work.
  bool RunsSerially() const override { return true; }
  void ExtendBounds(Vec3D& min, Vec3D& max) override;
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void Advise() override;
  void ReleaseLinks() override;
  void CheckDirty() override;
  // The channels of its pairs come first.
  bool ComesBefore(const iBase& other) const override;
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;
  void Finish() override;
  void VisitOutputs(StateVisitor& visitor) override;

 private:
  // A pair that emits in this sub-step, with what of each particle it takes.
  struct Target {
    const ChannelValue* pair;
    GatherInput gather;
    CountedVector<Vec3D> values;
  };
  struct Layer {
    const Target* target;
    std::int32_t k;
  };
  // What a layer's cells get.
  struct Emission {
    VecInt3D cell;
    Vec3D mean;
  };
  struct Scratch {
    GatherRow row;
    std::vector<double> cellWeights;  // of a row; no number while not asked
  };

  void FindTargets();
  void AddTarget(const ChannelValue& pair);
  void TakeWeights();
  void TakeValues(Target& target);
  void GatherLayer(const Layer& layer, CountedVector<Emission>& out, std::int32_t worker);
  double CellWeight(const Target& target, const VecInt3D& cell, double& known, std::int32_t worker) const;
  double PairWeight(const ParticleLines::Entry& entry, double weight, std::int32_t worker) const;
  void Emit(const Target& target, std::span<const Emission> emissions) const;

  ParticleGroup* group_ = nullptr;
  std::vector<ChannelValue*> pairs_;
  std::vector<Constraint*> constraints_, pairConstraints_;  // of cells, and of each particle at a cell
  const SplineData* falloff_ = nullptr;
  std::int32_t kind_ = 0;
  double massScale_ = 1, radiusScale_ = 1, radius_ = 0;
  bool perSecond_ = false, cellsToo_ = true;

  double amount_ = 1;
  ParticleLines lines_;
  CountedVector<double> weights_;  // of the particles in the lines
  std::vector<std::unique_ptr<Target>> targets_;
  std::vector<Layer> layers_;
  std::vector<CountedVector<Emission>> emissions_;  // of each layer
  std::vector<Scratch> scratch_;
};

}  // namespace orlix
