// Sort and tree against brute force.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

#include "fluids/particles/AnisotropyPass.h"
#include "fluids/particles/NeighbourWalk.h"
#include "fluids/particles/ParticleSort.h"
#include "tests/support/TestScene.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

Vec3D Place(std::mt19937& random, double low, double high) {
  std::uniform_real_distribution<double> d(low, high);
  return {d(random), d(random), d(random)};
}

// Clouds that are hard in different ways: even, clustered with one far away, on a lattice (many ties), all in one
// point, and few.
std::vector<Vec3D> CloudOf(int shape, std::mt19937& random) {
  std::vector<Vec3D> points;
  const int counts[] = {20000, 20000, 17576, 3000, 9};
  for (int i = 0; i < counts[shape]; ++i) {
    if (shape == 0) points.push_back(Place(random, 0, 1));
    if (shape == 1) points.push_back(i == 7 ? Vec3D(1e6) : Place(random, 0, 1) * Place(random, 0, 1e-3));
    if (shape == 2) points.push_back(Vec3D(i % 26, i / 26 % 26, i / 676) * 0.04);
    if (shape == 3) points.push_back({1, 2, 3});
    if (shape == 4) points.push_back(Place(random, 0, 1));
  }
  return points;
}

std::vector<Neighbour> BruteForce(const std::vector<Vec3D>& points, const Vec3D& x, double limit, std::size_t k) {
  std::vector<Neighbour> found;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const double d = LengthSquared(points[i] - x);
    if (d < limit) found.push_back({static_cast<std::int32_t>(i), d, std::sqrt(d)});
  }
  std::stable_sort(found.begin(), found.end(),
                   [](const auto& a, const auto& b) { return a.distanceSquared < b.distanceSquared; });
  if (found.size() > k) found.resize(k);
  return found;
}

TEST(ParticleKdTree, FindsWhatBruteForceFindsInItsOrder) {
  std::mt19937 random(3);
  WorkerPool pool(3);
  std::int64_t neighbours = 0;
  for (int shape = 0; shape < 5; ++shape) {
    const std::vector<Vec3D> points = CloudOf(shape, random);
    ParticleKdTree tree;
    tree.Build(points, pool);
    EXPECT_EQ(tree.pointCount(), static_cast<std::int32_t>(points.size()));
    for (const int k : {1, 32, 72, 300}) {
      tree.SetCapacity(k);
      for (int q = 0; q < 30; ++q) {
        const Vec3D x = q % 2 ? points[random() % points.size()] : Place(random, -0.1, 1.1);
        const double limits[] = {1e-4, 0.01, 0.12 * 0.12, 0.04 * 0.04, kNowhere, 0};
        const double limit = limits[random() % 6];
        const auto expected = BruteForce(points, x, limit, static_cast<std::size_t>(k));
        const auto found = tree.Search(x, limit, q % 4);
        ASSERT_EQ(found.size(), expected.size()) << shape << " " << k << " " << limit;
        for (std::size_t n = 0; n < found.size(); ++n) {
          ASSERT_EQ(found[n].index, expected[n].index) << n;
          ASSERT_EQ(found[n].distanceSquared, expected[n].distanceSquared);
          ASSERT_EQ(found[n].distance, expected[n].distance);
        }
        EXPECT_EQ(tree.Count(x, limit, 0), static_cast<std::int32_t>(expected.size()));
        neighbours += static_cast<std::int64_t>(found.size());
      }
    }
  }
  EXPECT_GT(neighbours, 10000);
}

