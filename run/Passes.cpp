#include "run/Passes.h"

#include <algorithm>
#include <map>

#include "exchange/OutputType.h"
#include "fluids/bodies/ObstacleTag.h"
#include "fluids/caches/GridCacher.h"
#include "fluids/caches/MeshCacher.h"
#include "fluids/caches/ParticleCacher.h"
#include "fluids/particle_renderer/ParticleLook.h"
#include "fluids/particles/KindChoices.h"
#include "fluids/surfacing/CSGoperatorGrid.h"
#include "fluids/surfacing/LevelSetSmoother.h"
#include "fluids/surfacing/MeshOperator.h"
#include "fluids/surfacing/SurfaceReconstructor.h"
#include "fluids/volume_renderer/GasSettings.h"
#include "fluids/volumes/MultiVolume.h"
#include "host/objects/HasTrack.h"

namespace orlix {

namespace {

constexpr std::string_view kFoamResource = "zq_foamspraybubbles";  // has no row for the kind that it makes
constexpr std::uint32_t kAllKinds = (1u << kParticleKinds) - 1;

bool IsA(const BaseObject& object, std::uint32_t kinds) { return (object.type().kinds & kinds) != 0; }
// Properties satisfy the same links.
bool IsGroup(const BaseObject& object) { return IsA(object, kLinkParticles) && !IsA(object, kLinkProperty); }
bool IsSimulated(const BaseObject& object) { return IsA(object, kLinkChannel | kLinkSolver) || IsGroup(object); }

// A body that the simulation moves, at some time.
bool IsDynamic(const BaseObject& tag) {
  using Tag = ObstacleTag;
  if (tag.GetBool(Tag::kDrivenId) && !HasTrack(tag, Tag::kDrivenId)) return false;
  return tag.GetChoice<Tag::MassMode>(Tag::kMassModeId) == Tag::MassMode::Density || tag.GetDouble(Tag::kMassId) > 0 ||
         HasTrack(tag, Tag::kMassId);
}

template <class F>
void ForEachTarget(const BaseObject& object, F&& f) {
  const BaseDocument& document = object.document();
  object.type().ForEachParameter([&](const Parameter& row) {
    if (row.type == ParameterType::Link) {
      if (const BaseObject* target = object.GetLink(row.id)) f(row, *target, std::uint32_t{0});
    }
    const InExcludeData* list = row.type == ParameterType::InExclude ? object.GetInExclude(row.id) : nullptr;
    if (!list) return;
    for (const InExcludeData::Entry& entry : list->entries) {
      if (const BaseObject* target = document.FindObject(entry.target)) f(row, *target, entry.flags);
    }
  });
}

// The row of a cache that names what it holds.
int TargetRow(const BaseObject& cache) {
  return cache.typeId() == kGridCacheTypeId       ? GridCacher::kNodesId
         : cache.typeId() == kParticleCacheTypeId ? ParticleCacher::kGroupsId
                                                  : MeshCacher::kMeshersId;
}

// In every frame: not in a duration, not switched by keyframes.
bool PlaysAlways(const BaseObject& cache, bool rendering) {
  if (!IsA(cache, kLinkCache) || (cache.GetBool(Cache_OperatorBase::kRenderOnlyId) && !rendering)) return false;
  if (cache.GetChoice<Cache_OperatorBase::CacheMode>(Cache_OperatorBase::kModeId) !=
      Cache_OperatorBase::CacheMode::Playback) {
    return false;
  }
  if (HasTrack(cache, Cache_OperatorBase::kModeId)) return false;
  bool inDuration = false;
  ForEachTarget(cache, [&](const Parameter&, const BaseObject& target, std::uint32_t) {
    inDuration |= IsA(target, kLinkDuration);
  });
  return !inDuration;
}

// The links of a document both ways, and what caches play.
class PassFinder {
 public:
  PassFinder(const BaseDocument& document, bool rendering) : document_(document) {
    document.ForEachObject([&](const BaseObject& object) {
      if (PlaysAlways(object, rendering)) AddPlayed(object);
      AddMoved(object);
      ForEachTarget(object, [&](const Parameter& row, const BaseObject& target, std::uint32_t) {
        if (IsA(object, kLinkOperator)) operators_[target.creationNumber()].push_back(&object);
        if (IsGroup(target) && !IsA(object, kLinkCache)) AddUsedKinds(object, row, target);
      });
    });
  }

