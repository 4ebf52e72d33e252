// Nothing is lost: the built program, killed, interrupted, out of disk, started twice.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>

#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <sstream>
#include <thread>
#include <tuple>

#include "apps/orlix/FileCheck.h"
#include "apps/orlix/FolderReport.h"
#include "globals/Hash.h"
#include "host/files/AtomicFile.h"
#include "host/files/FolderLock.h"
#include "tests/apps/orlix/ProgramRunner.h"
#include "tests/run/PlumeScene.h"
#include "tests/run/WaterScene.h"
#include "tests/support/Folders.h"
#include "tests/support/Sanitized.h"
#include "tests/support/SmallDisk.h"

namespace orlix {
namespace {

namespace fs = std::filesystem;
using test::PlumeScene;
using test::PlumeSettings;
using test::ProgramOutcome;
using test::ProgramRunner;

constexpr int kInterval = 5;

// The state's hash after each frame that the statistics hold.
std::map<int, std::string> FrameHashes(const fs::path& statistics) {
  std::map<int, std::string> hashes;
  std::istringstream in(test::ReadText(statistics));
  for (std::string line; std::getline(in, line);) {
    const auto json = nlohmann::json::parse(line, nullptr, false);
    if (json.is_object() && json.value("kind", "") == "frame") hashes[json["frame"]] = json["hash"];
  }
  return hashes;
}

// A plume and the folder of its results.
struct Plume {
  explicit Plume(const PlumeSettings& settings) { scene = runner.Write("plume.json", PlumeScene(settings)); }
  explicit Plume(const char* text) { scene = runner.Write("scene.json", text); }
  fs::path Folder(const std::string& name) const { return runner.folder / name; }
  fs::path Statistics(const std::string& out) const { return runner.folder / (out + ".jsonl"); }
  std::vector<std::string> Arguments(const std::string& out, bool resume) const {
    return test::Words(fmt::format("run {} --out {} --stats {} --quiet --threads 2 --checkpoint-every {} {}", scene,
                                   Folder(out).string(), Statistics(out).string(), kInterval,
                                   resume ? "--resume" : "--overwrite"));
  }
  ProgramOutcome Run(const std::string& out, bool resume, const std::function<void(pid_t)>& meanwhile = {}) {
    return runner.Run(Arguments(out, resume), meanwhile);
  }

  ProgramRunner runner;
  std::string scene;
};

void SleepFor(double seconds) { std::this_thread::sleep_for(std::chrono::duration<double>(seconds)); }

// Waits until the file is there, or the process is gone.
void AwaitFile(const fs::path& path, pid_t process) {
  for (int i = 0; i < 2000 && !fs::exists(path) && ::kill(process, 0) == 0; i++) SleepFor(0.005);
}

// Caches, meshes, particles and pictures by their names. OpenVDB gives each file a number of its own.
std::map<std::string, std::uint64_t> ContentsOf(const fs::path& folder) {
  std::map<std::string, std::uint64_t> contents;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    const std::string ending = entry.path().extension().string();
    if (!std::set<std::string>{".cache", ".pcache", ".mcache", ".ply", ".png", ".exr", ".jsonl"}.contains(ending))
      continue;
    const std::string bytes = test::ReadText(entry.path());
    contents[entry.path().lexically_relative(folder).string()] = HashBytes(bytes.data(), bytes.size());
  }
  return contents;
}

// Files that have their final names are whole. Each is read once: what is written again has another time.
class FinalFiles {
 public:
  void Look(const fs::path& folder) {
    if (!fs::exists(folder)) return;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      const FileCheck* check = FindFileCheck(entry.path());
      if (!check || !entry.is_regular_file() || TemporaryOwner(entry.path().filename()) != 0) continue;
      if (!known_.insert({entry.path(), entry.file_size(), entry.last_write_time()}).second) continue;
      const Status whole = check->check(entry.path());
      EXPECT_TRUE(whole.ok()) << whole.error().text;
    }
  }
  int checked() const { return static_cast<int>(known_.size()); }

 private:
  std::set<std::tuple<fs::path, std::uintmax_t, fs::file_time_type>> known_;
};

