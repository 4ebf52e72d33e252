// orlix passes SCENE: what of a scene's results can be made from which caches, without simulating, and what of the
// caches and of the results is missing or stale.

#include <fmt/format.h>

#include <map>

#include "apps/orlix/Command.h"
#include "apps/orlix/SceneInput.h"
#include "fluids/caches/Cache_OperatorBase.h"
#include "run/FramesToMake.h"
#include "scene_file/JsonLayout.h"
#include "scene_file/SceneHash.h"

namespace orlix {

namespace {

using Json = nlohmann::ordered_json;

std::vector<std::string> PathsOf(const BaseDocument& document, const std::set<std::uint64_t>& numbers) {
  std::vector<std::string> paths;
  for (const std::uint64_t number : numbers) paths.push_back(document.FindObject(number)->Path());
  return paths;
}

std::string Joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

// The frames of a cache on the disk.
struct OnDisk {
  std::string cache;
  std::vector<FrameFile> files;
  std::vector<FrameRange> missing;
};

std::vector<OnDisk> CachesOf(const BaseDocument& document, const std::vector<Pass>& passes) {
  std::set<std::uint64_t> numbers;
  for (const Pass& pass : passes) numbers.insert(pass.caches.begin(), pass.caches.end());
  std::vector<OnDisk> caches;
  for (const std::uint64_t number : numbers) {
    const CacheFiles named = CacheFilesOf(*document.FindObject(number));
    OnDisk found{named.object->Path(), ScanFrameFiles(named.folder, named.stem, named.extension), {}};
    if (!found.files.empty()) found.missing = MissingFrames(found.files, found.files.front().frame);
    caches.push_back(std::move(found));
  }
  return caches;
}

void PrintText(const BaseDocument& document, const std::vector<Pass>& passes, const std::vector<OnDisk>& caches) {
  for (const Pass& pass : passes) {
    const std::string from = Joined(PathsOf(document, pass.caches));
    if (pass.StandsAlone()) {
      fmt::print("{}: {}\n", pass.name, from.empty() ? "needs no simulation" : "from " + from);
    } else {
      fmt::print("{}: simulates, since no cache plays {} in every frame{}\n", pass.name,
                 Joined(PathsOf(document, pass.simulated)), from.empty() ? "" : "; from " + from);
    }
  }
  for (const OnDisk& cache : caches) {
    if (cache.files.empty()) {
      fmt::print("{}: no frames on the disk\n", cache.cache);
      continue;
    }
    fmt::print("{}: frames {} to {}{}\n", cache.cache, cache.files.front().frame, cache.files.back().frame,
               cache.missing.empty() ? "" : ", missing " + FormatRanges(cache.missing));
  }
}

void PrintFrames(const std::vector<FrameToMake>& frames, std::size_t all) {
  std::map<std::string, std::vector<int>> byReason;
  for (const FrameToMake& each : frames) byReason[each.reason].push_back(each.frame);
  if (byReason.empty()) fmt::print("results: all {} frames are whole\n", all);
  for (const auto& [reason, list] : byReason) {
    fmt::print("results: {} of {} frames to make, {}: {}\n", list.size(), all, reason, FormatRanges(RangesOf(list)));
  }
}

Json AsJson(const BaseDocument& document, const std::vector<Pass>& passes, const std::vector<OnDisk>& caches,
            const std::vector<FrameToMake>& frames) {
  Json json = {{"stands_alone", AllStandAlone(passes)},
               {"results", Json::array()},
               {"caches", Json::array()},
               {"to_make", Json::array()}};
  for (const Pass& pass : passes) {
    json["results"].push_back({{"result", pass.name},
                               {"caches", PathsOf(document, pass.caches)},
                               {"simulates", PathsOf(document, pass.simulated)}});
  }
  for (const OnDisk& cache : caches) {
    Json missing = Json::array();
    for (const FrameRange& range : cache.missing) missing.push_back({range.first, range.last});
    json["caches"].push_back({{"cache", cache.cache}, {"frames", cache.files.size()}, {"missing", missing}});
  }
  for (const FrameToMake& each : frames) json["to_make"].push_back({{"frame", each.frame}, {"reason", each.reason}});
  return json;
}

}  // namespace

Status PassesCommand(const Program& program, const PassesOptions& options) {
  Result<SceneFile> scene = ReadScene(program, options, options.out);
  if (!scene) return scene.error();
  BaseDocument& document = *scene->document;
  const Result<std::uint64_t> sceneHash = HashScene(document);
  if (!sceneHash) return sceneHash.error();
  const Result<FramePlan> plan = PlanFrames(document, {});
  if (!plan) return plan.error();
  const std::vector<Pass> passes = FindPasses(document, PassResults::Run);
  const std::vector<OnDisk> caches = CachesOf(document, passes);
  const Result<ResultRecord> record =
      ResultRecord::Read(ResultRecord::PathOf(options.out.empty() ? document.folder : options.out, options.scene));
  if (!record) return record.error();
  WorkerPool pool(1);
  const Result<std::vector<FrameToMake>> frames =
      FramesToMake(program.engine, document, pool, *plan, passes, *record, *sceneHash);
  if (!frames) return frames.error();
  if (program.options.json) {
    fmt::print("{}\n", LaidOut(AsJson(document, passes, caches, *frames)));
    return {};
  }
  if (passes.empty()) fmt::print("{}: the scene has no output and records nothing\n", options.scene);
  PrintText(document, passes, caches);
  if (!passes.empty()) PrintFrames(*frames, WantedFrames(*plan).size());
  return {};
}

}  // namespace orlix
