#include "fluids/volume_renderer/RayMarcher.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "fluids/volume_renderer/LightMapBuilder.h"
#include "fluids/volume_renderer/MultipleScattering.h"

namespace orlix {

namespace {

constexpr double kDensityThreshold = 1e-4;
constexpr double kOpaque = 0.001;
constexpr double kKelvinOffset = 273.5;
constexpr double kDrawScale = 2.3283064370807974e-10;  // of 32 random bits to [0, 1)
constexpr float kPhaseMix = 0.7f;
constexpr Vec3D kCellCentre{0.5, 0.5, 0.5};

HostSampler<double> SamplerOf(const RenderGrid& grid) {
  return grid ? HostSampler<double>(*grid, grid->space, kCellCentre) : HostSampler<double>();
}

Vec3D Exp(const Vec3D& v) { return {std::exp(v.x), std::exp(v.y), std::exp(v.z)}; }

bool AllAtMost(const Vec3D& v, double limit) { return v.x <= limit && v.y <= limit && v.z <= limit; }

// The random start that hides the banding of a fixed step.
double JitteredStart(const StepSettings& steps, const MarchRay& ray, MersenneTwister* random) {
  if (!(steps.jitter > 0) || (!random && ray.jitter < 0)) return 0;
  const double draw = ray.jitter >= 0 ? ray.jitter : random->Bits() * kDrawScale;
  return std::min(ray.length, steps.coarse * steps.jitter * (1 - draw));
}

}  // namespace

// --- displacement ----------------------------------------------------------------------------------------------------

void VelocityGridDisplacer::Setup(const GasChannels& channels, const GasSettings& settings, bool moves) {
  const bool linked = channels.velocity[2] != nullptr;
  const auto& smoke = linked ? channels.velocity : channels.ownVelocity;
  active_ = linked || (moves && smoke[2] != nullptr);
  if (!active_) return;
  smokeShift_ = linked ? static_cast<float>(settings.smokeShift) : 0;
  fireShift_ = linked ? static_cast<float>(settings.fireShift) : 0;
  same_ = !(smokeShift_ != 0 && fireShift_ != 0 && smokeShift_ != fireShift_);
  hostPerSim_ = smoke[0]->space.hostPerSim;
  const auto& fire = channels.fireVelocity[2] ? channels.fireVelocity : smoke;
  for (int c = 0; c < 3; ++c) {
    const ScalarGrid &g = *smoke[c], &f = *fire[c];
    velocity_[c] = HostSampler<double>(g, g.space, CellSampleOffset(g.gridType));
    fireVelocity_[c] = HostSampler<double>(f, f.space, CellSampleOffset(f.gridType));
  }
}

Vec3D VelocityGridDisplacer::ShiftAt(const std::array<HostSampler<double>, 3>& velocity, const Vec3D& x) const {
  return Vec3D(velocity[0](x), velocity[1](x), velocity[2](x)) * hostPerSim_;
}

void VelocityGridDisplacer::DisplaceBoth(Vec3D& smoke, Vec3D& fire, double time) const {
  if (!active_) return;
  const Vec3D x = smoke;
  smoke = x - ShiftAt(velocity_, x) * (smokeShift_ + time);
  fire = same_ ? smoke : x - ShiftAt(fireVelocity_, x) * (fireShift_ + time);
}

// --- build -----------------------------------------------------------------------------------------------------------

RayMarcher::RayMarcher() = default;
RayMarcher::~RayMarcher() = default;

Status RayMarcher::Build(Input input) {
  settings_ = input.settings;
  gradients_ = std::move(input.gradients);
  filters_ = std::move(input.filters);
  world_ = input.world;
  empty_ = true;
  if (!input.channels.HasGas()) return {};
  const auto show = [&](const char* text) {
    if (input.status) input.status->Set(text);
  };
  show("Precompute");
  phase_ = PhaseFunction::Make(settings_.phase, kPhaseMix);
  if (!phase_) return Status::Fail(ErrorKind::Scene, "a gas material's phase must be 0 to 8");
  if (settings_.noise.enabled) noise_.emplace(settings_.noise, &gradients_.noiseCurve, input.time);
  const bool linear = !world_ || world_->settings.linearInputs;
  show("Preprocessors");
  const Status copied = MakeRenderCopies({input.channels, settings_, filters_, noise_ ? &*noise_ : nullptr, linear,
                                          input.pool, input.thread, input.colourShader, input.densityShader},
                                         copies_);
  if (!copied) return copied;
  if (!copies_.density && !copies_.temperature && !copies_.third) return {};
  SetUpSamplers();
  const Vec3D box = space_.hostSize;
  const double side = input.containerSide > 0 ? input.containerSide : (box.x + box.y + box.z) / 3;
  settings_.ApplyUnits(settings_.unitLength > 0 ? settings_.unitLength : 0.1 * side);
  displacer_.Setup(input.channels, settings_, world_ && world_->settings.shutter > 0);
  if (copies_.density && !displacer_.active()) {
    emptySpace_.Build(*copies_.density, kDensityThreshold, input.pool);
  } else {
    emptySpace_.Clear();
  }
  SetUpColours();
  show("Scattering maps");
  const auto start = std::chrono::steady_clock::now();
  LightMapBuilder builder(*this, input.pool, input.thread, input.status);
  Status lit = builder.Build(input.lights);
  if (lit.ok()) lit = BuildScattering(input);
  mapSeconds_ = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  empty_ = !lit.ok();
  return lit;
}

Status RayMarcher::BuildScattering(const Input& input) {
  scattering_.reset();
  if (!settings_.scatter.enabled || !copies_.density) return {};
  try {
    scattering_ = std::make_unique<MultipleScattering>(*this);
    scattering_->Build(input.lights, input.pool, input.thread);
  } catch (const std::bad_alloc&) {
    return Status::Fail(ErrorKind::Memory, "the maps of multiple scattering of a gas material don't fit");
  }
  return {};
}

Vec3D RayMarcher::Scattered(const MarchRay& ray, MersenneTwister* random, int worker) const {
  return scattering_ ? scattering_->Along(ray, random, worker) : Vec3D();
}

void RayMarcher::SetUpSamplers() {
  space_ = copies_.Space();
  cell_ = space_.hostPerVoxel.x;
  for (StepSettings* steps : {&settings_.steps, &settings_.shadowSteps, &settings_.cast}) {
    steps->fine *= cell_;
    steps->coarse *= cell_;
  }
  density_ = SamplerOf(copies_.density);
  temperature_ = SamplerOf(copies_.temperature);
  third_ = SamplerOf(copies_.third);
  for (int c = 0; c < 3; ++c) colour_[c] = SamplerOf(copies_.colour[c]);
}

void RayMarcher::SetUpColours() {
  if (!copies_.temperature) return;
  blackBody_.lowest = copies_.temperature->valueOffset;
  blackBody_.highest = copies_.temperature->valueScale;
  blackBody_.step = 5.0;
  blackBody_.Build(settings_.fireIntensity, settings_.whiteBalance, settings_.colourSystem);
}

// --- samples ---------------------------------------------------------------------------------------------------------

bool RayMarcher::Inside(const Vec3D& x) const {
  // A ray ends on the box's far face: the last step belongs to the gas, whatever the rounding of its end.
  constexpr double kSlack = 1e-6;
  const Vec3D v = (x - space_.hostMin) * space_.voxelsPerHost, n = Vec3D(space_.dims) + Vec3D(kSlack);
  return v.x >= -kSlack && v.y >= -kSlack && v.z >= -kSlack && v.x <= n.x && v.y <= n.y && v.z <= n.z;
}

bool RayMarcher::SampleDensity(const Vec3D& x, double& d) const {
  if (!density_) return false;
  d = density_(x);
  if (!(d > kDensityThreshold)) return false;
  if (settings_.rawDensity) return true;
  const double max = copies_.density->valueScale;
  d = gradients_.densityCurve.ColourAt(std::min(d, 1.0) / max).x * max;
  if (!(d > kDensityThreshold)) return false;
  if (noise_) d *= noise_->Value(noise_->hostSpace() ? x : x * space_.simPerHost);
  return true;
}

bool RayMarcher::SampleShifted(const Vec3D& x, double time, double& d) const {
  Vec3D smoke = x, fire = x;
  displacer_.DisplaceBoth(smoke, fire, time);
  return SampleDensity(smoke, d);
}

bool RayMarcher::SampleTemperature(const Vec3D& x, double& t) const {
  if (!temperature_) return false;
  t = temperature_(x);
  return t + kKelvinOffset > settings_.flameThreshold;
}

bool RayMarcher::SamplePlace(const Vec3D& x, double time, Place& place) const {
  place.x = place.smoke = x;
  Vec3D fire = x;
  displacer_.DisplaceBoth(place.smoke, fire, time);
  place.hasDensity = SampleDensity(place.smoke, place.density);
  place.hasTemperature = SampleTemperature(fire, place.temperature);
  place.hasThird = third_ && (place.third = third_(fire)) > kDensityThreshold;
  return place.hasDensity || place.hasTemperature || place.hasThird;
}

double RayMarcher::Filtered(GasFilter filter, const Vec3D& x, int worker) const {
  double amount = 1;
  if (!filters_[filter].empty()) EvaluateChain(filters_[filter], x * space_.simPerHost, amount, nullptr, worker);
  return amount;
}

Vec3D RayMarcher::SmokeColour(const Place& place) const {
  if (colour_[2]) return {colour_[0](place.smoke), colour_[1](place.smoke), colour_[2](place.smoke)};
  const double max = copies_.density->valueScale;
  return gradients_.smoke.ColourAt(max > 0 ? place.density / max : 0);
}

Vec3D RayMarcher::FireColour(double temperature) const {
  if (!settings_.fireGradient) {
    return blackBody_.Sample(temperature * settings_.temperatureScale + kKelvinOffset) * settings_.fireIntensity;
  }
  const double max = copies_.temperature ? copies_.temperature->valueScale : 0;
  return gradients_.fire.ColourAt(max > 0 ? temperature / max : 0);
}

// --- light at a place ------------------------------------------------------------------------------------------------

Vec3D RayMarcher::LightAt(const MarchRay& ray, const Vec3D& x, double g, double p) const {
  Vec3D sum = SkyLightAt(x) * p;
  for (const LightMap& map : lightMaps_) {
    const Vec3D light = map.sampler(x);
    if (light == Vec3D()) continue;
    const Vec3D u = Normalized(x - map.light.PositionFrom(x));
    double w = phase_->Evaluate(Dot(ray.direction, u), g, settings_.phaseSecond) * p;
    if (settings_.surfaceShadows && world_) {
      const Vec3D shadow = world_->ShadowColour(map.light, x) - Vec3D(1.0);
      w *= std::max(0.0, Dot(shadow, settings_.surfaceShadowColour) * settings_.surfaceShadowStrength + 1);
    }
    sum += light * w;
  }
  return sum;
}

Vec3D RayMarcher::FireLightAt(const MarchRay& ray, const Vec3D& x, double g, double p) const {
  if (!fireMap_) return {};
  const double q = fireMap_->valueSampler(x) * settings_.fireLightScale;
  if (!(q > 0)) return {};
  double w = 1;
  if (settings_.fireLightPhase && fireMap_->toFireSampler) {
    const Vec3D u = -Normalized(fireMap_->toFireSampler(x));
    w = phase_->Evaluate(Dot(ray.direction, u), g, settings_.phaseSecond) * p;
  }
  Vec3D colour;
  if (settings_.fireLightGradient) {
    const double max = copies_.temperature->valueScale, at = max > 0 ? q / max : 0;
    colour = gradients_.fireLight.ColourAt(at > 1 ? 0 : at);
  } else {
    colour = blackBody_.Sample(q + kKelvinOffset);
  }
  return colour * (fireMap_->transmittanceSampler(x) * settings_.fireLightStrength * w);
}

// --- the march -------------------------------------------------------------------------------------------------------

struct RayMarcher::MarchState {
  MarchResult result;
  Vec3D previousW{1, 1, 1}, previousLight;
  double weightedDistance = 0, weight = 0;