TEST(ParticleKdTree, TheTreesOwnPointsFindTheSameInItsOrder) {
  std::mt19937 random(4);
  WorkerPool pool(3);
  for (int shape = 0; shape < 5; ++shape) {
    const std::vector<Vec3D> points = CloudOf(shape, random);
    ParticleKdTree tree;
    tree.Build(points, pool);
    tree.SetCapacity(40);
    for (const double radius : {0.06, shape == 1 ? 1e-3 : 0.5}) {  // the second reaches beyond what is gathered
      std::atomic<int> asked{0}, wrong{0};
      const auto check = [&](std::int32_t i, const Vec3D& place, std::span<const Neighbour> near, std::int32_t thread) {
        ++asked;
        if (i % 37 != 0) return;
        const std::vector<Neighbour> found(near.begin(), near.end());
        const auto same = [](const Neighbour& a, const Neighbour& b) {
          return a.index == b.index && a.distance == b.distance;
        };
        const auto expected = tree.Search(place, radius * radius, thread);
        if (!std::equal(found.begin(), found.end(), expected.begin(), expected.end(), same)) ++wrong;
      };
      const auto own = [&](std::int32_t i) { return points[static_cast<std::size_t>(i)]; };
      ForEachNeighbourhood(tree, pool, radius,
                           [&](std::int32_t i, std::span<const Neighbour> near, std::int32_t thread) {
                             check(i, own(i), near, thread);
                           });
      EXPECT_EQ(asked, static_cast<int>(points.size()));
      // Two thirds of them, each at a place that it moves to.
      asked = 0;
      std::vector<Vec3D> moved;
      for (std::size_t i = 0; i < points.size(); ++i) {
        moved.push_back(points[i] + Vec3D(0.03, -0.02, 0.05) * double(i % 2));
      }
      ForEachNeighbourhoodAt(
          tree, pool, radius, [&](std::int32_t i) { return i % 3 != 0 ? &moved[std::size_t(i)] : nullptr; },
          [&](std::int32_t i, std::span<const Neighbour> near, std::int32_t thread) {
            check(i, moved[std::size_t(i)], near, thread);
          });
      EXPECT_EQ(asked, static_cast<int>(points.size() - (points.size() + 2) / 3));
      EXPECT_EQ(wrong, 0) << shape << " " << radius;
    }
  }
}

TEST(ParticleKdTree, NoPointsAndPointsThatAreNoNumbersAreNotFound) {
  WorkerPool pool(2);
  ParticleKdTree tree;
  EXPECT_TRUE(tree.Search({}, kNowhere, 0).empty());
  tree.Build(std::span<const Vec3D>(), pool);
  EXPECT_TRUE(tree.Search({}, kNowhere, 0).empty());
  std::vector<Vec3D> points(3000, Vec3D(NAN));
  points[1234] = {1, 0, 0};
  tree.Build(points, pool);
  ASSERT_EQ(tree.Search({1, 0, 0}, kNowhere, 0).size(), 1u);
  EXPECT_EQ(tree.Search({1, 0, 0}, kNowhere, 0)[0].distance, 0);
  EXPECT_TRUE(tree.Search({NAN, 0, 0}, 1, 0).empty());
}

// Two groups in a scene whose particles lie in and around a lattice.
struct SortScene {
  explicit SortScene(int workers) : scene(workers) {
    const BaseObject& a = scene.Add("particlegroup", "A");
    const BaseObject& b = scene.Add("particlegroup", "B");
    scene.Step(0);
    groups = {scene.NodeOf<ParticleGroup>(a), scene.NodeOf<ParticleGroup>(b)};
    std::mt19937 random(9);
    for (ParticleGroup* group : groups) {
      for (int i = 0; i < 12000; ++i) {
        const OrlixParticle p = group->NewParticle(PK_Liquid);
        p.SetPosition(Place(random, -0.5, 8.5) * Vec3D(1, 1, random() % 2 ? 1 : 0.1));
        if (random() % 10 == 0) p.Kill();
      }
    }
    groups[0]->At(PK_Liquid, 5).SetPosition({2 - 1e-7, 8, 3});         // on the upper boundary: out
    groups[0]->At(PK_Liquid, 6).SetPosition({2 - 1e-7, 8 - 1e-7, 3});  // 8, limited to its row
    groups[0]->At(PK_Liquid, 6).SetFlag(ParticleFlag::Alive, true);
    groups[0]->At(PK_Liquid, 7).SetPosition({NAN, 1, 1});
    space.Build({16, 8, 40}, {16, 8, 40}, 1, {});
  }
  // The cell that a particle stands in, or -1.
  std::int32_t CellOf(const OrlixParticle& p) const {
    if (!p.HasFlag(ParticleFlag::Alive)) return -1;
    std::int32_t cell[3];
    for (int a = 0; a < 3; ++a) {
      const double c = (p.GetPosition()[a] - space.simMin[a]) * space.voxelsPerSim[a];
      if (!(c >= 0 && c < space.dims[a])) return -1;
      cell[a] = std::min(static_cast<std::int32_t>(c + 1e-6), space.dims[a] - 1);
    }
    return (cell[2] * space.dims.y + cell[1]) * space.dims.x + cell[0];
  }
  test::TestScene scene;
  std::vector<ParticleGroup*> groups;
  GridSpace space;
};

