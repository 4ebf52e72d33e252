#pragma once
// Turns particles of one population into particles of another, or removes them: spray that becomes mist, grains that a
// constraint chooses to melt.
//
//   one to one   each chosen particle gives one that takes its data
//   otherwise    a count of copies about its place, by a rate or 1
//
// Chosen are the particles at which constraints leave something of the duration's weight. What is made is appended in
// the order of the sources, and each chunk of them has its own random numbers.

#include "fluids/particle_emitters/ParticleEmissionSettings.h"
#include "fluids/particle_operators/ParticleOperator.h"
#include "fluids/particles/PropertyList.h"
#include "globals/Random.h"

namespace orlix {

class ParticleConverter final : public ParticleOperator {
 public:
  ParticleConverter(BaseList2D* object, OrlixScene& owner)
      : ParticleOperator(object, owner, kStageChannelsOperators, 20) {}
  static constexpr int kSourceId = 1000, kSourceKindId = 1001, kTargetId = 1002, kTargetKindId = 1003,
                       kOneToOneId = 1005, kRemoveSourceId = 1006, kRateId = 1007, kCountVariationId = 1008,
                       kPropertiesId = 1014;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 59; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;
  void Finish() override;

 protected:
  std::vector<ParticleGroup*> WrittenGroups() const override;

 private:
  static constexpr std::int32_t kNoKind = 100;  // of the target: particles are removed
  // A particle to be made: the index of what it is made from, and its place.
  struct Birth {
    std::int32_t source;
    Vec3D place;
  };

  void Choose(const ParticleRows& rows, std::vector<Birth>& births, std::int32_t worker) const;
  std::int64_t CopiesOf(double amount, MersenneTwister& random) const;
  void Make(std::span<const Birth> births) const;

  std::int32_t sourceKind_ = 0, targetKind_ = 0;
  bool oneToOne_ = false, removeSource_ = true;
  double countVariation_ = 0;

  // Between ResolveLinks and ReleaseLinks.
  ParticleGroup *source_ = nullptr, *target_ = nullptr;
  const ParticleEmissionSettings* rate_ = nullptr;
  GivenProperties properties_;  // what all new ones get

  double strength_ = 1, count_ = 1;
};

}  // namespace orlix
