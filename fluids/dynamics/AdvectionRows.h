// The loops over rows of cells. This file has no guard: AdvectionKernels.cpp includes it once for each instruction set,
// with ORLIX_ROWS the namespace and ORLIX_ROWS_TARGET the attribute of all functions. The vectors are the compiler's
// own, four doubles wide; no lambda, since it wouldn't inherit the attribute.
//
// A run of cells goes through its stages one after the other, each a short loop over blocks of four cells, so that the
// processor overlaps many blocks where one long body would wait for its own gathers. A block whose samples don't all
// lie well inside the arrays is done again, cell by cell, with the clamps of the common samplers. Both ways give the
// same bits.

namespace orlix {
namespace ORLIX_ROWS {

#define ORLIX_ROW_INLINE inline __attribute__((always_inline)) ORLIX_ROWS_TARGET

using F4 = double __attribute__((vector_size(32)));
using F2 = double __attribute__((vector_size(16)));
using M4 = std::int64_t __attribute__((vector_size(32)));
using I4 = std::int32_t __attribute__((vector_size(16)));

struct Block3 {
  F4 x, y, z;
};

ORLIX_ROW_INLINE void Load(F4& v, const double* from) { __builtin_memcpy(&v, from, sizeof v); }
ORLIX_ROW_INLINE void Store(double* to, const F4& v) { __builtin_memcpy(to, &v, sizeof v); }
ORLIX_ROW_INLINE void Load(I4& v, const std::int32_t* from) { __builtin_memcpy(&v, from, sizeof v); }
ORLIX_ROW_INLINE void Store(std::int32_t* to, const I4& v) { __builtin_memcpy(to, &v, sizeof v); }

// Bit l: lane l of a mask is set.
ORLIX_ROW_INLINE unsigned Bits(const M4& m) {
#ifdef ORLIX_ROWS_AVX
  return static_cast<unsigned>(_mm256_movemask_pd(reinterpret_cast<__m256d>(m)));
#else
  return static_cast<unsigned>((m[0] & 1) | (m[1] & 2) | (m[2] & 4) | (m[3] & 8));
#endif
}
ORLIX_ROW_INLINE bool All(const M4& m) { return Bits(m) == 15; }

// The whole part of non-negative numbers below 2^31.
ORLIX_ROW_INLINE void Whole(F4& whole, const F4& x) {
#ifdef ORLIX_ROWS_AVX
  whole = _mm256_round_pd(x, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
#else
  whole = __builtin_convertvector(__builtin_convertvector(x, I4), F4);
#endif
}

// Four linear indices.
struct Nodes {
  std::int64_t a, b, c, d;
};
ORLIX_ROW_INLINE void Load(Nodes& nodes, const std::int32_t* from) { nodes = {from[0], from[1], from[2], from[3]}; }

// low[l] = data[node l], high[l] = data[node l + 1].
ORLIX_ROW_INLINE void LoadPairs(const double* data, const Nodes& nodes, F4& low, F4& high) {
#ifdef ORLIX_ROWS_AVX
  const F4 ac =
      _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_loadu_pd(data + nodes.a)), _mm_loadu_pd(data + nodes.c), 1);
  const F4 bd =
      _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_loadu_pd(data + nodes.b)), _mm_loadu_pd(data + nodes.d), 1);
  low = _mm256_unpacklo_pd(ac, bd);
  high = _mm256_unpackhi_pd(ac, bd);
#else
  low = F4{data[nodes.a], data[nodes.b], data[nodes.c], data[nodes.d]};
  high = F4{data[nodes.a + 1], data[nodes.b + 1], data[nodes.c + 1], data[nodes.d + 1]};
#endif
}

// The last block of a run overlaps the one before it, and gives the same values again. A run has at least four cells.
ORLIX_ROW_INLINE int BlockStart(int next, int count) { return next + 4 <= count ? next : count - 4; }

// From nodes to linear indices of a grid.
struct Indexer {
  F4 nx, slab;
  ORLIX_ROW_INLINE explicit Indexer(const GridView<const double>& grid)
      : nx(F4{} + static_cast<double>(grid.dims.x)), slab(F4{} + static_cast<double>(grid.slab)) {}
  ORLIX_ROW_INLINE void Store(std::int32_t* to, const F4& i, const F4& j, const F4& k) const {
    const F4 linear = i + nx * j + slab * k;
    const I4 index = __builtin_convertvector(linear, I4);
    __builtin_memcpy(to, &index, sizeof index);
  }
};

