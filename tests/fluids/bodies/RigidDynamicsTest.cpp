// Rigid bodies against mechanics: what a step does to plain states.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "fluids/bodies/MassProperties.h"
#include "fluids/bodies/MeshFeatures.h"
#include "fluids/bodies/RigidDynamics.h"
#include "fluids/bodies/RigidMotion.h"

namespace orlix {
namespace {

struct Polygons {
  std::vector<Vec3D> points;
  std::vector<VecInt3D> triangles;
};

Polygons Box(const Vec3D& half) {
  Polygons box;
  for (int n = 0; n < 8; ++n) box.points.push_back(half * Vec3D(n & 1 ? 1 : -1, n & 2 ? 1 : -1, n & 4 ? 1 : -1));
  box.triangles = {{0, 2, 1}, {1, 2, 3}, {4, 5, 6}, {5, 7, 6}, {0, 1, 4}, {1, 5, 4},
                   {2, 6, 3}, {3, 6, 7}, {0, 4, 2}, {2, 4, 6}, {1, 3, 5}, {3, 7, 5}};
  return box;
}

Polygons Sphere(double radius, int segments) {
  Polygons sphere;
  for (int j = 0; j <= segments; ++j) {
    for (int i = 0; i < 2 * segments; ++i) {
      const double a = std::numbers::pi * j / segments, b = std::numbers::pi * i / segments;
      sphere.points.push_back(Vec3D(std::sin(a) * std::cos(b), std::cos(a), std::sin(a) * std::sin(b)) * radius);
    }
  }
  const int row = 2 * segments;
  for (int j = 0; j < segments; ++j) {
    for (int i = 0; i < row; ++i) {
      const int a = j * row + i, b = j * row + (i + 1) % row;
      if (j > 0) sphere.triangles.push_back({a, b, b + row});
      if (j < segments - 1) sphere.triangles.push_back({a, b + row, a + row});
    }
  }
  return sphere;
}

RigidStep Steps(double dt, const Vec3D& gravity = {}) {
  RigidStep step;
  step.dt = dt, step.substeps = 10, step.slop = 0.002, step.gravity = gravity;
  return step;
}

struct Body {
  RigidShape shape;
  RigidState state;
  RigidEntry entry;

