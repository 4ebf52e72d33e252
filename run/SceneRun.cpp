#include "run/SceneRun.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <chrono>

#include "fluids/caches/Cache_OperatorBase.h"
#include "fluids/scene/RootObject.h"
#include "run/Interrupt.h"
#include "run/Passes.h"

namespace orlix {

namespace {

constexpr int kRecentFrames = 8;

}  // namespace

bool FramePlan::Wants(int frame) const {
  return wanted.empty() || std::binary_search(wanted.begin(), wanted.end(), frame);
}

Result<FramePlan> PlanFrames(BaseDocument& document, const std::optional<std::vector<int>>& list) {
  const int first = document.minTime.Frame(document.fps);
  FramePlan plan{.first = first, .last = document.maxTime.Frame(document.fps), .start = first, .wanted = {}};
  if (!list) return plan;
  if (list->front() < plan.first) {
    return Error{ErrorKind::Usage,
                 fmt::format("--frames: frame {} lies before the scene's first, {}", list->front(), plan.first)};
  }
  plan.wanted = *list;
  plan.last = list->back();
  if (plan.last > document.maxTime.Frame(document.fps)) {
    document.maxTime = BaseTime::OfFrame(plan.last, document.fps);
  }
  return plan;
}

SceneRun::SceneRun(Engine& engine, BaseDocument& document, WorkerPool& pool, std::string outputFolder)
    : hook_(SceneHost{pool, engine.factory, status_, observer_}),
      state_{.document = document,
             .hook = hook_,
             .pool = pool,
             .outputFolder = std::move(outputFolder),
             .warnings = observer_.warnings} {
  observer_.writeBehind = true;
  observer_.onSubstep = [this](const SubstepReport& report) {
    for (FrameListener* listener : listeners_) listener->AfterSubstep(state_, report);
  };
  observer_.warnings.onWarning = [this](const Warning& warning) {
    spdlog::warn("{}: {}", warning.node, warning.text);
    for (FrameListener* listener : listeners_) listener->OnWarning(state_, warning);
  };
}

void SceneRun::StandAlone(std::set<std::uint64_t> nodes) {
  passNodes_ = std::move(nodes);
  observer_.passNodes = &passNodes_;
  state_.standsAlone = true;
}

Status SceneRun::Check() {
  BaseDocument& document = state_.document;
  if (Status status = document.SetTime(document.minTime); !status) return status;
  hook_.BuildScenes(document, false);
  if (const Error* failure = hook_.Failure()) return *failure;
  return {};
}

Result<MemoryForecast> SceneRun::Forecast() {
  if (Status status = Check(); !status) return status.error();
  MemoryForecast sum;
  for (const auto& [key, scene] : hook_.scenes()) {
    const MemoryForecast forecast = scene->ForecastMemory();
    sum.cells += forecast.cells;
    sum.bytes += forecast.bytes;
  }
  return sum;
}

void SceneRun::PrepareInterrupt(const FramePlan& plan) const {
  // Frames on the way tell nothing of one with a picture.
  const double seconds = state_.wanted && !measuredWanted_ ? 0 : state_.secondsAFrame;
  Interrupt::Prepare(fmt::format("interrupted: ends after frame {}{}{}; a second interrupt ends at once", state_.frame,
                                 plan.checkpoints ? " with a checkpoint" : "",
                                 seconds > 0 ? fmt::format(", in up to {:.2g} s", seconds) : ""));
}

// A frame that a second signal broke off is no result: no listener hears of it.
Status SceneRun::RunFrame(int frame, const FramePlan& plan) {
  using Clock = std::chrono::steady_clock;
  const auto since = [](Clock::time_point then) { return std::chrono::duration<double>(Clock::now() - then).count(); };
  const auto start = Clock::now();
  state_.frame = frame;
  state_.wanted = observer_.isWanted = plan.Wants(frame);
  PrepareInterrupt(plan);
  BaseDocument& document = state_.document;
  for (FrameListener* listener : listeners_) {
    if (Status status = listener->BeforeFrame(state_); !status) return status;
  }
  if (Status status = document.SetTime(BaseTime::OfFrame(frame, document.fps)); !status) return status;
  hook_.Execute(document, &Interrupt::Thread(), plan.rendering);
  if (const Error* failure = hook_.Failure()) return *failure;
  if (Interrupt::Broken()) return {};
  state_.seconds = since(start);
  ++state_.framesDone, --state_.framesLeft;
  for (FrameListener* listener : listeners_) {
    if (Status status = listener->AfterFrame(state_); !status) return status;
    if (Interrupt::Broken()) return {};
  }
  // The last few frames count: a plume that grows takes longer from frame to frame.
  const double weight = 1.0 / std::min(state_.framesDone, kRecentFrames);
  state_.secondsAFrame += (since(start) - state_.secondsAFrame) * weight;
  measuredWanted_ = state_.wanted;
  return {};
}

Status SceneRun::RunFrames(const FramePlan& plan) {
  state_.framesLeft = 0;
  for (int frame = plan.start; frame <= plan.last; ++frame) state_.framesLeft += plan.Runs(frame);
  for (int frame = plan.start; frame <= plan.last && Interrupt::Signal() == 0; ++frame) {
    if (!plan.Runs(frame)) continue;
    if (Status status = RunFrame(frame, plan); !status) return status;
  }
  return {};
}

Status SceneRun::Run(const FramePlan& plan) {
  state_.firstFrame = plan.first;
  state_.lastFrame = plan.last;
  state_.startFrame = plan.start;
  observer_.wantsHash = std::any_of(listeners_.begin(), listeners_.end(), [](auto* l) { return l->WantsHash(); });
  // A hash holds what a surface is made of in each frame.
  const bool mayRest = !observer_.wantsHash && !plan.wanted.empty();
  observer_.restingNodes = mayRest ? FindSurfaceMakers(state_.document) : std::set<std::uint64_t>();
  for (FrameListener* listener : listeners_) {
    if (Status status = listener->BeforeRun(state_); !status) return status;
  }
  Status outcome = RunFrames(plan);
  Status written = FlushCaches(hook_);
  if (outcome.ok()) outcome = std::move(written);
  if (outcome.ok() && !plan.rendering && state_.document.ObjectsOfType(kRootTypeId).empty()) {
    state_.warnings.Tell({"objects", "no-scene",
                          "none of them is a scene, so nothing was simulated; add one, with what takes part in it as "
                          "its children",
                          state_.frame});
  }
  // What only a whole simulation can tell: one that goes on doesn't know what was emitted before.
  const bool whole = plan.start <= state_.document.minTime.Frame(state_.document.fps);
  if (outcome.ok() && Interrupt::Signal() == 0 && whole && !state_.standsAlone) hook_.Conclude();
  state_.interrupted = Interrupt::Signal() != 0;
  for (FrameListener* listener : listeners_) {
    Status status = listener->AfterRun(state_);
    if (outcome.ok()) outcome = std::move(status);
  }
  return outcome;
}

}  // namespace orlix
