#include "fluids/viscosity/ViscousSolve.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <memory>
#include <numbers>

#include "tests/support/Cells.h"
#include "tests/support/Workers.h"

namespace orlix {

namespace {

// A block of liquid on n x n x n cells; all faces but the outer two layers are unknowns.
class Block {
 public:
  static constexpr double kCell = 0.1, kStep = 0.02;

  explicit Block(int n, double viscosity, double cell = kCell, double step = kStep) : n_(n), cell_(cell) {
    system.cells = {n, n, n};
    system.constant = viscosity;
    system.scale = step / (cell * cell);
    Make(shares_[0], {n, n, n}, 1);
    system.centre = *shares_[0];
    for (int a = 0; a < 3; ++a) {
      VecInt3D face(n, n, n), edge(n + 1, n + 1, n + 1);
      face[a] += 1, edge[2 - a] -= 1;
      Make(shares_[std::size_t(1 + a)], edge, 1);
      Make(shares_[std::size_t(4 + a)], face, 1);
      system.edge[a] = *shares_[std::size_t(1 + a)], system.around[a] = *shares_[std::size_t(4 + a)];
      states_[std::size_t(a)] = std::make_unique<Grid<std::uint8_t>>(face, 0u);
      states_[std::size_t(a)]->Fill(FaceFixed);
      for (int k = 2; k < face.z - 2; ++k) {
        for (int j = 2; j < face.y - 2; ++j) {
          for (int i = 2; i < face.x - 2; ++i) (*states_[std::size_t(a)])(i, j, k) = FaceSolved;
        }
      }
      system.states[a] = *states_[std::size_t(a)];
      for (auto* grids : {&velocity_, &solid_}) {
        (*grids)[std::size_t(a)] = std::make_unique<Grid<double>>(face, 0u);
        (*grids)[std::size_t(a)]->Fill(0);
      }
    }
  }

  Grid<std::uint8_t>& states(int axis) { return *states_[std::size_t(axis)]; }
  Grid<double>& velocity(int axis) { return *velocity_[std::size_t(axis)]; }
  // Sets solved faces to start and fixed ones to the solids' velocity, both by the face's place in metres.
  using Field = std::function<double(int axis, const Vec3D& place)>;
  void Set(const Field& start, const Field& solid) {
    for (int a = 0; a < 3; ++a) {
      ForFaces(a, [&](int i, int j, int k) {
        const bool solved = states(a)(i, j, k) == FaceSolved;
        velocity(a)(i, j, k) = solved ? start(a, Place(a, i, j, k)) : 0;
        (*solid_[std::size_t(a)])(i, j, k) = solved ? 0 : solid(a, Place(a, i, j, k));
      });
    }
  }
  PressureOutcome Solve(double tolerance = 1e-13, int workers = 2) {
    WorkerPool pool(workers);
    ScratchPool scratch;
    const FaceVector faces{*velocity_[0], *velocity_[1], *velocity_[2]};
    return SolveViscosity(system, faces, {*solid_[0], *solid_[1], *solid_[2]}, {500, tolerance}, scratch, pool);
  }
  // The largest difference of a solved face to a field.
  double Error(const Field& field) {
    double error = 0;
    int checked = 0;
    for (int a = 0; a < 3; ++a) {
      ForFaces(a, [&](int i, int j, int k) {
        if (states(a)(i, j, k) != FaceSolved) return;
        ++checked;
        error = std::max(error, std::fabs(velocity(a)(i, j, k) - field(a, Place(a, i, j, k))));
      });
    }
    EXPECT_GT(checked, 0);
    return error;
  }
  void SetViscosity(const std::function<double(int)>& byIndex) {
    viscosity_ = std::make_unique<Grid<double>>(system.cells, 0u);
    for (int i = 0; i < viscosity_->count; ++i) (*viscosity_)[i] = byIndex(i);
    system.viscosity = *viscosity_;
  }
  void SetShares(const std::function<float()>& next) {
    for (auto& share : shares_) {
      for (int i = 0; i < share->count; ++i) (*share)[i] = next();
    }
  }
  template <class F>
  void ForFaces(int axis, F&& f) {
    const VecInt3D dims = system.states[axis].dims;
    for (int k = 0; k < dims.z; ++k) {
      for (int j = 0; j < dims.y; ++j) {
        for (int i = 0; i < dims.x; ++i) f(i, j, k);
      }
    }
  }

  ViscousSystem system;

 private:
  Vec3D Place(int axis, int i, int j, int k) const {
    Vec3D place(i + 0.5, j + 0.5, k + 0.5);
    place[axis] -= 0.5;
    return place * cell_;
  }
  static void Make(std::unique_ptr<Grid<float>>& grid, const VecInt3D& dims, float value) {
    grid = std::make_unique<Grid<float>>(dims, 0u);
    grid->Fill(value);
  }

