#include "apps/orlix/SceneInput.h"

#include <spdlog/spdlog.h>

#include "run/DefaultLook.h"
#include "run/Rehearsal.h"
#include "run/SceneCheck.h"
#include "scene_file/Mistakes.h"

namespace orlix {

Result<SceneFile> ReadScene(const Program& program, const SceneOptions& options, const std::string& out,
                            bool allowOutside) {
  Result<SceneFile> scene = ReadSceneFile(options.scene, program.engine.types, {.overrides = options.overrides});
  if (!scene) return scene;
  const BaseDocument& document = *scene->document;
  const std::vector<RowMistake> found =
      FindSceneMistakes(document, {.results = out.empty() ? document.folder : out, .allowOutside = allowOutside});
  if (found.empty()) return scene;
  Mistakes mistakes;
  ErrorKind kind = ErrorKind::InputFile;
  for (const RowMistake& mistake : found) {
    const auto place = scene->places.FindInText(mistake.object, mistake.row, mistake.textOffset);
    if (place) mistakes.Add(*place, Described(*document.FindObject(mistake.object), mistake.row, mistake.text));
    if (mistake.kind == ErrorKind::Scene) kind = ErrorKind::Scene;
  }
  return Error{kind, mistakes.Text()};
}

FramedBox FindFraming(const Program& program, const SceneOptions& options, BaseDocument& document,
                      const FramePlan& plan, WorkerPool& pool) {
  BaseObject* look = AddDefaultLook(document);
  if (!look && !WantsRehearsal(document)) return {};
  const Result<SceneFile> again = ReadSceneFile(options.scene, program.engine.types, {.overrides = options.overrides});
  if (!again) return {};
  again->document->minTime = document.minTime, again->document->maxTime = document.maxTime;
  spdlog::info("the scene has no {}: its frames are run with coarse cells first, for one that {}",
               WantsRehearsal(document) ? "camera" : "gas material",
               WantsRehearsal(document) ? "sees all of them" : "fits what its channels hold");
  if (look) AddDefaultLook(*again->document);
  const FramedBox box = Rehearse(program.engine, *again->document, pool, plan);
  if (look) {
    FitDefaultLook(*look, box.density);
    spdlog::info("pictures show its channels by a look of their own; a \"gas\" among \"materials\" replaces it");
  }
  return WantsRehearsal(document) ? box : FramedBox();
}

}  // namespace orlix
