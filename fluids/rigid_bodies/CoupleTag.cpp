#include "fluids/rigid_bodies/CoupleTag.h"

#include <algorithm>
#include <cmath>

#include "fluids/dynamics/FluidSolver.h"
#include "fluids/grids/Interpolation.h"
#include "host/objects/PlaceObject.h"

namespace orlix {

namespace {

constexpr double kFall = 9.81;  // m/s^2, of an object above the liquid

struct Settings {
  double turning, lostFlow, buoyancy, damping;
  explicit Settings(const BaseObject& tag)
      : turning(tag.GetDouble(CoupleTag::kTurningId)),
        lostFlow(tag.GetDouble(CoupleTag::kLostFlowId)),
        buoyancy(tag.GetDouble(CoupleTag::kBuoyancyId)),
        damping(tag.GetDouble(CoupleTag::kDampingId)) {}
};

double ComponentAt(const ScalarGrid& grid, int axis, const Vec3D& voxel) {
  Vec3D p = voxel - Vec3D(0.5);
  p[axis] += 0.5;
  return SampleTrilinear(GridView<const double>(grid), p.x, p.y, p.z);
}

// A fluid where an object may be.
struct Flow {
  const FluidSolver& solver;

  const ScalarGrid& Component(int axis) const { return *solver.velocity.grids[std::size_t(axis)]; }
  const GridSpace& space() const { return Component(0).space; }
  Vec3D At(const Vec3D& voxel) const {
    return {ComponentAt(Component(0), 0, voxel), ComponentAt(Component(1), 1, voxel),
            ComponentAt(Component(2), 2, voxel)};
  }
  // At the middle of a cell, 1/s.
  Vec3D CurlOf(const VecInt3D& cell) const {
    const Vec3D middle = Vec3D(cell) + Vec3D(0.5);
    Vec3D change[3];  // of the velocity along each axis, times two cells
    for (int axis = 0; axis < 3; ++axis) {
      Vec3D step;
      step[axis] = 1;
      change[axis] = At(middle + step) - At(middle - step);
    }
    return Vec3D(change[1].z - change[2].y, change[2].x - change[0].z, change[0].y - change[1].x) /
           (2 * double(space().cellSize));
  }
  // 1 deep in a liquid, 0 at its surface; below 0 above it.
  double Depth(const Vec3D& voxel) const {
    const ScalarGrid* surface = solver.GetSurfaceGrid();
    if (!surface) return 0;
    const Vec3D p = voxel - Vec3D(0.5);
    const double phi = SampleTrilinear(GridView<const double>(*surface), p.x, p.y, p.z);
    if (phi > 0) return -1;
    const double reach = 4 * double(space().cellSize);
    return phi < -reach || reach == 0 ? 1 : std::abs(phi) / reach;
  }
};

// Of the quaternion with this real and vector part.
LMatrix Turned(LMatrix m, double real, const Vec3D& vector) {
  const double length = std::sqrt(real * real + LengthSquared(vector));
  const double w = real / length;
  const Vec3D v = vector / length;
  for (Vec3D* axis : {&m.v1, &m.v2, &m.v3}) *axis = *axis + (Cross(v, *axis) * w + Cross(v, Cross(v, *axis))) * 2.0;
  return m;
}

const FluidSolver* SolverOf(const OrlixScene& scene, const BaseObject* link) {
  const FluidSolver* found = nullptr;
  scene.ForEachNode(NODE_SOLVER, NODE_SOLVER, [&](iBase& node) {
    const auto* solver = node.IsEnabled() ? dynamic_cast<const FluidSolver*>(&node) : nullptr;
    if (solver && (!found || solver->handler.hostObject() == link)) found = solver;
  });
  return found && found->velocity.grids[0] && found->velocity.grids[1] && found->velocity.grids[2] ? found : nullptr;
}

}  // namespace

const TypeInfo& CoupleTag::Type() {
  static constexpr Parameter kParameters[] = {
      ButtonParameter(kTakePlaceId, "take_place", "Takes the object's present place as the one where it begins"),
      LinkParameter(kRootId, "root", kLinkRoot | kLinkSolver,
                    "The scene whose fluid carries the object, or its solver"),
      FloatParameter(kTurningId, "turning", 1.0, "", "How much the flow's curl turns the object"),
      IntParameter(kModeId, "display_mode", 1, "", "Kept for the interface").Hidden().Unread(),
      FloatParameter(kLostFlowId, "lost_flow", 0.3, "", "Share of the flow's velocity that the object doesn't take")
          .Fallback(0.1),
      FloatParameter(kBuoyancyId, "buoyancy", 1.02, "", "Share of gravity that the liquid takes away; above 1 it rises")
          .Fallback(0.1),
      FloatParameter(kDampingId, "damping", 0.25, "", "Share of the object's own motion that is left in the liquid")
          .Fallback(0),
  };
  static const TypeInfo kType = {
      .id = kId,
      .resource = "zq_c4d_couple",
      .className = "C4D_Couple_Tag",
      .label = "Couple",
      .text =
          "Lets the object that carries it swim: after each frame it moves and turns with the fluid, and floats in a "
          "liquid. The fluid doesn't notice it; a body of an Obstacle tag is pushed, and pushes.",
      .role = TypeRole::Tag,
      .kinds = kLinkTag,
      .parameters = kParameters,
  };
  return kType;
}

void CoupledObjects::Move(OrlixScene& scene) {
  scene.GetHostDocument()->ForEachObject([&](BaseObject& tag) {
    if (tag.typeId() != CoupleTag::kId || !tag.parent()) return;
    BaseObject& object = *tag.parent();
    const BaseObject* link = tag.GetLink(CoupleTag::kRootId);
    const BaseObject* root = link && link->typeId() != scene.GetHostObject()->typeId() ? link->parent() : link;
    while (root && root != scene.GetHostObject()) root = root->parent();
    if (!root) return;
    const LMatrix now = object.GlobalMatrix();
    const auto [entry, isNew] = places_.try_emplace(object.creationNumber(), Places{now, now, now});
    Places& places = entry->second;
    if (scene.info.time == 0) {
      if (!isNew) SetGlobalMatrix(object, places.start);
      places.previous = places.start;
    } else {
      MoveObject(scene, tag, object, places);
    }
    places.now = object.GlobalMatrix();
  });
}

bool CoupledObjects::Restore(BaseDocument& document) {
  if (!restored_) return false;
  restored_ = false;
  for (const auto& [number, places] : places_) {
    if (auto* object = dynamic_cast<BaseObject*>(document.FindObject(number))) SetGlobalMatrix(*object, places.now);
  }
  return true;
}

void CoupledObjects::MoveObject(OrlixScene& scene, const BaseObject& tag, BaseObject& object, Places& places) {
  const FluidSolver* solver = SolverOf(scene, tag.GetLink(CoupleTag::kRootId));
  if (!solver) return;
  const Flow flow{*solver};
  const GridSpace& space = flow.space();
  const Settings settings(tag);
  const bool fixedTime = scene.substepMode == SubstepMode::FixedTime;
  const double dt = fixedTime ? scene.info.frameElapsed : scene.info.frameDuration;
  const LMatrix now = object.GlobalMatrix();
  const auto local = [&](const Vec3D& host) { return host * space.simPerHost - space.simMin; };
  const Vec3D s = local(now.off), p = local(places.previous.off);
  const double depth = flow.Depth(s * space.voxelsPerSim);
  LMatrix next = now;
  if (depth < 0) {
    next.off += now.off - places.previous.off;
    next.off.y -= kFall * dt;
    places.previous = now;
    return SetGlobalMatrix(object, next);
  }
  const Vec3D voxel = s * space.voxelsPerSim;
  const Vec3D curl = flow.CurlOf(VecInt3D(int(voxel.x), int(voxel.y), int(voxel.z)));
  if (curl == Vec3D()) return;
  const Vec3D carried = flow.At(voxel) * (1 - settings.lostFlow);
  const Vec3D weight = scene.gravity * (depth * (1 - settings.buoyancy));
  const double kept = 1 - (1 - settings.damping) * depth;
  Vec3D moved = s + (s - p) * kept + (carried * depth + weight) * dt;
  const SolidView walls = solver->boundary.View();
  if (walls.HasData()) walls.ClampToDomain(moved);
  next = Turned(now, -1, curl * (0.25 * dt * settings.turning));
  next.off = moved * space.hostPerSim + space.hostMin;
  places.previous = now;
  SetGlobalMatrix(object, next);
}

void CoupledObjects::VisitState(StateVisitor& visitor) {
  auto count = static_cast<std::int64_t>(places_.size());
  visitor.Visit("coupledObjects", count);
  std::vector<std::pair<std::uint64_t, Places>> all(places_.begin(), places_.end());
  if (visitor.Reading()) all.clear();
  for (std::int64_t n = 0; n < count && visitor.Good(); ++n) {
    if (visitor.Reading()) all.emplace_back();
    visitor.Visit("object", all[std::size_t(n)].first);
    visitor.Visit("places", all[std::size_t(n)].second);
  }
  if (visitor.Reading()) places_ = {all.begin(), all.end()}, restored_ = true;
}

}  // namespace orlix
