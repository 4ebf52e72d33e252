#pragma once
// A scene file of the project, stepped frame by frame, with overrides as from the command line.

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/dynamics/FluidSolver.h"
#include "fluids/scene/OrlixHook.h"
#include "run/Engine.h"
#include "scene_file/SceneReader.h"
#include "tests/support/Cells.h"
#include "tests/support/Folders.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix::test {

class SceneFileRun {
 public:
  // A path is below the repository, or absolute. Throws what the reader has to say.
  explicit SceneFileRun(const std::string& path, std::vector<std::string> overrides = {}, int workers = 2)
      : pool(workers) {
    auto read = ReadSceneFile((std::filesystem::path(SourceFolder()) / path).string(), engine.types,
                              {.overrides = std::move(overrides)});
    if (!read.ok()) throw std::runtime_error(read.error().text);
    document = std::move((*read).document);
    observer.onSubstep = [this](const SubstepReport& report) { reports.push_back(report); };
    observer.warnings.onWarning = [this](const Warning& told) {
      if (told.key != "part-cells") warnings.push_back(told.node + ": " + told.text);  // tests take their own cells
    };
  }

  void StepThrough(int first, int last) {
    for (int frame = first; frame <= last; ++frame) {
      const Status reached = document->SetTime(BaseTime::OfFrame(frame, document->fps));
      if (!reached.ok()) throw std::runtime_error(reached.error().text);
      hook.Execute(*document, &thread, false);
      if (scene().failure()) throw std::runtime_error(scene().failure()->text);
    }
  }
  // The scene of the file's first root object.
  OrlixScene& scene() { return *hook.scenes().begin()->second; }
  BaseObject& Object(const std::string& path) {
    BaseObject* object = document->FindByPath(path);
    if (!object) throw std::runtime_error("no object " + path);
    return *object;
  }
  template <class Node>
  Node& Get(const std::string& path) {
    auto* node = dynamic_cast<Node*>(scene().Retrieve(&Object(path), NODE_ALL, RETRIEVE_ANY, RETRIEVE_ANY));
    if (!node) throw std::runtime_error("no node of that class for " + path);
    return *node;
  }
  const ScalarGrid& Channel(const std::string& path) { return *Get<ChannelBase_Scalar>(path).grid; }

  Engine engine;
  std::unique_ptr<BaseDocument> document;
  WorkerPool pool;
  StatusLine status;
  StepObserver observer;
  OrlixHook hook{SceneHost{pool, engine.factory, status, observer}};
  BaseThread thread;
  std::vector<SubstepReport> reports;
  std::vector<std::string> warnings;
};

// The text of a scene file of the project with parts of it replaced. It may stand in another folder.
inline std::string SceneTextWith(const std::string& path,
                                 const std::vector<std::pair<std::string, std::string>>& changes) {
  std::string text = ReadText(std::filesystem::path(SourceFolder()) / path);
  for (const auto& [from, to] : changes) {
    const std::size_t at = text.find(from);
    if (at == std::string::npos) throw std::runtime_error(path + " has no " + from);
    text.replace(at, from.size(), to);
  }
  const std::string file = "\"file\": \"",
                    folder = (std::filesystem::path(SourceFolder()) / path).parent_path().string();
  for (std::size_t at = 0; (at = text.find(file, at)) != std::string::npos; at += file.size()) {
    if (text[at + file.size()] != '/') text.insert(at + file.size(), folder + "/");
  }
  return text;
}

// f(value, place) for each cell of a grid.
template <class F>
void ForCells(const ScalarGrid& grid, F&& f) {
  const Vec3D offset = CellSampleOffset(grid.gridType);
  ForAll(grid.dims, [&](int i, int j, int k) { f(grid(i, j, k), grid.space.SimOfVoxel(Vec3D(i, j, k) + offset)); });
}

inline double LargestOf(const ScalarGrid& grid) {
  double largest = 0;
  ForCells(grid, [&](double v, const Vec3D&) { largest = std::max(largest, v); });
  return largest;
}
// Weighted by the values.
inline Vec3D CentreOf(const ScalarGrid& grid) {
  Vec3D sum;
  double weight = 0;
  ForCells(grid, [&](double v, const Vec3D& p) { sum += p * v, weight += v; });
  return weight > 0 ? sum / weight : Vec3D();
}

}  // namespace orlix::test
