#include "fluids/advection/VelocityPoints.h"

#include <cstring>

#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr int kLanes = 4;
using F = double __attribute__((vector_size(8 * kLanes)));
using I = std::int32_t __attribute__((vector_size(4 * kLanes)));
using Pair = double __attribute__((vector_size(16)));
static_assert(PointRun::kMost % kLanes == 0);

template <class V, class T>
ORLIX_INLINE void Load(V& v, const T* from) {
  std::memcpy(&v, from, sizeof v);
}
template <class V, class T>
ORLIX_INLINE void Store(T* to, const V& v) {
  std::memcpy(to, &v, sizeof v);
}

// Where the points of a run lie in a component's grid: its nodes on one axis, or half a cell before them on the others.
struct PlacedRun {
  alignas(64) std::int32_t node[3][PointRun::kMost];
  alignas(64) double own[3][PointRun::kMost], other[3][PointRun::kMost];  // fractions along each axis
  std::uint64_t outside;  // bit b: block b has a point near the ends of the arrays
};
static_assert(PointRun::kMost / kLanes <= 64);

// The part of a coordinate before the point, as a double; numbers from 0 to 2^31.
ORLIX_INLINE void Whole(F& whole, I& node, const F& x) {
  node = __builtin_convertvector(x, I);
  whole = __builtin_convertvector(node, F);
}

ORLIX_INLINE bool AllWithin(const F& x, const F& y, const F& z, const double begin, const Vec3D& end) {
  const auto within = (x >= begin) & (x < end.x) & (y >= begin) & (y < end.y) & (z >= begin) & (z < end.z);
  return (within[0] & within[1] & within[2] & within[3]) != 0;
}

// low[l] = data[node[l]], high[l] = data[node[l] + 1].
ORLIX_INLINE void LoadPairs(const double* data, const std::int32_t* node, F& low, F& high) {
  Pair a, b, c, d;
  Load(a, data + node[0]), Load(b, data + node[1]), Load(c, data + node[2]), Load(d, data + node[3]);
  const F even = __builtin_shufflevector(a, c, 0, 1, 2, 3), odd = __builtin_shufflevector(b, d, 0, 1, 2, 3);
  low = __builtin_shufflevector(even, odd, 0, 4, 2, 6);
  high = __builtin_shufflevector(even, odd, 1, 5, 3, 7);
}

ORLIX_INLINE void TrilinearRun(const GridView<const double>& grid, const std::int32_t* node, const double* fractionX,
                               const double* fractionY, const double* fractionZ, int count, double* out) {
  const double *p00 = grid.data, *p10 = p00 + grid.dims.x, *p01 = p00 + grid.slab, *p11 = p01 + grid.dims.x;
  for (int l = 0; l < count; l += kLanes) {
    F fx, fy, fz, a0, a1, b0, b1;
    Load(fx, fractionX + l), Load(fy, fractionY + l), Load(fz, fractionZ + l);
    const F gx = 1.0 - fx, gy = 1.0 - fy, gz = 1.0 - fz;
    LoadPairs(p00, node + l, a0, a1);
    LoadPairs(p10, node + l, b0, b1);
    const F low = (a0 * gx + a1 * fx) * gy + (b0 * gx + b1 * fx) * fy;
    LoadPairs(p01, node + l, a0, a1);
    LoadPairs(p11, node + l, b0, b1);
    const F high = (a0 * gx + a1 * fx) * gy + (b0 * gx + b1 * fx) * fy;
    Store(out + l, low * gz + high * fz);
  }
}

ORLIX_MULTIVERSION void SampleInside(const VelocityView& view, double perMetre, const PointRun& points,
                                     PlacedRun& placed, PointRun& out) {
  const VecInt3D &u = view.component[0].dims, &v = view.component[1].dims, &w = view.component[2].dims;
  const std::int32_t slabU = u.x * u.y, slabV = v.x * v.y, slabW = w.x * w.y;
  const Vec3D end = Vec3D(v.x, u.y, u.z) - Vec3D(0.5);
  placed.outside = 0;
  for (int l = 0; l < points.count; l += kLanes) {
    F x, y, z;
    Load(x, points.x + l), Load(y, points.y + l), Load(z, points.z + l);
    x = x * perMetre, y = y * perMetre, z = z * perMetre;
    if (!AllWithin(x, y, z, 0.5, end)) {
      placed.outside |= std::uint64_t(1) << (l / kLanes);
      x = y = z = F{} + 1.0;
    }
    F wx, wy, wz, hx, hy, hz;
    I ix, iy, iz, jx, jy, jz;
    const F sx = x - 0.5, sy = y - 0.5, sz = z - 0.5;
    Whole(wx, ix, x), Whole(wy, iy, y), Whole(wz, iz, z);
    Whole(hx, jx, sx), Whole(hy, jy, sy), Whole(hz, jz, sz);
    Store(placed.own[0] + l, x - wx), Store(placed.own[1] + l, y - wy), Store(placed.own[2] + l, z - wz);
    Store(placed.other[0] + l, sx - hx), Store(placed.other[1] + l, sy - hy), Store(placed.other[2] + l, sz - hz);
    Store(placed.node[0] + l, ix + jy * u.x + jz * slabU);
    Store(placed.node[1] + l, jx + iy * v.x + jz * slabV);
    Store(placed.node[2] + l, jx + jy * w.x + iz * slabW);
  }
  const auto& own = placed.own;
  const auto& other = placed.other;
  TrilinearRun(view.component[0], placed.node[0], own[0], other[1], other[2], points.count, out.x);
  TrilinearRun(view.component[1], placed.node[1], other[0], own[1], other[2], points.count, out.y);
  TrilinearRun(view.component[2], placed.node[2], other[0], other[1], own[2], points.count, out.z);
}

