// Directions of an alignment, mode by mode.

#include <gtest/gtest.h>

#include "fluids/volumes/AlignmentVector3D.h"
#include "fluids/volumes/VolumeBase.h"
#include "fluids/volumes/VolumeMesh.h"
#include "tests/support/NodeBench.h"

namespace orlix {
namespace {

using test::NodeBench;

class Alignment : public testing::Test {
 protected:
  AlignmentVector3D& Made(std::int64_t mode, bool invert = false) {
    object_->Set(AlignmentVector3D::kModeId, mode);
    object_->Set(AlignmentVector3D::kInvertId, std::int64_t{invert});
    bench_.Link();
    auto& node = bench_.Get<AlignmentVector3D>(*object_);
    node.Prepare();
    return node;
  }
  static void ExpectNear(const Vec3D& a, const Vec3D& b) {
    EXPECT_LT(Length(a - b), 1e-12) << a.x << " " << a.y << " " << a.z;
  }

  NodeBench bench_;
  BaseObject* object_ = &bench_.Add("alignment", "a");
};

TEST_F(Alignment, AxesAreTurnedByTheObject) {
  object_->Set(kRotationId, Vec3D(0, 0, 90));
  ExpectNear(Made(0).GetDirection({5, 5, 5}), {0, 1, 0});
  ExpectNear(Made(1).GetDirection({5, 5, 5}), {-1, 0, 0});
  ExpectNear(Made(2).GetDirection({5, 5, 5}), {0, 0, 1});
  ExpectNear(Made(2, true).GetDirection({5, 5, 5}), {0, 0, -1});
}

TEST_F(Alignment, AVectorAndNumbersWithoutAModeAreTurnedToo) {
  object_->Set(AlignmentVector3D::kVectorId, Vec3D(0, 2, 0));
  object_->Set(kRotationId, Vec3D(0, 0, 90));
  ExpectNear(Made(7).GetDirection({}), {-2, 0, 0});
  ExpectNear(Made(12, true).GetDirection({}), {2, 0, 0});
  ExpectNear(Made(9).GetDirection({}), {-2, 0, 0});  // no body
  ExpectNear(Made(6).GetDirection({}), {-2, 0, 0});  // no volume: without z
}

TEST_F(Alignment, FromCentreIsAUnitVector) {
  auto& node = Made(3);
  node.SetCentre({1, 2, 3});
  ExpectNear(node.GetDirection({1, 2, 7}), {0, 0, 1});
  ExpectNear(node.GetDirection({4, 6, 3}), {0.6, 0.8, 0});
  ExpectNear(node.GetDirection({1, 2, 3}), {0, 0, 0});
}

TEST_F(Alignment, MajorAxisPrefersXOnlyWhenStrictlyGreatest) {
  ExpectNear(MajorAxisOf({-3, 2, 1}), {-1, 0, 0});
  ExpectNear(MajorAxisOf({1, -2, 1}), {0, -1, 0});
  ExpectNear(MajorAxisOf({2, 2, 1}), {0, 1, 0});
  ExpectNear(MajorAxisOf({1, 1, -1}), {0, 0, -1});
  auto& node = Made(4);
  node.SetVector({0, 0, 1});
  node.SetCentre({5, 0, 0});
  ExpectNear(node.GetDirection({9, 9, 9}), {-1, 0, 0});
}

TEST_F(Alignment, AroundZDropsTheLocalZ) {
  object_->Set(kRotationId, Vec3D(0, 90, 0));  // its z is the world's x
  auto& node = Made(5);
  node.SetCentre({1, 1, 1});
  ExpectNear(node.GetDirection({4, 3, 1}), {0, 2, 0});
  ExpectNear(node.GetDirection({-7, 1, 0}), {0, 0, -1});
}

TEST_F(Alignment, CentreOfAnotherObject) {
  BaseObject& other = bench_.Add("null", "n");
  other.Set(kPositionId, Vec3D(8, 0, 0));
  object_->Set(AlignmentVector3D::kReferenceId, NodeBench::LinkTo(other));
  const double perVoxel = bench_.scene().space.simPerVoxel.x;
  ExpectNear(Made(3).GetDirection({8 * perVoxel, 3, 0}), {0, 1, 0});
}

TEST_F(Alignment, NormalOfAVolumePointsOutwards) {
  BaseObject &volume = bench_.Add("volume", "v"), &ball = bench_.Add("sphere", "ball");
  ball.Set(kPositionId, Vec3D(100, 100, 100));
  volume.Set(VolumeBase::kObjectId, NodeBench::LinkTo(ball));
  object_->Set(AlignmentVector3D::kReferenceId, NodeBench::LinkTo(volume));
  bench_.Link();
  auto& mesh = bench_.Get<VolumeMesh>(volume);
  mesh.Prepare();
  ProcessData data;
  mesh.Process(data);
  const Vec3D normal = Made(6).GetDirection({2, 1, 1});
  EXPECT_NEAR(Length(normal), 1, 1e-12);
  EXPECT_GT(normal.x, 0.95);
  EXPECT_LT(Made(6, true).GetDirection({2, 1, 1}).x, -0.95);
  // The centre is the volume's own.
  ExpectNear(Made(3).GetDirection(mesh.centre + Vec3D(0, 0, 2)), {0, 0, 1});
}

TEST_F(Alignment, RandomDirectionsAreUnitVectorsAboutZero) {
  auto& node = Made(8);
  Vec3D sum, squares;
  constexpr int kDraws = 20000;
  for (int i = 0; i < kDraws; ++i) {
    const Vec3D d = node.GetDirection({i * 0.21, 1, -2});
    EXPECT_NEAR(Length(d), 1, 1e-12);
    sum += d, squares += d * d;
  }
  for (int axis = 0; axis < 3; ++axis) {
    EXPECT_NEAR(sum[axis] / kDraws, 0, 0.02);
    EXPECT_NEAR(squares[axis] / kDraws, 1.0 / 3, 0.02);
  }
}

TEST_F(Alignment, ARandomDirectionFollowsFromSeedFrameAndPlace) {
  auto& node = Made(8);
  const double cell = bench_.scene().space.cellSize;
  const Vec3D centre = Vec3D(7.5, -3.5, 0.5) * cell, elsewhere = Vec3D(7.5, -2.5, 0.5) * cell;
  const Vec3D first = node.GetDirection(centre);
  node.GetDirection(elsewhere);
  ExpectNear(node.GetDirection(centre), first);
  ExpectNear(node.GetDirection(centre * (1 - 1e-15)), first);  // as another container rounds it
  const auto differs = [&] { return Length(node.GetDirection(centre) - first) > 1e-3; };
  EXPECT_GT(Length(node.GetDirection(elsewhere) - first), 1e-3);
  EXPECT_GT(Length(node.GetDirection(centre + Vec3D(0.1 * cell, 0, 0)) - first), 1e-3);
  bench_.scene().seed += 1;
  EXPECT_TRUE(differs());
  bench_.scene().seed -= 1, bench_.scene().info.frame += 1;
  EXPECT_TRUE(differs());
  EXPECT_TRUE(IsFinite(node.GetDirection({1e300, NAN, -1e300})));
}

}  // namespace
}  // namespace orlix
