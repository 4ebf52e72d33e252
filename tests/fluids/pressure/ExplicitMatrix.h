#pragma once
// The pressure system as rows of an explicit matrix, with the incomplete factor and the solver written out for any
// matrix: slow, and what the matrix-free kernels must equal to the bit.

#include <cmath>
#include <map>
#include <vector>

#include "fluids/pressure/PressureRows.h"
#include "tests/support/PressureProblem.h"

namespace orlix::test {

struct ExplicitMatrix {
  explicit ExplicitMatrix(const PressureProblem& problem) : dims(problem.dims), rows(problem.system.count()) {
    problem.ForCells([&](int i, int j, int k) {
      if (!problem.HasEquation(i, j, k)) return;
      const std::int64_t c = problem.Cell(i, j, k);
      for (int axis = 0; axis < 3; ++axis) {
        const std::int64_t step = axis == 0 ? 1 : axis == 1 ? dims.x : std::int64_t(dims.x) * dims.y;
        const double high = problem.Coefficient(axis, i + (axis == 0), j + (axis == 1), k + (axis == 2));
        const double low = problem.Coefficient(axis, i, j, k);
        rows[c][c] += high;
        rows[c][c + step] += -high;
        rows[c][c] += low;
        rows[c][c - step] += -low;
      }
    });
  }

  double At(std::int64_t row, std::int64_t column) const {
    const auto found = rows[row].find(column);
    return found == rows[row].end() ? 0 : found->second;
  }
  std::vector<double> Times(const std::vector<double>& v) const {
    std::vector<double> out(rows.size());
    for (std::size_t r = 0; r < rows.size(); ++r) {
      double sum = 0;
      for (const auto& [column, value] : rows[r]) sum += value * v[column];
      out[r] = sum;
    }
    return out;
  }

  VecInt3D dims;
  std::vector<std::map<std::int64_t, double>> rows;
};

// The lower triangle by columns, eliminated column by column.
struct ExplicitFactor {
  ExplicitFactor(const ExplicitMatrix& a, double minDiagonalRatio, double modification)
      : inverse(a.rows.size(), 0.0), columns(a.rows.size()) {
    const std::size_t n = a.rows.size();
    std::vector<double> diagonal(n), pivot(n);
    for (std::size_t r = 0; r < n; ++r) {
      for (const auto& [column, value] : a.rows[r]) {
        if (column < std::int64_t(r)) columns[column][r] = value;
      }
      diagonal[r] = pivot[r] = a.At(r, r);
    }
    for (std::size_t k = 0; k < n; ++k) {
      if (diagonal[k] == 0) continue;
      inverse[k] = 1 / std::sqrt(pivot[k] < minDiagonalRatio * diagonal[k] ? diagonal[k] : pivot[k]);
      for (auto& [row, value] : columns[k]) value *= inverse[k];
      for (const auto& [j, m] : columns[k]) {
        double missing = 0;
        for (const auto& [row, value] : columns[k]) {
          if (row <= j) continue;
          const auto found = columns[j].find(row);
          found == columns[j].end() ? missing += value : found->second -= m * value;
        }
        for (const auto& [row, value] : columns[k]) {
          if (row < j && !a.rows[j].count(row)) missing += value;
        }
        pivot[j] -= m * m;
        pivot[j] -= modification * m * missing;
      }
    }
  }

  std::vector<double> Solve(std::vector<double> x) const {
    const auto n = std::int64_t(x.size());
    for (std::int64_t i = 0; i < n; ++i) {
      x[i] *= inverse[i];
      for (const auto& [row, value] : columns[i]) x[row] -= value * x[i];
    }
    for (std::int64_t i = n - 1; i >= 0; --i) {
      for (const auto& [row, value] : columns[i]) x[i] -= x[row] * value;
      x[i] *= inverse[i];
    }
    return x;
  }

  std::vector<double> inverse;
  std::vector<std::map<std::int64_t, double>> columns;
};

// Sums as the kernels form them: eight partial sums a layer, layers in order.
inline double LayeredDot(const VecInt3D& n, const std::vector<double>& a, const std::vector<double>& b) {
  double sum = 0;
  for (int k = 1; k < n.z - 1; ++k) {
    EightSums layer;
    for (int j = 1; j < n.y - 1; ++j) {
      const std::int64_t at = (std::int64_t(k) * n.y + j) * n.x + 1;
      layer.Add(a.data() + at, b.data() + at, n.x - 2);
    }
    sum += layer.Total();
  }
  return sum;
}

inline double Largest(const std::vector<double>& v) {
  double largest = 0;
  for (const double value : v) largest = std::max(largest, std::abs(value));
  return largest;
}

struct ExplicitSolution {
  std::vector<double> pressure;
  int iterations = 0;
};

inline ExplicitSolution SolveExplicitly(const ExplicitMatrix& a, std::vector<double> residual, int limit,
                                        double toleranceFactor) {
  ExplicitSolution solution{std::vector<double>(residual.size(), 0.0)};
  const double tolerance = Largest(residual) * toleranceFactor;
  const ExplicitFactor factor(a, 0.25, 0.97);
  std::vector<double> z = factor.Solve(residual), search = z;
  double rho = LayeredDot(a.dims, z, residual);
  for (int it = 1; it <= limit; ++it) {
    z = a.Times(search);
    const double alpha = rho / LayeredDot(a.dims, search, z);
    for (std::size_t c = 0; c < z.size(); ++c) {
      solution.pressure[c] += alpha * search[c];
      residual[c] -= alpha * z[c];
    }
    solution.iterations = it;
    if (!(Largest(residual) > tolerance)) break;
    z = factor.Solve(residual);
    const double rhoNew = LayeredDot(a.dims, z, residual);
    const double beta = rhoNew / rho;
    for (std::size_t c = 0; c < z.size(); ++c) search[c] = z[c] + beta * search[c];
    rho = rhoNew;
  }
  return solution;
}

}  // namespace orlix::test
