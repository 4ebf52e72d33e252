#pragma once
// The main loop: it owns the scenes of a document, one for each root object, and starts their steps.

#include <map>
#include <memory>

#include "fluids/scene/OrlixScene.h"

namespace orlix {

class OrlixHook {
 public:
  explicit OrlixHook(const SceneHost& sceneHost) : host_(sceneHost) {}

  // Finds the root objects, makes and drops scenes, and calls Step on each in the order of creation. A step that fails
  // or is broken doesn't keep the others from theirs.
  void Execute(BaseDocument& doc, const BaseThread* hostThread, bool rendering);

  // Makes the scenes of a document and builds them as they would stand at its time, without simulating. See
  // Scene::BuildAt.
  void BuildScenes(BaseDocument& doc, bool rendering);

  // The node of a host object, found through the scene of the root above it; null when there is none.
  iBase* FindNode(BaseList2D* hostObject) const;
  // The first vector channel of this object in any scene, in the order of creation.
  iBase* FindChannelNode(BaseList2D* hostObject) const;

  const std::map<std::uint64_t, std::unique_ptr<OrlixScene>>& scenes() const { return scenes_; }
  // No more frames come: warnings that only the whole run can tell.
  void Conclude();
  // The first failure of a scene; null when all are well.
  const Error* Failure() const;

 private:
  void SyncScenes(BaseDocument& doc);

  SceneHost host_;
  std::map<std::uint64_t, std::unique_ptr<OrlixScene>> scenes_;
};

}  // namespace orlix