TEST(ParticleSort, CellsHoldTheirParticlesInIndexOrder) {
  SortScene s(3);
  ParticleSort sort;
  sort.Configure(PK_Liquid, s.space, 4);
  std::int32_t cell = 77, count = -1;
  EXPECT_TRUE(sort.CellOf({-5, 0, 0}, cell, count, true, true));
  EXPECT_EQ(cell, 77);
  sort.Sort(s.groups, true, s.scene.pool);
  using Place = std::pair<std::int32_t, std::int32_t>;
  std::map<std::int32_t, std::vector<Place>> expected;
  for (std::int32_t g = 0; g < 2; ++g) {
    const ParticleList& list = *s.groups[static_cast<std::size_t>(g)]->list(PK_Liquid);
    for (std::int32_t i = 0; i < list.count(); ++i) {
      const OrlixParticle p = s.groups[static_cast<std::size_t>(g)]->At(PK_Liquid, i);
      const std::int32_t in = s.CellOf(p);
      EXPECT_EQ(p.HasFlag(ParticleFlag::Sorted), in >= 0);
      EXPECT_TRUE(p.Has(PP::SavedVelocity));
      if (in >= 0) expected[in].push_back({g, i});
    }
  }
  EXPECT_GT(expected.size(), 600u);
  EXPECT_FALSE(s.groups[0]->At(PK_Liquid, 5).HasFlag(ParticleFlag::Sorted));
  EXPECT_EQ(s.CellOf(s.groups[0]->At(PK_Liquid, 6)), (3 * 8 + 7) * 16 + 2);
  ASSERT_EQ(sort.Cells().size(), expected.size());
  const auto placesOf = [&](std::span<const std::int32_t> entries) {
    std::vector<Place> places;
    for (const std::int32_t flat : entries) {
      const ParticleSort::Place place = sort.PlaceOf(flat);
      places.emplace_back(place.group, place.index);
    }
    return places;
  };
  for (const auto& [key, particles] : expected) {
    ASSERT_EQ(placesOf(sort.Entries(key)), particles) << key;
    const Vec3D x =
        s.groups[static_cast<std::size_t>(particles[0].first)]->At(PK_Liquid, particles[0].second).GetPosition();
    EXPECT_EQ(sort.CellOf(x, cell, count, true, false), particles.size() < 4);
    EXPECT_EQ(cell, key);
    EXPECT_EQ(count, static_cast<std::int32_t>(particles.size()));
  }
  EXPECT_TRUE(sort.Entries(-1).empty() && sort.Entries(1 << 30).empty());
  EXPECT_FALSE(sort.CellOf({0.5, 4, 4}, cell, count, false, true));
  for (const bool exclusive : {false, true}) {
    std::vector<Place> window, gathered;
    for (std::int32_t z = 0; z < (exclusive ? 3 : 4); ++z) {
      for (std::int32_t y = 5; y < 8; ++y) {
        for (std::int32_t x = 1; x < (exclusive ? 5 : 6); ++x) {
          const auto& in = expected[(z * 8 + y) * 16 + x];
          window.insert(window.end(), in.begin(), in.end());
        }
      }
    }
    sort.ForEachRow({3, 7, 1}, 2, exclusive, [&](std::span<const std::int32_t> entries) {
      const auto places = placesOf(entries);
      gathered.insert(gathered.end(), places.begin(), places.end());
    });
    EXPECT_EQ(gathered, window);
    EXPECT_GT(window.size(), 100u);
  }
  sort.Clear(true);
  EXPECT_FALSE(s.groups[0]->At(PK_Liquid, 6).Has(PP::SavedVelocity));
  EXPECT_TRUE(sort.Entries(expected.begin()->first).empty());
}

