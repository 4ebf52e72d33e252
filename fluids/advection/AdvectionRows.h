// The loops over rows of cells. This file has no guard: AdvectionPass.cpp includes it once for each instruction set,
// with ORLIX_ROWS the namespace, ORLIX_ROWS_TARGET the attribute of all functions and ORLIX_ROWS_LANES the cells in a
// block. The vectors are the compiler's own; no lambda, since it wouldn't inherit the attribute.
//
// A run of cells goes through its stages one after the other, each a short loop over blocks of cells, so that the
// processor overlaps many blocks where one long body would wait for its own gathers. A block whose samples don't all
// lie well inside the arrays is done again, cell by cell, with the clamps of the common samplers. Both ways give the
// same bits.

namespace orlix {
namespace ORLIX_ROWS {

constexpr int kLanes = ORLIX_ROWS_LANES;
using F = double __attribute__((vector_size(8 * kLanes)));
using M = std::int64_t __attribute__((vector_size(8 * kLanes)));
using I = std::int32_t __attribute__((vector_size(4 * kLanes)));

struct Block3 {
  F x, y, z;
};

ORLIX_INLINE ORLIX_ROWS_TARGET void Load(F& v, const double* from) { __builtin_memcpy(&v, from, sizeof v); }
ORLIX_INLINE ORLIX_ROWS_TARGET void Store(double* to, const F& v) { __builtin_memcpy(to, &v, sizeof v); }
ORLIX_INLINE ORLIX_ROWS_TARGET void Load(I& v, const std::int32_t* from) { __builtin_memcpy(&v, from, sizeof v); }
ORLIX_INLINE ORLIX_ROWS_TARGET void Store(std::int32_t* to, const I& v) { __builtin_memcpy(to, &v, sizeof v); }

// Bit l: lane l of a mask is set.
constexpr unsigned kAllLanes = (1u << kLanes) - 1;
ORLIX_INLINE ORLIX_ROWS_TARGET unsigned Bits(const M& m) {
#if defined(ORLIX_ROWS_AVX512)
  return _mm512_movepi64_mask(reinterpret_cast<__m512i>(m));
#elif defined(ORLIX_ROWS_AVX)
  return static_cast<unsigned>(_mm256_movemask_pd(reinterpret_cast<__m256d>(m)));
#else
  return static_cast<unsigned>((m[0] & 1) | (m[1] & 2) | (m[2] & 4) | (m[3] & 8));
#endif
}

// Bit l: lane l lies in [begin, end) along each axis.
ORLIX_INLINE ORLIX_ROWS_TARGET unsigned LanesWithin(const Block3& p, const Block3& begin, const Block3& end) {
#ifdef ORLIX_ROWS_AVX512
  unsigned m = _mm512_cmp_pd_mask(p.x, begin.x, _CMP_GE_OQ);
  m = _mm512_mask_cmp_pd_mask(__mmask8(m), p.y, begin.y, _CMP_GE_OQ);
  m = _mm512_mask_cmp_pd_mask(__mmask8(m), p.z, begin.z, _CMP_GE_OQ);
  unsigned n = _mm512_cmp_pd_mask(p.x, end.x, _CMP_LT_OQ);
  n = _mm512_mask_cmp_pd_mask(__mmask8(n), p.y, end.y, _CMP_LT_OQ);
  n = _mm512_mask_cmp_pd_mask(__mmask8(n), p.z, end.z, _CMP_LT_OQ);
  return m & n;
#else
  return Bits((p.x >= begin.x) & (p.x < end.x) & (p.y >= begin.y) & (p.y < end.y) & (p.z >= begin.z) & (p.z < end.z));
#endif
}
ORLIX_INLINE ORLIX_ROWS_TARGET void Broadcast(Block3& block, const Vec3D& v) {
  block.x = F{} + v.x, block.y = F{} + v.y, block.z = F{} + v.z;
}

// The whole part of non-negative numbers below 2^31.
ORLIX_INLINE ORLIX_ROWS_TARGET void Whole(F& whole, const F& x) {
#if defined(ORLIX_ROWS_AVX512)
  // By a mask of all lanes: GCC 12 warns of the plain form's unused operand.
  whole = _mm512_maskz_roundscale_pd(kAllLanes, x, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
#elif defined(ORLIX_ROWS_AVX)
  whole = _mm256_round_pd(x, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
#else
  whole = __builtin_convertvector(__builtin_convertvector(x, I), F);
#endif
}

// Where sixteen values may be read from a row: its first linear indices in [low, high], for stencils that reach from
// `margin` nodes before a cell to margin + 1 after it.
struct RowLimits {
  std::int64_t low, high;
  ORLIX_INLINE ORLIX_ROWS_TARGET RowLimits(const GridView<const double>& grid, int margin) {
    const std::int64_t rows = grid.dims.x + grid.slab;
    low = margin * (1 + rows);
    high = grid.slab * grid.dims.z - (margin + 1) * rows - margin - 16;
  }
};

// The linear indices of a block.
struct Nodes {
  const std::int32_t* of;
#ifdef ORLIX_ROWS_AVX512
  // Neighbours mostly lead to the same row of the grid: then two loads and a permutation do what takes eight otherwise.
  bool together;
  std::int64_t first;  // of sixteen values that hold all
  __m512i place;       // in them
#endif
};
ORLIX_INLINE ORLIX_ROWS_TARGET void Load(Nodes& nodes, const std::int32_t* from,
                                         [[maybe_unused]] const RowLimits& limits) {
#ifdef ORLIX_ROWS_AVX512
  // Room for the lanes below the first one's cell, and as much for those above it.
  std::int64_t first = from[0] - std::int64_t(3);
  first = first > limits.high ? limits.high : first;
  first = first < limits.low ? limits.low : first;
  const __m256i node = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
  const __m256i place = _mm256_sub_epi32(node, _mm256_set1_epi32(static_cast<std::int32_t>(first)));
  nodes.together = _mm256_cmple_epu32_mask(place, _mm256_set1_epi32(14)) == kAllLanes;
  nodes.first = first;
  nodes.place = _mm512_maskz_cvtepi32_epi64(kAllLanes, place);
#endif
  nodes.of = from;
}

// low[l] = data[node l], high[l] = data[node l + 1].
ORLIX_INLINE ORLIX_ROWS_TARGET void LoadPairs(const double* data, const Nodes& nodes, F& low, F& high) {
  const std::int32_t* n = nodes.of;
#if defined(ORLIX_ROWS_AVX512)
  if (nodes.together) {
    const F a = _mm512_loadu_pd(data + nodes.first), b = _mm512_loadu_pd(data + nodes.first + 8);
    low = _mm512_permutex2var_pd(a, nodes.place, b);
    high = _mm512_permutex2var_pd(a, _mm512_add_epi64(nodes.place, _mm512_set1_epi64(1)), b);
    return;
  }
  F even = _mm512_castpd128_pd512(_mm_loadu_pd(data + n[0])), odd = _mm512_castpd128_pd512(_mm_loadu_pd(data + n[1]));
  even = _mm512_insertf64x2(even, _mm_loadu_pd(data + n[2]), 1);
  odd = _mm512_insertf64x2(odd, _mm_loadu_pd(data + n[3]), 1);
  even = _mm512_insertf64x2(even, _mm_loadu_pd(data + n[4]), 2);
  odd = _mm512_insertf64x2(odd, _mm_loadu_pd(data + n[5]), 2);
  even = _mm512_insertf64x2(even, _mm_loadu_pd(data + n[6]), 3);
  odd = _mm512_insertf64x2(odd, _mm_loadu_pd(data + n[7]), 3);
  low = __builtin_shufflevector(even, odd, 0, 8, 2, 10, 4, 12, 6, 14);
  high = __builtin_shufflevector(even, odd, 1, 9, 3, 11, 5, 13, 7, 15);
#elif defined(ORLIX_ROWS_AVX)
  const F even = _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_loadu_pd(data + n[0])), _mm_loadu_pd(data + n[2]), 1);
  const F odd = _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_loadu_pd(data + n[1])), _mm_loadu_pd(data + n[3]), 1);
  low = _mm256_unpacklo_pd(even, odd);
  high = _mm256_unpackhi_pd(even, odd);
#else
  for (int l = 0; l < kLanes; ++l) low[l] = data[n[l]], high[l] = data[n[l] + 1];
#endif
}

