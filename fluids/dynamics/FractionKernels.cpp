#include "fluids/dynamics/FractionKernels.h"

#include <algorithm>

#include "fluids/dynamics/FractionShapes.h"
#include "fluids/dynamics/SolidView.h"
#include "fluids/grids/Interpolation.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

constexpr float kLeastOpen = 0.01f;

float Limited(float v) {
  if (v < 0) return 0;
  if (v > 1) return 1;
  return v > 0 && v < kLeastOpen ? kLeastOpen : v;
}

// Steps to the far corners of a face of an axis, in cyclic order from the near one.
struct FaceCorners {
  std::int64_t b, c, d;
  FaceCorners(const GridView<const double>& nodes, int axis) {
    const std::int64_t step[3] = {1, nodes.dims.x, nodes.slab};
    b = step[(axis + 1) % 3], d = step[(axis + 2) % 3];
    c = b + d;
  }
};

void FaceRow(const double* p, const FaceCorners& at, int count, FractionRule rule, float* out) {
  const float open = Limited(rule.Store(0)), closed = Limited(rule.Store(1));
  for (int i = 0; i < count; ++i) {
    const float a = static_cast<float>(p[i]), b = static_cast<float>(p[i + at.b]);
    const float c = static_cast<float>(p[i + at.c]), d = static_cast<float>(p[i + at.d]);
    if (std::min({a, b, c, d}) > 0)
      out[i] = open;
    else if (!(std::max({a, b, c, d}) > 0))
      out[i] = closed;
    else
      out[i] = Limited(rule.Store(FractionInsideSquare(a, b, c, d, true)));
  }
}

// The eight points of a cube around p, in index coordinates of the nodes.
double CubeAround(const GridView<const double>& nodes, const Vec3D& p) {
  double corners[8];
  for (int n = 0; n < 8; ++n) {
    corners[n] = SampleTrilinear(nodes, p.x - 0.5 + (n >> 2), p.y - 0.5 + (n >> 1 & 1), p.z - 0.5 + (n & 1));
  }
  return FractionInsideCube(corners);
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
    for (int k = k0; k < k1; ++k) {
      for (int j = 0; j < out.dims.y; ++j) FaceRow(&nodes(0, j, k), corners, out.dims.x, rule, &out(0, j, k));
    }
  });
}

void FillCubeFractions(const GridView<const double>& nodes, const Vec3D& offset, FractionRule rule,
                       const GridView<float>& out, WorkerPool& pool) {
  if (offset == Vec3D(0.5)) {  // the eight points are nodes
    const std::int64_t dy = nodes.dims.x, dz = nodes.slab;
    return ForEachSample(out, pool, [&](int i, int j, int k) {
      const double* p = &nodes(i, j, k);
      const double corners[8] = {p[0], p[dz],     p[dy],     p[dy + dz],  //
                                 p[1], p[1 + dz], p[1 + dy], p[1 + dy + dz]};
      const auto [least, most] = std::minmax_element(corners, corners + 8);
      return rule.Store(*least >= 0 ? 0 : *most < 0 ? 1 : FractionInsideCube(corners));
    });
  }
  ForEachSample(out, pool, [&](int i, int j, int k) { return rule.Store(CubeAround(nodes, Vec3D(i, j, k) + offset)); });
}

void FillCountedFractions(const GridView<const double>& nodes, const Vec3D& offset, int perAxis, const Vec3D& first,
                          FractionRule rule, const GridView<float>& out, WorkerPool& pool) {
  ForEachSample(out, pool, [&](int i, int j, int k) {
    return rule.Store(CountedShare(nodes, Vec3D(i, j, k) + offset + first, perAxis));
  });
}

void FindZeros(const GridView<const float>& values, CellMask& mask, WorkerPool& pool) {
  mask.Resize(values.dims);
  ParallelRange(pool, 0, values.dims.z, [&](int k0, int k1, int) {
    for (int k = k0; k < k1; ++k) {
      for (int j = 0; j < values.dims.y; ++j) {
        const float* row = &values(0, j, k);
        std::uint64_t* bits = mask.Row(j, k);
        for (int i = 0; i < values.dims.x; ++i) bits[i >> 6] |= std::uint64_t(row[i] == 0) << (i & 63);
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
