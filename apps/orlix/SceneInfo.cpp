// What `orlix info` says about a scene file.

#include <fmt/format.h>

#include "apps/orlix/Command.h"
#include "apps/orlix/FileInfo.h"
#include "scene_file/ParameterText.h"
#include "scene_file/SceneReader.h"
#include "scene_file/SceneWriter.h"

namespace orlix {

namespace {

void PrintTree(const BaseObject& object, int depth) {
  fmt::print("{:{}}{} ({})\n", "", depth * 2, object.name, WrittenName(object.type()));
  for (const auto& tag : object.tags()) {
    fmt::print("{:{}}[{} ({})]\n", "", depth * 2 + 2, tag->name, WrittenName(tag->type()));
  }
  for (const auto& child : object.children()) PrintTree(*child, depth + 1);
}

}  // namespace

Status PrintSceneInfo(const Program& program, const std::string& path) {
  const Result<SceneFile> scene = ReadSceneFile(path, program.engine.types);
  if (!scene) return scene.error();
  const BaseDocument& document = *scene->document;
  if (program.options.json) {  // as it was understood: one file, includes in place
    const Result<std::string> text = WriteScene(document);
    if (!text) return text.error();
    fmt::print("{}", *text);
    return {};
  }
  std::size_t count = 0;
  document.ForEachObject([&](BaseObject&) { ++count; });
  fmt::print("{}: scene file, {} objects, {} keyframed parameters, {} frames a second, frames {} to {}\n", path, count,
             document.tracks().size(), document.fps, document.minTime.Frame(document.fps),
             document.maxTime.Frame(document.fps));
  for (std::size_t i = 1; i < scene->files.size(); ++i) fmt::print("includes {}\n", scene->files[i]);
  for (const auto& object : document.objects()) PrintTree(*object, 1);
  return {};
}

}  // namespace orlix
