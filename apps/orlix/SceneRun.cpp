#include "apps/orlix/SceneRun.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <chrono>

namespace orlix {

bool FramePlan::Wants(int frame) const {
  return wanted.empty() || std::binary_search(wanted.begin(), wanted.end(), frame);
}

Result<FramePlan> PlanFrames(BaseDocument& document, const std::optional<std::vector<int>>& list) {
  FramePlan plan{document.minTime.Frame(document.fps), document.maxTime.Frame(document.fps), {}};
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
      state_{.document = document, .hook = hook_, .pool = pool, .outputFolder = std::move(outputFolder)} {
  observer_.onSubstep = [this](const SubstepReport& report) {
    for (FrameListener* listener : listeners_) listener->AfterSubstep(state_, report);
  };
  observer_.onWarning = [](const std::string& node, const std::string& text) { spdlog::warn("{}: {}", node, text); };
}

Status SceneRun::RunFrame(int frame, const BaseThread& thread) {
  const auto start = std::chrono::steady_clock::now();
  state_.frame = frame;
  BaseDocument& document = state_.document;
  if (Status status = document.SetTime(BaseTime::OfFrame(frame, document.fps)); !status) return status;
  hook_.Execute(document, &thread, false);
  if (const Error* failure = hook_.Failure()) return *failure;
  if (thread.TestBreak()) return {};  // the frame isn't whole
  state_.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  ++state_.framesDone;
  for (FrameListener* listener : listeners_) {
    if (Status status = listener->AfterFrame(state_); !status) return status;
  }
  return {};
}

Status SceneRun::RunFrames(const FramePlan& plan, const BaseThread& thread) {
  for (int frame = plan.first; frame <= plan.last && !thread.TestBreak(); ++frame) {
    state_.wanted = plan.Wants(frame);
    if (Status status = RunFrame(frame, thread); !status) return status;
  }
  return {};
}

Status SceneRun::Run(const FramePlan& plan, const BaseThread& thread) {
  state_.firstFrame = plan.first;
  state_.lastFrame = plan.last;
  observer_.wantsHash = std::any_of(listeners_.begin(), listeners_.end(), [](auto* l) { return l->WantsHash(); });
  for (FrameListener* listener : listeners_) {
    if (Status status = listener->BeforeRun(state_); !status) return status;
  }
  Status outcome = RunFrames(plan, thread);
  state_.interrupted = thread.TestBreak();
  for (FrameListener* listener : listeners_) {
    Status status = listener->AfterRun(state_);
    if (outcome.ok()) outcome = std::move(status);
  }
  return outcome;
}

}  // namespace orlix
