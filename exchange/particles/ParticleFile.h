#pragma once
// A population as a PLY file of points: id, place, velocity and properties of each living particle.
//
//   x y z vx vy vz       host units and host units a second, in the space of the other program
//                        (of a particle that rides a flow and keeps no velocity: what it moved in the last sub-step)
//   id                   stays with a particle
//   radius, temperature, mass, ...   properties by name; of vectors name_x, name_y, name_z, but nx ny nz for a normal
//                        and red green blue for a colour. A property of one's own has its object's name
//   has_NAME             1 or 0, only where some particles lack the property, whose value is 0 then
//
// Lengths are in host units, everything else in the units of the simulation. What operators keep for themselves isn't
// written.

#include <filesystem>
#include <string>

#include "exchange/vdb/ExportSpace.h"
#include "fluids/particles/ParticleGroup.h"

namespace orlix {

struct ParticleFileOptions {
  std::string group;  // as messages name it
  ExportSpace space{};
};

// To a temporary name first, so that the path holds the old file, the whole new one or nothing. Diverged, by group and
// particle, when a value is no finite number of single precision.
Status WriteParticleFile(const std::filesystem::path& path, const ParticleGroup& group, std::int32_t kind,
                         const ParticleFileOptions& options);

}  // namespace orlix
