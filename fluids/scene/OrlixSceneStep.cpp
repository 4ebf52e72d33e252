// The main step of a scene: what a frame is, its sub-steps and their lengths.

#include <algorithm>
#include <cmath>

#include "fluids/scene/OrlixScene.h"
#include "fluids/scene/RootObject.h"

namespace orlix {

namespace {

constexpr int kMostSubsteps = 255;

// The pool is the host's: what a scene sets in it holds for its own step.
class PoolUse {
 public:
  PoolUse(WorkerPool& pool, const BaseThread* thread) : pool_(pool) { pool.WatchBreak(thread); }
  ~PoolUse() {
    pool_.Limit(0);
    pool_.WatchBreak(nullptr);
  }
  PoolUse(const PoolUse&) = delete;
  PoolUse& operator=(const PoolUse&) = delete;

 private:
  WorkerPool& pool_;
};

// Of an adaptive frame.
float LongestSubstep(const SimulationInfo& info) {
  return static_cast<float>(info.frameDuration / std::max<int>(info.minSubsteps, 1));
}

// The simulated time of a whole frame (s); the first one in which any passes has a single sub-step.
double TimeOfFrame(const Scene& scene) {
  const SimulationInfo& info = scene.info;
  const double fixed = static_cast<float>(info.substepDuration);
  const bool first = info.time == 0;
  if (scene.substepMode != SubstepMode::Adaptive) return first ? fixed : fixed * info.substepCount;
  return first ? std::min<double>(info.frameDuration, LongestSubstep(info)) : info.frameDuration;
}

}  // namespace

double OrlixScene::ComputeTimeStep(double minSquaredSpeed) const {
  for (const auto& [key, node] : lists_[NODE_SOLVER]) {
    if (const auto* solver = dynamic_cast<const iSolver*>(node.get())) {
      minSquaredSpeed = std::max(minSquaredSpeed, solver->SquaredSpeed());
    }
  }
  return std::min(info.frameDuration, space.cellSize / std::sqrt(minSquaredSpeed) * cfl);
}

void OrlixScene::SetFrameParameters(std::int32_t frameOffset, float frameDuration, SubstepMode mode, double cflFactor,
                                    double fixedTime, std::int32_t substeps, std::uint8_t minSubsteps, std::int32_t fps,
                                    double sample, double samples) {
  info.frame = frameOffset;
  info.frameDuration = frameDuration;
  info.fps = fps;
  info.substep = 0;
  info.substepCount = static_cast<std::uint8_t>(substeps);
  info.minSubsteps = minSubsteps;
  cfl = cflFactor;
  info.substepFraction = 1.0 / substeps;
  substepMode = mode;
  const double length = info.frameDuration;
  const bool blurred = sample > 0 && samples > 0;
  switch (mode) {
    case SubstepMode::Adaptive:
      info.substepDuration = length;
      break;
    case SubstepMode::FixedCount:
      info.substepDuration = blurred ? length / samples * sample : length / substeps;
      break;
    case SubstepMode::FixedTime:
      info.substepDuration = blurred ? fixedTime / substeps / samples * sample : fixedTime / substeps;
      break;
  }
  rigidSubsteps = handler.GetInt(RootSettings::kRigidSubstepsId);
}

OrlixScene::FrameKind OrlixScene::DecideFrame(bool containerChanged, bool& resetDone) {
  resetDone = false;
  if (clock.frame > clock.startFrame) {
    if (clock.frame >= clock.endFrame) return FrameKind::Ignore;
    if (containerChanged) {
      resetDone = true;
      clock.Reset();
      ResetNodes(true);
    } else if (clock.time == clock.lastTime) {
      return FrameKind::Update;
    }
    return FrameKind::Simulate;
  }
  if (clock.frame < clock.startFrame) {
    ResetNodes(true);
    return FrameKind::ResetOnly;
  }
  if (containerChanged || clock.lastFrame > clock.startFrame) {
    resetDone = true;
    ResetNodes(true);
  }
  return FrameKind::Simulate;
}

// The head of a step: settings, clock, container and nodes.
RootSettings OrlixScene::BeginStep(bool renderingFrame, bool& containerChanged) {
  SetFlag(ContainerChanged, false);
  SetFlag(TimeMoved, false);
  const RootSettings settings = RootSettings::Read(handler);
  seed = settings.seed;
  clock.Attach(*handler.GetDocument());
  clock.Update(settings.startFrame, settings.endFrame, settings.documentRange);
  SetFlag(TimeMoved, clock.time != clock.lastTime);
  visualSeconds_ = {};
  threadCount = settings.maxThreads >= 1 ? std::min(HostWorkers(), settings.maxThreads) : HostWorkers();
  host_.pool.Limit(threadCount);
  rendering = renderingFrame;
  SetStage(kStageStart);
  CheckDirty();
  containerChanged =
      UpdateSpace(settings.hostUnits, settings.metres, rendering ? settings.renderCellSize : settings.cellSize);
  SyncNodes();
  return settings;
}

void OrlixScene::BuildAt(bool renderingFrame) {
  const PoolUse use(host_.pool, nullptr);
  bool containerChanged;
  BeginStep(renderingFrame, containerChanged);
  EvaluateStage();
  SetStage(kStageFinishVisual);
  EvaluateStage();
  LinkCaches();
}

bool OrlixScene::Step(const BaseThread* thread, bool renderingFrame) {
  const PoolUse use(host_.pool, thread);
  hostThread = thread;
  gravity = handler.GetVector(RootSettings::kGravityId);
  bool containerChanged, resetDone;
  const RootSettings settings = BeginStep(renderingFrame, containerChanged);
  const FrameKind kind = DecideFrame(containerChanged, resetDone);
  if (kind == FrameKind::Ignore || kind == FrameKind::ResetOnly) return true;
  SetFrameParameters(clock.frameOffset, static_cast<float>(clock.frameLength * settings.timeScale), settings.mode,
                     settings.cfl, settings.fixedTime, settings.substeps,
                     static_cast<std::uint8_t>(settings.minSubsteps), static_cast<std::int32_t>(clock.fps),
                     rendering ? blurSample : 0, rendering ? blurSamples : 0);
  if (IsPass()) StandAlone(), resetDone = true;
  LoadCaches();
  return kind == FrameKind::Update ? RunUpdate() : RunFrame(resetDone);
}

// Each frame of a pass begins anew, at the time that a simulation has there: its results don't depend on what was done
// before it.
void OrlixScene::StandAlone() {
  ResetNodes(true);
  for (std::int64_t f = std::int64_t(clock.frame) - clock.startFrame; f > 1; --f) info.time += TimeOfFrame(*this);
}

void OrlixScene::EndFrame() {
  SetStage(kStageFinishVisual);
  EvaluateStage();
  SaveCaches();
  clock.Finish();
}

bool OrlixScene::RunUpdate() {
  SetStage(kStageUpdate);
  EvaluateStage();
  if (!AnyDirty()) {
    SetStage(kStageFinishVisual);
    EvaluateStage();
    return true;
  }
  const bool whole = !TestBreak() && Simulate(true);
  if (whole) VisualStage();
  EndFrame();
  return whole;
}

bool OrlixScene::RunFrame(bool resetDone) {
  SetStage(kStageStart);
  EvaluateStage();
  if (!AnyDirty() || TestBreak()) {
    EndFrame();
    return true;
  }
  if (!resetDone && (clock.frame <= clock.startFrame || info.time == 0)) ResetNodes(false);
  const bool whole = RunSubsteps() && !TestBreak();
  if (whole) {
    ShowStatus({});
    VisualStage();
    if (rigidWorld_) rigidWorld_->EndFrame(*this);
  }
  EndFrame();
  return whole;
}

// Sets the length of the next adaptive sub-step, of which the frame has consumed frameElapsed. True for the last one.
bool OrlixScene::ChooseSubstep(bool first, float minDt, float maxDt) {
  const double frameLength = info.frameDuration, elapsed = info.frameElapsed;
  double d = first ? frameLength : ComputeTimeStep(1e-16);
  if (d > maxDt)
    d = maxDt;
  else if (d < minDt)
    d = minDt;
  else if (d > frameLength)
    d = frameLength;
  // The counters are bytes: the 255th sub-step takes what is left.
  const bool noMore = info.substep >= kMostSubsteps - 1;
  bool last = false;
  if (d + elapsed >= frameLength || noMore) {
    d = frameLength - elapsed;
    last = true;
  } else if (1.5 * d + elapsed >= frameLength) {
    // The two last sub-steps share what is left: no tiny rest.
    d = (frameLength - elapsed) * 0.5;
  }
  info.substepDuration = d;
  info.substepFraction = d == 0 ? 0 : d / frameLength;
  info.frameRemaining -= info.substepFraction;
  if (elapsed != 0) {
    ++info.substep;
    info.substepCount = static_cast<std::uint8_t>(std::min(info.substepCount + 1, kMostSubsteps));
  } else if (last) {
    info.substep = 1, info.substepCount = 1;
  } else {
    // After the first of several at least one more will come.
    info.substepCount = static_cast<std::uint8_t>(info.substepCount + 2), ++info.substep;
  }
  return last;
}

bool OrlixScene::RunSubsteps() {
  info.frameElapsed = 0;
  info.frameRemaining = 1;
  const double frameLength = info.frameDuration;
  const float maxDt = LongestSubstep(info);
  const float minDt = static_cast<float>(frameLength / std::max<int>({info.substepCount, info.minSubsteps, 1}));
  const bool adaptive = substepMode == SubstepMode::Adaptive;
  if (adaptive) info.substepCount = 0;
  const float fixedDt = static_cast<float>(info.substepDuration);
  const double passLength = TimeOfFrame(*this);
  info.lastSubstep = false;
  for (int i = 0;; ++i) {
    const bool first = info.time == 0;
    bool last;
    double d;
    if (IsPass()) {
      d = info.substepDuration = passLength;
      last = true;
    } else if (adaptive) {
      last = ChooseSubstep(first, minDt, maxDt);
      d = info.substepDuration;
    } else {
      d = fixedDt;
      info.substep = static_cast<std::uint8_t>(i + 1);
      info.frameRemaining = 1 - info.substep * info.substepFraction;
      last = i == info.substepCount - 1;
    }
    info.frameElapsed += d;
    ShowStatus("Substep: " + std::to_string(info.substep));
    // The first simulated frame has a single sub-step.
    if (first || info.frame == 0) last = true;
    info.lastSubstep = last;
    if (!Simulate(false)) return false;
    SetStage(kStageFinishSubstep);
    if (HasFlag(TimeMoved) && clock.frame > clock.startFrame) info.time += d;
    if (last) return true;
  }
}

}  // namespace orlix
