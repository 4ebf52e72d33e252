#include "fluids/viscosity/ViscousSolve.h"

#include <algorithm>
#include <cmath>

#include "globals/Multiversion.h"

namespace orlix {

namespace {

// What a pass adds up on each z layer; layers are joined in their order.
struct LayerSums {
  double dot = 0, largest = 0;
};

ORLIX_MULTIVERSION void SearchRow(const double* __restrict residual, const float* __restrict inverse, double beta,
                                  int n, double* __restrict search) {
  for (int i = 0; i < n; ++i) search[i] = inverse[i] * residual[i] + beta * search[i];
}

ORLIX_MULTIVERSION void UpdateRow(const double* __restrict search, const double* __restrict product, double alpha,
                                  int n, double* __restrict result, double* __restrict residual) {
  for (int i = 0; i < n; ++i) {
    result[i] += alpha * search[i];
    residual[i] -= alpha * product[i];
  }
}

// Sums in eight lanes, joined in a fixed order: the sum of a row doesn't depend on the instruction set.
constexpr int kLanes = 8;

ORLIX_MULTIVERSION double DotRow(const double* a, const double* b, int n) {
  double lanes[kLanes] = {};
  int i = 0;
  for (; i + kLanes <= n; i += kLanes) {
    for (int l = 0; l < kLanes; ++l) lanes[l] += a[i + l] * b[i + l];
  }
  for (int l = 0; i < n; ++i, ++l) lanes[l] += a[i] * b[i];
  return ((lanes[0] + lanes[1]) + (lanes[2] + lanes[3])) + ((lanes[4] + lanes[5]) + (lanes[6] + lanes[7]));
}

ORLIX_MULTIVERSION double WeightedSquareRow(const double* r, const float* inverse, int n) {
  double lanes[kLanes] = {};
  int i = 0;
  for (; i + kLanes <= n; i += kLanes) {
    for (int l = 0; l < kLanes; ++l) lanes[l] += r[i + l] * r[i + l] * inverse[i + l];
  }
  for (int l = 0; i < n; ++i, ++l) lanes[l] += r[i] * r[i] * inverse[i];
  return ((lanes[0] + lanes[1]) + (lanes[2] + lanes[3])) + ((lanes[4] + lanes[5]) + (lanes[6] + lanes[7]));
}

ORLIX_MULTIVERSION double LargestRow(const double* r, int n) {
  double largest = 0;
  for (int i = 0; i < n; ++i) largest = std::fabs(r[i]) > largest ? std::fabs(r[i]) : largest;
  return largest;
}

class Solve {
 public:
  Solve(const ViscousSystem& system, ScratchPool& scratch, WorkerPool& pool)
      : system_(system), pool_(pool), rows_(system, pool), sums_(std::size_t(rows_.layers())) {
    for (int axis = 0; axis < 3; ++axis) {
      const VecInt3D& dims = system.states[axis].dims;
      for (Vector* vector : {&result_, &residual_, &search_, &product_}) {
        vector->grids[axis] = scratch.Take<double>(dims);
        vector->grids[axis]->Fill(0, &pool);
      }
      inverse_[axis] = scratch.Take<float>(dims);
    }
  }

  std::int64_t unknowns() const { return rows_.unknowns(); }

  // Starts from velocity; gives the largest right side and residual.
  void Begin(const FaceVector& velocity, const GridView<const double> (&solid)[3], double& largestRight,
             double& largestResidual, double& rho) {
    LoadStart(velocity);
    const bool moving = solid[0].data != nullptr;
    const LayerSums right = ForLayers([&](int axis, int k, LayerSums& sums) {
      rows_.ForRows(axis, k, k + 1, [&](int j, int kk, int first, int end) {
        RightSideRow(velocity, solid, moving, axis, j, kk, first, end);
        sums.largest = std::max(sums.largest, LargestRow(&At(residual_, axis, first, j, kk), end - first));
      });
    });
    const auto x = result_.Views();
    const LayerSums start = ForLayers([&](int axis, int k, LayerSums& sums) {
      rows_.ForRows(axis, k, k + 1, [&](int j, int kk, int first, int end) {
        double* product = &At(product_, axis, 0, j, kk);
        double* residual = &At(residual_, axis, 0, j, kk);
        MultiplyViscousRow(system_, x.views, axis, j, kk, first, end, product);
        for (int i = first; i < end; ++i) residual[i] -= product[i];
        InvertDiagonalRow(axis, j, kk, first, end);
        sums.largest = std::max(sums.largest, LargestRow(residual + first, end - first));
        sums.dot += WeightedSquareRow(residual + first, &(*inverse_[axis])(first, j, kk), end - first);
      });
    });
    largestRight = right.largest, largestResidual = start.largest, rho = start.dot;
  }

  // search = residual / diagonal + beta search; product = A search. Gives search . product.
  double SearchAndMultiply(double beta) {
    ForLayers([&](int axis, int k, LayerSums&) {
      rows_.ForRows(axis, k, k + 1, [&](int j, int kk, int first, int end) {
        SearchRow(&At(residual_, axis, first, j, kk), &(*inverse_[axis])(first, j, kk), beta, end - first,
                  &At(search_, axis, first, j, kk));
      });
    });
    const auto x = search_.Views();
    return ForLayers([&](int axis, int k, LayerSums& sums) {
             rows_.ForRows(axis, k, k + 1, [&](int j, int kk, int first, int end) {
               double* product = &At(product_, axis, 0, j, kk);
               MultiplyViscousRow(system_, x.views, axis, j, kk, first, end, product);
               sums.dot += DotRow(&At(search_, axis, first, j, kk), product + first, end - first);
             });
           })
        .dot;
  }

