// Nodes of plug-ins: what they do is what built-in ones with the same formula do, in the same order of phases, and what
// goes wrong in one is told by its name.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "fluids/api/PluginLibraries.h"
#include "fluids/constraints/Constraint.h"
#include "fluids/dynamics/VelocityGridEmitter.h"
#include "fluids/particle_operators/ParticleForces.h"
#include "fluids/particles/ParticleGroup.h"
#include "tests/support/Folders.h"
#include "tests/support/GasScene.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

using test::GasScene;
using test::TestScene;

constexpr int kFirstRowId = 1000, kSecondRowId = 1001, kThirdRowId = 1002;
enum Misdeed : std::int64_t { kNone, kThrowInPrepare, kThrowInWork, kNotANumber };

std::filesystem::path PluginFile(const std::string& name) {
  return std::filesystem::path(ProgramFolder()) / "plugins" / (name + ".so");
}

// A scene that knows the types of the example and of the test's plug-in. They outlive it.
struct LoadedPlugins {
  PluginLibraries plugins;
};
template <class Base>
struct WithPlugins : LoadedPlugins, Base {
  template <class... Arguments>
  explicit WithPlugins(Arguments&&... arguments) : Base(std::forward<Arguments>(arguments)...) {
    for (const char* name : {"example_plugin", "test_plugin_good"}) {
      const Status loaded = plugins.Load(PluginFile(name), this->factory);
      EXPECT_TRUE(loaded.ok()) << loaded.error().text;
    }
  }
};

using PluginGas = WithPlugins<GasScene>;
using PluginScene = WithPlugins<TestScene>;

// --- the same as built-in nodes

// The velocity that a force leaves in a gas after some frames; a noise weighs its places.
std::vector<double> Blown(const std::string& type, int workers) {
  PluginGas scene(VecInt3D{14, 9, 10}, workers);
  BaseObject& force = scene.Add(type, "Force");
  force.Set(kFirstRowId, Vec3D(0.3, -1.7, 0.9));
  force.Set(kConstraintsId, scene.ListOf({&scene.Add("constraint_noise", "Patches")}));
  scene.fluid->Set(VelocityGridEmitter::kForcesId, scene.ListOf({&force}));
  scene.StepThrough(0, 4);
  EXPECT_FALSE(scene.scene().failure().has_value());
  std::vector<double> all;
  for (const auto& grid : scene.Solver().velocity.grids) all.insert(all.end(), grid->data, grid->data + grid->count);
  return all;
}

TEST(PluginForceThreads, OnAGasItHasTheBitsOfTheBuiltInOneWithItsFormula) {
  const auto plugin = test::SameForAnyWorkers([](int workers) { return Blown("example_wind", workers); });
  EXPECT_EQ(plugin, Blown("force_gravity", 1));
  EXPECT_GT(*std::max_element(plugin.begin(), plugin.end()), 0.01);
}

// A group of 5000 particles, and what a test adds before the first step.
struct Dust : PluginScene {
  explicit Dust(int workers = 1) : PluginScene(workers), group(Add("particlegroup", "Group")) {}
  void Fill() {
    Step(0);
    for (int n = 0; n < 5000; ++n) {
      BaseParticleData data;
      data.position = {0.01 * n, 0.1 * (n % 17), 0.3};
      data.velocity = {0, 0, n % 5 == 0 ? 0 : 0.001 * n};
      list().Append(1, data);
    }
  }
  ParticleList& list() { return *NodeOf<ParticleGroup>(group)->list(PK_Passive); }

  BaseObject& group;
};

std::vector<double> BlownParticles(const std::string& type, int workers) {
  Dust scene(workers);
  BaseObject& force = scene.Add(type, "Force");
  if (type != "test_push") {
    force.Set(type == "example_wind" ? kFirstRowId : kThirdRowId, Vec3D(1, 0, 0));
    force.Set(kSecondRowId, 1.0);  // the strength
  }
  force.Set(kConstraintsId, scene.ListOf({&scene.Add("constraint_noise", "Patches")}));
  BaseObject& forces = scene.Add("particle_forces", "Forces");
  forces.Set(ParticleForces::kForcesId, scene.ListOf({&force}));
  scene.Fill();
  scene.StepThrough(1, 3);
  EXPECT_FALSE(scene.scene().failure().has_value()) << scene.scene().failure()->text;
  std::vector<double> all;
  for (int n = 0; n < scene.list().count(); ++n) all.push_back(scene.list().Velocity(n).x);
  return all;
}

