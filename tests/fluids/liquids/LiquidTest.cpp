#include <gtest/gtest.h>

#include <array>
#include <memory>

#include "fluids/level_sets/ParticleToLevelset.h"
#include "fluids/liquids/FlipTransfer.h"
#include "fluids/liquids/LiquidVolume.h"
#include "fluids/liquids/VolumeKeeping.h"
#include "fluids/pressure/FreeSurface.h"
#include "tests/support/Cells.h"
#include "tests/support/TestScene.h"

namespace orlix {
namespace {

using test::ForAll;

// Particles of two groups in a box of 8 x 6 x 7 cells of a quarter metre, all with one velocity.
class Transfer : public ::testing::Test {
 protected:
  static constexpr double kCell = 0.25;
  const Vec3D kVelocity{0.25, -1.5, 3};
  const VecInt3D cells{8, 6, 7};

  Transfer() {
    BaseObject& a = scene_.Add("particlegroup", "A");
    BaseObject& b = scene_.Add("particlegroup", "B");
    scene_.Step(0);
    groups = {scene_.NodeOf<ParticleGroup>(a), scene_.NodeOf<ParticleGroup>(b)};
    for (ParticleGroup* group : groups) group->factory(PK_Liquid).SetListCount(1);
    std::uint32_t state = 5;
    const auto random = [&] { return (state = state * 1664525u + 1013904223u) / 4294967296.0; };
    for (int n = 0; n < 6000; ++n) {
      ParticleList& list = *groups[n % 3 == 0]->list(PK_Liquid);
      const std::int32_t row = list.Append(1, BaseParticleData());
      const Vec3D place = Vec3D(1 + 6 * random(), 1 + 4 * random(), 1 + 5 * random()) * kCell;
      const OrlixParticle particle(&list, row);
      particle.SetPosition(place), particle.SetVelocity(kVelocity);
    }
    space.Build(cells, Vec3D(cells) * kCell, static_cast<float>(kCell), Vec3D());
    for (int axis = 0; axis < 3; ++axis) {
      VecInt3D dims = cells;
      ++dims[axis];
      faces[axis] = std::make_unique<Grid<double>>(dims, static_cast<std::uint32_t>(axis));
      faces[axis]->Fill(0);
      change[axis] = std::make_unique<Grid<double>>(dims, static_cast<std::uint32_t>(axis));
      lattice.faces[axis] = *faces[axis];
    }
    lattice.inverseCell = 1 / kCell;
    sort.Configure(PK_Liquid, space, 16);
    sort.Sort(groups, false, scene_.pool);
  }

