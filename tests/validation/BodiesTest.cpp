// Bodies in fluids against theory. docs/validation.md tells of the results.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "fluids/volumes/VolumeMesh.h"
#include "tests/support/Sanitized.h"
#include "tests/validation/Tank.h"

namespace orlix {
namespace {

using test::Tank;
using test::TankSettings;

constexpr double kGravity = 9.81, kWater = 1000;  // m/s^2, kg/m^3

std::string Vector(const Vec3D& v) {
  return "[" + std::to_string(v.x) + ", " + std::to_string(v.y) + ", " + std::to_string(v.z) + "]";
}

struct BodySettings {
  bool isBox = true;
  Vec3D size;  // m; of a sphere, its diameter in x
  Vec3D place;
  double density = 500;
  std::string tag;  // further rows, each with a comma before it
};

// A tank with a body in it. Coordinates start at the tank's corner.
class BodyTank : public Tank {
 public:
  BodyTank(TankSettings settings, const BodySettings& body) : Tank(With(std::move(settings), body)) {}

  VolumeMesh& Volume() { return run.Get<VolumeMesh>("Body volume"); }
  const RigidState& State() { return Volume().Body()->state; }
  // All that isn't in the body, up to a height.
  void FillTo(double height) {
    run.StepThrough(0, 0);
    const VolumeMesh& volume = Volume();
    Fill([&](const Vec3D& p) { return p.y < height && volume.SampleWorld(p) > 0; });
  }

