#include "fluids/particles/GroupList.h"

namespace orlix {

std::vector<GroupEntry> RetrieveGroups(const OrlixScene& scene, const C4D_InterfaceHandler& handler, std::int32_t id,
                                       std::uint32_t kindsWhenEmpty) {
  std::vector<GroupEntry> found;
  const InExcludeData* list = handler.GetInExclude(id);
  if (list && !list->entries.empty()) {
    for (const InExcludeData::Entry& entry : list->entries) {
      const BaseObject* object = scene.GetHostDocument()->FindObject(entry.target);
      auto* group = scene.RetrieveAs<ParticleGroup>(object, NODE_PARTICLES);
      if (group) found.push_back({group, KindOfFlags(entry.flags)});
    }
    return found;
  }
  scene.ForEachNode(NODE_PARTICLES, NODE_PARTICLES, [&](iBase& node) {
    auto* group = dynamic_cast<ParticleGroup*>(&node);
    if (!group || !group->IsEnabled()) return;
    for (std::int32_t kind = 0; kind < kParticleKinds; ++kind) {
      if (kindsWhenEmpty & (1u << kind)) found.push_back({group, kind});
    }
  });
  return found;
}

}  // namespace orlix
