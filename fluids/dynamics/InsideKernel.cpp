#include "fluids/dynamics/InsideKernel.h"

#include <algorithm>

#include "fluids/grids/Interpolation.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

// Distances above it stay above 0 in single precision, whatever their weights.
constexpr double kSurelyOpen = 1e-30;

// The range of the nodes around a sample. Steps are 0 in the axes in which the sample stands on a node.
struct NodeRange {
  double least, most;
  NodeRange(const double* p, std::int64_t dx, std::int64_t dy, std::int64_t dz) {
    const double a = std::min({p[0], p[dx], p[dy], p[dx + dy]}), b = std::max({p[0], p[dx], p[dy], p[dx + dy]});
    p += dz;
    least = std::min({a, p[0], p[dx], p[dy], p[dx + dy]});
    most = std::max({b, p[0], p[dx], p[dy], p[dx + dy]});
  }
};

}  // namespace

void FindInside(const GridView<const double>& nodes, const Vec3D& offset, const VecInt3D& dims, CellMask& mask,
                WorkerPool& pool) {
  mask.Resize(dims);
  const std::int64_t dx = offset.x > 0, dy = offset.y > 0 ? nodes.dims.x : 0, dz = offset.z > 0 ? nodes.slab : 0;
  ParallelRange(pool, 0, dims.z, [&](int k0, int k1, int) {
    for (int k = k0; k < k1; ++k) {
      for (int j = 0; j < dims.y; ++j) {
        const double* row = &nodes(0, j, k);
        std::uint64_t* bits = mask.Row(j, k);
        for (int i = 0; i < dims.x; ++i) {
          const NodeRange range(row + i, dx, dy, dz);
          bool inside = range.most <= 0;
          if (!inside && !(range.least > kSurelyOpen)) {
            const double d = SampleTrilinear(nodes, i + offset.x, j + offset.y, k + offset.z);
            inside = !(static_cast<float>(d) > 0.0f);
          }
          bits[i >> 6] |= std::uint64_t(inside) << (i & 63);
        }
      }
    }
  });
}

}  // namespace orlix
