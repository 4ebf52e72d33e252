#include "fluids/level_sets/TriangleDistance.h"

#include <gtest/gtest.h>

#include <random>

#include "fluids/level_sets/CornerBound.h"
#include "fluids/level_sets/RowCrossing.h"
#include "fluids/level_sets/TriangleLanes.h"

namespace orlix {
namespace {

class Triangles {
 public:
  Vec3D Point(double size = 1) { return {size * unit_(random_), size * unit_(random_), size * unit_(random_)}; }
  // Every third one has no area: equal corners, or corners on a line.
  TriangleTerms Next() {
    const Vec3D a = Point(), b = Point();
    const int kind = static_cast<int>(random_() % 9);
    const Vec3D c = kind == 0 ? a : kind == 1 ? a * 0.25 + b * 0.75 : kind == 2 ? b : Point();
    return MakeTriangleTerms(a, kind == 2 ? a : b, c);
  }

 private:
  std::mt19937 random_{11};
  std::uniform_real_distribution<double> unit_{-1, 1};
};

// The least distance to a fine lattice of points on the triangle is at most a lattice step too large.
TEST(TriangleDistance, IsTheLeastOfAllPoints) {
  Triangles triangles;
  for (int n = 0; n < 300; ++n) {
    const TriangleTerms t = MakeTriangleTerms(triangles.Point(), triangles.Point(), triangles.Point());
    const Vec3D p = triangles.Point(3);
    double least = 1e9;
    constexpr int kSteps = 60;
    for (int i = 0; i <= kSteps; ++i) {
      for (int j = 0; i + j <= kSteps; ++j) {
        const double a = double(i) / kSteps, b = double(j) / kSteps;
        least = std::min(least, Length(p - (t.x1 * a + t.x2 * b + t.x3 * (1 - a - b))));
      }
    }
    const double distance = std::sqrt(SquaredDistance(p, t));
    EXPECT_LE(distance, least + 1e-12) << n;
    EXPECT_GE(distance, least - 4.0 / kSteps) << n;
  }
}

TEST(TriangleDistance, WithoutAreaItIsThatOfAPointOrFinite) {
  const Vec3D a(1, 2, 3), p(4, 6, 3);
  EXPECT_DOUBLE_EQ(SquaredDistance(p, MakeTriangleTerms(a, a, a)), 25);
  Triangles triangles;
  for (int n = 0; n < 1000; ++n) EXPECT_TRUE(std::isfinite(SquaredDistance(triangles.Point(), triangles.Next())));
}

TEST(TriangleDistance, LanesHaveTheBitsOfOne) {
  Triangles triangles;
  for (int n = 0; n < 2000; ++n) {
    TriangleTerms t[kLanes];
    const TriangleTerms* pointers[kLanes];
    LaneVector<Lanes> p{};
    Vec3D points[kLanes];
    for (int l = 0; l < kLanes; ++l) {
      t[l] = triangles.Next();
      pointers[l] = &t[l];
      points[l] = triangles.Point(2);
      p.x[l] = points[l].x, p.y[l] = points[l].y, p.z[l] = points[l].z;
    }
    LaneTriangle<double> one;
    Broadcast(one, t[0]);
    LaneTriangle<Lanes> each{};
    Gather(each, pointers);
    Lanes toOne, toEach;
    LaneSquaredDistances(toOne, p, one);
    LaneSquaredDistances(toEach, p, each);
    for (int l = 0; l < kLanes; ++l) {
      EXPECT_EQ(toOne[l], SquaredDistance(points[l], t[0]));
      EXPECT_EQ(toEach[l], SquaredDistance(points[l], t[l]));
    }
  }
}

TEST(CornerBound, NeverPassesTheDistance) {
  Triangles triangles;
  for (int n = 0; n < 20000; ++n) {
    const TriangleTerms t = triangles.Next();
    const Vec3D p = triangles.Point(n % 2 ? 1 : 10);
    const double corner = std::min({LengthSquared(p - t.x1), LengthSquared(p - t.x2), LengthSquared(p - t.x3)});
    const double bound = corner - SquaredCoveringRadius(t.x1, t.x2, t.x3);
    EXPECT_LE(bound, SquaredDistance(p, t) + 1e-12) << n;
  }
}

// A row through a shared edge or corner of a closed fan is counted once, however the corners lie on it.
TEST(RowCrossing, CountsARowThroughEdgesAndCornersOnce) {
  int through = 0;
  for (int turn = 0; turn < 4; ++turn) {
    // A square of side 2 about the origin in y and z, fanned about its middle; corners on whole numbers.
    const Vec3D middle(0.5, 0, 0);
    const Vec3D ring[8] = {{0, -1, -1}, {0, 0, -1}, {0, 1, -1}, {0, 1, 0},
                           {0, 1, 1},   {0, 0, 1},  {0, -1, 1}, {0, -1, 0}};
    for (double y = -1.5; y <= 1.5; y += 0.5) {
      for (double z = -1.5; z <= 1.5; z += 0.5) {
        int count = 0;
        for (int i = 0; i < 8; ++i) {
          const Vec3D corners[3] = {middle, ring[i], ring[(i + 1) % 8]};
          count += RowCrossing(y, z, corners[turn % 3], corners[(turn + 1) % 3], corners[(turn + 2) % 3]).has_value();
        }
        const bool inside = std::abs(y) < 1 && std::abs(z)<1, outside = std::abs(y)> 1 || std::abs(z) > 1;
        EXPECT_GE(count, inside ? 1 : 0) << y << " " << z;
        EXPECT_LE(count, outside ? 0 : 1) << y << " " << z;
        through += count;
      }
    }
  }
  EXPECT_GE(through, 4 * 9);
}

TEST(RowCrossing, GivesThePlaceOnThePlane) {
  // The plane x = 1 + 2 y - z.
  const auto at = [](double y, double z) { return Vec3D(1 + 2 * y - z, y, z); };
  const auto x = RowCrossing(0.3, 0.2, at(0, 0), at(1, 0), at(0, 1));
  ASSERT_TRUE(x.has_value());
  EXPECT_NEAR(*x, 1.4, 1e-14);
  EXPECT_FALSE(RowCrossing(0.8, 0.8, at(0, 0), at(1, 0), at(0, 1)).has_value());
}

}  // namespace
}  // namespace orlix
