#pragma once
// A force on the velocity of a solver. It is asked a row of cells at a time, so that nothing virtual happens per cell.

#include "fluids/grids/CellRow.h"
#include "fluids/particles/ParticleList.h"
#include "fluids/scene/iObject.h"

namespace orlix {

class GridBoundary;
class VelocityGridChannel;

struct ForceRow : CellRow {
  double *forceX = nullptr, *forceY = nullptr, *forceZ = nullptr;  // m/s to be added in this sub-step; forces add to it
};

// Some particles that follow each other in a list: element n is the particle first + n. At most kMost.
struct ForceParticles {
  static constexpr std::int32_t kMost = kChunkRows;
  ParticleList* list = nullptr;  // null: places alone
  std::int32_t first = 0, count = 0;
  std::int32_t threadIndex = 0;
  const Vec3D* positions = nullptr;  // simulation space
  const double* weights = nullptr;   // what the caller's constraints left; 0 for a particle that isn't asked for
  Vec3D* forces = nullptr;           // m/s to be added in this sub-step; forces add to it
};

class Force : public iObject {
 public:
  using iObject::iObject;
  std::int32_t GetNodeBaseType() const override { return NODE_FORCE; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_GRID); }

  // The velocity that is to be changed, and the boundary of its solver. Before Prepare, in each sub-step.
  virtual void AttachVelocity(VelocityGridChannel* velocity, GridBoundary* boundary) {
    velocity_ = velocity;
    boundary_ = boundary;
  }
  // Adds this force to the row. Called by all workers at once on different rows, after Prepare.
  virtual void ProcessRow(const ForceRow& row) = 0;

  // Of forces that offer RETRIEVE_PARTICLE; no velocity is attached for them. Decides whether it is Active; Finish ends
  // the pass.
  virtual void PrepareParticles(iBase* /*caller*/) { SetFlag(NodeActive, false); }
  // Adds this force to the particles. Called by all workers at once on different runs.
  virtual void ProcessParticles(const ForceParticles&) {}

 protected:
  VelocityGridChannel* velocity_ = nullptr;
  GridBoundary* boundary_ = nullptr;
};

}  // namespace orlix
