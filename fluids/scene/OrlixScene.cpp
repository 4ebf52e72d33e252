#include "fluids/scene/OrlixScene.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>

#include "fluids/scene/RootObject.h"
#include "fluids/scene/SceneAdvice.h"
#include "fluids/scene/StageRunner.h"
#include "fluids/scene/StateCheck.h"
#include "globals/ByteSize.h"

namespace orlix {

namespace {

// A host object that derives from a plug-in base type is built by that base type.
constexpr std::int32_t kPluginBases[] = {1300139, 1300140, 1300141};
constexpr std::int32_t kParticleGroupSubType = 66;
constexpr std::int32_t kAnySubType = 2000;

}  // namespace

OrlixScene::OrlixScene(BaseObject& root, const SceneHost& sceneHost)
    : Scene(root),
      host_(sceneHost),
      rigidWorld_(sceneHost.factory.makeRigidWorld ? sceneHost.factory.makeRigidWorld() : nullptr) {}
OrlixScene::~OrlixScene() { DestroyNodes(); }

void OrlixScene::CheckDirty() { settingsCopy = GetHostObject()->container(); }

void OrlixScene::SetStage(std::int32_t newStage) {
  stage = newStage;
  ShowStatus(std::string("PipelineStage: ") + StageLabel(newStage));
}

bool OrlixScene::TestBreak(const BaseThread* extraThread) const {
  return failure_ || (hostThread && hostThread->TestBreak()) || (extraThread && extraThread->TestBreak());
}

void OrlixScene::Warn(const std::string& name, const std::string& key, const std::string& text) {
  host_.observer.warnings.Tell({.node = name, .key = key, .text = text, .frame = clock.frame});
}

void OrlixScene::Conclude() {
  if (failure_) return;
  if (clock.document &&
      (clock.startFrame > clock.frame || clock.endFrame <= clock.document->minTime.Frame(clock.fps))) {
    return Warn(GetHostObject()->Path(), "no-frames",
                fmt::format("its range, frames {} to {}, has none of the run's, so nothing was simulated; set "
                            "\"start_frame\" and \"end_frame\", or \"document_range\"",
                            clock.startFrame, clock.endFrame - 1));
  }
  if (clock.frame <= clock.startFrame) return;  // the start alone has shown nothing yet
  ForEachNode(NODE_CHANNEL, NODE_HELPER, [](iBase& node) {
    if (node.IsEnabled()) node.Conclude();
  });
  ConcludeGases(*this);
}

bool OrlixScene::IsPlayed(const iBase& node) const {
  bool played = node.HasFlag(NodeFromCache);
  ForEachNode(NODE_CACHE, NODE_CACHE,
              [&](const iBase& cache) { played = played || (cache.IsEnabled() && cache.PlaysBack(node)); });
  return played;
}

bool OrlixScene::PassHas(const iBase& node) const {
  return host_.observer.passNodes->contains(node.handler.hostObject()->creationNumber());
}

bool OrlixScene::MayRest(const iBase& node) const {
  return host_.observer.restingNodes.contains(node.handler.hostObject()->creationNumber());
}

bool OrlixScene::IsMoved(const iBase& node) const {
  bool moved = false;
  ForEachNode(NODE_CHANNEL, NODE_PARTICLES,
              [&](const iBase& other) { moved = moved || (other.IsEnabled() && other.Moves(node)); });
  return moved;
}

void OrlixScene::Fail(ErrorKind kind, std::string text) {
  if (!failure_) failure_ = Error{kind, std::move(text)};
}

void OrlixScene::FailForMemory(const iBase& node, const VecInt3D& cells) {
  const double bytes = 8.0 * cells.x * cells.y * cells.z;
  Fail(ErrorKind::Memory, fmt::format("\"{}\": a grid of {} x {} x {} cells, {}, doesn't fit; the memory budget is {}",
                                      node.DisplayName(), cells.x, cells.y, cells.z, ByteSizeText(bytes),
                                      GridMemoryBudget() > 0 ? ByteSizeText(static_cast<double>(GridMemoryBudget()))
                                                             : "what the machine has"));
}

// --- the lists -------------------------------------------------------------------------------------------------------

iBase* OrlixScene::FindNode(const BaseList2D* hostObject, std::int32_t list) const {
  const auto found = lists_[list].find(hostObject->creationNumber());
  return found == lists_[list].end() ? nullptr : found->second.get();
}

bool OrlixScene::AddNode(std::int32_t baseType, std::unique_ptr<iBase> node) {
  if (!node || baseType < NODE_CHANNEL || baseType > NODE_HELPER || !node->handler.HasObject()) return false;
  return lists_[baseType].emplace(node->handler.hostObject()->creationNumber(), std::move(node)).second;
}

bool OrlixScene::CreateNode(BaseObject* hostObject, std::int32_t id) {
  if (!hostObject || Retrieve(hostObject, NODE_ALL, RETRIEVE_ANY, RETRIEVE_ANY)) return false;
  std::unique_ptr<iBase> node = host_.factory.Create(id, *hostObject, *this);
  if (!node) return false;
  const std::int32_t list = node->GetNodeBaseType();
  return AddNode(list, std::move(node));
}

void OrlixScene::DestroyNodes() {
  for (auto& list : lists_) list.clear();
}

void OrlixScene::SyncNodes() {
  const auto visit = [&](auto&& self, BaseObject& object) -> void {
    if (object.IsInstanceOf(kRootTypeId)) {
      std::int32_t id = object.typeId();
      for (const std::int32_t base : kPluginBases) {
        if (object.IsInstanceOf(base)) id = base;
      }
      CreateNode(&object, id);
    }
    for (const auto& child : object.children()) self(self, *child);
  };
  for (const auto& child : GetHostObject()->children()) visit(visit, *child);
  DropOrphans();
}

void OrlixScene::DropOrphans() {
  for (auto& list : lists_) {
    std::erase_if(list, [&](const auto& entry) {
      const C4D_InterfaceHandler& nodeHandler = entry.second->handler;
      if (!nodeHandler.IsHostInDocument(0)) return true;
      const BaseObject* up = nodeHandler.hostObject();
      while (up && up != GetHostObject()) up = up->parent();
      return up == nullptr;
    });
  }
}

iBase* OrlixScene::Retrieve(const BaseList2D* hostObject, std::int32_t baseType, std::int32_t typeA,
                            std::int32_t typeB) const {
  if (!hostObject) return nullptr;
  const auto passes = [](const iBase& node, std::int32_t type) {
    return type == RETRIEVE_ANY || node.HasRetrieveType(type);
  };
  const std::int32_t first = baseType > NODE_HELPER ? NODE_CHANNEL : baseType;
  const std::int32_t last = baseType > NODE_HELPER ? NODE_HELPER : baseType;
  for (std::int32_t list = std::max(first, 0); list <= last; ++list) {
    iBase* node = FindNode(hostObject, list);
    if (node && node->IsEnabled() && passes(*node, typeA) && passes(*node, typeB)) return node;
  }
  return nullptr;
}

void OrlixScene::RetrieveAll(const InExcludeData* filter, std::vector<iBase*>& out, std::int32_t baseType,
                             std::uint32_t typeMask, std::int32_t subType, std::int32_t typeBit,
                             bool filterIsInclude) const {
  const auto passes = [&](const iBase& node) {
    if (!node.IsEnabled() || (subType != kAnySubType && node.GetNodeSubType() != subType)) return false;
    const std::uint32_t mask = node.RetrieveMask();
    if (mask == typeMask) return true;
    if (typeBit != RETRIEVE_ANY) return (mask & (1u << typeBit)) != 0;
    return typeMask == RETRIEVE_ANY;
  };
  const std::int32_t first = baseType > NODE_HELPER ? NODE_CHANNEL : baseType;
  const std::int32_t last = baseType > NODE_HELPER ? NODE_HELPER : baseType;
  if (filter && filterIsInclude) {
    for (const InExcludeData::Entry& entry : filter->entries) {
      const BaseList2D* object = GetHostDocument()->FindObject(entry.target);
      if (!object) continue;
      for (std::int32_t list = first; list <= last; ++list) {
        iBase* node = FindNode(object, list);
        if (node && passes(*node)) out.push_back(node);
      }
    }
    return;
  }
  ForEachNode(first, last, [&](iBase& node) {
    if (passes(node) && !(filter && filter->Contains(node.handler.hostObject()->creationNumber())))
      out.push_back(&node);
  });
}

// --- passes over all nodes -------------------------------------------------------------------------------------------

void OrlixScene::EvaluateStage() {
  const auto forAll = [&](auto&& f) {
    ForEachNode(NODE_CHANNEL, NODE_FORCE, f);
    ForEachNode(NODE_SETTINGS, NODE_HELPER, f);
  };
  if (stage == kStageFinishVisual) return forAll([](iBase& node) { node.ReleaseLinks(); });
  if (stage == kStageInitSubstep) return RunBeginSubstep();
  if (stage != kStageStart && stage != kStageUpdate) return;
  // A node that is passed over would never come back: what CheckDirty of a vanished counter disabled is gone anyway.
  const auto forEnabled = [&](auto&& f) {
    forAll([&](iBase& node) {
      if (node.IsEnabled()) f(node);
    });
  };
  forEnabled([](iBase& node) { node.Reread(); });
  forEnabled([](iBase& node) { node.ResolveLinks(); });
  if (info.time == 0) AdviseObjects(*this);
  forEnabled([&](iBase& node) {
    if (!IsPass() || PassHas(node)) node.Advise();
  });
  RefuseWhatDoesNotFit();
  std::vector<iBase*> staged;
  for (std::int32_t s = 0; s <= kStageVisualPost; ++s) {
    forEnabled([&](iBase& node) {
      if ((node.stageMask & StageBit(s)) != 0) staged.push_back(&node);
    });
  }
  SortByComesBefore(staged);
  staged.erase(std::unique(staged.begin(), staged.end()), staged.end());
  for (iBase* node : staged) node->CheckDirty();
  forAll([](iBase& node) {
    if (!node.HasFlag(NodeDirtyChecked)) node.CheckDirty();
  });
}

void OrlixScene::LinkCaches() {
  const auto forCaches = [&](auto&& f) {
    ForEachNode(NODE_CACHE, NODE_CACHE, [&](iBase& node) {
      if (node.IsEnabled()) f(node);
    });
  };
  forCaches([](iBase& node) { node.Reread(); });
  forCaches([](iBase& node) { node.ResolveLinks(); });
  forCaches([](iBase& node) { node.Advise(); });
}

void OrlixScene::LoadCaches() {
  SetStage(kStageLoadCache);
  LinkCaches();
  const auto forCaches = [&](auto&& f) { ForEachNode(NODE_CACHE, NODE_CACHE, f); };
  forCaches([](iBase& node) {
    if (!node.HasFlag(NodeDirtyChecked)) node.CheckDirty();
  });
  forCaches([](iBase& node) {
    if (auto* cache = dynamic_cast<iObject*>(&node); cache && cache->IsEnabled()) cache->Prepare();
  });
}

void OrlixScene::SaveCaches() {
  SetStage(kStageSaveCache);
  std::vector<iObject*> caches;
  ForEachNode(NODE_CACHE, NODE_CACHE, [&](iBase& node) {
    if (auto* cache = dynamic_cast<iObject*>(&node)) caches.push_back(cache);
  });
  // A frame that failed or was broken off half way isn't a result.
  if (!TestBreak()) {
    for (iObject* cache : caches) {
      if (cache->IsEnabled()) cache->Prepare();
    }
    for (iObject* cache : caches) {
      ProcessData data;
      data.hostThread = hostThread;
      if (cache->IsEnabled()) cache->Process(data);
    }
    for (iObject* cache : caches) cache->Finish();
  }
  for (iObject* cache : caches) cache->ReleaseLinks();
}

void OrlixScene::ResetNodes(bool hard) {
  const auto reset = [&](iBase& node) {
    if (hard || (node.IsDirty() && node.ResetWhenDirty())) node.ResetSimulation();
  };
  ForEachNode(NODE_CHANNEL, NODE_CACHE, reset);
  ForEachNode(NODE_SETTINGS, NODE_HELPER, reset);
  if (!hard) return;
  if (rigidWorld_) rigidWorld_->Reset();
  info.time = 0;
  failure_.reset();
  scratch_.Trim();
}

bool OrlixScene::AnyDirty() {
  bool dirty = false;
  if (stage == kStageStart || stage == kStageUpdate) {
    const auto look = [&](iBase& node) { dirty |= node.IsEnabled() && node.IsDirty(); };
    ForEachNode(NODE_CHANNEL, NODE_CACHE, look);
    ForEachNode(NODE_SETTINGS, NODE_HELPER, look);
  }
  return dirty;
}

// --- stages ----------------------------------------------------------------------------------------------------------

void OrlixScene::RunBeginSubstep() {
  ForEachNode(NODE_VOLUME, NODE_VOLUME, [&](iBase& node) {
    if (!node.IsEnabled() || !node.HasRetrieveType(RETRIEVE_LEVELSET)) return;
    if (auto* volume = dynamic_cast<iSubstepBeginner*>(&node)) volume->BeginSubstep();
  });
}

MemoryForecast OrlixScene::ForecastMemory() const {
  VecInt3D cells;
  ForEachNode(NODE_SOLVER, NODE_SOLVER, [&](const iBase& node) {
    const auto* solver = dynamic_cast<const iSolver*>(&node);
    if (!solver || !node.IsEnabled()) return;
    const VecInt3D most = solver->MostCells();
    cells = {std::max(cells.x, most.x), std::max(cells.y, most.y), std::max(cells.z, most.z)};
  });
  double kept = 0, scratch = 0;
  for (std::int32_t list = NODE_CHANNEL; list <= NODE_CACHE; ++list) {
    double most = 0;  // nodes of one family borrow one after the other
    ForEachNode(list, list, [&](const iBase& node) {
      if (!node.IsEnabled()) return;
      const MemoryNeed need = node.MemoryFor(cells);
      kept += need.kept;
      most = std::max(most, need.scratch);
    });
    scratch += most;
  }
  const double count = double(cells.x) * cells.y * cells.z;
  return {.cells = count, .bytes = kept + scratch};
}

namespace {

// A cell edge with which a forecast of bytes comes to the budget. Some layers of cells along each axis stay whatever
// their edge: ghosts, and what rounding to whole cells adds.
double FittingCell(double cell, double cells, double bytes, double budget) {
  if (cells == 0) cells = bytes / sizeof(double);  // of level sets
  constexpr double kLayers = 6, kStep = 1.02;
  const double side = std::cbrt(std::max(cells, 1.0)), inner = std::max(side - kLayers, 1.0);
  const auto fits = [&](double factor) {
    return bytes * std::pow((inner / factor + kLayers) / (inner + kLayers), 3) <= budget;
  };
  double factor = kStep;
  while (!fits(factor) && factor < inner) factor *= kStep;
  return cell * factor * kStep;
}

}  // namespace

void OrlixScene::RefuseWhatDoesNotFit() {
  const auto budget = static_cast<double>(GridMemoryBudget());
  const MemoryForecast forecast = ForecastMemory();
  if (budget <= 0 || forecast.bytes <= budget) return;
  const std::string what =
      forecast.cells > 0 ? fmt::format("its whole container has {:.0f} cells, whose grids and particles take about {}",
                                       forecast.cells, ByteSizeText(forecast.bytes))
                         : fmt::format("its level sets and particles take about {}", ByteSizeText(forecast.bytes));
  Fail(ErrorKind::Memory,
       fmt::format("\"{}\": {}; the memory budget is {}. A voxel_size of {:.3g}{} would fit", Name(), what,
                   ByteSizeText(budget), FittingCell(space.cellSize, forecast.cells, forecast.bytes, budget),
                   forecast.cells > 0 ? " or a smaller container" : " or fewer particles"));
}

bool OrlixScene::UpdateBounds() {
  Vec3D min(std::numeric_limits<double>::max()), max(-std::numeric_limits<double>::max());
  const Vec3D untouchedMin = min, untouchedMax = max;
  const auto forOthers = [&](auto&& f) {
    ForEachNode(NODE_CHANNEL, NODE_OPERATOR, f);
    ForEachNode(NODE_PARTICLES, NODE_CACHE, f);
  };
  Vec3D playedMin = min, playedMax = max;
  forOthers([&](iBase& node) {
    if (!node.IsEnabled() || !node.HasFlag(NodeHasBounds) || (IsPass() && !PassHas(node))) return;
    const bool played = node.GetNodeBaseType() == NODE_CHANNEL && node.HasFlag(NodeFromCache);
    played ? node.ExtendBounds(playedMin, playedMax) : node.ExtendBounds(min, max);
  });
  const auto allDiffer = [](const Vec3D& a, const Vec3D& b) { return a.x != b.x || a.y != b.y || a.z != b.z; };
  bool touched = allDiffer(min, untouchedMin) && allDiffer(max, untouchedMax);
  playedBounds_.reset();
  if (allDiffer(playedMin, untouchedMin) && allDiffer(playedMax, untouchedMax)) {
    playedBounds_ = PlayedBounds{playedMin, playedMax, !touched};
    if (!touched) min = playedMin, max = playedMax;
    touched = true;
  }
  // A pass has nothing that asks for a box where it plays a velocity alone; that brings its own.
  if (!touched && IsPass()) {
    ForEachNode(NODE_SOLVER, NODE_SOLVER, [&](iBase& node) {
      if (node.IsEnabled() && node.HasFlag(NodeFromCache)) node.ExtendBounds(min, max);
    });
    touched = allDiffer(min, untouchedMin) && allDiffer(max, untouchedMax);
  }
  if (!touched || min.x > max.x || min.y > max.y || min.z > max.z) {
    SetFlag(NoBounds, true);
    const auto clear = [](iBase& node) {
      if (node.HasFlag(NodeHasBounds)) node.ClearState(true);
    };
    ForEachNode(NODE_CHANNEL, NODE_CHANNEL, clear);
    ForEachNode(NODE_SOLVER, NODE_SOLVER, clear);
    return false;
  }
  SetFlag(NoBounds, false);
  bool hasSolver = false, active = false;
  // A pass needs no grids of what isn't played.
  const auto takesPart = [&](const iBase& node) {
    return node.IsEnabled() && (!IsPass() || node.HasFlag(NodeFromCache));
  };
  ForEachNode(NODE_SOLVER, NODE_SOLVER, [&](iBase& node) {
    if (!takesPart(node)) return;
    node.ExtendBounds(min, max);
    hasSolver = true;
  });
  ForEachNode(NODE_SOLVER, NODE_SOLVER, [&](iBase& node) {
    if (!takesPart(node)) return;
    node.ApplyBounds(min, max);
    active = active || node.IsActive();
  });
  // One that has nothing to do, or lies elsewhere, doesn't keep the others from it.
  if (!hasSolver || active) {
    forOthers([&](iBase& node) {
      if (node.IsEnabled()) node.ApplyBounds(min, max);
    });
  }
  return active;
}

void OrlixScene::RunFinishStage(bool boundsValid) {
  bool broken = false;
  ForEachNode(NODE_PARTICLES, NODE_PARTICLES, [&](iBase& node) {
    if (broken || node.GetNodeSubType() != kParticleGroupSubType) return;
    if (auto* group = dynamic_cast<iObject*>(&node)) group->EndStep();
    if (broken = TestBreak(); broken) return;
    node.AfterStep();
    broken = TestBreak();
  });
  if (broken || !boundsValid) return;
  ForEachNode(NODE_CHANNEL, NODE_CHANNEL, [](iBase& node) {
    if (node.IsEnabled() && node.IsDirty()) node.AfterStep();
  });
  ForEachNode(NODE_SOLVER, NODE_SOLVER, [&](iBase& node) {
    if (node.IsEnabled() && node.IsDirty() && !TestBreak()) node.AfterStep();
  });
}

bool OrlixScene::RunStageWork(bool updateOnly, bool& boundsValid) {
  switch (stage) {
    case kStageInitSubstep:
      if (!updateOnly && info.time != 0) EvaluateStage();
      return true;
    case kStageBounds:
      if (!updateOnly) boundsValid = UpdateBounds();
      return true;
    case kStageFinish:
      if (!updateOnly) RunFinishStage(boundsValid);
      return !TestBreak();
    case kStageVolumes:
      if (rigidWorld_ && !updateOnly && info.time != 0) rigidWorld_->Step(*this);
      return StageRunner(*this, updateOnly).Run();
    default:
      return StageRunner(*this, updateOnly).Run();
  }
}

bool OrlixScene::Simulate(bool updateOnly) {
  StartReport();
  const auto start = std::chrono::steady_clock::now();
  bool whole = true, boundsValid = true;
  for (std::int32_t s = kStageInitSubstep; s <= kStageFinish && whole; ++s) {
    const auto stageStart = std::chrono::steady_clock::now();
    SetStage(s);
    try {
      whole = RunStageWork(updateOnly, boundsValid);
    } catch (const std::bad_alloc&) {
      Fail(ErrorKind::Memory, "\"" + Name() + "\": memory doesn't suffice in stage \"" + StageLabel(stage) + "\"");
      whole = false;
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - stageStart;
    substepReport_.stageSeconds.emplace_back(s, seconds.count());
  }
  substepReport_.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  FinishReport();
  return whole;
}

void OrlixScene::VisualStage() {
  substepReport_.nodeSeconds.clear();  // the last sub-step's were told
  bool whole = true;
  for (std::int32_t s = kStageStartVisual; s <= kStageVisualPost && whole; ++s) {
    const auto start = std::chrono::steady_clock::now();
    SetStage(s);
    whole = StageRunner(*this, false).Run();
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    visualSeconds_.stages.emplace_back(s, seconds.count());
  }
  visualSeconds_.nodes = std::move(substepReport_.nodeSeconds);
}

// --- state and reports -----------------------------------------------------------------------------------------------

void OrlixScene::VisitState(StateVisitor& visitor) {
  visitor.Visit("time", info.time);
  visitor.Visit("lastFrame", clock.lastFrame);
  visitor.Visit("lastTime", clock.lastTime);
  visitor.Visit("clockTime", clock.time);
  visitor.Keep("sceneFlags", flags);
  visitor.Keep("frame", info.frame);
  visitor.Keep("frameDuration", info.frameDuration);
  visitor.Keep("substepDuration", info.substepDuration);
  visitor.Keep("frameElapsed", info.frameElapsed);
  visitor.Keep("fps", info.fps);
  visitor.Keep("substepFraction", info.substepFraction);
  visitor.Keep("frameRemaining", info.frameRemaining);
  visitor.Keep("substep", info.substep);
  visitor.Keep("substepCount", info.substepCount);
  visitor.Keep("minSubsteps", info.minSubsteps);
  const auto visit = [&](iBase& node) {
    const std::string name = node.DisplayName() + ":" + std::to_string(node.handler.hostObject()->typeId());
    visitor.Begin(name.c_str());
    node.VisitNode(visitor);
    visitor.End();
  };
  ForEachNode(NODE_CHANNEL, NODE_CACHE, visit);
  ForEachNode(NODE_SETTINGS, NODE_HELPER, visit);
  if (!rigidWorld_) return;
  rigidWorld_->VisitState(visitor);
  if (visitor.Reading()) rigidWorld_->EndFrame(*this);  // which puts objects where they were
}

std::uint64_t OrlixScene::HashState(GridHashes* grids) {
  StateHasher hasher;
  VisitState(hasher);
  if (grids) *grids = std::move(hasher.grids());
  return hasher.Value();
}

void OrlixScene::StartReport() {
  substepReport_ = {};
  substepReport_.scene = Name();
  substepReport_.frame = info.frame;
  substepReport_.substep = info.substep;
  substepReport_.dt = info.substepDuration;
  ResetGridMemoryPeak();
}

void OrlixScene::FinishReport() {
  StateSize size;
  VisitState(size);
  substepReport_.gridBytes = size.bytes();
  const auto addDerived = [&](iBase& node) {
    substepReport_.gridBytes += node.DerivedBytes();
    node.AddToReport(substepReport_);
  };
  ForEachNode(NODE_CHANNEL, NODE_CACHE, addDerived);
  ForEachNode(NODE_SETTINGS, NODE_HELPER, addDerived);
  substepReport_.cells = size.cells();
  substepReport_.peakBytes = CurrentGridMemory().peak;
  if (host_.observer.wantsHash) substepReport_.hash = HashState(&substepReport_.gridHashes);
  if (host_.observer.onSubstep) host_.observer.onSubstep(substepReport_);
}

}  // namespace orlix
