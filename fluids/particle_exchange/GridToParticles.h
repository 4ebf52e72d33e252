#pragma once
// Samples a channel, a solver's velocity or a volume's distance at each particle and stores the value in a property.
//
//   target    from a vector              from a real
//   real      its length                 the value               only where the particle has the property
//   vector    the vector                 (value, value, value)   likewise; velocity and position it always has
//   state     whether it has a length    whether it isn't 0      likewise
//
// A particle outside the source's box keeps what it has.

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"
#include "fluids/helpers/Property.h"
#include "fluids/particle_exchange/PointSampler.h"
#include "fluids/particle_operators/ParticleOperator.h"
#include "fluids/volumes/VolumeBase.h"

namespace orlix {

class GridToParticles final : public ParticleOperator {
 public:
  // 0 the duration, 1 the source, 2 the property node.
  class GridToParticlesPortData : public iPortData {};
  enum Port : std::int32_t { kDurationPort = 0, kSourcePort = 1, kPropertyPort = 2 };

  GridToParticles(BaseList2D* object, OrlixScene& owner) : ParticleOperator(object, owner, kStageOperators, 20) {}
  static constexpr int kGroupsId = 1000, kSourceId = 1001, kActsInId = 1003, kPropertyId = 1004,
                       kInterpolationId = 1006;
  static const TypeInfo& Type();

  std::int32_t GetNodeSubType() const override { return 101; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void Advise() override;
  void Conclude() override {
    orlix::WarnWithoutKind(*this, RetrieveGroups(*scene, handler, kGroupsId, 0));
    WarnWithoutProperty(kPropertyId);
  }
  void ReleaseLinks() override;
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;
  void Finish() override;
  void VisitOutputs(StateVisitor& visitor) override;

 protected:
  std::vector<ParticleGroup*> WrittenGroups() const override;

 private:
  void FindSource();
  bool PrepareSampler();
  bool MovesParticles() const { return property_->propertyId == PP::Position; }
  void ProcessRows(ParticleList& list, const ParticleRows& rows, std::int32_t worker) const;
  void Store(const ParticleRows& rows, std::int32_t row, const SampledPoints& points) const;

  GridToParticlesPortData ports_;
  std::vector<GroupEntry> groups_;
  ChannelBase_Scalar* scalarChannel_ = nullptr;  // at most one source
  ChannelBase_Vector* vectorChannel_ = nullptr;
  iVolume* volume_ = nullptr;
  iProperty* property_ = nullptr;
  PropertyType target_ = PropertyType::Real;
  Interpolation interpolation_ = Interpolation::Trilinear;

  double weight_ = 1;
  PointSampler sampler_;
};

}  // namespace orlix