  LayerSums Update(double alpha) {
    return ForLayers([&](int axis, int k, LayerSums& sums) {
      rows_.ForRows(axis, k, k + 1, [&](int j, int kk, int first, int end) {
        double* residual = &At(residual_, axis, first, j, kk);
        const int n = end - first;
        UpdateRow(&At(search_, axis, first, j, kk), &At(product_, axis, first, j, kk), alpha, n,
                  &At(result_, axis, first, j, kk), residual);
        sums.largest = std::max(sums.largest, LargestRow(residual, n));
        sums.dot += WeightedSquareRow(residual, &(*inverse_[axis])(first, j, kk), n);
      });
    });
  }

  void Store(const FaceVector& velocity) {
    ForLayers([&](int axis, int k, LayerSums&) {
      rows_.ForRows(axis, k, k + 1, [&](int j, int kk, int first, int end) {
        const std::uint8_t* states = &system_.states[axis](0, j, kk);
        const double* result = &At(result_, axis, 0, j, kk);
        double* target = &velocity[axis](0, j, kk);
        for (int i = first; i < end; ++i) {
          if (states[i] == FaceSolved) target[i] = result[i];
        }
      });
    });
  }

 private:
  struct ConstViews {
    GridView<const double> views[3];
  };
  struct Vector {
    ScratchPool::Lease<double> grids[3];
    ConstViews Views() const { return {{*grids[0], *grids[1], *grids[2]}}; }
  };
  static double& At(Vector& vector, int axis, int i, int j, int k) { return (*vector.grids[axis])(i, j, k); }

  // work(axis, layer, sums) for the three axes of each z layer, one layer on one worker.
  template <class F>
  LayerSums ForLayers(F&& work) {
    ParallelRange(pool_, 0, rows_.layers(), [&](int k0, int k1, int) {
      for (int k = k0; k < k1; ++k) {
        LayerSums& sums = sums_[std::size_t(k)];
        sums = {};
        for (int axis = 0; axis < 3; ++axis) work(axis, k, sums);
      }
    });
    LayerSums all;
    for (const LayerSums& sums : sums_) {
      all.dot += sums.dot;
      all.largest = std::max(all.largest, sums.largest);
    }
    return all;
  }

  void LoadStart(const FaceVector& velocity) {
    ForLayers([&](int axis, int k, LayerSums&) {
      rows_.ForRows(axis, k, k + 1, [&](int j, int kk, int first, int end) {
        const std::uint8_t* states = &system_.states[axis](0, j, kk);
        for (int i = first; i < end; ++i) {
          At(result_, axis, i, j, kk) = states[i] == FaceSolved ? velocity[axis](i, j, kk) : 0;
        }
      });
    });
  }

  void RightSideRow(const FaceVector& velocity, const GridView<const double> (&solid)[3], bool moving, int axis, int j,
                    int k, int first, int end) {
    const std::uint8_t* states = &system_.states[axis](0, j, k);
    double* right = &At(residual_, axis, 0, j, k);
    if (moving) {
      // On a solved face the solids' vector is 0, so that its product holds only what the neighbours bring.
      MultiplyViscousRow(system_, solid, axis, j, k, first, end, right);
    } else {
      std::fill(right + first, right + end, 0.0);
    }
    for (int i = first; i < end; ++i) {
      if (states[i] == FaceSolved)
        right[i] = double(system_.around[axis](i, j, k)) * velocity[axis](i, j, k) - right[i];
    }
  }

  void InvertDiagonalRow(int axis, int j, int k, int first, int end) {
    double* diagonal = &At(product_, axis, 0, j, k);
    ViscousDiagonalRow(system_, axis, j, k, first, end, diagonal);
    float* inverse = &(*inverse_[axis])(0, j, k);
    // A row without a share of liquid has no equation and keeps its start.
    for (int i = first; i < end; ++i) inverse[i] = diagonal[i] > 0 ? static_cast<float>(1 / diagonal[i]) : 0;
  }

  const ViscousSystem& system_;
  WorkerPool& pool_;
  ViscousRows rows_;
  std::vector<LayerSums> sums_;
  Vector result_, residual_, search_, product_;
  ScratchPool::Lease<float> inverse_[3];
};

}  // namespace

PressureOutcome SolveViscosity(const ViscousSystem& system, const FaceVector& velocity,
                               const GridView<const double> (&solidVelocity)[3], const ViscousLimits& limits,
                               ScratchPool& scratch, WorkerPool& pool) {
  PressureOutcome outcome;
  Solve solve(system, scratch, pool);
  double largestRight = 0, rho = 0;
  solve.Begin(velocity, solidVelocity, largestRight, outcome.absoluteResidual, rho);
  const double tolerance = largestRight * limits.tolerance;
  const auto judge = [&] {
    outcome.residual = largestRight > 0 ? outcome.absoluteResidual / largestRight : 0;
    outcome.converged = !(outcome.absoluteResidual > tolerance);
  };
  judge();
  double beta = 0;
  while (!outcome.converged && outcome.iterations < limits.iterations && !pool.Broken()) {
    const double alpha = rho / solve.SearchAndMultiply(beta);
    if (!std::isfinite(alpha)) break;
    const LayerSums sums = solve.Update(alpha);
    ++outcome.iterations;
    outcome.absoluteResidual = sums.largest;
    judge();
    beta = sums.dot / rho;
    rho = sums.dot;
  }
  solve.Store(velocity);
  return outcome;
}

}  // namespace orlix
