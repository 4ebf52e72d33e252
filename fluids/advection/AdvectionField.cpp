#include "fluids/advection/AdvectionField.h"

namespace orlix {

bool AdvectionField::Resolve(Vec3D& index) const {
  if (!solid.HasData()) return true;
  const VecInt3D n = solid.nodes().dims;
  bool moved = false;
  for (int axis = 0; axis < 3; ++axis) {
    double& x = index[axis];
    if (!(x >= 1)) {  // NaN, too
      x = kInset, moved = true;
    } else if (x > n[axis] - 2) {
      x = n[axis] - 1 - kInset, moved = true;
    }
  }
  const double d = solid.DistanceIndex(index);
  if (d < 0) {
    index -= Normalized(solid.GradientIndex(index)) * ((d + kMargin) / static_cast<double>(cellSize));
    moved = true;
  }
  return moved;
}

}  // namespace orlix
