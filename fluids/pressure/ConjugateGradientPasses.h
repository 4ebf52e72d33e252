#pragma once
// The passes of a conjugate gradient iteration over a matrix-free pressure system, fused so that each array is moved as
// seldom as the dependencies allow. In bytes a cell, with shares of faces: search and multiply 60, residual 24.
//
// Cells without an equation hold 0 in every vector and keep it.

#include <vector>

#include "fluids/pressure/PressureSystem.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

// What the preconditioner gave: doubles in the layout of the cells, or floats in pairs of the colours (MultigridLevel),
// to be multiplied by scale.
struct PreconditionedVector {
  const double* doubles = nullptr;
  const float* floats[2] = {};
  std::int64_t row = 0, slab = 0;
  double scale = 1;
};

struct ConjugateGradientVectors {
  double* residual = nullptr;
  double* result = nullptr;
  double* search = nullptr;
  double* product = nullptr;  // A search; may be the preconditioner's doubles, which the pass then overwrites
};

class ConjugateGradientPasses {
 public:
  ConjugateGradientPasses(const PressureSystem& system, const ConjugateGradientVectors& vectors, WorkerPool& pool);

  // result += alpha search; search = z + beta search; product = A search. Gives search . product. The first time,
  // search becomes z.
  double SearchAndMultiply(const PreconditionedVector& z, double alpha, double beta, bool first);
  // residual -= alpha product; the largest magnitude in residual. residualSquared, if given, takes residual . residual.
  double UpdateResidual(double alpha, double* residualSquared = nullptr);
  // result += alpha search.
  void UpdateResult(double alpha);
  // z . residual.
  double DotResidual(const PreconditionedVector& z);
  double LargestResidual();

 private:
  template <class F>
  void ForLayers(F&& f);
  std::size_t RowRoom() const { return std::size_t(system_.dims.x) + 2; }

  const PressureSystem& system_;
  ConjugateGradientVectors v_;
  WorkerPool& pool_;
  std::vector<double> layerSums_, layerMaxima_;
  std::vector<double> halo_;  // for each border between two workers' layers, the new search below and above it
};

}  // namespace orlix
