#pragma once
// The implicit viscous step on a marker-and-cell lattice, with all stresses, so that the three components couple and a
// free surface carries none (Batty and Bridson 2008):
//
//   V (u_new - u) = dt / h^2  D^T ( W mu ( D u_new + (D u_new)^T ) )
//
// V are the shares of liquid around the faces, W those around cell centres and edges, where the stresses stand. The
// unknowns are the faces in state FaceSolved. Fixed faces bring their solid's velocity to the right side; far ones
// count as 0. No matrix is stored: a row is computed from shares and viscosities, about 12 bytes a face.

#include <cstdint>
#include <vector>

#include "fluids/grids/Grid.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

// What a face is to the viscous solve.
enum FaceState : std::uint8_t {
  FaceSolved = 0,  // an unknown of the solve
  FaceFixed = 1,   // blocked, or on the border; the value after a reset
  FaceFar = 2      // open, but the surface is 3 cells or more away
};

struct ViscousSystem {
  VecInt3D cells;
  GridView<const std::uint8_t> states[3];  // faces
  GridView<const float> centre;            // share of each cell
  GridView<const float> edge[3];           // shares around edges: 0 along z, 1 along y, 2 along x
  GridView<const float> around[3];         // shares around faces
  GridView<const double> viscosity;        // of each cell; without data, `constant` everywhere
  double constant = 0;
  double scale = 0;  // dt / h^2
};

// A vector of unknowns: one value for each face of each axis, 0 where a face is no unknown.
using FaceVector = GridView<double>[3];

// The rows of faces that hold unknowns: a solve costs what the liquid takes, not what the container does.
class ViscousRows {
 public:
  ViscousRows(const ViscousSystem& system, WorkerPool& pool);
  std::int64_t unknowns() const { return unknowns_; }
  // Calls work(j, k, first, end) for each row of the axis in the z layers [k0, k1) that has unknowns, all of them in
  // [first, end).
  template <class F>
  void ForRows(int axis, int k0, int k1, F&& work) const {
    const VecInt3D& dims = dims_[axis];
    for (int k = k0; k < (k1 < dims.z ? k1 : dims.z); ++k) {
      for (int j = 0; j < dims.y; ++j) {
        const Span& span = spans_[axis][std::size_t(k) * std::size_t(dims.y) + std::size_t(j)];
        if (span.first < span.end) work(j, k, span.first, span.end);
      }
    }
  }
  int layers() const { return dims_[2].z; }  // the most z layers of any axis

 private:
  struct Span {
    std::int32_t first = 0, end = 0;
  };
  VecInt3D dims_[3];
  std::vector<Span> spans_[3];
  std::int64_t unknowns_ = 0;
};

// product = A x on the faces [first, end) of a row; 0 on those that are no unknowns.
void MultiplyViscousRow(const ViscousSystem& system, const GridView<const double> (&x)[3], int axis, int j, int k,
                        int first, int end, double* product);
// The diagonal of A on the faces [first, end) of a row.
void ViscousDiagonalRow(const ViscousSystem& system, int axis, int j, int k, int first, int end, double* diagonal);

}  // namespace orlix
