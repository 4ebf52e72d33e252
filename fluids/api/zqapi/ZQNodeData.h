#pragma once
// What a plug-in derives its nodes from. An object of the scene file has one node of the plug-in, whose phases the
// engine calls in this order:
//
//   each frame             ReadParameters, ResolveLinks, ..., ReleaseLinks
//   each sub-step, or      Prepare, Setup           on the driving thread
//   each pass of a caller  Process or Evaluate      on all workers at once
//                          Finish                   on the driving thread
//
// A phase that gives false makes the node idle to its next Prepare. An exception that leaves one ends the run with the
// node's name and the exception's text.

#include "ZQIterators.h"

namespace TESSU_API {

using namespace ZQAPI;  // NOLINT: the names that nodes are written with

class ZQNodeData {
 public:
  virtual ~ZQNodeData() = default;
  // ORs what the node offers: RetrieveBit(...).
  virtual void GetRetrieveTypes(std::uint32_t& /*mask*/) {}
  // Whether something beside the object's settings, its links and the time asks for a new run.
  virtual bool CheckDirty(BaseDocument* /*document*/) { return false; }
  // Reads the object's settings.
  virtual bool ReadParameters(BaseObject* host) { return host != nullptr; }
  // Finds other nodes; every one has read its settings by now.
  virtual bool ResolveLinks(BaseObject* host, ZQServer* server) { return host && server; }
  // Forgets them.
  virtual void ReleaseLinks() {}

  // The simulation starts anew: forgets all that was simulated.
  virtual void Reset() {}
  // Of a type with State::Saved: all that is kept from one sub-step to the next, for checkpoints. A resumed run has the
  // same bits only if this is whole. LoadState gives false for bytes that it can't take.
  virtual void SaveState(std::vector<std::uint8_t>& /*bytes*/) const {}
  virtual bool LoadState(const std::uint8_t* /*bytes*/, std::size_t size) { return size == 0; }
};

// A node that runs in a stage and changes grids or particles.
class PluginOperatorData : public ZQNodeData {
 public:
  virtual bool Prepare(ZQServer*) { return true; }
  virtual bool Setup(ZQServer*) { return true; }
  // On every worker, unless the node RunsSerially: it does the share of data.threadIndex of data.threadCount.
  virtual bool Process(ProcessData& data) = 0;
  virtual void Finish() {}
  // Process is called once, on the driving thread.
  virtual bool RunsSerially() { return false; }
  // Process is called IterationCount times, with data.iteration from 0 on; workers meet between.
  virtual bool IsIterated() { return false; }
  // Prepare, Setup and Finish go around each of these and not around all.
  virtual bool PreparesEachIteration() { return false; }
  // The node runs also when settings changed and the time stands.
  virtual bool EvaluatesOnUpdate() { return false; }
  virtual std::int32_t IterationCount() { return 1; }
};

// A push on a fluid or on particles, asked for at places. A force overrides one of the two Evaluates.
class PluginForceData : public ZQNodeData {
 public:
  // Solvers take forces with RETRIEVE_GRID, particle_forces those with RETRIEVE_PARTICLE.
  void GetRetrieveTypes(std::uint32_t& mask) override {
    mask |= RetrieveBit(RETRIEVE_GRID) | RetrieveBit(RETRIEVE_PARTICLE);
  }
  virtual bool Prepare(ZQServer*) { return true; }
  virtual bool Setup(ZQServer*) { return true; }
  // One place: data.force += an acceleration in m/s^2 times data.weight. False: nothing is added there. By its type,
  // data.isParticle, it is a ProcessDataGrids or a ProcessDataParticles. Workers call it at once.
  virtual bool Evaluate(ProcessDataPlace& /*data*/) const { return false; }
  // Many at once, which is the fast form.
  virtual void EvaluateBatch(const ForceBatch& batch) const {
    for (std::int32_t n = 0; n < batch.count; ++n) {
      if (batch.weights[n] != 0) EvaluateOne(batch, n);
    }
  }
  virtual void Finish() {}
  // Evaluate looks at velocities.
  virtual bool ReadsVelocity() { return false; }

 private:
  void EvaluateOne(const ForceBatch& batch, std::int32_t n) const {
    const auto evaluate = [&](auto& data) {
      data.threadIndex = batch.threadIndex;
      data.isParticle = batch.isParticle;
      data.weight = batch.weights[n];
      data.position = batch.Position(n);
      if (batch.u) data.velocity = batch.Velocity(n);
      data.force = {batch.pushX[n], batch.pushY[n], batch.pushZ[n]};
      if (!Evaluate(data)) return;
      batch.pushX[n] = data.force.x, batch.pushY[n] = data.force.y, batch.pushZ[n] = data.force.z;
    };
    if (!batch.isParticle) {
      ProcessDataGrids data;
      data.cellIndex = batch.firstIndex + n;
      return evaluate(data);
    }
    ProcessDataParticles data;
    data.group = batch.group, data.kind = batch.kind;
    data.index = static_cast<std::int32_t>(batch.firstIndex) + n;
    evaluate(data);
  }
};

// A factor by place, for everything that has a list of constraints. It overrides one of the two Evaluates.
class PluginConstraintData : public ZQNodeData {
 public:
  virtual bool Prepare(ZQServer*) { return true; }
  virtual bool Setup(ZQServer*) { return true; }
  // Scales value. False: it stays as it is, and the node's intensity doesn't enter. Workers call it at once.
  virtual bool Evaluate(const Vec3D& /*position*/, double& /*value*/, std::int32_t /*thread*/) const { return false; }
  virtual void EvaluateBatch(const ConstraintBatch& batch) const {
    for (std::int32_t n = 0; n < batch.count; ++n) {
      if (batch.asked[n] && !Evaluate(batch.Position(n), batch.values[n], batch.threadIndex)) batch.asked[n] = 0;
    }
  }
  virtual void Finish() {}
};

}  // namespace TESSU_API
