#pragma once
// How densely particles stand: a kernel sum over the neighbours of each, relative to the densest place of the first
// step, and a centre smoothed by them.
//
//   density          min(sum, reference) / reference
//   kernel sum       min(sum, reference)
//   smoothed centre  0.8 x + 0.2 (weighted mean of the neighbours' places)
//
// The reference is measured in the stage of emitters of the first step, after the emitters, and stays with the group.

#include "fluids/helpers/Kernel.h"
#include "fluids/particle_operators/ParticleOperator.h"

namespace orlix {

class ParticleVolumeProperties final : public ParticleOperator {
 public:
  ParticleVolumeProperties(BaseList2D* object, OrlixScene& owner)
      : ParticleOperator(object, owner, kStageOperators, 1) {}
  static constexpr int kGroupId = 1000, kWriteCentreId = 1003, kRadiusId = 1004, kKernelModeId = 1005,
                       kWriteDensityId = 1008, kWriteSumId = 1009, kKindId = 1011, kKernelId = 1012;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 97; }
  bool EvaluatesOnUpdate() const override { return true; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void Conclude() override { WarnWithoutKind(kGroupId, kind_); }
  // After the emitters of particles and, among them, after the solvers.
  bool ComesBefore(const iBase& other) const override;
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;

 protected:
  std::vector<ParticleGroup*> WrittenGroups() const override { return {}; }  // neither positions nor velocities

 private:
  // What a particle's neighbours add up to.
  struct Sums {
    double sum = 0;
    Vec3D centre;
    bool any = false;
  };

  void Tag(ParticleList& list) const;
  Sums SumsAt(const Vec3D& position, std::int32_t worker) const;
  double LargestSum(const ParticleList& list) const;
  void Write(ParticleList& list) const;

  double radius_ = 0;  // m
  std::int32_t kind_ = PK_Liquid;
  bool writeCentre_ = false, writeDensity_ = true, writeSum_ = true;
  bool calibrating_ = false;
  KernelBase kernel_;

  // Between ResolveLinks and ReleaseLinks.
  ParticleGroup* group_ = nullptr;
  const Kernel* kernelNode_ = nullptr;
};

}  // namespace orlix