ORLIX_MULTIVERSION void SampleNodesInside(const GridView<const double>& nodes, double cellSize, const PointRun& points,
                                          PlacedRun& placed, double* out) {
  const VecInt3D& n = nodes.dims;
  const std::int32_t slab = n.x * n.y;
  const Vec3D end(n - VecInt3D(1, 1, 1));
  placed.outside = 0;
  for (int l = 0; l < points.count; l += kLanes) {
    F x, y, z, wx, wy, wz;
    I i, j, k;
    Load(x, points.x + l), Load(y, points.y + l), Load(z, points.z + l);
    x = x / cellSize, y = y / cellSize, z = z / cellSize;
    if (!AllWithin(x, y, z, 0, end)) {
      placed.outside |= std::uint64_t(1) << (l / kLanes);
      x = y = z = F{};
    }
    Whole(wx, i, x), Whole(wy, j, y), Whole(wz, k, z);
    Store(placed.own[0] + l, x - wx), Store(placed.own[1] + l, y - wy), Store(placed.own[2] + l, z - wz);
    Store(placed.node[0] + l, i + j * n.x + k * slab);
  }
  TrilinearRun(nodes, placed.node[0], placed.own[0], placed.own[1], placed.own[2], points.count, out);
}

// Calls f(n) for the points of the marked blocks.
template <class F>
void ForOutside(const PlacedRun& placed, int count, F&& f) {
  for (std::uint64_t blocks = placed.outside; blocks != 0; blocks &= blocks - 1) {
    const int begin = __builtin_ctzll(blocks) * kLanes;
    for (int n = begin; n < begin + kLanes && n < count; ++n) f(n);
  }
}

static_assert(sizeof(Vec3D) == 3 * sizeof(double) && kLanes == 4);

// From x y z x y z ... to a row an axis, whole blocks.
ORLIX_MULTIVERSION void Split(const double* points, int count, const Vec3D& offset, PointRun& run) {
  for (int l = 0; l < count; l += kLanes, points += 3 * kLanes) {
    F a, b, c;  // x0 y0 z0 x1, y1 z1 x2 y2, z2 x3 y3 z3
    Load(a, points), Load(b, points + 4), Load(c, points + 8);
    const F x = __builtin_shufflevector(__builtin_shufflevector(a, b, 0, 3, 6, 6), c, 0, 1, 2, 5);
    const F y = __builtin_shufflevector(__builtin_shufflevector(a, b, 1, 4, 7, 7), c, 0, 1, 2, 6);
    const F z = __builtin_shufflevector(__builtin_shufflevector(a, b, 2, 5, 5, 5), c, 0, 1, 4, 7);
    Store(run.x + l, x + offset.x), Store(run.y + l, y + offset.y), Store(run.z + l, z + offset.z);
  }
}

// And back.
ORLIX_MULTIVERSION void Join(const PointRun& run, int count, const Vec3D& offset, double* points) {
  for (int l = 0; l < count; l += kLanes, points += 3 * kLanes) {
    F x, y, z;
    Load(x, run.x + l), Load(y, run.y + l), Load(z, run.z + l);
    x = x + offset.x, y = y + offset.y, z = z + offset.z;
    Store(points, __builtin_shufflevector(__builtin_shufflevector(x, y, 0, 4, 1, 1), z, 0, 1, 4, 2));
    Store(points + 4, __builtin_shufflevector(__builtin_shufflevector(y, z, 1, 5, 2, 2), x, 0, 1, 6, 2));
    Store(points + 8, __builtin_shufflevector(__builtin_shufflevector(z, x, 2, 7, 3, 3), y, 0, 1, 7, 2));
  }
}

// to = from + step * v, to a whole block.
ORLIX_MULTIVERSION void Advance(const PointRun& from, double step, const PointRun& v, PointRun& to) {
  to.count = from.count;
  const int count = (from.count + kLanes - 1) / kLanes * kLanes;
  for (int n = 0; n < count; ++n) {
    to.x[n] = from.x[n] + step * v.x[n];
    to.y[n] = from.y[n] + step * v.y[n];
    to.z[n] = from.z[n] + step * v.z[n];
  }
}

