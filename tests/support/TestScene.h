#pragma once
// A small scene for tests: a document with a root object, stepped frame by frame.

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "fluids/scene/OrlixHook.h"
#include "fluids/scene/RootObject.h"
#include "main/RegisterTypes.h"

namespace orlix::test {

class TestScene {
 public:
  explicit TestScene(int workers = 1) : pool(workers) {
    RegisterTypes(factory);
    document.fps = 24;
    document.minTime = BaseTime::OfFrame(0, 24);
    document.maxTime = BaseTime::OfFrame(1000, 24);
    root = &document.AddObject(RootSettings::Type());
    root->name = "Scene";
    observer.wantsHash = true;
    observer.onSubstep = [this](const SubstepReport& report) { reports.push_back(report); };
    observer.warnings.onWarning = [this](const Warning& told) { warnings.emplace_back(told.node, told.text); };
  }

  // An object of a registered type, by its short name, beneath the root or another parent.
  BaseObject& Add(const std::string& type, const std::string& name, BaseObject* parent = nullptr) {
    const TypeInfo* info = types.FindName(type);
    if (!info) throw std::runtime_error("no type " + type);
    const bool beneathRoot = info->role == TypeRole::Node;
    BaseObject& object = document.AddObject(*info, parent ? parent : beneathRoot ? root : nullptr);
    object.name = name;
    return object;
  }
  static LinkValue LinkTo(const BaseObject& object) { return {object.creationNumber()}; }
  static Value ListOf(const std::vector<const BaseObject*>& objects) {
    auto list = std::make_shared<InExcludeData>();
    for (const BaseObject* object : objects) list->entries.push_back({object->creationNumber(), 1});
    return InExcludeValue(std::move(list));
  }

  // Steps to this frame; the time of the document moves there at once.
  void Step(int frame) {
    if (const Status moved = document.SetTime(BaseTime::OfFrame(frame, document.fps)); !moved.ok()) {
      throw std::runtime_error(moved.error().text);
    }
    hook.Execute(document, &thread, false);
  }
  void StepThrough(int first, int last) {
    for (int frame = first; frame <= last; ++frame) Step(frame);
  }
  // Whether a warning with this text was told.
  bool Warned(const std::string& part) const {
    return std::any_of(warnings.begin(), warnings.end(),
                       [&](const auto& told) { return told.second.find(part) != std::string::npos; });
  }

  OrlixScene& scene() { return *hook.scenes().at(root->creationNumber()); }
  template <class Node>
  Node* NodeOf(const BaseObject& object) {
    return dynamic_cast<Node*>(scene().Retrieve(&object, NODE_ALL, RETRIEVE_ANY, RETRIEVE_ANY));
  }

  TypeRegistry types;
  NodeFactory factory{types};
  BaseDocument document{types};
  WorkerPool pool;
  StatusLine status;
  StepObserver observer;
  OrlixHook hook{SceneHost{pool, factory, status, observer}};
  BaseThread thread;
  BaseObject* root = nullptr;
  std::vector<SubstepReport> reports;
  std::vector<std::pair<std::string, std::string>> warnings;
};

}  // namespace orlix::test
