#include "run/Checkpoint.h"

#include <random>

#include "host/files/HyperFile.h"
#include "tests/run/DriftNode.h"
#include "tests/support/RepairHyperFile.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

using test::DriftNode;
using test::DriftScene;
using test::TemporaryFolder;

CheckpointHead HeadOf(int frame) {
  CheckpointHead head;
  head.frame = frame;
  return head;
}

// Runs to a frame, keeps the state, goes on; and the same from the checkpoint in a fresh scene. The frames after the
// checkpoint whose state differs.
std::vector<int> FramesThatDiffer(int checkpointFrame, int lastFrame, bool secret) {
  TemporaryFolder folder;
  const auto prepare = [&](DriftScene& s) { s.first->Set(DriftNode::kSecretId, std::int64_t(secret)); };
  DriftScene run;
  prepare(run);
  run.StepThrough(0, checkpointFrame);
  const Status written = WriteCheckpoint(folder / "c", HeadOf(checkpointFrame), run.hook);
  EXPECT_TRUE(written.ok());
  std::vector<std::uint64_t> expected;
  for (int frame = checkpointFrame + 1; frame <= lastFrame; frame++) {
    run.Step(frame);
    expected.push_back(run.scene().HashState());
  }
  DriftScene resumed(3);
  prepare(resumed);
  const Status restored = RestoreCheckpoint(folder / "c", resumed.document, resumed.hook);
  EXPECT_TRUE(restored.ok()) << restored.error().text;
  std::vector<int> differing;
  for (int frame = checkpointFrame + 1; frame <= lastFrame; frame++) {
    resumed.Step(frame);
    if (resumed.scene().HashState() != expected[frame - checkpointFrame - 1]) differing.push_back(frame);
  }
  return differing;
}

TEST(Checkpoint, TheRunGoesOnWithTheSameBitsFromEachFrame) {
  for (int frame : {0, 1, 2, 5}) EXPECT_TRUE(FramesThatDiffer(frame, frame + 4, false).empty()) << frame;
}

TEST(Checkpoint, StateThatANodeKeepsToItselfIsFound) { EXPECT_FALSE(FramesThatDiffer(3, 7, true).empty()); }

TEST(Checkpoint, KeyframesGoOnToo) {
  TemporaryFolder folder;
  const auto animate = [](DriftScene& s) {
    const SplineKnot knots[] = {{0, 0.1}, {6, 0.9}};
    s.document.AddTrack({s.first->creationNumber(), 3, {SplineData(knots)}});
  };
  DriftScene run, resumed;
  animate(run), animate(resumed);
  run.StepThrough(0, 3);
  ASSERT_TRUE(WriteCheckpoint(folder / "c", HeadOf(3), run.hook).ok());
  run.StepThrough(4, 6);
  ASSERT_TRUE(RestoreCheckpoint(folder / "c", resumed.document, resumed.hook).ok());
  resumed.StepThrough(4, 6);
  EXPECT_EQ(resumed.scene().HashState(), run.scene().HashState());
}

TEST(Checkpoint, TheHeadIsReadByItself) {
  TemporaryFolder folder;
  DriftScene s;
  s.StepThrough(0, 2);
  CheckpointHead head = HeadOf(2);
  head.sceneHash = 0xfedcba9876543210u;
  ASSERT_TRUE(WriteCheckpoint(folder / "c", head, s.hook).ok());
  const auto read = ReadCheckpointHead(folder / "c");
  ASSERT_TRUE(read.ok());
  EXPECT_EQ(read->sceneHash, head.sceneHash);
  EXPECT_EQ(read->frame, 2);
  EXPECT_EQ(read->scenes, 1);
  EXPECT_FALSE(ReadCheckpointHead(folder / "none").ok());
  EXPECT_TRUE(HyperFile::Verify(0, folder / "c").ok());
}

TEST(Checkpoint, AnotherSceneIsRefused) {
  TemporaryFolder folder;
  DriftScene s;
  s.Step(0);
  ASSERT_TRUE(WriteCheckpoint(folder / "c", HeadOf(0), s.hook).ok());
  const auto refusal = [&](auto change) {
    DriftScene other;
    change(other);
    const Status status = RestoreCheckpoint(folder / "c", other.document, other.hook);
    return status.ok() ? std::string() : status.error().text;
  };
  EXPECT_EQ(refusal([](DriftScene&) {}), "");
  EXPECT_NE(refusal([](DriftScene& o) { o.second->name = "renamed"; }).find("renamed"), std::string::npos);
  EXPECT_NE(refusal([](DriftScene& o) { o.Add("test_drift", "third"); }), "");
  EXPECT_NE(refusal([](DriftScene& o) { o.document.RemoveObject(*o.second); }), "");
  EXPECT_NE(refusal([](DriftScene& o) { o.document.AddObject(RootSettings::Type()); }).find("1 scenes"),
            std::string::npos);
}

// Mutants with checksums that agree.
TEST(Checkpoint, MutantsAreRefusedOrRestored) {
  constexpr int kMutants = 200;
  TemporaryFolder folder;
  DriftScene s;
  s.first->Set(DriftNode::kCellsId, std::int64_t(2));
  s.StepThrough(0, 1);
  ASSERT_TRUE(WriteCheckpoint(folder / "c", HeadOf(1), s.hook).ok());
  const std::string text = test::ReadText(folder / "c");
  const auto* data = reinterpret_cast<const std::byte*>(text.data());
  std::mt19937 random(5);
  int refused = 0;
  for (int mutant = 0; mutant < kMutants; mutant++) {
    const auto bytes = test::MutantOf({data, data + text.size()}, 0x6F78636B, random);
    test::WriteText(folder / "d", {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    DriftScene restored;
    const Status status = RestoreCheckpoint(folder / "d", restored.document, restored.hook);
    EXPECT_TRUE(status.ok() || !status.error().text.empty());
    refused += !status.ok();
  }
  EXPECT_GT(refused, kMutants / 2);
}

}  // namespace
}  // namespace orlix