 private:
  static TankSettings With(TankSettings s, const BodySettings& b) {
    const std::string shape = b.isBox
                                  ? R"("type": "box", "size": )" + Vector(b.size * 100)
                                  : R"("type": "sphere", "segments": 32, "radius": )" + std::to_string(b.size.x * 50);
    s.objects = R"({"name": "Body", )" + shape + R"(, "position": )" + Vector(b.place * 100) + "},";
    s.nodes = R"({"type": "volume", "name": "Body volume", "object": "Body", "tags": [{"type": "c4d_obstacle",
      "driven": false, "inertia": "solid", "mass_mode": "density", "density": )" +
              std::to_string(b.density) + b.tag + "}]},";
    return s;
  }
};

TankSettings Pool(double cell, const Vec3D& size) {
  TankSettings settings;
  settings.size = size, settings.cell = cell;
  settings.liquid = R"("keep_volume": 5,)";
  return settings;
}

// The mean height over the last frames, after it came to rest, upright.
double RestingHeight(BodyTank& tank, int frames) {
  double sum = 0;
  constexpr int kMean = 24;
  for (int frame = 1; frame <= frames; ++frame) {
    tank.run.StepThrough(frame, frame);
    if (frame > frames - kMean) sum += tank.State().pose.off.y / kMean;
  }
  return sum;
}

constexpr double kCell = 0.05, kLevel = 0.5;
const Vec3D kPool(1, 0.9, 1);

// Where the liquid stands when a body has this volume below its surface.
double LevelWith(double water, double submerged) { return (water + submerged) / (kPool.x * kPool.z); }

TEST(FloatingSlow, BoxAndSphereAreAsDeepAsArchimedesSays) {
  constexpr double kSize = 0.4;
  for (const bool isBox : {true, false}) {
    for (const double ratio : {0.3, 0.5, 0.8}) {
      BodySettings body;
      body.isBox = isBox, body.size = Vec3D(kSize), body.density = ratio * kWater;
      body.tag = R"(, "angular_factor": [0, 0, 0], "linear_damping": 0.5)";
      const double r = kSize / 2;
      const double volume = isBox ? kSize * kSize * kSize : 4 / 3.0 * std::numbers::pi * r * r * r;
      double draft = ratio * kSize;
      if (!isBox) {
        // The cap of this height has the share of the volume.
        double low = 0, high = kSize;
        for (int n = 0; n < 60; ++n) {
          draft = (low + high) / 2;
          (std::numbers::pi * draft * draft * (3 * r - draft) / 3 < ratio * volume ? low : high) = draft;
        }
      }
      // Nearly where it should rest, so that waves don't hide where it does.
      body.place = {0.5, kLevel - draft + r + 0.02, 0.5};
      BodyTank tank(Pool(kCell, kPool), body);
      tank.FillTo(kLevel);
      double water = 0;
      tank.ForEach([&](const Vec3D&, const Vec3D&) { water += tank.ParticleVolume(); });
      const double level = LevelWith(water, ratio * volume);
      const double found = level - (RestingHeight(tank, 72) - r);
      RecordProperty((isBox ? "box_" : "sphere_") + std::to_string(int(ratio * 10)), std::to_string(found / draft));
      EXPECT_NEAR(found, draft, 0.1 * kCell + 0.03 * draft) << (isBox ? "box " : "sphere ") << ratio;
    }
  }
}

// A sphere that is let go in still water takes half of the water that it displaces along.
TEST(Floating, SinkingSphereTakesHalfOfItsWaterAlong) {
  constexpr double kRadius = 0.16;
  for (const double ratio : {0.2, 2.0, 4.0}) {
    BodySettings body;
    body.isBox = false, body.size = Vec3D(2 * kRadius), body.density = ratio * kWater;
    body.place = {0.5, 0.45, 0.5};
    TankSettings pool = Pool(0.04, {1, 0.96, 1});
    pool.fps = 100;
    BodyTank tank(pool, body);
    tank.FillTo(0.9);
    // Not from the start: what was in no fluid a step ago falls through that step.
    tank.run.StepThrough(1, 2);
    const double before = tank.State().velocity.y;
    tank.run.StepThrough(3, 4);
    const double found = (tank.State().velocity.y - before) * pool.fps / 2;
    const double expected = -kGravity * (ratio - 1) / (ratio + 0.5);
    RecordProperty("ratio_" + std::to_string(int(10 * ratio)), std::to_string(found / expected));
    EXPECT_NEAR(found, expected, 0.15 * std::abs(expected)) << ratio;
  }
}

// A slender spar moves up and down like a spring: its cross section is the stiffness; little water goes along.
TEST(FloatingSlow, SparBobsWithItsPeriod) {
  constexpr double kWidth = 0.2, kHeight = 0.8, kRatio = 0.6, kCellSize = 0.05;
  BodySettings body;
  body.size = {kWidth, kHeight, kWidth}, body.density = kRatio * kWater;
  body.tag = R"(, "angular_factor": [0, 0, 0], "linear_factor": [0, 1, 0])";
  const double draft = kRatio * kHeight, level = 0.8;
  body.place = {0.5, level - draft + kHeight / 2 + 0.08, 0.5};  // let go 8 cm above where it rests
  TankSettings pool = Pool(kCellSize, {1, 1.4, 1});
  pool.fps = 48;
  BodyTank tank(pool, body);
  tank.FillTo(level - 0.08 * kWidth * kWidth);
  std::vector<double> turns;
  double before = 0;
  for (int frame = 1; frame < 150 && turns.size() < 3; ++frame) {
    tank.run.StepThrough(frame, frame);
    const double v = tank.State().velocity.y;
    if (before != 0 && (v > 0) != (before > 0)) turns.push_back((frame - v / (v - before)) / pool.fps);
    before = v;
  }
  ASSERT_EQ(turns.size(), 3u);
  // The water before a square end moves like that before a disc of its area: two thirds of a ball's.
  const double radius = kWidth / std::sqrt(std::numbers::pi);
  const double carried = 4 / 3.0 * radius * radius * radius / (kWidth * kWidth * draft);
  const double stiffness = 1 / (1 - kWidth * kWidth);  // the tank's level sinks as it rises
  const double period = 2 * std::numbers::pi * std::sqrt(draft * (1 + carried) / (kGravity * stiffness));
  RecordProperty("period", std::to_string((turns[2] - turns[0]) / period));
  EXPECT_NEAR(turns[2] - turns[0], period, 0.1 * period);
}

// Half a second of a cube in water of a twentieth and of twenty times its density: no speed beyond what falling or
// rising gives.
TEST(Floating, LightAndHeavyBodiesAreSteady) {
  for (const double ratio : {0.05, 20.0}) {
    BodySettings body;
    body.size = Vec3D(0.3), body.density = ratio * kWater;
    body.place = {0.4, 0.4, 0.4};
    BodyTank tank(Pool(0.05, {0.8, 0.9, 0.8}), body);
    tank.FillTo(0.7);
    double most = 0;
    for (int frame = 1; frame <= (test::kSanitized ? 6 : 12); ++frame) {
      tank.run.StepThrough(frame, frame);
      most = std::max(most, Length(tank.State().velocity));
    }
    EXPECT_LT(most, 5) << ratio;
    EXPECT_EQ(tank.State().pose.off.y > 0.4, ratio < 1) << ratio;
  }
}

}  // namespace
}  // namespace orlix
