#pragma once
// What nodes share that work on particles: when they act, and where.

#include <atomic>
#include <new>
#include <span>
#include <vector>

#include "fluids/constraints/Constraint.h"
#include "fluids/helpers/Duration.h"
#include "fluids/particles/GroupList.h"
#include "fluids/particles/KindChoices.h"

namespace orlix {

// At the end of a run, where no particle was ever of the kind: says so, and that the node did nothing. Links are gone
// by then, so entries are gathered anew.
void WarnWithoutKind(const iBase& node, std::span<const GroupEntry> entries);

class ParticleOperator : public iObject {
 public:
  // ownStage and ownPriority are the class's; the user's settings come on top.
  ParticleOperator(BaseList2D* object, OrlixScene& owner, Stage ownStage, std::int32_t ownPriority)
      : iObject(object, owner), ownStage_(ownStage), ownPriority_(ownPriority) {}
  std::int32_t GetNodeBaseType() const override { return NODE_OPERATOR; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_PARTICLE); }
  // Called once a pass, on the thread that drives the scene: it divides its own work.
  bool RunsSerially() const override { return true; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void CheckDirty() override;
  void Finish() override;
  void VisitOutputs(StateVisitor& visitor) override;

 protected:
  // The groups that the operator writes, each once; null for one that it doesn't find.
  virtual std::vector<ParticleGroup*> WrittenGroups() const = 0;

  ParticleGroup* LinkedGroup(std::int32_t linkId) const {
    return scene->RetrieveAs<ParticleGroup>(handler.GetLink(linkId), NODE_PARTICLES);
  }
  // The duration of an own link, or else of the link that all nodes have; null without one.
  Duration* LinkedDuration(std::int32_t linkId) const;
  void WarnWithoutKind(std::int32_t groupLinkId, std::int32_t kind) const {
    const GroupEntry entry{LinkedGroup(groupLinkId), kind};
    if (entry.group) orlix::WarnWithoutKind(*this, {&entry, 1});
  }
  // At the end of a run, where no particle that was to get the linked property had it.
  void WarnWithoutProperty(std::int32_t propertyLinkId) const;
  // Starts the constraints; Finish ends them while the node is active.
  void PrepareConstraints();
  // f(const ParticleRows&, worker) over all rows of a list on all workers, to a break. Memory that f doesn't get is
  // missed on the thread that drives the scene.
  template <class F>
  void ForRows(const ParticleList& list, F&& f) const {
    std::atomic<bool> outOfMemory{false};
    ParallelRows(scene->pool(), list, [&](const ParticleRows& rows, int worker) {
      if (scene->TestBreak()) return;
      try {
        f(rows, worker);
      } catch (const std::bad_alloc&) {
        outOfMemory.store(true, std::memory_order_relaxed);
      }
    });
    if (outOfMemory.load()) throw std::bad_alloc();
  }
  // What the constraints leave of start at the particles [first, first + count) of a list, for callers that hold room
  // for a chunk. A particle that is left out has 0.
  void Weigh(ParticleList& list, std::int32_t first, std::int32_t count, std::int32_t thread, double start,
             double* amounts) const;
  // The same for all particles of a list.
  void WeighAll(ParticleList& list, double start, std::vector<double>& amounts) const;

  std::vector<Constraint*> constraints_;
  // Whether particles were looked at for the property that a node writes, and whether some had it.
  mutable std::atomic<bool> looked_{false}, found_{false};

 private:
  Stage ownStage_;
  std::int32_t ownPriority_;
};

}  // namespace orlix