// Killed at random moments and resumed, again and again: what has its name is whole, and all frames have the bits of a
// run that was left alone.
void KillAndResume(Plume& plume, int lastFrame, int kills) {
  const ProgramOutcome whole = plume.Run("whole", false);
  ASSERT_EQ(whole.code, 0) << whole.err;
  const auto expected = FrameHashes(plume.Statistics("whole"));
  ASSERT_EQ(expected.size(), std::size_t(lastFrame) + 1);
  const auto wholeFiles = ContentsOf(plume.Folder("whole")), wholeCaches = ContentsOf(plume.Folder("caches"));
  std::mt19937 random(31);
  FinalFiles finals;
  int killed = 0;
  while (killed < kills) {
    const auto before = FrameHashes(plume.Statistics("out"));
    const double moment = whole.seconds * (random() % 1000) / 1000.0;
    const ProgramOutcome outcome = plume.Run("out", true, [&](pid_t process) {
      SleepFor(moment);
      ::kill(process, SIGKILL);
    });
    ASSERT_TRUE(outcome.code == 256 + SIGKILL || outcome.code == 0) << outcome.code << " " << outcome.err;
    for (const char* folder : {"out", "caches"}) finals.Look(plume.Folder(folder));
    ASSERT_FALSE(testing::Test::HasFailure());
    const auto now = FrameHashes(plume.Statistics("out"));
    for (const auto& [frame, hash] : now) ASSERT_EQ(hash, expected.at(frame)) << "frame " << frame;
    if (!before.empty() && !now.empty()) {
      ASSERT_LE(before.rbegin()->first - now.rbegin()->first, kInterval) << "more than an interval was lost";
    }
    killed += outcome.code != 0;
    if (outcome.code != 0) continue;
    ASSERT_EQ(now.size(), expected.size());
    fs::remove_all(plume.Folder("out"));
    fs::remove(plume.Statistics("out"));
  }
  const ProgramOutcome last = plume.Run("out", true);
  ASSERT_EQ(last.code, 0) << last.err;
  EXPECT_EQ(FrameHashes(plume.Statistics("out")), expected);
  EXPECT_GT(finals.checked(), kills) << "most kills come after a file or more";
  const auto report = ReportFolder(plume.Folder("out"));
  ASSERT_TRUE(report.ok());
  EXPECT_EQ(report->unfinished.size(), 0u) << "what dead runs left is removed";
  EXPECT_EQ(report->broken + report->missing, 0);
  EXPECT_EQ(ContentsOf(plume.Folder("out")), wholeFiles);
  EXPECT_EQ(ContentsOf(plume.Folder("caches")), wholeCaches);
}
TEST(Resume, AKilledRunGoesOnWithTheSameBits) {
  Plume plume({.cells = 12, .lastFrame = 12});
  KillAndResume(plume, 12, test::kSanitized ? 5 : 20);
}
TEST(ResumeSlow, AKilledRunGoesOnWithTheSameBits) {
  Plume plume({.cells = 16, .lastFrame = 40});
  KillAndResume(plume, 40, 200);
}

// Water with two crates, one on the other and both on a table; all caches, and results of every kind beside them.
const char* const kCaches =
    R"({ "type": "cache", "name": "Grids", "nodes": ["Tank", "Level"], "mode": "record", "folder_source": "own",
          "folder": "caches", "compression": "packed" },
        { "type": "cache_particle", "name": "Drops", "groups": [{ "object": "Water", "kind": "liquid" }],
          "mode": "record", "folder_source": "own", "folder": "caches", "compression": "packed" },
        { "type": "cache_mesh", "name": "Skin", "meshers": ["Surface"], "mode": "record", "folder_source": "own",
          "folder": "caches" },
        { "type": "box", "name": "Table", "size": [20, 10, 30], "position": [26, 5, 0] },
        { "type": "box", "name": "Lower", "size": [10, 10, 10], "position": [26, 16, 0] },
        { "type": "box", "name": "Upper", "size": [10, 10, 10], "position": [28, 28, 1] },
        { "type": "volume", "name": "Stand", "object": "Table",
          "tags": [{ "type": "c4d_obstacle", "driven": false, "margin": 0.004 }] },
        { "type": "volume_multi", "name": "Crates", "objects": ["Lower", "Upper"],
          "tags": [{ "type": "c4d_obstacle", "driven": false, "mass_mode": "density", "density": 800,
                     "inertia": "solid", "margin": 0.004, "rolling_friction": 0 }] })";
const char* const kOutputs =
    R"({ "folder": "out", "vdb": true, "meshes": "ply", "particles": true, "bodies": true, "preview": true,
         "pictures": true })";

