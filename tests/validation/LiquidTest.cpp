// Liquids against experiments and theory. docs/validation.md tells of the results.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <numbers>
#include <string>
#include <vector>

#include "fluids/volumes/VolumeMesh.h"
#include "tests/support/Sanitized.h"
#include "tests/validation/Tank.h"

namespace orlix {
namespace {

// What a check against the world measured, beside what was expected. With ORLIX_VALIDATION=FOLDER in the environment it
// is written there as NAME.csv, from which tests/validation/plot.py draws the pictures of docs/validation.md.

class Curve {
 public:
  Curve(std::string name, std::string columns) : name_(std::move(name)), columns_(std::move(columns)) {}
  ~Curve() {
    const char* folder = std::getenv("ORLIX_VALIDATION");
    if (!folder) return;
    std::ofstream out(std::string(folder) + "/" + name_ + ".csv");
    out << columns_ << "\n";
    for (const auto& row : rows_) {
      for (std::size_t n = 0; n < row.size(); ++n) out << (n ? "," : "") << row[n];
      out << "\n";
    }
  }
  Curve(const Curve&) = delete;
  Curve& operator=(const Curve&) = delete;
  void Add(std::vector<double> row) { rows_.push_back(std::move(row)); }

 private:
  std::string name_, columns_;
  std::vector<std::vector<double>> rows_;
};

using test::Tank;
using test::TankSettings;

constexpr double kGravity = 9.81;  // m/s^2

// Of the values, the one that a share of them doesn't pass.
double Quantile(std::vector<double> values, double share) {
  if (values.empty()) return 0;
  const auto at = values.begin() + std::ptrdiff_t(double(values.size() - 1) * share);
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

double TopSpeed(Tank& tank) {
  double most = 0;
  tank.ForEach([&](const Vec3D&, const Vec3D& v) { most = std::max(most, LengthSquared(v)); });
  return std::sqrt(most);
}

// --- a collapsing column (Martin and Moyce 1952, tables 2 and 6 for a column twice as high as wide)

struct Measured {
  std::vector<double> time, value;
  double At(double t) const {
    const auto n = std::clamp<std::ptrdiff_t>(std::upper_bound(time.begin(), time.end(), t) - time.begin(), 1,
                                              std::ssize(time) - 1);
    const auto i = std::size_t(n);
    return value[i - 1] + (value[i] - value[i - 1]) * (t - time[i - 1]) / (time[i] - time[i - 1]);
  }
};
// Front over width against t sqrt(2 g / width).
const Measured kFront = {{0.41, 0.84, 1.19, 1.43, 1.63, 1.83, 1.98, 2.20, 2.32, 2.51, 2.65, 2.83, 2.98, 3.11, 3.33},
                         {1.11, 1.22, 1.44, 1.67, 1.89, 2.11, 2.33, 2.56, 2.78, 3.00, 3.22, 3.44, 3.67, 3.89, 4.11}};
// Height over that at the start against t sqrt(g / width).
const Measured kHeight = {{0.56, 0.77, 0.93, 1.08, 1.28, 1.46, 1.66, 1.84, 2.00, 2.21, 2.45, 2.70, 3.06, 3.44, 4.20},
                          {0.94, 0.89, 0.83, 0.78, 0.72, 0.67, 0.61, 0.56, 0.50, 0.44, 0.39, 0.33, 0.28, 0.22, 0.17}};
constexpr double kGateShift = 0.18;  // of t sqrt(2 g / width): the gate of the experiment took its time to leave

// The mean over z of the furthest that particles which count reach along an axis. Their surface is a quarter of a cell,
// half their distance, beyond the last ones.
template <class F>
double Reach(Tank& tank, double cell, int axis, F&& counts) {
  std::vector<double> most;
  tank.ForEach([&](const Vec3D& p, const Vec3D&) {
    if (!counts(p)) return;
    const auto slice = std::size_t(p.z / (cell / 2));
    if (slice >= most.size()) most.resize(slice + 1, 0.0);
    most[slice] = std::max(most[slice], p[axis]);
  });
  double sum = 0;
  for (const double v : most) sum += v / double(most.size());
  return sum + cell / 4;
}

void ComparesWithTheColumn(double cell, const std::string& name) {
  constexpr double kWidth = 0.5;  // m
  TankSettings settings;
  settings.size = {2.4, 1.2, 4 * cell}, settings.cell = cell, settings.fps = 60;
  settings.liquid = R"("keep_volume": 5,)";
  Tank tank(settings);
  tank.Fill([&](const Vec3D& p) { return p.x < kWidth && p.y < 2 * kWidth; });
  Curve curve("column_" + name, "T,front,front (measured),height,height (measured)");
  int compared = 0;
  for (int frame = 1; frame <= 48; ++frame) {
    tank.run.StepThrough(frame, frame);
    const double front = Reach(tank, cell, 0, [&](const Vec3D& p) { return p.y < 2 * cell; }) / kWidth;
    const double height = Reach(tank, cell, 1, [&](const Vec3D& p) { return p.x < cell; }) / (2 * kWidth);
    // Frame 1 stands at time 0. A step moves particles by the velocity before it: half a step late.
    const double seconds = (frame - 1.5) / settings.fps;
    const double time = seconds * std::sqrt(2 * kGravity / kWidth) + kGateShift, slow = time / std::sqrt(2.0);
    curve.Add({time, front, kFront.At(time), height, kHeight.At(slow)});
    if (time < 0.84 || time > 3.33) continue;
    EXPECT_NEAR(front, kFront.At(time), 0.08 * kFront.At(time)) << "front at T " << time;
    EXPECT_NEAR(height, kHeight.At(slow), 0.08 * kHeight.At(slow)) << "height at T " << time;
    ++compared;
  }
  EXPECT_GT(compared, 20);
}

TEST(Column, FrontAndHeightAreTheMeasuredOnes) { ComparesWithTheColumn(0.05, "coarse"); }
TEST(ColumnSlow, FrontAndHeightAreTheMeasuredOnesAtTwiceTheResolution) { ComparesWithTheColumn(0.025, "fine"); }

// --- rest, fall, waves

void StaysAtRest(int frames, double keepVolume, double viscosity = 0) {
  TankSettings settings;
  settings.size = {0.75, 1, 0.5}, settings.cell = 1.0 / 16;
  settings.liquid =
      R"("keep_volume": )" + std::to_string(keepVolume) + R"(, "viscosity": )" + std::to_string(viscosity) + ",";
  Tank tank(settings);
  tank.Fill([](const Vec3D& p) { return p.y < 0.5; });
  Curve curve("rest_" + std::to_string(int(keepVolume)) + (viscosity > 0 ? "_thick" : ""),
              "frame,top speed (m/s),surface (m)");
  double fastest = 0;
  for (int frame = 1; frame <= frames; ++frame) {
    tank.run.StepThrough(frame, frame);
    fastest = std::max(fastest, TopSpeed(tank));
    std::vector<double> y;
    tank.ForEach([&](const Vec3D& p, const Vec3D&) { y.push_back(p.y); });
    const double surface = *std::max_element(y.begin(), y.end());
    curve.Add({double(frame), TopSpeed(tank), surface});
    EXPECT_NEAR(surface, 0.5, settings.cell / 2) << frame;
  }
  EXPECT_LT(fastest, 1e-3) << "m/s";
}

TEST(Tank, StaysAtRest) {
  for (const double viscosity : {0.0, 1.0}) StaysAtRest(6, 5, viscosity);
}
TEST(TankSlow, StaysAtRestFor500Frames) { StaysAtRest(500, 5); }
TEST(TankSlow, StaysAtRestFor500FramesWithoutVolumeKeeping) { StaysAtRest(500, 0); }

TEST(Tank, ABodyOfWaterFallsFreely) {
  TankSettings settings;
  settings.size = {0.5, 2, 0.5}, settings.cell = 1.0 / 16, settings.fps = 48;
  Tank tank(settings);
  tank.Fill([](const Vec3D& p) { return Length(p - Vec3D(0.25, 1.6, 0.25)) < 0.15; });
  int compared = 0;
  for (int frame = 1; frame <= 24; ++frame) {
    tank.run.StepThrough(frame, frame);
    const double t = double(frame - 1) / settings.fps;
    tank.ForEach([&](const Vec3D&, const Vec3D& v) {
      EXPECT_LT(Length(v - Vec3D(0, -kGravity * t, 0)), 1e-3 * std::max(0.1, kGravity * t)) << frame;
      ++compared;
    });
  }
  EXPECT_GT(compared, 10000);
  // A step moves by the velocity before it: half a step late.
  double lowest = 2, highest = 0;
  tank.ForEach([&](const Vec3D& p, const Vec3D&) { lowest = std::min(lowest, p.y), highest = std::max(highest, p.y); });
  const double fallen = kGravity / 2 * 23 * 22 / (settings.fps * settings.fps);
  EXPECT_NEAR((lowest + highest) / 2, 1.6 - fallen, 0.5 * settings.cell);
}

// Where the particles are after some frames, in the tank's own frame.
std::vector<Vec3D> CollapseIn(const Vec3D& corner, bool mirrored) {
  TankSettings settings;
  settings.cell = 1.0 / 16, settings.size = {1, 0.75, 0.5}, settings.corner = corner, settings.mirrored = mirrored;
  settings.liquid = R"("keep_volume": 5,)";
  Tank tank(settings);
  tank.Fill([](const Vec3D& p) { return p.x < 0.4 && p.y < 0.5; });
  tank.run.StepThrough(1, 6);
  std::vector<Vec3D> places;
  tank.ForEach([&](const Vec3D& p, const Vec3D&) {
    places.push_back(p - corner);
    if (mirrored) places.back().x = settings.size.x - places.back().x;
  });
  return places;
}

TEST(Tank, IsTheSameMovedByCellsAndMirrored) {
  const std::vector<Vec3D> plain = CollapseIn({}, false);
  ASSERT_GT(plain.size(), 1000u);
  for (const bool mirrored : {false, true}) {
    const std::vector<Vec3D> other = CollapseIn(mirrored ? Vec3D() : Vec3D(2, 1, -0.5), mirrored);
    ASSERT_EQ(other.size(), plain.size());
    double apart = 0, moved = 0;
    for (std::size_t n = 0; n < plain.size(); ++n) {
      apart = std::max(apart, Length(other[n] - plain[n])), moved = std::max(moved, plain[n].x);
    }
    EXPECT_LT(apart, 1e-4) << mirrored;
    EXPECT_GT(moved, 0.45);
  }
}

// The period of the first standing wave: omega^2 = g k tanh(k depth), k = pi / length.
void SloshesAtItsPeriod(int cells, double seconds) {
  constexpr double kDepth = 0.5, kAmplitude = 0.1;
  TankSettings settings;
  settings.cell = 1.0 / cells, settings.size = {1, 0.75, 4.0 / cells}, settings.fps = 48;
  settings.liquid = R"("flip_ratio": 0.99, "keep_volume": 5,)";
  settings.scene = R"("cfl": 1,)";
  Tank tank(settings);
  const double k = std::numbers::pi;
  tank.Fill([&](const Vec3D& p) { return p.y < kDepth + kAmplitude * std::cos(k * p.x); });
  const double period = 2 * std::numbers::pi / std::sqrt(kGravity * k * std::tanh(k * kDepth));
  Curve curve("slosh_" + std::to_string(cells), "t (s),amplitude (m),linear theory (m)");
  std::vector<double> crossings;
  double before = 0;
  for (int frame = 1; frame <= int(seconds * settings.fps); ++frame) {
    tank.run.StepThrough(frame, frame);
    // All of the liquid's mass carries its surface's first mode.
    double sum = 0;
    tank.ForEach([&](const Vec3D& p, const Vec3D&) { sum += std::cos(k * p.x); });
    const double amplitude = 2 * sum * tank.ParticleVolume() / settings.size.z, t = double(frame - 1) / settings.fps;
    curve.Add({t, amplitude, kAmplitude * std::cos(2 * std::numbers::pi * t / period)});
    if (frame > 1 && (before > 0) != (amplitude > 0)) {
      crossings.push_back(t - amplitude / (amplitude - before) / settings.fps);
    }
    before = amplitude;
  }
  ASSERT_GE(crossings.size(), 4u);
  const double measured = 2 * (crossings.back() - crossings.front()) / double(crossings.size() - 1);
  EXPECT_NEAR(measured, period, 0.03 * period) << crossings.size();
}

TEST(TankSlow, SloshesAtThePeriodOfLinearTheory) { SloshesAtItsPeriod(48, 4.5); }

// --- walls

// Beneath a gate the speed is that of a fall from the surface: v^2 / 2 + g y = g depth.
void FlowsOutLikeTorricelli(int cells) {
  constexpr double kGate = 0.1875;  // m
  TankSettings settings;
  settings.cell = 1.0 / cells, settings.size = {1.5, 1, 4.0 / cells}, settings.fps = 48;
  settings.liquid = R"("face_x_max": "open", "keep_volume": 5,)";
  settings.objects = R"({"type": "box", "name": "Gate", "size": [12.5, 200, 200], "position": [81.25, 118.75, 0]},)";
  settings.nodes =
      R"({"type": "volume", "name": "Gate volume", "object": "Gate", "tags": [{"type": "c4d_obstacle"}]},)";
  Tank tank(settings);
  tank.Fill([](const Vec3D& p) { return p.x < 0.75 && p.y < 0.8; });
  Curve curve("torricelli_" + std::to_string(cells), "t (s),speed (m/s),Torricelli (m/s)");
  int compared = 0;
  for (int frame = 1; frame <= 40; ++frame) {
    tank.run.StepThrough(frame, frame);
    std::vector<double> surface, jet, fall;
    tank.ForEach([&](const Vec3D& p, const Vec3D& v) {
      if (p.x < 0.6) surface.push_back(p.y);
      if (p.x > 0.95 && p.x < 1.1 && p.y < kGate) jet.push_back(Length(v)), fall.push_back(p.y);
    });
    if (jet.size() < 20) continue;
    const double depth = Quantile(surface, 0.99), t = double(frame - 1) / settings.fps;
    // The median: slow water that leaves the gate's edge mixes into the upper side of the jet.
    const double speed = Quantile(jet, 0.5), expected = std::sqrt(2 * kGravity * (depth - Quantile(fall, 0.5)));
    curve.Add({t, speed, expected});
    if (t < 0.4) continue;
    EXPECT_NEAR(speed, expected, 0.1 * expected) << t;
    ++compared;
  }
  EXPECT_GT(compared, 15);
}

TEST(GateSlow, FlowsOutLikeTorricelli) { FlowsOutLikeTorricelli(32); }
TEST(GateSlow, FlowsOutLikeTorricelliAtTwiceTheResolution) { FlowsOutLikeTorricelli(64); }

// A wall of one and a half cells between two rooms, one of which sloshes.
void AThinWallHolds(int frames) {
  TankSettings settings;
  settings.cell = 1.0 / 16, settings.size = {1.5, 1, 0.25}, settings.top = "closed";
  settings.objects = R"({"type": "box", "name": "Wall", "size": [9.375, 300, 100], "position": [104.69, 50, 0]},)";
  settings.nodes =
      R"({"type": "volume", "name": "Wall volume", "object": "Wall", "tags": [{"type": "c4d_obstacle"}]},)";
  Tank tank(settings);
  tank.Fill([](const Vec3D& p) { return p.x > 0.5 && p.x < 1 && p.y < 0.9; });
  int all = 0, leaked = 0;
  for (int frame = 1; frame <= frames; ++frame) {
    tank.run.StepThrough(frame, frame);
    tank.ForEach([&](const Vec3D& p, const Vec3D&) { ++all, leaked += p.x > 1.0469; });
  }
  EXPECT_GT(all, frames * 3000);
  EXPECT_EQ(leaked, 0);
}

TEST(Wall, AThinOneDoesNotLeak) { AThinWallHolds(8); }
TEST(WallSlow, AThinOneDoesNotLeakWhenItSloshes) { AThinWallHolds(120); }

// --- volume

// The room that the particles take over what they took at first: by how many stand in cells that are surrounded by
// others.
double BulkVolume(Tank& tank) {
  const ScalarGrid& phi = *tank.Solver().levelset.grid;
  std::vector<int> counts(std::size_t(phi.count), 0);
  tank.ForEach([&](const Vec3D& p, const Vec3D&) {
    const Vec3D q = (p - phi.space.simMin) / phi.space.cellSize;
    ++counts[std::size_t(phi.Index(int(q.x), int(q.y), int(q.z)))];
  });
  const std::int64_t steps[3] = {1, phi.dims.x, phi.slab};
  double sum = 0;
  int deep = 0;
  for (std::int64_t c = phi.slab; c < phi.count - phi.slab; ++c) {
    const bool inside = std::all_of(steps, steps + 3, [&](std::int64_t step) {
      return counts[std::size_t(c - step)] > 0 && counts[std::size_t(c + step)] > 0;
    });
    if (inside) sum += counts[std::size_t(c)], ++deep;
  }
  return deep > 0 ? 8 * deep / sum : 0;
}

void KeepsItsVolume(int cells, int frames, const std::string& name) {
  TankSettings settings;
  settings.cell = 1.0 / cells, settings.size = {1, 1, 0.25}, settings.top = "closed";
  settings.liquid = R"("keep_volume": 5,)";
  settings.nodes =
      R"({"type": "pforce_correct", "name": "Spring", "group": "Water", "solver": "Tank", "kind": "liquid"},)";
  Tank tank(settings);
  tank.Fill([](const Vec3D& p) { return p.x < 0.5 && p.y < 0.75; });
  Curve curve("volume_" + name, "frame,of the particles,by the level set");
  double last = 0, count = 0;
  for (int frame = 1; frame <= frames; ++frame) {
    tank.run.StepThrough(frame, frame);
    if (frame < 2) continue;
    const double bulk = BulkVolume(tank), surface = tank.Report().surfaceVolume / tank.Report().particleVolume;
    curve.Add({double(frame), bulk, surface});
    if (frame > frames - 48) last += bulk / 48, ++count;
    EXPECT_EQ(tank.Report().outside, 0) << frame;
  }
  EXPECT_EQ(count, 48);
  EXPECT_NEAR(last, 1, 0.03);
}

TEST(VolumeSlow, StaysIn500FramesOfViolentSloshing) { KeepsItsVolume(24, 500, "kept"); }

// Bodies in fluids against theory. docs/validation.md tells of the results.

using test::Tank;
using test::TankSettings;

constexpr double kWater = 1000;  // kg/m^3

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
  constexpr double kThick = 0.2, kLong = 0.8, kRatio = 0.6, kCellSize = 0.05;
  BodySettings body;
  body.size = {kThick, kLong, kThick}, body.density = kRatio * kWater;
  body.tag = R"(, "angular_factor": [0, 0, 0], "linear_factor": [0, 1, 0])";
  const double draft = kRatio * kLong, level = 0.8;
  body.place = {0.5, level - draft + kLong / 2 + 0.08, 0.5};  // let go 8 cm above where it rests
  TankSettings pool = Pool(kCellSize, {1, 1.4, 1});
  pool.fps = 48;
  BodyTank tank(pool, body);
  tank.FillTo(level - 0.08 * kThick * kThick);
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
  const double radius = kThick / std::sqrt(std::numbers::pi);
  const double carried = 4 / 3.0 * radius * radius * radius / (kThick * kThick * draft);
  const double stiffness = 1 / (1 - kThick * kThick);  // the tank's level sinks as it rises
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