  Body(const Polygons& p, double mass, RigidEntry::Kind kind = RigidEntry::Kind::Dynamic)
      : shape(p.points, p.triangles, kind == RigidEntry::Kind::Still, 0.002) {
    entry.kind = kind;
    entry.shape = &shape;
    entry.state = &state;
    entry.mass = mass;
    const MassProperties solid = MassPropertiesOf(p.points, p.triangles);
    if (mass > 0) entry.inertia = solid.inertia * (mass / solid.volume);
  }
  Body(const Body&) = delete;
};

void StepThrough(const std::vector<Body*>& bodies, const RigidStep& step, int steps) {
  for (int n = 0; n < steps; ++n) {
    std::vector<RigidEntry> entries;
    for (Body* body : bodies) entries.push_back(body->entry);
    StepRigidBodies(entries, step);
  }
}

TEST(RigidDynamics, FreeFallIsThatOfTheIntegrator) {
  Body box(Box(Vec3D(0.1)), 3);
  const double dt = 1 / 24.0;
  StepThrough({&box}, Steps(dt, {0, -9.81, 2}), 24);
  // Symplectic Euler over n steps: g dt^2 n (n + 1) / 2.
  const double h = dt / 10, sum = h * h * 240 * 241 / 2;
  EXPECT_NEAR(box.state.pose.off.y, -9.81 * sum, 2e-5);
  EXPECT_NEAR(box.state.pose.off.z, 2 * sum, 2e-5);
  EXPECT_NEAR(box.state.velocity.y, -9.81, 2e-5);
  EXPECT_EQ(box.state.spin, Vec3D());
}

TEST(RigidDynamics, ForceAndTorqueActInTheirDirections) {
  Body box(Box({0.1, 0.2, 0.3}), 2);
  box.state.force = {2, 4, 6};
  box.state.torque = {0, 0, 0.01};
  StepThrough({&box}, Steps(0.1), 1);
  EXPECT_NEAR(box.state.velocity.z, 0.3, 1e-6);
  const double spin = 0.01 * 0.1 / box.entry.inertia.z;
  EXPECT_NEAR(box.state.spin.z, spin, 1e-5 * spin);
  EXPECT_EQ(box.state.force, Vec3D()) << "acts for one step";
  StepThrough({&box}, Steps(0.1), 5);
  // The right hand's rule: about z, from x to y.
  EXPECT_GT(box.state.pose.v1.y, 0.1 * spin);
}

TEST(RigidDynamics, CollisionKeepsMomentumAndFallsApart) {
  Body a(Sphere(0.1, 8), 1), b(Box(Vec3D(0.1)), 3);
  a.state.velocity = {2, 0, 0};
  b.state.pose.off = {0.35, 0.03, 0.02};
  for (Body* body : {&a, &b}) body->entry.restitution = 0.8;
  StepThrough({&a, &b}, Steps(1 / 24.0), 12);
  const Vec3D momentum = a.state.velocity + b.state.velocity * 3.0;
  EXPECT_NEAR(momentum.x, 2, 1e-4);
  EXPECT_NEAR(momentum.y, 0, 1e-4);
  EXPECT_NEAR(momentum.z, 0, 1e-4);
  EXPECT_GT(b.state.velocity.x, 0.5) << "they met";
  EXPECT_LT(a.state.velocity.x, b.state.velocity.x);
}

// Whatever the slop and the steps, contacts give back their share of the speed (what they push apart afterwards moves,
// too, by up to 0.4 m/s).
TEST(RigidDynamics, ContactsGiveBackTheirShare) {
  for (const double share : {0.0, 0.5, 1.0}) {
    for (const double slop : {0.002, 0.01}) {
      for (const int substeps : {1, 10, 40}) {
        Body ball(Sphere(0.2, 16), 2), ground(Box({2, 0.2, 2}), 0, RigidEntry::Kind::Still);
        ball.state.pose.off = {0, 0.5, 0}, ball.state.velocity = {0, -4, 0};
        ground.state.pose.off = {0, -0.2, 0};
        for (Body* body : {&ball, &ground}) body->entry.restitution = std::sqrt(share), body->entry.friction = 0;
        RigidStep step = Steps(1 / 96.0);
        step.slop = slop, step.substeps = substeps;
        StepThrough({&ball, &ground}, step, 24);
        EXPECT_NEAR(ball.state.velocity.y, 4 * share, 0.4) << share << " " << slop << " " << substeps;
      }
    }
  }
  // Equal bodies that meet head on exchange their speeds.
  Body a(Box(Vec3D(0.1)), 1), b(Box(Vec3D(0.1)), 1);
  a.state.velocity = {3, 0, 0}, b.state.pose.off = {0.5, 0, 0};
  for (Body* body : {&a, &b}) body->entry.restitution = 1;
  StepThrough({&a, &b}, Steps(1 / 24.0), 12);
  EXPECT_NEAR(a.state.velocity.x, 0, 0.1);
  EXPECT_NEAR(b.state.velocity.x, 3, 0.1);
}

// The upper side of a floor, of squares.
Polygons Floor(double half, int squares) {
  Polygons floor;
  const int row = squares + 1;
  for (int n = 0; n < row * row; ++n) {
    floor.points.push_back(Vec3D(n % row * 2.0 / squares - 1, 0, n / row * 2.0 / squares - 1) * half);
    if (n % row == squares || n / row == squares) continue;
    floor.triangles.push_back({n, n + row, n + 1});
    floor.triangles.push_back({n + 1, n + row, n + row + 1});
  }
  return floor;
}

// A slope of 30 degrees: it slides with g (sin - mu cos), and rests where mu is more than its tangent. squares: of a
// slope that is a mesh.
double SpeedDownTheSlope(double friction, int squares) {
  constexpr double kSlope = std::numbers::pi / 6;
  Body box(Box({0.3, 0.1, 0.3}), 5), mesh(Floor(10, std::max(squares, 1)), 0, RigidEntry::Kind::Still);
  const Vec3D normal(std::sin(kSlope), std::cos(kSlope), 0);
  const RigidPlane slope{normal, 0};
  box.state.pose = mesh.state.pose = {{}, {normal.y, -normal.x, 0}, normal, {0, 0, 1}};
  box.state.pose.off = normal * (squares > 0 ? 0.104 : 0.102);
  box.entry.friction = friction;
  mesh.entry.friction = mesh.entry.rollingFriction = 1;
  RigidStep step = Steps(1 / 24.0, {0, -9.81, 0});
  if (squares == 0) step.walls = {&slope, 1};
  const std::vector<Body*> bodies = squares > 0 ? std::vector{&mesh, &box} : std::vector{&box};
  StepThrough(bodies, step, 6);
  const double before = Length(box.state.velocity);
  StepThrough(bodies, step, 12);
  return (Length(box.state.velocity) - before) * 2;  // m/s^2
}

TEST(RigidDynamics, BoxSlidesAtItsFriction) {
  for (const int squares : {0, 1, 20}) {
    for (const double mu : {0.0, 0.2, 0.4}) {
      const double a = 9.81 * (0.5 - mu * std::sqrt(0.75));
      EXPECT_NEAR(SpeedDownTheSlope(mu, squares), a, 0.01 * 9.81 * 0.5) << mu << ", " << squares;
    }
    EXPECT_NEAR(SpeedDownTheSlope(0.9, squares), 0, 0.05) << squares;
  }
}

TEST(MeshFeatures, InsideOfAFaceItsNormalAloneFits) {
  const Polygons box = Box(Vec3D(1));
  const MeshFeatures features(box.points, box.triangles);
  const VecInt3D t = box.triangles[0];
  const Vec3D a = box.points[std::size_t(t.x)], b = box.points[std::size_t(t.y)], c = box.points[std::size_t(t.z)];
  const Vec3D normal = Normalized(Cross(b - a, c - a)), along = Normalized(b - a);
  const auto touch = features.TouchAt(0, (a + b + c) / 3.0, 0.1, normal * 3.0);
  EXPECT_NEAR(features.Misfit(touch, normal), 0, 1e-12);
  EXPECT_GT(features.Misfit(touch, Normalized(normal + along * 0.3)), 1);
  EXPECT_GT(features.Misfit(touch, -normal), 4);
}

// Three crates, of which one rests on two: none catches on an edge that isn't there.
TEST(RigidDynamics, StackedCratesStay) {
  Body left(Box({0.2, 0.1, 0.1}), 9), right(Box({0.2, 0.1, 0.1}), 9), top(Box({0.2, 0.1, 0.1}), 9);
  left.state.pose.off = {-0.202, 0.102, 0}, right.state.pose.off = {0.202, 0.102, 0},
  top.state.pose.off = {0, 0.306, 0};
  const RigidPlane ground{{0, 1, 0}, 0};
  RigidStep step = Steps(1 / 24.0, {0, -9.81, 0});
  step.slop = 0.004;
  step.walls = {&ground, 1};
  for (Body* body : {&left, &right, &top}) body->entry.friction = 0.8;
  StepThrough({&left, &right, &top}, step, 48);
  EXPECT_LT(Length(top.state.pose.off - Vec3D(0, 0.304, 0)), 0.01);
  EXPECT_GT(top.state.pose.v2.y, 0.999);
}

struct Halves final : iContactScale {
  mutable int asked = 0;
  double ContactScale(RigidContact, const Vec3D& place) const override {
    ++asked;
    return place.x > 1 ? 0.0 : 1.0;
  }
};

TEST(RigidDynamics, ContactIsScaledAtItsPlace) {
  // A factor of 0 on the far half of the floor: ice. Both glide at first at 3 m/s.
  const auto speedAfter = [](double start) {
    Body floor(Box({20, 0.5, 20}), 0, RigidEntry::Kind::Still), box(Box({0.2, 0.1, 0.2}), 1);
    floor.state.pose.off = {0, -0.5, 0};
    box.state.pose.off = {start, 0.102, 0};
    box.state.velocity = {3, 0, 0};
    floor.entry.friction = box.entry.friction = 0.7;
    Halves halves;
    floor.entry.contact = &halves;
    StepThrough({&floor, &box}, Steps(1 / 24.0, {0, -9.81, 0}), 6);
    EXPECT_GT(halves.asked, 0);
    return box.state.velocity.x;
  };
  EXPECT_NEAR(speedAfter(-5), 3 - 0.49 * 9.81 * 0.25, 0.12);
  EXPECT_NEAR(speedAfter(5), 3, 0.01);
}

TEST(RigidDynamics, DrivenBodyPushesAndArrives) {
  Body pusher(Box(Vec3D(0.1)), 0, RigidEntry::Kind::Driven), box(Box(Vec3D(0.1)), 1);
  box.state.pose.off = {0.25, 0, 0};
  pusher.entry.target.off = {0.2, 0, 0};
  StepThrough({&pusher, &box}, Steps(0.1), 1);
  EXPECT_EQ(pusher.state.pose.off, Vec3D(0.2, 0, 0));
  EXPECT_NEAR(pusher.state.velocity.x, 2, 1e-4);
  EXPECT_GT(box.state.velocity.x, 1.5);
}

TEST(RigidDynamics, WallsHoldAndSleepersStay) {
  for (const double mass : {1e-3, 1.0, 1e9}) {
    Body box(Box(Vec3D(0.1)), mass);
    box.state.pose.off = {0, 0.2, 0};
    const RigidPlane ground{{0, 1, 0}, 0};
    RigidStep step = Steps(1 / 24.0, {0, -9.81, 0});
    step.walls = {&ground, 1};
    box.entry.linearSleep = 0.1, box.entry.angularSleep = 0.1;
    StepThrough({&box}, step, 96);
    EXPECT_NEAR(box.state.pose.off.y, 0.1, 0.01) << mass;
    EXPECT_EQ(box.state.asleep, 1) << "two seconds of rest";
    const RigidState before = box.state;
    StepThrough({&box}, step, 2);
    EXPECT_EQ(box.state.pose, before.pose);
  }
}

// Nothing of it reaches back through the wall once it is beyond.
TEST(RigidDynamics, WallsHoldWhatHasNoThickness) {
  for (const double height : {0.3, 0.47, 0.6, 0.83, 1.0}) {
    Body plate(Box({0.1, 0, 0.1}), 0);
    plate.entry.kind = RigidEntry::Kind::Dynamic, plate.entry.mass = 2, plate.entry.inertia = Vec3D(0.01);
    plate.state.pose.off = {0, height, 0};
    const RigidPlane ground{{0, 1, 0}, 0};
    RigidStep step = Steps(1 / 24.0, {0, -9.81, 0});
    step.walls = {&ground, 1};
    StepThrough({&plate}, step, 24);
    EXPECT_NEAR(plate.state.pose.off.y, 0, 0.01) << height;
  }
}

// --- masses

TEST(MassProperties, BoxTurnsAboutItsAxesWhereverItStands) {
  Polygons box = Box({0.5, 1, 1.5});
  const double c = std::cos(0.4), s = std::sin(0.4);
  for (Vec3D& p : box.points) p = Vec3D(c * p.x - s * p.y, s * p.x + c * p.y, p.z) + Vec3D(100, -7, 3);
  const MassProperties m = MassPropertiesOf(box.points, box.triangles);
  ASSERT_TRUE(m.closed);
  EXPECT_NEAR(std::abs(m.volume), 6, 1e-9);
  EXPECT_NEAR(m.centre.x, 100, 1e-9);
  EXPECT_GT(m.axes.Determinant(), 0.999);
  std::vector<double> found = {m.inertia.x, m.inertia.y, m.inertia.z};
  std::sort(found.begin(), found.end());
  EXPECT_NEAR(found[0], 6 * (1 + 4) / 12.0, 1e-8);
  EXPECT_NEAR(found[1], 6 * (1 + 9) / 12.0, 1e-8);
  EXPECT_NEAR(found[2], 6 * (4 + 9) / 12.0, 1e-8);
  box.triangles.pop_back();
  EXPECT_FALSE(MassPropertiesOf(box.points, box.triangles).closed);
}

// --- rigid motion ---------------------------------------------------------------------------------------------------

LMatrix RotationAbout(const Vec3D& axis, double angle) {
  const double c = std::cos(angle), s = std::sin(angle);
  const auto turned = [&](const Vec3D& p) { return p * c + Cross(axis, p) * s + axis * (Dot(axis, p) * (1 - c)); };
  return {{}, turned({1, 0, 0}), turned({0, 1, 0}), turned({0, 0, 1})};
}

TEST(RigidMotion, FindsAxisAngleAndDisplacement) {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> unit(-1, 1);
  for (const double angle : {1e-9, 1e-4, 0.3, 1.5, 3.0, std::numbers::pi - 1e-4, std::numbers::pi}) {
    for (int n = 0; n < 20; ++n) {
      const Vec3D axis = Normalized(Vec3D(unit(random), unit(random), unit(random)));
      LMatrix from = RotationAbout(Normalized(Vec3D(unit(random), 1, unit(random))), 2 * unit(random));
      LMatrix to = RotationAbout(axis, angle) * from;
      from.off = {1, 2, 3};
      to.off = {1.5, 2, 2};
      const ObjectMotion motion = MotionBetween(from, to);
      EXPECT_EQ(motion.displacement, Vec3D(0.5, 0, -1));
      EXPECT_NEAR(motion.angle, angle, 1e-12);
      // Half a turn about an axis is one about its opposite.
      const double sign = angle > 3.14159 && Dot(motion.rotation, axis) < 0 ? -1 : 1;
      EXPECT_LT(Length(motion.rotation - axis * (angle * sign)), 1e-6 * angle + 1e-15) << angle;
    }
  }
}

TEST(RigidMotion, ScaleIsNoMotionAndStandingStillIsExactlyNone) {
  LMatrix scaled = RotationAbout({0, 1, 0}, 0.7);
  const LMatrix plain = scaled;
  scaled.v1 *= 3, scaled.v2 *= 3, scaled.v3 *= 3;
  EXPECT_NEAR(MotionBetween(plain, scaled).angle, 0, 1e-12);
  EXPECT_TRUE(MotionBetween(plain, plain).IsZero());
  EXPECT_TRUE(MotionBetween(LMatrix(), LMatrix()).IsZero());
}

TEST(RigidMotion, FlatAxesGiveNoRotation) {
  LMatrix flat;
  flat.v2 = {};
  EXPECT_EQ(MotionBetween(LMatrix(), flat).rotation, Vec3D());
}

}  // namespace
}  // namespace orlix
