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

ORLIX_ROW_INLINE void Load(F4& v, const double* from) { __builtin_memcpy(&v, from, sizeof v); }
ORLIX_ROW_INLINE void Store(double* to, const F4& v) { __builtin_memcpy(to, &v, sizeof v); }
ORLIX_ROW_INLINE void Load(I4& v, const std::int32_t* from) { __builtin_memcpy(&v, from, sizeof v); }
ORLIX_ROW_INLINE void Store(std::int32_t* to, const I4& v) { __builtin_memcpy(to, &v, sizeof v); }

ORLIX_ROW_INLINE bool All(const M4& m) {
#ifdef ORLIX_ROWS_AVX
  return _mm256_movemask_pd(reinterpret_cast<__m256d>(m)) == 15;
#else
  return (m[0] & m[1] & m[2] & m[3]) != 0;
#endif
}

// The whole part of non-negative numbers below 2^31.
ORLIX_ROW_INLINE void Whole(F4& whole, const F4& x) {
#ifdef ORLIX_ROWS_AVX
  whole = _mm256_round_pd(x, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
#else
  whole = __builtin_convertvector(__builtin_convertvector(x, I4), F4);
#endif
}

ORLIX_ROW_INLINE void Narrow(I4& narrow, const M4& m) { narrow = __builtin_convertvector(m, I4); }

// low[l] = data[index[l]], high[l] = data[index[l] + 1].
ORLIX_ROW_INLINE void LoadPairs(const double* data, const std::int32_t* index, F4& low, F4& high) {
  F2 a, b, c, d;
  __builtin_memcpy(&a, data + index[0], sizeof a);
  __builtin_memcpy(&b, data + index[1], sizeof b);
  __builtin_memcpy(&c, data + index[2], sizeof c);
  __builtin_memcpy(&d, data + index[3], sizeof d);
  const F4 ac = __builtin_shufflevector(a, c, 0, 1, 2, 3), bd = __builtin_shufflevector(b, d, 0, 1, 2, 3);
  low = __builtin_shufflevector(ac, bd, 0, 4, 2, 6);
  high = __builtin_shufflevector(ac, bd, 1, 5, 3, 7);
}

// The last block of a run overlaps the one before it, and gives the same values again. A run has at least four cells.
ORLIX_ROW_INLINE int BlockStart(int next, int count) { return next + 4 <= count ? next : count - 4; }

ORLIX_ROW_INLINE void LinearIndex(const GridView<const double>& grid, const F4& i, const F4& j, const F4& k,
                                  I4& index) {
  const F4 linear = i + static_cast<double>(grid.dims.x) * j + static_cast<double>(grid.slab) * k;
  index = __builtin_convertvector(linear, I4);
}

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
    LoadPairs(p00, cell + l, a0, a1);
    LoadPairs(p10, cell + l, b0, b1);
    const F4 low = (a0 * gx + a1 * fx) * gy + (b0 * gx + b1 * fx) * fy;
    LoadPairs(p01, cell + l, a0, a1);
    LoadPairs(p11, cell + l, b0, b1);
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

// run.velocity[stage] is the velocity at run.position. Blocks that lie too near to the ends of the arrays are marked in
// run.again and take any value.
ORLIX_ROWS_TARGET inline void VelocityAtPositions(const VelocityView& velocity, int stage, AdvectionRun& run) {
  const GridView<const double> gu = velocity.component[0], gv = velocity.component[1], gw = velocity.component[2];
  const double endX = gv.dims.x - 0.5, endY = gu.dims.y - 0.5, endZ = gu.dims.z - 0.5;
  const F4 inside = F4{} + 1.0;
  for (int next = 0; next < run.count; next += 4) {
    const int l = BlockStart(next, run.count);
    F4 x, y, z;
    Load(x, run.position[0] + l), Load(y, run.position[1] + l), Load(z, run.position[2] + l);
    const M4 fits = (x >= 0.5) & (x < endX) & (y >= 0.5) & (y < endY) & (z >= 0.5) & (z < endZ);
    if (!All(fits)) {
      run.again |= 1u << (next >> 2);
      x = y = z = inside;
    }
    // Nodes along a component's own axis, and along the two others.
    F4 ix, iy, iz, jx, jy, jz;
    const F4 sx = x - 0.5, sy = y - 0.5, sz = z - 0.5;
    Whole(ix, x), Whole(iy, y), Whole(iz, z), Whole(jx, sx), Whole(jy, sy), Whole(jz, sz);
    Store(run.own[0] + l, x - ix), Store(run.own[1] + l, y - iy), Store(run.own[2] + l, z - iz);
    Store(run.other[0] + l, sx - jx), Store(run.other[1] + l, sy - jy), Store(run.other[2] + l, sz - jz);
    I4 u, v, w;
    LinearIndex(gu, ix, jy, jz, u), LinearIndex(gv, jx, iy, jz, v), LinearIndex(gw, jx, jy, iz, w);
    Store(run.node[0] + l, u), Store(run.node[1] + l, v), Store(run.node[2] + l, w);
  }
  TrilinearRun(gu, run.node[0], run.own[0], run.other[1], run.other[2], run.count, run.velocity[stage][0]);
  TrilinearRun(gv, run.node[1], run.other[0], run.own[1], run.other[2], run.count, run.velocity[stage][1]);
  TrilinearRun(gw, run.node[2], run.other[0], run.other[1], run.own[2], run.count, run.velocity[stage][2]);
}

// The samples' place in an axis: a row changes only in x.
ORLIX_ROW_INLINE void StartOf(const AdvectionRun& run, int axis, int l, F4& x) {
  x = axis == 0 ? F4{0, 1, 2, 3} + (run.start.x + l) : F4{} + run.start[axis];
}

// run.position = start + step k[stage].
ORLIX_ROW_INLINE void Advance(double step, int stage, AdvectionRun& run) {
  for (int axis = 0; axis < 3; ++axis) {
    for (int next = 0; next < run.count; next += 4) {
      const int l = BlockStart(next, run.count);
      F4 x, k;
      StartOf(run, axis, l, x);
      Load(k, run.velocity[stage][axis] + l);
      Store(run.position[axis] + l, x + step * k);
    }
  }
}

// The last step of TracePoint.
template <Integrator kIntegrator>
ORLIX_ROW_INLINE void Combine(double step, AdvectionRun& run) {
  for (int axis = 0; axis < 3; ++axis) {
    for (int next = 0; next < run.count; next += 4) {
      const int l = BlockStart(next, run.count);
      F4 x, k1, k2;
      StartOf(run, axis, l, x);
      Load(k1, run.velocity[0][axis] + l), Load(k2, run.velocity[1][axis] + l);
      if constexpr (kIntegrator == Integrator::Heun) {
        x = x + step * (k1 + k2) * 0.5;
      } else if constexpr (kIntegrator == Integrator::Ralston) {
        F4 k3;
        Load(k3, run.velocity[2][axis] + l);
        x = x + step * ((2.0 / 9.0) * k1 + (1.0 / 3.0) * k2 + (4.0 / 9.0) * k3);
      } else {
        F4 k3, k4;
        Load(k3, run.velocity[2][axis] + l), Load(k4, run.velocity[3][axis] + l);
        x = x + step * (k1 + 2.0 * k2 + 2.0 * k3 + k4) / 6.0;
      }
      Store(run.position[axis] + l, x);
    }
  }
}

// TracePoint for a run.
ORLIX_ROWS_TARGET inline void TraceRun(const AdvectionField& field, AdvectionRun& run) {
  const double step = field.Step();
  const VelocityView& velocity = field.velocity;
  switch (field.integrator) {
    case Integrator::Euler:
      Advance(step, 0, run);
      break;
    case Integrator::Heun:
      Advance(step, 0, run);
      VelocityAtPositions(velocity, 1, run);
      Combine<Integrator::Heun>(step, run);
      break;
    case Integrator::Ralston:
      Advance(step * 0.5, 0, run);
      VelocityAtPositions(velocity, 1, run);
      Advance(step * 0.75, 1, run);
      VelocityAtPositions(velocity, 2, run);
      Combine<Integrator::Ralston>(step, run);
      break;
    case Integrator::RungeKutta4:
      Advance(step * 0.5, 0, run);
      VelocityAtPositions(velocity, 1, run);
      Advance(step * 0.5, 1, run);
      VelocityAtPositions(velocity, 2, run);
      Advance(step, 2, run);
      VelocityAtPositions(velocity, 3, run);
      Combine<Integrator::RungeKutta4>(step, run);
      break;
  }
}

ORLIX_ROW_INLINE void ClampAxis(F4& x, int n, M4& moved) {
  const F4 low = F4{} + AdvectionField::kInset, high = F4{} + (n - 1 - AdvectionField::kInset);
  const M4 below = x<1.0, above = x> static_cast<double>(n - 2);
  x = below ? low : above ? high : x;
  moved |= below | above;
}

// AdvectionField::Resolve for a run, from run.position to run.place: the clamp to the domain, and which blocks are near
// enough to obstacles to ask for the distance.
ORLIX_ROWS_TARGET inline void ClampRun(const AdvectionField& field, AdvectionRun& run) {
  const VecInt3D n = field.solid.nodes().dims;
  const bool obstacles = !field.bricks->IsEmpty();
  const Vec3D low(field.bricks->min()), high(field.bricks->max() + VecInt3D(1, 1, 1));
  for (int next = 0; next < run.count; next += 4) {
    const int l = BlockStart(next, run.count);
    F4 x, y, z;
    Load(x, run.position[0] + l), Load(y, run.position[1] + l), Load(z, run.position[2] + l);
    M4 mask{};
    ClampAxis(x, n.x, mask), ClampAxis(y, n.y, mask), ClampAxis(z, n.z, mask);
    I4 moved;
    Narrow(moved, mask);
    Store(run.place[0] + l, x), Store(run.place[1] + l, y), Store(run.place[2] + l, z);
    Store(run.moved + l, moved);
    if (!obstacles) continue;
    const M4 far = (x < low.x) | (x >= high.x) | (y < low.y) | (y >= high.y) | (z < low.z) | (z >= high.z);
    if (!All(far)) run.near |= 1u << (next >> 2);
  }
}

// --- the samples -----------------------------------------------------------------------------------------------------

ORLIX_ROW_INLINE void QuadraticBSpline(const GridView<const double>& grid, const std::int32_t* centre, const F4& fx,
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

ORLIX_ROW_INLINE void MonotoneTricubic(const GridView<const double>& grid, const std::int32_t* cell, const F4& fx,
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

// The source's cells and fractions at run.place, moved by shift; run.again marks blocks whose nodes don't all lie
// within [margin, n - 2 - margin].
ORLIX_ROW_INLINE void LocateRun(const AdvectionSource& source, double shift, int margin, std::int32_t* cell,
                                AdvectionRun& run) {
  const GridView<const double> grid = source.values;
  const Vec3D offset = source.offset, end(grid.dims - VecInt3D(1 + margin, 1 + margin, 1 + margin));
  const double begin = margin;
  const F4 inside = F4{} + 1.0;
  for (int next = 0; next < run.count; next += 4) {
    const int l = BlockStart(next, run.count);
    F4 x, y, z, i, j, k;
    Load(x, run.place[0] + l), Load(y, run.place[1] + l), Load(z, run.place[2] + l);
    x = x - offset.x, y = y - offset.y, z = z - offset.z;
    const M4 fits = (x >= begin) & (x < end.x) & (y >= begin) & (y < end.y) & (z >= begin) & (z < end.z);
    if (!All(fits)) {
      run.again |= 1u << (next >> 2);
      x = y = z = inside;
    }
    x = x + shift, y = y + shift, z = z + shift;
    Whole(i, x), Whole(j, y), Whole(k, z);
    Store(run.own[0] + l, x - i), Store(run.own[1] + l, y - j), Store(run.own[2] + l, z - k);
    I4 linear;
    LinearIndex(grid, i, j, k, linear);
    Store(cell + l, linear);
  }
}

// Samples source at run.place into run.value. With record, run.cell takes the linear index of the source cell in
// which the point lies, or kMovedCell.
ORLIX_ROWS_TARGET inline void SampleRun(const AdvectionSource& source, bool record, AdvectionRun& run) {
  const GridView<const double> grid = source.values;
  const bool spline = source.sampling == AdvectionSampling::QuadraticBSpline;
  if (!spline && source.sampling != AdvectionSampling::MonotoneCubic) {
    LocateRun(source, 0.0, 0, run.cell, run);
    TrilinearRun(grid, run.cell, run.own[0], run.own[1], run.own[2], run.count, run.value);
  } else {
    if (record || !spline) LocateRun(source, 0.0, 1, run.cell, run);
    if (spline) LocateRun(source, 0.5, 1, run.node[0], run);
    for (int next = 0; next < run.count; next += 4) {
      const int l = BlockStart(next, run.count);
      F4 x, y, z, value;
      Load(x, run.own[0] + l), Load(y, run.own[1] + l), Load(z, run.own[2] + l);
      if (spline) {
        QuadraticBSpline(grid, run.node[0] + l, x, y, z, value);
      } else {
        MonotoneTricubic(grid, run.cell + l, x, y, z, value);
      }
      Store(run.value + l, value);
    }
  }
  if (!record) return;
  for (int next = 0; next < run.count; next += 4) {
    const int l = BlockStart(next, run.count);
    I4 cell, moved;
    Load(cell, run.cell + l), Load(moved, run.moved + l);
    Store(run.cell + l, cell | moved);
  }
}

// The range of the eight source cells of recorded cells.
ORLIX_ROW_INLINE void CornerRange(const GridView<const double>& grid, const std::int32_t* cell, F4& low, F4& high) {
  std::int32_t index[4];
  I4 recorded;
  Load(recorded, cell);
  Store(index, recorded < 0 ? I4{} : recorded);
  const std::int64_t rows[4] = {0, grid.dims.x, grid.slab, grid.dims.x + grid.slab};
  F4 a, b;
  LoadPairs(grid.data, index, a, b);
  low = a < b ? a : b, high = a < b ? b : a;
  for (int row = 1; row < 4; ++row) {
    LoadPairs(grid.data + rows[row], index, a, b);
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
