// orlix render SCENE: pictures, from caches where the scene plays them back, otherwise from a run.

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <chrono>
#include <cstdio>

#include "apps/orlix/Command.h"
#include "apps/orlix/Progress.h"
#include "apps/orlix/SceneInput.h"
#include "fluids/caches/Cache_OperatorBase.h"
#include "globals/Hash.h"
#include "host/render/RenderSettings.h"
#include "run/CacheRecords.h"
#include "run/FrameList.h"
#include "run/FrameResults.h"
#include "run/Interrupt.h"
#include "run/OutputFolders.h"
#include "run/Passes.h"
#include "run/SceneRun.h"
#include "run/WarningReport.h"
#include "scene_file/JsonLayout.h"
#include "scene_file/SceneHash.h"

namespace orlix {

namespace {

Status ParseSize(const std::string& text, PictureOptions& options) {
  if (text.empty()) return {};
  char rest = 0;
  const bool good = std::sscanf(text.c_str(), "%dx%d%c", &options.width, &options.height, &rest) == 2;
  if (good && options.width >= 1 && options.height >= 1 && options.width <= kMaxPictureSide &&
      options.height <= kMaxPictureSide) {
    return {};
  }
  return Status::Fail(ErrorKind::Usage,
                      fmt::format("--size is {}, must be WIDTHxHEIGHT with 1 to {} each", text, kMaxPictureSide));
}

Status ParseCrop(const std::string& text, PictureCrop& crop) {
  if (text.empty()) return {};
  int width = 0, height = 0;
  char rest = 0;
  const bool good = std::sscanf(text.c_str(), "%dx%d+%d+%d%c", &width, &height, &crop.left, &crop.top, &rest) == 4 &&
                    width >= 1 && height >= 1 && crop.left >= 0 && crop.top >= 0 && width <= kMaxPictureSide &&
                    height <= kMaxPictureSide && crop.left <= kMaxPictureSide && crop.top <= kMaxPictureSide;
  crop.right = crop.left + width, crop.bottom = crop.top + height;
  if (good) return {};
  return Status::Fail(ErrorKind::Usage,
                      fmt::format("--crop is {}, must be WIDTHxHEIGHT+LEFT+TOP, such as 320x200+100+50", text));
}

// The pictures that are asked for, and what of them is there already.
struct PictureList {
  std::vector<int> frames;  // all that are wanted
  std::vector<int> left;    // that aren't made
};

PictureList ListPictures(const FramePlan& plan, const BaseDocument& document, const PictureWork* work) {
  PictureList list;
  for (int frame = plan.first; frame <= plan.last; ++frame) {
    if (!plan.Wants(frame)) continue;
    list.frames.push_back(frame);
    if (!work || !work->HasMade(document, frame)) list.left.push_back(frame);
  }
  return list;
}

struct Outcome {
  std::size_t pictures = 0;  // made now
  double seconds = 0;
  bool interrupted = false, dryRun = false;
};

void Print(const Program& program, const RenderCommandOptions& options, const std::string& folder,
           const PictureList& list, const Outcome& outcome, const Warnings& warnings) {
  const std::size_t before = list.frames.size() - list.left.size(), left = list.left.size() - outcome.pictures;
  if (program.options.json) {
    const nlohmann::ordered_json json = {{"scene", options.scene},
                                         {"dry_run", outcome.dryRun},
                                         {"folder", folder},
                                         {"wanted", list.frames.size()},
                                         {"done_before", before},
                                         {"pictures", outcome.pictures},
                                         {"left", left},
                                         {"seconds", outcome.seconds},
                                         {"interrupted", outcome.interrupted},
                                         {"warnings", AsJson(warnings)}};
    fmt::print("{}\n", LaidOut(json));
    return;
  }
  if (program.options.quiet) return;
  const std::string there = before > 0 ? fmt::format(", {} were there", before) : "";
  if (outcome.dryRun) {
    fmt::print("{}: {} pictures would be made in {}{}\n", options.scene, left, folder, there);
  } else if (outcome.interrupted) {
    fmt::print("{}: interrupted: pictures of {} frames in {}{}, {} are left; --resume goes on\n", options.scene,
               outcome.pictures, folder, there, left);
  } else {
    fmt::print("{}: pictures of {} frame{} in {}{}\n", options.scene, outcome.pictures,
               outcome.pictures == 1 ? "" : "s", folder, there);
  }
}

// All that pictures depend on but their frames.
Result<std::uint64_t> HashWork(const BaseDocument& document, const RenderCommandOptions& options) {
  const Result<std::uint64_t> scene = HashScene(document);
  if (!scene) return scene;
  const std::string rest = fmt::format("{} {} {} {} {}", options.size, options.crop, options.samples, options.preview,
                                       options.view ? static_cast<int>(*options.view) : -1);
  return *scene ^ HashBytes(rest.data(), rest.size());
}

// A part doesn't take the place of the whole picture of its frame.
void NameParts(const PictureCrop& crop, BaseDocument& document) {
  if (crop.Empty()) return;
  const std::vector<BaseObject*> found = document.ObjectsOfType(kRenderSettingsId);
  BaseObject& settings = found.empty() ? document.AddObject(kRenderSettingsType, nullptr) : *found.front();
  settings.Set(kRenderFileNameId, settings.GetString(kRenderFileNameId) + "_crop");
}

}  // namespace

Status RenderCommand(const Program& program, const RenderCommandOptions& options) {
  Interrupt::Install();
  PictureOptions pictures;
  pictures.slices = options.preview;
  pictures.view = options.view;
  pictures.samples = options.samples;
  if (Status size = ParseSize(options.size, pictures); !size) return size;
  if (Status crop = ParseCrop(options.crop, pictures.crop); !crop) return crop;
  std::optional<std::vector<int>> list;
  if (!options.frames.empty()) {
    Result<std::vector<int>> frames = ParseFrameList(options.frames);
    if (!frames) return frames.error();
    list = std::move(*frames);
  }
  Result<SceneFile> scene = ReadScene(program, options, options.out, options.allowOutside);
  if (!scene) return scene.error();
  BaseDocument& document = *scene->document;
  NameParts(pictures.crop, document);
  const Result<std::uint64_t> hash = HashWork(document, options);
  if (!hash) return hash.error();
  Result<FramePlan> plan = PlanFrames(document, list);
  if (!plan) return plan.error();
  const std::vector<Pass> passes = FindPasses(document, options.preview ? PassResults::Slices : PassResults::Pictures);
  plan->onlyWanted = AllStandAlone(passes);
  plan->rendering = !options.preview;
  WorkerPool pool(program.options.threads > 0 ? program.options.threads : HostWorkerCount());
  const std::string folder = options.out.empty() ? document.folder : options.out;
  const PictureWork work(folder, *hash);
  bool goesOn = false;
  if (options.resume && !options.preview) {
    const Result<bool> found = work.Continue();
    if (!found) return found.error();
    goesOn = *found;
    if (!goesOn) spdlog::info("there is nothing to go on with: the pictures begin at the first frame");
  }
  const PictureList all = ListPictures(*plan, document, goesOn ? &work : nullptr);
  if (options.dryRun || all.left.empty()) {
    SceneRun check(program.engine, document, pool, folder);
    if (Status checked = check.Check(); !checked) return checked;
    Print(program, options, folder, all, {.dryRun = options.dryRun}, check.state().warnings);
    return {};
  }
  std::vector<std::filesystem::path> folders = RecordedFolders(document);
  folders.emplace_back(folder);
  const auto locks = LockOutputFolders(folders);
  if (!locks) return locks.error();
  if (!options.overwrite && !goesOn) {
    if (Status free = RefuseToRecordOver(document, plan->first, plan->last); !free.ok()) return free;
  }
  if (!goesOn && !options.preview) {
    if (Status started = work.Start(); !started) return started;
  }
  // The framing is that of all frames, also of those that are done.
  if (!options.preview) pictures.box = FindFraming(program, options, document, *plan, pool);
  plan->wanted = all.left, plan->last = all.left.back();
  SceneRun run(program.engine, document, pool, folder);
  run.SetMissingCachesFail(!options.allowMissing);
  if (plan->onlyWanted) run.StandAlone(NodesOf(passes));
  Progress progress(program.console);
  if (!options.preview) pictures.work = &work;
  if (!program.options.quiet) {
    pictures.onProgress = [&](const RenderProgress& p) {
      progress.OnStatus(fmt::format("picture {:.0f}%{}", 100 * p.fraction,
                                    p.secondsLeft > 0 ? ", " + DurationText(p.secondsLeft) + " left" : ""));
    };
  }
  FrameResults results(&Interrupt::Thread(), FrameResults::Pictures::OfEveryFrame, pictures);
  CacheRecords recorded(*hash, {plan->first, plan->last});
  run.AddListener(recorded);
  run.AddListener(results);
  if (!program.options.quiet) {
    run.AddListener(progress);
    run.status().onChange = [&](const std::string& text) { progress.OnStatus(text); };
  }
  const auto start = std::chrono::steady_clock::now();
  Status status = run.Run(*plan);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (status.ok()) {
    Print(program, options, folder, all, {results.pictures(), seconds, run.state().interrupted, false},
          run.state().warnings);
  }
  return status;
}

}  // namespace orlix
