#include "run/SceneRun.h"

#include <gtest/gtest.h>

#include "scene_file/SceneReader.h"

namespace orlix {
namespace {

// Writes down what it is told, fails at a frame.
class Witness : public FrameListener {
 public:
  std::string log;
  int failAt = -1;
  double cellSize = 0;

  Status BeforeRun(const RunState& state) override {
    log += "begin" + std::to_string(state.firstFrame) + "-" + std::to_string(state.lastFrame);
    return {};
  }
  Status AfterFrame(const RunState& state) override {
    cellSize = state.hook.scenes().begin()->second->GetSimulationSpace().cellSize;
    log += " " + std::to_string(state.frame) + (state.wanted ? "!" : "");
    if (state.frame == failAt) return Status::Fail(ErrorKind::Output, "full");
    return {};
  }
  Status AfterRun(const RunState&) override {
    log += " end";
    return {};
  }
};

struct Fixture {
  Engine engine;
  WorkerPool pool{2};
  Witness witness;
  std::unique_ptr<BaseDocument> document;

  Fixture() {
    auto scene = ReadSceneText("s.json", R"({ "orlix": 1, "fps": 24, "frames": [2, 5], "objects": [
        { "type": "scene", "voxel_size": 0.25, "render_voxel_size": 0.125, "children": [ { "type": "channel_scalar" } ] } ] })",
                               engine.types);
    document = std::move(scene->document);
  }
  Status Run(const std::optional<std::vector<int>>& list = {}, bool rendering = false) {
    auto plan = PlanFrames(*document, list);
    if (!plan) return plan.error();
    plan->rendering = rendering;
    SceneRun run(engine, *document, pool, "");
    run.AddListener(witness);
    return run.Run(*plan);
  }
};

TEST(SceneRun, EveryFrameIsSimulatedAndTheListedAreWanted) {
  Fixture all, some, beyond, before;
  EXPECT_TRUE(all.Run().ok());
  EXPECT_EQ(all.witness.log, "begin2-5 2! 3! 4! 5! end");
  EXPECT_TRUE(some.Run(std::vector<int>{3}).ok());
  EXPECT_EQ(some.witness.log, "begin2-3 2 3! end");
  EXPECT_TRUE(beyond.Run(std::vector<int>{2, 7}).ok());
  EXPECT_EQ(beyond.witness.log, "begin2-7 2! 3 4 5 6 7! end");
  EXPECT_EQ(beyond.document->maxTime.Frame(24), 7);
  EXPECT_EQ(before.Run(std::vector<int>{1}).error().kind, ErrorKind::Usage);
}

TEST(SceneRun, PicturesHaveTheirOwnCells) {
  Fixture simulated, rendered;
  EXPECT_TRUE(simulated.Run().ok());
  EXPECT_TRUE(rendered.Run({}, true).ok());
  EXPECT_EQ(simulated.witness.cellSize, 0.25);
  EXPECT_EQ(rendered.witness.cellSize, 0.125);
}

TEST(SceneRun, AnErrorOfAListenerEndsTheRun) {
  Fixture failed;
  failed.witness.failAt = 4;
  EXPECT_EQ(failed.Run().error().kind, ErrorKind::Output);
  EXPECT_EQ(failed.witness.log, "begin2-5 2! 3! 4! end");
}

}  // namespace
}  // namespace orlix
