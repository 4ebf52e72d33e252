// Where a liquid makes foam, spray and bubbles, and what becomes of them: by hand-made fields.

#include <gtest/gtest.h>

#include <cmath>

#include "fluids/foam/DiffuseUpdate.h"
#include "fluids/foam/MeshSeeding.h"
#include "fluids/foam/ParticleSeeding.h"
#include "tests/support/Cells.h"
#include "tests/support/TestScene.h"

namespace orlix {
namespace {

constexpr double kCell = 0.1;

// A level set on nodes by a function of the place, from the origin on.
ScalarGrid LevelSetOf(int cells, const std::function<double(const Vec3D&)>& f) {
  ScalarGrid grid({cells + 1, cells + 1, cells + 1}, Vec3D(cells * kCell), float(kCell), kGridNodalLevelset, {});
  test::ForAll(grid.dims, [&](int i, int j, int k) { grid(i, j, k) = f(Vec3D(i, j, k) * kCell); });
  return grid;
}

TEST(FoamSurface, CurvatureIsThatOfABallOfACylinderAndOfAPlane) {
  WorkerPool pool(2);
  const Vec3D c(1.02, 0.97, 1.03);
  FoamSurface surface;
  const ScalarGrid ball = LevelSetOf(20, [&](const Vec3D& p) { return Length(p - c) - 0.6; });
  surface.UseLevelSet(ball, pool);
  for (const Vec3D& d : {Vec3D(1, 0, 0), Vec3D(0, -1, 0), Normalized(Vec3D(1, 1, -1))}) {
    EXPECT_NEAR(surface.Curvature(c + 0.6 * d), 2 / 0.6, 0.5);
    EXPECT_NEAR(surface.Distance(c + 0.7 * d), 0.1, 0.01);
    EXPECT_LT(Length(surface.Normal(c + 0.6 * d) - d), 0.1);
  }
  EXPECT_NEAR(surface.Curvature(c), 1 / kCell, 1) << "limited";
  EXPECT_EQ(surface.Curvature({0, 0, 0}), 0) << "the border";
  const ScalarGrid cylinder = LevelSetOf(20, [&](const Vec3D& p) { return std::hypot(p.x - c.x, p.y - c.y) - 0.6; });
  surface.UseLevelSet(cylinder, pool);
  EXPECT_NEAR(surface.Curvature(c + Vec3D(0.6, 0, 0)), 1 / 0.6, 0.3);
  const ScalarGrid plane = LevelSetOf(20, [](const Vec3D& p) { return p.y > 1.5 ? 1e300 : p.y - 0.77; });
  surface.UseLevelSet(plane, pool);
  EXPECT_NEAR(surface.Curvature({0.5, 0.77, 0.5}), 0, 1e-9);
  EXPECT_TRUE(std::isfinite(surface.Curvature({0.5, 1.52, 0.5}))) << "where no liquid is near";
}

// Particles of a liquid in a group, without a scene that moves them.
struct Spring : test::TestScene {
  Spring() {
    root->Set(RootSettings::kVoxelSizeId, kCell);
    object = &Add("particlegroup", "Water");
    Step(0);
    group = NodeOf<ParticleGroup>(*object);
    s.source = FoamSource::Particles;
    s.cellSize = kCell, s.dt = 0.01, s.frameTime = 0.04, s.fps = 25;
    s.foam.life = {2, 0.5}, s.spray.life = {8, 0.25};
    s.crestRate = 1000, s.trappedAirRate = 500;
    s.crest = {2, 8}, s.trappedAir = {5, 20}, s.energy = {1, 3};
  }
  OrlixParticle AddWater(const Vec3D& x, const Vec3D& v = {}) {
    BaseParticleData data;
    data.flags |= ParticleFlag::Liquid;
    data.position = x, data.velocity = v;
    ParticleList& list = *group->list(PK_Liquid);
    return {&list, list.Append(1, data)};
  }
  const LiquidCells& Cells() {
    cells.Build(*group->list(PK_Liquid), kCell, {}, pool);
    return cells;
  }
  // Of the first particle alone.
  DiffuseBirths Seed(double weight = 1, bool sortedOnly = false) {
    DiffuseBirths births;
    FoamRandom random(MersenneTwister(3));
    std::vector<double> weights(std::size_t(group->Count(PK_Liquid)), 0.0);
    weights[0] = weight;
    ParticleSeeding(s, surface, *group->list(PK_Liquid), Cells(), sortedOnly)
        .Seed(group->list(PK_Liquid)->Rows(0), weights.data(), random, births);
    return births;
  }
  // A ball of particles about the first, so that a candidate finds about this many.
  void Crowd(int n, double radius) {
    MersenneTwister random(9);
    for (int i = 0; i < n;) {
      const Vec3D p = Vec3D(random.Uniform() - 0.5, random.Uniform() - 0.5, random.Uniform() - 0.5) * (2 * radius);
      if (Length(p) < radius) AddWater(p), ++i;
    }
  }

