#include "fluids/boundary/FractionKernels.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "fluids/boundary/CornerClasses.h"
#include "fluids/boundary/FractionShapes.h"
#include "fluids/boundary/SolidView.h"
#include "fluids/grids/Interpolation.h"
#include "globals/Multiversion.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

constexpr float kLeastOpen = 0.01f;

float Limited(float v) {
  if (v < 0) return 0;
  if (v > 1) return 1;
  return v > 0 && v < kLeastOpen ? kLeastOpen : v;
}

// The other corners of a face of an axis, in cyclic order from the near one.
struct FaceCorners {
  std::int64_t b, c, d;
  FaceCorners(const GridView<const double>& nodes, int axis) {
    const std::int64_t step[3] = {1, nodes.dims.x, nodes.slab};
    b = step[(axis + 1) % 3], d = step[(axis + 2) % 3];
    c = b + d;
  }
};

// The largest double that becomes 0 in single precision.
constexpr double kRoundsToZero = 0x1p-150;
// Everything from 0 on is above it.
constexpr double kBelowZero = -std::numeric_limits<double>::denorm_min();

ORLIX_MULTIVERSION void SpreadClasses(const std::uint8_t* classes, int count, float open, float inside, float* out) {
  for (int i = 0; i < count; ++i) out[i] = classes[i] == kCornersOpen ? open : inside;
}

// Shares of samples that the surface passes. Along a wall a row has the same corners all the way, and its two ends
// those of the row before it: the last two are kept.
template <class T, std::size_t kCorners>
class LastShares {
 public:
  using Corners = std::array<T, kCorners>;
  // share(corners), found or kept.
  template <class F>
  float Of(const Corners& corners, F&& share) {
    for (const Kept& kept : kept_) {
      if (kept.known && kept.corners == corners) return kept.share;
    }
    Kept& oldest = kept_[next_];
    next_ = 1 - next_;
    oldest = {corners, share(corners), true};
    return oldest.share;
  }

 private:
  struct Kept {
    Corners corners{};
    float share = 0;
    bool known = false;
  };
  Kept kept_[2];
  int next_ = 0;
};

void FaceRow(const double* p, const FaceCorners& at, int count, FractionRule rule, CornerClasses& classes,
             LastShares<float, 4>& last, float* out) {
  classes.Find(p, {0, at.b, at.d}, count, kRoundsToZero, kRoundsToZero);
  SpreadClasses(classes.data(), count, Limited(rule.Store(0)), Limited(rule.Store(1)), out);
  classes.ForEachMixed([&](int i) {
    out[i] = last.Of({static_cast<float>(p[i]), static_cast<float>(p[i + at.b]), static_cast<float>(p[i + at.c]),
                      static_cast<float>(p[i + at.d])},
                     [&](const auto& v) {
                       const double inside = FractionInsideSquare(v[0], v[1], v[2], v[3], true);
                       return Limited(rule.Store(inside));
                     });
  });
}

void CellRow(const double* p, const CornerSteps& at, int count, FractionRule rule, CornerClasses& classes,
             LastShares<double, 8>& last, float* out) {
  classes.Find(p, at, count, kBelowZero, kBelowZero);
  SpreadClasses(classes.data(), count, rule.Store(0), rule.Store(1), out);
  classes.ForEachMixed([&](int i) {
    const double* q = p + i;
    out[i] = last.Of({q[0], q[at.z], q[at.y], q[at.y + at.z],  //
                      q[1], q[1 + at.z], q[1 + at.y], q[1 + at.y + at.z]},
                     [&](const auto& v) { return rule.Store(FractionInsideCube(v.data())); });
  });
}

// The eight points of a cube around p, in index coordinates of the nodes.
double CubeAround(const GridView<const double>& nodes, const Vec3D& p) {
  double corners[8];
  for (int n = 0; n < 8; ++n) {
    corners[n] = SampleTrilinear(nodes, p.x - 0.5 + (n >> 2), p.y - 0.5 + (n >> 1 & 1), p.z - 0.5 + (n & 1));
  }
  return FractionInsideCube(corners);
}

enum class Side { Inside, Outside, Mixed };

// Where all samples in a box lie, as far as the nodes around it agree.
Side SideOfNodes(const GridView<const double>& nodes, const Vec3D& low, const Vec3D& high) {
  int from[3], to[3];
  for (int axis = 0; axis < 3; ++axis) {
    const int last = nodes.dims[axis] - 1;
    from[axis] = std::clamp(static_cast<int>(std::floor(low[axis])), 0, last);
    to[axis] = std::clamp(static_cast<int>(std::floor(high[axis])) + 1, 0, last);
  }
  const bool inside = nodes(from[0], from[1], from[2]) < 0;
  for (int k = from[2]; k <= to[2]; ++k) {
    for (int j = from[1]; j <= to[1]; ++j) {
      for (int i = from[0]; i <= to[0]; ++i) {
        if ((nodes(i, j, k) < 0) != inside) return Side::Mixed;
      }
    }
  }
  return inside ? Side::Inside : Side::Outside;
}

