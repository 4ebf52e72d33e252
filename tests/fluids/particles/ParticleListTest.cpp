// A particle list against a plain model: records in a vector, after any order of operations.

#include <gtest/gtest.h>

#include <map>
#include <random>

#include "fluids/helpers/Property.h"
#include "fluids/particles/GroupList.h"
#include "fluids/particles/OrlixParticle.h"
#include "fluids/particles/ParticleGroup.h"
#include "fluids/scene/StateCheck.h"
#include "tests/fluids/particles/StirNode.h"

namespace orlix {
namespace {

constexpr PropertyKey kUserA{80, 1}, kUserB{80, 2};

struct Record {
  std::int32_t id = 0;
  std::uint16_t flags = 1;
  Vec3D position, velocity;
  std::map<std::int32_t, double> reals;
  std::map<std::int32_t, Vec3D> vectors;
  std::map<PropertyOwner, double> users;  // under number 80
};

class Model {
 public:
  void Append(std::int32_t n) {
    BaseParticleData data;
    data.flags = static_cast<std::uint16_t>(1 | (random_() % 2 ? ParticleFlag::Diffuse : 0) |
                                            (random_() % 2 ? ParticleFlag::Ballistic : 0));
    data.position = Vec(), data.velocity = Vec();
    Record record{0, data.flags, data.position, data.velocity, {}, {}, {}};
    if (data.flags & ParticleFlag::Diffuse) record.reals[PP::Age] = 100, record.vectors[PP::ExternalForce] = {};
    if (data.flags & ParticleFlag::Ballistic) record.reals[PP::Mass] = 1;
    if (random_() % 2) data.SetReal(PP::Mass, record.reals[PP::Mass] = 3);
    if (random_() % 2) data.SetVector(PP::OldPosition, record.vectors[PP::OldPosition] = Vec());
    if (random_() % 2) data.SetReal(kUserA, record.users[1] = 5);
    ASSERT_EQ(list.Append(n, data), static_cast<std::int32_t>(records.size()));
    for (std::int32_t i = 0; i < n; ++i) {
      record.id = nextId_++;
      records.push_back(record);
    }
  }
  void Edit(std::int32_t i) {
    const OrlixParticle p(&list, i);
    Record& r = records[static_cast<std::size_t>(i)];
    p.SetPosition(r.position = Vec());
    p.SetOrAddReal(PP::Temperature, r.reals[PP::Temperature] = 300 + i);
    p.SetOrAddReal(kUserB, r.users[2] = i);
    EXPECT_EQ(p.Remove(PP::OldPosition), r.vectors.erase(PP::OldPosition) == 1);
    EXPECT_EQ(p.SetReal(kUserA, 7), r.users.count(1) == 1);
    if (r.users.count(1)) r.users[1] = 7;
  }
  void Kill(std::int32_t i) {
    OrlixParticle(&list, i).Kill();
    records[static_cast<std::size_t>(i)].flags &= static_cast<std::uint16_t>(~ParticleFlag::Alive);
  }
  void RemoveDead(bool keepOrder) {
    const auto dead = [](const Record& r) { return (r.flags & ParticleFlag::Alive) == 0; };
    const std::size_t before = records.size();
    if (keepOrder) {
      std::erase_if(records, dead);
    } else {
      for (std::size_t i = 0; i < records.size();) {
        if (!dead(records[i])) {
          ++i;
        } else {
          records[i] = records.back();
          records.pop_back();
        }
      }
    }
    EXPECT_EQ(list.RemoveDead(keepOrder), static_cast<std::int32_t>(before - records.size()));
  }
  void Compare() {
    ASSERT_EQ(list.count(), static_cast<std::int32_t>(records.size()));
    int differing = 0;
    for (std::int32_t i = 0; i < list.count(); ++i) differing += Same(OrlixParticle(&list, i), records[i]) ? 0 : 1;
    EXPECT_EQ(differing, 0);
  }

  ParticleList list;
  std::vector<Record> records;
  std::mt19937 random_{5};

