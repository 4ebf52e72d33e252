// Groups in a scene: their life, what is told of them, and what a run keeps of them.

#include "fluids/particles/ParticleGroup.h"

#include <gtest/gtest.h>

#include "fluids/helpers/Property.h"
#include "fluids/particles/GroupList.h"
#include "tests/fluids/particles/StirNode.h"

namespace orlix {
namespace {

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
