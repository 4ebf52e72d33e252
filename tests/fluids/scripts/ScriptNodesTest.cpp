// The nodes whose inner formula is a script: what each sets and takes, and what it says of a script that can't work.

#include <gtest/gtest.h>

#include "fluids/constraints/CoffeeConstraint.h"
#include "fluids/emitters/EmissionRate.h"
#include "fluids/emitters/Grid_CellEmitter.h"
#include "fluids/forces/Force_Coffee.h"
#include "fluids/operators/ChannelOperator_Coffee.h"
#include "fluids/particle_operators/ParticleForce_Coffee.h"
#include "host/noise/Noise.h"
#include "tests/fluids/forces/ForceRig.h"
#include "tests/fluids/operators/OperatorBench.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

using test::FillCells;
using test::ForceRig;
using test::ForInner;
using test::OperatorBench;

constexpr VecInt3D kCells{140, 5, 6};  // rows of more than one batch

Vec3D Flow(const Vec3D& p) { return {1 + p.y, 2 * p.z - p.x, 3 + p.z}; }

double NoiseAt(const Vec3D& p) { return Noise(0).Sample(NoiseType::Gradient, p, {.octaves = 1}); }

void SetScript(BaseObject& object, const std::string& body) {
  object.Set(C4D_CoffeeGui::kScriptId, "main(op) { " + body + " }");
}

TEST(ForceScript, TheDefaultIsADragByTheVelocityAtTheCell) {
  ForceRig rig("force_coffee", kCells);
  rig.Ready();
  rig.SetVelocity(Flow);
  ASSERT_TRUE(rig.Run());
  const int cells = rig.ForEach([&](int i, int j, int k, const Vec3D& f) {
    ASSERT_LT(Length(f - Flow(rig.Centre(i, j, k)) * -0.05), 1e-12) << i << " " << j << " " << k;
  });
  EXPECT_EQ(cells, 138 * 3 * 4);
}

TEST(ForceScript, ReadsItsVariablesAndValues) {
  ForceRig rig("force_coffee", kCells);
  BaseObject &wind = rig.Add("rate", "wind"), &scale = rig.Add("rate", "scale"),
             &half = rig.Add("constraint_coffee", "half");
  wind.Set(EmissionRate::kKindId, EmissionRate::Kind::Vector);
  wind.Set(EmissionRate::kVectorRateId, Vec3D(1, 2, 3));
  scale.Set(EmissionRate::kKindId, EmissionRate::Kind::Count);
  scale.Set(EmissionRate::kCountRateId, std::int64_t(7));
  half.Set(CoffeeConstraint::kScriptIntensityId, 0.5);
  rig.object.Set(C4D_CoffeeGui::kValuesId, ForceRig::ListOf({&wind, &scale}));
  rig.object.Set(kConstraintsId, ForceRig::ListOf({&half}));
  rig.object.Set(Force_Coffee::kIntensityId, 3.0);
  SetScript(rig.object, "return vector(velocity_u_index + velocity_w_index, intensity, scale) + physical_pos + wind;");
  rig.Ready();
  ASSERT_TRUE(rig.Run());
  const int cells = rig.ForEach([&](int i, int j, int k, const Vec3D& f) {
    const auto index = [&](int c) { return double(rig.velocity.grids[std::size_t(c)]->Index(i, j, k)); };
    const Vec3D expected = Vec3D(index(0) + index(2), rig.dt() * 3 * 0.5, 7) + rig.Centre(i, j, k) + Vec3D(1, 2, 3);
    ASSERT_LT(Length(f - expected), 1e-9) << i << " " << j << " " << k;
  });
  EXPECT_EQ(cells, 138 * 3 * 4);
  // Where the strength is 0, the script isn't asked.
  half.Set(CoffeeConstraint::kScriptIntensityId, 0.0);
  ASSERT_TRUE(rig.Run());
  rig.ForEach([&](int, int, int, const Vec3D& f) { ASSERT_EQ(f, Vec3D()); });
}

