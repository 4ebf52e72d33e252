// Chains of constraints, at a place and over a row.

#include <gtest/gtest.h>

#include "fluids/constraints/Constraint.h"
#include "tests/support/NodeBench.h"

namespace orlix {
namespace {

using test::NodeBench;

// Multiplies by x, and ends the chain where x is above its parameter.
class Ramp final : public Constraint {
 public:
  using Constraint::Constraint;
  static constexpr int kRampEndId = 1;
  static const TypeInfo& Type() {
    static constexpr Parameter kRows[] = {FloatParameter(kRampEndId, "ramp_end", 10, "m", "Where the chain ends")};
    static const TypeInfo kType = {.id = 1999911,
                                   .resource = "zq_ramp",
                                   .kinds = kLinkHelper | kLinkConstraint,
                                   .parameters = kRows,
                                   .common = ConstraintParameters()};
    return kType;
  }
  bool ReadParameters() override {
    if (!Constraint::ReadParameters()) return false;
    end = handler.GetDouble(kRampEndId);
    return true;
  }
  bool Evaluate(const Vec3D& p, double& amount, const iBase* caller, std::int32_t worker) const override {
    ++asked;
    if (p.x > end) return false;
    amount *= Inverted() ? 1 - p.x : p.x;
    return Constraint::Evaluate(p, amount, caller, worker);
  }
  std::unique_ptr<Constraint> Clone() const override { return CloneOf(*this); }

  double end = 10;
  mutable int asked = 0;
};

class ConstraintChain : public testing::Test {
 protected:
  ConstraintChain() { bench_.factory.Add<Ramp>(); }
  Ramp& Made(const std::string& name, double end = 10, double intensity = 1) {
    BaseObject& object = bench_.Add("ramp", name);
    object.Set(Ramp::kRampEndId, end);
    object.Set(Constraint::kIntensityId, intensity);
    bench_.Link();
    chain_.push_back(&bench_.Get<Ramp>(object));
    return bench_.Get<Ramp>(object);
  }
  double At(double x, double amount = 2) {
    EvaluateChain(chain_, {x, 0, 0}, amount, nullptr, 0);
    return amount;
  }

  NodeBench bench_;
  std::vector<Constraint*> chain_;
};

TEST_F(ConstraintChain, WithoutConstraintsTheAmountStays) { EXPECT_EQ(At(0.25), 2); }

TEST_F(ConstraintChain, FalseEndsItAndTheAmountCounts) {
  Made("a", 10, 0.5);
  Ramp& second = Made("b", 3);
  Ramp& third = Made("c");
  EXPECT_EQ(At(4), 2 * 4 * 0.5);
  EXPECT_EQ(second.asked, 1);
  EXPECT_EQ(third.asked, 0);
}

TEST_F(ConstraintChain, ZeroEndsIt) {
  Made("a", 10, 0);
  Ramp& second = Made("b");
  EXPECT_EQ(At(4), 0);
  EXPECT_EQ(second.asked, 0);
}

TEST_F(ConstraintChain, DisabledConstraintsAreLeftOut) {
  Made("a", 10, 0.5).SetFlag(NodeEnabled, false);
  EXPECT_EQ(At(4), 2);
}

TEST_F(ConstraintChain, ARowGivesWhatItsPlacesGive) {
  Made("a", 3, 0.5);
  Made("b", 2);
  Made("c", 10, 4);
  GridSpace space;
  space.Build({16, 4, 4}, Vec3D(16, 4, 4) * 25, 0.25f, {-50, 0, 0});
  std::vector<double> amounts(16, 2.0);
  std::vector<std::uint8_t> open(16, 1);
  amounts[5] = 0, open[5] = 0;  // not asked for
  ConstraintRow row;
  row.begin = 1, row.end = 15, row.j = 1, row.k = 2;
  row.space = &space;
  row.amounts = amounts.data(), row.open = open.data();
  EvaluateChain(chain_, row, nullptr);
  for (int i = 0; i < 16; ++i) {
    double expected = i == 5 ? 0 : 2;
    if (i >= 1 && i < 15 && i != 5) EvaluateChain(chain_, row.Position(i), expected, nullptr, 0);
    EXPECT_EQ(amounts[static_cast<std::size_t>(i)], expected) << i;
  }
}

TEST_F(ConstraintChain, ARunOfParticlesGivesWhatItsParticlesGive) {
  Made("a", 3, 0.5);
  Made("b", 2);
  ParticleList list;
  list.Append(20, {});
  std::vector<Vec3D> positions;
  for (int n = 0; n < 12; ++n) positions.push_back(Vec3D(0.3 * n, 0, 0));
  std::vector<double> amounts(12, 2.0);
  std::vector<std::uint8_t> open(12, 1);
  amounts[5] = 0, open[5] = 0;
  EvaluateChain(chain_, ParticleRun{&list, 4, 12, 0, positions.data(), amounts.data(), open.data()}, nullptr);
  for (std::size_t n = 0; n < 12; ++n) {
    double expected = n == 5 ? 0 : 2;
    if (n != 5) EvaluateChain(chain_, positions[n], expected, nullptr, 0, OrlixParticle(&list, 4 + int(n)));
    EXPECT_EQ(amounts[n], expected) << n;
    EXPECT_EQ(amounts[n], n == 5 ? 0 : At(positions[n].x)) << n;
  }
}

}  // namespace
}  // namespace orlix