// The trilinear interpolation of SampleTrilinear in cells whose linear indices and fractions stand in arrays.
ORLIX_ROW_INLINE void TrilinearRun(const GridView<const double>& view, const std::int32_t* cell,
                                   const double* fractionX, const double* fractionY, const double* fractionZ, int count,
                                   double* value) {
  const double *p00 = view.data, *p10 = p00 + view.dims.x, *p01 = p00 + view.slab, *p11 = p01 + view.dims.x;
  for (int next = 0; next < count; next += 4) {
    const int l = BlockStart(next, count);
    F4 fx, fy, fz, a0, a1, b0, b1;
    Load(fx, fractionX + l), Load(fy, fractionY + l), Load(fz, fractionZ + l);
    const F4 gx = 1.0 - fx, gy = 1.0 - fy, gz = 1.0 - fz;
    Nodes nodes;
    Load(nodes, cell + l);
    LoadPairs(p00, nodes, a0, a1);
    LoadPairs(p10, nodes, b0, b1);
    const F4 low = (a0 * gx + a1 * fx) * gy + (b0 * gx + b1 * fx) * fy;
    LoadPairs(p01, nodes, a0, a1);
    LoadPairs(p11, nodes, b0, b1);
    const F4 high = (a0 * gx + a1 * fx) * gy + (b0 * gx + b1 * fx) * fy;
    Store(value + l, low * gz + high * fz);
  }
}

// --- the trace -------------------------------------------------------------------------------------------------------

// The velocity at the samples of a run: they stand on nodes of the component's grid or half way between them.
ORLIX_ROW_INLINE void FirstVelocity(const VelocityView& velocity, const Vec3D& offset, AdvectionRun& run) {
  for (int c = 0; c < 3; ++c) {
    const GridView<const double>& grid = velocity.component[c];
    const std::int64_t strides[3] = {1, grid.dims.x, grid.slab};
    std::int64_t start = grid.Index(run.begin, run.j, run.k), halves[2] = {0, 0};
    int between = 0;
    for (int axis = 0; axis < 3; ++axis) {
      const double shift = offset[axis] - (axis == c ? 0.0 : 0.5);
      if (shift == 0) continue;
      if (shift < 0) start -= strides[axis];
      halves[between++] = strides[axis];
    }
    const double *p = grid.data + start, *q = p + halves[0];
    const double *r = p + halves[1], *s = q + halves[1];
    double* out = run.velocity[0][c];
    if (between == 0) {
      for (int l = 0; l < run.count; ++l) out[l] = p[l];
    } else if (between == 1) {
      for (int l = 0; l < run.count; ++l) out[l] = p[l] * 0.5 + q[l] * 0.5;
    } else {
      for (int l = 0; l < run.count; ++l) {
        out[l] = (p[l] * 0.5 + q[l] * 0.5) * 0.5 + (r[l] * 0.5 + s[l] * 0.5) * 0.5;
      }
    }
  }
}

// The samples' places: a row changes only in x.
struct Starts {
  F4 x, y, z;
  ORLIX_ROW_INLINE explicit Starts(const AdvectionRun& run)
      : x(F4{0, 1, 2, 3} + run.start.x), y(F4{} + run.start.y), z(F4{} + run.start.z) {}
  ORLIX_ROW_INLINE void At(int l, Block3& p) const { p.x = x + static_cast<double>(l), p.y = y, p.z = z; }
};

ORLIX_ROW_INLINE void LoadVelocity(const AdvectionRun& run, int stage, int l, Block3& v) {
  Load(v.x, run.velocity[stage][0] + l), Load(v.y, run.velocity[stage][1] + l), Load(v.z, run.velocity[stage][2] + l);
}

