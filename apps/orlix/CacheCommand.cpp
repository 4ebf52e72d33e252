// orlix cache SCENE: what the scene's caches have on the disk, and their deletion.

#include <fmt/format.h>
#include <unistd.h>

#include <iostream>

#include "apps/orlix/Command.h"
#include "fluids/caches/C4D_Operator_GridCache_Object.h"
#include "fluids/caches/CacheRows.h"
#include "host/description/TypeRegistry.h"
#include "run/CacheRecords.h"
#include "run/OutputFolders.h"
#include "run/SceneRun.h"
#include "scene_file/JsonLayout.h"
#include "scene_file/SceneReader.h"

namespace orlix {

namespace {

using Json = nlohmann::ordered_json;

std::vector<Cache_OperatorBase*> CachesOf(const SceneRun& run, const std::string& name) {
  std::vector<Cache_OperatorBase*> caches;
  for (const auto& [key, scene] : run.state().hook.scenes()) {
    scene->ForEachNode(NODE_CACHE, NODE_CACHE, [&](iBase& node) {
      auto* cache = dynamic_cast<Cache_OperatorBase*>(&node);
      const std::string path = node.DisplayName();
      const bool named = name.empty() || path == name || path.ends_with("/" + name);
      if (cache && node.IsEnabled() && named) caches.push_back(cache);
    });
  }
  return caches;
}

Json AsJson(const Cache_OperatorBase& cache) {
  const CacheInfo info = cache.GetCacheInfo();
  Json json = {{"cache", cache.DisplayName()}, {"folder", cache.name().folder.string()}, {"found", info.found}};
  if (!info.found) return json;
  json["first"] = info.firstFrame;
  json["last"] = info.lastFrame;
  json["missing"] = CountFrames(info.missing);
  json["bytes"] = info.size;
  return json;
}

void Print(Cache_OperatorBase& cache) {
  fmt::print("{}: {}\n", cache.DisplayName(), cache.name().folder.string());
  if (!cache.GetCacheInfo().found) {
    fmt::print("no frames\n");
    return;
  }
  UpdateCacheDescription(cache);
  fmt::print("{}{}", cache.handler.GetString(Cache_OperatorBase::kFolderTextId),
             cache.handler.GetString(Cache_OperatorBase::kFrameTextId));
}

// The question of the object's own button.
Status Confirm(const CacheCommandOptions& options) {
  if (options.yes) return {};
  if (isatty(STDIN_FILENO) != 1) return Status::Fail(ErrorKind::Usage, "--delete without a terminal needs --yes");
  fmt::print("{} [y/N] ", cache_rows::DeleteButton(0).text);
  std::fflush(stdout);
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" ? Status() : Status::Fail(ErrorKind::Usage, "nothing was deleted");
}

Status Delete(const std::vector<Cache_OperatorBase*>& caches, const CacheCommandOptions& options) {
  if (Status confirmed = Confirm(options); !confirmed.ok()) return confirmed;
  std::vector<std::filesystem::path> folders;
  for (const Cache_OperatorBase* cache : caches) {
    if (cache->GetCacheInfo().found) folders.push_back(cache->name().folder);
  }
  const auto locks = LockOutputFolders(folders);
  if (!locks) return locks.error();
  for (Cache_OperatorBase* cache : caches) {
    if (Status deleted = cache->DeleteCache(); !deleted.ok()) return deleted;
    std::error_code error;
    std::filesystem::remove(CacheRecords::PathOf(cache->name()), error);
  }
  return {};
}

}  // namespace

Status CacheCommand(const Program& program, const CacheCommandOptions& options) {
  Result<SceneFile> scene = ReadSceneFile(options.scene, program.engine.types, {.overrides = options.overrides});
  if (!scene) return scene.error();
  BaseDocument& document = *scene->document;
  WorkerPool pool(1);
  SceneRun run(program.engine, document, pool, document.folder);
  if (Status built = run.Check(); !built.ok()) return built;
  if (options.frame) {
    if (Status moved = document.SetTime(BaseTime::OfFrame(*options.frame, document.fps)); !moved.ok()) return moved;
    run.hook().BuildScenes(document, false);
  }
  const std::vector<Cache_OperatorBase*> caches = CachesOf(run, options.cache);
  if (caches.empty()) {
    return Status::Fail(ErrorKind::Usage, options.cache.empty()
                                              ? options.scene + " has no cache"
                                              : fmt::format("{} has no cache \"{}\"", options.scene, options.cache));
  }
  if (options.remove) {
    if (Status deleted = Delete(caches, options); !deleted.ok()) return deleted;
  }
  if (program.options.json) {
    Json list = Json::array();
    for (const Cache_OperatorBase* cache : caches) list.push_back(AsJson(*cache));
    fmt::print("{}\n", LaidOut(list));
  } else if (!program.options.quiet) {
    for (Cache_OperatorBase* cache : caches) Print(*cache);
  }
  return {};
}

}  // namespace orlix
