// orlix run SCENE: simulates, with progress and statistics.

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <cmath>

#include "apps/orlix/Command.h"
#include "apps/orlix/Progress.h"
#include "apps/orlix/SceneInput.h"
#include "fluids/caches/Cache_OperatorBase.h"
#include "globals/ByteSize.h"
#include "globals/Hash.h"
#include "run/CacheRecords.h"
#include "run/Checkpoints.h"
#include "run/FrameList.h"
#include "run/FrameResults.h"
#include "run/FramesToMake.h"
#include "run/Interrupt.h"
#include "run/LiquidTotals.h"
#include "run/OutputFolders.h"
#include "run/SceneRun.h"
#include "run/Statistics.h"
#include "run/WarningReport.h"
#include "scene_file/JsonLayout.h"
#include "scene_file/SceneHash.h"

namespace orlix {

namespace {

using Json = nlohmann::ordered_json;

std::size_t CountObjects(const BaseDocument& document) {
  std::size_t count = 0;
  document.ForEachObject([&](BaseObject&) { ++count; });
  return count;
}

void PrintPlan(const Program& program, const RunOptions& options, const BaseDocument& document, const FramePlan& plan,
               const MemoryForecast& memory, int workers, const Warnings& warnings) {
  const std::size_t objects = CountObjects(document), wanted = plan.wanted.size();
  if (program.options.json) {
    const Json json = {{"scene", options.scene},
                       {"dry_run", true},
                       {"objects", objects},
                       {"first", plan.first},
                       {"last", plan.last},
                       {"fps", document.fps},
                       {"wanted", wanted},
                       {"workers", workers},
                       {"most_cells", std::round(memory.cells)},
                       {"most_bytes", std::round(memory.bytes)},
                       {"warnings", AsJson(warnings)}};
    fmt::print("{}\n", LaidOut(json));
    return;
  }
  fmt::print(
      "{}: {} objects, {} frames a second, frames {} to {}{}, {} workers{}; nothing was simulated\n", options.scene,
      objects, document.fps, plan.first, plan.last, wanted ? fmt::format(" ({} of them wanted)", wanted) : "", workers,
      memory.cells > 0   ? fmt::format(", up to {:.0f} cells in about {}", memory.cells, ByteSizeText(memory.bytes))
      : memory.bytes > 0 ? fmt::format(", level sets and particles in about {}", ByteSizeText(memory.bytes))
                         : "");
}

void PrintOutcome(const Program& program, const RunOptions& options, const SceneRun& run, double seconds,
                  std::int64_t peakBytes, const LiquidTotals& liquids) {
  const RunState& state = run.state();
  if (program.options.json) {
    Json scenes = Json::array();
    for (const auto& [key, scene] : state.hook.scenes()) {
      scenes.push_back({{"scene", scene->Name()}, {"hash", HexHash(scene->HashState())}});
    }
    const Json json = {{"scene", options.scene},  {"frames", state.framesDone},
                       {"last", state.frame},     {"seconds", seconds},
                       {"peak_bytes", peakBytes}, {"interrupted", state.interrupted},
                       {"scenes", scenes},        {"warnings", AsJson(state.warnings)}};
    fmt::print("{}\n", LaidOut(json));
    return;
  }
  if (program.options.quiet) return;
  fmt::print("{}: {} frame{} in {:.3g} s, grids took up to {}{}\n", options.scene, state.framesDone,
             state.framesDone == 1 ? "" : "s", seconds, ByteSizeText(static_cast<double>(peakBytes)),
             state.interrupted ? "; interrupted" : "");
  for (const auto& [name, total] : liquids.totals()) fmt::print("{}\n", LiquidTotals::Text(name.second, total));
}

// The most that grids took over the whole run; the engine's own peak starts anew with each sub-step.
class PeakMemory : public FrameListener {
 public:
  void AfterSubstep(const RunState&, const SubstepReport& report) override {
    bytes = std::max(bytes, report.peakBytes);
  }
  std::int64_t bytes = 0;
};

std::vector<std::filesystem::path> FoldersWritten(const BaseDocument& document, const std::string& outputFolder,
                                                  const RunOptions& options) {
  std::vector<std::filesystem::path> folders = RecordedFolders(document);
  for (const std::filesystem::path& folder : FrameOutput(document, outputFolder).Folders()) folders.push_back(folder);
  if (options.checkpointEvery > 0 || !options.out.empty() || !folders.empty()) folders.emplace_back(outputFolder);
  return folders;
}

// A frame for each line, up to a few.
void TellReasons(const std::vector<FrameToMake>& frames) {
  constexpr std::size_t kTold = 5;
  for (std::size_t n = 0; n < std::min(kTold, frames.size()); ++n) {
    spdlog::info("frame {}: {}", frames[n].frame, frames[n].reason);
  }
  if (frames.size() > kTold) spdlog::info("and {} frames more", frames.size() - kTold);
}

// What a run makes from what, and the record of it.
struct Work {
  std::vector<Pass> passes;
  std::filesystem::path recordPath;  // empty when nothing is kept
  ResultRecord record;
  bool nothingToDo = false;
};

// With --missing the plan's frames become those that have to be made.
Status PlanWork(const Program& program, const RunOptions& options, BaseDocument& document, WorkerPool& pool,
                const std::string& outputFolder, std::uint64_t sceneHash, FramePlan& plan, Work& work) {
  work.passes = FindPasses(document, PassResults::Run);
  plan.onlyWanted = AllStandAlone(work.passes);
  const bool outputs = !FrameOutput(document, outputFolder).Folders().empty();
  if (options.missing && !outputs && !plan.onlyWanted) {
    return Status::Fail(ErrorKind::Usage, "--missing: the scene has no output, so there is nothing to complete");
  }
  if (!outputs && !plan.onlyWanted) return {};
  work.recordPath = ResultRecord::PathOf(outputFolder, options.scene);
  Result<ResultRecord> record = ResultRecord::Read(work.recordPath);
  if (!record && options.missing) return record.error();
  if (record) work.record = std::move(*record);
  if (!options.missing) return {};
  Result<std::vector<FrameToMake>> frames =
      FramesToMake(program.engine, document, pool, plan, work.passes, work.record, sceneHash);
  if (!frames) return frames.error();
  TellReasons(*frames);
  work.nothingToDo = frames->empty();
  if (work.nothingToDo) return {};
  plan.wanted.clear();
  for (const FrameToMake& each : *frames) plan.wanted.push_back(each.frame);
  plan.last = plan.wanted.back();
  return {};
}

bool MakesPictures(const BaseDocument& document) {
  const std::vector<BaseObject*> outputs = document.ObjectsOfType(OutputSettings::Type().id);
  return std::any_of(outputs.begin(), outputs.end(),
                     [](const BaseObject* output) { return output->GetBool(OutputSettings::kPicturesId); });
}

// Restores the latest checkpoint's state; the plan begins after it.
Status Resume(Checkpoints& checkpoints, FrameResults& results, BaseDocument& document, SceneRun& run, FramePlan& plan) {
  const auto found = checkpoints.FindLatest();
  if (!found) return found.error();
  if (!*found) {
    spdlog::info("there is no checkpoint: the run begins at its first frame");
    return {};
  }
  const int frame = (*found)->head.frame;
  // Bodies stand in the state where they stood: velocities of their meshes begin there.
  if (Status restored = RestoreCheckpoint((*found)->path, document, run.hook()); !restored.ok()) return restored;
  if (Status told = results.ContinueBehind(frame, plan, document, run.state().outputFolder); !told.ok()) return told;
  checkpoints.ContinueFrom(**found);
  plan.start = frame + 1;
  spdlog::info("going on after frame {}", frame);
  return {};
}

}  // namespace

Status RunCommand(const Program& program, const RunOptions& options) {
  Interrupt::Install();
  std::optional<std::vector<int>> list;
  if (!options.frames.empty()) {
    Result<std::vector<int>> frames = ParseFrameList(options.frames);
    if (!frames) return frames.error();
    list = std::move(*frames);
  }
  Result<SceneFile> scene = ReadScene(program, options, options.out, options.allowOutside);
  if (!scene) return scene.error();
  BaseDocument& document = *scene->document;
  const Result<std::uint64_t> sceneHash = HashScene(document);
  if (!sceneHash) return sceneHash.error();
  Result<FramePlan> plan = PlanFrames(document, list);
  if (!plan) return plan.error();
  plan->checkpoints = options.checkpointEvery > 0;
  WorkerPool pool(program.options.threads > 0 ? program.options.threads : HostWorkerCount());
  const std::string outputFolder = options.out.empty() ? document.folder : options.out;
  if (options.dryRun) {
    SceneRun run(program.engine, document, pool, outputFolder);
    const Result<MemoryForecast> memory = run.Forecast();
    if (!memory) return memory.error();
    PrintPlan(program, options, document, *plan, *memory, pool.count(), run.state().warnings);
    return {};
  }
  const std::vector<int> asked = WantedFrames(*plan);
  Work work;
  if (Status planned = PlanWork(program, options, document, pool, outputFolder, *sceneHash, *plan, work); !planned) {
    return planned;
  }
  if (work.nothingToDo) {
    if (!program.options.quiet) fmt::print("{}: all {} frames are whole\n", options.scene, asked.size());
    return {};
  }
  if (plan->onlyWanted) {
    plan->checkpoints = false;
    spdlog::info("caches play all that the results are made from: nothing is simulated");
  }
  PictureOptions pictures{.view = options.view};
  if (MakesPictures(document)) pictures.box = FindFraming(program, options, document, *plan, pool);
  if (Status loaded = FrameOutput(document, outputFolder).LoadLibraries(); !loaded) return loaded;
  const auto locks = LockOutputFolders(FoldersWritten(document, outputFolder, options));
  if (!locks) return locks.error();
  if (!options.overwrite && !options.resume && !options.missing) {
    if (Status free = RefuseToRecordOver(document, plan->first, plan->last); !free.ok()) return free;
  }
  SceneRun run(program.engine, document, pool, outputFolder);
  run.SetMissingCachesFail(!options.allowMissing);
  if (plan->onlyWanted) run.StandAlone(NodesOf(work.passes));
  Checkpoints checkpoints(outputFolder, plan->checkpoints ? options.checkpointEvery : 0, *sceneHash);
  FrameResults results(&Interrupt::Thread(), FrameResults::Pictures::AsAskedFor, pictures);
  if (!work.recordPath.empty()) {
    if (Status begun = work.record.Begin(work.recordPath, RangesOf(asked)); !begun) return begun;
    results.KeepRecord(work.record, work.passes, *sceneHash);
  }
  if (options.resume && !plan->onlyWanted) {
    if (Status resumed = Resume(checkpoints, results, document, run, *plan); !resumed.ok()) return resumed;
  }
  std::unique_ptr<Statistics> statistics;
  if (!options.stats.empty()) {
    auto opened = Statistics::Open(options.stats, plan->start);
    if (!opened) return opened.error();
    statistics = std::move(*opened);
    run.AddListener(*statistics);
  }
  PeakMemory peak;
  run.AddListener(peak);
  CacheRecords recorded(*sceneHash, {plan->first, plan->last});
  run.AddListener(recorded);
  LiquidTotals liquids;
  run.AddListener(liquids);
  Progress progress(program.console);
  if (!program.options.quiet) {
    run.AddListener(progress);
    run.status().onChange = [&](const std::string& text) { progress.OnStatus(text); };
  }
  run.AddListener(results);
  run.AddListener(checkpoints);
  const auto start = std::chrono::steady_clock::now();
  Status status = run.Run(*plan);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (run.state().interrupted && checkpoints.last()) {
    spdlog::info("--resume goes on after frame {}", *checkpoints.last());
  }
  if (!program.options.quiet && !run.state().interrupted && status.ok() && results.files() == 0 && !statistics &&
      RecordedCaches(document).empty()) {
    spdlog::info(
        "the run kept nothing: no \"output\" of the scene asks for files and no cache records; switch on \"pictures\", "
        "\"meshes\", \"particles\" or \"vdb\" of an \"output\", or use orlix render");
  }
  if (status.ok()) PrintOutcome(program, options, run, seconds, peak.bytes, liquids);
  return status;
}

}  // namespace orlix
