// orlix pipeline SCENE: the order in which the engine runs a scene's nodes, stage by stage.

#include <fmt/format.h>

#include "apps/orlix/SceneInput.h"
#include "fluids/scene/Pipeline.h"
#include "scene_file/JsonLayout.h"

namespace orlix {

namespace {

using Json = nlohmann::ordered_json;

Json AsJson(OrlixScene& scene) {
  Json stages = Json::array();
  for (const PipelineStage& stage : ReadPipeline(scene)) {
    Json nodes = Json::array();
    for (const iObject* node : stage.nodes) {
      nodes.push_back({{"node", node->DisplayName()},
                       {"type", node->handler.hostObject()->type().ShortName()},
                       {"priority", node->priority},
                       {"played", scene.IsPlayed(*node)}});
    }
    stages.push_back({{"stage", stage.stage}, {"label", StageLabel(stage.stage)}, {"nodes", std::move(nodes)}});
  }
  return {{"scene", scene.Name()}, {"stages", std::move(stages)}};
}

void PrintText(OrlixScene& scene) {
  fmt::print("{}\n", scene.Name());
  for (const PipelineStage& stage : ReadPipeline(scene)) {
    fmt::print("{}{:>4}  {}\n", stage.beginsGroup ? "\n" : "", stage.stage, StageLabel(stage.stage));
    for (const iObject* node : stage.nodes) {
      const BaseObject& object = *node->handler.hostObject();
      fmt::print("      {:>5}  {} ({}){}\n", node->priority, object.name, object.type().ShortName(),
                 scene.IsPlayed(*node) ? ", played" : "");
    }
  }
}

}  // namespace

Status PipelineCommand(const Program& program, const SceneOptions& options) {
  Result<SceneFile> file = ReadScene(program, options);
  if (!file) return file.error();
  WorkerPool pool(1);
  SceneRun run(program.engine, *file->document, pool, file->document->folder);
  run.TellNothing();
  if (Status status = run.Check(); !status) return status;
  Json scenes = Json::array();
  const char* rule = "";
  for (const auto& [number, scene] : run.hook().scenes()) {
    if (program.options.json) {
      scenes.push_back(AsJson(*scene));
      continue;
    }
    fmt::print("{}", rule);
    rule = "\n";
    PrintText(*scene);
  }
  if (program.options.json) fmt::print("{}\n", LaidOut({{"scenes", std::move(scenes)}}));
  return {};
}

}  // namespace orlix
