#pragma once
// Vorticity particles (Selle, Rasmussen, Fedkiw 2005): how the resolved flow stretches their vorticity, and how they
// push the cells about them.
//
//   stretch   w := w + dt (w . grad) u, its length limited
//   push      a cell at distance d of a particle, within the radius, gets  (direction x w) kernel(d)  per unit of
//   strength

#include <algorithm>
#include <cmath>

#include "fluids/helpers/Kernel.h"
#include "fluids/particles/ParticleLines.h"

namespace orlix {

// A staggered velocity with the lattice of its cells.
struct StretchField {
  GridView<const double> component[3];
  GridSpace lattice;

  // At array coordinates of the lattice's corners.
  Vec3D VelocityAt(const Vec3D& voxel) const;
  // (w . grad) u there, by trilinear samples of one-sided differences; these are 0 near the ends of the lattice.
  Vec3D Stretch(const Vec3D& voxel, const Vec3D& w) const;
};

// The stretched vorticity after dt; zero stays zero.
Vec3D Stretched(const StretchField& field, const Vec3D& position, const Vec3D& w, double dt, double least, double most);

// What a particle does to the cells within its limit.
struct SwirlSource {
  Vec3D axis;
  double gain = 1;
  double squaredLimit = 0;  // of the distance, m^2
};

struct SwirlInput {
  const ParticleLines* lines = nullptr;
  const SwirlSource* sources = nullptr;  // of each entry of the lines
  KernelBase kernel;
  double radius = 0;  // m
  double strength = 0;
  GridSpace lattice;

  // Rows off that the radius reaches from the middle of a cell.
  std::int32_t Reach() const {
    return std::max(0, static_cast<std::int32_t>(std::ceil(radius / lattice.simPerVoxel.x - 0.5)));
  }
};

// Cells [begin, end) of a row; the pointers stand at cell 0.
struct SwirlRow {
  std::int32_t begin = 0, end = 0, j = 0, k = 0;
  double* force[3] = {};
};

inline constexpr std::int32_t kMostSwirlCells = 64;  // of a row that a particle reaches

// weight(entry, cell centre): a further factor, 0 to leave the cell alone. Particles go by lines and indices.
template <class Weight>
void AddSwirls(const SwirlInput& input, const SwirlRow& row, Weight&& weight) {
  const double h = input.lattice.simPerVoxel.x, h2 = input.radius * input.radius, h3 = h2 * input.radius;
  const Vec3D first = input.lattice.SimOfVoxel(Vec3D(0.5, row.j + 0.5, row.k + 0.5));
  double distances[kMostSwirlCells], values[kMostSwirlCells];  // squared distances, kernel values
  input.lines->ForEachNear(row.j, row.k, input.Reach(), [&](std::span<const ParticleLines::Entry> entries) {
    for (const ParticleLines::Entry& entry : entries) {
      const SwirlSource& source = input.sources[input.lines->PlaceOf(entry)];
      const Vec3D off = entry.position - first;
      const double aside = off.y * off.y + off.z * off.z, left = source.squaredLimit - aside;
      if (!(left >= 0)) continue;
      const double span = std::sqrt(left), low = std::max<double>(row.begin, std::ceil((off.x - span) / h));
      const double high = std::min<double>(row.end - 1, std::floor((off.x + span) / h));
      if (!(low <= high)) continue;
      const auto begin = static_cast<std::int32_t>(low);
      const std::int32_t count = std::min(static_cast<std::int32_t>(high) - begin + 1, kMostSwirlCells);
      for (std::int32_t n = 0; n < count; ++n) {
        const double dx = off.x - (begin + n) * h;
        distances[n] = dx * dx + aside;
      }
      input.kernel.EvaluateRun(distances, count, h2, h3, values);
      for (std::int32_t n = 0; n < count; ++n) {
        const bool reached = distances[n] > 0 && distances[n] < h2 && distances[n] <= source.squaredLimit;
        if (!reached || !(values[n] > 0)) continue;
        const Vec3D direction(off.x - (begin + n) * h, off.y, off.z);
        const double factor = weight(entry, entry.position - direction);
        if (factor == 0) continue;
        const double amount = values[n] * source.gain * input.strength * factor / std::sqrt(distances[n]);
        const Vec3D push = Cross(direction, source.axis) * amount;
        row.force[0][begin + n] += push.x;
        row.force[1][begin + n] += push.y;
        row.force[2][begin + n] += push.z;
      }
    }
  });
}

}  // namespace orlix
