// A liquid whose velocity a cache plays back, and one that goes on after it was killed.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <thread>

#include "fluids/liquids/WaterSolver.h"
#include "tests/apps/orlix/ProgramRunner.h"
#include "tests/support/SceneFileRun.h"

namespace orlix {
namespace {

// The dam break at a coarse resolution, with one sub-step a frame and a cache of the tank's velocity.
std::string Dam(const std::string& mode, bool follow) {
  std::string text = test::ReadText(std::filesystem::path(SourceFolder()) / "scenes/dam_break.json");
  const auto replace = [&](const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    text.replace(at, from.size(), to);
  };
  replace(R"("fps": 24)", R"("fps": 96)");
  replace(R"("voxel_size": 0.04)", R"("voxel_size": 0.1, "substep_mode": "fixed_count")");
  replace(R"("max_substeps": 7)", R"("max_substeps": 0)");
  replace(R"("name": "Tank",)", R"("name": "Tank", "follow_cache": )" + std::string(follow ? "true," : "false,"));
  replace(R"({ "type": "particlegroup")",
          R"({ "type": "cache", "name": "Film", "mode": ")" + mode +
              R"(", "nodes": ["Tank"], "folder_source": "own", "folder": "film" }, { "type": "particlegroup")");
  return text;
}

struct Motion {
  double front = 0, speed = 0;  // m; m/s, the mean
};
Motion MotionAt(const test::TemporaryFolder& folder, const std::string& mode, bool follow, int frame) {
  test::WriteText(folder / "dam.json", Dam(mode, follow));
  test::SceneFileRun run((folder / "dam.json").string());
  run.StepThrough(0, frame);
  const ParticleList& list = *run.Get<ParticleGroup>("Water").list(PK_Liquid);
  Motion motion;
  for (int n = 0; n < list.count(); ++n) {
    motion.front = std::max(motion.front, list.Position(n).x);
    motion.speed += Length(list.Velocity(n)) / list.count();
  }
  EXPECT_GT(list.count(), 1000);
  return motion;
}

TEST(LiquidCache, PlayedVelocitiesMoveTheParticlesAsTheyDid) {
  const test::TemporaryFolder folder;
  const Motion recorded = MotionAt(folder, "record", false, 30);
  const Motion played = MotionAt(folder, "playback", true, 30), still = MotionAt(folder, "playback", false, 30);
  EXPECT_GT(recorded.front, 1.05);
  EXPECT_NEAR(played.front, recorded.front, 0.05);
  EXPECT_NEAR(played.speed, recorded.speed, 0.1 * recorded.speed);
  EXPECT_NEAR(still.front, recorded.front, 0.05) << "advection follows what is played in any case";
  EXPECT_EQ(still.speed, 0) << "but particles learn their velocity only when they follow";
}

TEST(LiquidCache, AKilledRunGoesOnWithTheSameBits) {
  test::ProgramRunner runner;
  const std::string scene = runner.Write("dam.json", Dam("record", false));
  const auto arguments = [&](const std::string& out, const std::string& frames, bool resume) {
    std::vector<std::string> list = {
        "run", scene, "--frames", frames, "--out", (runner.folder / out).string(), "--checkpoint-every", "2", "--json"};
    list.emplace_back(resume ? "--resume" : "--overwrite");
    return list;
  };
  const auto hash = [](const std::string& text) {
    const std::size_t at = text.find("\"hash\": \"");
    return at == std::string::npos ? std::string() : text.substr(at + 9, 16);
  };
  const std::string whole = hash(runner.Run(arguments("whole", "0-12", false)).out);
  ASSERT_FALSE(whole.empty());
  const auto killed = runner.Run(arguments("killed", "0-400", false), [&](pid_t process) {
    const std::filesystem::path second = runner.folder / "killed/checkpoints/state00004.checkpoint";
    for (int wait = 0; wait < 2000 && !std::filesystem::exists(second); ++wait) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ::kill(process, SIGKILL);
  });
  EXPECT_EQ(killed.code, 256 + SIGKILL);
  EXPECT_EQ(hash(runner.Run(arguments("killed", "0-12", true)).out), whole);
}

}  // namespace
}  // namespace orlix