  int n_;
  double cell_;
  std::array<std::unique_ptr<Grid<float>>, 7> shares_;
  std::array<std::unique_ptr<Grid<std::uint8_t>>, 3> states_;
  std::array<std::unique_ptr<Grid<double>>, 3> velocity_, solid_;
  std::unique_ptr<Grid<double>> viscosity_;
};

// Random numbers in [0, 1).
struct Uniform {
  std::uint32_t state = 7;
  double operator()() { return (state = state * 1664525u + 1013904223u) / 4294967296.0; }
};

}  // namespace

// A rigid motion has no strain, whatever the viscosity is from cell to cell.
TEST(Viscosity, RigidMotionStays) {
  const Vec3D spin(0.7, -1.1, 0.4), shift(0.3, 0.2, -0.5);
  const Block::Field rigid = [&](int axis, const Vec3D& p) { return (shift + Cross(spin, p))[axis]; };
  for (const bool byCell : {false, true}) {
    Block block(9, 3);
    Uniform random;
    if (byCell) block.SetViscosity([&](int) { return 0.1 + 9 * random(); });
    block.Set(rigid, rigid);
    EXPECT_TRUE(block.Solve().converged);
    EXPECT_LT(block.Error(rigid), 1e-11) << byCell;
  }
}

// A shear wave decays by implicit Euler's factor; a parabola between plates stays under the force that drives it.
TEST(Viscosity, ShearFollowsTheDiscreteSolution) {
  const double viscosity = 0.4, h = Block::kCell, wave = 2 * std::numbers::pi / (6 * h);
  const double factor = 1 / (1 + viscosity * Block::kStep / (h * h) * (2 - 2 * std::cos(wave * h)));
  for (int axis = 0; axis < 3; ++axis) {
    const int across = (axis + 1) % 3;
    Block block(10, viscosity);
    const Block::Field start = [&](int a, const Vec3D& p) { return a == axis ? std::sin(wave * p[across]) : 0; };
    const Block::Field later = [&](int a, const Vec3D& p) { return factor * start(a, p); };
    block.Set(start, later);
    EXPECT_TRUE(block.Solve().converged);
    EXPECT_LT(block.Error(later), 1e-12) << axis;

    const double force = 2;  // m/s^2
    const Block::Field steady = [&](int a, const Vec3D& p) {
      return a == axis ? 0.5 * force / viscosity * p[across] * (1 - p[across]) : 0;
    };
    block.Set([&](int a, const Vec3D& p) { return steady(a, p) + (a == axis ? force * Block::kStep : 0); }, steady);
    EXPECT_TRUE(block.Solve().converged);
    EXPECT_LT(block.Error(steady), 1e-12) << axis;
  }
}

// With cut shares, fixed, far and solved faces in any mixture, and a viscosity of its own in each cell.
TEST(Viscosity, TheMatrixIsSymmetricAndPositive) {
  Block block(8, 0);
  Uniform random;
  block.SetShares([&] { return static_cast<float>(random()); });
  block.SetViscosity([&](int) { return 5 * random(); });
  Block a(8, 0), b(8, 0), productA(8, 0), productB(8, 0);
  for (int axis = 0; axis < 3; ++axis) {
    block.ForFaces(axis, [&](int i, int j, int k) {
      std::uint8_t& state = block.states(axis)(i, j, k);
      if (state == FaceSolved && random() < 0.3) state = random() < 0.5 ? FaceFixed : FaceFar;
      if (state != FaceSolved) return;
      a.velocity(axis)(i, j, k) = random() - 0.5, b.velocity(axis)(i, j, k) = random() - 0.5;
    });
  }
  const auto multiply = [&](Block& x, Block& product) {
    const GridView<const double> views[3] = {x.velocity(0), x.velocity(1), x.velocity(2)};
    for (int axis = 0; axis < 3; ++axis) {
      const VecInt3D dims = block.system.states[axis].dims;
      for (int k = 1; k < dims.z - 1; ++k) {
        for (int j = 1; j < dims.y - 1; ++j) {
          MultiplyViscousRow(block.system, views, axis, j, k, 2, dims.x - 2, &product.velocity(axis)(0, j, k));
        }
      }
    }
  };
  multiply(a, productA);
  multiply(b, productB);
  double ab = 0, ba = 0, aa = 0;
  for (int axis = 0; axis < 3; ++axis) {
    for (int i = 0; i < a.velocity(axis).count; ++i) {
      ab += b.velocity(axis)[i] * productA.velocity(axis)[i], ba += a.velocity(axis)[i] * productB.velocity(axis)[i];
      aa += a.velocity(axis)[i] * productA.velocity(axis)[i];
    }
  }
  EXPECT_NEAR(ab, ba, 1e-10 * std::fabs(aa));
  EXPECT_GT(aa, 0);
}

TEST(Viscosity, TheDiagonalInTheOpenIsOnePlusEightTimesScaleAndViscosity) {
  Block block(7, 0.3);
  double diagonal[7];
  ViscousDiagonalRow(block.system, 1, 3, 3, 2, 5, diagonal);
  EXPECT_NEAR(diagonal[3], 1 + 8 * block.system.scale * 0.3, 1e-12);
}

TEST(ViscosityThreads, TheBitsDontDependOnTheWorkers) {
  test::SameForAnyWorkers([](int workers) {
    Block block(12, 2);
    Uniform random;
    block.SetShares([&] { return static_cast<float>(0.2 + random()); });
    block.Set([&](int, const Vec3D&) { return random() - 0.5; }, [](int, const Vec3D&) { return 0; });
    EXPECT_GT(block.Solve(1e-8, workers).iterations, 3);
    return std::array{test::ValuesOf(block.velocity(0)), test::ValuesOf(block.velocity(1)),
                      test::ValuesOf(block.velocity(2))};
  });
}

}  // namespace orlix