// Finds the nodes and fractions of the three components at the points that the velocity of a stage leads to. Blocks
// that lie too near to the ends of the arrays are marked in run.again and take any node.
ORLIX_ROW_INLINE void LocateVelocity(const VelocityView& view, double step, int stage, AdvectionRun& run) {
  const Indexer indexU(view.component[0]), indexV(view.component[1]), indexW(view.component[2]);
  const F4 begin = F4{} + 0.5, stepLanes = F4{} + step;
  const F4 endX = F4{} + (view.component[1].dims.x - 0.5), endY = F4{} + (view.component[0].dims.y - 0.5);
  const F4 endZ = F4{} + (view.component[0].dims.z - 0.5);
  const Starts starts(run);
  const int count = run.count;
  for (int next = 0; next < count; next += 4) {
    const int l = BlockStart(next, count);
    Block3 p, v;
    starts.At(l, p);
    LoadVelocity(run, stage, l, v);
    F4 x = p.x + stepLanes * v.x, y = p.y + stepLanes * v.y, z = p.z + stepLanes * v.z;
    if (!All((x >= begin) & (x < endX) & (y >= begin) & (y < endY) & (z >= begin) & (z < endZ))) {
      run.again |= 1u << (next >> 2);
      x = y = z = F4{} + 1.0;
    }
    // Nodes along a component's own axis, and along the two others.
    F4 ix, iy, iz, jx, jy, jz;
    const F4 sx = x - begin, sy = y - begin, sz = z - begin;
    Whole(ix, x), Whole(iy, y), Whole(iz, z), Whole(jx, sx), Whole(jy, sy), Whole(jz, sz);
    Store(run.own[0] + l, x - ix), Store(run.own[1] + l, y - iy), Store(run.own[2] + l, z - iz);
    Store(run.other[0] + l, sx - jx), Store(run.other[1] + l, sy - jy), Store(run.other[2] + l, sz - jz);
    indexU.Store(run.node[0] + l, ix, jy, jz);
    indexV.Store(run.node[1] + l, jx, iy, jz);
    indexW.Store(run.node[2] + l, jx, jy, iz);
  }
}

// run.velocity[stage] takes the velocity where that of the stage before leads to.
ORLIX_ROWS_TARGET inline void NextStage(const VelocityView& view, double step, int stage, AdvectionRun& run) {
  LocateVelocity(view, step, stage - 1, run);
  double(*out)[AdvectionRun::kCells] = run.velocity[stage];
  TrilinearRun(view.component[0], run.node[0], run.own[0], run.other[1], run.other[2], run.count, out[0]);
  TrilinearRun(view.component[1], run.node[1], run.other[0], run.own[1], run.other[2], run.count, out[1]);
  TrilinearRun(view.component[2], run.node[2], run.other[0], run.other[1], run.own[2], run.count, out[2]);
}

// The last step of TracePoint for a block: from the start to the traced point.
template <Integrator kIntegrator>
ORLIX_ROW_INLINE void Combine(const AdvectionRun& run, double step, int l, Block3& p) {
  Block3 k1, k2, k3, k4;
  LoadVelocity(run, 0, l, k1);
  if constexpr (kIntegrator == Integrator::Euler) {
    p.x = p.x + step * k1.x, p.y = p.y + step * k1.y, p.z = p.z + step * k1.z;
    return;
  }
  LoadVelocity(run, 1, l, k2);
  if constexpr (kIntegrator == Integrator::Heun) {
    const double half = step * 0.5;  // exact, and so the order doesn't matter
    p.x = p.x + half * (k1.x + k2.x);
    p.y = p.y + half * (k1.y + k2.y);
    p.z = p.z + half * (k1.z + k2.z);
    return;
  }
  LoadVelocity(run, 2, l, k3);
  if constexpr (kIntegrator == Integrator::Ralston) {
    constexpr double a = 2.0 / 9.0, b = 1.0 / 3.0, c = 4.0 / 9.0;
    p.x = p.x + step * (a * k1.x + b * k2.x + c * k3.x);
    p.y = p.y + step * (a * k1.y + b * k2.y + c * k3.y);
    p.z = p.z + step * (a * k1.z + b * k2.z + c * k3.z);
    return;
  }
  LoadVelocity(run, 3, l, k4);
  p.x = p.x + step * (k1.x + 2.0 * k2.x + 2.0 * k3.x + k4.x) / 6.0;
  p.y = p.y + step * (k1.y + 2.0 * k2.y + 2.0 * k3.y + k4.y) / 6.0;
  p.z = p.z + step * (k1.z + 2.0 * k2.z + 2.0 * k3.z + k4.z) / 6.0;
}

