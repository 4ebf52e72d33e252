#include "fluids/level_sets/VoxeliserHistory.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

constexpr std::int64_t kMostNodes = 1 << 22;  // 200 MB

const VoxeliserHistory::Nodes* Latest(const VoxeliserHistory::Stages& stages, int stage) {
  for (; stage >= 0; --stage) {
    if (stages[static_cast<std::size_t>(stage)]) return stages[static_cast<std::size_t>(stage)].get();
  }
  return nullptr;
}

// Calls f(index, place, count) for each row of a block: where it begins in the grid, and in the block's own nodes.
template <class F>
void ForRows(const VecInt3D& block, const VecInt3D& dims, F&& f) {
  const auto [low, high] = NodeBlock(block, VoxeliserHistory::kBlock, dims);
  std::size_t place = 0;
  const auto count = static_cast<std::size_t>(high.x - low.x);
  for (int k = low.z; k < high.z; ++k) {
    for (int j = low.y; j < high.y; ++j, place += count) {
      f(static_cast<std::size_t>((std::int64_t(k) * dims.y + j) * dims.x + low.x), place, count);
    }
  }
}

template <class T>
bool SameBytes(const T* a, const T* b, std::size_t count) {
  return std::memcmp(a, b, count * sizeof(T)) == 0;
}

}  // namespace

void VoxeliserHistory::Forget() {
  before_.clear(), now_.clear();
  bandDistance_ = {}, bandClosest_ = {}, bandCrossings_ = {}, sweeps_ = {};
  points_.clear(), triangles_.clear();
}

bool VoxeliserHistory::Follows(const iTriMesh& mesh, const ScalarGrid& levelSet, int exactBand) const {
  return exactBand == exactBand_ && levelSet.dims == dims_ && levelSet.space.Equals(space_) &&
         mesh.Points().size() == points_.size() && mesh.Triangles() == triangles_;
}

bool VoxeliserHistory::Begin(const iTriMesh& mesh, const ScalarGrid& levelSet, int exactBand) {
  const auto startAnew = [&] {
    Forget();
    dims_ = levelSet.dims, space_ = levelSet.space, exactBand_ = exactBand;
    points_ = mesh.Points(), triangles_ = mesh.Triangles();
    return false;
  };
  if (!Follows(mesh, levelSet, exactBand) || levelSet.count > kMostNodes) return startAnew();
  moved_.assign(triangles_.size(), 0);
  std::size_t moved = 0;
  for (std::size_t t = 0; t < triangles_.size(); ++t) {
    for (int corner = 0; corner < 3; ++corner) {
      const auto point = static_cast<std::size_t>(triangles_[t][corner]);
      moved_[t] |= std::uint8_t(mesh.Points()[point] != points_[point]);
      // Triangles that are left out would shift the numbers of the others.
      if (!IsFinite(mesh.Points()[point]) || !IsFinite(points_[point])) return startAnew();
    }
    moved += moved_[t];
  }
  if (2 * moved > triangles_.size()) return startAnew();
  try {
    const auto count = static_cast<std::size_t>(levelSet.count);
    bandDistance_.resize(count), bandClosest_.resize(count), bandCrossings_.resize(count);
  } catch (const std::bad_alloc&) {
    return startAnew();
  }
  blocks_ = NodeBlock::Count(kBlock, dims_);
  const auto blocks = static_cast<std::size_t>(CellCount(blocks_));
  now_.assign(blocks, {});
  differs_.assign(blocks, 1);
  outOfMemory_ = false, kept_ = 0;
  return true;
}

void VoxeliserHistory::End(const iTriMesh& mesh, const VoxeliserScratch& scratch) {
  if (outOfMemory_) return Forget();
  before_ = std::move(now_);
  sweeps_.assign(scratch.sweeps.data, scratch.sweeps.data + scratch.sweeps.count);
  points_ = mesh.Points();
}

void VoxeliserHistory::SaveBand(const VoxeliserScratch& scratch, GridView<const double> distances, std::int64_t begin,
                                std::int64_t count) {
  std::copy_n(distances.data + begin, count, bandDistance_.data() + begin);
  std::copy_n(scratch.closest.data + begin, count, bandClosest_.data() + begin);
  std::copy_n(scratch.crossings.data + begin, count, bandCrossings_.data() + begin);
}

void VoxeliserHistory::LoadBand(VoxeliserScratch& scratch, GridView<double> distances, std::int64_t begin,
                                std::int64_t count) const {
  std::copy_n(bandDistance_.data() + begin, count, distances.data + begin);
  std::copy_n(bandClosest_.data() + begin, count, scratch.closest.data + begin);
  std::copy_n(bandCrossings_.data() + begin, count, scratch.crossings.data + begin);
}

