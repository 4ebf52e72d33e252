// orlix render SCENE: pictures, from caches where the scene plays them back, otherwise from a run.

#include <fmt/format.h>

#include <cstdio>

#include "apps/orlix/Command.h"
#include "apps/orlix/Progress.h"
#include "apps/orlix/SceneInput.h"
#include "fluids/caches/Cache_OperatorBase.h"
#include "host/render/RenderSettings.h"
#include "run/FrameList.h"
#include "run/FrameResults.h"
#include "run/Interrupt.h"
#include "run/OutputFolders.h"
#include "run/PlayedBack.h"
#include "run/SceneRun.h"

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

}  // namespace

Status RenderCommand(const Program& program, const RenderCommandOptions& options) {
  Interrupt::Install();
  PictureOptions pictures;
  pictures.slices = options.preview;
  pictures.view = options.view;
  if (Status size = ParseSize(options.size, pictures); !size) return size;
  std::optional<std::vector<int>> list;
  if (!options.frames.empty()) {
    Result<std::vector<int>> frames = ParseFrameList(options.frames);
    if (!frames) return frames.error();
    list = std::move(*frames);
  }
  Result<SceneFile> scene = ReadScene(program, options, options.out, options.allowOutside);
  if (!scene) return scene.error();
  BaseDocument& document = *scene->document;
  Result<FramePlan> plan = PlanFrames(document, list);
  if (!plan) return plan.error();
  plan->onlyWanted = PicturesArePlayedBack(document, options.preview);
  plan->rendering = !options.preview;
  WorkerPool pool(program.options.threads > 0 ? program.options.threads : HostWorkerCount());
  const std::string folder = options.out.empty() ? document.folder : options.out;
  std::vector<std::filesystem::path> folders = RecordedFolders(document);
  folders.emplace_back(folder);
  const auto locks = LockOutputFolders(folders);
  if (!locks) return locks.error();
  if (!options.preview) pictures.box = FindFraming(program, options, document, *plan, pool);
  SceneRun run(program.engine, document, pool, folder);
  run.SetMissingCachesFail(!options.allowMissing);
  FrameResults results(&Interrupt::Thread(), FrameResults::Pictures::OfEveryFrame, pictures);
  run.AddListener(results);
  Progress progress(program.console);
  if (!program.options.quiet) {
    run.AddListener(progress);
    run.status().onChange = [&](const std::string& text) { progress.OnStatus(text); };
  }
  Status status = run.Run(*plan);
  if (status.ok() && !program.options.quiet)
    fmt::print("{}: pictures of {} frames in {}\n", options.scene, results.pictures(), folder);
  return status;
}

}  // namespace orlix
