#include "host/render/VolumeShader.h"

#include <algorithm>

namespace orlix {

bool ClipToBox(const Vec3D& origin, const Vec3D& direction, const Vec3D& low, const Vec3D& high, double tolerance,
               double& begin, double& end) {
  for (int axis = 0; axis < 3; ++axis) {
    const double from = low[axis] - tolerance - origin[axis], to = high[axis] + tolerance - origin[axis];
    if (direction[axis] == 0) {
      if (from > 0 || to < 0) return false;
      continue;
    }
    const double a = from / direction[axis], b = to / direction[axis];
    begin = std::max(begin, std::min(a, b));
    end = std::min(end, std::max(a, b));
  }
  return begin <= end;
}

}  // namespace orlix