void VoxeliserHistory::TakeGuess(const VoxeliserScratch& scratch, GridView<const double> distances, WorkerPool& pool) {
  ParallelRange(pool, 0, blocks_.z, [&](int from, int to, int) {
    for (int z = from; z < to; ++z) {
      for (int y = 0; y < blocks_.y; ++y) {
        for (int x = 0; x < blocks_.x; ++x) {
          Take({x, y, z}, 0, distances, scratch.closest.data);
          if (before_.empty()) continue;
          // Other sweeps than before visit it.
          const NodeBlock nodes({x, y, z}, kBlock, dims_);
          const VecInt3D low = nodes.low / kGuessStride;
          const VecInt3D high = (nodes.high - VecInt3D(1, 1, 1)) / kGuessStride + VecInt3D(1, 1, 1);
          for (int k = low.z; k < high.z; ++k) {
            for (int j = low.y; j < high.y; ++j) {
              const auto at = static_cast<std::size_t>(scratch.sweeps.Index(low.x, j, k));
              if (SameBytes(scratch.sweeps.data + at, sweeps_.data() + at, static_cast<std::size_t>(high.x - low.x))) {
                continue;
              }
              differs_[BlockIndex({x, y, z})] = 1;
            }
          }
        }
      }
    }
  });
}

bool VoxeliserHistory::NeedsSweep(const VecInt3D& block, const int direction[3]) const {
  for (int corner = 0; corner < 8; ++corner) {
    const VecInt3D b =
        block - VecInt3D((corner & 1) * direction[0], (corner >> 1 & 1) * direction[1], (corner >> 2) * direction[2]);
    const bool exists = std::min({b.x, b.y, b.z}) >= 0 && b.x < blocks_.x && b.y < blocks_.y && b.z < blocks_.z;
    if (exists && differs_[BlockIndex(b)]) return true;
  }
  return false;
}

void VoxeliserHistory::Load(const VecInt3D& block, int stage, GridView<double> distances, std::int32_t* closest) {
  ++kept_;
  const std::shared_ptr<const Nodes>& nodes = before_[BlockIndex(block)][static_cast<std::size_t>(stage)];
  if (!nodes) return;
  ForRows(block, dims_, [&](std::size_t index, std::size_t place, std::size_t count) {
    std::copy_n(nodes->distance.data() + place, count, distances.data + index);
    std::copy_n(nodes->closest.data() + place, count, closest + index);
  });
  now_[BlockIndex(block)][static_cast<std::size_t>(stage)] = nodes;
}

bool VoxeliserHistory::IsAsBefore(const VecInt3D& block, const Nodes& nodes, GridView<const double> distances,
                                  const std::int32_t* closest) const {
  bool same = true;
  ForRows(block, dims_, [&](std::size_t index, std::size_t place, std::size_t count) {
    same = same && SameBytes(closest + index, nodes.closest.data() + place, count) &&
           SameBytes(distances.data + index, nodes.distance.data() + place, count);
    for (std::size_t i = 0; same && i < count; ++i) {
      const std::int32_t triangle = closest[index + i];
      same = triangle < 0 || !HasMoved(triangle & kTriangleMask);
    }
  });
  return same;
}

void VoxeliserHistory::Take(const VecInt3D& block, int stage, GridView<const double> distances,
                            const std::int32_t* closest) {
  const std::size_t number = BlockIndex(block);
  const Nodes* before = before_.empty() ? nullptr : Latest(before_[number], stage);
  differs_[number] = !before || !IsAsBefore(block, *before, distances, closest);
  const Nodes* last = Latest(now_[number], stage);
  bool changed = !last;
  std::size_t nodes = 0;
  // A new distance has a new tag.
  ForRows(block, dims_, [&](std::size_t index, std::size_t place, std::size_t count) {
    changed = changed || !SameBytes(closest + index, last->closest.data() + place, count);
    nodes += count;
  });
  if (!changed || outOfMemory_) return;
  try {
    auto fresh = std::make_shared<Nodes>();
    fresh->distance.reserve(nodes), fresh->closest.reserve(nodes);
    ForRows(block, dims_, [&](std::size_t index, std::size_t, std::size_t count) {
      fresh->distance.insert(fresh->distance.end(), distances.data + index, distances.data + index + count);
      fresh->closest.insert(fresh->closest.end(), closest + index, closest + index + count);
    });
    now_[number][static_cast<std::size_t>(stage)] = std::move(fresh);
  } catch (const std::bad_alloc&) {
    outOfMemory_ = true;
  }
}

}  // namespace orlix
