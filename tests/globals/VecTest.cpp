#include "globals/Vec.h"

#include <gtest/gtest.h>

namespace orlix::test {
namespace {

[[gnu::noinline]] Vec3D Narrowed(const Vec3D& v) { return Vec3D(Vec3F(v)); }

TEST(Vec, NarrowingRoundsEachComponent) {
  const Vec3D narrowed = Narrowed({0.1, 0.2, 0.3});
  EXPECT_EQ(narrowed.x, double(0.1f));
  EXPECT_EQ(narrowed.y, double(0.2f));
  EXPECT_EQ(narrowed.z, double(0.3f));
}

}  // namespace
}  // namespace orlix::test