  // One step's transmittance and light, averaged with the step before by the trapezoid rule.
  void Step(Vec3D w, bool trapezoid) {
    const Vec3D raw = w;
    if (trapezoid) w = (w + previousW) * 0.5;
    previousW = raw;
    result.transmittance = result.transmittance * w;
  }
  void AddLight(const Vec3D& raw, bool trapezoid) {
    result.colour += trapezoid ? (raw + previousLight) * 0.5 : raw;
    previousLight = raw;
  }
};

Vec3D RayMarcher::FlameLight(const Place& place) const {
  const double density = place.hasDensity ? place.density : settings_.fallbackDensity;
  const Vec3D fire = place.hasTemperature ? FireColour(place.temperature) : FireColour(place.third);
  return fire * (density * settings_.flameStrength);
}

Vec3D RayMarcher::GlowAt(const Vec3D& x) const {
  Place place;
  return SamplePlace(x, 0, place) && IsFlame(place) ? FlameLight(place) : Vec3D();
}

void RayMarcher::ShadeFlame(double ds, const Place& place, MarchState& state) const {
  const double density = place.hasDensity ? place.density : settings_.fallbackDensity;
  const bool trapezoid = settings_.steps.trapezoid;
  if (settings_.flameAbsorption != 0) {
    state.Step(Vec3D(std::exp(-density * settings_.flameAbsorption * ds)), trapezoid);
  }
  const Vec3D before = state.result.colour;
  state.AddLight(state.result.transmittance * FlameLight(place) * ds, trapezoid);
  state.result.emission += state.result.colour - before;
}

void RayMarcher::ShadeSmoke(const MarchRay& ray, double ds, const Place& place, int worker, MarchState& state) const {
  const Vec3D x = place.x;
  const double g = std::clamp(settings_.phaseG * Filtered(kFilterPhase, x, worker), -1.0, 1.0);
  const double p = settings_.phaseScale * Filtered(kFilterPhaseScale, x, worker);
  const double density = place.density * settings_.densityMultiplier;
  const Vec3D absorption = settings_.absorption * Filtered(kFilterAbsorption, x, worker);
  const Vec3D scattering = settings_.scattering * Filtered(kFilterScattering, x, worker);
  const Vec3D colour = SmokeColour(place);
  const Vec3D absorbed = settings_.greyAbsorption ? Vec3D(std::max({colour.x, colour.y, colour.z})) : colour;
  const bool trapezoid = settings_.steps.trapezoid;
  state.Step(Exp(absorbed * absorption * (-density * ds)), trapezoid);
  const Vec3D light = LightAt(ray, x, g, p) + FireLightAt(ray, x, g, p) + settings_.ambient;
  state.AddLight(state.result.transmittance * scattering * colour * light * (density * ds), trapezoid);
}

void RayMarcher::Shade(const MarchRay& ray, double t, double ds, const Place& place, int worker,
                       MarchState& state) const {
  const Vec3D before = state.result.transmittance;
  if (IsFlame(place))
    ShadeFlame(ds, place, state);
  else if (place.hasDensity)
    ShadeSmoke(ray, ds, place, worker, state);
  const Vec3D taken = before - state.result.transmittance;
  const double share = taken.x + taken.y + taken.z;
  state.weightedDistance += share * t;
  state.weight += share;
}

MarchResult RayMarcher::March(const MarchRay& ray, MersenneTwister* random, int worker) const {
  MarchState state;
  if (empty_ || !(ray.length > 0)) return state.result;
  const StepSettings& steps = settings_.steps;
  bool coarse = true;
  double step = steps.coarse, t = JitteredStart(steps, ray, random), ds = t, seen = 0;
  for (;;) {
    const Vec3D x = ray.origin + ray.direction * t;
    if (!coarse) seen = t;
    if (Inside(x)) {
      Place place;
      ++state.result.samples;
      if (!SamplePlace(x, ray.time, place)) {
        coarse = true;
        step = steps.coarse;
      } else if (coarse) {
        // The hop went beyond the edge of the gas: back, and on by fine steps.
        // Never back before a place that a fine step has seen: a step that the ray's end cut short would repeat for
        // ever.
        t = std::max(t - steps.coarse, seen);
        coarse = false;
        step = steps.fine;
      } else {
        Shade(ray, t, ds, place, worker, state);
        if (settings_.stopWhenOpaque && AllAtMost(state.result.transmittance, kOpaque)) break;
      }
    }
    if (!(t < ray.length)) break;
    const double next = std::min(t + step, ray.length);
    ds = next - t;
    t = next;
  }
  if (state.weight > 0) state.result.distance = state.weightedDistance / state.weight;
  return state.result;
}

Vec3D RayMarcher::Transmittance(const MarchRay& ray, const StepSettings& steps, const Vec3D& k, MersenneTwister* random,
                                int worker) const {
  Vec3D transmittance(1.0), previous(1.0);
  if (empty_ && !density_) return transmittance;
  bool coarse = true, firstSample = false;
  double t = JitteredStart(steps, ray, random), ds = t;
  EmptySpaceWalk walk(emptySpace_, ray);
  while (true) {
    double step = coarse ? steps.coarse : steps.fine, density = 0;
    const Vec3D x = ray.origin + ray.direction * t;
    if (!walk.IsEmptyAt(t) && Inside(x)) {
      Vec3D smoke = x, fire = x;
      displacer_.DisplaceBoth(smoke, fire, ray.time);
      if (SampleDensity(smoke, density)) {
        if (coarse) {
          coarse = false;
          firstSample = true;
          t = std::max(0.0, t - steps.fine);
          step = steps.fine;
        } else {
          if (firstSample) ds = steps.fine, firstSample = false;
          const Vec3D extinction = k * Filtered(kFilterShadow, x, worker);
          const Vec3D raw = Exp(extinction * (-density * settings_.densityMultiplier * ds));
          transmittance = transmittance * (steps.trapezoid ? (raw + previous) * 0.5 : raw);
          previous = raw;
          if (AllAtMost(transmittance, kOpaque)) break;
          step = steps.fine;
        }
      }
    }
    if (!(t < ray.length)) break;
    const double next = std::min(t + step, ray.length);
    ds = next - t;
    t = next;
  }
  return transmittance;
}

}  // namespace orlix