  // What the pass needs of an object, and so on through links, to what is simulated or played.
  void Add(Pass& pass, const BaseObject& object) const {
    if (!pass.madeFrom.insert(object.creationNumber()).second) return;
    if (const auto played = played_.find(object.creationNumber()); played != played_.end() && IsPlayed(object)) {
      pass.caches.insert(played->second.begin(), played->second.end());
      for (const std::uint64_t cache : played->second) AddCache(pass, cache);
      AddOperators(pass, object, [](const BaseObject& each) {
        return MeshOperator::WorksOnPlayed(each) || LevelSetSmoother::WorksOnPlayed(each);
      });
      return;
    }
    if (IsGroup(object) && KindsOf(object) == 0) return;  // it never holds any
    if (IsSimulated(object) || IsMoved(object)) {
      pass.simulated.insert(object.creationNumber());
      return;
    }
    AddLinked(pass, object);
    AddOperators(pass, object, [](const BaseObject&) { return true; });
  }
  // Whether it goes where a body or a fluid carries it, which no cache keeps.
  bool IsMoved(const BaseObject& object) const { return moved_.contains(object.creationNumber()); }
  // The kinds of particles that a group holds.
  std::uint32_t KindsOf(const BaseObject& group) const {
    const auto used = usedKinds_.find(group.creationNumber());
    return used == usedKinds_.end() ? 0 : used->second;
  }

 private:
  void AddMoved(const BaseObject& object) {
    const BaseObject* tag = object.FindTag(kObstacleTagId);
    if (tag && IsDynamic(*tag)) {
      ForEachTarget(object, [&](const Parameter& row, const BaseObject& target, std::uint32_t) {
        if (row.id == VolumeBase::kObjectId || row.id == MultiVolume::kObjectsId) {
          moved_.insert(target.creationNumber());
        }
      });
    }
    for (const auto& each : object.tags()) {
      if (each->type().ShortName() == "c4d_couple") moved_.insert(object.creationNumber());
    }
  }
  void AddPlayed(const BaseObject& cache) {
    ForEachTarget(cache, [&](const Parameter& row, const BaseObject& target, std::uint32_t flags) {
      if (row.id != TargetRow(cache)) return;
      played_[target.creationNumber()].insert(cache.creationNumber());
      playedKinds_[target.creationNumber()] |= 1u << KindOfFlags(flags);
    });
  }
  void AddUsedKinds(const BaseObject& object, const Parameter& link, const BaseObject& group) {
    std::uint32_t kinds = 0;
    object.type().ForEachParameter([&](const Parameter& row) {
      if (row.type == ParameterType::Choice && std::string_view(row.key).ends_with("kind")) {
        kinds |= 1u << KindOrLiquid(static_cast<std::int32_t>(object.GetInt(row.id)));
      }
    });
    if (const InExcludeData* list = link.type == ParameterType::InExclude ? object.GetInExclude(link.id) : nullptr) {
      for (const InExcludeData::Entry& entry : list->entries) {
        if (entry.target == group.creationNumber()) kinds |= 1u << KindOfFlags(entry.flags);
      }
    }
    if (std::string_view(object.type().resource) == kFoamResource) kinds |= 1u << PK_Diffuse;
    usedKinds_[group.creationNumber()] |= kinds;
  }
  // A group is played when all of its kinds are.
  bool IsPlayed(const BaseObject& object) const {
    if (!IsGroup(object)) return true;
    return (KindsOf(object) & ~playedKinds_.at(object.creationNumber())) == 0;
  }
  template <class Acts>
  void AddOperators(Pass& pass, const BaseObject& object, Acts&& acts) const {
    const auto acting = operators_.find(object.creationNumber());
    if (acting == operators_.end()) return;
    for (const BaseObject* each : acting->second) {
      if (acts(*each)) Add(pass, *each);
    }
  }
  // The cache itself and what chooses in it: constraints.
  void AddCache(Pass& pass, std::uint64_t number) const {
    const BaseObject& cache = *document_.FindObject(number);
    if (!pass.madeFrom.insert(number).second) return;
    ForEachTarget(cache, [&](const Parameter& row, const BaseObject& target, std::uint32_t) {
      if (row.id != TargetRow(cache)) Add(pass, target);
    });
  }
  void AddLinked(Pass& pass, const BaseObject& object) const {
    ForEachTarget(object, [&](const Parameter&, const BaseObject& target, std::uint32_t) {
      if (pass.picture || !IsA(target, kLinkMaterial)) Add(pass, target);
    });
    for (const auto& tag : object.tags()) Add(pass, *tag);
    const InExcludeData* carried = object.GetInExclude(ImplicitMesher::kVertexDataId);
    if (object.typeId() == ImplicitMesher::Type().id && (!carried || carried->entries.empty())) return;
    // An empty list of groups means all of the scene.
    object.type().ForEachParameter([&](const Parameter& row) {
      if (row.type != ParameterType::InExclude || row.linkKinds != kLinkParticles) return;
      const InExcludeData* list = object.GetInExclude(row.id);
      if (list && !list->entries.empty()) return;
      for (const BaseObject* group : document_.ObjectsOfType(ParticleGroup::Type().id)) Add(pass, *group);
    });
  }