// The last block of a run overlaps the one before it, and gives the same values again. A run has at least a block.
ORLIX_INLINE ORLIX_ROWS_TARGET int BlockStart(int next, int count) {
  return next + kLanes <= count ? next : count - kLanes;
}

// From nodes to linear indices of a grid.
struct Indexer {
  F nx, slab;
  ORLIX_INLINE ORLIX_ROWS_TARGET explicit Indexer(const GridView<const double>& grid)
      : nx(F{} + static_cast<double>(grid.dims.x)), slab(F{} + static_cast<double>(grid.slab)) {}
  ORLIX_INLINE ORLIX_ROWS_TARGET void Store(std::int32_t* to, const F& i, const F& j, const F& k) const {
    const F linear = i + nx * j + slab * k;
    const I index = __builtin_convertvector(linear, I);
    __builtin_memcpy(to, &index, sizeof index);
  }
};

// The trilinear interpolation of SampleTrilinear in cells whose linear indices and fractions stand in arrays.
ORLIX_INLINE ORLIX_ROWS_TARGET void TrilinearRun(const GridView<const double>& view, const std::int32_t* cell,
                                                 const double* fractionX, const double* fractionY,
                                                 const double* fractionZ, int count, double* value) {
  const double *p00 = view.data, *p10 = p00 + view.dims.x, *p01 = p00 + view.slab, *p11 = p01 + view.dims.x;
  const RowLimits limits(view, 0);
  for (int next = 0; next < count; next += kLanes) {
    const int l = BlockStart(next, count);
    F fx, fy, fz, a0, a1, b0, b1;
    Load(fx, fractionX + l), Load(fy, fractionY + l), Load(fz, fractionZ + l);
    const F gx = 1.0 - fx, gy = 1.0 - fy, gz = 1.0 - fz;
    Nodes nodes;
    Load(nodes, cell + l, limits);
    LoadPairs(p00, nodes, a0, a1);
    LoadPairs(p10, nodes, b0, b1);
    const F low = (a0 * gx + a1 * fx) * gy + (b0 * gx + b1 * fx) * fy;
    LoadPairs(p01, nodes, a0, a1);
    LoadPairs(p11, nodes, b0, b1);
    const F high = (a0 * gx + a1 * fx) * gy + (b0 * gx + b1 * fx) * fy;
    Store(value + l, low * gz + high * fz);
  }
}

