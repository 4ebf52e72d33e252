#include "fluids/liquids/VolumeKeeping.h"

#include <gtest/gtest.h>

#include "fluids/level_sets/ParticleToLevelset.h"
#include "tests/support/Cells.h"
#include "tests/support/TestScene.h"

namespace orlix {
namespace {

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
  Fill([](int i, int j, int k) { return Inside(i, j, k) && !(i == 4 && j == 3 && (k == 2 || k == 4 || k == 5)); });
  BuildSurface(false);
  EXPECT_GT(phi(4, 3, 2), 0);
  BuildSurface(true);
  EXPECT_LT(phi(4, 3, 2), 0);
  EXPECT_GT(phi(4, 3, 4), 0);
  EXPECT_GT(phi(4, 6, 4), 0) << "above the surface";
}

}  // namespace
}  // namespace orlix
