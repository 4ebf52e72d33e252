#include "fluids/volume_renderer/LightMapBuilder.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "fluids/level_sets/FastSweeper.h"
#include "fluids/volume_renderer/Diffusor.h"
#include "host/render/SampleSequence.h"

namespace orlix {

namespace {

constexpr double kFarFire = 1e6;
constexpr std::uint32_t kMapSeed = 9229837;
constexpr Vec3D kCellCentre{0.5, 0.5, 0.5};

Vec3D CentreOf(const GridSpace& space, int i, int j, int k) { return space.HostOfVoxel({i + 0.5, j + 0.5, k + 0.5}); }

}  // namespace

Status LightMapBuilder::Build(const std::vector<Light>& lights) {
  try {
    lattice_ = LatticeOf(marcher_.settings_.mapResolution);
    lit_ = FindLitCells(lattice_);
    BuildLightMaps(lights);
    BuildSkyMap();
    BuildFireMap();
  } catch (const std::bad_alloc&) {
    return Status::Fail(ErrorKind::Memory, "the light maps of a gas material don't fit");
  }
  return {};
}

GridSpace LightMapBuilder::LatticeOf(double scale) const {
  const GridSpace& space = marcher_.space_;
  const VecInt3D cells = Max(SnappedCell(Vec3D(space.dims) * scale), VecInt3D(2, 2, 2));
  GridSpace lattice;
  lattice.Build(cells, space.hostSize, static_cast<float>(space.cellSize / scale), space.hostMin);
  return lattice;
}

// A cell with gas, or one beside it: linear reads at the edge of the gas stay smooth.
std::unique_ptr<Grid<std::uint8_t>> LightMapBuilder::FindLitCells(const GridSpace& lattice) const {
  const VecInt3D n = lattice.dims;
  Grid<std::uint8_t> gas(n, kGridScratch);
  auto lit = std::make_unique<Grid<std::uint8_t>>(n, kGridScratch);
  ParallelRange(pool_, 0, n.z, [&](int k0, int k1, int) {
    double density;
    for (int k = k0; k < k1; ++k) {
      for (int j = 0; j < n.y; ++j) {
        for (int i = 0; i < n.x; ++i) gas(i, j, k) = marcher_.SampleDensity(CentreOf(lattice, i, j, k), density);
      }
    }
  });
  ParallelRange(pool_, 0, n.z, [&](int k0, int k1, int) {
    for (int k = k0; k < k1; ++k) {
      for (int j = 0; j < n.y; ++j) {
        for (int i = 0; i < n.x; ++i) {
          (*lit)(i, j, k) = gas(i, j, k) || (i > 0 && gas(i - 1, j, k)) || (i < n.x - 1 && gas(i + 1, j, k)) ||
                            (j > 0 && gas(i, j - 1, k)) || (j < n.y - 1 && gas(i, j + 1, k)) ||
                            (k > 0 && gas(i, j, k - 1)) || (k < n.z - 1 && gas(i, j, k + 1));
        }
      }
    }
  });
  return lit;
}

Vec3D LightMapBuilder::Passing(const Vec3D& x, const Illumination& illumination, MersenneTwister& random,
                               int worker) const {
  const Vec3D extinction = marcher_.ShadowExtinction();
  if (extinction == Vec3D()) return Vec3D(1.0);
  // Only the way inside the gas's box matters.
  double begin = 0, end = illumination.distance;
  MarchRay ray{x, illumination.toLight};
  const GridSpace& space = marcher_.space_;
  if (ClipToBox(x, ray.direction, space.hostMin, space.hostMax, 0, begin, end)) ray.length = end;
  return marcher_.Transmittance(ray, marcher_.settings_.shadowSteps, extinction, &random, worker);
}

// From a light with a width, the mean over some of its points. Eight cells that linear reads bring together take
// points of one sequence, so that what each of them misses the others have.
Vec3D LightMapBuilder::LightAt(const Light& light, const VecInt3D& cell, MersenneTwister& random, int worker) const {
  const int rays = light.HasWidth() && (light.castsShadow || light.kind == LightKind::Area) ? light.shadowRays : 1;
  const Vec3D x = CentreOf(lattice_, cell.x, cell.y, cell.z);
  const int first = rays * ((cell.x & 1) + 2 * (cell.y & 1) + 4 * (cell.z & 1));
  Vec3D sum;
  for (int n = 0; n < rays; ++n) {
    const Illumination illumination =
        rays > 1 ? light.IlluminateFrom(x, SquarePoint(static_cast<std::uint64_t>(first + n), {}))
                 : light.Illuminate(x);
    if (illumination.colour == Vec3D()) continue;
    sum += light.castsShadow ? illumination.colour * Passing(x, illumination, random, worker) : illumination.colour;
  }
  return sum / rays;
}

// Rows have random numbers of their own, so that a map is the same at any number of workers.
void LightMapBuilder::LightRow(LightMap& map, int j, int k, int worker) const {
  MersenneTwister random(kMapSeed + static_cast<std::uint32_t>(k * lattice_.dims.y + j));
  for (int i = 0; i < lattice_.dims.x; ++i) {
    if ((*lit_)(i, j, k)) (*map.grid)(i, j, k) = LightAt(map.light, {i, j, k}, random, worker);
  }
}

void LightMapBuilder::BuildLightMaps(const std::vector<Light>& lights) {
  marcher_.lightMaps_.clear();
  for (const Light& light : lights) {
    LightMap map;
    map.light = light;
    map.grid = std::make_unique<VectorGrid>(lattice_.dims, lattice_.hostSize, lattice_.cellSize, kGridScratch,
                                            lattice_.hostMin);
    map.grid->Fill(Vec3D());
    ParallelRange(pool_, 0, lattice_.dims.z, [&](int k0, int k1, int worker) {
      for (int k = k0; k < k1; ++k) {
        if (thread_ && thread_->TestBreak()) return;
        for (int j = 0; j < lattice_.dims.y; ++j) LightRow(map, j, k, worker);
      }
    });
    if (marcher_.settings_.diffuseMaps && marcher_.settings_.shadowSteps.jitter > 0) DiffuseMap(*map.grid);
    BlurLightMap(*map.grid);
    map.sampler = HostSampler<Vec3D>(*map.grid, map.grid->space, kCellCentre);
    marcher_.lightMaps_.push_back(std::move(map));
  }
}

void LightMapBuilder::DiffuseMap(VectorGrid& map) {
  const VectorGrid before(map);
  const VecInt3D n = lattice_.dims;
  ParallelRange(pool_, 0, n.z, [&](int k0, int k1, int) {
    for (int k = k0; k < k1; ++k) {
      for (int j = 0; j < n.y; ++j) {
        for (int i = 0; i < n.x; ++i) {
          if (!(*lit_)(i, j, k)) continue;
          Vec3D sum;
          int lit = 0;
          const auto add = [&](int x, int y, int z) {
            if (!(*lit_)(x, y, z)) return;
            sum += before(x, y, z);
            ++lit;
          };
          if (i > 0) add(i - 1, j, k);
          if (i < n.x - 1) add(i + 1, j, k);
          if (j > 0) add(i, j - 1, k);
          if (j < n.y - 1) add(i, j + 1, k);
          if (k > 0) add(i, j, k - 1);
          if (k < n.z - 1) add(i, j, k + 1);
          // A step of the heat equation: half of itself, half of its neighbours.
          if (lit > 0) map(i, j, k) = (before(i, j, k) + sum / lit) * 0.5;
        }
      }
    }
  });
}

// The mean over all directions of the sky that gets through gas and past surfaces.
Vec3D LightMapBuilder::SkyAt(const Vec3D& x, MersenneTwister& random, int worker) const {
  const RenderWorld& world = *marcher_.world_;
  const int rays = marcher_.settings_.skyRays;
  constexpr double kFar = 1e6, kTurn = 2.399963229728653;  // the golden angle: points of a spiral cover a ball evenly
  Vec3D sum;
  for (int n = 0; n < rays; ++n) {
    const double y = 1 - 2 * (n + 0.5) / rays, out = std::sqrt(1 - y * y);
    Illumination illumination;
    illumination.toLight = {out * std::cos(kTurn * n), y, out * std::sin(kTurn * n)};
    illumination.distance = kFar;
    Vec3D light = world.SkyColour(illumination.toLight);
    if (marcher_.settings_.surfaceShadows && !world.surfaces.empty()) {
      light = light * world.surfaces.Passing(x, illumination.toLight, kFar);
    }
    if (light != Vec3D()) sum += light * Passing(x, illumination, random, worker);
  }
  return sum * (marcher_.settings_.skyLight * world.settings.skyLight / rays);
}

// Changes slowly from place to place: half the resolution of the other maps.
void LightMapBuilder::BuildSkyMap() {
  marcher_.skyMap_.reset();
  if (!(marcher_.settings_.skyLight > 0) || !marcher_.world_ || !marcher_.copies_.density) return;
  const GridSpace lattice = LatticeOf(0.5 * marcher_.settings_.mapResolution);
  const auto lit = FindLitCells(lattice);
  SkyLightMap map;
  map.grid =
      std::make_unique<VectorGrid>(lattice.dims, lattice.hostSize, lattice.cellSize, kGridScratch, lattice.hostMin);
  map.grid->Fill(Vec3D());
  ParallelRange(pool_, 0, lattice.dims.z, [&](int k0, int k1, int worker) {
    for (int k = k0; k < k1; ++k) {
      if (thread_ && thread_->TestBreak()) return;
      for (int j = 0; j < lattice.dims.y; ++j) {
        MersenneTwister random(kMapSeed + static_cast<std::uint32_t>(k * lattice.dims.y + j));
        for (int i = 0; i < lattice.dims.x; ++i) {
          if ((*lit)(i, j, k)) (*map.grid)(i, j, k) = SkyAt(CentreOf(lattice, i, j, k), random, worker);
        }
      }
    }
  });
  map.sampler = HostSampler<Vec3D>(*map.grid, map.grid->space, kCellCentre);
  marcher_.skyMap_ = std::move(map);
}

std::unique_ptr<ScalarGrid> LightMapBuilder::NewScalar(double fill) const {
  auto grid =
      std::make_unique<ScalarGrid>(lattice_.dims, lattice_.hostSize, lattice_.cellSize, kGridScratch, lattice_.hostMin);
  grid->Fill(fill);
  grid->valueScale = 1e300;
  return grid;
}

void LightMapBuilder::BlurLightMap(VectorGrid& map) {
  const BlurSettings& blur = marcher_.settings_.mapBlur;
  if (blur.iterations <= 0 || blur.sigma <= 0) return;
  const auto component = NewScalar(0);
  for (int c = 0; c < 3; ++c) {
    for (std::int64_t n = 0; n < map.count; ++n) (*component)[n] = map[n][c];
    static_cast<void>(Blur(pool_, thread_, *component, *component, blur.sigma, blur.iterations, 0, 1e300));
    for (std::int64_t n = 0; n < map.count; ++n) map[n][c] = (*component)[n];
  }
}

void LightMapBuilder::BuildFireMap() {
  RayMarcher& m = marcher_;
  m.fireMap_.reset();
  if (!m.copies_.temperature || !m.copies_.density || !(m.settings_.fireLightStrength > 0)) return;
  if (status_) status_->Set("Fire Levelset");
  const ScalarGrid& temperature = *m.copies_.temperature;
  const auto phi = ScalarGrid::CreateLike(temperature, kGridLevelset);
  phi->Fill(kFarFire, &pool_);
  if (!DensityToLevelset(pool_, temperature, *phi, m.settings_.flameThreshold - 273.5, kFarFire, true)) return;
  const HostSampler<double> distance(*phi, phi->space, kCellCentre);
  FireMap fire;
  fire.transmittance = NewScalar(1);
  fire.value = NewScalar(0);
  if (m.settings_.fireLightPhase) {
    fire.toFire = std::make_unique<VectorGrid>(lattice_.dims, lattice_.hostSize, lattice_.cellSize, kGridScratch,
                                               lattice_.hostMin);
    fire.toFire->Fill(Vec3D());
  }
  const Vec3D extinction = m.ShadowExtinction();
  const bool shaded = extinction.x > 0 && extinction.y > 0 && extinction.z > 0;
  const double hostPerSim = temperature.space.hostPerSim.x, h = m.cell_;
  ParallelRange(pool_, 0, lattice_.dims.z, [&](int k0, int k1, int worker) {
    for (int k = k0; k < k1; ++k) {
      if (thread_ && thread_->TestBreak()) return;
      for (int j = 0; j < lattice_.dims.y; ++j) {
        MersenneTwister random(kMapSeed + static_cast<std::uint32_t>(k * lattice_.dims.y + j));
        for (int i = 0; i < lattice_.dims.x; ++i) {
          const Vec3D x = CentreOf(lattice_, i, j, k);
          const double d = distance(x) * hostPerSim;
          const Vec3D gradient(distance(x + Vec3D(h, 0, 0)) - distance(x - Vec3D(h, 0, 0)),
                               distance(x + Vec3D(0, h, 0)) - distance(x - Vec3D(0, h, 0)),
                               distance(x + Vec3D(0, 0, h)) - distance(x - Vec3D(0, 0, h)));
          const Vec3D n = Normalized(gradient);
          double through = 1, weight = 1;
          const Vec3D atFire = d > 0 ? x - n * d : x;
          if (d > 0 && shaded) {
            const MarchRay ray{x, -n, d};
            const Vec3D t = m.Transmittance(ray, m.settings_.shadowSteps, extinction, &random, worker);
            through = (t.x + t.y + t.z) / 3;
            weight = 1 - std::min(d / m.settings_.fireLightReach, 1.0);
          }
          (*fire.transmittance)(i, j, k) = through * weight;
          (*fire.value)(i, j, k) = d < kFarFire ? m.temperature_(atFire) : 0;
          if (fire.toFire) (*fire.toFire)(i, j, k) = -n;
        }
      }
    }
  });
  if (status_) status_->Set("Blur fire map");
  // A Gaussian whose radius of three sigma is the reach.
  const double sigma = m.settings_.fireLightReach * lattice_.voxelsPerHost.x / 3;
  for (ScalarGrid* grid : {fire.transmittance.get(), fire.value.get()}) {
    static_cast<void>(Blur(pool_, thread_, *grid, *grid, std::min(sigma, 8.0), 1, 0, 1e300));
  }
  if (const Gradient& remap = m.gradients_.fireMap; !remap.knots().empty()) {
    const double hottest = temperature.valueScale;
    for (std::int64_t n = 0; n < fire.value->count; ++n) {
      (*fire.transmittance)[n] = remap.ColourAt((*fire.transmittance)[n]).x;
      if (hottest > 0) (*fire.value)[n] = remap.ColourAt((*fire.value)[n] / hottest).x * hottest;
    }
  }
  m.fireMap_ = std::move(fire);
  FireMap& map = *m.fireMap_;
  map.transmittanceSampler = HostSampler<double>(*map.transmittance, map.transmittance->space, kCellCentre);
  map.valueSampler = HostSampler<double>(*map.value, map.value->space, kCellCentre);
  if (map.toFire) map.toFireSampler = HostSampler<Vec3D>(*map.toFire, map.toFire->space, kCellCentre);
}

}  // namespace orlix
