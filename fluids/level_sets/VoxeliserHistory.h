#pragma once
// What a run of the voxeliser leaves for the next one of a mesh that deforms in places: the nodes of each block after
// each stage that changed them. A stage makes a block from its own nodes and those upstream of it, and from their
// triangles: where all of these are as they were, the block gets what it got then, and so do the blocks that follow.
// What comes out is to the last bit what a whole run gives.
//
//   a node       25 bytes, and 12 more for each sweep that changes its block: some 50 in all; nothing
//                is kept of more than four million

#include <array>
#include <atomic>
#include <memory>
#include <vector>

#include "fluids/grids/CountedVector.h"
#include "fluids/grids/EGrid.h"
#include "fluids/level_sets/VoxeliserScratch.h"
#include "fluids/meshes/iMesh.h"

namespace orlix {

class WorkerPool;

// The nodes [low, high) of a block of this size. Blocks begin at node 1, since each sweep leaves out one end of an
// axis; the first ones have node 0, too.
struct NodeBlock {
  VecInt3D low, high;
  NodeBlock(const VecInt3D& block, const VecInt3D& size, const VecInt3D& nodes)
      : low(block * size), high(Min(low + size + VecInt3D(1, 1, 1), nodes)) {
    for (int axis = 0; axis < 3; ++axis) low[axis] += low[axis] > 0 ? 1 : 0;
  }
  static VecInt3D Count(const VecInt3D& size, const VecInt3D& nodes) {
    return Max(nodes - VecInt3D(2, 2, 2), VecInt3D()) / size + VecInt3D(1, 1, 1);
  }
};

class VoxeliserHistory {
 public:
  // Before a run. False where it is to be made whole and isn't kept: another lattice, band or other triangles than
  // those of the run before, more than half of which moved, or too little memory.
  bool Begin(const iTriMesh& mesh, const ScalarGrid& levelSet, int exactBand);
  // The share of the sweeps' blocks that the run took from the one before it.
  double KeptShare() const { return double(kept_) / double((kStages - 1) * now_.size()); }
  // After a run that was completed.
  void End(const iTriMesh& mesh, const VoxeliserScratch& scratch);
  void Forget();

  // --- the exact band, by slabs of z layers
  // Whether this run has something to take from the one before it.
  bool IsFilled() const { return !before_.empty(); }
  bool HasMoved(std::int64_t triangle) const { return moved_[static_cast<std::size_t>(triangle)] != 0; }
  // Corner 0 to 2 of a triangle in the run before.
  const Vec3D& CornerBefore(std::int64_t triangle, int corner) const {
    return points_[static_cast<std::size_t>(triangles_[static_cast<std::size_t>(triangle)][corner])];
  }
  // Nodes [begin, begin + count).
  void SaveBand(const VoxeliserScratch& scratch, GridView<const double> distances, std::int64_t begin,
                std::int64_t count);
  void LoadBand(VoxeliserScratch& scratch, GridView<double> distances, std::int64_t begin, std::int64_t count) const;

  // --- the guess (stage 0) and the sweeps (1 to 8), by blocks of kBlock nodes
  static constexpr VecInt3D kBlock{32, 16, 16};
  static constexpr int kStages = 9;
  struct Nodes {
    CountedVector<double> distance;
    CountedVector<std::int32_t> closest;
  };
  using Stages = std::array<std::shared_ptr<const Nodes>, kStages>;  // null: as after the stage before it
  void TakeGuess(const VoxeliserScratch& scratch, GridView<const double> distances, WorkerPool& pool);
  // Whether the block or one that is a step upstream of it, which the sweep has visited, isn't as it was.
  bool NeedsSweep(const VecInt3D& block, const int direction[3]) const;
  void Load(const VecInt3D& block, int stage, GridView<double> distances, std::int32_t* closest);
  // What the stage made of the block.
  void Take(const VecInt3D& block, int stage, GridView<const double> distances, const std::int32_t* closest);

 private:
  std::size_t BlockIndex(const VecInt3D& b) const {
    return static_cast<std::size_t>((std::int64_t(b.z) * blocks_.y + b.y) * blocks_.x + b.x);
  }
  bool Follows(const iTriMesh& mesh, const ScalarGrid& levelSet, int exactBand) const;
  // True when each node has the same distance and triangle, and no triangle moved.
  bool IsAsBefore(const VecInt3D& block, const Nodes& nodes, GridView<const double> distances,
                  const std::int32_t* closest) const;

  GridSpace space_;
  VecInt3D dims_, blocks_;
  int exactBand_ = 0;
  std::vector<Vec3D> points_;
  std::vector<VecInt3D> triangles_;
  std::vector<std::uint8_t> moved_;
  CountedVector<double> bandDistance_;
  CountedVector<std::int32_t> bandClosest_;
  CountedVector<std::uint8_t> bandCrossings_, sweeps_;
  std::vector<Stages> before_, now_;
  std::vector<std::uint8_t> differs_;  // of each block, after the last stage that visited it
  std::atomic<std::int64_t> kept_{0};
  std::atomic<bool> outOfMemory_{false};
};

}  // namespace orlix
