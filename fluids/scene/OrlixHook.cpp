#include "fluids/scene/OrlixHook.h"

#include "fluids/scene/RootObject.h"

namespace orlix {

void OrlixHook::SyncScenes(BaseDocument& doc) {
  const std::vector<BaseObject*> roots = doc.ObjectsOfType(kRootTypeId);
  for (BaseObject* root : roots) {
    auto& scene = scenes_[root->creationNumber()];
    if (!scene) scene = std::make_unique<OrlixScene>(*root, host_);
  }
  std::erase_if(scenes_, [&](const auto& entry) { return !entry.second->handler.IsHostInDocument(kRootTypeId, &doc); });
}

void OrlixHook::Execute(BaseDocument& doc, const BaseThread* hostThread, bool rendering) {
  if (hostThread && hostThread->TestBreak()) return;
  SyncScenes(doc);
  for (const auto& [key, scene] : scenes_) scene->Step(hostThread, rendering);
  host_.status.Clear();
}

void OrlixHook::BuildScenes(BaseDocument& doc, bool rendering) {
  SyncScenes(doc);
  for (const auto& [key, scene] : scenes_) scene->BuildAt(rendering);
}

void OrlixHook::Conclude() {
  for (const auto& [key, scene] : scenes_) scene->Conclude();
}

iBase* OrlixHook::FindNode(BaseList2D* hostObject) const {
  BaseObject* root = hostObject;
  while (root && root->typeId() != kRootTypeId) root = root->parent();
  if (!root) return nullptr;
  const auto found = scenes_.find(root->creationNumber());
  return found == scenes_.end() ? nullptr : found->second->Retrieve(hostObject, NODE_ALL, RETRIEVE_ANY, RETRIEVE_ANY);
}

iBase* OrlixHook::FindChannelNode(BaseList2D* hostObject) const {
  for (const auto& [key, scene] : scenes_) {
    if (iBase* node = scene->Retrieve(hostObject, NODE_CHANNEL, RETRIEVE_VECTOR, RETRIEVE_ANY)) return node;
  }
  return nullptr;
}

const Error* OrlixHook::Failure() const {
  for (const auto& [key, scene] : scenes_) {
    if (scene->failure()) return &*scene->failure();
  }
  return nullptr;
}

}  // namespace orlix
