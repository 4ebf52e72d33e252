#pragma once
// Sums forces on particles and writes the sum to their velocity or to a property.

#include "fluids/dynamics/Force.h"
#include "fluids/helpers/Property.h"
#include "fluids/particle_operators/ParticleOperator.h"

namespace orlix {

class ParticleForces final : public ParticleOperator {
 public:
  enum class Mode { Add, Set };

  ParticleForces(BaseList2D* object, OrlixScene& owner) : ParticleOperator(object, owner, kStageOperators, 20) {}
  static constexpr int kGroupsId = 1000, kForcesId = 1001, kActInId = 1003, kTargetId = 1004, kModeId = 1005,
                       kPerStepId = 1006;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 99; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void Conclude() override {
    orlix::WarnWithoutKind(*this, RetrieveGroups(*scene, handler, kGroupsId, 0));
    WarnWithoutProperty(kTargetId);
  }
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;
  void Finish() override;

 protected:
  std::vector<ParticleGroup*> WrittenGroups() const override;

 private:
  void Push(ParticleList& list, const ParticleRows& rows, std::int32_t worker) const;
  // The sums of the rows [begin, begin + count), where weights aren't 0.
  void Write(const ParticleRows& rows, std::int32_t begin, std::int32_t count, const double* weights,
             const Vec3D* forces) const;

  bool sets_ = false, perStep_ = true;
  double weight_ = 1;

  // Between ResolveLinks and ReleaseLinks.
  std::vector<GroupEntry> groups_;
  std::vector<Force*> forces_;
  const Duration* duration_ = nullptr;
  const iProperty* property_ = nullptr;  // null: the velocity
};

}  // namespace orlix
