#pragma once
// Keeps sheets of liquid from tearing into drops: where particles lie flat and move apart, new ones fill the gaps, and
// where they crowd again the new ones go.
//
// A new particle stands half-way between two and takes a third of the mass of both: every particle has links, shares of
// masses, and what its links add up to is its mass.

#include "fluids/particle_operators/ParticleOperator.h"
#include "fluids/particle_operators/SheetAnisotropy.h"

namespace orlix {

class ParticleSheet final : public ParticleOperator {
 public:
  static constexpr std::int32_t kSubType = 95;  // ParticleGroup asks for it
  static constexpr int kGroupId = 1000, kRadiusId = 1001, kThinLimitId = 1002, kMinimumGapId = 1003,
                       kMaximumGapId = 1004, kChainRadiusId = 1005, kMinimumDensityId = 1006, kInteriorDensityId = 1007,
                       kCrowdedDensityId = 1008, kCollapseRadiusId = 1009, kComputeAnisotropyId = 1011, kKindId = 1012,
                       kSeparatingOnlyId = 1013;

  ParticleSheet(BaseList2D* object, OrlixScene& owner) : ParticleOperator(object, owner, kStageOperators, 5) {}
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return kSubType; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void Conclude() override { WarnWithoutKind(kGroupId, kind_); }
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;

 protected:
  std::vector<ParticleGroup*> WrittenGroups() const override { return {group_}; }

 private:
  // A place half-way between two particles that may get a new one.
  struct Candidate {
    Vec3D place;
    std::int32_t a = 0, b = 0;  // the parents
    double crowd = 0;           // kernel sum over the particles around
    SheetAnisotropy anisotropy;
  };

  void TellWithoutDensity(const ParticleList& list) const;
  void SetUp(ParticleList& list);
  void ComputeAnisotropies(ParticleList& list);
  std::vector<Candidate> FindGaps(const ParticleList& list) const;
  void AddGapsOf(const ParticleList& list, std::int32_t a, std::int32_t worker, std::vector<Neighbour>& near,
                 std::vector<Candidate>& found) const;
  void Insert(ParticleList& list, std::span<const Candidate> candidates);
  void Add(ParticleList& list, const Candidate& candidate);
  void SumMasses(ParticleList& list);
  bool KillCrowded(ParticleList& list);
  bool Chance(const ParticleList& list, std::int32_t index, std::uint64_t round) const;

  std::int32_t kind_ = PK_Liquid;
  double radius_ = 0, minimumGap_ = 0, maximumGap_ = 0, chainRadius_ = 0, collapseRadius_ = 0;  // m
  double thinLimit_ = 0, minimumDensity_ = 0, interiorDensity_ = 0, crowdedDensity_ = 0;
  bool computeAnisotropy_ = true, separatingOnly_ = true;

  ParticleGroup* group_ = nullptr;  // between ResolveLinks and ReleaseLinks
};

}  // namespace orlix