TEST(PluginForceThreads, OnParticlesItHasThemToo) {
  const auto plugin = test::SameForAnyWorkers([](int workers) { return BlownParticles("example_wind", workers); });
  EXPECT_EQ(plugin, BlownParticles("pforce_acceleration", 1));
  EXPECT_EQ(plugin, BlownParticles("test_push", 2)) << "one by one, of the same x";
  EXPECT_GT(*std::max_element(plugin.begin(), plugin.end()), 0.01);
}

TEST(PluginConstraint, ItsFactorIsInvertedAndScaledOnce) {
  PluginScene scene;
  BaseObject& object = scene.Add("test_half", "Half");
  object.Set(Constraint::kIntensityId, 4.0);
  const auto ask = [&](std::int64_t invert) {
    object.Set(Constraint::kInvertId, invert);
    scene.Step(0);
    auto& constraint = *scene.NodeOf<Constraint>(object);
    constraint.Reread();
    constraint.Prepare(nullptr);
    double one = 0.5, row[] = {0.5, 9, 0.5};
    std::uint8_t open[] = {1, 0, 1};
    EXPECT_TRUE(constraint.Evaluate({1, 2, 3}, one, nullptr, 0));
    ConstraintRow cells{{0, 3, 0, 0, 0, &scene.scene().space}, row, open};
    constraint.EvaluateRow(cells, nullptr);
    constraint.Finish();
    EXPECT_EQ(row[0], one);
    EXPECT_EQ(row[1], 9) << "closed";
    EXPECT_EQ(row[2], one);
    return one;
  };
  EXPECT_DOUBLE_EQ(ask(0), 0.5 * 0.25 * 4);
  EXPECT_DOUBLE_EQ(ask(1), 0.5 * 0.75 * 4);
}

TEST(PluginOperatorThreads, ChangesParticlesWhereItsConstraintsSay) {
  constexpr int kPatienceId = 1003;
  test::SameForAnyWorkers([](int workers) {
    Dust scene(workers);
    BaseObject &colour = scene.Add("example_speed_colour", "Colour"), &band = scene.Add("example_height_band", "Band");
    colour.Set(kFirstRowId, scene.LinkTo(scene.group));
    colour.Set(kPatienceId, std::int64_t(1));
    colour.Set(kConstraintsId, scene.ListOf({&band}));
    scene.Fill();
    scene.Step(1);
    std::vector<double> found;
    int coloured = 0;
    for (int n = 0; n < scene.list().count(); ++n) {
      const OrlixParticle p = scene.NodeOf<ParticleGroup>(scene.group)->At(PK_Passive, n);
      Vec3D c(-1);
      p.GetVector(PP::Color, c);
      const double share = std::min(Length(p.GetVelocity()), 1.0);
      const bool inBand = p.GetPosition().y <= 1;
      EXPECT_EQ(c, inBand ? Vec3D(share, share, 1) : Vec3D(-1)) << n;
      EXPECT_FALSE(inBand && share < 0.01) << "slow ones went";
      coloured += inBand;
      found.insert(found.end(), {c.x, p.GetPosition().x});
    }
    EXPECT_GT(coloured, 2000);
    EXPECT_LT(scene.list().count(), 5000 - 400);
    return found;
  });
}

// --- phases

TEST(PluginOperator, ItsPhasesComeInOrder) {
  void* library = ::dlopen(PluginFile("test_plugin_good").c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr);
  const auto clear = reinterpret_cast<void (*)()>(::dlsym(library, "TestPluginClear"));
  const auto phases = reinterpret_cast<const char* (*)()>(::dlsym(library, "TestPluginPhases"));
  PluginGas scene(VecInt3D{8, 8, 8});
  BaseObject &channel = scene.Add("channel_scalar", "count"), &count = scene.Add("test_count", "Count");
  count.Set(kSecondRowId, scene.LinkTo(channel));
  const auto frame = [&](int number) {
    clear();
    scene.Step(number);
    return std::string(phases());
  };
  scene.StepThrough(0, 1);
  EXPECT_EQ(frame(2), "plPS0Fr");
  count.Set(kThirdRowId, std::int64_t(3));
  EXPECT_EQ(frame(3), "plPS012Fr");
  count.Set(kFirstRowId, std::int64_t(5));
  EXPECT_EQ(frame(4), "plPFr") << "a Prepare that gives false";
  ::dlclose(library);
  count.Set(kConstraintsId, scene.ListOf({&scene.Add("constraint_noise", "Patches")}));
  count.Set(kFirstRowId, std::int64_t(kNone));
  scene.Step(5);
  scene.hook.Conclude();
  EXPECT_TRUE(scene.Warned("doesn't ask its constraints"));
}

// --- what goes wrong in one

