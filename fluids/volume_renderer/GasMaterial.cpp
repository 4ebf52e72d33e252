#include "fluids/volume_renderer/GasMaterial.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"
#include "fluids/dynamics/FluidSolver.h"

namespace orlix {

namespace {

constexpr double kClipTolerance = 1e-7;
constexpr double kSurfaceGap = 0.01;  // host units that a march stays before a surface
constexpr double kSkyDistance = 1e6;

Gradient GradientOf(const BaseObject& object, int id) {
  const Gradient* gradient = object.GetGradient(id);
  return gradient ? *gradient : Gradient();
}

}  // namespace

const FluidSolver* GasMaterial::FindSolver() const {
  const FluidSolver* found = nullptr;
  for (const int id : {GasSettings::kDensityId, GasSettings::kTemperatureId, GasSettings::kThirdId}) {
    BaseObject* link = object_.GetLink(id);
    const auto* node = link ? dynamic_cast<iObject*>(hook_.FindNode(link)) : nullptr;
    if (!node || found) continue;
    node->GetScene().ForEachNode(NODE_SOLVER, NODE_SOLVER, [&](iBase& each) {
      if (!found) found = dynamic_cast<const FluidSolver*>(&each);
    });
  }
  return found;
}

GasChannels GasMaterial::FindChannels() const {
  const auto scalar = [&](int id) -> const ScalarGrid* {
    BaseObject* link = object_.GetLink(id);
    const auto* channel = link ? dynamic_cast<ChannelBase_Scalar*>(hook_.FindNode(link)) : nullptr;
    return channel ? channel->grid.get() : nullptr;
  };
  const auto vector = [&](int id) -> std::array<const ScalarGrid*, 3> {
    BaseObject* link = object_.GetLink(id);
    iBase* node = link ? hook_.FindNode(link) : nullptr;
    const ChannelBase_Vector* channel = dynamic_cast<ChannelBase_Vector*>(node);
    if (const auto* solver = dynamic_cast<FluidSolver*>(node)) channel = &solver->velocity;
    if (!channel || !channel->grids[0] || !channel->grids[1] || !channel->grids[2]) return {};
    return {channel->grids[0].get(), channel->grids[1].get(), channel->grids[2].get()};
  };
  GasChannels channels;
  channels.density = scalar(GasSettings::kDensityId);
  channels.temperature = scalar(GasSettings::kTemperatureId);
  channels.third = scalar(GasSettings::kThirdId);
  channels.colour = vector(GasSettings::kColourId);
  channels.velocity = vector(GasSettings::kVelocityId);
  channels.fireVelocity = vector(GasSettings::kFireVelocityId);
  if (const FluidSolver* solver = FindSolver()) {
    for (int c = 0; c < 3; ++c) channels.ownVelocity[c] = solver->velocity.grids[c].get();
  }
  return channels;
}

RayMarcher::Input GasMaterial::MakeInput(const RenderContext& context) const {
  RayMarcher::Input input{channels_,      settings_,     {}, {}, {}, context.world, context.time, *context.workers,
                          context.thread, context.status};
  if (const FluidSolver* solver = FindSolver()) {
    const Vec3D size = solver->containerSize;
    input.containerSide = (size.x + size.y + size.z) / 3;
  }
  input.colourShader = ShaderSlot::Of(object_, GasSettings::kColourShaderId);
  input.densityShader = ShaderSlot::Of(object_, GasSettings::kDensityShaderId);
  if (context.preview && !object_.GetBool(GasSettings::kFullPreviewId))
    input.settings.copyScale = std::min(1.0, settings_.copyScale) * 0.5;
  GasGradients& g = input.gradients;
  g.smoke = GradientOf(object_, GasSettings::kSmokeGradientId);
  g.densityCurve = GradientOf(object_, GasSettings::kDensityCurveId);
  g.noiseCurve = GradientOf(object_, GasSettings::kNoiseCurveId);
  g.fire = GradientOf(object_, GasSettings::kFireGradientId);
  g.fireLight = GradientOf(object_, GasSettings::kFireLightGradientId);
  g.fireMap = GradientOf(object_, GasSettings::kFireMapGradientId);
  for (int filter = 0; filter < kGasFilters; ++filter) {
    const InExcludeData* list = object_.GetInExclude(GasSettings::kFilterIds[filter]);
    for (const InExcludeData::Entry& entry : list ? list->entries : std::vector<InExcludeData::Entry>()) {
      BaseObject* link = object_.document().FindObject(entry.target);
      if (auto* constraint = link ? dynamic_cast<Constraint*>(hook_.FindNode(link)) : nullptr) {
        // Pictures are made when the scene has released its links.
        constraint->ResolveLinks();
        constraint->Prepare(nullptr);
        input.filters[filter].push_back(constraint);
      }
    }
  }
  const InExcludeData* excluded = object_.GetInExclude(GasSettings::kExcludedLightsId);
  for (const Light& light : context.world->lights) {
    if (!light.on || (excluded && light.object != 0 && excluded->Contains(light.object))) continue;
    input.lights.push_back(light);
  }
  return input;
}

void GasMaterial::Advise(Warnings& warnings, std::int32_t frame) const {
  constexpr double kUnheated = 273.5;  // K
  const GasSettings settings = GasSettings::Read(object_);
  const auto links = [&](int id) { return object_.GetLink(id) != nullptr; };
  const auto tell = [&](const char* key, const char* text) { warnings.Tell({Path(), key, text, frame}); };
  const bool hot = links(GasSettings::kTemperatureId);
  const bool coldGlows =
      !settings.fireGradient || GradientOf(object_, GasSettings::kFireGradientId).ColourAt(0) != Vec3D();
  if (settings.flameStrength > 0 && settings.flameFromThird && links(GasSettings::kThirdId) && !hot &&
      !(settings.fireGradient && coldGlows)) {
    tell("black-flames",
         "its flames have their colour from a temperature, so they are black; link one under \"temperature\"");
  }
  if (settings.flameStrength > 0 && !settings.flameFromThird && hot && coldGlows &&
      settings.flameThreshold <= kUnheated) {
    tell("flames-everywhere",
         "what isn't heated has 273.5 K and counts as flame, so that the whole container glows; set flame_threshold to "
         "about half of the hottest");
  }
  if (links(GasSettings::kFireVelocityId) && !links(GasSettings::kVelocityId)) {
    tell("no-velocity", "fire_velocity shifts nothing without a velocity; link one under \"velocity\"");
  }
}

Status GasMaterial::RenderStart(const RenderContext& context) {
  RenderEnd();
  settings_ = GasSettings::Read(object_);
  postGradient_ = GradientOf(object_, GasSettings::kPostGradientId);
  wantsVelocity_ = context.world->settings.NeedsMotion();
  channels_ = FindChannels();
  if (!channels_.HasGas()) return {};
  auto marcher = std::make_unique<RayMarcher>();
  RayMarcher::Input input = MakeInput(context);
  for (const ConstraintChain& chain : input.filters)
    constraints_.insert(constraints_.end(), chain.begin(), chain.end());
  if (Status built = marcher->Build(std::move(input)); !built) {
    RenderEnd();
    return built;
  }
  if (marcher->IsEmpty()) return {};
  marcher_ = std::move(marcher);
  glow_ = {};
  try {
    if (settings_.glowPoints > 0) glow_.Build(*marcher_, *context.workers);
  } catch (const std::bad_alloc&) {
    return Status::Fail(ErrorKind::Memory, "the glow of a gas material doesn't fit");
  }
  return {};
}

void GasMaterial::RenderEnd() {
  marcher_.reset();
  for (Constraint* constraint : constraints_) {
    constraint->Finish();
    constraint->ReleaseLinks();
  }
  constraints_.clear();
}

bool GasMaterial::Bounds(Vec3D& low, Vec3D& high) const {
  // Before the first ray the box is known only from what the links hold at this moment.
  if (marcher_) {
    low = marcher_->Space().hostMin, high = marcher_->Space().hostMax;
    return true;
  }
  const GasChannels channels = FindChannels();
  for (const ScalarGrid* grid : {channels.density, channels.temperature, channels.third}) {
    if (!grid || grid->count < 2) continue;
    low = grid->space.hostMin, high = grid->space.hostMax;
    return true;
  }
  return false;
}

bool GasMaterial::ContentBounds(Vec3D& low, Vec3D& high, double* mean) const {
  constexpr double kShare = 0.02;
  const GasChannels channels = FindChannels();
  VecInt3D first(std::numeric_limits<std::int32_t>::max()), last(-1);
  const ScalarGrid* grid = channels.density ? channels.density : channels.temperature;
  if (!grid) grid = channels.third;
  if (!grid || grid->count < 2) return false;
  double most = 0;
  for (std::int64_t n = 0; n < grid->count; ++n) most = std::max(most, (*grid)[n]);
  if (!(most > 0)) return false;
  const VecInt3D dims = grid->dims;
  double sum = 0, cells = 0;
  for (int k = 0; k < dims.z; ++k) {
    for (int j = 0; j < dims.y; ++j) {
      for (int i = 0; i < dims.x; ++i) {
        if (!((*grid)(i, j, k) > kShare * most)) continue;
        sum += (*grid)(i, j, k), ++cells;
        first = {std::min(first.x, i), std::min(first.y, j), std::min(first.z, k)};
        last = {std::max(last.x, i), std::max(last.y, j), std::max(last.z, k)};
      }
    }
  }
  low = grid->space.HostOfVoxel(Vec3D(first)), high = grid->space.HostOfVoxel(Vec3D(last) + Vec3D(1.0));
  if (mean) *mean = sum / cells;
  return true;
}

bool GasMaterial::Sees(std::uint32_t kind) const {
  if ((kind & kRayGlobal) != 0 && (!settings_.seenByGather || (!channels_.temperature && !channels_.third)))
    return false;
  if ((kind & kRayReflection) != 0 && !settings_.seenByReflection) return false;
  if ((kind & kRayCamera) != 0 && !settings_.seenByCamera) return false;
  if ((kind & kRayRefraction) != 0 && !settings_.seenByRefraction) return false;
  if ((kind & kRayOcclusion) != 0 && !settings_.seenByOcclusion) return false;
  return (kind & kRayShadow) == 0;
}

void GasMaterial::Volume(const VolumeRay& ray, VolumeSample& sample) const {
  if (!marcher_ || !Sees(ray.kind)) return;
  const double rayEnd = ray.hit ? ray.hitDistance - kSurfaceGap : kSkyDistance;
  double begin = 0, end = rayEnd;
  const GridSpace& space = marcher_->Space();
  if (!ClipToBox(ray.origin, ray.direction, space.hostMin, space.hostMax, kClipTolerance, begin, end)) return;
  if (begin > rayEnd) return;
  MarchResult result;
  const MarchRay march{ray.origin + ray.direction * begin, ray.direction, end - begin, ray.jitter, ray.time};
  if (settings_.march) result = marcher_->March(march, ray.random, ray.worker);
  Vec3D colour = result.colour, transmittance = result.transmittance;
  if (!std::isfinite(colour.x) || !std::isfinite(colour.z)) colour = {};
  if (colour != Vec3D() || transmittance != Vec3D()) colour += ScatteredLight(march, ray);
  const bool asPoints = (ray.kind & kRayGlobal) != 0 && GlowPoints() > 0;
  if (asPoints) colour -= result.emission;
  sample.emission = asPoints || !IsFinite(result.emission) ? Vec3D() : result.emission * ray.weight;
  colour *= ray.weight;
  PostStep(colour, transmittance);
  sample.colour = (ray.kind & kRayGlobal) != 0 ? colour * settings_.gatherBoost : colour;
  sample.transmittance = transmittance;
  sample.samples = result.samples;
  sample.distance = begin + result.distance;
  const auto& velocity = channels_.velocity[2] ? channels_.velocity : channels_.ownVelocity;
  if (wantsVelocity_ && velocity[2]) {
    const Vec3D x = ray.origin + ray.direction * sample.distance;
    for (int c = 0; c < 3; ++c) {
      const ScalarGrid& grid = *velocity[c];
      const HostSampler<double> sampler(grid, grid.space, CellSampleOffset(grid.gridType));
      sample.velocity[c] = sampler(x) * grid.space.hostPerSim[c];
    }
  }
}

// Light that has scattered many times changes little within a pixel: of two samples that end at the same depth, one
// looks.
Vec3D GasMaterial::ScatteredLight(const MarchRay& march, const VolumeRay& ray) const {
  VolumeMemo* memo = ray.memo;
  if (memo && memo->kept && std::fabs(memo->length - march.length) <= marcher_->cell()) return memo->light;
  const Vec3D light = marcher_->Scattered(march, ray.random, ray.worker);
  if (memo) *memo = {true, march.length, light};
  return light;
}

void GasMaterial::PostStep(Vec3D& colour, Vec3D& transmittance) const {
  if (transmittance.x >= 1 || transmittance.y >= 1 || transmittance.z >= 1) return;
  const Vec3D opacity = Vec3D(1.0) - transmittance;
  const double most = std::max({opacity.x, opacity.y, opacity.z});
  if (settings_.postAmount > 0) colour += postGradient_.ColourAt(most) * (settings_.postAmount * most);
  colour += opacity * settings_.postAdd;
  for (int c = 0; c < 3; ++c) transmittance[c] = (std::fabs(transmittance[c]) - 0.5) * settings_.postContrast + 0.5;
  if (settings_.postSaturation != 1) {
    const double mean = (colour.x + colour.y + colour.z) / 3;
    colour = (colour - Vec3D(mean)) * settings_.postSaturation + Vec3D(mean);
  }
}

Vec3D GasMaterial::Transparency(const VolumeRay& ray) const {
  if (!marcher_ || !settings_.castsShadows || !ray.light) return Vec3D(1.0);
  const double far = (ray.kind & kRayShadow) != 0 ? ray.lightDistance : ray.hitDistance;
  double begin = 0, end = far;
  const GridSpace& space = marcher_->Space();
  if (!ClipToBox(ray.origin, ray.direction, space.hostMin, space.hostMax, kClipTolerance, begin, end))
    return Vec3D(1.0);
  const MarchRay march{ray.origin + ray.direction * begin, ray.direction, end - begin, -1, ray.time};
  const Vec3D t =
      marcher_->Transmittance(march, marcher_->settings().cast, marcher_->ShadowExtinction(), ray.random, ray.worker);
  // The light of a full shadow is the shadow's colour, component by component, so that clear gas gives 1.
  const Vec3D c = settings_.castColour, tinted = c + (Vec3D(1.0) - c) * t;
  return (tinted - Vec3D(1.0)) * settings_.castStrength + Vec3D(1.0);
}

std::vector<std::unique_ptr<GasMaterial>> CollectGasMaterials(const BaseDocument& document, const OrlixHook& hook) {
  std::vector<std::unique_ptr<GasMaterial>> materials;
  for (const BaseObject* object : document.ObjectsOfType(kGasMaterialId)) {
    materials.push_back(std::make_unique<GasMaterial>(*object, hook));
  }
  return materials;
}

}  // namespace orlix
