// What a liquid tells when nothing, or not what one expects, comes of it.

#include <fmt/format.h>

#include <algorithm>

#include "fluids/dynamics/Force.h"
#include "fluids/dynamics/VelocityGridEmitter.h"
#include "fluids/liquids/WaterSolver.h"
#include "fluids/particles/GroupList.h"
#include "fluids/scene/EarlierNodes.h"
#include "host/objects/HasTrack.h"

namespace orlix {

namespace {

constexpr std::int32_t kAdvectionSubType = 98, kAdvectionGroupId = 1000, kMotionSourceId = 1008, kKindId = 1014;
constexpr std::int32_t kFilledGroupId = 1000, kFilledKindId = 1001;
constexpr std::int32_t kPositionBasedSubType = 40, kPositionBasedGroupsId = 1000;
constexpr double kLeastRadius = 0.25;     // cells: half the distance of eight in a cell
constexpr double kLeastPerCell = 1.5;     // particles of an occupied cell that still close up
constexpr double kLeastGathering = 0.45;  // cells: from a face to the nearest of eight in a cell
constexpr int kStepsToEnter = 3;
constexpr double kLeastSurface = 0.02;  // of the volume of occupied cells
constexpr double kManyOutside = 0.02;   // of all particles: more than some drops
constexpr double kAlike = 0.05;
constexpr double kManyShared = 0.1;      // of the smaller liquid's cells: more than a seam
constexpr std::size_t kFewCells = 1000;  // whose particles say nothing yet

}  // namespace

void WaterSolver::Advise() {
  if (groups.empty()) {
    const InExcludeData* list = handler.GetInExclude(kGroupsId);
    Warn("no-group", list && !list->entries.empty()
                         ? "none of its groups is listed with the kind liquid, so it does nothing: enter them as "
                           "{ \"object\": ..., \"kind\": \"liquid\" }"
                         : "the liquid has no particle group and does nothing: add a particlegroup beneath the scene");
    return;
  }
  AdviseContainer();
  if (velocityEmitter->forces.empty()) {
    Warn("no-force",
         "no force acts on the liquid, so it floats where it is: add a force_gravity with the \"strength\" 0");
  }
  AdviseGravity();
  if (gather && gathering.radius < kLeastGathering) {
    Warn("small-gather-radius", "most faces find no particle so near and stand still; raise \"gather_radius\" to 1");
  }
  const BaseObject& object = *handler.hostObject();
  const std::vector<KeyTrack>& tracks = handler.GetDocument()->tracks();
  const bool keyed = std::any_of(tracks.begin(), tracks.end(),
                                 [&](const KeyTrack& track) { return track.object == object.creationNumber(); });
  if (object.typeId() == ViscousType().id && !keyed && !IsViscous()) {
    Warn("no-viscosity", "it has no viscosity and flows as water does; set \"viscosity\" or \"viscosity_preset\"");
  }
  const auto tellShared = [&](const std::vector<ParticleGroup*>& theirs, const iBase& other) {
    const auto shared = std::find_first_of(groups.begin(), groups.end(), theirs.begin(), theirs.end());
    if (shared == groups.end()) return;
    Warn("shared-group",
         fmt::format("\"{}\" is carried by \"{}\", too, and both set its particles' velocities; list each one's own "
                     "groups under \"groups\"",
                     (*shared)->DisplayName(), other.DisplayName()));
  };
  ForEachEarlier(*this, [&](const WaterSolver& other) { tellShared(other.groups, other); });
  scene->ForEachNode(NODE_SOLVER, NODE_SOLVER, [&](const iBase& node) {
    if (node.GetNodeSubType() != kPositionBasedSubType || !node.IsEnabled()) return;
    std::vector<ParticleGroup*> theirs;
    for (const GroupEntry& entry : RetrieveGroups(*scene, node.handler, kPositionBasedGroupsId, 1u << PK_Liquid)) {
      if (entry.kind == PK_Liquid) theirs.push_back(entry.group);
    }
    tellShared(theirs, node);
  });
  const InExcludeData* listed = handler.GetInExclude(kGroupsId);
  const bool takesAll = !listed || listed->entries.empty();
  for (const ParticleGroup* group : groups) {
    // Of all groups of the scene some are for foam.
    if (takesAll && !IsFilled(*group)) continue;
    bool moved = scene->IsPlayed(*group);
    scene->ForEachNode(NODE_OPERATOR, NODE_OPERATOR, [&](const iBase& node) {
      if (node.GetNodeSubType() != kAdvectionSubType || !node.IsEnabled()) return;
      if (node.handler.GetInt(kKindId) != PK_Liquid || node.handler.GetInt(kMotionSourceId) == 0) return;
      moved |= scene->RetrieveAs<ParticleGroup>(node.handler.GetLink(kAdvectionGroupId), NODE_PARTICLES) == group;
    });
    if (moved) continue;
    Warn("no-advection",
         fmt::format("nothing moves the particles of \"{}\", so the liquid stays where it is emitted: add "
                     "a particle_advection with this group, the kind liquid and the motion_source "
                     "solvers",
                     group->DisplayName()));
    return;
  }
}

// A liquid has the scene's gravity beside its forces.
void WaterSolver::AdviseGravity() const {
  const Vec3D gravity = scene->GetGravity();
  for (const Force* force : velocityEmitter->forces) {
    const BaseObject& object = *force->handler.hostObject();
    if (!force->IsEnabled() || object.type().ShortName() != "force_gravity") continue;
    const auto row = [&](const char* key) { return object.type().FindKey(key)->id; };
    if (object.GetLink(row("alignment")) || HasTrack(object, row("strength"))) continue;
    const Vec3D push = object.GetVector(row("direction")) * object.GetDouble(row("strength"));
    if (LengthSquared(gravity) == 0 || Length(push - gravity) > kAlike * Length(gravity)) continue;
    force->Warn("gravity-twice",
                "it pushes as the scene's gravity does, and a liquid has that beside its forces, so it falls twice as "
                "fast; set its \"strength\" to 0");
  }
}

// Some emitter makes liquid in it.
bool WaterSolver::IsFilled(const ParticleGroup& group) const {
  bool filled = false;
  scene->ForEachNode(NODE_EMITTER, NODE_EMITTER, [&](const iBase& node) {
    if (!node.IsEnabled() || !node.HasRetrieveType(RETRIEVE_PARTICLE)) return;
    const bool intoIt =
        scene->RetrieveAs<ParticleGroup>(node.handler.GetLink(kFilledGroupId), NODE_PARTICLES) == &group;
    filled |= intoIt && node.handler.GetInt(kFilledKindId) == PK_Liquid;
  });
  return filled;
}

void WaterSolver::Conclude() {
  FluidSolver::Conclude();
  if (!hadGroups_ || hadParticles_) return;
  Warn("no-particles",
       "the liquid had no particle in the whole run and did nothing: add a particlegridemitter with its group and the "
       "kind liquid, or see why the one that is there emits nothing");
}

// Cells that hold enough, and still count as air.
void WaterSolver::TellOfSurface(const LiquidReport& liquid) {
  const double h = levelset.grid->space.cellSize, cells = static_cast<double>(sort.Cells().size());
  const double inside = static_cast<double>(liquid.particles - liquid.outside - liquid.inWalls);
  const bool none = inside > kLeastPerCell * cells && liquid.surfaceVolume < kLeastSurface * cells * h * h * h;
  stepsWithoutSurface_ = none ? stepsWithoutSurface_ + 1 : 0;
  if (stepsWithoutSurface_ <= kStepsToEnter) return;
  Warn("no-surface",
       "hardly a cell counts as liquid for its particles, so no pressure holds them; lower \"level_set_minimum\" or "
       "\"level_set_iso\"");
}

// Walls of a container have no velocity: what they pass is pushed onto them, and its volume with it.
void WaterSolver::TellOfMovedWalls() {
  Vec3D low, high;
  RoomOfWalls(low, high);
  const bool moved = hadRoom_ && !(low == roomMin_ && high == roomMax_);
  roomMin_ = low, roomMax_ = high, hadRoom_ = true;
  if (!moved) return;
  std::int64_t all = 0, passed = 0;
  for (const ParticleGroup* group : groups) {
    const ParticleList* list = group->list(PK_Liquid);
    for (std::int32_t n = 0; list && n < list->count(); ++n) {
      const Vec3D p = list->Position(n);
      ++all;
      passed += p.x < low.x || p.y < low.y || p.z < low.z || p.x > high.x || p.y > high.y || p.z > high.z;
    }
  }
  if (double(passed) <= kManyOutside * double(all)) return;
  Warn(
      "moved-walls",
      fmt::format("its walls moved past {} of {} particles, which are pushed onto them and lose their volume; hold the "
                  "container still, and move an obstacle, or shake the liquid by a force",
                  passed, all));
}

// Liquids of a scene have a grid and a pressure each.
void WaterSolver::TellOfOthers() {
  ForEachEarlier(*this, [&](const WaterSolver& other) {
    if (!other.HasGrids() || other.levelset.grid->dims != levelset.grid->dims) return;
    const auto mine = sort.Cells(), theirs = other.sort.Cells();
    std::size_t both = 0;
    for (std::size_t m = 0, t = 0; m < mine.size() && t < theirs.size();) {
      if (mine[m] == theirs[t]) ++both;
      const bool step = mine[m] <= theirs[t];
      t += theirs[t] <= mine[m], m += step;
    }
    if (double(both) <= kManyShared * double(std::min(mine.size(), theirs.size()))) return;
    Warn("two-in-cells",
         fmt::format("{} of its {} cells hold \"{}\", too: two liquids don't feel each other and pass through; keep "
                     "them apart, or let one liquid carry both groups",
                     both, mine.size(), other.DisplayName()));
  });
}

void WaterSolver::TellOfParticles(std::int64_t inWalls) {
  std::int64_t all = 0;
  double radius = 0;
  for (ParticleGroup* group : groups) {
    all += group->Count(PK_Liquid);
    radius = std::max(radius, group->factory(PK_Liquid).bounds.largestRadius);
  }
  if (all == 0) return;
  hadParticles_ = true;
  const std::int64_t inside = HasGrids() ? static_cast<std::int64_t>(sort.AllEntries().size()) - inWalls : 0;
  // What was emitted in a sub-step is computed from the next one on.
  stepsOutside_ = inside == 0 ? stepsOutside_ + 1 : 0;
  if (inside == 0) {
    if (stepsOutside_ <= kStepsToEnter) return;
    Warn("outside-container", fmt::format("all {} particles stand outside the container or in walls, where no liquid "
                                          "is computed: move the emitter into "
                                          "it, or set container and anchor_mode so that it holds the emitter",
                                          all));
    return;
  }
  const std::int64_t outside = all - static_cast<std::int64_t>(sort.AllEntries().size());
  stepsBeside_ = !drain && double(outside) > kManyOutside * double(all) ? stepsBeside_ + 1 : 0;
  if (stepsBeside_ > kStepsToEnter) {
    Warn("some-outside",
         fmt::format("{} of {} particles stand outside the container, where no liquid is computed, and stay there; "
                     "make the container larger, or set \"drain\" to take away what left through open faces",
                     outside, all));
  }
  const double h = levelset.grid->space.cellSize;
  if (radius > 0 && radius < kLeastRadius * h) {
    Warn("small-radius",
         fmt::format("the particles' radius of {:.3g} m is small for cells of {:.3g} m, and a surface made "
                     "of them has holes: raise property_radius to 0.5 cells",
                     radius, h));
  }
  if (sort.Cells().size() > kFewCells && double(inside) < kLeastPerCell * double(sort.Cells().size())) {
    Warn("sparse",
         "the liquid has hardly a particle a cell and falls apart: raise deep_subdivision and "
         "shallow_subdivision of its emitter to 1, which is eight a cell, or voxel_size");
  }
}

}  // namespace orlix
