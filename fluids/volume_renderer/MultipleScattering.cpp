#include "fluids/volume_renderer/MultipleScattering.h"

#include <algorithm>
#include <cmath>

#include "fluids/volume_renderer/Diffusor.h"

namespace orlix {

namespace {

constexpr int kSmallestSide = 4;  // cells of a level that no further one follows
constexpr int kBlurRounds = 3;
constexpr double kNoLimit = 1e308;
constexpr double kLeastDensity = 0.01, kLeastStep = 0.001, kLeastSpread = 1e-4;
constexpr double kDarkest = 40;  // exponents that make nothing visible
constexpr Vec3D kMapCellCentre{0.5, 0.5, 0.5};

std::unique_ptr<ScalarGrid> HalvedLike(const ScalarGrid& fine) {
  const VecInt3D dims = (fine.dims + VecInt3D(1, 1, 1)) / 2;
  return std::make_unique<ScalarGrid>(dims, Vec3D(dims) * fine.space.hostPerVoxel * 2.0, 2 * fine.space.cellSize,
                                      kGridScratch, fine.space.hostMin);
}

// The mean of the up to eight cells that a coarse cell covers.
void HalveInto(const ScalarGrid& fine, ScalarGrid& coarse, WorkerPool& pool) {
  ParallelRange(pool, 0, coarse.dims.z, [&](int k0, int k1, int) {
    for (int k = k0; k < k1; ++k) {
      for (int j = 0; j < coarse.dims.y; ++j) {
        for (int i = 0; i < coarse.dims.x; ++i) {
          double sum = 0;
          int cells = 0;
          for (int c = 0; c < 8; ++c) {
            const VecInt3D at(2 * i + (c & 1), 2 * j + (c >> 1 & 1), 2 * k + (c >> 2));
            if (at.x >= fine.dims.x || at.y >= fine.dims.y || at.z >= fine.dims.z) continue;
            sum += fine(at.x, at.y, at.z), ++cells;
          }
          coarse(i, j, k) = sum / cells;
        }
      }
    }
  });
}

double Luminance(const Vec3D& c) { return 0.299 * c.x + 0.587 * c.y + 0.114 * c.z; }

}  // namespace

bool LightPyramid::Build(std::unique_ptr<ScalarGrid> light, double factor, WorkerPool& pool, const BaseThread* thread) {
  levels_.clear();
  const double cell = light->space.hostPerVoxel.x;
  double sigma = factor;
  std::unique_ptr<ScalarGrid> source = std::move(light);
  while (levels_.size() < kMostLevels) {
    const bool first = levels_.empty();
    const ScalarGrid& below = first ? *source : *levels_.back().grid;
    auto blurred = ScalarGrid::CreateLike(below, kGridScratch);
    // With a width of 0 the blur does nothing.
    std::copy(below.data, below.data + below.count, blurred->data);
    if (!Blur(pool, thread, below, *blurred, sigma, kBlurRounds, 0, kNoLimit)) return false;
    Level level;
    level.width = cell * sigma;
    if (first) {
      level.grid = std::move(blurred);
    } else {
      level.grid = HalvedLike(below);
      HalveInto(*blurred, *level.grid, pool);
    }
    level.sampler = HostSampler<double>(*level.grid, level.grid->space, kMapCellCentre);
    levels_.push_back(std::move(level));
    sigma *= 2;
    const VecInt3D n = levels_.back().grid->dims;
    if (std::min({n.x, n.y, n.z}) <= kSmallestSide) break;
  }
  return true;
}

const LatticeCell& LightPyramid::Place::In(const LightPyramid& pyramid, std::size_t level) {
  if ((known_ >> level & 1u) == 0) {
    cells_[level] = pyramid.levels_[level].sampler.CellAt(x_);
    known_ |= 1u << level;
  }
  return cells_[level];
}

// The index grows with the width while the widths of the levels double: wide light is read from the coarse ones early.
double LightPyramid::Sample(Place& place, double width) const {
  if (levels_.empty()) return 0;
  const double base = levels_.front().width, last = static_cast<double>(levels_.size() - 1);
  const double at = base > 0 && width >= base ? std::floor(std::min(width / base, last)) : 0;
  const auto i = static_cast<std::size_t>(at);
  const auto read = [&](std::size_t level) { return levels_[level].sampler.In(place.In(*this, level)); };
  if (i + 1 >= levels_.size()) return read(levels_.size() - 1);
  const Level &narrow = levels_[i], &wide = levels_[i + 1];
  const double value = read(i);
  if (wide.width == narrow.width) return value;
  return value + (read(i + 1) - value) * ((width - narrow.width) / (wide.width - narrow.width));
}

MultipleScattering::MultipleScattering(const RayMarcher& marcher)
    : marcher_(marcher), settings_(marcher.settings_.scatter) {
  spread_ = std::max(settings_.ownSpread ? settings_.spread : settings_.phaseG, kLeastSpread);
  step_ = std::max(settings_.ownStep ? settings_.step * marcher.cell_ : marcher.settings_.steps.fine, kLeastStep);
  phase_ = PhaseFunction::Make(marcher.settings_.phase, static_cast<float>(settings_.phaseG));
}

double MultipleScattering::FindMeanDensity() const {
  const ScalarGrid& grid = *marcher_.copies_.density;
  double sum = 0;
  for (std::int64_t n = 0; n < grid.count; ++n) sum += grid[n];
  return sum / grid.count;
}

void MultipleScattering::MeasureRay(const MarchRay& ray, int mode, Measure& out, MersenneTwister* random,
                                    int worker) const {
  const double density = settings_.densityScale * marcher_.settings_.densityMultiplier;
  if (settings_.homogeneous) {
    const double depth = meanDensity_ * density * ray.length;
    out.scattering = depth * settings_.scattering;
    if (mode == 0) out.length = ray.length * settings_.lengthScale, out.absorption = depth * settings_.absorption;
    return;
  }
  const ConstraintChain& scatters = marcher_.filters_[kFilterScatterAmount];
  const ConstraintChain& densities = marcher_.filters_[kFilterScatterDensity];
  double t = 0, scattered = 0, absorbed = 0;
  const double jitter = marcher_.settings_.steps.jitter;
  if (jitter > 0 && (ray.jitter >= 0 || random)) {
    t = std::min(ray.length, step_ * jitter * (1 - (ray.jitter >= 0 ? ray.jitter : random->Uniform())));
  }
  // The short ways between two steps aren't worth a look.
  EmptySpaceWalk walk = ray.length > 4 * step_ ? EmptySpaceWalk(marcher_.emptySpace_, ray) : EmptySpaceWalk();
  for (double ds = t;;) {
    const Vec3D x = ray.origin + ray.direction * t;
    double d;
    if (!walk.IsEmptyAt(t) && marcher_.Inside(x) && marcher_.SampleShifted(x, ray.time, d)) {
      double s = settings_.scattering, kd = settings_.densityScale;
      if (!scatters.empty()) s = std::clamp(s * marcher_.Filtered(kFilterScatterAmount, x, worker), 0.001, 2.0);
      if (!densities.empty()) kd *= std::clamp(marcher_.Filtered(kFilterScatterDensity, x, worker), 0.0001, 1.0);
      const double depth = d * marcher_.settings_.densityMultiplier * ds * kd;
      scattered += depth * s;
      absorbed += depth * settings_.absorption;
      if (mode == 0) out.length = settings_.lengthScale * t;
    }
    if (!(t < ray.length)) break;
    const double next = std::min(t + step_, ray.length);
    ds = next - t;
    t = next;
  }
  out.scattering = scattered;
  if (mode == 0) out.absorption = absorbed;
}

// Rows have random numbers of their own, so that a map is the same at any number of workers.
void MultipleScattering::FillRow(ScatteringMap& map, ScalarGrid& light, int j, int k, int worker) const {
  constexpr std::uint32_t kScatterSeed = 9229837;
  const GridSpace& lattice = light.space;
  const GridSpace& box = marcher_.space_;
  MersenneTwister random(kScatterSeed + static_cast<std::uint32_t>(k * lattice.dims.y + j));
  for (int i = 0; i < lattice.dims.x; ++i) {
    const std::int64_t n = light.Index(i, j, k);
    light[n] = 0, (*map.depthGrid)[n] = 0, (*map.lengthGrid)[n] = 0;
    const Vec3D x = lattice.HostOfVoxel({i + 0.5, j + 0.5, k + 0.5});
    double density;
    if (!marcher_.SampleDensity(x, density)) continue;
    const Illumination illumination = map.light.Illuminate(x);
    MarchRay ray{x, illumination.toLight};
    double begin = 0, end = illumination.distance;
    if (ClipToBox(x, ray.direction, box.hostMin, box.hostMax, 0, begin, end)) ray.length = end;
    Measure way;
    MeasureRay(ray, 0, way, &random, worker);
    (*map.depthGrid)[n] = static_cast<float>(way.scattering);
    (*map.lengthGrid)[n] = static_cast<float>(way.length);
    light[n] = std::exp(-(settings_.scattering + settings_.absorption) * (way.absorption + way.scattering)) *
               Luminance(illumination.colour);
  }
}

void MultipleScattering::Build(const std::vector<Light>& lights, WorkerPool& pool, const BaseThread* thread) {
  maps_.clear();
  if (!(settings_.scattering > 0) || !phase_) return;
  meanDensity_ = settings_.homogeneous ? FindMeanDensity() : 0;
  const GridSpace& space = marcher_.space_;
  const double scale = settings_.mapScale;
  const VecInt3D cells = Max(SnappedCell(Vec3D(space.dims) * scale), VecInt3D(2, 2, 2));
  const auto cellSize = static_cast<float>(space.cellSize / scale);
  for (const Light& light : lights) {
    const double strongest = std::max({light.colour.x, light.colour.y, light.colour.z});
    if (!(strongest > 0)) continue;
    ScatteringMap map;
    map.light = light, map.hue = light.colour / strongest;
    map.depthGrid = std::make_unique<FloatGrid>(cells, space.hostSize, cellSize, kGridScratch, space.hostMin);
    map.lengthGrid = std::make_unique<FloatGrid>(cells, space.hostSize, cellSize, kGridScratch, space.hostMin);
    auto lit = std::make_unique<ScalarGrid>(cells, space.hostSize, cellSize, kGridScratch, space.hostMin);
    lit->Fill(0.0), map.depthGrid->Fill(0.0f), map.lengthGrid->Fill(0.0f);
    ParallelRange(pool, 0, cells.z, [&](int k0, int k1, int worker) {
      for (int k = k0; k < k1; ++k) {
        if (thread && thread->TestBreak()) return;
        for (int j = 0; j < cells.y; ++j) FillRow(map, *lit, j, k, worker);
      }
    });
    if (!map.pyramid.Build(std::move(lit), settings_.baseWidth, pool, thread)) return;
    map.depth = HostSampler<float>(*map.depthGrid, map.depthGrid->space, kMapCellCentre);
    map.length = HostSampler<float>(*map.lengthGrid, map.lengthGrid->space, kMapCellCentre);
    maps_.push_back(std::move(map));
  }
}

Vec3D MultipleScattering::LightAt(const MarchRay& ray, const Vec3D& x, double t, double tau, double g, double p) const {
  const double d2 = 2 * spread_, c0 = 1 / (4 * spread_), s = settings_.scattering;
  Vec3D sum;
  // All maps have one lattice.
  LightPyramid::Place place(x);
  const LatticeCell cell = maps_.front().depth.CellAt(x);
  for (const ScatteringMap& map : maps_) {
    const double depth = map.depth.In(cell) + tau, length = map.length.In(cell) + settings_.lengthScale * t;
    const double far = length / s * depth;
    if (!(far < kDarkest)) continue;
    const Vec3D u = Normalized(x - map.light.PositionFrom(x));
    const double cosine = std::clamp(Dot(ray.direction, u), -1.0, 1.0), angle = std::acos(cosine);
    const double turned = angle * angle * c0 / depth;
    if (!(turned < kDarkest)) continue;
    const double width =
        settings_.widthScale *
        std::sqrt(length * length * depth * d2 / ((settings_.absorption / s * d2 * depth * depth / 12 + 1) * 24));
    const double light = std::max(0.0, map.pyramid.Sample(place, width));
    const double phase = phase_->Evaluate(cosine, g, marcher_.settings_.phaseSecond) * p;
    sum += map.hue * (light * std::exp(-turned - far) * phase);
  }
  return sum;
}

// The steps, the density and the optical depth along the ray are the same for all lights: one walk serves them all.
Vec3D MultipleScattering::Along(const MarchRay& ray, MersenneTwister* random, int worker) const {
  Vec3D light;
  if (maps_.empty() || !(ray.length > 0)) return light;
  bool coarse = true;
  double t = 0, before = 0, tau = 0;
  // Steps that all pixels begin at the same distance would draw contour lines where the gas is thick.
  if (ray.jitter >= 0) t = std::min(ray.length, step_ * marcher_.settings_.steps.jitter * (1 - ray.jitter));
  EmptySpaceWalk walk(marcher_.emptySpace_, ray);
  for (;;) {
    const Vec3D x = ray.origin + ray.direction * t;
    RayMarcher::Place place;
    if (walk.IsEmptyAt(t)) {
      if (!coarse) coarse = marcher_.Inside(x);
    } else if (marcher_.Inside(x)) {
      place.x = place.smoke = x;
      place.hasDensity = marcher_.SampleDensity(x, place.density) &&
                         place.density >= kLeastDensity * marcher_.settings_.unitDensity && t != before;
      if (!place.hasDensity) {
        coarse = true;
      } else if (coarse) {
        // The first sample in gas: back, so that the gas before it counts.
        coarse = false;
        t = std::min(std::max(0.0, t - step_) + step_, ray.length);
        continue;
      } else {
        Measure way;
        MeasureRay({ray.origin + ray.direction * before, ray.direction, t - before, ray.jitter, ray.time}, 1, way,
                   random, worker);
        tau += way.scattering;
        if (tau > settings_.leastDepth) {
          const double g = std::clamp(settings_.phaseG * marcher_.Filtered(kFilterScatterPhase, x, worker), -1.0, 1.0);
          const double p = settings_.phaseScale * marcher_.Filtered(kFilterScatterPhaseScale, x, worker);
          light += marcher_.SmokeColour(place) * LightAt(ray, x, t, tau, g, p);
        }
      }
    }
    if (!(t < ray.length)) break;
    before = t;
    t = std::min(t + step_, ray.length);
  }
  return light;
}

}  // namespace orlix
