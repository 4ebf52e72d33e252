#include "apps/orlix/SceneInput.h"

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
    const Place* place = scene->places.Find(mistake.object, mistake.row);
    if (place) mistakes.Add(*place, Described(*document.FindObject(mistake.object), mistake.row, mistake.text));
    if (mistake.kind == ErrorKind::Scene) kind = ErrorKind::Scene;
  }
  return Error{kind, mistakes.Text()};
}

}  // namespace orlix
