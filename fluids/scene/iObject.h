#pragma once
// A node that is evaluated in the stages of the pipeline.

#include "fluids/scene/iBase.h"

namespace orlix {

// What tells when a node acts.
class iActivity {
 public:
  virtual ~iActivity() = default;
  virtual bool IsActive(double time) const = 0;  // s
};

class iObject : public iBase {
 public:
  using iBase::iBase;

  // Hands a force or a channel operator the channel that it is to act on in this run.
  virtual void AttachInput(iBase*) {}
  // Decides whether the node has work to do in this stage and sets or clears Active. caller: the node that owns this
  // one, where one does.
  virtual void Prepare(iBase* /*caller*/ = nullptr) {}
  // Once per run, on the calling thread: gathers the pointers and tables that Process needs.
  virtual void Setup() {}
  // The real work. Of a node that doesn't run serially it is called at the same time on each worker, and the node
  // splits its work by the thread index.
  virtual void Process(ProcessData&) {}
  // Once per run, on the calling thread.
  virtual void Finish() {}
  // The first thing at the end of a sub-step, before AfterStep: a particle group lets its dead go.
  virtual void EndStep() {}
};

// A fluid solver, as the scene and the nodes below the solvers' layer see it.
class iSolver : public iObject {
 public:
  using iObject::iObject;
  std::int32_t GetNodeBaseType() const override { return NODE_SOLVER; }
  // The largest squared speed of the last sub-step, m^2/s^2.
  virtual double SquaredSpeed() const = 0;
  // The scalar channel that feeds the pressure solve, 1/s; null on a solver without one.
  virtual iBase* DivergenceSource() = 0;
  // Cells of the container when it has grown to its whole size.
  virtual VecInt3D MostCells() const { return {}; }
  // The container when it has grown to its whole size, simulation space; false where nothing bounds it.
  virtual bool WholeContainer(Vec3D&, Vec3D&) const { return false; }
  // The velocity channel, m/s; null on a solver without one.
  virtual iBase* Velocity() { return nullptr; }
  // The room that the container's closed faces leave, simulation space, without end on open sides; false where it has
  // no container.
  virtual bool RoomOfWalls(Vec3D&, Vec3D&) const { return false; }
  // It moves liquid particles of this group, or of any.
  virtual bool HoldsParticles(const iBase* = nullptr) const { return false; }
  // The liquid's level set, m, negative inside; null on a solver without a surface.
  virtual const ScalarGrid* GetSurfaceGrid() const { return nullptr; }
};

}  // namespace orlix