std::string EverythingScene(int lastFrame) {
  std::string text = test::WaterScene(kCaches, kOutputs, lastFrame, "0.1",
                                      R"("rigid_walls": true, "rigid_slop": 0.006, "rigid_substeps": 4,)");
  return text.insert(text.rfind('}'), R"(, "render": { "width": 48, "height": 27, "samples": 1, "sky_samples": 1 },
    "camera": { "position": [0, 40, 160], "target": [0, 20, 0] })");
}

TEST(Resume, AKilledRunThatWritesEverythingGoesOnWithTheSameBits) {
  const int lastFrame = test::kSanitized ? 3 : 6;
  Plume water(EverythingScene(lastFrame).c_str());
  KillAndResume(water, lastFrame, test::kSanitized ? 1 : 4);
}
TEST(ResumeSlow, AKilledRunThatWritesEverythingGoesOnWithTheSameBits) {
  Plume water(EverythingScene(12).c_str());
  KillAndResume(water, 12, 200);
}

TEST(Resume, AnInterruptedRunKeepsItsLastFrame) {
  Plume plume({.cells = 12, .lastFrame = 12});
  ASSERT_EQ(plume.Run("whole", false).code, 0);
  const ProgramOutcome outcome = plume.Run("out", false, [&](pid_t process) {
    for (int wait = 0; wait < 4000 && FrameHashes(plume.Statistics("out")).size() < 3; ++wait) SleepFor(0.005);
    ::kill(process, SIGINT);
  });
  EXPECT_EQ(outcome.code, 130) << outcome.err;
  const auto interrupted = FrameHashes(plume.Statistics("out"));
  ASSERT_FALSE(interrupted.empty());
  const int last = interrupted.rbegin()->first;
  ASSERT_LT(last, 12);
  EXPECT_TRUE(fs::exists(plume.Folder("out") / fmt::format("checkpoints/state{:05}.checkpoint", last)));
  ASSERT_EQ(plume.Run("out", true).code, 0);
  EXPECT_EQ(FrameHashes(plume.Statistics("out")), FrameHashes(plume.Statistics("whole")));
}

TEST(Resume, AFirstFrameIsNoPlaceToGoOnFrom) {
  Plume plume({.cells = 12, .lastFrame = 12});
  auto arguments = plume.Arguments("out", false);
  arguments.insert(arguments.end(), {"--frames", "0"});
  ASSERT_EQ(plume.runner.Run(arguments).code, 0);
  EXPECT_FALSE(fs::exists(plume.Folder("out") / "checkpoints/state00000.checkpoint"));
}

TEST(Resume, AChangedSceneIsRefused) {
  Plume plume({.cells = 8, .lastFrame = 1, .record = false});
  ASSERT_EQ(plume.Run("out", false).code, 0);
  auto arguments = plume.Arguments("out", true);
  arguments.insert(arguments.end(), {"--set", "Plume/heat.1051=4000"});
  const ProgramOutcome changed = plume.runner.Run(arguments);
  EXPECT_EQ(changed.code, 3);
  EXPECT_NE(changed.err.find("belongs to another scene"), std::string::npos) << changed.err;
  arguments = plume.Arguments("out", true);
  arguments.insert(arguments.end(), {"--frames", "0-3"});
  EXPECT_EQ(plume.runner.Run(arguments).code, 0) << "more frames are no other scene";
  EXPECT_EQ(FrameHashes(plume.Statistics("out")).size(), 4u);
}

TEST(Resume, TheSecondRunIntoAFolderIsRefused) {
  Plume plume({.cells = 12, .lastFrame = 12});
  ASSERT_EQ(plume.Run("whole", false).code, 0);
  pid_t owner = 0;
  const ProgramOutcome first = plume.Run("out", false, [&](pid_t process) {
    owner = process;
    AwaitFile(plume.Folder("out") / FolderLock::kFileName, process);
    ::kill(process, SIGSTOP);  // else it may be done before the second one looks
    ProgramRunner other;
    const ProgramOutcome second = other.Run(plume.Arguments("out", false));
    ::kill(process, SIGCONT);
    EXPECT_EQ(second.code, 5);
    EXPECT_NE(second.err.find("process " + std::to_string(owner) + " is writing there"), std::string::npos)
        << second.err;
  });
  EXPECT_EQ(first.code, 0) << first.err;
  EXPECT_EQ(FrameHashes(plume.Statistics("out")), FrameHashes(plume.Statistics("whole")));
}

