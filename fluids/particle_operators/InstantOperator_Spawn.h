#pragma once
// Lets a particle burst into others at its first contact: splashes, sparks, dust.
//
// A particle's children draw from a stream of its own (the scene's seed and the particle's number), so that the same
// ones come at any number of workers. They join their list when the pass ends, in the order of their parents.

#include <atomic>

#include "fluids/particle_operators/InstantOperator.h"

namespace orlix {

class InstantOperator_Spawn final : public ConstrainedInstantOperator {
 public:
  using ConstrainedInstantOperator::ConstrainedInstantOperator;
  static constexpr int kCountId = 1001, kActInId = 1012, kCountVariationId = 1003, kLifeId = 1004,
                       kLifeVariationId = 1005, kAngleId = 1006, kAngleVariationId = 1007, kSpeedId = 1008,
                       kSpeedVariationId = 1009, kTargetId = 1010, kTargetKindId = 1014, kVerletId = 1015;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 111; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void Apply(std::int32_t event, std::span<ParticleContact> contacts, const InstantContext& context,
             std::int32_t thread) override;
  void End() override;

 private:
  struct Varied {
    double base = 0, variation = 0;
  };
  // What differs from a copy of the parent.
  struct Child {
    ParticleGroup* group;  // its parent's, and the list in it
    ParticleList* parents;
    std::int32_t parent;
    std::uint16_t flags;
    double age;
    Vec3D position, velocity, oldPosition, force;
    bool ballistic;  // takes the force
  };
  class Stream;

  std::int32_t DurationLinkId() const override { return kActInId; }
  void Burst(ParticleContact& contact, const InstantContext& context, std::int32_t count, Stream& random,
             std::vector<Child>& children) const;
  static void Add(const Child& child, ParticleList& list);

  Varied count_, life_, angle_, speed_;
  std::int32_t targetKind_ = PK_Passive;
  bool verlet_ = false;

  ParticleGroup* target_ = nullptr;                     // between ResolveLinks and ReleaseLinks
  std::vector<Child> broods_[WorkerPool::kMaxWorkers];  // of the pass that runs: what each worker made
  std::atomic<std::int64_t> wanted_{0};                 // children of this sub-step
};

}  // namespace orlix
