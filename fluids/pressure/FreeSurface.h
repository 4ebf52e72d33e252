#pragma once
// The pressure system of a liquid with a free surface on cut cells (Gibou, Fedkiw, Cheng and Kang 2002; Batty, Bertails
// and Bridson 2007). Cells with a negative level set are unknowns. In air the pressure is 0, and so it is where the
// level set crosses 0 between a liquid and an air cell, at the share theta of the way from the liquid's centre:
//
//   weight(f) = share(f) / density(f)           between two liquid cells
//             = share(f) / density(f) / theta   at the surface,  theta = phi(liquid) / (phi(liquid) - phi(air))
//             = 0                               in air
//
// Level sets and theta are taken in single precision; theta is at least 0.01.

#include "fluids/pressure/PressureAssembly.h"

namespace orlix {

struct FreeSurface {
  GridView<const double> phi;      // m at the cells' centres, negative in liquid
  GridView<const float> share[3];  // open shares of the faces
  GridView<const double> density;  // by cell; without data the factor k holds it
};

// Fills the weights, k times what stands above (k = dt / (h h density), without density by cell dt / (h h)), and sets
// equation to 1 in each inner liquid cell that has a weight, else 0. Gives how many these are.
std::int64_t FillSurfaceWeights(const FreeSurface& surface, double k, GridView<double> (&weights)[3],
                                std::uint8_t* equation, WorkerPool& pool);

// rhs becomes 0 where there is no equation. Gives the largest magnitude of the rest.
double KeepEquations(const std::uint8_t* equation, const VecInt3D& cells, double* rhs, WorkerPool& pool);

// Takes the gradient off the faces of liquid cells: k (dt / (h density), without density by cell dt / h) over theta.
// Open faces in air keep their velocity; a closed face becomes 0.
void ApplySurfaceGradient(const FreeSurface& surface, const double* pressure, double k, GridView<double> (&velocity)[3],
                          WorkerPool& pool);

}  // namespace orlix
