#include "fluids/scene/SceneAdvice.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <span>

#include "fluids/scene/OrlixScene.h"
#include "fluids/scene/RootObject.h"
#include "fluids/scene/iCachedGrids.h"
#include "host/objects/HasTrack.h"

namespace orlix {

namespace {

constexpr std::int32_t kPropertySubType = 67, kGasSubType = 37, kPositionBasedSubType = 40;
constexpr int kScriptValuesId = 9003;
constexpr double kLeastTime = 1e-9;       // s, or of a frame
constexpr std::int64_t kTestOutside = 2;  // of constraint_gridvalue; those before it look at "low" alone

bool IsSet(const BaseObject& object, const Parameter& row) {
  switch (row.type) {
    case ParameterType::InExclude: {
      const InExcludeData* list = object.GetInExclude(row.id);
      return list && !list->entries.empty();
    }
    case ParameterType::Link:
      return object.GetLink(row.id) != nullptr;
    default:
      return object.container().Has(row.id) && !SameValue(object.Get(row.id), DefaultOf(row));
  }
}

bool Holds(const BaseObject& object, const Condition& condition) {
  const Parameter* row = object.type().Find(condition.id);
  // Keys may let it hold later.
  if (!row || row->onlyShows || HasTrack(object, row->id)) return true;
  const bool isLink = row->type == ParameterType::Link;
  const double value = isLink ? object.GetLink(row->id) != nullptr : AsDouble(object.Get(row->id), row->number);
  if (condition.relation == Relation::Above) return value > condition.value;
  return (value == condition.value) == (condition.relation == Relation::Is);
}

void AdviseRows(OrlixScene& scene, const BaseObject& object) {
  object.type().ForEachParameter([&](const Parameter& row) {
    if (!IsSet(object, row) && !HasTrack(object, row.id)) return;
    const std::string key = std::string("row-not-read:") + row.key;
    if (row.unread) {
      scene.Warn(object.Path(), key,
                 fmt::format("\"{}\" is set, but nothing reads it ({}); take it out", row.key, row.text));
      return;
    }
    if (!object.WasGiven(row.id)) return;
    for (const Condition& condition : std::span(row.shownWhen).first(static_cast<std::size_t>(row.shownCount))) {
      if (Holds(object, condition)) continue;
      scene.Warn(object.Path(), key,
                 fmt::format("\"{}\" is set, but acts only where {}; set that, or take \"{}\" out", row.key,
                             ConditionText(object.type(), condition), row.key));
      return;
    }
  });
}

// Rows of an object's place that its type reads, or for which it doesn't matter; the others' places are read by what
// links to them or by nobody.
enum PlaceBits : unsigned { kPlacePosition = 1, kPlaceAxes = 2 };
unsigned PlaceReadBy(const BaseObject& object) {
  constexpr std::pair<std::string_view, unsigned> kReads[] = {
      {"alignment", 3},
      {"fluid", 3},
      {"liquid", 3},
      {"liquid_viscous", 3},
      {"force_gravity", 3},
      {"force_vortex", 3},
      {"force_trigowave", 3},
      {"pforce_acceleration", 3},
      {"constraint_gradient", 3},
      {"constraint_noise", kPlacePosition},
      {"cache", kPlacePosition},
      {"cache_particle", kPlacePosition},
  };
  const std::string_view name = object.type().ShortName();
  const auto found =
      std::find_if(std::begin(kReads), std::end(kReads), [&](const auto& each) { return each.first == name; });
  const bool isPlugin = object.type().base != 0;  // it may read anything
  if (isPlugin || object.type().role != TypeRole::Node) return kPlacePosition | kPlaceAxes;
  return found == std::end(kReads) ? 0 : found->second;
}

// Whether a row that takes any object, for its place, links to this one.
bool IsPlaceOfAnother(const BaseObject& object) {
  bool found = false;
  object.document().ForEachObject([&](const BaseObject& other) {
    other.type().ForEachParameter([&](const Parameter& row) {
      found |= row.type == ParameterType::Link && row.linkKinds == kLinkAny && other.GetLink(row.id) == &object;
    });
  });
  return found;
}

// A place that moves nothing, neither the node nor one beneath it.
void AdvisePlace(OrlixScene& scene, const BaseObject& object) {
  if (&object == scene.GetHostObject()) return;
  unsigned reads = PlaceReadBy(object);
  const auto below = [&](const auto& self, const BaseObject& parent) -> void {
    for (const auto& child : parent.children()) reads |= PlaceReadBy(*child), self(self, *child);
  };
  below(below, object);
  for (const int row : {kPositionId, kRotationId, kScaleId}) {
    const Parameter* parameter = object.type().Find(row);
    if ((reads & (row == kPositionId ? kPlacePosition : kPlaceAxes)) || !parameter) continue;
    if ((!HasTrack(object, row) && !IsSet(object, *parameter)) || IsPlaceOfAnother(object)) continue;
    scene.Warn(
        object.Path(), std::string("place-not-read:") + parameter->key,
        fmt::format("its \"{}\" moves nothing: it acts where what it links to is; set that one's, or take it out",
                    parameter->key));
  }
}

// A camera that looks at its target, and a spot light, are turned by nothing else.
void AdviseAim(OrlixScene& scene, const BaseObject& object) {
  const std::string_view name = object.type().ShortName();
  const Parameter *lookAt = object.type().FindKey("look_at"), *rotation = object.type().Find(kRotationId);
  if (!(name == "light_spot" || (name == "camera" && lookAt && object.GetBool(lookAt->id)))) return;
  if (!rotation || !IsSet(object, *rotation)) return;
  scene.Warn(object.Path(), "rotation-not-read",
             std::string("its \"rotation\" turns nothing, since it points at its \"target\"; set that") +
                 (lookAt ? ", or \"look_at\" to false" : ""));
}

// The engine looks for the tag of a body at the volume that it makes of an object.
void AdviseObstacle(OrlixScene& scene, const BaseObject& object) {
  const auto isObstacle = [](const auto& tag) { return tag->type().ShortName() == "c4d_obstacle"; };
  const auto& tags = object.tags();
  if (object.type().kinds & kLinkVolume || std::none_of(tags.begin(), tags.end(), isObstacle)) return;
  scene.Warn(object.Path(), "obstacle-without-volume",
             "its Obstacle tag does nothing there; put it on the \"volume\" that links to the object");
}

void AdviseCoupled(OrlixScene& scene, const BaseObject& object) {
  const auto isCouple = [](const auto& tag) { return tag->type().ShortName() == "c4d_couple"; };
  const auto& tags = object.tags();
  if (object.type().role == TypeRole::Object || std::none_of(tags.begin(), tags.end(), isCouple)) return;
  scene.Warn(object.Path(), "couple-without-object",
             "its Couple tag has no object to move, so nothing swims; put the tag on an object that has a shape");
}

// Creation numbers of all objects that some row of the document links to.
std::set<std::uint64_t> LinkedObjects(const BaseDocument& document) {
  std::set<std::uint64_t> linked;
  document.ForEachObject([&](const BaseObject& object) {
    for (const auto& [id, value] : object.container().entries()) {
      if (const auto* link = std::get_if<LinkValue>(&value)) linked.insert(link->target);
      if (const auto* list = std::get_if<InExcludeValue>(&value); list && *list) {
        for (const InExcludeData::Entry& entry : (*list)->entries) linked.insert(entry.target);
      }
    }
  });
  return linked;
}

// Of instant operators an empty list takes all of the scene; constraints and forces are looked at apart.
bool ActsThroughLinks(const iBase& node) {
  if (node.GetNodeBaseType() == NODE_HELPER) {
    return !node.HasRetrieveType(RETRIEVE_CONSTRAINT) && !node.HasRetrieveType(RETRIEVE_INSTANT);
  }
  return node.GetNodeBaseType() == NODE_SETTINGS || node.GetNodeSubType() == kPropertySubType;
}

// Whether a solver's list of forces is empty, which takes all of the scene that push grids.
bool ASolverTakesAllForces(OrlixScene& scene) {
  bool takesAll = false;
  scene.ForEachNode(NODE_SOLVER, NODE_SOLVER, [&](const iBase& node) {
    const BaseObject& object = *node.handler.hostObject();
    object.type().ForEachParameter([&](const Parameter& row) {
      if (row.type != ParameterType::InExclude || row.linkKinds != kLinkForce) return;
      const InExcludeData* list = object.GetInExclude(row.id);
      takesAll |= !list || list->entries.empty();
    });
  });
  return takesAll;
}

// Whether a node takes all constraints of the scene by an empty list: of all that have one, this type alone.
bool ANodeTakesAllConstraints(const BaseDocument& document) {
  bool takesAll = false;
  document.ForEachObject([&](const BaseObject& object) {
    if (object.type().ShortName() != "grid_celliterator") return;
    const InExcludeData* list = object.GetInExclude(kConstraintsId);
    takesAll |= !list || list->entries.empty();
  });
  return takesAll;
}

void AdviseUnlinked(OrlixScene& scene) {
  const std::set<std::uint64_t> linked = LinkedObjects(*scene.GetHostDocument());
  const auto isLinked = [&](const iBase& node) { return linked.contains(node.handler.hostObject()->creationNumber()); };
  const bool takesForces = ASolverTakesAllForces(scene);
  const bool takesConstraints = ANodeTakesAllConstraints(*scene.GetHostDocument());
  scene.ForEachNode(NODE_CHANNEL, NODE_HELPER, [&](const iBase& node) {
    if (!node.IsEnabled() || isLinked(node)) return;
    if (ActsThroughLinks(node)) {
      node.Warn("not-linked", "no object links to it, so it does nothing; link it where it is to act, or take it out");
    } else if (node.GetNodeBaseType() == NODE_FORCE && !(takesForces && node.HasRetrieveType(RETRIEVE_GRID))) {
      node.Warn("not-linked",
                "no list of forces has it, so it pushes nothing; add it to the \"forces\" of a solver or of "
                "particle_forces, or take it out");
    } else if (node.HasRetrieveType(RETRIEVE_CONSTRAINT) && !takesConstraints) {
      node.Warn("not-linked",
                "no list of constraints has it, so it confines nothing; add it to the \"constraints\" of a node, or "
                "take it out");
    }
  });
}

// A window without an end doesn't come again, nor does one in a period without a length.
void AdviseDuration(OrlixScene& scene, const BaseObject& object) {
  if (object.type().ShortName() != "duration") return;
  const auto number = [&](const char* key) { return object.GetDouble(object.type().FindKey(key)->id); };
  const bool inFrames = number("use_frames") == 1;
  const char *lengthKey = inFrames ? "length_frames" : "length", *pauseKey = inFrames ? "pause_frames" : "pause";
  const double length = number(lengthKey);
  if (number("repeats") <= 0 || (length > 0 && length + number(pauseKey) > 0)) return;
  for (const char* key : {"repeats", lengthKey, pauseKey}) {
    if (HasTrack(object, object.type().FindKey(key)->id)) return;
  }
  scene.Warn(object.Path(), "no-repeats",
             fmt::format("its window doesn't come again, since its \"{}\" {}; raise it, or set \"repeats\" to 0",
                         length > 0 ? pauseKey : lengthKey,
                         length > 0 ? "takes the whole window back" : "isn't above 0, and it never ends"));
}

const BaseObject* RootOf(const BaseObject* object) {
  while (object && object->typeId() != kRootTypeId) object = object->parent();
  return object;
}

// A node finds none of another scene. Places, geometry and a script's values are taken from anywhere.
void AdviseOtherScenes(OrlixScene& scene, const BaseObject& object) {
  if (RootOf(&object) != scene.GetHostObject()) return;
  const auto advise = [&](const Parameter& row, const BaseObject* target) {
    if (!target || target->type().role != TypeRole::Node || RootOf(target) == scene.GetHostObject()) return;
    scene.Warn(object.Path(), std::string("other-scene:") + row.key,
               fmt::format("\"{}\" links to \"{}\", which isn't in its scene and can't be reached; link one of \"{}\"",
                           row.key, target->Path(), scene.Name()));
  };
  object.type().ForEachParameter([&](const Parameter& row) {
    if (row.linkKinds == kLinkAny || (row.linkKinds & kLinkGeometry) != 0 || row.id == kScriptValuesId) return;
    if (row.type == ParameterType::Link) advise(row, object.GetLink(row.id));
    if (row.type != ParameterType::InExclude) return;
    const InExcludeData* list = object.GetInExclude(row.id);
    if (!list) return;
    for (const InExcludeData::Entry& entry : list->entries) {
      advise(row, static_cast<const BaseObject*>(object.document().FindObject(entry.target)));
    }
  });
}

// Rows that are the two ends of a range.
void AdviseRanges(OrlixScene& scene, const BaseObject& object) {
  constexpr std::pair<const char*, const char*> kRanges[] = {
      {"value_min", "value_max"}, {"low", "high"}, {"min_count", "max_count"}, {"min_vorticity", "max_vorticity"}};
  // A look's colours may run from high to low.
  if (object.type().role != TypeRole::Node) return;
  for (const auto& [lowKey, highKey] : kRanges) {
    const Parameter *low = object.type().FindKey(lowKey), *high = object.type().FindKey(highKey);
    if (!low || !high || HasTrack(object, low->id) || HasTrack(object, high->id)) continue;
    // A test of equality has no upper end.
    const Parameter* test = object.type().FindKey("test");
    if (test && object.GetInt(test->id) < kTestOutside) continue;
    const Vec3D a = AsVector(object.Get(low->id), Vec3D(AsDouble(object.Get(low->id), 0)));
    const Vec3D b = AsVector(object.Get(high->id), Vec3D(AsDouble(object.Get(high->id), 0)));
    if (!(a.x > b.x || a.y > b.y || a.z > b.z)) continue;
    scene.Warn(
        object.Path(), std::string("reversed-range:") + lowKey,
        fmt::format("its \"{}\" lies above its \"{}\", and between them is nothing; exchange them", lowKey, highKey));
  }
}

// What others call, or read, runs in no stage of its own; a solver runs in several.
void AdviseStage(const iBase& node) {
  const BaseObject& object = *node.handler.hostObject();
  const std::int32_t list = node.GetNodeBaseType();
  if (list == NODE_SOLVER) {
    if (object.GetInt(kStageId) == 0 || node.GetNodeSubType() == kPositionBasedSubType) return;
    node.Warn("one-stage", "its work is divided among several stages, of which \"stage\" leaves one; take it out");
  }
  if (list != NODE_CHANNEL && list != NODE_PARTICLES && list != NODE_FORCE && list < NODE_SETTINGS) return;
  for (const int row : {kStageId, kPriorityId}) {
    const Parameter* parameter = object.type().Find(row);
    if (!parameter || !IsSet(object, *parameter)) continue;
    node.Warn(std::string("row-not-read:") + parameter->key,
              fmt::format("\"{}\" is set, but it runs in no stage: others read or call it in theirs; take it out",
                          parameter->key));
  }
}

// Another cell or another scale begins the simulation anew, in each frame in which it changes.
void AdviseScale(OrlixScene& scene) {
  const BaseObject& root = *scene.GetHostObject();
  const int cell = scene.rendering ? RootSettings::kRenderVoxelSizeId : RootSettings::kVoxelSizeId;
  for (const int row : {cell, +RootSettings::kScaleUnitsId, +RootSettings::kScaleMetresId}) {
    if (!HasTrack(root, row)) continue;
    scene.Warn(root.Path(), "restarts",
               fmt::format("keys change its \"{}\", and the simulation begins anew at each change; take them out",
                           root.type().Find(row)->key));
  }
}

// Keyframes may let the time pass later.
void AdviseTime(OrlixScene& scene) {
  const BaseObject& root = *scene.GetHostObject();
  const auto mode = root.GetChoice<SubstepMode>(RootSettings::kSubstepModeId);
  const bool fixed = mode == SubstepMode::FixedTime;
  const Parameter& scale = *root.type().Find(RootSettings::kTimeScaleId);
  if (fixed && !HasTrack(root, RootSettings::kSubstepModeId) && (HasTrack(root, scale.id) || IsSet(root, scale))) {
    scene.Warn(root.Path(), std::string("row-not-read:") + scale.key,
               fmt::format("\"{}\" is set, but its \"substep_mode\" doesn't go by it; take it out", scale.key));
  }
  const int row = fixed ? RootSettings::kFrameTimeId : RootSettings::kTimeScaleId;
  if (HasTrack(root, row) || root.GetDouble(row) > kLeastTime) return;
  scene.Warn(root.Path(), "no-time",
             fmt::format("\"{}\" is {}, so no time passes and nothing is simulated; raise it",
                         fixed ? "frame_time" : "time_scale", root.GetDouble(row)));
}

}  // namespace

void AdviseObjects(OrlixScene& scene) {
  const BaseObject& root = *scene.GetHostObject();
  const double cell = root.GetDouble(RootSettings::kVoxelSizeId);
  const double ofPictures = root.GetDouble(RootSettings::kRenderVoxelSizeId);
  if (scene.rendering && ofPictures > cell) {
    scene.Warn(root.Path(), "coarse-pictures",
               fmt::format("pictures are simulated in cells of {} m, runs and previews in finer ones of {} m; set "
                           "\"render_voxel_size\"",
                           ofPictures, cell));
  }
  if (root.children().empty()) {
    scene.Warn(root.Path(), "no-children",
               "it has no children, so nothing is simulated; put what takes part beneath it");
  }
  AdviseTime(scene);
  AdviseScale(scene);
  scene.GetHostDocument()->ForEachObject([&](const BaseObject& object) {
    AdviseRows(scene, object);
    AdviseObstacle(scene, object);
    AdviseCoupled(scene, object);
    AdviseRanges(scene, object);
    AdviseOtherScenes(scene, object);
    AdviseDuration(scene, object);
    AdvisePlace(scene, object);
    AdviseAim(scene, object);
  });
  AdviseUnlinked(scene);
  scene.ForEachNode(NODE_CHANNEL, NODE_HELPER, [](const iBase& node) {
    if (node.IsEnabled()) AdviseStage(node);
  });
}

void ConcludeGases(OrlixScene& scene) {
  if (scene.info.time == 0) return;
  scene.ForEachNode(NODE_SOLVER, NODE_SOLVER, [](iBase& node) {
    auto* grids = dynamic_cast<iCachedGrids*>(&node);
    if (!node.IsEnabled() || node.GetNodeSubType() != kGasSubType || !grids || grids->CachedGrid(0)) return;
    node.Warn("no-cells",
              "it computed nothing: nothing lay in its container that asks for cells, such as an emitter's volume, "
              "particles, or a volume with extends_container; put one there");
  });
}

}  // namespace orlix