  test::TestScene scene_{2};
  std::vector<ParticleGroup*> groups;
  GridSpace space;
  ParticleSort sort;
  FlipLattice lattice;
  ScratchPool scratch;
  std::unique_ptr<Grid<double>> faces[3], change[3];
};

TEST_F(Transfer, AUniformVelocityComesAndGoesWhole) {
  ASSERT_EQ(sort.AllEntries().size(), 6000u);
  for (const bool gather : {false, true}) {
    if (gather) {
      GatherVelocities(sort, lattice, {.radius = 1.4}, scene_.pool);
    } else {
      SplatVelocities(sort, lattice, scratch, scene_.pool);
    }
    int reached = 0, empty = 0;
    for (int axis = 0; axis < 3; ++axis) {
      ForAll(faces[axis]->dims, [&](int i, int j, int k) {
        const double u = (*faces[axis])(i, j, k);
        u == 0 ? ++empty : ++reached;
        EXPECT_NEAR(u, u == 0 ? 0 : kVelocity[axis], 1e-12);
      });
    }
    EXPECT_GT(reached, 500) << gather;
    EXPECT_GT(empty, 50) << "faces that no particle reaches hold 0";
  }
}

// With ratio r a particle takes r times its own velocity and what the faces' change gives, and the rest from the faces.
TEST_F(Transfer, TheRatioBlendsOldAndNew) {
  for (const double ratio : {0.0, 0.75, 1.0}) {
    for (int axis = 0; axis < 3; ++axis) faces[axis]->Fill(4), change[axis]->Fill(1.5);  // now, and before the forces
    for (ParticleGroup* group : groups) {
      for (int n = 0; n < group->Count(PK_Liquid); ++n) group->At(PK_Liquid, n).SetVelocity({1, 2, 3});
    }
    BlendVelocities(sort, lattice, {*change[0], *change[1], *change[2]}, ratio, scene_.pool);
    const Vec3D expected = ratio * (Vec3D(1, 2, 3) + Vec3D(2.5)) + (1 - ratio) * Vec3D(4);
    for (ParticleGroup* group : groups) {
      for (int n = 0; n < group->Count(PK_Liquid); n += 7) {
        EXPECT_LT(Length(group->At(PK_Liquid, n).GetVelocity() - expected), 1e-12) << ratio;
      }
    }
  }
}

TEST(LiquidVolume, IsThatOfABox) {
  Grid<double> phi({6, 6, 6}, 13);
  ForAll(phi.dims, [&](int i, int j, int k) { phi(i, j, k) = (j - 2.3) * 0.5; });
  WorkerPool pool(2);
  EXPECT_NEAR(LiquidVolume(phi, 0.5, 0.125, {}, pool), 36 * 2.8 * 0.125, 1e-12);
}

// --- the pressure system at a free surface

struct Surface {
  explicit Surface(const VecInt3D& cells) : phi(cells, 13), equation(cells, 0) {
    for (int axis = 0; axis < 3; ++axis) {
      VecInt3D dims = cells;
      ++dims[axis];
      share[axis] = std::make_unique<Grid<float>>(dims, 0u);
      weight[axis] = std::make_unique<Grid<double>>(dims, 0u);
      share[axis]->Fill(1);
      surface.share[axis] = *share[axis], weights[axis] = *weight[axis];
    }
    surface.phi = phi;
  }
  Grid<double> phi;
  Grid<std::uint8_t> equation;
  std::unique_ptr<Grid<float>> share[3];
  std::unique_ptr<Grid<double>> weight[3];
  FreeSurface surface;
  GridView<double> weights[3];
};

TEST(FreeSurface, WeightsAreSharesOverTheta) {
  Surface s({5, 5, 5});
  s.phi.Fill(10);
  s.phi(2, 2, 2) = -0.001;
  s.phi(3, 2, 2) = -1;
  s.phi(4, 2, 2) = -1;  // the border has no equation
  s.phi(2, 3, 2) = 0;   // exactly 0 is air
  (*s.share[2])(3, 2, 2) = 0.5f;
  WorkerPool pool(2);
  EXPECT_EQ(FillSurfaceWeights(s.surface, 2, s.weights, s.equation.data, pool), 2);
  EXPECT_NEAR(s.weights[0](2, 2, 2), 2 / 0.01, 1e-4);  // theta of 1e-4 is raised
  EXPECT_EQ(s.weights[0](3, 2, 2), 2);                 // liquid on both sides
  EXPECT_NEAR(s.weights[1](2, 3, 2), 2, 1e-12);        // the surface at the far cell's centre
  EXPECT_NEAR(s.weights[2](3, 2, 2), 0.5 * 2 * 11, 1e-4);
  EXPECT_EQ(s.weights[1](1, 1, 1), 0);  // in air
}

TEST(FreeSurface, ADropOfOneCellHasAPositiveDiagonalAndAirKeepsItsVelocity) {
  Surface s({5, 5, 5});
  s.phi.Fill(1);
  s.phi(2, 2, 2) = -1;
  (*s.share[0])(1, 2, 2) = 0;
  WorkerPool pool(1);
  EXPECT_EQ(FillSurfaceWeights(s.surface, 1, s.weights, s.equation.data, pool), 1);
  Grid<double> pressure(s.phi.dims, 0u), u({6, 5, 5}, 0u), v({5, 6, 5}, 1u), w({5, 5, 6}, 2u);
  for (Grid<double>* grid : {&pressure, &u, &v, &w}) grid->Fill(0);
  u.Fill(3), pressure(2, 2, 2) = 1;
  GridView<double> velocity[3] = {u, v, w};
  ApplySurfaceGradient(s.surface, pressure.data, 0.5, velocity, pool);
  EXPECT_NEAR(u(2, 2, 2), 3 - 0.5 / 0.5, 1e-6);  // theta is a half
  EXPECT_NEAR(u(3, 2, 2), 3 + 0.5 / 0.5, 1e-6);
  EXPECT_EQ(u(1, 2, 2), 0);  // closed
  EXPECT_EQ(u(3, 3, 3), 3);  // in air
}

// Cells of a metre, with a number of particles in each that a test gives.
class Counts : public ::testing::Test {
 protected:
  const VecInt3D cells{9, 9, 9};

