#include "fluids/volume_renderer/LightMapBuilder.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "fluids/level_sets/FastSweeper.h"
#include "fluids/volume_renderer/Diffusor.h"

namespace orlix {

namespace {

constexpr double kFarFire = 1e6;
constexpr std::uint32_t kMapSeed = 9229837;
constexpr Vec3D kCellCentre{0.5, 0.5, 0.5};

Vec3D CentreOf(const GridSpace& space, int i, int j, int k) { return space.HostOfVoxel({i + 0.5, j + 0.5, k + 0.5}); }

}  // namespace

Status LightMapBuilder::Build(const std::vector<Light>& lights) {
  try {
    MakeLattice();
    FindLitCells();
    BuildLightMaps(lights);
    BuildFireMap();
  } catch (const std::bad_alloc&) {
    return Status::Fail(ErrorKind::Memory, "the light maps of a gas material don't fit");
  }
  return {};
}

void LightMapBuilder::MakeLattice() {
  const GridSpace& space = marcher_.space_;
  const double scale = marcher_.settings_.mapResolution;
  const VecInt3D cells = Max(SnappedCell(Vec3D(space.dims) * scale), VecInt3D(2, 2, 2));
  lattice_.Build(cells, space.hostSize, static_cast<float>(space.cellSize / scale), space.hostMin);
}

// A cell with gas, or one beside it: linear reads at the edge of the gas stay smooth.
void LightMapBuilder::FindLitCells() {
  const VecInt3D n = lattice_.dims;
  Grid<std::uint8_t> gas(n, kGridScratch);
  lit_ = std::make_unique<Grid<std::uint8_t>>(n, kGridScratch);
  ParallelRange(pool_, 0, n.z, [&](int k0, int k1, int) {
    double density;
    for (int k = k0; k < k1; ++k) {
      for (int j = 0; j < n.y; ++j) {
        for (int i = 0; i < n.x; ++i) gas(i, j, k) = marcher_.SampleDensity(CentreOf(lattice_, i, j, k), density);
      }
    }
  });
  ParallelRange(pool_, 0, n.z, [&](int k0, int k1, int) {
    for (int k = k0; k < k1; ++k) {
      for (int j = 0; j < n.y; ++j) {
        for (int i = 0; i < n.x; ++i) {
          (*lit_)(i, j, k) = gas(i, j, k) || (i > 0 && gas(i - 1, j, k)) || (i < n.x - 1 && gas(i + 1, j, k)) ||
                             (j > 0 && gas(i, j - 1, k)) || (j < n.y - 1 && gas(i, j + 1, k)) ||
                             (k > 0 && gas(i, j, k - 1)) || (k < n.z - 1 && gas(i, j, k + 1));
        }
      }
    }
  });
}

// Rows have random numbers of their own, so that a map is the same at any number of workers.
void LightMapBuilder::LightRow(LightMap& map, int j, int k, int worker) const {
  MersenneTwister random(kMapSeed + static_cast<std::uint32_t>(k * lattice_.dims.y + j));
  const Vec3D extinction = marcher_.ShadowExtinction();
  for (int i = 0; i < lattice_.dims.x; ++i) {
    if (!(*lit_)(i, j, k)) continue;
    const Vec3D x = CentreOf(lattice_, i, j, k);
    const Illumination illumination = map.light.Illuminate(x);
    Vec3D colour = illumination.colour;
    if (colour == Vec3D()) continue;
    if (map.light.castsShadow && extinction != Vec3D()) {
      // Only the way inside the gas's box matters.
      double begin = 0, end = illumination.distance;
      MarchRay ray{x, illumination.toLight, 0};
      const GridSpace& space = marcher_.space_;
      if (ClipToBox(x, ray.direction, space.hostMin, space.hostMax, 0, begin, end)) ray.length = end;
      colour = colour * marcher_.Transmittance(ray, marcher_.settings_.shadowSteps, extinction, &random, worker);
    }
    (*map.grid)(i, j, k) = colour;
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
    BlurLightMap(*map.grid);
    map.sampler = HostSampler<Vec3D>(*map.grid, map.grid->space, kCellCentre);
    marcher_.lightMaps_.push_back(std::move(map));
  }
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
  m.fireMap_ = std::move(fire);
  FireMap& map = *m.fireMap_;
  map.transmittanceSampler = HostSampler<double>(*map.transmittance, map.transmittance->space, kCellCentre);
  map.valueSampler = HostSampler<double>(*map.value, map.value->space, kCellCentre);
  if (map.toFire) map.toFireSampler = HostSampler<Vec3D>(*map.toFire, map.toFire->space, kCellCentre);
}

}  // namespace orlix
