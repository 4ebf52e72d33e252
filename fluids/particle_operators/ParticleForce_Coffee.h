#pragma once
// A force on particles by the user's own formula: the acceleration that a script returns for each.

#include "fluids/forces/ConstrainedForce.h"
#include "fluids/scripts/NodeScripts.h"

namespace orlix {

class ParticleForce_Coffee final : public ConstrainedForce {
 public:
  using ConstrainedForce::ConstrainedForce;
  static constexpr int kIntensityId = 1000, kForceDurationId = 1003;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 103; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_PARTICLE); }
  bool ReadParameters() override;
  void Advise() override;
  void ProcessRow(const ForceRow&) override {}
  void PrepareParticles(iBase* caller) override;
  void ProcessParticles(const ForceParticles& run) override;
  void Finish() override;

 protected:
  Duration* FindDuration() const override { return DurationOf(kForceDurationId); }

 private:
  // The particles [first, first + count) of a run, with the amount of each.
  void ProcessBatch(const ForceParticles& run, std::int32_t first, std::int32_t count, const double* amounts);

  C4D_CoffeeGui_PForce gui_;
  struct {
    const script::Input *position, *velocity, *index;
  } variables_ = {};  // those that the script reads
  double intensity_ = 1;
};

}  // namespace orlix