 private:
  static bool Same(const OrlixParticle& p, const Record& r) {
    bool same =
        p.id() == r.id && p.GetFlags() == r.flags && p.GetPosition() == r.position && p.GetVelocity() == r.velocity;
    for (const std::int32_t id : {PP::Age, PP::Mass, PP::Temperature}) {
      const auto found = r.reals.find(id);
      same = same && p.GetRealOr(id, -1) == (found == r.reals.end() ? -1 : found->second);
    }
    for (const std::int32_t id : {PP::OldPosition, PP::ExternalForce}) {
      const auto found = r.vectors.find(id);
      same = same && p.GetVectorOr(id, Vec3D(-1)) == (found == r.vectors.end() ? Vec3D(-1) : found->second);
    }
    for (const PropertyKey key : {kUserA, kUserB}) {
      const auto found = r.users.find(key.owner);
      same = same && p.GetRealOr(key, -1) == (found == r.users.end() ? -1 : found->second);
    }
    return same && p.Has(80) == !r.users.empty();
  }
  Vec3D Vec() {
    std::uniform_real_distribution<double> d(-1, 1);
    return {d(random_), d(random_), d(random_)};
  }
  std::int32_t nextId_ = 0;
};

TEST(ParticleList, AgreesWithAPlainModelInAnyOrderOfOperations) {
  Model m;
  std::int32_t born = 0;
  while (born < 20000) {
    const std::int32_t n = static_cast<std::int32_t>(m.random_() % 1500);
    m.Append(n);
    born += n;
    const std::int32_t count = m.list.count();
    for (int e = 0; e < 200 && count > 0; ++e) m.Edit(static_cast<std::int32_t>(m.random_() % count));
    for (int e = 0; e < 300 && count > 0; ++e) m.Kill(static_cast<std::int32_t>(m.random_() % count));
    if (m.random_() % 8 == 0) {
      for (std::int32_t i = count / 2; i < count; ++i) m.Kill(i);
    }
    m.RemoveDead(m.random_() % 2);
    m.Compare();
    if (HasFailure()) return;
  }
  EXPECT_GT(m.list.count(), 2000);
  for (std::int32_t i = 0; i < m.list.count(); ++i) m.Kill(i);
  m.RemoveDead(false);
  EXPECT_EQ(m.list.count(), 0);
  m.Append(3);
  m.Compare();
}

TEST(ParticleList, TheMassOfTheDeadGoesToTheirPartners) {
  for (const bool keepOrder : {false, true}) {
    ParticleList list;
    list.Append(3, {});
    for (std::int32_t i = 0; i < 3; ++i) list.SetLinks(i, {{1.0f, list.Id(i)}});
    list.SetLinks(1, {{0.25f, list.Id(0)}, {0.5f, list.Id(2)}, {1.0f, 77}});
    OrlixParticle(&list, 1).Kill();
    list.RemoveDead(keepOrder);
    ASSERT_EQ(list.count(), 2);
    EXPECT_EQ(list.Id(1), 2);
    EXPECT_EQ(list.Links(0)[0].weight, keepOrder ? 1.0f : 1.25f);
    EXPECT_EQ(list.Links(1)[0].weight, keepOrder ? 1.0f : 1.5f);
  }
}

TEST(ParticleList, ALiquidParticleAsEmittedTakesAtMostAHundredBytes) {
  ParticleList list;
  BaseParticleData data;
  data.flags |= FlagOfKind(PK_Liquid);
  EXPECT_EQ(data.flags, 0x081);
  data.SetReal(PP::Radius, 0.1);
  data.SetVector(PP::OldPosition, {});
  const std::int32_t n = 50 * kChunkRows;
  list.Append(n, data);
  EXPECT_LE(static_cast<double>(list.Bytes()) / n, 100);
}

TEST(ParticleList, TheVersionTellsWhatMoved) {
  ParticleList list;
  list.Append(10, {});
  const std::uint64_t first = list.Version();
  OrlixParticle(&list, 3).SetFlag(ParticleFlag::Collided, true);
  OrlixParticle(&list, 3).SetVelocity({1, 0, 0});
  EXPECT_EQ(list.Version(), first);
  OrlixParticle(&list, 3).SetPosition({1, 0, 0});
  const std::uint64_t second = list.Version();
  EXPECT_NE(second, first);
  OrlixParticle(&list, 3).Kill();
  EXPECT_NE(list.Version(), second);
}

TEST(ParticleList, ValuesThatAreNoNumbersAreNamedByTheParticle) {
  WorkerPool pool(2);
  ParticleList list;
  list.Append(10000, {});
  OrlixParticle(&list, 3).Kill();
  list.RemoveDead(false);
  const auto found = [&] {
    NonFiniteFinder finder(pool);
    list.VisitNumbers(finder);
    return finder.found();
  };
  EXPECT_FALSE(found());
  OrlixParticle(&list, 3).SetVelocity({0, NAN, 0});
  ASSERT_TRUE(found());
  EXPECT_EQ(found()->particle, 9999);  // that took the place of the dead one
  EXPECT_EQ(found()->grid, "velocity");
  EXPECT_NE(found()->Text().find("velocity of particle 9999"), std::string::npos);
}

// Groups in a scene: their life, what is told of them, and what a run keeps of them.

using test::StirScene;
using test::TestScene;

TEST(ParticleGroup, TheStatisticsCountWhoCameAndWent) {
  StirScene s(2);
  s.StepThrough(0, 4);
  std::int64_t born = 0, died = 0;
  for (const SubstepReport& report : s.reports) {
    ASSERT_EQ(report.groups.size(), 1u);
    born += report.groups[0].born, died += report.groups[0].died;
    EXPECT_EQ(report.groups[0].counts[PK_Diffuse], born - died);
    EXPECT_EQ(report.particles, born - died);
    EXPECT_EQ(report.groups[0].group, "Scene/Drops");
    EXPECT_GT(report.groups[0].bytes, report.particles * 90);
  }
  EXPECT_EQ(born, 3000 * static_cast<std::int64_t>(s.reports.size()));
  EXPECT_GT(died, 100);
  s.Step(0);  // a reset is no death
  EXPECT_EQ(s.reports.back().groups[0].born, 3000);
  EXPECT_LT(s.reports.back().groups[0].died, 400);  // its own, not all that were there
  EXPECT_EQ(s.reports.back().particles, 3000 - s.reports.back().groups[0].died);
}

TEST(ParticleGroup, BoundsHoldEachParticleWithItsRadiusAndACell) {
  StirScene s;
  s.root->Set(1002, 0.5);
  s.stir->Set(2, std::int64_t(0));
  s.Step(0);
  const double h = s.scene().space.cellSize;
  Vec3D min(10), max(-10);
  s.group().ExtendBounds(min, max);
  EXPECT_EQ(min, Vec3D(10));
  s.group().NewParticle(PK_Liquid).SetPosition({1, 2, 3});
  const OrlixParticle p = s.group().NewParticle(PK_Passive);
  p.SetPosition({-4, 0, 0});
  p.SetOrAddReal(PP::Radius, 3 * h);
  s.group().AfterStep();
  s.group().ExtendBounds(min, max);
  EXPECT_EQ(min, Vec3D(-4 - 4 * h, -4 * h, -4 * h));
  EXPECT_EQ(max, Vec3D(1 + 2 * h, 2 + 2 * h, 3 + 2 * h));
  const ParticleBounds& bounds = s.group().factory(PK_Passive).bounds;
  EXPECT_NEAR(bounds.largestRadiusCells, 3, 1e-6);
  EXPECT_EQ(bounds.largestRadius, 3 * h);
  const std::int32_t n = static_cast<std::int32_t>(3 * h * s.scene().space.voxelsPerSim.x);
  EXPECT_EQ(bounds.cellMin.x, static_cast<std::int32_t>(-4 * s.scene().space.voxelsPerSim.x - 0.5) - n - 1);
}

TEST(ParticleGroup, AResetEmptiesAllKindsButTheKept) {
  StirScene s;
  s.stir->Set(2, std::int64_t(0));
  s.StepThrough(0, 1);
  for (int kind = 0; kind < kParticleKinds; ++kind) s.group().NewParticle(kind);
  EXPECT_TRUE(s.group().EnsureTree(PK_Liquid, false, 0));
  EXPECT_FALSE(s.group().KindIsDirty(PK_Liquid));
  s.group().SetKindKept(PK_Diffuse, true);
  s.group().ResetSimulation();
  EXPECT_EQ(s.group().CountAll(), 1);
  EXPECT_EQ(s.group().Count(PK_Diffuse), 1);
  EXPECT_TRUE(s.group().KindIsDirty(PK_Liquid));
  EXPECT_EQ(s.group().Tree(PK_Liquid), nullptr);
  EXPECT_FALSE(s.group().EnsureTree(PK_Liquid, true, 0));
  s.group().ClearState(true);
  s.group().ReadParameters();
  EXPECT_EQ(s.group().list(PK_Diffuse), nullptr);
  EXPECT_FALSE(s.group().NewParticle(PK_Liquid));
  EXPECT_TRUE(s.group().Nearest(PK_Liquid, {}, 1, 0).empty());
}

TEST(ParticleGroup, AListChoosesKindsByItsFlags) {
  TestScene s;
  const BaseObject& a = s.Add("particlegroup", "A");
  const BaseObject& b = s.Add("particlegroup", "B");
  BaseObject& reader = s.Add("gridemitter", "reader");
  const BaseObject& other = s.Add("property_radius", "other");
  s.Step(0);
  auto list = std::make_shared<InExcludeData>();
  for (const std::uint32_t flags : {3, 5, 4, 0}) list->entries.push_back({b.creationNumber(), flags});
  list->entries.push_back({other.creationNumber(), 1});
  reader.Set(kConstraintsId, InExcludeValue(list));
  const C4D_InterfaceHandler handler(&reader);
  std::vector<std::int32_t> kinds;
  for (const GroupEntry& entry : RetrieveGroups(s.scene(), handler, kConstraintsId, 0)) {
    EXPECT_EQ(entry.group, s.NodeOf<ParticleGroup>(b));
    kinds.push_back(entry.kind);
  }
  EXPECT_EQ(kinds, (std::vector<std::int32_t>{PK_Liquid, PK_Passive, PK_Vorticity, PK_Diffuse}));
  const auto all = RetrieveGroups(s.scene(), handler, 1, 1u << PK_Liquid);
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[0].group, s.NodeOf<ParticleGroup>(a));
  EXPECT_EQ(all[1].kind, PK_Liquid);
}

TEST(PropertyIds, FixedNodesGiveTheirNumberAndType) {
  TestScene s;
  int nodes = 0;
  for (const PropertyInfo& info : PropertyTable()) {
    const BaseObject& object = s.Add(std::string(info.resource).substr(3), info.name);
    s.Step(0);
    const auto* node = s.NodeOf<iProperty>(object);
    ASSERT_NE(node, nullptr) << info.name;
    EXPECT_EQ(node->propertyId, info.id);
    EXPECT_EQ(node->HasRetrieveType(RETRIEVE_SCALAR), TypeOfProperty(info.id) == PropertyType::Real);
    ++nodes;
  }
  EXPECT_EQ(nodes, 19);
}

}  // namespace
}  // namespace orlix