TEST(ForceScript, GivesTheSameBitsForAnyNumberOfWorkers) {
  test::SameForAnyWorkers([](int workers) {
    ForceRig rig("force_coffee", kCells, workers);
    SetScript(rig.object,
              "var n = 0; for (var s = Noise(physical_pos * 3) * 20; s > 1; s /= 1.5) { n++; if (n > 5) return "
              "vector(n, s, 0); } return cell_velocity * n + random(velocity_u_index);");
    rig.Ready();
    rig.SetVelocity(Flow);
    EXPECT_TRUE(rig.Run());
    std::vector<double> all;
    rig.ForEach([&](int, int, int, const Vec3D& f) { all.insert(all.end(), {f.x, f.y, f.z}); });
    return all;
  });
}

TEST(ConstraintScript, ItsFactorIsInvertedAndScaledOnce) {
  test::NodeBench bench;
  BaseObject& object = bench.Add("constraint_coffee", "c");
  const auto ask = [&] {
    bench.Link();
    auto& constraint = bench.Get<CoffeeConstraint>(object);
    constraint.Prepare(nullptr);
    double amount = 0.5;
    constraint.Evaluate({1, 2, 3}, amount, nullptr, 0);
    return amount;
  };
  object.Set(CoffeeConstraint::kScriptIntensityId, 0.75);
  object.Set(Constraint::kIntensityId, 4.0);
  EXPECT_DOUBLE_EQ(ask(), 0.5 * 0.75 * 4);
  object.Set(Constraint::kInvertId, std::int64_t(1));
  EXPECT_DOUBLE_EQ(ask(), 0.5 * 0.25 * 4);
  SetScript(object, "return invert + source_value * physical_pos.z;");
  EXPECT_DOUBLE_EQ(ask(), 0.5 * (1 - (1 + 0.5 * 3)) * 4);
}

TEST(ConstraintScript, APictureAsksItOnMoreWorkersThanItsSceneHas) {
  test::NodeBench bench(4);
  BaseObject& object = bench.Add("constraint_coffee", "c");
  bench.root->Set(RootSettings::kMaxThreadsId, std::int64_t(1));
  SetScript(object, "return 0.25;");
  bench.Step(1);
  bench.Link();
  ASSERT_EQ(bench.scene().threadCount, 1);
  const std::unique_ptr<Constraint> clone = bench.Get<CoffeeConstraint>(object).Clone();
  for (Constraint* constraint : {static_cast<Constraint*>(&bench.Get<CoffeeConstraint>(object)), clone.get()}) {
    constraint->Prepare(nullptr);
    for (int worker = 0; worker < bench.pool.count(); ++worker) {
      double amount = 2;
      EXPECT_TRUE(constraint->Evaluate({}, amount, nullptr, worker));
      EXPECT_EQ(amount, 0.5) << worker;
    }
  }
}

TEST(ChannelScript, TheDefaultAddsNoiseToScalarsAndVectors) {
  OperatorBench bench;
  BaseObject &scalar = bench.Add("channel_scalar", "s"), &vector = bench.Add("channel_vector", "v");
  BaseObject &op = bench.Add("channelop_coffee", "op"), &visit = bench.Add("grid_celliterator", "visit");
  visit.Set(Grid_CellEmitter::kOperatorsId, OperatorBench::ListOf({&op}));
  for (BaseObject* channel : {&scalar, &vector}) {
    visit.Set(Grid_CellEmitter::kChannelId, OperatorBench::LinkTo(*channel));
    bench.Fit(kCells);
    const bool isVector = channel == &vector;
    const auto grid = [&](int c) -> ScalarGrid& {
      return isVector ? *bench.Get<ChannelBase_Vector>(vector).grids[std::size_t(c)] : bench.GridOf(scalar);
    };
    for (int c = 0; c < (isVector ? 3 : 1); ++c)
      FillCells(grid(c), [&](int i, int j, int) { return i + 10 * j + 0.5 * c; });
    ASSERT_TRUE(bench.Run(visit));
    for (int c = 0; c < (isVector ? 3 : 1); ++c) {
      const int cells = ForInner(kCells, [&](int i, int j, int k) {
        const Vec3D centre = grid(0).space.SimOfVoxel(Vec3D(i + 0.5, j + 0.5, k + 0.5));
        ASSERT_NEAR(grid(c)(i, j, k), i + 10 * j + 0.5 * c + NoiseAt(centre), 1e-12) << i << " " << j << " " << k;
      });
      EXPECT_EQ(cells, 138 * 3 * 4);
    }
  }
}

