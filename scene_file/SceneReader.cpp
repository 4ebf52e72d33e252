#include "scene_file/SceneReader.h"

#include <filesystem>

#include "scene_file/SceneBuilder.h"
#include "scene_file/SceneOverrides.h"

namespace orlix {

Result<SceneFile> ReadSceneText(const std::string& name, std::string text, const TypeRegistry& types,
                                const SceneReadOptions& options) {
  auto source = std::make_shared<SourceText>();
  source->name = name;
  source->folder = std::filesystem::path(name).parent_path().string();
  source->text = std::move(text);

  SceneFile scene{std::make_unique<BaseDocument>(types), {}, {}, {}};
  scene.document->folder = source->folder;
  Mistakes mistakes;
  SceneBuilder builder(*scene.document, mistakes, options.load);
  builder.ReadFile(source);
  builder.NameTheUnnamed();
  scene.files = builder.TakeFiles();

  const ObjectIndex index(*scene.document);
  if (Status status = ApplyOverrides(*scene.document, options.overrides, index, builder.parameters(),
                                     builder.switchedOff(), mistakes);
      !status) {
    return status.error();
  }
  builder.parameters().ResolveReferences(index);
  scene.off = builder.switchedOff().TakeOut(*scene.document);
  scene.places = builder.parameters().TakePlaces();
  if (!mistakes.empty()) return Error{ErrorKind::Scene, mistakes.Text()};
  return scene;
}

Result<SceneFile> ReadSceneFile(const std::string& path, const TypeRegistry& types, const SceneReadOptions& options) {
  Result<std::string> text = options.load(path);
  if (!text) return text.error();
  return ReadSceneText(path, std::move(*text), types, options);
}

}  // namespace orlix
