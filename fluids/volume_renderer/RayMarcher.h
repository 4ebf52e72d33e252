#pragma once
// Marches rays through a gas: smoke that absorbs and scatters light, flames that shine. Light that reaches a place is
// looked up in maps that are made before the first ray, so the march has no rays of its own.
//
// All distances are in host units. A coarse step crosses empty space; where it finds gas, the ray goes back and on by
// fine steps.
//
//   transmittance of a step   w = exp(-density x colour x absorption x step)        (Beer 1852, Lambert 1760)
//   light of a step           L += T x density x scattering x colour x (lights + ambient) x step

#include <memory>
#include <optional>
#include <vector>

#include "fluids/grids/Interpolation.h"
#include "fluids/volume_renderer/BlackBodyTable.h"
#include "fluids/volume_renderer/EmptySpace.h"
#include "fluids/volume_renderer/PhaseFunction.h"
#include "fluids/volume_renderer/RenderCopies.h"
#include "host/render/RenderWorld.h"

namespace orlix {

// Where a place lies between the samples of a lattice.
struct LatticeCell {
  AxisCell x, y, z;
};

// A grid that is sampled at points of host space.
template <class T>
class HostSampler {
 public:
  HostSampler() = default;
  HostSampler(const GridView<const T>& view, const GridSpace& space, const Vec3D& offset)
      : view_(view), scale_(space.voxelsPerHost), offset_(space.hostMin * space.voxelsPerHost + offset) {}
  explicit operator bool() const { return view_.data != nullptr; }
  T operator()(const Vec3D& x) const {
    const Vec3D g = x * scale_ - offset_;
    return SampleTrilinear(view_, g.x, g.y, g.z);
  }
  // The same in two steps, for several grids of one lattice.
  LatticeCell CellAt(const Vec3D& x) const {
    const Vec3D g = x * scale_ - offset_;
    return {LinearAxis(g.x, view_.dims.x), LinearAxis(g.y, view_.dims.y), LinearAxis(g.z, view_.dims.z)};
  }
  T In(const LatticeCell& cell) const { return interpolation_detail::EightNodes(view_, cell.x, cell.y, cell.z); }
  const GridView<const T>& view() const { return view_; }

 private:
  GridView<const T> view_;
  Vec3D scale_, offset_;
};

struct MarchRay {
  Vec3D origin, direction;  // direction is of unit length
  double length = 0;
  double jitter = -1;  // in [0, 1): where it starts in its first step; below 0 its generator decides
  double time = 0;     // seconds off the time of the picture: the gas is taken as the velocity has moved it by then
};

struct MarchResult {
  Vec3D colour, transmittance{1, 1, 1};
  Vec3D emission;       // the part of colour that flames shine
  double distance = 0;  // mean of what takes light away or gives it, from the ray's origin
  std::uint32_t samples = 0;
};

// A map of the light of one light at each place: its lattice is coarser than the gas's, as a rule.
struct LightMap {
  Light light;
  std::unique_ptr<VectorGrid> grid;
  HostSampler<Vec3D> sampler;
};

// The light of the sky at each place, of all directions that get through the gas.
struct SkyLightMap {
  std::unique_ptr<VectorGrid> grid;
  HostSampler<Vec3D> sampler;
};

// The light of flames at each place: what comes through from the nearest flame, and its temperature.
struct FireMap {
  std::unique_ptr<ScalarGrid> transmittance, value;
  std::unique_ptr<VectorGrid> toFire;  // unit vectors, only where the phase function is to turn the light
  HostSampler<double> transmittanceSampler, valueSampler;
  HostSampler<Vec3D> toFireSampler;
};

struct GasGradients {
  Gradient smoke, densityCurve, fire, fireLight, fireMap, noiseCurve;
};

// The shift of samples along the velocity: moving the place and not the gas looks like motion over a shutter.
class VelocityGridDisplacer {
 public:
  // moves: rays have times of their own, and the velocity that the channels hold without a link is taken, too.
  void Setup(const GasChannels& channels, const GasSettings& settings, bool moves = false);
  bool active() const { return active_; }
  // Both positions, in host space: smoke's and fire's. time: seconds beyond the shift.
  void DisplaceBoth(Vec3D& smoke, Vec3D& fire, double time = 0) const;

 private:
  Vec3D ShiftAt(const std::array<HostSampler<double>, 3>& velocity, const Vec3D& x) const;
  bool active_ = false, same_ = false;
  double smokeShift_ = 0, fireShift_ = 0;
  Vec3D hostPerSim_;
  std::array<HostSampler<double>, 3> velocity_, fireVelocity_;
};

class MultipleScattering;

class RayMarcher {
 public:
  RayMarcher();
  ~RayMarcher();