TEST(ChannelScript, TheResultTimesTheWeightIsTheCell) {
  OperatorBench bench;
  BaseObject &scalar = bench.Add("channel_scalar", "s"), &op = bench.Add("channelop_coffee", "op");
  BaseObject &visit = bench.Add("grid_celliterator", "visit"), &part = bench.Add("constraint_coffee", "part");
  visit.Set(Grid_CellEmitter::kOperatorsId, OperatorBench::ListOf({&op}));
  visit.Set(Grid_CellEmitter::kChannelId, OperatorBench::LinkTo(scalar));
  op.Set(ChannelOperator_Coffee::kIntensityId, 3.0);
  op.Set(kConstraintsId, OperatorBench::ListOf({&part}));
  SetScript(part, "return physical_pos.x < 10 ? 0 : 0.5;");
  SetScript(op, "return intensity * 10 + cell_index;");
  bench.Fit(kCells);
  FillCells(bench.GridOf(scalar), [](int, int, int) { return 4.0; });
  // The emitter itself takes all constraints of the scene, too.
  visit.Set(kConstraintsId, OperatorBench::ListOf({&bench.Add("constraint_coffee", "all")}));
  ASSERT_TRUE(bench.Run(visit));
  const ScalarGrid& grid = bench.GridOf(scalar);
  int changed = 0;
  ForInner(kCells, [&](int i, int j, int k) {
    const bool acts = (i + 0.5) * OperatorBench::kCell >= 10;
    changed += acts;
    ASSERT_DOUBLE_EQ(grid(i, j, k), acts ? (3 * 0.5 * 10 + double(grid.Index(i, j, k))) * 0.5 : 4.0) << i;
  });
  EXPECT_GT(changed, 100);
}

TEST(ParticleForceScript, TheDefaultSlowsParticlesDown) {
  test::NodeBench bench;
  BaseObject& object = bench.Add("pforce_coffee", "drag");
  object.Set(ParticleForce_Coffee::kIntensityId, 2.0);
  ParticleList list;
  constexpr int kCount = 300;
  std::vector<Vec3D> places, forces(kCount);
  std::vector<double> weights(kCount, 0.5);
  for (int n = 0; n < kCount; ++n) {
    BaseParticleData data;
    data.position = Vec3D(n, 1, 2), data.velocity = Vec3D(1, n, -n);
    places.push_back(data.position);
    list.Append(1, data);
  }
  const auto run = [&](const std::string& script) {
    if (!script.empty()) SetScript(object, script);
    bench.Link();
    auto& force = bench.Get<Force>(object);
    force.PrepareParticles(nullptr);
    EXPECT_TRUE(force.IsActive());
    std::fill(forces.begin(), forces.end(), Vec3D());
    for (int first = 0; first < kCount; first += 150) {
      force.ProcessParticles({&list, first, 150, 0, places.data() + first, weights.data(), forces.data() + first});
    }
    force.Finish();
  };
  const double amount = bench.scene().info.substepDuration * 2 * 0.5;
  run("");
  for (int n = 0; n < kCount; ++n)
    ASSERT_LT(Length(forces[std::size_t(n)] - Vec3D(1, n, -n) * (-0.05 * amount)), 1e-12) << n;
  run("return vector(particle_index, intensity, 0) + particle_pos;");
  for (int n = 0; n < kCount; ++n) ASSERT_LT(Length(forces[std::size_t(n)] - Vec3D(n + n, 3, 2) * amount), 1e-9) << n;
}

