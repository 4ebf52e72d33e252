#pragma once
// What particles lie near the centres of a row's voxels. One object a worker.
//
//   neighbours.Find(lines, lattice, end, j, k, widest, radiusOf);   // radiusOf(i): of voxel i, 0 for none
//   for (const Vec3D& place : neighbours.Of(i)) ...

#include <algorithm>
#include <cmath>

#include "fluids/particles/ParticleLines.h"

namespace orlix {

class VoxelNeighbours {
 public:
  // Voxels [1, end) of the row; none has a radius above widest.
  template <class RadiusOf>
  void Find(const ParticleLines& lines, const GridSpace& lattice, std::int32_t end, std::int32_t j, std::int32_t k,
            double widest, RadiusOf&& radiusOf) {
    places_.clear(), voxels_.clear();
    lines.ForEachNear(j, k, Reach(lattice, widest), [&](std::span<const ParticleLines::Entry> entries) {
      for (const ParticleLines::Entry& entry : entries) {
        const Range near = NearVoxels(lattice, entry.position, j, k, widest, end);
        for (std::int32_t i = near.begin; i < near.end; ++i) {
          const double radius = radiusOf(i);
          const Vec3D centre = lattice.SimOfVoxel(Vec3D(i + 0.5, j + 0.5, k + 0.5));
          if (LengthSquared(entry.position - centre) < radius * radius) Add(i, entry.position);
        }
      }
    });
    Sort(end);
  }
  std::span<const Vec3D> Of(std::int32_t i) const {
    const auto at = static_cast<std::size_t>(i);
    return {sorted_.data() + starts_[at], sorted_.data() + starts_[at + 1]};
  }
  // Rows off that a radius reaches from a row's middle.
  static std::int32_t Reach(const GridSpace& lattice, double radius) {
    return std::max(0, static_cast<std::int32_t>(std::ceil(radius / lattice.cellSize - 0.5)));
  }

 private:
  struct Range {
    std::int32_t begin = 0, end = 0;
  };
  static Range NearVoxels(const GridSpace& lattice, const Vec3D& position, std::int32_t j, std::int32_t k,
                          double radius, std::int32_t end) {
    const Vec3D at = lattice.VoxelOfSim(position);
    const double reach = radius / lattice.cellSize, y = at.y - j - 0.5, z = at.z - k - 0.5;
    const double left = reach * reach - y * y - z * z;
    if (!(left > 0)) return {};
    const double span = std::sqrt(left) + 1e-9;
    const double low = std::max(1.0, std::ceil(at.x - span - 0.5));
    const double high = std::min<double>(end, std::floor(at.x + span - 0.5) + 1);
    return low < high ? Range{static_cast<std::int32_t>(low), static_cast<std::int32_t>(high)} : Range{};
  }
  void Add(std::int32_t voxel, const Vec3D& place) {
    voxels_.push_back(voxel);
    places_.push_back(place);
  }
  void Sort(std::int32_t end) {
    starts_.assign(static_cast<std::size_t>(end) + 2, 0);
    for (const std::int32_t voxel : voxels_) ++starts_[static_cast<std::size_t>(voxel) + 1];
    for (std::size_t i = 1; i < starts_.size(); ++i) starts_[i] += starts_[i - 1];
    sorted_.resize(places_.size());
    next_.assign(starts_.begin(), starts_.end());
    for (std::size_t n = 0; n < voxels_.size(); ++n) {
      sorted_[static_cast<std::size_t>(next_[static_cast<std::size_t>(voxels_[n])]++)] = places_[n];
    }
  }

  std::vector<Vec3D> places_, sorted_;
  std::vector<std::int32_t> voxels_, starts_, next_;
};

}  // namespace orlix