// The nodes and fractions of blocks in the source.
struct SourceLattice {
  GridView<const double> grid;
  Indexer index;
  F4 offsetX, offsetY, offsetZ;
  Vec3D begin, end;  // within [margin, n - 1 - margin)

  ORLIX_ROW_INLINE SourceLattice(const AdvectionSource& source, int margin)
      : grid(source.values),
        index(source.values),
        offsetX(F4{} + source.offset.x),
        offsetY(F4{} + source.offset.y),
        offsetZ(F4{} + source.offset.z),
        begin(Vec3D(margin) + source.offset),
        end(Vec3D(grid.dims - VecInt3D(1 + margin, 1 + margin, 1 + margin)) + source.offset) {}

  ORLIX_ROW_INLINE bool Holds(const Block3& p) const {
    return All((p.x >= begin.x) & (p.x < end.x) & (p.y >= begin.y) & (p.y < end.y) & (p.z >= begin.z) & (p.z < end.z));
  }
  ORLIX_ROW_INLINE void Locate(const F4& x, const F4& y, const F4& z, int l, std::int32_t* cell,
                               AdvectionRun& run) const {
    F4 i, j, k;
    Whole(i, x), Whole(j, y), Whole(k, z);
    Store(run.own[0] + l, x - i), Store(run.own[1] + l, y - j), Store(run.own[2] + l, z - k);
    index.Store(cell + l, i, j, k);
  }
};

// AdvectionField::Resolve against the container: gives the lanes that moved.
ORLIX_ROW_INLINE unsigned ClampBlock(const VecInt3D& n, Block3& p) {
  const double low = AdvectionField::kInset;
  const M4 lowX = ~(p.x >= 1.0), lowY = ~(p.y >= 1.0), lowZ = ~(p.z >= 1.0);
  const M4 highX = p.x > static_cast<double>(n.x - 2), highY = p.y > static_cast<double>(n.y - 2);
  const M4 highZ = p.z > static_cast<double>(n.z - 2);
  p.x = lowX ? F4{} + low : highX ? F4{} + (n.x - 1 - low) : p.x;
  p.y = lowY ? F4{} + low : highY ? F4{} + (n.y - 1 - low) : p.y;
  p.z = lowZ ? F4{} + low : highZ ? F4{} + (n.z - 1 - low) : p.z;
  return Bits(lowX | lowY | lowZ | highX | highY | highZ);
}

// From the stages' velocities to run.place, clamped to the domain, and on to the source's cells. Blocks that may lie in
// an obstacle are marked in run.near, blocks whose sample needs clamps in run.again.
template <Integrator kIntegrator>
ORLIX_ROWS_TARGET void Arrive(const AdvectionField& field, const AdvectionSource& source, AdvectionRun& run) {
  const double step = field.Step();
  const bool walls = field.solid.HasData(), obstacles = walls && !field.bricks->IsEmpty();
  const VecInt3D n = walls ? field.solid.nodes().dims : VecInt3D();
  const F4 begin = F4{} + 1.0, endX = F4{} + (n.x - 2.0), endY = F4{} + (n.y - 2.0), endZ = F4{} + (n.z - 2.0);
  const Vec3D low(obstacles ? field.bricks->min() : VecInt3D());
  const Vec3D high(obstacles ? field.bricks->max() + VecInt3D(1, 1, 1) : VecInt3D());
  const SourceLattice lattice(source, 0);
  const Starts starts(run);
  const int count = run.count;
  std::uint64_t moved = 0;
  for (int next = 0; next < count; next += 4) {
    const int l = BlockStart(next, count);
    Block3 p;
    starts.At(l, p);
    Combine<kIntegrator>(run, step, l, p);
    if (walls) {
      // A point within the walls lies in the source's lattice, too, and after the clamp all do.
      if (!All((p.x >= begin) & (p.x <= endX) & (p.y >= begin) & (p.y <= endY) & (p.z >= begin) & (p.z <= endZ))) {
        moved |= std::uint64_t(ClampBlock(n, p)) << l;
      }
      if (obstacles &&
          !All((p.x < low.x) | (p.x >= high.x) | (p.y < low.y) | (p.y >= high.y) | (p.z < low.z) | (p.z >= high.z))) {
        run.near |= 1u << (next >> 2);
      }
    }
    Store(run.place[0] + l, p.x), Store(run.place[1] + l, p.y), Store(run.place[2] + l, p.z);
    if (!walls && !lattice.Holds(p)) {
      run.again |= 1u << (next >> 2);
      p.x = p.y = p.z = F4{} + 1.5;
    }
    lattice.Locate(p.x - lattice.offsetX, p.y - lattice.offsetY, p.z - lattice.offsetZ, l, run.cell, run);
  }
  run.moved = walls ? moved : ~std::uint64_t(0);
}

