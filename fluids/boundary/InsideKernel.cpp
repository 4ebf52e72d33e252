#include "fluids/boundary/InsideKernel.h"

#include <algorithm>

#include "fluids/boundary/CornerClasses.h"
#include "fluids/grids/Interpolation.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

// Distances above it stay above 0 in single precision, whatever their weights.
constexpr double kSurelyOpen = 1e-30;

}  // namespace

void FindInside(const GridView<const double>& nodes, const Vec3D& offset, const VecInt3D& dims, CellMask& mask,
                WorkerPool& pool) {
  mask.Resize(dims);
  const CornerSteps steps{offset.x > 0, offset.y > 0 ? nodes.dims.x : 0, offset.z > 0 ? nodes.slab : 0};
  ParallelRange(pool, 0, dims.z, [&](int k0, int k1, int) {
    CornerClasses classes(dims.x);
    RowFlags flags(dims.x);
    for (int k = k0; k < k1; ++k) {
      for (int j = 0; j < dims.y; ++j) {
        classes.Find(&nodes(0, j, k), steps, dims.x, kSurelyOpen, 0.0);
        std::copy(classes.data(), classes.data() + dims.x, flags.data());
        classes.ForEachMixed([&](int i) {
          const double d = SampleTrilinear(nodes, i + offset.x, j + offset.y, k + offset.z);
          flags.data()[i] = !(static_cast<float>(d) > 0.0f);
        });
        flags.Pack(mask.Row(j, k));
      }
    }
  });
}

}  // namespace orlix
