#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>

#include "TestMeshes.h"
#include "fluids/level_sets/VolumeVoxeliser.h"
#include "host/threads/WorkerPool.h"

namespace orlix::test {
namespace {

// The speed that the engine is held to: half a million triangles on 256^3 cells, set-up included.
TEST(VoxeliserSpeedSlow, HalfAMillionTrianglesOn256) {
  const TriMeshSTL mesh = SphereMesh(1.25, 500, 501, {1.28, 1.28, 1.28});
  ASSERT_EQ(mesh.TriangleCount(), 500000);
  for (const int workers : {1, 2, 2, 2}) {
    WorkerPool pool(workers);
    VolumeVoxeliser voxeliser;
    const auto start = std::chrono::steady_clock::now();
    const auto grid = LevelSetGrid({256, 256, 256}, {}, 0.01f);
    ASSERT_TRUE(voxeliser.Run(mesh, *grid, pool));
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    std::printf("workers %d: %.3f s\n", workers, seconds.count());
    EXPECT_NEAR(*voxeliser.maximumDepth(), 1.25, 0.01);
  }
}

}  // namespace
}  // namespace orlix::test