// Traces a run and finds the source's cells at its ends.
ORLIX_ROWS_TARGET inline void TraceRun(const AdvectionField& field, const AdvectionSource& source, AdvectionRun& run) {
  const double step = field.Step();
  const VelocityView& view = field.velocity;
  switch (field.integrator) {
    case Integrator::Euler:
      return Arrive<Integrator::Euler>(field, source, run);
    case Integrator::Heun:
      NextStage(view, step, 1, run);
      return Arrive<Integrator::Heun>(field, source, run);
    case Integrator::Ralston:
      NextStage(view, step * 0.5, 1, run);
      NextStage(view, step * 0.75, 2, run);
      return Arrive<Integrator::Ralston>(field, source, run);
    case Integrator::RungeKutta4:
      NextStage(view, step * 0.5, 1, run);
      NextStage(view, step * 0.5, 2, run);
      NextStage(view, step, 3, run);
      return Arrive<Integrator::RungeKutta4>(field, source, run);
  }
}

// --- the samples -----------------------------------------------------------------------------------------------------

ORLIX_ROW_INLINE void QuadraticBSpline(const GridView<const double>& grid, const Nodes& centre, const F4& fx,
                                       const F4& fy, const F4& fz, F4& value) {
  F4 w[3][3];
  const F4* fractions[3] = {&fx, &fy, &fz};
  for (int axis = 0; axis < 3; ++axis) {
    const F4 f = *fractions[axis];
    w[axis][0] = (f - 1.0) * (f - 1.0) / 2.0;
    w[axis][1] = 0.75 - (f - 0.5) * (f - 0.5);
    w[axis][2] = f * f / 2.0;
  }
  value = F4{};
  for (int k = 0; k < 3; ++k) {
    F4 layer{};
    for (int j = 0; j < 3; ++j) {
      const double* row = grid.data + (grid.slab * (k - 1) + std::int64_t(grid.dims.x) * (j - 1) - 1);
      F4 a, b, c, again;
      LoadPairs(row, centre, a, again);
      LoadPairs(row + 1, centre, b, c);
      layer = layer + (a * w[0][0] + b * w[0][1] + c * w[0][2]) * w[1][j];
    }
    value = value + layer * w[2][k];
  }
}

ORLIX_ROW_INLINE void MonotoneCubic(const F4& fm, const F4& f0, const F4& f1, const F4& f2, const F4& t, F4& value) {
  const F4 zero{}, d = f1 - f0;
  F4 m0 = (f1 - fm) / 2.0, m1 = (f2 - f0) / 2.0;
  // With d = 0 no product is above 0, so that both slopes vanish.
  m0 = m0 * d > 0.0 ? m0 : zero;
  m1 = m1 * d > 0.0 ? m1 : zero;
  const F4 t2 = t * t;
  const F4 p = (m0 + m1 - 2.0 * d) * t2 * t + (3.0 * d - 2.0 * m0 - m1) * t2 + m0 * t + f0;
  const F4 low = f0 < f1 ? f0 : f1, high = f0 < f1 ? f1 : f0;
  value = p < low ? low : high < p ? high : p;
}