// --- the trace -------------------------------------------------------------------------------------------------------

// The velocity at the samples of a run: they stand on nodes of the component's grid or half way between them.
ORLIX_INLINE ORLIX_ROWS_TARGET void FirstVelocity(const VelocityView& velocity, const Vec3D& offset,
                                                  AdvectionRun& run) {
  for (int component = 0; component < 3; ++component) {
    const GridView<const double>& grid = velocity.component[component];
    const std::int64_t strides[3] = {1, grid.dims.x, grid.slab};
    std::int64_t start = grid.Index(run.begin, run.j, run.k), halves[2] = {0, 0};
    int between = 0;
    for (int axis = 0; axis < 3; ++axis) {
      const double shift = offset[axis] - (axis == component ? 0.0 : 0.5);
      if (shift == 0) continue;
      if (shift < 0) start -= strides[axis];
      halves[between++] = strides[axis];
    }
    const double *p = grid.data + start, *q = p + halves[0];
    const double *r = p + halves[1], *s = q + halves[1];
    for (int next = 0; next < run.count; next += kLanes) {
      const int l = BlockStart(next, run.count);
      F a, b, c, d;
      Load(a, p + l);
      if (between > 0) Load(b, q + l), a = a * 0.5 + b * 0.5;
      if (between > 1) Load(c, r + l), Load(d, s + l), a = a * 0.5 + (c * 0.5 + d * 0.5) * 0.5;
      Store(run.velocity[0][component] + l, a);
    }
  }
}

