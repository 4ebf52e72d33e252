#pragma once
// Runs the nodes of one stage: collects them, sorts them, divides them into blocks, runs the blocks.

#include <vector>

#include "fluids/scene/OrlixScene.h"

namespace orlix {

enum class BlockKind { Serial, Parallel, IteratedSerial, IteratedParallel };

struct StageBlock {
  BlockKind kind;
  std::vector<iObject*> nodes;
};

class StageRunner {
 public:
  StageRunner(OrlixScene& scene, bool updateOnly) : scene_(scene), updateOnly_(updateOnly) {}
  // False on a break or a failure.
  bool Run();

  // The enabled nodes of the stage in lists 1 to 8, sorted.
  std::vector<iObject*> Collect() const;
  // Only dirty nodes whose duration says that they act now; in an update pass only those that evaluate on update.
  std::vector<StageBlock> Divide(const std::vector<iObject*>& nodes) const;

 private:
  bool HasPart(const iObject& node) const;
  bool ActsNow(const iObject& node) const;
  void RunBlock(const StageBlock& block);
  void RunSerial(const StageBlock& block);
  void RunParallel(const StageBlock& block);
  void RunIteratedSerial(const StageBlock& block);
  void RunIteratedParallel(const StageBlock& block);
  // Calls Process of each node on every worker.
  void RunWorkers(const std::vector<iObject*>& nodes);
  void TestOutputs(const std::vector<iObject*>& nodes);
  // Runs f and adds its time to the node's; memory that doesn't suffice fails the scene by the node's name.
  template <class F>
  void Timed(iObject& node, F&& f);

  OrlixScene& scene_;
  bool updateOnly_;
};

// Sorts by ComesBefore, keeping the order of equals. Safe for any relation, also for an override that is no strict weak
// order: lists are short, so an insertion sort does.
void SortByComesBefore(std::vector<iBase*>& nodes);

}  // namespace orlix
