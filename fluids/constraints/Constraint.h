#pragma once
// A constraint decides how strongly something acts at a place. Emitters, forces and operators hold lists of them and
// run them in list order for each cell: each scales a running amount and may end the chain.
//
//   amount = dt
//   for each enabled constraint, until one gives false or the amount is 0:  constraint.Evaluate(position, amount, ...)
//   an amount of 0 drops the place
//
// A chain over a row of cells asks each constraint once a row. A class with a faster way than a loop over Evaluate
// overrides EvaluateRow, with the same results.

#include <memory>
#include <span>

#include "fluids/grids/CellRow.h"
#include "fluids/particles/OrlixParticle.h"
#include "fluids/scene/OrlixScene.h"

namespace orlix {

struct ConstraintRow : CellRow {
  double* amounts = nullptr;     // 0 at cells that aren't asked for
  std::uint8_t* open = nullptr;  // 1 where the chain goes on, 0 where it ended or that isn't asked for
};

// Some particles that follow each other in a list: element n is the particle first + n.
struct ParticleRun {
  ParticleList* list = nullptr;
  std::int32_t first = 0, count = 0;
  std::int32_t threadIndex = 0;
  const Vec3D* positions = nullptr;  // simulation space; may differ from those in the list
  double* amounts = nullptr;         // 0 at particles that aren't asked for
  std::uint8_t* open = nullptr;      // as in a row of cells
};

class Constraint : public iBase {
 public:
  using iBase::iBase;
  static constexpr int kInvertId = 1100, kIntensityId = 1103;
  std::int32_t GetNodeBaseType() const override { return NODE_HELPER; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_CONSTRAINT); }
  bool ReadParameters() override;

  // Before and after a pass of caller, on the stage's thread. Several callers may have prepared a constraint at once.
  virtual void Prepare(const iBase* /*caller*/) {}
  virtual void Finish() {}
  // position in simulation space. False ends the chain; the caller then goes by the amount. A subclass ends with this
  // base form, so that intensity enters once. Called by all workers at once, threadIndex in [0, 64).
  virtual bool Evaluate(const Vec3D& position, double& amount, const iBase* caller, std::int32_t threadIndex) const;
  virtual bool EvaluateParticle(const Vec3D& position, double& amount, const iBase* caller, std::int32_t threadIndex,
                                const OrlixParticle* /*particle*/) const {
    return Evaluate(position, amount, caller, threadIndex);
  }
  // EvaluateParticle for each open particle of the run; closes those for which it gives false.
  virtual void EvaluateParticles(const ParticleRun& run, const iBase* caller) const;
  // Evaluate at each open cell of the row; closes the cells where it gives false.
  virtual void EvaluateRow(const ConstraintRow& row, const iBase* caller) const;
  // A constraint of the same class, parameters and links, for a caller that keeps its own.
  virtual std::unique_ptr<Constraint> Clone() const = 0;

  bool Inverted() const { return HasFlag(NodeInvert); }

  double intensity = 1;  // final factor

 protected:
  // What a subclass's Clone returns. Settings and links are read anew from the object that both stand for.
  template <class Derived>
  static std::unique_ptr<Constraint> CloneOf(const Derived& original) {
    auto clone = std::make_unique<Derived>(original.handler.hostObject(), original.GetScene());
    clone->ReadParameters();
    clone->ResolveLinks();
    clone->flags = original.flags;
    return clone;
  }
};

// The rows that every constraint has, followed by those that every node has.
std::span<const Parameter> ConstraintParameters();
// The constraints of a node's list 2502, in list order; no list gives none.
std::vector<Constraint*> RetrieveConstraints(const OrlixScene& scene, const C4D_InterfaceHandler& handler);

// Runs the chain at one place.
void EvaluateChain(std::span<Constraint* const> chain, const Vec3D& position, double& amount, const iBase* caller,
                   std::int32_t threadIndex);
// Runs the chain over a row. The caller fills amounts and open; a place where the chain came to 0 is one to leave out.
void EvaluateChain(std::span<Constraint* const> chain, const ConstraintRow& row, const iBase* caller);
// The same for a particle, and for a run of them.
void EvaluateChain(std::span<Constraint* const> chain, const Vec3D& position, double& amount, const iBase* caller,
                   std::int32_t threadIndex, const OrlixParticle& particle);
void EvaluateChain(std::span<Constraint* const> chain, const ParticleRun& run, const iBase* caller);

}  // namespace orlix
