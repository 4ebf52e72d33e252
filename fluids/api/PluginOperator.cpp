#include "fluids/api/PluginOperator.h"

#include <fmt/format.h>

#include <algorithm>

namespace orlix {

bool PluginOperator::ReadParameters() {
  stageMask = StageBit(plugin_.type().stage);
  priority = 20;
  if (!iObject::ReadParameters() || !plugin_.ReadParameters()) return false;
  runsSerially_ = plugin_.Ask(ZQAPI::Question::RunsSerially);
  isIterated_ = plugin_.Ask(ZQAPI::Question::IsIterated);
  preparesEachIteration_ = plugin_.Ask(ZQAPI::Question::PreparesEachIteration);
  evaluatesOnUpdate_ = plugin_.Ask(ZQAPI::Question::EvaluatesOnUpdate);
  iterationCount = static_cast<std::int16_t>(isIterated_ ? plugin_.IterationCount() : 1);
  return true;
}

bool PluginOperator::ResolveLinks() {
  if (!iObject::ResolveLinks()) return false;
  duration_ = scene->RetrieveAs<Duration>(handler.GetLink(kDurationId), NODE_HELPER);
  constraints_ = RetrieveConstraints(*scene, handler);
  return plugin_.ResolveLinks();
}

void PluginOperator::ReleaseLinks() {
  plugin_.ReleaseLinks();
  constraints_.clear();
  duration_ = nullptr;
  iObject::ReleaseLinks();
}

void PluginOperator::Conclude() {
  if (!hasRun_ || plugin_.context().AsksConstraints() || RetrieveConstraints(*scene, handler).empty()) return;
  Warn("constraints-not-asked", fmt::format("its plug-in \"{}\" doesn't ask its constraints, so they confine nothing; "
                                            "take them out of the list",
                                            plugin_.type().plugin));
}

void PluginOperator::CheckDirty() {
  iObject::CheckDirty();
  const bool quiet = !scene->HasFlag(TimeMoved) && !IsDirty() && !(duration_ && duration_->IsDirty());
  if (!IsEnabled() || (quiet && !plugin_.CheckDirty())) return;
  MarkDirty(false);
  for (Constraint* constraint : constraints_) constraint->MarkDirty(false);
}

void PluginOperator::Prepare(iBase*) {
  isSetUp_ = false;
  if (!isIterated_) isDone_.store(false, std::memory_order_relaxed);
  strengthFactor_ = DurationWeight(duration_, simulationInfo->time);
  SetFlag(NodeActive, strengthFactor_ != 0 && plugin_.Prepare());
}

void PluginOperator::Setup() {
  isSetUp_ = true;
  if (!IsActive()) return;
  SetFlag(NodeActive, plugin_.Setup());
  for (Constraint* constraint : constraints_) constraint->Prepare(this);
  isConfined_ = hasRun_ = true;
  plugin_.context().constraints = constraints_;
}

void PluginOperator::Process(ProcessData& data) {
  if (runsSerially_ && !isSetUp_) Setup();  // a serial block has no phase for it
  if (!IsActive()) return;
  ZQAPI::ProcessData given;
  given.threadIndex = data.threadIndex;
  given.threadCount = runsSerially_ ? 1 : std::clamp(scene->threadCount, 1, WorkerPool::kMaxWorkers);
  given.lastThread = data.lastThread;
  given.iteration = std::max<std::int32_t>(iteration, 0);
  given.weight = strengthFactor_;
  given.breakTest = [](const void* source) { return static_cast<const OrlixScene*>(source)->TestBreak(); };
  given.breakSource = scene;
  if (!plugin_.Process(given)) isDone_.store(true, std::memory_order_relaxed);
}

bool PluginOperator::NextIteration() {
  if (!isDone_.load(std::memory_order_relaxed)) return iObject::NextIteration();
  isDone_.store(false, std::memory_order_relaxed);
  iteration = -1;
  return false;
}

void PluginOperator::Finish() {
  plugin_.Finish();
  if (isConfined_) {
    for (Constraint* constraint : constraints_) constraint->Finish();
  }
  isSetUp_ = isConfined_ = false;
  plugin_.context().constraints = {};
  SetFlag(NodeActive, false);
}

}  // namespace orlix
