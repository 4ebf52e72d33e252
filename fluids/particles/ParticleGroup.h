#pragma once
// A group of particles: four populations, one for each kind, with what finds neighbours in them.
//
// What a node finds here:
//   group.list(kind)            the particles, by columns: ParticleList.h (null while the group is inactive)
//   group.At(kind, index)       one particle: OrlixParticle.h
//   ParallelRows, ParallelChunks, ParticleRanges    one division of work among workers: ParticleList.h
//   list.Append(n, data)        n new ones like data (ParticleData.h); on one thread, in the order of the ranges
//   group.SetKindDirty(kind)    after particles came, left or moved: trees are stale
//   group.EnsureTree / Nearest / NearestCount       neighbours: ParticleKdTree.h
//   ParticleSort.h              particles by cells of a lattice, over several groups
//   RetrieveGroups              the groups of an include list, with kinds: GroupList.h
//   group.VisitOutputs(visitor) in the VisitOutputs of a node that writes positions or velocities
//
// Removal happens at the end of a sub-step; until then a dead particle stays in its list, and what must skip it
// tests ParticleFlag::Alive.

#include <atomic>
#include <memory>

#include "fluids/particles/ParticleFactory.h"
#include "fluids/particles/ParticleKdTree.h"
#include "fluids/scene/OrlixScene.h"

namespace orlix {

class ParticleGroup final : public iObject {
 public:
  static constexpr std::int32_t kSubType = 66;

  using iObject::iObject;
  static const TypeInfo& Type();
  std::int32_t GetNodeBaseType() const override { return NODE_PARTICLES; }
  std::int32_t GetNodeSubType() const override { return kSubType; }
  bool ResetWhenDirty() const override;
  bool ReadParameters() override;
  void CheckDirty() override;
  void ResetSimulation() override;
  void ExtendBounds(Vec3D& min, Vec3D& max) override;
  void EndStep() override { RemoveDeadAll(); }
  void AfterStep() override;
  void Conclude() override;
  void VisitState(StateVisitor& visitor) override;
  void VisitOutputs(StateVisitor& visitor) override;
  std::int64_t DerivedBytes() const override;
  MemoryNeed MemoryFor(const VecInt3D& cells) const override;
  void AddToReport(SubstepReport& report) override;

  ParticleFactory& factory(std::int32_t kind) { return factories_[kind]; }
  const ParticleFactory& factory(std::int32_t kind) const { return factories_[kind]; }
  ParticleList* list(std::int32_t kind) const { return factories_[kind].list(); }
  std::int32_t Count(std::int32_t kind) const { return factories_[kind].Count(); }
  std::int32_t CountAll() const;
  OrlixParticle At(std::int32_t kind, std::int32_t index) const { return factories_[kind].At(index); }
  // A plain particle; null while the group is inactive.
  OrlixParticle NewParticle(std::int32_t kind) { return factories_[kind].Make(BaseParticleData()); }

  void UpdateBounds();
  void RemoveDeadAll();
  // All particles of all kinds, and the trees.
  void Clear(bool alsoBase);
  // Active nodes of a sub type in a scene list; from NODE_ALL on, in all lists.
  std::int32_t CountNodes(std::int32_t list, std::int32_t subType) const;

  // Workers may set it.
  void SetKindDirty(std::int32_t kind) { dirty_.fetch_or(Bit(kind), std::memory_order_relaxed); }
  bool KindIsDirty(std::int32_t kind) const { return (dirty_.load(std::memory_order_relaxed) & Bit(kind)) != 0; }
  // A reset doesn't touch a kept kind and nothing moves it: a cache plays it.
  void SetKindKept(std::int32_t kind, bool kept) { kept_ = kept ? kept_ | Bit(kind) : kept_ & ~Bit(kind); }
  bool KindIsKept(std::int32_t kind) const { return (kept_ & Bit(kind)) != 0; }

  // Builds the tree of a kind unless it is there and not stale; force builds it in any case. k: how many neighbours a
  // query gives at most, 0 or less for 72; a tree that gives more already stays. False when the kind has no particles.
  bool EnsureTree(std::int32_t kind, bool force, std::int32_t k);
  const ParticleKdTree* Tree(std::int32_t kind) const { return trees_[kind].get(); }
  // Nearest first, strictly nearer than radius; none without a tree. Valid until the thread's next query.
  std::span<const Neighbour> Nearest(std::int32_t kind, const Vec3D& position, double radius,
                                     std::int32_t thread) const;
  // How many that would be, and how far the nearest is (infinity: none). Neither disturbs a result of Nearest.
  std::int32_t NearestCount(std::int32_t kind, const Vec3D& position, double radius, std::int32_t thread) const {
    return Tree(kind) ? Tree(kind)->Count(position, radius * radius, thread) : 0;
  }
  double NearestDistance(std::int32_t kind, const Vec3D& position, double radius, std::int32_t thread) const {
    return Tree(kind) ? Tree(kind)->NearestDistance(position, radius * radius, thread) : kNowhere;
  }

 private:
  static constexpr std::uint8_t Bit(std::int32_t kind) { return static_cast<std::uint8_t>(1u << kind); }
  void StartStep();
  void ResetKinds();

  ParticleFactory factories_[kParticleKinds];
  std::unique_ptr<ParticleKdTree> trees_[kParticleKinds];
  std::atomic<std::uint8_t> dirty_{0xF};
  std::uint8_t kept_ = 0;
};

}  // namespace orlix
