#include "fluids/volume_renderer/GasGlow.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace orlix {

namespace {

constexpr int kCellsASide = 2;  // of the gas's lattice in one of these

// The share of a place's light that gets out of the gas, over the axes and the diagonals.
Vec3D EscapeFrom(const RayMarcher& marcher, const Vec3D& x, int worker) {
  if (!marcher.settings().castsShadows) return Vec3D(1.0);
  const GridSpace& space = marcher.Space();
  Vec3D sum;
  int directions = 0;
  for (int n = 0; n < 27; ++n) {
    const Vec3D towards(n % 3 - 1, n / 3 % 3 - 1, n / 9 - 1);
    const double squared = Dot(towards, towards);
    if (squared == 0 || squared == 2) continue;
    MarchRay ray{x, Normalized(towards)};
    double begin = 0, end = 1e9;
    if (ClipToBox(x, ray.direction, space.hostMin, space.hostMax, 0, begin, end)) ray.length = end;
    sum += marcher.Transmittance(ray, marcher.settings().cast, marcher.ShadowExtinction(), nullptr, worker);
    ++directions;
  }
  return sum / directions;
}

double BrightnessOf(const Vec3D& c) { return 0.2126 * c.x + 0.7152 * c.y + 0.0722 * c.z; }

}  // namespace

void GasGlow::Build(const RayMarcher& marcher, WorkerPool& pool) {
  cells_.clear();
  intensity_ = {};
  const GridSpace& space = marcher.Space();
  const VecInt3D n = (space.dims + VecInt3D(kCellsASide - 1)) / kCellsASide;
  const Vec3D h = space.hostPerVoxel;
  side_ = kCellsASide * h.x;
  std::vector<std::vector<Cell>> layers(static_cast<std::size_t>(n.z));
  ParallelRange(pool, 0, n.z, [&](int k0, int k1, int worker) {
    for (int k = k0; k < k1; ++k) {
      for (int j = 0; j < n.y; ++j) {
        for (int i = 0; i < n.x; ++i) {
          Cell cell;
          const VecInt3D first = VecInt3D(i, j, k) * kCellsASide;
          cell.low = space.HostOfVoxel(Vec3D(first));
          for (int c = 0; c < 8; ++c) {
            const VecInt3D at = first + VecInt3D(c & 1, c >> 1 & 1, c >> 2);
            if (at.x >= space.dims.x || at.y >= space.dims.y || at.z >= space.dims.z) continue;
            cell.intensity += marcher.GlowAt(space.HostOfVoxel(Vec3D(at) + Vec3D(0.5)));
          }
          if (cell.intensity == Vec3D()) continue;
          const Vec3D middle = cell.low + h * (0.5 * kCellsASide);
          cell.intensity = cell.intensity * EscapeFrom(marcher, middle, worker) * (h.x * h.y * h.z);
          cell.upTo = BrightnessOf(cell.intensity);
          if (cell.upTo > 0 && std::isfinite(cell.upTo)) layers[static_cast<std::size_t>(k)].push_back(cell);
        }
      }
    }
  });
  double sum = 0;
  for (const std::vector<Cell>& layer : layers) {
    for (Cell cell : layer) {
      cell.upTo = sum += cell.upTo;
      intensity_ += cell.intensity;
      cells_.push_back(cell);
    }
  }
}

GlowPoint GasGlow::PointAt(const Vec3D& draws) const {
  const double total = cells_.back().upTo, wanted = draws.x * total;
  auto cell = std::upper_bound(cells_.begin(), cells_.end(), wanted,
                               [](double value, const Cell& each) { return value < each.upTo; });
  if (cell == cells_.end()) --cell;
  const double before = cell == cells_.begin() ? 0 : std::prev(cell)->upTo, own = cell->upTo - before;
  if (!(own > 0)) return {};
  // What is left of the first number says where in the cell.
  const double rest = std::clamp((wanted - before) / own, 0.0, 1.0);
  return {cell->low + Vec3D(rest, draws.y, draws.z) * side_, cell->intensity * (total / own / std::numbers::pi), side_};
}

}  // namespace orlix
