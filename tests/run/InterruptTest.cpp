// What signals do to a run. Each in a process of its own: a signal is never taken back.

#include "run/Interrupt.h"

#include <gtest/gtest.h>
#include <signal.h>

#include "run/Checkpoints.h"
#include "run/SceneRun.h"
#include "scene_file/SceneReader.h"
#include "tests/run/PlumeScene.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

// Raises a signal in the middle of a frame, and again when enough time has gone by for the two to be two.
class Interrupter : public FrameListener {
 public:
  Interrupter(int frame, int signals) : frame_(frame), signals_(signals) {}
  void AfterSubstep(const RunState& state, const SubstepReport&) override {
    for (; state.frame == frame_ && signals_ > 0; --signals_) {
      ::raise(SIGINT);
      ::raise(SIGINT);  // the same key press, once more
      ::usleep(250000);
    }
  }
  Status AfterFrame(const RunState& state) override {
    lastWhole = state.frame;
    return {};
  }
  int lastWhole = -1;

 private:
  int frame_, signals_;
};

// 0 when the run ended in order, and its last whole frame, checkpoint and cache are the expected ones.
int RunInterrupted(const std::filesystem::path& folder, int signals, int expected) {
  Interrupt::Install();
  Engine engine;
  auto scene =
      ReadSceneText((folder / "plume.json").string(), test::PlumeScene({.cells = 8, .lastFrame = 9}), engine.types);
  const auto plan = PlanFrames(*scene->document, {});
  WorkerPool pool(2);
  SceneRun run(engine, *scene->document, pool, folder.string());
  Interrupter interrupter(4, signals);
  Checkpoints checkpoints(folder, 3, 1);
  run.AddListener(interrupter);
  run.AddListener(checkpoints);
  if (!run.Run(*plan).ok() || Interrupt::Signal() != SIGINT || !run.state().interrupted) return 1;
  if (interrupter.lastWhole != expected) return 2;
  if (!std::filesystem::exists(folder / fmt::format("caches/orlix_grid_c4d{:05}.cache", expected))) return 3;
  if (std::filesystem::exists(folder / fmt::format("caches/orlix_grid_c4d{:05}.cache", expected + 1))) return 4;
  return checkpoints.last() == (signals == 1 ? expected : 3) ? 0 : 5;
}

TEST(Interrupt, TheFirstEndsBehindTheFrameTheSecondWithinIt) {
  for (const auto& [signals, expected] : {std::pair(1, 4), {2, 3}}) {
    const test::TemporaryFolder folder;
    EXPECT_EQ(test::RunInChild([&] { return RunInterrupted(folder.path(), signals, expected); }), 0) << signals;
  }
}

TEST(Interrupt, TheThirdKills) {
  EXPECT_EQ(test::RunInChild([] {
              Interrupt::Install();
              for (int signal = 0; signal < 3; ++signal) ::raise(SIGTERM), ::usleep(250000);
              return 0;
            }),
            256 + SIGTERM);
}

}  // namespace
}  // namespace orlix