TEST(ScriptAdvice, SaysWhatCannotWork) {
  struct Said {
    const char* body;
    const char* key;
  };
  const Said cases[] = {
      {"return cell_velocity * intensity }", "script"},
      {"return vector(1 / 0, 0, 0) * intensity; }", "script-not-finite"},
      {"while (1) { } return cell_velocity * intensity; }", "script-too-long"},
      {"return cell_velocity; }", "intensity-not-read"},
      {"return cell_velocity * intensity * cell_index; }", "script"},
      {"return cell_velocity * intensity * wind; }", ""},
      {"return cell_velocity * intensity; }", "value-not-read:wind"},
  };
  for (const Said& each : cases) {
    ForceRig rig("force_coffee", {6, 5, 6});
    BaseObject &wind = rig.Add("rate", "wind"), &hidden = rig.Add("rate", "intensity");
    rig.object.Set(Force_Coffee::kIntensityId, 2.0);
    rig.object.Set(C4D_CoffeeGui::kValuesId, ForceRig::ListOf({&wind, &hidden}));
    rig.object.Set(C4D_CoffeeGui::kScriptId, std::string("main(op) { ") + each.body);
    rig.Ready();
    const bool active = rig.Run();
    rig.Run();
    EXPECT_EQ(active, std::string(each.key) != "script") << each.body;
    int times = 0, hiddenTold = 0;
    for (const Warning& warning : rig.observer.warnings.all()) {
      times += warning.key == each.key;
      hiddenTold += warning.key == "value-hidden:intensity";
    }
    EXPECT_EQ(times, *each.key ? 1 : 0) << each.body;
    EXPECT_EQ(hiddenTold, active) << each.body;
  }
}

TEST(ScriptMistakes, AreThoseOfTheSceneWithTheirRows) {
  struct Wrong {
    const char* value;   // its name
    const char* type;    // of the object that is listed
    const char* script;  // of a constraint
    int row;             // 0 for none
    const char* words;
  };
  const Wrong cases[] = {
      {"my rate", "rate", "return 1; }", C4D_CoffeeGui::kValuesId, "\"my rate\" can't be the name of a variable"},
      {"while", "rate", "return 1; }", C4D_CoffeeGui::kValuesId, "no word of the language"},
      {"sin", "rate", "return 1; }", C4D_CoffeeGui::kValuesId, "no word of the language"},
      {"smoke", "channel_scalar", "return 1; }", C4D_CoffeeGui::kValuesId, "must be a value"},
      {"rate", "rate", "return rate; }", 0, ""},
      {"rate", "rate", "return\n rat; }", C4D_CoffeeGui::kScriptId,
       "in line 2, column 2: there is no variable \"rat\", did you mean \"rate\"?"},
      {"rate", "rate", "return physical_pos; }", C4D_CoffeeGui::kScriptId, "main returns a vector, must be a number"},
  };
  for (const Wrong& each : cases) {
    test::NodeBench bench;
    BaseObject &object = bench.Add("constraint_coffee", "c"), &value = bench.Add(each.type, each.value);
    object.Set(C4D_CoffeeGui::kValuesId, test::NodeBench::ListOf({&value}));
    object.Set(C4D_CoffeeGui::kScriptId, std::string("main(op) { ") + each.script);
    const std::vector<RowMistake> found = FindScriptMistakes(bench.document);
    ASSERT_EQ(found.size(), each.row ? 1u : 0u) << each.script;
    if (found.empty()) continue;
    EXPECT_EQ(found[0].row, each.row);
    EXPECT_NE(found[0].text.find(each.words), std::string::npos) << found[0].text;
    EXPECT_EQ(found[0].textOffset,
              each.row == C4D_CoffeeGui::kScriptId ? std::int64_t(found[0].text.find("line 2") == 3 ? 19 : 11) : -1);
  }
  test::NodeBench many;
  std::vector<const BaseObject*> values;
  for (int i = 0; i < 257; ++i) values.push_back(&many.Add("rate", "v" + std::to_string(i)));
  many.Add("constraint_coffee", "c").Set(C4D_CoffeeGui::kValuesId, test::NodeBench::ListOf(values));
  ASSERT_EQ(FindScriptMistakes(many.document).size(), 1u);
  EXPECT_EQ(FindScriptMistakes(many.document)[0].text, "lists 257 values; a script can read 256");
  // A channel operator returns what the cells are that it changes.
  test::NodeBench bench;
  BaseObject &op = bench.Add("channelop_coffee", "op"), &visit = bench.Add("grid_celliterator", "visit");
  visit.Set(Grid_CellEmitter::kOperatorsId, test::NodeBench::ListOf({&op}));
  SetScript(op, "return 1;");
  for (const char* type : {"channel_scalar", "channel_vector"}) {
    visit.Set(Grid_CellEmitter::kChannelId, test::NodeBench::LinkTo(bench.Add(type, type)));
    EXPECT_EQ(FindScriptMistakes(bench.document).size(), type == std::string("channel_vector") ? 1u : 0u);
  }
}

}  // namespace
}  // namespace orlix