TEST(ParticleSort, TheSameAtAnyNumberOfWorkersAndWhereCellsAreFewAndFarBetween) {
  test::SameForAnyWorkers([](int workers) {
    SortScene s(workers);
    // Of two thousand million cells; nearly all particles lie in a few of them.
    s.space.Build({1280, 1280, 1280}, Vec3D(1280), 1, {});
    s.groups[1]->At(PK_Liquid, 100).SetPosition({1279, 1278.5, 1279.5});
    ParticleSort sort;
    sort.Configure(PK_Liquid, s.space, 16);
    sort.Sort(s.groups, false, s.scene.pool);
    const std::vector<std::int32_t> entries(sort.AllEntries().begin(), sort.AllEntries().end());
    const std::vector<std::int32_t> cells(sort.Cells().begin(), sort.Cells().end());
    EXPECT_GT(entries.size(), 10000u);
    EXPECT_LT(sort.Bytes(), 2000000);
    EXPECT_EQ(sort.Entries(cells.back()).size(), 1u);
    EXPECT_EQ(sort.ParticleAt(sort.Entries(cells.back())[0]).index(), 100);
    return std::pair(entries, cells);
  });
}

TEST(ParticleSort, WhatDidNotMoveIsNotSortedAgainAndTheFlagsStand) {
  SortScene s(2);
  ParticleSort one, other;
  one.Configure(PK_Liquid, s.space, 16);
  GridSpace far = s.space;
  far.SetOrigin({100, 100, 100});
  other.Configure(PK_Liquid, far, 16);
  one.Sort(s.groups, false, s.scene.pool);
  const std::int32_t* before = one.AllEntries().data();
  const OrlixParticle p = s.groups[0]->At(PK_Liquid, 6);
  p.SetVelocity({1, 2, 3});
  one.Clear(true);
  EXPECT_FALSE(one.ParticleAt(0));
  one.Sort(s.groups, false, s.scene.pool);
  EXPECT_EQ(one.AllEntries().data(), before);
  EXPECT_EQ(one.Entries((3 * 8 + 7) * 16 + 2).empty(), false);
  other.Sort(s.groups, false, s.scene.pool);
  EXPECT_FALSE(p.HasFlag(ParticleFlag::Sorted));
  EXPECT_EQ(other.sortedCount(), 0);
  one.Sort(s.groups, false, s.scene.pool);
  EXPECT_TRUE(p.HasFlag(ParticleFlag::Sorted));
  p.SetPosition({-1, 0, 0});
  one.Sort(s.groups, false, s.scene.pool);
  EXPECT_FALSE(p.HasFlag(ParticleFlag::Sorted));
}

TEST(ParticleSort, ADenseCellIsFull) {
  SortScene s(1);
  ParticleSort sort;
  sort.Configure(PK_Liquid, s.space, 16);
  sort.Sort(s.groups, false, s.scene.pool);
  const std::int32_t cell = sort.Cells()[3];
  const double n = static_cast<double>(sort.Entries(cell).size());
  EXPECT_NEAR(sort.Deficit(cell, 0.5, 0.2), 1.6 - n, 1e-12);
  sort.ParticleAt(sort.Entries(cell)[0]).SetOrAddReal(PP::Density, 0.25);
  EXPECT_NEAR(sort.Deficit(cell, 0.5, 0.2), 1.6 - n + 0.75, 1e-12);
  EXPECT_TRUE(sort.IsFull(cell, 1.0));
  EXPECT_FALSE(sort.IsFull(cell, 0.01));
  EXPECT_FALSE(sort.IsFull(s.space.count - 1, 1.0));
}

// Stretches of surface balls, against what is known of them.

double Determinant(const Matrix3& a) { return Dot(a.Row(0), Cross(a.Row(1), a.Row(2))); }

TEST(SymmetricMatrix, EigenvectorsTurnBackIntoTheMatrix) {
  std::mt19937 random(2);
  std::uniform_real_distribution<double> d(-1, 1);
  std::vector<Matrix3> all(201);
  for (std::size_t n = 0; n < 200; ++n) {
    Matrix3& a = all[n];
    for (int r = 0; r < 3; ++r) {
      for (int c = r; c < 3; ++c)
        a.m[r][c] = a.m[c][r] = n % 5 == 0 && r != c ? 0 : d(random) * (n % 7 == 0 ? 1e-9 : 1);
    }
    const EigenSystem s = EigenSystemOf(a);
    EXPECT_GE(s.values[0], s.values[1]);
    EXPECT_GE(s.values[0], s.values[2]);
    const Matrix3 back = StretchAlong(s.vectors, s.values);
    for (int r = 0; r < 3; ++r) {
      for (int c = 0; c < 3; ++c) {
        EXPECT_NEAR(back.m[r][c], a.m[r][c], 1e-14);
        EXPECT_NEAR(Dot(s.vectors[r], s.vectors[c]), r == c ? 1 : 0, 1e-14);
      }
    }
    const double x = std::fabs(d(random)) + 1e-3;
    EXPECT_NEAR(FastCubeRoot(x) / std::cbrt(x), 1, 1e-4);
  }
  // Many at once, of which one is of zeros: as if each were alone.
  all[200] = {{{0, 0, 0}, {0, 0, 0}, {0, 0, 0}}};
  std::vector<EigenSystem> together(all.size());
  FindEigenSystems(all, together);
  for (std::size_t n = 0; n < all.size(); ++n) {
    const EigenSystem alone = EigenSystemOf(all[n]);
    for (int k = 0; k < 3; ++k) {
      EXPECT_EQ(together[n].values[k], alone.values[k]);
      EXPECT_EQ(together[n].vectors[k], alone.vectors[k]);
    }
  }
}