double CountedShare(const GridView<const double>& nodes, const Vec3D& p, int perAxis) {
  const double step = 1.0 / perAxis;
  int inside = 0;
  for (int c = 0; c < perAxis; ++c) {
    for (int b = 0; b < perAxis; ++b) {
      for (int a = 0; a < perAxis; ++a) {
        if (SampleTrilinear(nodes, p.x + a * step, p.y + b * step, p.z + c * step) < 0) ++inside;
      }
    }
  }
  return inside / (double(perAxis) * perAxis * perAxis);
}

ORLIX_MULTIVERSION void MarkZeros(const float* row, int count, std::uint8_t* flags) {
  for (int i = 0; i < count; ++i) flags[i] = row[i] == 0;
}

template <class F>
void ForEachSample(const GridView<float>& out, WorkerPool& pool, F&& f) {
  ParallelRange(pool, 0, out.dims.z, [&](int k0, int k1, int) {
    for (int k = k0; k < k1; ++k) {
      for (int j = 0; j < out.dims.y; ++j) {
        float* row = &out(0, j, k);
        for (int i = 0; i < out.dims.x; ++i) row[i] = f(i, j, k);
      }
    }
  });
}

}  // namespace

void FillFaceFractions(const GridView<const double>& nodes, int axis, FractionRule rule, const GridView<float>& out,
                       WorkerPool& pool) {
  const FaceCorners corners(nodes, axis);
  ParallelRange(pool, 0, out.dims.z, [&](int k0, int k1, int) {
    CornerClasses classes(out.dims.x);
    LastShares<float, 4> last;
    for (int k = k0; k < k1; ++k) {
      for (int j = 0; j < out.dims.y; ++j) {
        FaceRow(&nodes(0, j, k), corners, out.dims.x, rule, classes, last, &out(0, j, k));
      }
    }
  });
}

void FillCubeFractions(const GridView<const double>& nodes, const Vec3D& offset, FractionRule rule,
                       const GridView<float>& out, WorkerPool& pool) {
  if (offset == Vec3D(0.5)) {  // the eight points are nodes
    const CornerSteps steps{1, nodes.dims.x, nodes.slab};
    return ParallelRange(pool, 0, out.dims.z, [&](int k0, int k1, int) {
      CornerClasses classes(out.dims.x);
      LastShares<double, 8> last;
      for (int k = k0; k < k1; ++k) {
        for (int j = 0; j < out.dims.y; ++j) {
          CellRow(&nodes(0, j, k), steps, out.dims.x, rule, classes, last, &out(0, j, k));
        }
      }
    });
  }
  ForEachSample(out, pool, [&](int i, int j, int k) { return rule.Store(CubeAround(nodes, Vec3D(i, j, k) + offset)); });
}

void FillCountedFractions(const GridView<const double>& nodes, const Vec3D& offset, int perAxis, const Vec3D& first,
                          FractionRule rule, const GridView<float>& out, WorkerPool& pool) {
  const Vec3D last = first + Vec3D(1 - 1.0 / perAxis);
  ForEachSample(out, pool, [&](int i, int j, int k) {
    const Vec3D p = Vec3D(i, j, k) + offset;
    switch (SideOfNodes(nodes, p + first, p + last)) {
      case Side::Inside:
        return rule.Store(1);
      case Side::Outside:
        return rule.Store(0);
      default:
        return rule.Store(CountedShare(nodes, p + first, perAxis));
    }
  });
}

void FindZeros(const GridView<const float>& values, CellMask& mask, WorkerPool& pool) {
  mask.Resize(values.dims);
  ParallelRange(pool, 0, values.dims.z, [&](int k0, int k1, int) {
    RowFlags flags(values.dims.x);
    for (int k = k0; k < k1; ++k) {
      for (int j = 0; j < values.dims.y; ++j) {
        MarkZeros(&values(0, j, k), values.dims.x, flags.data());
        flags.Pack(mask.Row(j, k));
      }
    }
  });
}

void ZeroWallLayers(const GridView<float>& faces, int axis, std::uint8_t mask) {
  const auto zeroLayer = [&](int across, int index) {
    VecInt3D low, high = faces.dims;
    low[across] = index, high[across] = index + 1;
    for (int k = low.z; k < high.z; ++k) {
      for (int j = low.y; j < high.y; ++j) {
        for (int i = low.x; i < high.x; ++i) faces(i, j, k) = 0;
      }
    }
  };
  for (int across = 0; across < 3; ++across) {
    const int last = faces.dims[across] - 1;
    if ((mask & ClosedLow(across)) != 0) {
      zeroLayer(across, 0);
      if (across == axis) zeroLayer(across, 1);
    }
    if ((mask & ClosedHigh(across)) != 0) {
      zeroLayer(across, last);
      if (across == axis) zeroLayer(across, last - 1);
    }
  }
}

}  // namespace orlix
