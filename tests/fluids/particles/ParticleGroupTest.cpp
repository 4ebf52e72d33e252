// Groups in a scene: their life, what is told of them, and what a run keeps of them.

#include "fluids/particles/ParticleGroup.h"

#include <gtest/gtest.h>

#include <random>

#include "fluids/caches/StateFile.h"
#include "fluids/helpers/Property.h"
#include "fluids/particles/GroupList.h"
#include "fluids/scene/StateCheck.h"
#include "tests/fluids/particles/StirNode.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

using test::StirScene;
using test::TestScene;

constexpr std::uint32_t kIdent = 0x74737474;

TEST(ParticleGroup, TheSameBitsAtAnyNumberOfWorkers) {
  std::vector<std::uint64_t> hashes;
  for (const int workers : {1, 2, 3, 8}) {
    StirScene s(workers);
    s.StepThrough(0, 5);
    hashes.push_back(s.scene().HashState());
    EXPECT_EQ(hashes.back(), hashes.front());
    EXPECT_GT(s.group().Count(PK_Diffuse), 10000);
  }
}

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

TEST(ParticleGroup, TheNodeThatMadeNoNumberIsNamedWithTheParticle) {
  StirScene s;
  s.stir->Set(3, std::int64_t(2));
  s.StepThrough(0, 4);
  ASSERT_TRUE(s.scene().failure());
  EXPECT_EQ(s.scene().failure()->kind, ErrorKind::Diverged);
  EXPECT_NE(s.scene().failure()->text.find("\"Scene/Stir\" made a value that is no number"), std::string::npos);
  EXPECT_NE(s.scene().failure()->text.find("in the velocity of particle 8,"), std::string::npos);
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

TEST(ParticleGroup, TheStateGoesToAFileAndBackWhole) {
  test::TemporaryFolder folder;
  StirScene s;
  s.StepThrough(0, 3);
  s.group().At(PK_Diffuse, 5000).SetOrAddState({99, 7}, true);
  const std::uint64_t expected = s.scene().HashState();
  {
    HyperFile file;
    ASSERT_TRUE(file.Open(kIdent, folder / "state", HyperFile::Mode::Write));
    StateWriter writer(file);
    s.scene().VisitState(writer);
    ASSERT_TRUE(file.Close().ok());
  }
  StirScene other;
  other.StepThrough(0, 1);
  HyperFile file;
  ASSERT_TRUE(file.Open(kIdent, folder / "state", HyperFile::Mode::Read));
  StateReader reader(file, "state");
  other.scene().VisitState(reader);
  ASSERT_TRUE(reader.status().ok()) << reader.status().error().text;
  EXPECT_EQ(other.scene().HashState(), expected);
  EXPECT_TRUE(other.group().At(PK_Diffuse, 5000).GetStateOr({99, 7}, false));
  EXPECT_EQ(other.group().list(PK_Diffuse)->Links(3).size(), 2u);
  s.Step(4);
}

// Answers a walk over a list with bytes of its own.
class HostileFile final : public StateVisitor {
 public:
  explicit HostileFile(unsigned seed) : random_(seed) {}
  void VisitGrid(const char*, std::unique_ptr<ScalarGrid>&) override {}
  void VisitBytes(const char* name, void* bytes, std::size_t size) override {
    if (!Good()) return;
    auto* to = static_cast<std::uint8_t*>(bytes);
    const bool asItIs = random_() % 3 != 0 && size < 64;
    for (std::size_t n = 0; n < size && !asItIs; n += size < 64 ? 1 : 1 + random_() % 61) {
      to[n] = static_cast<std::uint8_t>(random_() % 4 == 0 ? random_() : n == 0 ? random_() % 20 : 0);
    }
    items += 1;
    if (std::string_view(name) == "positions") ++chunks;
    if (chunks > 3 || random_() % 100 == 0) Refuse("the file ends");
  }
  bool Reading() const override { return true; }
  bool Good() const override { return good_; }
  void Refuse(const std::string&) override { good_ = false; }
  int items = 0, chunks = 0;

 private:
  std::mt19937 random_;
  bool good_ = true;
};

TEST(ParticleList, WhatAFileSaysIsNotBelieved) {
  int chunks = 0, whole = 0;
  for (unsigned seed = 0; seed < 100; ++seed) {
    ParticleList list;
    HostileFile file(seed);
    list.VisitState(file);
    chunks += file.chunks, whole += file.Good();
    // Memory came only for what the file had, and what was taken is a list like any other.
    EXPECT_LE(list.Bytes(), 30 * (std::int64_t(1) << 23));
    for (std::int32_t i = 0; i < list.count(); i += 97) OrlixParticle(&list, i).Kill();
    list.RemoveDead(seed % 2);
    StateHasher hasher;
    list.VisitState(hasher);
  }
  EXPECT_GT(chunks, 10);
  EXPECT_GT(whole, 2);
}

TEST(PropertyIds, FixedNodesGiveTheirNumberAndType) {
  std::int32_t type = 1300044;
  std::string name;
  EXPECT_EQ(MapPropertyNode(type, name), PP::Radius);
  EXPECT_EQ(type, 1300037);
  EXPECT_EQ(name, "Radius");
  type = 1300097;
  EXPECT_EQ(MapPropertyNode(type, name), PP::ExternalForce);
  EXPECT_EQ(type, 1300038);
  EXPECT_EQ(name, "External Force");
  name.clear();
  for (std::int32_t unknown : {1300036, 1300037, 1300098, 0}) {
    EXPECT_EQ(MapPropertyNode(unknown, name), -1);
    EXPECT_EQ(name, "");
  }
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
