#pragma once
// The main loop: the document's time, the engine's step, the listeners, frame after frame.

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "globals/Result.h"
#include "run/Engine.h"
#include "run/FrameListener.h"

namespace orlix {

// The frames that are simulated, and those whose results are wanted.
struct FramePlan {
  int first = 0, last = 0;
  int start = 0;             // where the run begins: first, unless it goes on from a checkpoint
  std::vector<int> wanted;   // ascending; empty for all
  bool onlyWanted = false;   // frames stand alone: the others are passed over
  bool rendering = false;    // for pictures: cells of render_voxel_size, and caches that act only then
  bool checkpoints = false;  // whether an interrupted run leaves one, for the message

  bool Wants(int frame) const;
  bool Runs(int frame) const { return !onlyWanted || Wants(frame); }
};

// All frames from the document's first on are simulated, since each builds on the one before; list only says whose
// results are wanted and where the run ends. The document's range grows to hold them. Usage for a frame before it.
Result<FramePlan> PlanFrames(BaseDocument& document, const std::optional<std::vector<int>>& list);

class SceneRun {
 public:
  SceneRun(Engine& engine, BaseDocument& document, WorkerPool& pool, std::string outputFolder);

  void AddListener(FrameListener& listener) { listeners_.push_back(&listener); }
  StatusLine& status() { return status_; }
  OrlixHook& hook() { return hook_; }
  // Whether a missing or broken file of a played cache ends the run: otherwise it is a warning.
  void SetMissingCachesFail(bool fail) { observer_.missingCachesFail = fail; }

  // For a run whose warnings aren't the scene's own, such as one with other cells.
  void TellNothing() { observer_.warnings.onWarning = nullptr; }

  // Nothing is simulated: only these objects' nodes work, on what caches play. See Passes.h.
  void StandAlone(std::set<std::uint64_t> nodes);

  // Builds the scene at its first frame and tells, as warnings, what can't work in it. Simulates nothing.
  Status Check();
  // What the grids will take at most; Memory when that is beyond the budget. Simulates nothing.
  Result<MemoryForecast> Forecast();
  // Until the plan's last frame, an error, or a signal, after the frame that is being made. In frames that the plan
  // doesn't want, nodes that only make surfaces rest, unless a listener wants hashes. See Passes.h.
  Status Run(const FramePlan& plan);
  const RunState& state() const { return state_; }

 private:
  StatusLine status_;
  StepObserver observer_;
  OrlixHook hook_;
  std::vector<FrameListener*> listeners_;
  RunState state_;
  std::set<std::uint64_t> passNodes_;
  bool measuredWanted_ = false;  // whether the last frame that was timed had its results made

  Status RunFrame(int frame, const FramePlan& plan);
  void PrepareInterrupt(const FramePlan& plan) const;
  Status RunFrames(const FramePlan& plan);
};

}  // namespace orlix
