#pragma once
// A scene file, read as the program reads it and stepped frame by frame.

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "apps/orlix/SceneReader.h"
#include "fluids/scene/OrlixHook.h"
#include "main/RegisterTypes.h"

namespace orlix::test {

class SceneFileRun {
 public:
  // path below the repository; overrides as for --set. Throws what the reader has to say.
  SceneFileRun(const std::string& path, int workers, std::vector<std::string> overrides = {}) : pool(workers) {
    RegisterTypes(factory);
    SceneReadOptions options;
    options.overrides = std::move(overrides);
    Result<SceneFile> read = ReadSceneFile(std::string(ORLIX_SOURCE_DIR) + "/" + path, types, options);
    if (!read.ok()) throw std::runtime_error(read.error().text);
    document = std::move(read->document);
    observer.onSubstep = [this](const SubstepReport& report) { reports.push_back(report); };
    observer.onWarning = [this](const std::string& node, const std::string& text) {
      warnings.emplace_back(node, text);
    };
    hook = std::make_unique<OrlixHook>(SceneHost{pool, factory, status, observer});
  }

  void StepThrough(int first, int last) {
    for (int frame = first; frame <= last; ++frame) {
      if (const Status moved = document->SetTime(BaseTime::OfFrame(frame, document->fps)); !moved.ok()) {
        throw std::runtime_error(moved.error().text);
      }
      hook->Execute(*document, &thread, false);
    }
  }
  // The scene of the file's first root object.
  OrlixScene& scene() { return *hook->scenes().begin()->second; }
  template <class Node>
  Node& NodeOf(const std::string& path) {
    BaseObject* object = document->FindByPath(path);
    Node* node = object ? dynamic_cast<Node*>(scene().Retrieve(object, NODE_ALL, RETRIEVE_ANY, RETRIEVE_ANY)) : nullptr;
    if (!node) throw std::runtime_error("no such node: " + path);
    return *node;
  }

  TypeRegistry types;
  NodeFactory factory{types};
  std::unique_ptr<BaseDocument> document;
  WorkerPool pool;
  StatusLine status;
  StepObserver observer;
  BaseThread thread;
  std::unique_ptr<OrlixHook> hook;
  std::vector<SubstepReport> reports;
  std::vector<std::pair<std::string, std::string>> warnings;
};

}  // namespace orlix::test