// The last step of each method: p += step * the mean of the stages' velocities, rounded as TracePoint does.
template <Integrator kIntegrator>
ORLIX_INLINE void Combine(double step, const double* k1, const double* k2, const double* k3, const double* k4,
                          int count, double* p) {
  constexpr double a = 2.0 / 9.0, b = 1.0 / 3.0, c = 4.0 / 9.0;
  for (int n = 0; n < count; ++n) {
    if constexpr (kIntegrator == Integrator::Heun) {
      p[n] = p[n] + step * (k1[n] + k2[n]) * 0.5;
    } else if constexpr (kIntegrator == Integrator::Ralston) {
      p[n] = p[n] + step * (a * k1[n] + b * k2[n] + c * k3[n]);
    } else {
      p[n] = p[n] + step * (k1[n] + 2.0 * k2[n] + 2.0 * k3[n] + k4[n]) / 6.0;
    }
  }
}

template <Integrator kIntegrator>
ORLIX_INLINE void CombineAxes(double step, const PointRun k[4], PointRun& p) {
  const int count = (p.count + kLanes - 1) / kLanes * kLanes;
  Combine<kIntegrator>(step, k[0].x, k[1].x, k[2].x, k[3].x, count, p.x);
  Combine<kIntegrator>(step, k[0].y, k[1].y, k[2].y, k[3].y, count, p.y);
  Combine<kIntegrator>(step, k[0].z, k[1].z, k[2].z, k[3].z, count, p.z);
}

ORLIX_MULTIVERSION void CombineStages(Integrator integrator, double step, const PointRun k[4], PointRun& p) {
  if (integrator == Integrator::Heun) {
    CombineAxes<Integrator::Heun>(step, k, p);
  } else if (integrator == Integrator::Ralston) {
    CombineAxes<Integrator::Ralston>(step, k, p);
  } else {
    CombineAxes<Integrator::RungeKutta4>(step, k, p);
  }
}

}  // namespace

void PointRun::Load(const Vec3D* points, int n, const Vec3D& offset) {
  // The run after it is on its way while this one goes through its stages.
  const char* after = reinterpret_cast<const char*>(points + n);
  for (int b = 0; b < n * static_cast<int>(sizeof(Vec3D)); b += 64) __builtin_prefetch(after + b);
  count = n;
  const int blocks = n / kLanes * kLanes;
  Split(reinterpret_cast<const double*>(points), blocks, offset, *this);
  for (int l = blocks; l < n; ++l) Set(l, points[l] + offset);
  Pad();
}

void PointRun::Unload(Vec3D* points, const Vec3D& offset) const {
  const int blocks = count / kLanes * kLanes;
  Join(*this, blocks, offset, reinterpret_cast<double*>(points));
  for (int l = blocks; l < count; ++l) points[l] = Get(l) + offset;
}

void PointRun::Pad() {
  for (int n = count; n % kLanes != 0; ++n) Set(n, Get(count - 1));
}

void SampleVelocity(const VelocityView& velocity, double perMetre, const PointRun& points, PointRun& out) {
  PlacedRun placed;
  out.count = points.count;
  SampleInside(velocity, perMetre, points, placed, out);
  ForOutside(placed, points.count, [&](int n) { out.Set(n, velocity.At(points.Get(n) * perMetre)); });
  out.Pad();
}

void TracePoints(const VelocityView& velocity, double perMetre, Integrator integrator, double dt, PointRun& points) {
  if (!IsKnown(integrator)) return;
  PointRun k[4], q;
  SampleVelocity(velocity, perMetre, points, k[0]);
  if (integrator == Integrator::Euler) return Advance(points, dt, k[0], points);
  // The fraction of the step at which each further stage looks along the one before it.
  static constexpr double kAlong[4][3] = {{}, {1}, {0.5, 0.75}, {0.5, 0.5, 1}};
  for (int stage = 0; stage < static_cast<int>(integrator); ++stage) {
    Advance(points, dt * kAlong[static_cast<int>(integrator)][stage], k[stage], q);
    SampleVelocity(velocity, perMetre, q, k[stage + 1]);
  }
  CombineStages(integrator, dt, k, points);
}

void SampleNodes(const GridView<const double>& nodes, double cellSize, const PointRun& points,
                 double out[PointRun::kMost]) {
  PlacedRun placed;
  SampleNodesInside(nodes, cellSize, points, placed, out);
  ForOutside(placed, points.count, [&](int n) {
    const Vec3D p = points.Get(n) / cellSize;
    out[n] = SampleTrilinear(nodes, p.x, p.y, p.z);
  });
}

}  // namespace orlix
