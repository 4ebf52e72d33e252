#pragma once
// Forces on bodies: what force nodes give at a body's centre, at the points of its mesh, or at the cells of its
// surface, acts on it in the next sub-step. A force node gives an acceleration; here the number counts as newtons.

#include <vector>

#include "fluids/dynamics/Force.h"
#include "fluids/volumes/VolumeBase.h"

namespace orlix {

class Bullet_VelocityEmitter final : public iObject {
 public:
  enum class Sampling { Centre, Points, Surface };
  static constexpr int kBodiesId = 1000, kForcesId = 1001, kSamplingId = 1002, kLeaveOutId = 1003;

  Bullet_VelocityEmitter(BaseList2D* hostObject, OrlixScene& owner);
  static const TypeInfo& Type();
  std::int32_t GetNodeBaseType() const override { return NODE_OPERATOR; }
  std::int32_t GetNodeSubType() const override { return 9; }
  bool RunsSerially() const override { return true; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void CheckDirty() override;
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;
  void Finish() override;

 private:
  // The forces' sum at some places, N.
  void ForcesAt(const std::vector<Vec3D>& places, int worker, std::vector<Vec3D>& forces) const;
  void PushPoints(VolumeBase& volume, int worker) const;
  void PushSurface(VolumeBase& volume, int worker) const;

  Sampling sampling_ = Sampling::Centre;
  std::vector<VolumeBase*> bodies_;
  std::vector<Force*> forces_;
};

}  // namespace orlix
