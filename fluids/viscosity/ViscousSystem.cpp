#include "fluids/viscosity/ViscousSystem.h"

#include "globals/Multiversion.h"

namespace orlix {

namespace {

// Pointers to the faces, cells and edges with index (0, j, k), and the steps from them to their neighbours. a is the
// row's own axis, b and c are the other two.
struct Row {
  const double *u, *v, *w;                  // components a, b, c
  std::int64_t ua, ub, uc, va, vb, wa, wc;  // steps in u along a, b, c; in v along a, b; in w along a, c
  const float *centre, *edgeB, *edgeC, *around;
  std::int64_t cellA, cellB, cellC, edgeStepB, edgeStepC;
  const std::uint8_t* states;
  const double* viscosity;  // of cells; null: `constant` everywhere
  double constant, scale;
};

template <class T>
std::int64_t Step(const GridView<T>& view, int axis) {
  return axis == 0 ? 1 : axis == 1 ? view.dims.x : view.slab;
}

Row RowAt(const ViscousSystem& s, const GridView<const double> (*x)[3], int axis, int j, int k) {
  const int b = axis == 0 ? 1 : 0, c = axis == 2 ? 1 : 2;
  Row row{};
  if (x) {
    const GridView<const double>&u = (*x)[axis], &v = (*x)[b], &w = (*x)[c];
    row.u = &u(0, j, k), row.v = &v(0, j, k), row.w = &w(0, j, k);
    row.ua = Step(u, axis), row.ub = Step(u, b), row.uc = Step(u, c);
    row.va = Step(v, axis), row.vb = Step(v, b), row.wa = Step(w, axis), row.wc = Step(w, c);
  }
  const GridView<const float>&edgeB = s.edge[axis + b - 1], &edgeC = s.edge[axis + c - 1];
  row.centre = &s.centre(0, j, k), row.edgeB = &edgeB(0, j, k), row.edgeC = &edgeC(0, j, k);
  row.around = &s.around[axis](0, j, k), row.states = &s.states[axis](0, j, k);
  row.cellA = Step(s.centre, axis), row.cellB = Step(s.centre, b), row.cellC = Step(s.centre, c);
  row.edgeStepB = Step(edgeB, b), row.edgeStepC = Step(edgeC, c);
  row.viscosity = s.viscosity.data ? &s.viscosity(0, j, k) : nullptr;
  row.constant = s.constant, row.scale = s.scale;
  return row;
}

// The six stress coefficients of a face, dt / h^2 included.
struct Stress {
  double aHigh, aLow, bHigh, bLow, cHigh, cLow;
};

template <bool kByCell>
inline Stress StressAt(const Row& r, std::int64_t i) {
  const double f = r.scale;
  if constexpr (!kByCell) {
    const double m = f * r.constant, m2 = 2 * m;
    return {r.centre[i] * m2, r.centre[i - r.cellA] * m2,   r.edgeB[i + r.edgeStepB] * m,
            r.edgeB[i] * m,   r.edgeC[i + r.edgeStepC] * m, r.edgeC[i] * m};
  } else {
    const double* m = r.viscosity + i;
    const std::int64_t a = r.cellA, b = r.cellB, c = r.cellC;
    const double pair = m[0] + m[-a];
    return {r.centre[i] * (2 * f * m[0]),
            r.centre[i - a] * (2 * f * m[-a]),
            r.edgeB[i + r.edgeStepB] * (f * 0.25 * (pair + m[b] + m[b - a])),
            r.edgeB[i] * (f * 0.25 * (pair + m[-b] + m[-b - a])),
            r.edgeC[i + r.edgeStepC] * (f * 0.25 * (pair + m[c] + m[c - a])),
            r.edgeC[i] * (f * 0.25 * (pair + m[-c] + m[-c - a]))};
  }
}

template <bool kByCell>
inline double ProductAt(const Row& r, std::int64_t i) {
  const Stress s = StressAt<kByCell>(r, i);
  const double *u = r.u + i, *v = r.v + i, *w = r.w + i;
  const double along = s.aHigh * (u[r.ua] - u[0]) - s.aLow * (u[0] - u[-r.ua]);
  const double acrossB =
      s.bHigh * (u[r.ub] - u[0] + v[r.vb] - v[r.vb - r.va]) - s.bLow * (u[0] - u[-r.ub] + v[0] - v[-r.va]);
  const double acrossC =
      s.cHigh * (u[r.uc] - u[0] + w[r.wc] - w[r.wc - r.wa]) - s.cLow * (u[0] - u[-r.uc] + w[0] - w[-r.wa]);
  return r.around[i] * u[0] - (along + acrossB + acrossC);
}

ORLIX_MULTIVERSION void Multiply(const Row& row, std::int64_t first, std::int64_t end, double* __restrict product) {
  const Row r = row;
  if (r.viscosity) {
    for (std::int64_t i = first; i < end; ++i) product[i] = r.states[i] == FaceSolved ? ProductAt<true>(r, i) : 0;
  } else {
    for (std::int64_t i = first; i < end; ++i) {
      const double value = ProductAt<false>(r, i);
      product[i] = r.states[i] == FaceSolved ? value : 0;
    }
  }
}

}  // namespace

ViscousRows::ViscousRows(const ViscousSystem& system, WorkerPool& pool) {
  std::vector<std::int64_t> counts(std::size_t(pool.count()), 0);
  for (int axis = 0; axis < 3; ++axis) {
    const GridView<const std::uint8_t>& states = system.states[axis];
    dims_[axis] = states.dims;
    spans_[axis].resize(std::size_t(states.dims.y) * std::size_t(states.dims.z));
    ParallelRange(pool, 0, states.dims.z, [&](int k0, int k1, int worker) {
      for (int k = k0; k < k1; ++k) {
        for (int j = 0; j < states.dims.y; ++j) {
          const std::uint8_t* row = &states(0, j, k);
          Span& span = spans_[axis][std::size_t(k) * std::size_t(states.dims.y) + std::size_t(j)];
          for (int i = 0; i < states.dims.x; ++i) {
            if (row[i] != FaceSolved) continue;
            if (span.end == 0) span.first = i;
            span.end = i + 1;
            ++counts[std::size_t(worker)];
          }
        }
      }
    });
  }
  for (const std::int64_t count : counts) unknowns_ += count;
}

void MultiplyViscousRow(const ViscousSystem& system, const GridView<const double> (&x)[3], int axis, int j, int k,
                        int first, int end, double* product) {
  Multiply(RowAt(system, &x, axis, j, k), first, end, product);
}

void ViscousDiagonalRow(const ViscousSystem& system, int axis, int j, int k, int first, int end, double* diagonal) {
  const Row row = RowAt(system, nullptr, axis, j, k);
  for (int i = first; i < end; ++i) {
    if (row.states[i] != FaceSolved) {
      diagonal[i] = 0;
      continue;
    }
    const Stress s = row.viscosity ? StressAt<true>(row, i) : StressAt<false>(row, i);
    diagonal[i] = row.around[i] + (s.aHigh + s.aLow + s.bHigh + s.bLow + s.cHigh + s.cLow);
  }
}

}  // namespace orlix