  const BaseDocument& document_;
  std::map<std::uint64_t, std::set<std::uint64_t>> played_;  // caches by what they play
  std::map<std::uint64_t, std::uint32_t> playedKinds_, usedKinds_;
  std::set<std::uint64_t> moved_;
  std::map<std::uint64_t, std::vector<const BaseObject*>> operators_;
};

bool IsReconstructor(const BaseObject& object) { return object.typeId() == SurfaceReconstructor::Type().id; }

// Makes or changes a surface in each frame anew. One that acts in a duration keeps its last surface afterwards, one in
// another stage than its own may read that of the frame before, and one that filters leaves marks on particles.
bool MakesSurfaces(const BaseObject& object) {
  const int type = object.typeId();
  if (object.GetLink(kDurationId) || object.GetInt(kStageId) != 0 || !object.tags().empty()) return false;
  if (IsReconstructor(object)) {
    return !object.GetBool(SurfaceReconstructor::kFilterId) && !HasTrack(object, SurfaceReconstructor::kFilterId);
  }
  return type == ImplicitMesher::Type().id || type == LevelSetSmoother::Type().id ||
         type == MeshCurvatureOperator::Type().id || type == MeshSmoothingOperator::Type().id;
}

// Whether the first particle material that means any of the group's kinds shows it.
bool IsShown(const BaseDocument& document, const BaseObject& group, std::uint32_t kinds) {
  std::uint32_t hidden = 0, decided = 0;
  for (const BaseObject* material : document.ObjectsOfType(kParticleMaterialId)) {
    std::uint32_t meant = 0;
    const InExcludeData* list = material->GetInExclude(ParticleLook::kGroupsId);
    if (!list || list->entries.empty()) meant = kAllKinds;
    for (const auto& entry : list ? list->entries : std::vector<InExcludeData::Entry>()) {
      if (entry.target == group.creationNumber()) meant |= 1u << KindOfFlags(entry.flags);
    }
    if (!material->GetBool(ParticleLook::kVisibleId)) hidden |= meant & ~decided;
    decided |= meant;
  }
  return (kinds & ~hidden) != 0;
}

Pass PicturePass(const BaseDocument& document, const PassFinder& finder, bool slices, const std::string& name) {
  Pass pass{.name = name, .picture = !slices};
  const std::vector<BaseObject*> materials = document.ObjectsOfType(kGasMaterialId);
  for (const BaseObject* material : materials) finder.Add(pass, *material);
  document.ForEachObject([&](const BaseObject& object) {
    const bool everything = slices || (materials.empty() && IsA(object, kLinkChannel));
    const bool particles = IsGroup(object) && IsShown(document, object, finder.KindsOf(object));
    const bool surface = !slices && object.type().Find(kShownInPicturesId) && object.GetBool(kShownInPicturesId);
    if ((everything && IsSimulated(object)) || particles || surface) finder.Add(pass, object);
  });
  return pass;
}

void AddOutputPasses(const BaseDocument& document, const PassFinder& finder, const OutputSettings& output,
                     std::vector<Pass>& passes) {
  const std::string place = output.folder.empty() ? output.name : output.folder + "/" + output.name;
  if (output.vdb) {
    Pass pass{.name = place + ": OpenVDB"};
    document.ForEachObject([&](const BaseObject& object) {
      if (!IsA(object, kLinkChannel | kLinkSolver | kLinkVolume)) return;
      if (output.grids.empty() || output.grids.contains(object.creationNumber())) finder.Add(pass, object);
    });
    passes.push_back(std::move(pass));
  }
  document.ForEachObject([&](const BaseObject& object) {
    const bool points = output.particles && IsGroup(object);
    const bool mesh = output.meshes != MeshOutput::None && IsA(object, kLinkGeometry);
    if (!points && !mesh) return;
    Pass pass{.name = place + (points ? ": particles of " : ": mesh of ") + object.Path()};
    finder.Add(pass, object);
    passes.push_back(std::move(pass));
  });
  if (output.bodies) {
    Pass pass{.name = place + ": bodies"};
    document.ForEachObject([&](const BaseObject& object) {
      if (finder.IsMoved(object)) finder.Add(pass, object);
    });
    passes.push_back(std::move(pass));
  }
  if (output.preview) passes.push_back(PicturePass(document, finder, true, place + ": quick looks"));
  if (output.pictures) passes.push_back(PicturePass(document, finder, false, place + ": pictures"));
}

}  // namespace

std::vector<Pass> FindPasses(const BaseDocument& document, PassResults results) {
  const PassFinder finder(document, results == PassResults::Pictures);
  std::vector<Pass> passes;
  if (results != PassResults::Run) {
    passes.push_back(PicturePass(document, finder, results == PassResults::Slices, "pictures"));
  } else {
    for (const BaseObject* object : document.ObjectsOfType(OutputSettings::Type().id)) {
      AddOutputPasses(document, finder, OutputSettings::Read(*object), passes);
    }
  }
  for (const CacheFiles& files : RecordedCaches(document)) {
    Pass pass{.name = files.object->Path() + ": recorded"};
    ForEachTarget(*files.object,
                  [&](const Parameter&, const BaseObject& target, std::uint32_t) { finder.Add(pass, target); });
    pass.madeFrom.insert(files.object->creationNumber());
    passes.push_back(std::move(pass));
  }
  return passes;
}

std::set<std::uint64_t> FindSurfaceMakers(const BaseDocument& document) {
  std::set<std::uint64_t> makers;
  document.ForEachObject([&](const BaseObject& object) {
    if (MakesSurfaces(object)) makers.insert(object.creationNumber());
  });
  // Until nothing changes: none whose surface anything else links to, and none that works on a surface that isn't made
  // anew by another of them; a reconstructor that reads a mesh reads that of the frame before.
  for (std::size_t before = makers.size() + 1; before != makers.size();) {
    before = makers.size();
    document.ForEachObject([&](const BaseObject& object) {
      if (object.typeId() == OutputSettings::Type().id) return;
      ForEachTarget(object, [&](const Parameter&, const BaseObject& target, std::uint32_t) {
        if (!makers.contains(object.creationNumber())) makers.erase(target.creationNumber());
        const bool isSurface = IsA(target, kLinkVolume | kLinkGeometry);
        if (isSurface && (IsReconstructor(object) || !makers.contains(target.creationNumber()))) {
          makers.erase(object.creationNumber());
        }
      });
    });
  }
  return makers;
}

namespace {

// The reconstruction that a level set is, or is made of, which is left to renderings; null when there is none.
const BaseObject* LeftBehind(const BaseObject* levelSet, std::set<const BaseObject*>& seen) {
  if (!levelSet || !seen.insert(levelSet).second) return nullptr;
  if (IsReconstructor(*levelSet)) return levelSet->GetBool(SurfaceReconstructor::kRenderOnlyId) ? levelSet : nullptr;
  if (levelSet->typeId() != CSGoperatorGrid::Type().id) return nullptr;
  const BaseObject* first = LeftBehind(levelSet->GetLink(CSGoperatorGrid::kFirstId), seen);
  return first ? first : LeftBehind(levelSet->GetLink(CSGoperatorGrid::kSecondId), seen);
}

}  // namespace

const BaseObject* LeftToRenderings(const BaseObject& mesher) {
  bool played = false;
  for (const BaseObject* cache : mesher.document().ObjectsOfType(kMeshCacheTypeId)) {
    if (!PlaysAlways(*cache, false)) continue;
    ForEachTarget(*cache,
                  [&](const Parameter&, const BaseObject& target, std::uint32_t) { played |= &target == &mesher; });
  }
  if (played) return nullptr;
  if (mesher.GetBool(ImplicitMesher::kRenderOnlyId)) return &mesher;
  std::set<const BaseObject*> seen;
  return LeftBehind(mesher.GetLink(ImplicitMesher::kInputId), seen);
}

bool AllStandAlone(const std::vector<Pass>& passes) {
  const bool alone = std::all_of(passes.begin(), passes.end(), [](const Pass& pass) { return pass.StandsAlone(); });
  const bool played = std::any_of(passes.begin(), passes.end(), [](const Pass& pass) { return !pass.caches.empty(); });
  return alone && played;
}

std::set<std::uint64_t> NodesOf(const std::vector<Pass>& passes) {
  std::set<std::uint64_t> nodes;
  for (const Pass& pass : passes) nodes.insert(pass.madeFrom.begin(), pass.madeFrom.end());
  return nodes;
}

}  // namespace orlix