  Counts() : phi(cells, Vec3D(cells), 1, kGridLevelset, Vec3D()), open(cells, 0u), source(cells, 0u) {
    BaseObject& object = scene_.Add("particlegroup", "A");
    scene_.Step(0);
    group = scene_.NodeOf<ParticleGroup>(object);
    group->factory(PK_Liquid).SetListCount(1);
    open.Fill(1), source.Fill(0);
  }
  template <class F>
  void Fill(F&& count) {
    ParticleList& list = *group->list(PK_Liquid);
    test::ForAll(cells, [&](int i, int j, int k) {
      for (int n = count(i, j, k); n > 0; --n) {
        BaseParticleData data;
        data.position = Vec3D(i, j, k) + Vec3D(0.5);
        list.Append(1, data);
      }
    });
    sort.Configure(PK_Liquid, phi.space, 16);
    sort.Sort(std::vector<ParticleGroup*>{group}, false, scene_.pool);
  }
  void BuildSurface(bool fillHoles) {
    ParticleToLevelset build;
    build.minimumCount = 0, build.fillHoles = fillHoles;
    build.Build(scene_.pool, scratch, sort, {}, phi);
  }

  test::TestScene scene_{2};
  ParticleGroup* group = nullptr;
  ParticleSort sort;
  ScratchPool scratch;
  ScalarGrid phi;
  Grid<float> open;
  Grid<double> source;
};

bool Inside(int i, int j, int k) { return i > 0 && i < 8 && j > 0 && j < 6 && k > 0 && k < 8; }

TEST_F(Counts, ADenseMiddleIsDrivenApartAndAThinOneClosesUp) {
  for (const int middle : {8, 16, 4}) {
    group->list(PK_Liquid)->Clear();
    source.Fill(0);
    Fill([&](int i, int j, int k) {
      return !Inside(i, j, k) ? 0 : VecInt3D(i, j, k) == VecInt3D(4, 3, 4) ? middle : 8;
    });
    BuildSurface(true);
    AddVolumeSource({10, 8}, sort, phi, open, scratch, source, scene_.pool);
    const double change = (middle - 8) / (8.0 * 27);
    const double expected = middle == 8 ? 0 : 10 * (std::abs(change) - 0.02) * (change > 0 ? 1 : -1);
    EXPECT_NEAR(source(4, 3, 4), std::abs(change) > 0.02 ? expected : 0, 1e-6) << middle;
    EXPECT_EQ(source(2, 2, 2), 0) << "full";
    EXPECT_EQ(source(4, 5, 4), 0) << "at the surface, where cells aren't full";
    EXPECT_EQ(source(4, 7, 4), 0) << "in air";
  }
}

TEST_F(Counts, AHoleOfACellIsFilledAndACaveIsNot) {
  // A hole; two of them side by side, along each axis.
  Fill([](int i, int j, int k) {
    const VecInt3D at(i, j, k);
    for (const VecInt3D& air : {VecInt3D(4, 3, 2), VecInt3D(4, 3, 4), VecInt3D(4, 3, 5), VecInt3D(2, 2, 6),
                                VecInt3D(2, 3, 6), VecInt3D(5, 2, 2), VecInt3D(6, 2, 2)}) {
      if (at == air) return 0;
    }
    return Inside(i, j, k) ? 1 : 0;
  });
  BuildSurface(false);
  EXPECT_GT(phi(4, 3, 2), 0);
  BuildSurface(true);
  EXPECT_LT(phi(4, 3, 2), 0);
  for (const VecInt3D& air : {VecInt3D(4, 3, 4), VecInt3D(4, 3, 5), VecInt3D(2, 2, 6), VecInt3D(2, 3, 6),
                              VecInt3D(5, 2, 2), VecInt3D(6, 2, 2)}) {
    EXPECT_GT(phi(air.x, air.y, air.z), 0) << air.x << " " << air.y << " " << air.z;
  }
  EXPECT_GT(phi(4, 6, 4), 0) << "above the surface";
}

}  // namespace
}  // namespace orlix