// Caches and checkpoints onto a disk of this size: exit 5 with a path, nothing broken, and with room it goes on. 0 when
// all is well.
int FillDisk(const Plume& plume, std::size_t bytes, bool& filled) {
  const fs::path disk = plume.runner.folder / "disk";
  fs::create_directories(disk);
  if (!test::MountSmallDisk(disk, bytes)) return 77;
  ProgramRunner runner;
  const auto arguments = test::Words(
      fmt::format("run {} --out {} --stats {} --quiet --set Plume/keep.folder=disk/caches --checkpoint-every {}",
                  plume.scene, (disk / "out").string(), plume.Statistics("disk").string(), kInterval));
  const ProgramOutcome full = runner.Run(arguments);
  filled = full.code != 0;
  if (full.code != 0 && full.code != 5) return 1;
  if (full.code == 5 && full.err.find(disk.string()) == std::string::npos) return 2;
  const auto report = ReportFolder(disk);
  if (!report.ok() || report->broken > 0) return 3;
  if (::mount("tmpfs", disk.c_str(), "tmpfs", MS_REMOUNT, "size=1g") != 0) return 4;
  auto resumed = arguments;
  resumed.push_back("--resume");
  if (runner.Run(resumed).code != 0) return 5;
  const auto after = ReportFolder(disk);
  if (!after.ok() || after->broken > 0 || after->missing > 0) return 6;
  return FrameHashes(plume.Statistics("disk")) == FrameHashes(plume.Statistics("whole")) ? 0 : 7;
}

void FillDisks(const PlumeSettings& settings, int sizes) {
  Plume plume(settings);
  ASSERT_EQ(plume.Run("whole", false).code, 0);
  std::uintmax_t needed = 0;
  for (const char* folder : {"whole", "caches"}) {
    for (const auto& entry : fs::recursive_directory_iterator(plume.Folder(folder))) {
      if (entry.is_regular_file()) needed += entry.file_size();
    }
  }
  for (int i = 0; i < sizes; i++) {
    const std::size_t size = 16384 + needed * std::size_t(i) / std::size_t(sizes);
    int result = -1;
    bool filled = false;
    std::thread([&] { result = FillDisk(plume, size, filled); }).join();  // what it mounts is this thread's alone
    if (result == 77) GTEST_SKIP() << "no rights to mount";
    EXPECT_EQ(result, 0) << size << " of " << needed << " bytes";
    EXPECT_TRUE(filled) << size << " of " << needed << " bytes";
  }
}
TEST(Resume, AFullDiskIsExitFiveAndTheRunGoesOnWithRoom) { FillDisks({.cells = 8, .lastFrame = 6}, 2); }
TEST(ResumeSlow, AFullDiskIsExitFiveAndTheRunGoesOnWithRoom) { FillDisks({.cells = 16, .lastFrame = 12}, 10); }

long ResidentKilobytes(pid_t process) {
  std::istringstream in(test::ReadText(fmt::format("/proc/{}/status", process)));
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("VmRSS:")) return std::stol(line.substr(6));
  }
  return 0;
}
std::size_t OpenFiles(pid_t process) {
  std::error_code error;
  fs::directory_iterator at(fmt::format("/proc/{}/fd", process), error);
  return error ? 0 : std::size_t(std::distance(at, fs::directory_iterator()));
}

// Memory and open files at a fifth of the run and at its end.
void RunLong(int frames) {
  Plume plume({.cells = 12, .lastFrame = frames});
  long early = 0, late = 0;
  std::size_t earlyFiles = 0, lateFiles = 0;
  const ProgramOutcome outcome = plume.Run("out", false, [&](pid_t process) {
    const auto frame = [&](int n) {
      AwaitFile(plume.Folder("caches") / fmt::format("orlix_grid_c4d{:05}.cache", n), process);
    };
    for (int n = 0; n <= frames / 5; n++) frame(n);
    early = ResidentKilobytes(process), earlyFiles = OpenFiles(process);
    for (int n = frames / 5; n <= frames - 2; n++) frame(n);
    late = ResidentKilobytes(process), lateFiles = OpenFiles(process);
  });
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  ASSERT_GT(early, 0);
  ASSERT_GT(late, 0);
  EXPECT_LT(double(late), double(early) * 1.01) << early << " KB, then " << late;
  EXPECT_LE(lateFiles, earlyFiles + 1) << "at most the file in hand";
}
TEST(ResumeSlow, FiveHundredFramesTakeNoMoreMemory) { RunLong(500); }

}  // namespace
}  // namespace orlix
