#pragma once
// Fills scalar channels inside a volume, cell by cell of the volume's level set.

#include <vector>

#include "fluids/channels/ChannelPair.h"
#include "fluids/constraints/Constraint.h"
#include "fluids/emitters/GridEmissionSettings.h"
#include "fluids/volume/VolumeBase.h"

namespace orlix {

// An emitter that carries a link to a volume.
class ObjectVolume : public iObject {
 public:
  using iObject::iObject;
  void ReleaseLinks() override {
    iObject::ReleaseLinks();
    volume = nullptr;
  }
  iVolume* volume = nullptr;
};

class ObjectGridEmitter final : public ObjectVolume {
 public:
  using ObjectVolume::ObjectVolume;
  static const TypeInfo& Type();
  std::int32_t GetNodeBaseType() const override { return NODE_EMITTER; }
  std::int32_t GetNodeSubType() const override { return 4; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_GRID); }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void CheckDirty() override;
  bool ComesBefore(const iBase& other) const override;
  void ExtendBounds(Vec3D& min, Vec3D& max) override;
  void Prepare(iBase* caller = nullptr) override;
  void Setup() override;
  void Process(ProcessData& data) override;
  void Finish() override;
  void VisitOutputs(StateVisitor& visitor) override;

 private:
  // What Process needs of a pair.
  struct Target {
    ChannelBase_Scalar* channel = nullptr;
    EmissionRule rule;
    EmissionFalloff falloff = EmissionFalloff::None;
    const SplineData* curve = nullptr;
    double weight = 1, amount = 0, value = 0;
  };
  void EmitCell(const VolumeBase& member, const Vec3D& point, const OwnedLayers* owned, int threadIndex) const;

  std::vector<ChannelPair*> pairs_;
  std::vector<Constraint*> constraints_;
  std::vector<VolumeBase*> members_;
  std::vector<double> weights_;
  std::vector<Target> targets_;
  int workers_ = 1;
};

}  // namespace orlix
