#pragma once
// What happens beside the simulation, frame by frame: statistics, progress, results. SceneRun calls each listener in
// turn on the thread that drives the simulation.

#include <string>

#include "fluids/scene/OrlixHook.h"

namespace orlix {

struct RunState {
  BaseDocument& document;
  OrlixHook& hook;
  WorkerPool& pool;
  std::string outputFolder;
  int firstFrame = 0, lastFrame = 0;
  int startFrame = 0;        // the first that is simulated: after the checkpoint that the run goes on from
  int frame = 0;             // the current one
  bool wanted = true;        // its results are asked for; otherwise it is only simulated on the way
  double seconds = 0;        // that this frame took to simulate
  double secondsAFrame = 0;  // of the last frames, with their results; 0 before the first
  int framesDone = 0, framesLeft = 0;
  bool interrupted = false;
  bool standsAlone = false;  // nothing is simulated: each frame is made from what caches play
  Warnings& warnings;        // of the whole run; listeners tell theirs here, too
};

class FrameListener {
 public:
  virtual ~FrameListener() = default;
  virtual bool WantsHash() const { return false; }
  virtual Status BeforeRun(const RunState&) { return {}; }
  // Before the document's time moves to the frame. An error ends the run.
  virtual Status BeforeFrame(const RunState&) { return {}; }
  // A sub-step of one scene ended.
  virtual void AfterSubstep(const RunState&, const SubstepReport&) {}
  // Came from a node or a listener. In a frame it may come from any thread, one at a time.
  virtual void OnWarning(const RunState&, const Warning&) {}
  // The frame is whole. An error ends the run.
  virtual Status AfterFrame(const RunState&) { return {}; }
  // After the last frame, an interruption or an error.
  virtual Status AfterRun(const RunState&) { return {}; }
};

}  // namespace orlix
