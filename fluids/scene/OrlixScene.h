#pragma once
// The engine's picture of one simulation: it mirrors the host objects beneath one root as typed nodes, keeps them in
// lists, and runs them in a fixed sequence of stages.

#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "fluids/grids/ScratchPool.h"
#include "fluids/scene/NodeFactory.h"
#include "fluids/scene/Scene.h"
#include "fluids/scene/StepReport.h"
#include "fluids/scene/iObject.h"
#include "globals/Result.h"
#include "host/threads/WorkerPool.h"
#include "host/ui/StatusLine.h"

namespace orlix {

// What moves a scene's bodies by forces and contacts, and what follows the simulation outside of its nodes.
class iRigidWorld {
 public:
  virtual ~iRigidWorld() = default;
  // Before the volumes of a sub-step run, but for the first one.
  virtual void Step(OrlixScene& scene) = 0;
  // After the last sub-step of a simulated frame.
  virtual void EndFrame(OrlixScene& scene) = 0;
  virtual void Reset() = 0;
  virtual void VisitState(StateVisitor& visitor) = 0;
};

// What a scene needs of its host.
struct SceneHost {
  WorkerPool& pool;
  const NodeFactory& factory;
  StatusLine& status;
  StepObserver& observer;
};

// A volume that is asked to begin each sub-step but a frame's first simulated one.
class iSubstepBeginner {
 public:
  virtual ~iSubstepBeginner() = default;
  virtual void BeginSubstep() = 0;
};

class OrlixScene final : public Scene {
 public:
  OrlixScene(BaseObject& root, const SceneHost& sceneHost);
  ~OrlixScene();

  // The main step, once per host frame. True when the frame was handled, also when nothing had to be done; false when
  // a failure or a break ended it; thread's break ends long passes early.
  bool Step(const BaseThread* thread, bool renderingFrame);
  // Makes the container and the nodes with their settings, as the document has them now, without simulating: where a
  // kept state is put back, after which the next Step goes on from it.
  void BuildAt(bool renderingFrame);

  // The smaller of the frame's length and cellSize / speed x cfl; the speed is that of the fastest solver.
  double ComputeTimeStep(double minSquaredSpeed) const;
  void CheckDirty();
  // frameOffset, time of the frame (s), its simulated duration (s), the sub-step settings, and the motion-blur sample.
  void SetFrameParameters(std::int32_t frameOffset, float frameDuration, SubstepMode mode, double cflFactor,
                          double fixedTime, std::int32_t substeps, std::uint8_t minSubsteps, std::int32_t fps,
                          double sample, double samples);
  void SyncNodes();
  void DropOrphans();
  void EvaluateStage();
  void LoadCaches();
  bool Simulate(bool updateOnly);
  void VisualStage();
  void SaveCaches();
  void ResetNodes(bool hard);
  bool AnyDirty();
  bool TestBreak(const BaseThread* extraThread = nullptr) const;
  void SetStage(std::int32_t newStage);
  void ShowStatus(const std::string& text) { host_.status.Set(text); }
  int HostWorkers() const { return host_.pool.count(); }

  // Enters a node under its host object; false when that object has a node in the list.
  bool AddNode(std::int32_t baseType, std::unique_ptr<iBase> node);
  // The factory. False for an unknown id, and when an enabled node of the object exists.
  bool CreateNode(BaseObject* hostObject, std::int32_t id);
  void DestroyNodes();

  // The look-up of nearly every ResolveLinks: the node of a host object in a list (above 11: in all lists, in order)
  // that offers typeA and typeB (RETRIEVE_ANY tests nothing). Only enabled nodes are found.
  iBase* Retrieve(const BaseList2D* hostObject, std::int32_t baseType, std::int32_t typeA, std::int32_t typeB) const;
  template <class Node>
  Node* RetrieveAs(const BaseList2D* hostObject, std::int32_t baseType, std::int32_t typeA = RETRIEVE_ANY,
                   std::int32_t typeB = RETRIEVE_ANY) const {
    return dynamic_cast<Node*>(Retrieve(hostObject, baseType, typeA, typeB));
  }
  // Gathers enabled nodes. subType 2000 means any. A node passes when its mask equals typeMask, or typeBit isn't 31 and
  // its mask has that bit, or both are 31. With a filter, filterIsInclude true takes the filter's objects in their
  // order, false those that aren't in it.
  void RetrieveAll(const InExcludeData* filter, std::vector<iBase*>& out, std::int32_t baseType, std::uint32_t typeMask,
                   std::int32_t subType, std::int32_t typeBit, bool filterIsInclude) const;
  // Calls f(iBase&) for each node of the lists first to last, in order; list 9 is left out.
  template <class F>
  void ForEachNode(std::int32_t first, std::int32_t last, F&& f) const {
    for (std::int32_t list = first; list <= last; ++list) {
      for (const auto& [key, node] : lists_[list]) f(*node);
    }
  }