ORLIX_ROW_INLINE void MonotoneTricubic(const GridView<const double>& grid, const Nodes& cell, const F4& fx,
                                       const F4& fy, const F4& fz, F4& value) {
  F4 layer[4];
  for (int k = 0; k < 4; ++k) {
    F4 line[4];
    for (int j = 0; j < 4; ++j) {
      const double* row = grid.data + (grid.slab * (k - 1) + std::int64_t(grid.dims.x) * (j - 1) - 1);
      F4 a, b, c, d;
      LoadPairs(row, cell, a, b);
      LoadPairs(row + 2, cell, c, d);
      MonotoneCubic(a, b, c, d, fx, line[j]);
    }
    MonotoneCubic(line[0], line[1], line[2], line[3], fy, layer[k]);
  }
  MonotoneCubic(layer[0], layer[1], layer[2], layer[3], fz, value);
}

// Samples source at run.place into run.value.
ORLIX_ROWS_TARGET inline void SampleRun(const AdvectionSource& source, AdvectionRun& run) {
  const bool spline = source.sampling == AdvectionSampling::QuadraticBSpline;
  if (!spline && source.sampling != AdvectionSampling::MonotoneCubic) {
    return TrilinearRun(source.values, run.cell, run.own[0], run.own[1], run.own[2], run.count, run.value);
  }
  const SourceLattice lattice(source, 1);
  for (int next = 0; next < run.count; next += 4) {
    const int l = BlockStart(next, run.count);
    Block3 p;
    Load(p.x, run.place[0] + l), Load(p.y, run.place[1] + l), Load(p.z, run.place[2] + l);
    if (!lattice.Holds(p)) {
      run.again |= 1u << (next >> 2);
      continue;
    }
    F4 x = p.x - lattice.offsetX, y = p.y - lattice.offsetY, z = p.z - lattice.offsetZ, value;
    if (spline) x = x + 0.5, y = y + 0.5, z = z + 0.5;
    lattice.Locate(x, y, z, l, run.node[0], run);
    Nodes nodes;
    Load(nodes, run.node[0] + l);
    Load(x, run.own[0] + l), Load(y, run.own[1] + l), Load(z, run.own[2] + l);
    if (spline) {
      QuadraticBSpline(lattice.grid, nodes, x, y, z, value);
    } else {
      MonotoneTricubic(lattice.grid, nodes, x, y, z, value);
    }
    Store(run.value + l, value);
  }
}

// The range of the eight source cells of recorded cells.
ORLIX_ROW_INLINE void CornerRange(const GridView<const double>& grid, const std::int32_t* cell, F4& low, F4& high) {
  std::int32_t index[4];
  I4 recorded;
  Load(recorded, cell);
  Store(index, recorded < 0 ? I4{} : recorded);
  Nodes nodes;
  Load(nodes, index);
  const std::int64_t rows[4] = {0, grid.dims.x, grid.slab, grid.dims.x + grid.slab};
  F4 a, b;
  LoadPairs(grid.data, nodes, a, b);
  low = a < b ? a : b, high = a < b ? b : a;
  for (int row = 1; row < 4; ++row) {
    LoadPairs(grid.data + rows[row], nodes, a, b);
    low = a < low ? a : low, high = high < a ? a : high;
    low = b < low ? b : low, high = high < b ? b : high;
  }
}

// The way back is in run.value: adds the error term to the way there and limits the sum.
ORLIX_ROWS_TARGET inline void CorrectRun(const MacCormackRow& row, AdvectionRun& run) {
  const GridView<const double> grid = row.grid;
  const double strength = row.strength;
  for (int next = 0; next < run.count; next += 4) {
    const int l = BlockStart(next, run.count);
    F4 source, forward, back, low, high;
    Load(source, row.source + l), Load(forward, row.forward + l), Load(back, run.value + l);
    I4 cell;
    Load(cell, row.traced + l);
    CornerRange(grid, row.traced + l, low, high);
    const F4 corrected = forward + strength * (source - back);
    F4 limited = corrected < low ? low : high < corrected ? high : corrected;
    const M4 moved = __builtin_convertvector(cell == kMovedCell, M4);
    const M4 solid = __builtin_convertvector(cell == kSolidCell, M4);
    limited = moved ? forward : limited;
    Store(row.result + l, solid ? strength * source : limited);
  }
}

#undef ORLIX_ROW_INLINE

}  // namespace ORLIX_ROWS
}  // namespace orlix
