#pragma once
// Runs a solver's kernels on a problem, without a scene.

#include <numeric>

#include "fluids/pressure/ClosedRegions.h"
#include "fluids/pressure/ConjugateGradients.h"
#include "fluids/pressure/GaussSweeps.h"
#include "fluids/pressure/ModifiedCholesky.h"
#include "fluids/pressure/MultigridCycle.h"
#include "tests/support/PressureProblem.h"

namespace orlix::test {

struct Solution {
  std::vector<double> pressure, residual;
  PressureOutcome outcome;
};

template <class MakePreconditioner>
Solution SolveWith(const PressureProblem& problem, std::vector<double> rhs, double tolerance, int workers,
                   MakePreconditioner&& make, int limit = 500) {
  WorkerPool pool(workers);
  ScratchPool scratch;
  const auto count = std::size_t(problem.system.count());
  Solution solution{std::vector<double>(count, 0.0), std::move(rhs), {}};
  std::vector<double> search(count, 0.0), product(count, 0.0);
  auto preconditioner = make(pool, scratch, solution.residual, product);
  solution.outcome = ConjugateGradients(
      problem.system, {solution.residual.data(), solution.pressure.data(), search.data(), product.data()},
      {limit, tolerance}, pool, preconditioner);
  return solution;
}

inline Solution SolveByCholesky(const PressureProblem& problem, std::vector<double> rhs, double tolerance,
                                int workers = 1, int limit = 500) {
  std::vector<double> inverse(std::size_t(problem.system.count()));
  return SolveWith(
      problem, std::move(rhs), tolerance, workers,
      [&](WorkerPool& pool, ScratchPool&, std::vector<double>& residual, std::vector<double>& product) {
        FactorModifiedCholesky(problem.system, {}, pool, inverse.data());
        return [&](double) {
          ApplyModifiedCholesky(problem.system, inverse.data(), residual.data(), pool, product.data());
          return PreconditionedVector{product.data(), {}, 0, 0, 1};
        };
      },
      limit);
}

inline Solution SolveByMultigrid(const PressureProblem& problem, std::vector<double> rhs, double tolerance,
                                 int workers = 1) {
  return SolveWith(problem, std::move(rhs), tolerance, workers,
                   [&](WorkerPool& pool, ScratchPool& scratch, std::vector<double>& residual, std::vector<double>&) {
                     ClosedRegions(problem.system, pool).RemoveMeans(residual.data(), pool);
                     auto cycle = std::make_shared<MultigridCycle>(problem.system, pool, scratch);
                     return [&residual, cycle](double largest) { return cycle->Apply(residual.data(), largest); };
                   });
}

inline std::vector<double> SolveByGauss(const PressureProblem& problem, const std::vector<double>& rhs, int sweeps,
                                        int workers = 1) {
  WorkerPool pool(workers);
  ScratchPool scratch;
  std::vector<double> pressure(rhs.size(), 0.0);
  GaussSweeps gauss(problem.system, rhs.data(), pool, scratch);
  if (gauss.Run(sweeps) != sweeps) return {};
  gauss.Store(pressure.data());
  return pressure;
}

inline std::vector<double> Times(const PressureProblem& problem, const std::vector<double>& v) {
  WorkerPool pool(1);
  std::vector<double> search(v.size(), 0.0), product(v.size(), 0.0), unused(v.size(), 0.0);
  ConjugateGradientPasses passes(problem.system, {unused.data(), unused.data(), search.data(), product.data()}, pool);
  passes.SearchAndMultiply({v.data(), {}, 0, 0, 1}, 0, 0, true);
  return product;
}

inline double Dot(const std::vector<double>& a, const std::vector<double>& b) {
  return std::inner_product(a.begin(), a.end(), b.begin(), 0.0);
}
inline double Largest(const std::vector<double>& v) {
  double largest = 0;
  for (const double value : v) largest = std::max(largest, std::abs(value));
  return largest;
}
// The largest part of rhs that a pressure leaves.
inline double LargestLeft(const PressureProblem& problem, const std::vector<double>& rhs,
                          const std::vector<double>& pressure) {
  std::vector<double> left = Times(problem, pressure);
  for (std::size_t i = 0; i < left.size(); ++i) left[i] = rhs[i] - left[i];
  return Largest(left);
}

// Problems that differ in what fixes the pressure, and in solids.
struct ProblemCase {
  const char* name;
  unsigned closed;
  PressureProblem::Field solid, liquid;
};
inline const ProblemCase kCases[] = {
    {"closed", kClosed, nullptr, nullptr},
    {"open_top", kOpenTop, nullptr, nullptr},
    {"open", kOpen, nullptr, nullptr},
    {"closed_sphere", kClosed, Sphere, nullptr},
    {"open_top_sphere", kOpenTop, Sphere, nullptr},
    {"closed_knobbly", kClosed, Knobbly, nullptr},
    {"open_top_knobbly", kOpenTop, Knobbly, nullptr},
    {"liquid", kClosed, nullptr, Waves},
    {"liquid_sphere", kClosed, Sphere, Waves},
    {"breaking_dam", kClosed, nullptr, BreakingDam},
};
inline PressureProblem Make(const ProblemCase& c, const VecInt3D& cells) {
  PressureProblem problem(cells, c.closed, c.solid);
  problem.FillVelocity();
  if (c.liquid) problem.SetLiquid(c.liquid);
  return problem;
}

}  // namespace orlix::test