AnisotropySettings Settings() {
  AnisotropySettings s;
  s.maxNeighbours = 50, s.minNeighbours = 10, s.radius = 0.5, s.radiusFactor = 2;
  return s;
}

TEST(Anisotropy, ASheetIsFlattenedAndKeepsItsVolume) {
  std::vector<Vec3D> points;
  for (int i = 0; i < 400; ++i) points.push_back({(i % 20) * 0.15, (i / 20) * 0.15, 0});
  points.push_back({100, 0, 0});
  WorkerPool pool(2);
  std::vector<Anisotropy> results(points.size());
  RunAnisotropyPass(Settings(), points, pool, results);
  const Matrix3& m = results[210].matrix;
  EXPECT_NEAR(Determinant(m), 1, 1e-3);
  EXPECT_NEAR(m.m[2][2] * results[210].scale, 4, 1e-9);  // the sheet's normal, limited by the ratio
  EXPECT_NEAR(m.m[0][0], m.m[1][1], 0.1);
  EXPECT_NEAR(m.m[0][2], 0, 1e-12);
  EXPECT_NEAR(results[210].scale, 1 / m.m[0][0], 0.2);
  EXPECT_EQ(results[400].matrix, Matrix3());  // alone
  EXPECT_EQ(results[400].scale, 1);
}

TEST(Anisotropy, FewNeighboursOrOnePlaceGiveNoStretch) {
  const std::vector<Vec3D> points(60, Vec3D(1, 2, 3));
  std::vector<Neighbour> near;
  for (int i = 0; i < 60; ++i) near.push_back({i, 0, 0});
  EXPECT_EQ(AnisotropyByNeighbourhood(Settings(), points, near).matrix, Matrix3());
  const std::vector<Vec3D> line = {{0, 0, 0}, {0.1, 0, 0}, {0.2, 0, 0}};
  const std::vector<Neighbour> three = {{0, 0, 0}, {1, 0.01, 0.1}, {2, 0.04, 0.2}};
  const Anisotropy few = AnisotropyByNeighbourhood(Settings(), line, three);
  for (int r = 0; r < 3; ++r) EXPECT_NEAR(few.matrix.m[r][r], 1, 1e-4);
  EXPECT_EQ(AnisotropyByNeighbourhood(Settings(), line, {}).matrix, Matrix3());
}

TEST(Anisotropy, ByVelocityTheBallGrowsAlongIt) {
  AnisotropySettings s = Settings();
  s.mode = AnisotropySettings::Mode::ByVelocity;
  const std::vector<Vec3D> velocities = {{0, 3, 0}, {1, 0, 0}, {100, 0, 0}, {0.005, 0, 0}};
  WorkerPool pool(1);
  std::vector<Anisotropy> results(velocities.size());
  RunAnisotropyPass(s, velocities, pool, results);
  for (std::size_t i = 0; i < 3; ++i) {
    const Vec3D u = Normalized(velocities[i]);
    EXPECT_NEAR(std::fabs(Determinant(results[i].matrix)), 1, 1e-12);
    EXPECT_NEAR(Length(results[i].matrix * (u * results[i].scale)), 1, 1e-12);  // the surface of the ball
  }
  EXPECT_NEAR(results[1].scale, 1.21, 1e-12);
  EXPECT_NEAR(results[2].scale, std::pow(4, 2.0 / 3), 1e-12);
  EXPECT_EQ(results[3].matrix, Matrix3());
}

}  // namespace
}  // namespace orlix