  BaseObject* GetHostObject() const { return handler.hostObject(); }
  BaseDocument* GetHostDocument() const { return handler.GetDocument(); }
  const Vec3D& GetGravity() const { return gravity; }
  const GridSpace& GetSimulationSpace() const { return space; }
  const SimulationInfo& GetSimulationInfo() const { return info; }
  WorkerPool& pool() const { return host_.pool; }
  ScratchPool& scratch() { return scratch_; }
  std::string Name() const { return GetHostObject()->Path(); }

  // For the user, once a run for each name and key.
  void Warn(const std::string& name, const std::string& key, const std::string& text);
  bool MissingCachesFail() const { return host_.observer.missingCachesFail; }
  bool WritesBehind() const { return host_.observer.writeBehind; }
  // A pass over what caches play back, and whether a node has a part in it.
  bool IsPass() const { return host_.observer.passNodes != nullptr; }
  bool PassHas(const iBase& node) const;
  // Whether a node rests in frames whose results nobody wants.
  bool MayRest(const iBase& node) const;
  // Whether it does now. What the scene's last frame leaves is shown in all frames after it.
  bool Rests(const iBase& node) const {
    return !host_.observer.isWanted && clock.frame + 1 < clock.endFrame && MayRest(node);
  }
  // The run is over: all nodes tell what they can say only now.
  void Conclude();
  // A cache plays this node back, or is told to.
  bool IsPlayed(const iBase& node) const;
  // Some node carries it. See iBase::Moves.
  bool IsMoved(const iBase& node) const;
  // What the frame's own stages took, after its sub-steps.
  const SpentSeconds& VisualSeconds() const { return visualSeconds_; }
  // The outcome of a solve, for the statistics of this sub-step.
  void Report(SolverReport report) { substepReport_.solvers.push_back(std::move(report)); }
  // What ended the simulation: a value that is no number, or memory that doesn't suffice. Stays until a hard reset.
  const std::optional<Error>& failure() const { return failure_; }
  void Fail(ErrorKind kind, std::string text);
  // Memory has no room for a grid of the node.
  void FailForMemory(const iBase& node, const VecInt3D& cells);

  // What the grids will take at most, when the containers have grown to their whole size. Level sets of volumes, whose
  // size follows their meshes, aren't part of it. 0 without a solver: then nothing bounds the container.
  MemoryForecast ForecastMemory() const;

  // All simulated state: the clock, then each node in list order. Names are "path:type".
  void VisitState(StateVisitor& visitor);
  std::uint64_t HashState(GridHashes* grids = nullptr);

  // The box that the channels that a cache plays back ask for in this sub-step, simulation space. It needs no margin:
  // it is the container that was recorded. only: no other node asked for a box.
  struct PlayedBounds {
    Vec3D min, max;
    bool only = false;
  };
  const std::optional<PlayedBounds>& playedBounds() const { return playedBounds_; }

  Vec3D gravity{0, -9.81, 0};
  std::int32_t rigidSubsteps = 10;
  const BaseThread* hostThread = nullptr;
  BaseContainer settingsCopy;

 private:
  friend class StageRunner;
  enum class FrameKind { Ignore, ResetOnly, Update, Simulate };
  RootSettings BeginStep(bool renderingFrame, bool& containerChanged);
  FrameKind DecideFrame(bool containerChanged, bool& resetDone);
  void StandAlone();
  bool RunUpdate();
  bool RunFrame(bool resetDone);
  bool RunSubsteps();
  bool ChooseSubstep(bool first, float minDt, float maxDt);
  void EndFrame();
  iBase* FindNode(const BaseList2D* hostObject, std::int32_t list) const;
  void RunBeginSubstep();
  void LinkCaches();
  bool UpdateBounds();
  void RefuseWhatDoesNotFit();
  void RunFinishStage(bool boundsValid);
  bool RunStageWork(bool updateOnly, bool& boundsValid);
  void StartReport();
  void FinishReport();

  SceneHost host_;
  std::unique_ptr<iRigidWorld> rigidWorld_;  // null where the factory has none
  ScratchPool scratch_;
  std::map<std::uint64_t, std::unique_ptr<iBase>> lists_[NODE_HELPER + 1];
  std::optional<Error> failure_;
  std::optional<PlayedBounds> playedBounds_;
  SubstepReport substepReport_;
  SpentSeconds visualSeconds_;
};

}  // namespace orlix
