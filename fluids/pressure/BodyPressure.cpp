#include "fluids/pressure/BodyPressure.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace orlix {

namespace {

bool IsLiquid(const GridView<const double>& phi, int i, int j, int k) { return static_cast<float>(phi(i, j, k)) < 0; }

struct InnerBox {
  VecInt3D low, high;
};

// Cells first to n - end whose centres may lie in a body's box.
InnerBox CellsOf(const GridSpace& space, const MovingBody& body, const VecInt3D& n, int first, int end) {
  const Vec3D from = space.VoxelOfSim(body.boxMin), to = space.VoxelOfSim(body.boxMax);
  InnerBox box;
  for (int axis = 0; axis < 3; ++axis) {
    const double last = std::max(n[axis] - end, first);
    box.low[axis] = static_cast<std::int32_t>(std::clamp(std::floor(from[axis]), double(first), last));
    box.high[axis] = static_cast<std::int32_t>(std::clamp(std::ceil(to[axis]), double(first), last));
  }
  return box;
}

double InverseTheta(double below, double above) {
  constexpr float kLeast = 0.01f;
  const auto a = static_cast<float>(below), b = static_cast<float>(above);
  const float liquid = a < 0 ? a : b, air = a < 0 ? b : a;
  if (!(liquid < 0)) return 0;
  return air < 0 ? 1 : 1 / std::max(liquid / (liquid - air), kLeast);
}

}  // namespace

void AddBodyWeights(const FreeSurface& surface, const GridSpace& space, const MovingBody& body, double cellSize,
                    double scale, GridView<double> (&weights)[3], WorkerPool& pool) {
  if (!body.levelSet.HasData()) return;
  const VecInt3D n = surface.phi.dims;
  const InnerBox box = CellsOf(space, body, n, 2, 2);
  const auto asks = [&](const VecInt3D& c) {
    if (std::min({c.x, c.y, c.z}) < 2 || c.x >= n.x - 2 || c.y >= n.y - 2 || c.z >= n.z - 2) return false;
    if (!IsLiquid(surface.phi, c.x, c.y, c.z)) return false;
    const Vec3D p = space.SimOfVoxel(Vec3D(c) + Vec3D(0.5));
    if (!(body.levelSet.Sample(body.levelSet.IndexOfWorld(p)) < cellSize)) return false;
    for (int axis = 0; axis < 3; ++axis) {
      VecInt3D high = c;
      ++high[axis];
      if (surface.share[axis](c.x, c.y, c.z) != surface.share[axis](high.x, high.y, high.z)) return true;
    }
    return false;
  };
  // Faces of layer k, low faces in z included: each is written by one worker.
  ParallelRange(pool, box.low.z, box.high.z + 1, [&](int from, int to, int) {
    for (int k = from; k < to; ++k) {
      for (int j = box.low.y; j <= box.high.y; ++j) {
        for (int i = box.low.x; i <= box.high.x; ++i) {
          for (int axis = 0; axis < 3; ++axis) {
            const double solid = 1 - double(surface.share[axis](i, j, k));
            if (!(solid > 0)) continue;
            VecInt3D below(i, j, k);
            --below[axis];
            if (!asks({i, j, k}) && !asks(below)) continue;
            weights[axis](i, j, k) +=
                scale * (solid / cellSize) * InverseTheta(surface.phi(below.x, below.y, below.z), surface.phi(i, j, k));
          }
        }
      }
    }
  });
}

ForceAndTorque SumBodyPressure(const DivergenceInput& input, const GridSpace& space, const MovingBody& body,
                               const double* pressure, const GridView<const double>& liquid, WorkerPool& pool,
                               const std::function<bool()>& stop) {
  ForceAndTorque total;
  if (!body.levelSet.HasData()) return total;
  const VecInt3D n = input.Cells();
  const InnerBox box = liquid.data ? CellsOf(space, body, n, 2, 2) : CellsOf(space, body, n, 1, 1);
  const std::int64_t row = n.x, slab = row * n.y;
  std::vector<ForceAndTorque> layers(std::size_t(std::max(box.high.z, 0)));
  ParallelRange(pool, box.low.z, box.high.z, [&](int from, int to, int) {
    for (int k = from; k < to; ++k) {
      if (stop && stop()) return;
      ForceAndTorque& sum = layers[std::size_t(k)];
      for (int j = box.low.y; j < box.high.y; ++j) {
        for (int i = box.low.x; i < box.high.x; ++i) {
          const double solid[3] = {1 - double(input.share[0](i, j, k)), 1 - double(input.share[1](i, j, k)),
                                   1 - double(input.share[2](i, j, k))};
          if (!(solid[0] > 0 || solid[1] > 0 || solid[2] > 0)) continue;
          const Vec3D p = space.SimOfVoxel({i + 0.5, j + 0.5, k + 0.5});
          if (body.levelSet.Sample(body.levelSet.IndexOfWorld(p)) > input.cellSize) continue;
          const std::int64_t c = slab * k + row * j + i, steps[3] = {1, row, slab};
          Vec3D f;
          for (int axis = 0; axis < 3; ++axis) {
            VecInt3D below(i, j, k);
            --below[axis];
            const bool dry = liquid.data && !IsLiquid(liquid, i, j, k) && !IsLiquid(liquid, below.x, below.y, below.z);
            if (!dry) f[axis] = (pressure[c] - pressure[c - steps[axis]]) * solid[axis];
          }
          sum.force += f;
          sum.torque += Cross(f, p - body.centre);
        }
      }
    }
  });
  for (const ForceAndTorque& layer : layers) total.force += layer.force, total.torque += layer.torque;
  return total;
}

}  // namespace orlix
