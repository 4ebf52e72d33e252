#include "run/PlayedBack.h"

#include <set>
#include <vector>

#include "fluids/caches/Cache_OperatorBase.h"
#include "fluids/volume_renderer/GasSettings.h"
#include "host/render/SurfaceMaterial.h"

namespace orlix {

namespace {

constexpr std::uint32_t kSimulated = kLinkChannel | kLinkSolver | kLinkParticles;

template <class F>
void ForEachTarget(const BaseObject& object, F&& f) {
  const BaseDocument& document = object.document();
  object.type().ForEachParameter([&](const Parameter& row) {
    if (row.type == ParameterType::Link) f(object.GetLink(row.id));
    const InExcludeData* list = row.type == ParameterType::InExclude ? object.GetInExclude(row.id) : nullptr;
    if (!list) return;
    for (const InExcludeData::Entry& entry : list->entries) f(document.FindObject(entry.target));
  });
}

// In every frame: not in a duration, not switched by keyframes.
bool PlaysAlways(const BaseObject& object, bool rendering) {
  if ((object.type().kinds & kLinkCache) == 0) return false;
  if (object.GetBool(Cache_OperatorBase::kRenderOnlyId) && !rendering) return false;
  if (object.GetInt(Cache_OperatorBase::kModeId) != static_cast<int>(Cache_OperatorBase::CacheMode::Playback)) {
    return false;
  }
  for (const KeyTrack& track : object.document().tracks()) {
    if (track.object == object.creationNumber() && track.parameter == Cache_OperatorBase::kModeId) return false;
  }
  bool inDuration = false;
  ForEachTarget(object,
                [&](const BaseObject* target) { inDuration |= target && (target->type().kinds & kLinkDuration) != 0; });
  return !inDuration;
}

// What an object leads to, through links and lists: the simulated objects, beyond which nothing is looked for, since
// they hold their own state.
void AddShown(const BaseObject* object, std::set<const BaseObject*>& seen, std::set<const BaseObject*>& simulated) {
  if (!object || !seen.insert(object).second) return;
  if ((object->type().kinds & kSimulated) != 0) {
    simulated.insert(object);
    return;
  }
  ForEachTarget(*object, [&](const BaseObject* target) { AddShown(target, seen, simulated); });
}

std::set<const BaseObject*> ShownObjects(const BaseDocument& document, bool slices) {
  std::set<const BaseObject*> seen, shown;
  const std::vector<BaseObject*> materials = document.ObjectsOfType(kGasMaterialId);
  for (const BaseObject* material : materials) AddShown(material, seen, shown);
  // What surfaces look up by their shaders.
  for (const BaseObject* material : document.ObjectsOfType(kSurfaceMaterialId)) AddShown(material, seen, shown);
  const std::uint32_t always = slices || materials.empty() ? kSimulated : kLinkParticles;
  document.ForEachObject([&](BaseObject& object) {
    if ((object.type().kinds & always) != 0) shown.insert(&object);
  });
  return shown;
}

}  // namespace

bool PicturesArePlayedBack(const BaseDocument& document, bool slices) {
  std::set<const BaseObject*> shown = ShownObjects(document, slices);
  document.ForEachObject([&](BaseObject& cache) {
    if (PlaysAlways(cache, !slices)) ForEachTarget(cache, [&](const BaseObject* target) { shown.erase(target); });
  });
  return shown.empty();
}

}  // namespace orlix