  BaseObject* object;
  ParticleGroup* group;
  FoamSettings s;
  FoamSurface surface;
  LiquidCells cells;
};

TEST(ParticleSeeding, TrappedAirIsTheWeightedSumOverTheNeighbours) {
  Spring spring;
  MersenneTwister random(4);
  const auto u = [&] { return random.Uniform() - 0.5; };
  for (int i = 0; i < 60; ++i) spring.AddWater({0.2 * u(), 0.2 * u(), 0.2 * u()}, {u(), u(), u()});
  const ParticleList& list = *spring.group->list(PK_Liquid);
  const ParticleSeeding seeding(spring.s, spring.surface, list, spring.Cells(), false);
  for (int i = 0; i < list.count(); ++i) {
    double sum = 0, weights = 0;
    for (int j = 0; j < list.count(); ++j) {
      const Vec3D x = list.Position(i) - list.Position(j), v = (list.Velocity(i) - list.Velocity(j)) / 0.01;
      const double w = 1 - LengthSquared(x) / (kCell * kCell);
      if (!(w > 0)) continue;
      sum += (Length(v) > 1e-7 ? 1 - Dot(v, Normalized(x)) / Length(v) : 1) * Length(v) * w;
      weights += w;
    }
    EXPECT_NEAR(seeding.TrappedAir(list.Position(i), list.Velocity(i)), sum / weights, 1e-5 * sum) << i;
  }
  // Two that meet trap twice what two that pass trap, two that part none.
  const auto pair = [](const Vec3D& v) {
    Spring two;
    two.AddWater({0, 0, 0}), two.AddWater({0.05, 0, 0}, v);
    return ParticleSeeding(two.s, two.surface, *two.group->list(PK_Liquid), two.Cells(), false)
        .TrappedAir({0, 0, 0}, {});
  };
  EXPECT_NEAR(pair({-0.1, 0, 0}), 2 * pair({0, 0.1, 0}), 1e-9);
  EXPECT_NEAR(pair({0.1, 0, 0}), 0, 1e-9);
}

TEST(ParticleSeeding, CountsAreTheRatesTimesThePotentials) {
  Spring spring;
  const OrlixParticle drop = spring.AddWater({0, 0, 0}, {2, 0, 0});  // energy 2: half of full
  drop.SetOrAddReal(PP::Curvature, 5), drop.SetOrAddVector(PP::Normal, {0.8, 0.6, 0});
  spring.s.spray.speed = spring.s.spray.curvature = 0;
  // A crest of half, no air: 1000 * 0.5 * 0.5 * 0.04 s.
  EXPECT_EQ(spring.Seed().size(), 10u);
  drop.SetOrAddReal(PP::Mass, 1.5);
  EXPECT_EQ(spring.Seed().size(), 20u);
  drop.SetReal(PP::Curvature, 100);
  EXPECT_EQ(spring.Seed().size(), 40u) << "no more than full";
  const double rate = std::exchange(spring.s.crestRate, 1e12);
  EXPECT_EQ(spring.Seed().size(), 0u) << "beyond the most that are tried";
  spring.s.crestRate = rate;
  drop.SetVector(PP::Normal, {0.55, 0.835, 0});
  EXPECT_EQ(spring.Seed().size(), 0u) << "it moves along the surface";
  spring.AddWater({0.05, 0, 0}, {0, 0, 0});
  EXPECT_EQ(spring.Seed().size(), 20u) << "air alone: 500 * 0.04 s";
  EXPECT_EQ(spring.Seed(0).size(), 0u) << "shut out";
  EXPECT_EQ(spring.Seed(1, true).size(), 0u) << "outside the lattice";
  drop.SetFlag(ParticleFlag::Sorted, true);
  EXPECT_EQ(spring.Seed(1, true).size(), 20u);
  drop.Kill();
  EXPECT_EQ(spring.Seed().size(), 0u);
}

TEST(ParticleSeeding, TheCrowdDecidesTheClassAndTheClassTheThresholds) {
  struct Case {
    int crowd;
    DiffuseClass kind;
  };
  for (const Case& each :
       {Case{0, DiffuseClass::Spray}, Case{14, DiffuseClass::Foam}, Case{60, DiffuseClass::Bubble}}) {
    Spring spring;
    const OrlixParticle drop = spring.AddWater({0, 0, 0}, {0.001, 0, 0});
    drop.SetOrAddReal(PP::Curvature, 9), drop.SetOrAddVector(PP::Normal, {1, 0, 0});
    drop.SetOrAddReal(PP::Mass, 1e7);
    spring.s.trappedAirRate = 0;
    spring.s.sprayBoost = {1, 0}, spring.s.sprayKick = 0.5;
    spring.Crowd(each.crowd, 0.02);
    const DiffuseBirths births = spring.Seed();
    ASSERT_EQ(births.size(), 40u);
    double shortest = 1e9, longest = 0;
    for (const DiffuseBirth& birth : births) {
      EXPECT_EQ(birth.kind, each.kind);
      EXPECT_LE(std::hypot(birth.position.y, birth.position.z), 0.5 * kCell + 1e-12) << "in a cylinder";
      EXPECT_GE(birth.position.x, -1e-12);
      shortest = std::min(shortest, birth.life), longest = std::max(longest, birth.life);
      if (each.kind == DiffuseClass::Foam) {
        EXPECT_EQ(birth.velocity, Vec3D());
      }
      // The stored speed doubled, the kick, and where it stands aside.
      if (each.kind == DiffuseClass::Spray) {
        EXPECT_NEAR(birth.velocity.x, 0.002 + 0.5, 1e-9);
      }
    }
    const Varied life = each.kind == DiffuseClass::Foam ? spring.s.foam.life : spring.s.spray.life;
    if (each.kind != DiffuseClass::Bubble) {
      EXPECT_GE(shortest, life.value * (1 - life.variation));
      EXPECT_LT(shortest, life.value * (1 - 0.7 * life.variation)) << "chance uses its range";
      EXPECT_LE(longest, life.value);
    }
    ClassRules& rules = each.kind == DiffuseClass::Foam ? spring.s.foam : spring.s.spray;
    rules.curvature = 9.5;
    EXPECT_EQ(spring.Seed().size(), 0u);
    rules.curvature = 0, rules.speed = 0.0101;  // v / dt is 0.1
    EXPECT_EQ(spring.Seed().size(), 0u);
    rules.speed = 0.0099;
    EXPECT_EQ(spring.Seed().size(), 40u);
    rules.speedVariation = 0.1;
    EXPECT_LT(spring.Seed().size(), 20u) << "a tenth of the squared speed is left to chance, a hundredth is to spare";
    rules.speedVariation = 0;
    (each.kind == DiffuseClass::Bubble ? spring.s.bubbles : rules.enabled) = false;
    EXPECT_EQ(spring.Seed().size(), 0u);
  }
}

TEST(DiffuseBirths, AreWrittenByTheirClasses) {
  Spring spring;
  WorkerPool pool(3);
  std::vector<DiffuseBirths> pieces(5);
  constexpr int kCount = 6000;
  for (int n = 0; n < kCount; ++n) {
    pieces[std::size_t(n / 1500 + (n >= 3000))].push_back(
        {{double(n), 0, 0}, {0, 3, 0}, 0.5 + n, static_cast<DiffuseClass>(n % 3)});
  }
  ParticleList list;
  list.Append(7, BaseParticleData());
  EXPECT_EQ(AppendBirths(spring.s, pieces, list, pool), kCount);
  ASSERT_EQ(list.count(), kCount + 7);
  for (int n = 0; n < kCount; ++n) {
    const OrlixParticle born(&list, n + 7);
    const auto kind = static_cast<DiffuseClass>(n % 3);
    const bool spray = kind == DiffuseClass::Spray;
    ASSERT_EQ(born.GetFlags(), spray ? 0x611 : kind == DiffuseClass::Bubble ? 0xA11 : 0x211);
    ASSERT_EQ(ClassOfFlags(born.GetFlags()), kind);
    ASSERT_NEAR(born.GetRealOr(PP::Age, 0), 25 * (0.5 + n), 0.02);
    ASSERT_EQ(born.Has(PP::Mass), spray);
    const double fall = spray ? 3 - 9.81 * 0.01 : 3;
    ASSERT_NEAR(born.GetVelocity().y, fall, 1e-6);
    ASSERT_NEAR(born.GetPosition().y, spray ? fall * 0.01 * 0.7 : 0, 1e-7);
    ASSERT_EQ(born.GetPosition().x, n) << "in the order of the pieces";
  }
}

// The zones: o - h below, o, o + h / 2, with o a hundredth of a cell.
TEST(DiffuseUpdate, TheZonesDecideTheClass) {
  WorkerPool pool(1);
  const ScalarGrid still = LevelSetOf(20, [](const Vec3D& p) { return p.y - 1; });
  constexpr int kDead = -1;
  const int bubble = 0, foam = 1, spray = 2;
  struct Case {
    int from;
    double height;  // cells
    bool foamToSpray, sprayToFoam;
    int to;
  };
  const Case cases[] = {
      {spray, 2, true, true, spray},    {spray, -0.1, true, true, foam},  {spray, -0.1, true, false, kDead},
      {spray, -3, true, true, bubble},  {bubble, -2, true, true, bubble}, {bubble, -0.5, true, true, foam},
      {bubble, 0.3, true, true, spray}, {foam, 0.4, true, true, foam},    {foam, -0.9, true, true, foam},
      {foam, -1.5, true, true, bubble}, {foam, 0.7, true, true, spray},   {foam, 0.7, false, true, kDead},
  };
  Spring spring;
  spring.s.surfaceOffset = 0.01;
  spring.surface.UseLevelSet(still, pool);
  for (const Case& each : cases) {
    ParticleList list;
    BaseParticleData data;
    data.flags = FlagsOfClass(static_cast<DiffuseClass>(each.from));
    data.position = {1.03, 1 + each.height * kCell, 0.9};
    list.Append(1, data);
    spring.s.foamToSpray = each.foamToSpray, spring.s.sprayToFoam = each.sprayToFoam;
    UpdateDiffuse(spring.s, spring.surface, *spring.group, list.Rows(0), 0);
    EXPECT_EQ(list.Flags(0), data.flags & ~ParticleFlag::Excluded) << "a new one is left alone once";
    UpdateDiffuse(spring.s, spring.surface, *spring.group, list.Rows(0), 0);
    const bool alive = (list.Flags(0) & ParticleFlag::Alive) != 0;
    EXPECT_EQ(alive ? static_cast<int>(ClassOfFlags(list.Flags(0))) : kDead, each.to)
        << "class " << each.from << " at " << each.height;
    if (each.to == foam) {
      EXPECT_NEAR(list.Position(0).y, 1 + 0.01 * kCell, 1e-7) << "on the layer";
    }
  }
}

TEST(DiffuseUpdate, WithoutALevelSetTheCrowdTells) {
  for (const auto& [crowd, kind] :
       {std::pair{3, DiffuseClass::Spray}, {12, DiffuseClass::Foam}, {40, DiffuseClass::Bubble}}) {
    Spring spring;
    spring.Crowd(crowd, 0.03);
    spring.group->EnsureTree(PK_Liquid, true, 0);
    ParticleList list;
    BaseParticleData data;
    data.flags = ParticleFlag::Alive | ParticleFlag::Diffuse;
    list.Append(1, data);
    UpdateDiffuse(spring.s, spring.surface, *spring.group, list.Rows(0), 0);
    EXPECT_EQ(ClassOfFlags(list.Flags(0)), kind) << crowd;
  }
}

// Without a grid nothing else carries foam.
TEST(DiffuseUpdate, FoamOnParticlesTakesTheirVelocityAndSprayKeepsItsOwn) {
  for (const DiffuseClass kind : {DiffuseClass::Foam, DiffuseClass::Spray}) {
    Spring spring;
    WorkerPool pool(1);
    const ScalarGrid still = LevelSetOf(20, [](const Vec3D& p) { return p.y - 1; });
    spring.surface.UseLevelSet(still, pool);
    spring.AddWater({1, 0.98, 1}, {2, 0, 0}), spring.AddWater({1, 0.98, 1.02}, {2, 0, 0}), spring.AddWater({1.5, 1, 1});
    spring.group->EnsureTree(PK_Liquid, true, 0);
    spring.s.carried = true, spring.s.foamToSpray = false;
    ParticleList list;
    BaseParticleData data;
    data.flags = static_cast<std::uint16_t>(FlagsOfClass(kind) & ~ParticleFlag::Excluded);
    data.position = {1, 1.02, 1}, data.velocity = {0, 5, 0};
    list.Append(1, data);
    UpdateDiffuse(spring.s, spring.surface, *spring.group, list.Rows(0), 0);
    EXPECT_EQ(ClassOfFlags(list.Flags(0)), kind);
    EXPECT_LT(Length(list.Velocity(0) - (kind == DiffuseClass::Foam ? Vec3D(2, 0, 0) : Vec3D(0, 5, 0))), 1e-9);
  }
}

// A ball of mesh in a stream along x that shears along y.
struct Stream {
  Stream() {
    WorkerPool pool(1);
    test::ForAll(levelSet.dims,
                 [&](int i, int j, int k) { levelSet(i, j, k) = Length(Vec3D(i, j, k) * kCell - Vec3D(1)) - 0.5; });
    mesh.Resize(1, 3);
    mesh.Points() = {{1.5, 0.7, 0.7}, {1.5, 1.5, 0.7}, {1.5, 0.7, 1.5}};
    mesh.Triangles() = {{0, 1, 2}};  // its normal is +x
    surface.UseLevelSet(levelSet, pool);
    surface.UseMesh(mesh, 0, pool);
    for (int axis = 0; axis < 3; ++axis) {
      const VecInt3D extra(axis == 0, axis == 1, axis == 2);
      grids[axis] = std::make_unique<ScalarGrid>(VecInt3D(20, 20, 20) + extra, Vec3D(2), float(kCell), axis, Vec3D());
      test::ForAll(grids[axis]->dims, [&](int i, int j, int k) {
        (*grids[axis])(i, j, k) = axis == 0 ? 2 + 3 * ((j + 0.5) * kCell - 1) : 0;
      });
      field.velocity.component[axis] = *grids[axis];
    }
    field.cellSize = kCell;
    s.sampleSpacing = 0.02, s.surfaceCell = kCell, s.foam.curvature = s.spray.curvature = -100;
  }
  DiffuseBirths Seed() {
    DiffuseBirths births;
    FoamRandom random(MersenneTwister(8));
    MeshSeeding(s, surface, field, {}, nullptr).Seed(0, random, births, 0);
    return births;
  }
  ScalarGrid levelSet{{21, 21, 21}, Vec3D(2), float(kCell), kGridNodalLevelset, {}};
  TriMeshSTL mesh;
  FoamSurface surface;
  std::unique_ptr<ScalarGrid> grids[3];
  FoamField field;
  FoamSettings s;
};

TEST(MeshSeeding, CoversATriangleAndGoesByItsVelocity) {
  Stream stream;
  EXPECT_NEAR(stream.field.At({1.5, 1.2, 1}).x, 2.6, 1e-9);
  EXPECT_LT(Length(stream.field.Curl({1.5, 1.2, 1}) - Vec3D(0, 0, -3)), 1e-9);
  EXPECT_EQ(stream.field.Curl({0.05, 1, 1}), Vec3D()) << "too near the border";
  stream.s.spray.enabled = false;
  const DiffuseBirths foam = stream.Seed();
  // A lattice of triangles has a point for each s^2 sqrt(3) / 2; some beyond the edges count.
  const double inside = 0.5 * 0.8 * 0.8 / (0.02 * 0.02 * std::sqrt(3) / 2);
  EXPECT_GT(foam.size(), inside);
  EXPECT_LT(foam.size(), 1.8 * inside);
  for (const DiffuseBirth& birth : foam) {
    EXPECT_NEAR(birth.position.x, 1.5, 1e-12);
    EXPECT_GT(std::min(birth.position.y, birth.position.z), 0.5);
    EXPECT_LT(birth.position.y + birth.position.z, 2.6);
    EXPECT_NEAR(birth.velocity.x, 2 + 3 * (birth.position.y - 1), 1e-9);
  }
  stream.s.foam.speed = 2.6 * 2.6;  // above y = 1.2
  for (const DiffuseBirth& birth : stream.Seed()) EXPECT_GE(birth.position.y, 1.2 - 1e-9);
  stream.s.foam.speed = 0, stream.s.foam.second = 9.1;
  EXPECT_EQ(stream.Seed().size(), 0u) << "the vorticity is 3";
  stream.s.foam.second = 8.9;
  EXPECT_EQ(stream.Seed().size(), foam.size());
  stream.s.foam.curvature = 1000;
  EXPECT_EQ(stream.Seed().size(), 0u);
}

TEST(MeshSeeding, SprayIsThrownOffTheSurface) {
  Stream stream;
  stream.s.sprayBoost = {0.5, 0}, stream.s.sprayKick = 4;
  const DiffuseBirths spray = stream.Seed();
  ASSERT_GT(spray.size(), 100u);
  for (const DiffuseBirth& birth : spray) {
    EXPECT_EQ(birth.kind, DiffuseClass::Spray) << "spray goes before foam";
    EXPECT_NEAR(birth.velocity.x, 4 + 1.5 * (2 + 3 * (birth.position.y - 1)), 0.5);
    EXPECT_NEAR(birth.position.x, 1.5, 1e-9) << "aside of its flight";
  }
  stream.s.sprayKick = -10, stream.s.sprayKeepSpeed = true;
  for (const DiffuseBirth& birth : stream.Seed()) {
    EXPECT_LT(birth.velocity.x, 0) << "turned round, as fast as before";
    EXPECT_LT(Length(birth.velocity), 1.5 * 3.6);
  }
  stream.s.spray.speed = stream.s.spray.second = 3.4 * 3.4;
  for (const DiffuseBirth& birth : stream.Seed()) {
    if (birth.kind == DiffuseClass::Spray) {
      EXPECT_GT(birth.position.y, 1.46);
    }
  }
}

}  // namespace
}  // namespace orlix
