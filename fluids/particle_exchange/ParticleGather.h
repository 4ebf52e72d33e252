#pragma once
// Weighted sums of particles at the cells of a lattice, row by row: what a cell gathers of the particles in a radius.
//
//   sum = sum over particles nearer than radius of  value x weight x falloff(distance / radius)
//
// Each row goes through the lines of particles about it, and each particle through the row's cells in its reach; the
// order of a cell's sum is that of lines and indices, whatever the number of workers.

#include <algorithm>
#include <cmath>
#include <vector>

#include "fluids/particles/ParticleLines.h"
#include "host/description/CurveData.h"

namespace orlix {

// What of each particle in the lines counts; in their order.
struct GatherInput {
  const ParticleLines* lines = nullptr;
  const double* weights = nullptr;
  const Vec3D* values = nullptr;        // a scalar stands in x
  const SplineData* falloff = nullptr;  // over the distance in radii; null is 1
  double radius = 0;                    // m
  GridSpace lattice;
  Vec3D offset;  // of the samples in their cells, in cells

  // Rows off that the radius reaches.
  std::int32_t Reach() const {
    const double nearest = std::min({offset.y, offset.z, 1 - offset.y, 1 - offset.z});
    return std::max(0, static_cast<std::int32_t>(std::ceil(radius / lattice.simPerVoxel.x - nearest)));
  }
};

// Of a row of cells.
struct GatherRow {
  std::vector<Vec3D> sums;
  std::vector<std::int32_t> counts;
  bool any = false;
};

// cellWeight(i): what a cell's sums start from, asked only where a particle is near. pairWeight(entry, weight): what is
// left of it for a particle. 0 leaves the cell, or the particle at this cell, out.
template <class CellWeight, class PairWeight>
void GatherParticles(const GatherInput& input, std::int32_t j, std::int32_t k, GatherRow& row, CellWeight&& cellWeight,
                     PairWeight&& pairWeight) {
  const std::int32_t cells = input.lattice.dims.x;
  row.sums.assign(static_cast<std::size_t>(cells), {});
  row.counts.assign(static_cast<std::size_t>(cells), 0);
  row.any = false;
  const double squared = input.radius * input.radius, inverse = 1 / input.radius, h = input.lattice.simPerVoxel.x;
  const Vec3D first = input.lattice.SimOfVoxel(Vec3D(0, j, k) + input.offset);
  input.lines->ForEachNear(j, k, input.Reach(), [&](std::span<const ParticleLines::Entry> entries) {
    for (const ParticleLines::Entry& entry : entries) {
      const Vec3D off = entry.position - first;
      const double aside = off.y * off.y + off.z * off.z, left = squared - aside;
      if (!(left > 0)) continue;
      const double span = std::sqrt(left), low = std::max(0.0, std::ceil((off.x - span) / h));
      const double high = std::min(cells - 1.0, std::floor((off.x + span) / h));
      if (!(low <= high)) continue;
      const std::size_t place = input.lines->PlaceOf(entry);
      for (auto i = static_cast<std::int32_t>(low); i <= static_cast<std::int32_t>(high); ++i) {
        const double dx = off.x - i * h, distanceSquared = dx * dx + aside;
        if (!(distanceSquared < squared)) continue;
        double weight = cellWeight(i);
        if (weight != 0) weight = pairWeight(entry, weight);
        if (weight == 0) continue;
        weight *= input.weights[place];
        if (input.falloff) weight *= input.falloff->ValueAt(std::sqrt(distanceSquared) * inverse);
        row.sums[static_cast<std::size_t>(i)] += input.values[place] * weight;
        ++row.counts[static_cast<std::size_t>(i)];
        row.any = true;
      }
    }
  });
}

}  // namespace orlix
