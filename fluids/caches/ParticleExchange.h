#pragma once
// Particles of a cache in files of other programs: position and velocity in metres and metres a second, a running id,
// and the properties that have a name there, in single precision.

#include <filesystem>

#include "exchange/points/PointSet.h"
#include "fluids/caches/ParticleRuns.h"
#include "fluids/particles/GroupList.h"

namespace orlix {

// The particles of all populations in one table. A column exists where the first particle of a population has the
// property and the filter lets it; particles without it have its default.
PointSet ExportParticles(const std::vector<GroupEntry>& populations, const PropertyFilter& filter);

// Takes away columns of radius, mass, density, age left, normal and old position that are 0 in all rows, as none is
// meant: formats of fixed fields hold zeros for what they don't have.
void DropUnheld(PointSet& set);

// Rows [begin, begin + rows) of a table with positions. Columns with unknown names, or of another type than theirs, are
// passed over.
ParticleRunData ImportParticles(const PointSet& set, std::uint64_t begin, std::size_t rows, std::uint16_t flags);

}  // namespace orlix