// The samples' places: a row changes only in x.
struct Starts {
  F x, y, z;
  ORLIX_INLINE ORLIX_ROWS_TARGET explicit Starts(const AdvectionRun& run)
      : x(F{} + run.start.x), y(F{} + run.start.y), z(F{} + run.start.z) {
    for (int l = 0; l < kLanes; ++l) x[l] = run.start.x + l;
  }
  ORLIX_INLINE ORLIX_ROWS_TARGET void At(int l, Block3& p) const { p.x = x + static_cast<double>(l), p.y = y, p.z = z; }
};

ORLIX_INLINE ORLIX_ROWS_TARGET void LoadVelocity(const AdvectionRun& run, int stage, int l, Block3& v) {
  Load(v.x, run.velocity[stage][0] + l), Load(v.y, run.velocity[stage][1] + l), Load(v.z, run.velocity[stage][2] + l);
}

// Finds the nodes and fractions of the three components at the points that the velocity of a stage leads to. Blocks
// that lie too near to the ends of the arrays are marked in run.again and take any node.
ORLIX_INLINE ORLIX_ROWS_TARGET void LocateVelocity(const VelocityView& view, double step, int stage,
                                                   AdvectionRun& run) {
  const Indexer indexU(view.component[0]), indexV(view.component[1]), indexW(view.component[2]);
  const F half = F{} + 0.5, stepLanes = F{} + step;
  Block3 begin, end;
  Broadcast(begin, Vec3D(0.5));
  Broadcast(end, Vec3D(view.component[1].dims.x, view.component[0].dims.y, view.component[0].dims.z) - Vec3D(0.5));
  const Starts starts(run);
  const int count = run.count;
  for (int next = 0; next < count; next += kLanes) {
    const int l = BlockStart(next, count);
    Block3 p, v;
    starts.At(l, p);
    LoadVelocity(run, stage, l, v);
    p.x = p.x + stepLanes * v.x, p.y = p.y + stepLanes * v.y, p.z = p.z + stepLanes * v.z;
    if (LanesWithin(p, begin, end) != kAllLanes) {
      run.again |= 1u << (next / kLanes);
      Broadcast(p, Vec3D(1));
    }
    const F x = p.x, y = p.y, z = p.z;
    // Nodes along a component's own axis, and along the two others.
    F ix, iy, iz, jx, jy, jz;
    const F sx = x - half, sy = y - half, sz = z - half;
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
ORLIX_INLINE ORLIX_ROWS_TARGET void Combine(const AdvectionRun& run, double step, int l, Block3& p) {
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
  F offsetX, offsetY, offsetZ;
  Block3 begin, end;  // within [margin, n - 1 - margin)

  ORLIX_INLINE ORLIX_ROWS_TARGET SourceLattice(const AdvectionSource& source, int margin)
      : grid(source.values),
        index(source.values),
        offsetX(F{} + source.offset.x),
        offsetY(F{} + source.offset.y),
        offsetZ(F{} + source.offset.z) {
    Broadcast(begin, Vec3D(margin) + source.offset);
    Broadcast(end, Vec3D(grid.dims - VecInt3D(1 + margin, 1 + margin, 1 + margin)) + source.offset);
  }

  ORLIX_INLINE ORLIX_ROWS_TARGET bool Holds(const Block3& p) const { return LanesWithin(p, begin, end) == kAllLanes; }
  ORLIX_INLINE ORLIX_ROWS_TARGET void Locate(const F& x, const F& y, const F& z, int l, std::int32_t* cell,
                                             AdvectionRun& run) const {
    F i, j, k;
    Whole(i, x), Whole(j, y), Whole(k, z);
    Store(run.own[0] + l, x - i), Store(run.own[1] + l, y - j), Store(run.own[2] + l, z - k);
    index.Store(cell + l, i, j, k);
  }
};

// AdvectionField::Resolve against the container: gives the lanes that moved.
ORLIX_INLINE ORLIX_ROWS_TARGET unsigned ClampBlock(const VecInt3D& n, Block3& p) {
  const double low = AdvectionField::kInset;
  const M lowX = ~(p.x >= 1.0), lowY = ~(p.y >= 1.0), lowZ = ~(p.z >= 1.0);
  const M highX = p.x > static_cast<double>(n.x - 2), highY = p.y > static_cast<double>(n.y - 2);
  const M highZ = p.z > static_cast<double>(n.z - 2);
  p.x = lowX ? F{} + low : highX ? F{} + (n.x - 1 - low) : p.x;
  p.y = lowY ? F{} + low : highY ? F{} + (n.y - 1 - low) : p.y;
  p.z = lowZ ? F{} + low : highZ ? F{} + (n.z - 1 - low) : p.z;
  return Bits(lowX | lowY | lowZ | highX | highY | highZ);
}

// Numbers below this one are at most last, which is not negative.
ORLIX_INLINE ORLIX_ROWS_TARGET double JustBehind(int last) {
  return std::bit_cast<double>(std::bit_cast<std::uint64_t>(double(last)) + 1);
}

// From the stages' velocities to run.place, clamped to the domain, and on to the source's cells. Blocks that may lie in
// an obstacle are marked in run.near, blocks whose sample needs clamps in run.again.
template <Integrator kIntegrator>
ORLIX_ROWS_TARGET void Arrive(const AdvectionField& field, const AdvectionSource& source, AdvectionRun& run) {
  const double step = field.Step();
  const bool walls = field.solid.HasData(), obstacles = walls && !field.bricks->IsEmpty();
  const VecInt3D n = walls ? field.solid.nodes().dims : VecInt3D();
  Block3 begin, end, low, high;
  Broadcast(begin, Vec3D(1));
  Broadcast(end, Vec3D(JustBehind(n.x - 2), JustBehind(n.y - 2), JustBehind(n.z - 2)));
  Broadcast(low, Vec3D(obstacles ? field.bricks->min() : VecInt3D()));
  Broadcast(high, Vec3D(obstacles ? field.bricks->max() + VecInt3D(1, 1, 1) : VecInt3D()));
  const SourceLattice lattice(source, 0);
  const Starts starts(run);
  const int count = run.count;
  std::uint64_t moved = 0;
  for (int next = 0; next < count; next += kLanes) {
    const int l = BlockStart(next, count);
    Block3 p;
    starts.At(l, p);
    Combine<kIntegrator>(run, step, l, p);
    if (walls) {
      // A point within the walls lies in the source's lattice, too, and after the clamp all do.
      if (LanesWithin(p, begin, end) != kAllLanes) {
        moved |= std::uint64_t(ClampBlock(n, p)) << l;
      }
      if (obstacles && LanesWithin(p, low, high) != 0) run.near |= 1u << (next / kLanes);
    }
    Store(run.place[0] + l, p.x), Store(run.place[1] + l, p.y), Store(run.place[2] + l, p.z);
    if (!walls && !lattice.Holds(p)) {
      run.again |= 1u << (next / kLanes);
      Broadcast(p, Vec3D(1.5));
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

ORLIX_INLINE ORLIX_ROWS_TARGET void QuadraticBSpline(const GridView<const double>& grid, const Nodes& centre,
                                                     const F& fx, const F& fy, const F& fz, F& value) {
  F w[3][3];
  const F* fractions[3] = {&fx, &fy, &fz};
  for (int axis = 0; axis < 3; ++axis) {
    const F f = *fractions[axis];
    w[axis][0] = (f - 1.0) * (f - 1.0) / 2.0;
    w[axis][1] = 0.75 - (f - 0.5) * (f - 0.5);
    w[axis][2] = f * f / 2.0;
  }
  value = F{};
  for (int k = 0; k < 3; ++k) {
    F layer{};
    for (int j = 0; j < 3; ++j) {
      const double* row = grid.data + (grid.slab * (k - 1) + std::int64_t(grid.dims.x) * (j - 1) - 1);
      F a, b, c, again;
      LoadPairs(row, centre, a, again);
      LoadPairs(row + 1, centre, b, c);
      layer = layer + (a * w[0][0] + b * w[0][1] + c * w[0][2]) * w[1][j];
    }
    value = value + layer * w[2][k];
  }
}

ORLIX_INLINE ORLIX_ROWS_TARGET void MonotoneCubic(const F& fm, const F& f0, const F& f1, const F& f2, const F& t,
                                                  F& value) {
  const F zero{}, d = f1 - f0;
  F m0 = (f1 - fm) / 2.0, m1 = (f2 - f0) / 2.0;
  // With d = 0 no product is above 0, so that both slopes vanish.
  m0 = m0 * d > 0.0 ? m0 : zero;
  m1 = m1 * d > 0.0 ? m1 : zero;
  const F t2 = t * t;
  const F p = (m0 + m1 - 2.0 * d) * t2 * t + (3.0 * d - 2.0 * m0 - m1) * t2 + m0 * t + f0;
  const F low = f0 < f1 ? f0 : f1, high = f0 < f1 ? f1 : f0;
  value = p < low ? low : high < p ? high : p;
}

ORLIX_INLINE ORLIX_ROWS_TARGET void MonotoneTricubic(const GridView<const double>& grid, const Nodes& cell, const F& fx,
                                                     const F& fy, const F& fz, F& value) {
  F layer[4];
  for (int k = 0; k < 4; ++k) {
    F line[4];
    for (int j = 0; j < 4; ++j) {
      const double* row = grid.data + (grid.slab * (k - 1) + std::int64_t(grid.dims.x) * (j - 1) - 1);
      F a, b, c, d;
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
  const RowLimits limits(source.values, 1);
  for (int next = 0; next < run.count; next += kLanes) {
    const int l = BlockStart(next, run.count);
    Block3 p;
    Load(p.x, run.place[0] + l), Load(p.y, run.place[1] + l), Load(p.z, run.place[2] + l);
    if (!lattice.Holds(p)) {
      run.again |= 1u << (next / kLanes);
      continue;
    }
    F x = p.x - lattice.offsetX, y = p.y - lattice.offsetY, z = p.z - lattice.offsetZ, value;
    if (spline) x = x + 0.5, y = y + 0.5, z = z + 0.5;
    lattice.Locate(x, y, z, l, run.node[0], run);
    Nodes nodes;
    Load(nodes, run.node[0] + l, limits);
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
ORLIX_INLINE ORLIX_ROWS_TARGET void CornerRange(const GridView<const double>& grid, const RowLimits& limits,
                                                const std::int32_t* cell, F& low, F& high) {
  std::int32_t index[kLanes];
  I recorded;
  Load(recorded, cell);
  Store(index, recorded < 0 ? I{} : recorded);
  Nodes nodes;
  Load(nodes, index, limits);
  const std::int64_t rows[4] = {0, grid.dims.x, grid.slab, grid.dims.x + grid.slab};
  F a, b;
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
  const RowLimits limits(grid, 0);
  for (int next = 0; next < run.count; next += kLanes) {
    const int l = BlockStart(next, run.count);
    F source, forward, back, low, high;
    Load(source, row.source + l), Load(forward, row.forward + l), Load(back, run.value + l);
    I cell;
    Load(cell, row.traced + l);
    CornerRange(grid, limits, row.traced + l, low, high);
    const F corrected = forward + strength * (source - back);
    F limited = corrected < low ? low : high < corrected ? high : corrected;
    const M moved = __builtin_convertvector(cell == kMovedCell, M);
    const M solid = __builtin_convertvector(cell == kSolidCell, M);
    limited = moved ? forward : limited;
    Store(row.result + l, solid ? strength * source : limited);
  }
}

}  // namespace ORLIX_ROWS
}  // namespace orlix
