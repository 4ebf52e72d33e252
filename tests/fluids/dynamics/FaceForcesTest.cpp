// From forces in cells to faces, against plain loops.

#include <gtest/gtest.h>

#include "fluids/dynamics/FaceForces.h"
#include "tests/support/DynamicsFields.h"

namespace orlix {
namespace {

struct Faces {
  explicit Faces(const VecInt3D& cells) {
    for (unsigned c = 0; c < 3; ++c) {
      VecInt3D dims = cells;
      ++dims[static_cast<int>(c)];
      force.push_back(std::make_unique<Grid<double>>(cells, kGridScratch));
      velocity.push_back(std::make_unique<Grid<double>>(dims, kGridScratch));
      share.push_back(std::make_unique<Grid<float>>(dims, kGridScratch));
      test::FillRandom(*force[c], 3u + c, -1, 1);
      test::FillRandom(*velocity[c], 6u + c, -1, 1);
      test::FillRandom(*share[c], 9u + c, -1, 1);
      for (std::int64_t i = 0; i < share[c]->count; ++i) (*share[c])[i] = std::max(0.0f, (*share[c])[i]);
    }
  }
  CellForces Forces() { return {*force[0], *force[1], *force[2]}; }
  FaceComponents Velocity() { return {*velocity[0], *velocity[1], *velocity[2]}; }
  FaceFractions Shares() { return {*share[0], *share[1], *share[2]}; }
  bool Open(int i, int j, int k) const {
    return (*share[0])(i, j, k) > 0 || (*share[1])(i, j, k) > 0 || (*share[2])(i, j, k) > 0;
  }

  std::vector<std::unique_ptr<Grid<double>>> force, velocity;
  std::vector<std::unique_ptr<Grid<float>>> share;
};

TEST(FaceForces, AFaceTakesItsShareOfTheMeanOfItsCells) {
  const VecInt3D n(9, 7, 8);
  for (const int workers : {1, 3}) {
    Faces faces(n);
    const Faces before(n);
    WorkerPool pool(workers);
    AddForcesToFaces(faces.Forces(), faces.Shares(), faces.Velocity(), pool);
    for (int axis = 0; axis < 3; ++axis) {
      const Grid<double>&f = *faces.force[axis], &v = *faces.velocity[axis], &old = *before.velocity[axis];
      test::ForAll(v.dims, [&](int i, int j, int k) {
        double expected = old(i, j, k);
        if (i > 0 && j > 0 && k > 0 && i < n.x && j < n.y && k < n.z) {
          const double low = f(i - (axis == 0), j - (axis == 1), k - (axis == 2));
          expected += static_cast<double>((*faces.share[axis])(i, j, k)) * 0.5 * (low + f(i, j, k));
        }
        ASSERT_EQ(v(i, j, k), expected);
      });
    }
  }
}

TEST(FaceForces, CellsThatAreClosedAllAroundTakeNeitherForceNorGravity) {
  const VecInt3D n(10, 5, 5);
  Faces faces(n);
  const Faces before(n);
  ClearClosedCells(faces.Shares(), faces.Forces(), 2, 3);
  AddGravity(faces.Shares(), faces.Velocity(), {0.5, -9, 2}, 2, 3);
  int closed = 0;
  for (int i = 0; i < n.x; ++i) {
    const bool acts = i > 0 && i < n.x - 1 && faces.Open(i, 2, 3);
    closed += !acts && i > 0 && i < n.x - 1;
    for (int axis = 0; axis < 3; ++axis) {
      EXPECT_EQ((*faces.force[axis])(i, 2, 3), acts ? (*before.force[axis])(i, 2, 3) : 0);
      EXPECT_EQ((*faces.velocity[axis])(i, 2, 3),
                (*before.velocity[axis])(i, 2, 3) + (acts ? Vec3D(0.5, -9, 2)[axis] : 0));
    }
  }
  EXPECT_GT(closed, 0);
  EXPECT_EQ((*faces.force[0])(3, 3, 3), (*before.force[0])(3, 3, 3));
}

}  // namespace
}  // namespace orlix
