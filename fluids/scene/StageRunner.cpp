#include "fluids/scene/StageRunner.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <new>

#include "fluids/scene/StateCheck.h"
#include "fluids/scene/iTakesAlong.h"

namespace orlix {

namespace {

double Seconds(std::chrono::steady_clock::time_point since) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

}  // namespace

void SortByComesBefore(std::vector<iBase*>& nodes) {
  for (std::size_t i = 1; i < nodes.size(); ++i) {
    iBase* node = nodes[i];
    std::size_t at = i;
    while (at > 0 && node->ComesBefore(*nodes[at - 1])) {
      nodes[at] = nodes[at - 1];
      --at;
    }
    nodes[at] = node;
  }
}

std::vector<iObject*> StageRunner::Collect() const {
  std::vector<iBase*> found;
  scene_.ForEachNode(NODE_CHANNEL, NODE_CACHE, [&](iBase& node) {
    if (node.IsEnabled() && (node.stageMask & StageBit(scene_.stage)) != 0) found.push_back(&node);
  });
  // Equal priorities run in the order of creation, which is that of the scene's tree.
  std::sort(found.begin(), found.end(), [](const iBase* a, const iBase* b) {
    return a->handler.hostObject()->creationNumber() < b->handler.hostObject()->creationNumber();
  });
  SortByComesBefore(found);
  std::vector<iObject*> nodes;
  for (iBase* node : found) {
    if (auto* object = dynamic_cast<iObject*>(node)) nodes.push_back(object);
  }
  return nodes;
}

// In a pass nothing is simulated: of the stages before the visual ones, volumes are made, caches load, and what they
// play takes in what it got.
bool StageRunner::HasPart(const iObject& node) const {
  if (scene_.Rests(node)) return false;
  if (!scene_.IsPass() || node.GetNodeBaseType() == NODE_CACHE) return true;
  if (!scene_.PassHas(node)) return false;
  return scene_.stage < kStageEmitters || scene_.stage > kStageFinish || node.HasFlag(NodeFromCache);
}

bool StageRunner::ActsNow(const iObject& node) const {
  const BaseList2D* link = node.handler.GetLink(kDurationId);
  if (!link) return true;
  const auto* duration = dynamic_cast<const iActivity*>(scene_.Retrieve(link, NODE_HELPER, RETRIEVE_ANY, RETRIEVE_ANY));
  return !duration || duration->IsActive(scene_.info.time);
}

namespace {

bool GoesAlong(const StageBlock& block, const iObject& next) {
  const auto* taker = block.kind == BlockKind::Serial ? dynamic_cast<const iTakesAlong*>(block.nodes.front()) : nullptr;
  return taker && taker->CanTakeAlong(next);
}

}  // namespace

std::vector<StageBlock> StageRunner::Divide(const std::vector<iObject*>& nodes) const {
  std::vector<StageBlock> blocks;
  for (iObject* node : nodes) {
    if (!HasPart(*node) || (updateOnly_ && !node->EvaluatesOnUpdate())) continue;
    if (!ActsNow(*node)) {
      node->RestsInStage();
      continue;
    }
    if (!node->IsDirty()) continue;
    const bool iterated = node->IsIterated(), serial = node->RunsSerially();
    const BlockKind kind = iterated ? (serial ? BlockKind::IteratedSerial : BlockKind::IteratedParallel)
                                    : (serial ? BlockKind::Serial : BlockKind::Parallel);
    const bool fits = !blocks.empty() && blocks.back().kind == kind;
    if (!fits || (node->HasFlag(NodeOwnBlock) && !GoesAlong(blocks.back(), *node))) blocks.push_back({kind, {}});
    blocks.back().nodes.push_back(node);
  }
  return blocks;
}

bool StageRunner::Run() {
  for (const StageBlock& block : Divide(Collect())) {
    RunBlock(block);
    if (scene_.TestBreak()) return false;
    TestOutputs(block.nodes);
    if (scene_.failure()) return false;
  }
  return true;
}

template <class F>
void StageRunner::Timed(iObject& node, F&& f) {
  const auto start = std::chrono::steady_clock::now();
  try {
    f();
  } catch (const std::bad_alloc&) {
    scene_.Fail(ErrorKind::Memory,
                "\"" + node.DisplayName() + "\": memory doesn't suffice in stage \"" + StageLabel(scene_.stage) + "\"");
  }
  scene_.substepReport_.nodeSeconds.emplace_back(node.DisplayName(), Seconds(start));
}

void StageRunner::RunBlock(const StageBlock& block) {
  switch (block.kind) {
    case BlockKind::Serial:
      return RunSerial(block);
    case BlockKind::Parallel:
      return RunParallel(block);
    case BlockKind::IteratedSerial:
      return RunIteratedSerial(block);
    case BlockKind::IteratedParallel:
      return RunIteratedParallel(block);
  }
}

void StageRunner::RunSerial(const StageBlock& block) {
  for (auto node = block.nodes.begin(); node != block.nodes.end();) {
    auto* taker = (*node)->IsEnabled() ? dynamic_cast<iTakesAlong*>(*node) : nullptr;
    auto end = node + 1;
    while (taker && end != block.nodes.end() && (*end)->IsEnabled() && taker->TakesAlong(**end)) ++end;
    Timed(**node, [&] {
      if ((*node)->IsEnabled()) {
        for (auto each = node; each != end; ++each) (*each)->Prepare();
        ProcessData data;
        data.hostThread = scene_.hostThread;
        (*node)->Process(data);
      }
      for (auto each = node; each != end; ++each) (*each)->Finish();
    });
    node = end;
  }
}

void StageRunner::RunWorkers(const std::vector<iObject*>& nodes) {
  const int workers = std::clamp(scene_.threadCount, 1, WorkerPool::kMaxWorkers);
  std::vector<double> seconds(nodes.size(), 0.0);
  std::atomic<int> outOfMemory{-1};
  scene_.pool().Run(workers, [&](int worker) {
    ProcessData data;
    data.hostThread = scene_.hostThread;
    data.threadIndex = worker;
    data.lastThread = worker == workers - 1;
    for (std::size_t n = 0; n < nodes.size(); ++n) {
      const auto start = std::chrono::steady_clock::now();
      try {
        nodes[n]->Process(data);
      } catch (const std::bad_alloc&) {
        outOfMemory.store(static_cast<int>(n), std::memory_order_relaxed);
      }
      if (worker == 0) seconds[n] = Seconds(start);
    }
  });
  for (std::size_t n = 0; n < nodes.size(); ++n) {
    scene_.substepReport_.nodeSeconds.emplace_back(nodes[n]->DisplayName(), seconds[n]);
  }
  if (const int n = outOfMemory.load(); n >= 0) Timed(*nodes[n], [] { throw std::bad_alloc(); });
}

void StageRunner::RunParallel(const StageBlock& block) {
  std::vector<iObject*> enabled;
  for (iObject* node : block.nodes) {
    if (!node->IsEnabled()) continue;
    Timed(*node, [&] {
      node->Prepare();
      node->Setup();
    });
    enabled.push_back(node);
  }
  if (!scene_.failure() && !enabled.empty()) RunWorkers(enabled);
  for (iObject* node : block.nodes) Timed(*node, [&] { node->Finish(); });
}

void StageRunner::RunIteratedSerial(const StageBlock& block) {
  for (iObject* node : block.nodes) {
    if (!node->IsEnabled()) continue;
    while (node->NextIteration()) {
      Timed(*node, [&] {
        node->Prepare();
        node->Setup();
        ProcessData data;
        data.hostThread = scene_.hostThread;
        if (node->IsActive()) node->Process(data);
        node->Finish();
      });
    }
  }
}

void StageRunner::RunIteratedParallel(const StageBlock& block) {
  for (iObject* node : block.nodes) {
    if (!node->IsEnabled()) continue;
    const bool each = node->PreparesEachIteration();
    const auto prepare = [&] {
      Timed(*node, [&] {
        node->Prepare();
        node->Setup();
      });
    };
    const auto finish = [&] { Timed(*node, [&] { node->Finish(); }); };
    if (!each) {
      prepare();
      if (!node->IsActive()) {
        finish();
        continue;
      }
    }
    while (node->NextIteration()) {
      if (each) prepare();
      if (!scene_.failure()) RunWorkers({node});
      if (each) finish();
    }
    if (!each) finish();
  }
}

void StageRunner::TestOutputs(const std::vector<iObject*>& nodes) {
  for (iObject* node : nodes) {
    NonFiniteFinder finder(scene_.pool());
    node->VisitOutputs(finder);
    if (!finder.found()) continue;
    Divergence divergence = *finder.found();
    divergence.node = node->DisplayName();
    divergence.stage = scene_.stage;
    divergence.frame = scene_.info.frame;
    divergence.substep = scene_.info.substep;
    scene_.Fail(ErrorKind::Diverged, divergence.Text());
    return;
  }
}

}  // namespace orlix
