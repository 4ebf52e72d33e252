#pragma once
// Many objects' polygons as one volume: each has a level set and a motion of its own, and all have the settings of the
// one host object. Emitters, constraints and solvers take the members (AppendVolumes).

#include <memory>
#include <vector>

#include "fluids/volumes/VolumeMesh.h"

namespace orlix {

class MultiVolume final : public iVolume {
 public:
  static constexpr int kObjectsId = 1100;

  MultiVolume(BaseList2D* hostObject, OrlixScene& owner);
  static const TypeInfo& Type();

  std::int32_t GetNodeSubType() const override { return 70; }
  // As an obstacle, when its members are.
  void GetRetrieveTypes(std::uint32_t& mask) const override;
  bool ReadParameters() override;
  bool ResolveLinks() override;
  // Makes the members of the listed objects, as ResolveLinks does: caches ask for them before a frame has links.
  void FindMembers();
  void ReleaseLinks() override;
  void Advise() override;
  void CheckDirty() override;
  bool IsDirty() const override;
  void ResetSimulation() override;
  void ClearState(bool deactivate) override;
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;
  void Finish() override;
  void VisitState(StateVisitor& visitor) override;
  void VisitOutputs(StateVisitor&) override {}
  std::int64_t DerivedBytes() const override;
  MemoryNeed MemoryFor(const VecInt3D& cells) const override;

  // The box of all members' boxes.
  void ComputeBounds() override;
  bool PrepareGrid() override { return true; }
  void AppendVolumes(std::vector<VolumeBase*>& out) override;

  std::size_t memberCount() const { return members_.size(); }
  VolumeMesh& member(std::size_t n) const { return *members_[n].node; }
  // The nearest surface's distance, m; the largest double without a member. A member answers in its own box alone.
  double SampleWorld(const Vec3D& p) const;
  bool InsideWorld(const Vec3D& p, double iso = 0) const;
  // By the first member that holds the point.
  bool PushOut(Vec3D& p, bool world, double offset) const;
  bool Collide(const Vec3D& p, VolumeHit& hit, double iso) const;

 private:
  struct Member {
    std::uint64_t object = 0;  // creation number
    std::unique_ptr<VolumeMesh> node;
  };
  std::vector<Member> members_;  // in the order of the list
};

}  // namespace orlix
