#include "fluids/advection/VelocityPoints.h"

#include <gtest/gtest.h>

#include "tests/fluids/advection/AdvectionFixture.h"

namespace orlix {
namespace {

TEST(VelocityPoints, ARunHasTheBitsOfItsPointsAlsoBesideAndBeyondTheLattice) {
  const VecInt3D cells(9, 7, 8);
  std::mt19937 random(5);
  std::uniform_real_distribution<double> any(-1, 1);
  test::AdvectionBench bench(cells, [&](const Vec3D&) { return Vec3D(any(random), any(random), any(random)) * 3.0; });
  const VelocityView& velocity = bench.field.velocity;
  const double h = bench.h, perMetre = 1.0 / h, dt = 0.3;
  const auto velocityAt = [&](const Vec3D& local) { return velocity.At(local * perMetre); };
  int checked = 0;
  for (const int count : {1, 3, 4, 61, 128}) {
    std::vector<Vec3D> points;
    for (int n = 0; n < count; ++n) {
      const Vec3D r(any(random), any(random), any(random));
      points.push_back((r * 0.7 + Vec3D(0.5)) * Vec3D(cells) * h);
    }
    PointRun run, u;
    const Vec3D offset(3, -5, 0.25);
    std::vector<Vec3D> back(points.size());
    run.Load(points.data(), count, offset);
    run.Unload(back.data(), -offset);
    for (int n = 0; n < count; ++n) {
      ASSERT_EQ(run.Get(n), points[n] + offset);
      ASSERT_EQ(back[n], points[n] + offset - offset);
    }
    run.Load(points.data(), count);
    SampleVelocity(velocity, perMetre, run, u);
    double distances[PointRun::kMost];
    SampleNodes(bench.field.solid.nodes(), h, run, distances);
    for (int n = 0; n < count; ++n, ++checked) {
      ASSERT_EQ(u.Get(n), velocityAt(points[n]));
      ASSERT_EQ(distances[n], bench.field.solid.DistanceLocal(points[n]));
    }
    for (int method = -1; method < 5; ++method) {
      const auto integrator = static_cast<Integrator>(method);
      PointRun moved = run;
      TracePoints(velocity, perMetre, integrator, dt, moved);
      for (int n = 0; n < count; ++n, ++checked) {
        ASSERT_EQ(moved.Get(n), TracePoint(integrator, points[n], dt, velocityAt)) << method;
      }
    }
  }
  EXPECT_EQ(checked, 7 * (1 + 3 + 4 + 61 + 128));
}

}  // namespace
}  // namespace orlix
