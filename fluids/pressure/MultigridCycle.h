#pragma once
// One multigrid V-cycle as a preconditioner (McAdams, Sifakis and Teran 2010), symmetric: red-black Gauss-Seidel with
// over-relaxation before the coarse correction, its mirror image after it. Colours make the result independent of how
// layers are divided among workers.

#include <vector>

#include "fluids/pressure/ConjugateGradientPasses.h"
#include "fluids/pressure/MultigridLevel.h"

namespace orlix {

class MultigridCycle {
 public:
  // Builds all levels; throws std::bad_alloc when memory doesn't suffice.
  MultigridCycle(const PressureSystem& system, WorkerPool& pool, ScratchPool& scratch);

  // What all levels take for a system of these dims.
  static double Bytes(const VecInt3D& dims);

  // The cycle for a residual in the layout of the system's cells; largest is the size of its entries, roughly. The
  // vector is valid until the next call.
  PreconditionedVector Apply(const double* residual, double largest);

  int levels() const { return static_cast<int>(levels_.size()); }

 private:
  // The finest level takes its right side from a residual.
  void Descend(int index, const double* residual, double scale);
  void SmoothAndRestrict(int index, const double* residual, double scale);
  void CorrectAndSmooth(int index);
  void SolveCoarsest(const double* residual, double scale);

  WorkerPool& pool_;
  VecInt3D dims_;
  std::vector<MultigridLevel> levels_;
};

}  // namespace orlix
