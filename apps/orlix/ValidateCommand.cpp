// orlix validate SCENE: finds the mistakes of a scene file, and what can't work in a scene that reads well.

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "apps/orlix/SceneInput.h"
#include "run/SceneRun.h"
#include "run/WarningReport.h"
#include "scene_file/JsonLayout.h"

namespace orlix {

namespace {

using Json = nlohmann::ordered_json;

struct Findings {
  std::size_t objects = 0;
  std::vector<std::string> off;
  Json warnings = Json::array();
};

// Reads the scene and whatever files its objects show in the first frame, and builds its nodes.
Status Check(const Program& program, const SceneOptions& options, Findings& findings) {
  Result<SceneFile> scene = ReadScene(program, options);
  if (!scene) return scene.error();
  scene->document->ForEachObject([&](BaseObject&) { ++findings.objects; });
  findings.off = scene->off;
  WorkerPool pool(1);
  SceneRun run(program.engine, *scene->document, pool, scene->document->folder);
  Status status = run.Check();
  findings.warnings = AsJson(run.state().warnings);
  return status;
}

}  // namespace

Status ValidateCommand(const Program& program, const SceneOptions& options) {
  Findings findings;
  Status status = Check(program, options, findings);
  if (program.options.json) {
    Json mistakes = Json::array();
    for (std::size_t from = 0; !status.ok() && from != std::string::npos;) {
      const std::string& text = status.error().text;
      const auto end = text.find('\n', from);
      mistakes.push_back(text.substr(from, end == std::string::npos ? end : end - from));
      from = end == std::string::npos ? end : end + 1;
    }
    const Json json = {{"scene", options.scene},          {"valid", status.ok()},
                       {"objects", findings.objects},     {"off", findings.off},
                       {"mistakes", std::move(mistakes)}, {"warnings", findings.warnings}};
    fmt::print("{}\n", LaidOut(json));
  } else if (status.ok() && !program.options.quiet) {
    const std::size_t warnings = findings.warnings.size();
    const std::string off = findings.off.empty() ? "" : fmt::format(", off: {}", fmt::join(findings.off, ", "));
    fmt::print("{}: valid, {} objects{}{}\n", options.scene, findings.objects, off,
               warnings == 0   ? ""
               : warnings == 1 ? ", 1 warning"
                               : fmt::format(", {} warnings", warnings));
  }
  return status;
}

}  // namespace orlix
