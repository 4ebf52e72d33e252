// orlix validate SCENE: finds the mistakes of a scene file.

#include <fmt/format.h>

#include "apps/orlix/Command.h"
#include "scene_file/JsonLayout.h"
#include "scene_file/SceneReader.h"

namespace orlix {

namespace {

using Json = nlohmann::ordered_json;

// Reads the scene and whatever files its objects show in the first frame.
Status Check(const Program& program, const SceneOptions& options, std::size_t& objects) {
  Result<SceneFile> scene = ReadSceneFile(options.scene, program.engine.types, {.overrides = options.overrides});
  if (!scene) return scene.error();
  scene->document->ForEachObject([&](BaseObject&) { ++objects; });
  return scene->document->SetTime(scene->document->minTime);
}

}  // namespace

Status ValidateCommand(const Program& program, const SceneOptions& options) {
  std::size_t objects = 0;
  Status status = Check(program, options, objects);
  if (program.options.json) {
    Json mistakes = Json::array();
    for (std::size_t from = 0; !status.ok() && from != std::string::npos;) {
      const std::string& text = status.error().text;
      const auto end = text.find('\n', from);
      mistakes.push_back(text.substr(from, end == std::string::npos ? end : end - from));
      from = end == std::string::npos ? end : end + 1;
    }
    const Json json = {
        {"scene", options.scene}, {"valid", status.ok()}, {"objects", objects}, {"mistakes", std::move(mistakes)}};
    fmt::print("{}\n", LaidOut(json));
  } else if (status.ok() && !program.options.quiet) {
    fmt::print("{}: valid, {} objects\n", options.scene, objects);
  }
  return status;
}

}  // namespace orlix