struct Fault {
  const char* name;
  const char* type;
  Misdeed misdeed;
  const char* text;
  ErrorKind kind;
};
class PluginFault : public testing::TestWithParam<Fault> {};

TEST_P(PluginFault, EndsTheRunByTheNodesName) {
  const Fault& fault = GetParam();
  PluginGas scene(VecInt3D{9, 9, 9}, 2);
  BaseObject &channel = scene.Add("channel_scalar", "count"), &object = scene.Add(fault.type, "Culprit");
  BaseObject& force = scene.Add("force_gravity", "Force");
  const std::string type = fault.type;
  if (fault.misdeed != kNone) object.Set(kFirstRowId, std::int64_t(fault.misdeed));
  if (type == "test_count") object.Set(kSecondRowId, scene.LinkTo(channel));
  if (type == "test_half") force.Set(kConstraintsId, scene.ListOf({&object}));
  scene.StepThrough(0, 3);
  const auto& failure = scene.scene().failure();
  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->text.find("\"Scene/Culprit\""), 0u) << failure->text;
  EXPECT_NE(failure->text.find(fault.text), std::string::npos) << failure->text;
  EXPECT_EQ(failure->kind, fault.kind);
}

constexpr Fault kFaults[] = {
    {"Making", "test_unmade", kNone, "couldn't make its node: no room", ErrorKind::Internal},
    {"ForcePrepare", "test_push", kThrowInPrepare, "ended Prepare with: no wind today", ErrorKind::Internal},
    {"ForceWork", "test_push", kThrowInWork, "ended Evaluate with: something that is no", ErrorKind::Internal},
    {"ForceNumber", "test_push", kNotANumber, "no number: nan at (", ErrorKind::Diverged},
    {"ConstraintPrepare", "test_half", kThrowInPrepare, "no wind today", ErrorKind::Internal},
    {"ConstraintWork", "test_half", kThrowInWork, "ended Evaluate", ErrorKind::Internal},
    {"ConstraintNumber", "test_half", kNotANumber, "no number: nan at (", ErrorKind::Diverged},
    {"OperatorPrepare", "test_count", kThrowInPrepare, "no wind today", ErrorKind::Internal},
    {"OperatorWork", "test_count", kThrowInWork, "ended Process", ErrorKind::Internal},
    {"OperatorNumber", "test_count", kNotANumber, "made a value that is no number: nan in grid", ErrorKind::Diverged},
};
INSTANTIATE_TEST_SUITE_P(All, PluginFault, testing::ValuesIn(kFaults),
                         [](const auto& test) { return std::string(test.param.name); });

// --- libraries

TEST(PluginLibrary, WhatCantBeTakenInIsSaidAndAddsNoType) {
  test::TemporaryFolder folder;
  test::WriteText(folder / "text.so", "no library");
  test::WriteText(folder / "half.so", test::ReadText(PluginFile("example_plugin")).substr(0, 4000));
  const std::pair<std::filesystem::path, const char*> cases[] = {
      {PluginFile("test_plugin_old"), "for version 24000 of the interface, this program has 25000"},
      {PluginFile("test_plugin_foreign"), "isn't what a plug-in shows"},
      {PluginFile("test_plugin_silent"), "lacks the symbol zq_plugin"},
      {folder / "text.so", "no shared library, or one that is cut off"},
      {folder / "half.so", "no shared library, or one that is cut off"},
      {folder / "none.so", "there is no such plug-in"},
  };
  TypeRegistry types;
  NodeFactory factory(types);
  PluginLibraries plugins;
  for (const auto& [file, text] : cases) {
    const Status loaded = plugins.Load(file, factory);
    ASSERT_FALSE(loaded.ok()) << file;
    EXPECT_EQ(loaded.error().kind, ErrorKind::InputFile);
    EXPECT_NE(loaded.error().text.find(file.string()), std::string::npos) << loaded.error().text;
    EXPECT_NE(loaded.error().text.find(text), std::string::npos) << loaded.error().text;
  }
  EXPECT_TRUE(types.types().empty());
  ASSERT_TRUE(plugins.Load(PluginFile("example_plugin"), factory).ok());
  ASSERT_TRUE(plugins.Load(PluginFile("example_plugin"), factory).ok()) << "twice is once";
  const TypeInfo* wind = types.FindName("example_wind");
  ASSERT_NE(wind, nullptr);
  EXPECT_EQ(wind->FindKey("drag")->max, 1000);
  PluginLibraries others;
  EXPECT_NE(others.Load(PluginFile("example_plugin"), factory).error().text.find("a type that is there already"),
            std::string::npos);
}

}  // namespace
}  // namespace orlix