  struct Input {
    GasChannels channels;
    GasSettings settings;
    GasGradients gradients;
    std::array<ConstraintChain, kGasFilters> filters;
    std::vector<Light> lights;  // those that light the gas
    const RenderWorld* world = nullptr;
    double time = 0;
    WorkerPool& pool;
    const BaseThread* thread = nullptr;
    StatusLine* status = nullptr;
    double containerSide = 0;  // host units, mean of the three; 0: that of the gas's grid
    ShaderSlot colourShader{}, densityShader{};
  };

  // Makes all that rays read. Without gas it succeeds and IsEmpty says so.
  Status Build(Input input);
  bool IsEmpty() const { return empty_; }
  const GridSpace& Space() const { return space_; }
  double mapSeconds() const { return mapSeconds_; }
  double cell() const { return cell_; }  // host units

  // From all workers at once; random belongs to the ray's tile and may be null when there is no jitter.
  MarchResult March(const MarchRay& ray, MersenneTwister* random, int worker) const;
  // The share of a light that comes through, with the material's shadow steps or others. k: extinction of a density
  // of 1.
  Vec3D Transmittance(const MarchRay& ray, const StepSettings& steps, const Vec3D& k, MersenneTwister* random,
                      int worker) const;

  // The light that scatters many times along a ray; black where the settings leave it out.
  Vec3D Scattered(const MarchRay& ray, MersenneTwister* random, int worker) const;
  const MultipleScattering* scattering() const { return scattering_.get(); }

  // The light of the sky that gets to a place, over all directions.
  Vec3D SkyLightAt(const Vec3D& x) const { return skyMap_ ? skyMap_->sampler(x) : Vec3D(); }
  // The light that the gas glows with at a place, for a host unit of way; 0 where there is no flame.
  Vec3D GlowAt(const Vec3D& x) const;
  // The gas at a place; false when there is none.
  bool SampleDensity(const Vec3D& x, double& density) const;
  bool SampleTemperature(const Vec3D& x, double& temperature) const;
  const GasSettings& settings() const { return settings_; }
  Vec3D ShadowExtinction() const { return settings_.shadowColour * settings_.shadowDensity; }
  bool Inside(const Vec3D& x) const;

 private:
  // The gas at one step.
  struct Place {
    Vec3D x;      // where the ray is
    Vec3D smoke;  // where the smoke is taken from
    bool hasDensity = false, hasTemperature = false, hasThird = false;
    double density = 0, temperature = 0, third = 0;
  };
  struct MarchState;
  friend class LightMapBuilder;
  friend class MultipleScattering;

  void SetUpSamplers();
  Status BuildScattering(const Input& input);
  void SetUpColours();
  bool SamplePlace(const Vec3D& x, double time, Place& place) const;
  // The density, with the shift along the velocity.
  bool SampleShifted(const Vec3D& x, double time, double& density) const;
  void Shade(const MarchRay& ray, double t, double ds, const Place& place, int worker, MarchState& state) const;
  bool IsFlame(const Place& place) const { return settings_.flameFromThird ? place.hasThird : place.hasTemperature; }
  Vec3D FlameLight(const Place& place) const;  // for a host unit of way
  void ShadeFlame(double ds, const Place& place, MarchState& state) const;
  void ShadeSmoke(const MarchRay& ray, double ds, const Place& place, int worker, MarchState& state) const;
  Vec3D LightAt(const MarchRay& ray, const Vec3D& x, double g, double p) const;
  Vec3D FireLightAt(const MarchRay& ray, const Vec3D& x, double g, double p) const;
  Vec3D SmokeColour(const Place& place) const;
  Vec3D FireColour(double temperature) const;
  double Filtered(GasFilter filter, const Vec3D& x, int worker) const;

  GasSettings settings_;
  GasGradients gradients_;
  std::array<ConstraintChain, kGasFilters> filters_;
  const RenderWorld* world_ = nullptr;
  bool empty_ = true;
  RenderCopies copies_;
  GridSpace space_;
  double cell_ = 1;  // host units
  HostSampler<double> density_, temperature_, third_;
  std::array<HostSampler<double>, 3> colour_;
  VelocityGridDisplacer displacer_;
  EmptySpace emptySpace_;  // of the density; without blocks where the gas isn't taken from where a ray is
  std::optional<GasNoise> noise_;
  std::optional<PhaseFunction> phase_;
  BlackBodyTable blackBody_;
  std::vector<LightMap> lightMaps_;
  std::optional<SkyLightMap> skyMap_;
  std::optional<FireMap> fireMap_;
  std::unique_ptr<MultipleScattering> scattering_;
  double mapSeconds_ = 0;
};

}  // namespace orlix
