#pragma once
// Bodies that the pressure moves, as part of its system (Batty, Bertails and Bridson 2007): fluid and bodies find their
// velocities together, so that light bodies are as steady as heavy ones.
//
// A face's solid share s belongs to the body that is nearest to it. With A the area of a face, n its axis (+ for a
// cell's high face, - for its low one) and r from the body's centre to the face, a cell's row of the body is
//
//   J = sum over its faces of  s A (n, r x n)              m^2, m^3
//
// so that sum p J is the pressure's force and torque, and J . (V, W) the rate at which the body fills the cell. With D
// the inverse mass and inertia, velocities V before the solve, and h^3 the cell:
//
//   (A p)(c) + dt / h^3 J(c) . D (sum J p) = b(c) - J(c) . V / h^3,     V += dt D (sum J p)
//
// A cell's pressure stands at its middle, the body's surface up to a cell beside it. Where the pressure has a known
// gradient, such as a liquid's weight, what the way between them makes of it is given as well (SurfaceOffset): without
// it a flat bottom would float as if it stood in the middle of its layer of cells.
//
// The second term is symmetric and positive, of rank six a body, and is added to each product with the matrix.

#include <cstdint>
#include <optional>
#include <vector>

#include "fluids/grids/GridSpace.h"
#include "fluids/level_sets/LevelSetView.h"
#include "fluids/pressure/PressureAssembly.h"

namespace orlix {

struct ForceAndTorque {
  Vec3D force, torque;  // N, N m; or velocities, or impulses
};

struct CoupledBody {
  LevelSetView levelSet;
  Vec3D boxMin, boxMax, centre;  // simulation space
  ForceAndTorque velocity;       // m/s, rad/s, as the fluid feels them
  // D, with all factors on the way there and back; zeros of a body that isn't moved by the pressure.
  Vec3D inverseMass;
  LMatrix inverseInertia{{}, {}, {}, {}};
};

class BodyCoupling {
 public:
  // solid: the distance to the nearest of all solids on the corners of the cells. liquid: the level set by cell, or
  // without data, a gas.
  void Build(std::vector<CoupledBody> bodies, const DivergenceInput& input, const GridSpace& space,
             const GridView<const double>& solid, const GridView<const double>& liquid, WorkerPool& pool);
  bool IsEmpty() const { return bodies_.empty(); }

  // Takes the rate at which the bodies fill the cells off the right side.
  void AddMotion(double* rhs) const;
  // product += dt / h^3 J D J^T search, with both in the layout of the cells; gives search . what was added.
  double AddProduct(const double* search, double* product, double dt, WorkerPool& pool) const;
  // J^T pressure of each body.
  std::vector<ForceAndTorque> Forces(const double* pressure, WorkerPool& pool) const;
  void SetVelocity(std::size_t body, const ForceAndTorque& velocity) { bodies_[body].velocity = velocity; }
  // What a pressure of this gradient (Pa/m) does beside what Forces gives.
  ForceAndTorque SurfaceOffset(std::size_t body, const Vec3D& gradient) const {
    return {offsets_[body].linear.Rotate(gradient), offsets_[body].angular.Rotate(gradient)};
  }
  // How much of a gradient (Pa/m) the pressure has around the body, along it: a mean over the differences between its
  // cells and those next to them that hold fluid. Without any, nothing.
  std::optional<double> ShareOf(const Vec3D& gradient, std::size_t body, const double* pressure,
                                const std::uint8_t* equation) const;
  // The fluid touches it.
  bool IsWet(std::size_t body) const { return begins_[body + 1] > begins_[body]; }

 private:
  struct Row {
    std::int64_t cell;
    Vec3D linear, angular;
  };
  // Sums of J o^T, with o the way from a cell's middle to the body's surface; of LMatrix the axes alone.
  struct Offsets {
    LMatrix linear{{}, {}, {}, {}}, angular{{}, {}, {}, {}};
    void Add(const Row& row, const Vec3D& o);
  };
  void FindRows(std::size_t body, const DivergenceInput& input, const GridSpace& space,
                const GridView<const double>& solid, const GridView<const double>& liquid, std::vector<Row>& rows);
  ForceAndTorque Total(std::size_t body, const double* values) const;

  std::vector<CoupledBody> bodies_;
  VecInt3D cells_;
  double cellSize_ = 1;
  std::vector<Row> rows_;  // of body n from begins_[n] to begins_[n + 1]
  std::vector<std::size_t> begins_{0};
  std::vector<Offsets> offsets_;
  double inverseCell_ = 1;  // 1 / h^3
};

}  // namespace orlix
