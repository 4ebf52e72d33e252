#pragma once
// A population as a table for files: place, velocity, id and properties of each living particle.
//
//   position velocity    host units and host units a second, in the space of the other program
//                        (of a particle that rides a flow and keeps no velocity: what it moved in the last sub-step)
//   id                   stays with a particle
//   radius, temperature, mass, color, normal ...   properties by name; one of one's own has its object's name
//   has_NAME             1 or 0, only where some particles lack the property, whose value is 0 then
//
// Lengths are in host units, everything else in the units of the simulation. What operators keep for themselves isn't
// written.

#include <optional>
#include <string>

#include "exchange/points/PointSet.h"
#include "exchange/vdb/ExportSpace.h"
#include "fluids/particles/DiffuseClass.h"
#include "fluids/particles/ParticleGroup.h"

namespace orlix {

// How the numbers of a property change on the way to the other program.
enum class PropertyMeaning { Plain, Length, Direction, Place };
PropertyMeaning MeaningOf(std::int32_t id);
// A property's column; of one's own the name of its object, owner. Empty for what operators keep for themselves.
std::string ColumnNameOf(std::int32_t id, const std::string& owner);

struct ParticleFileOptions {
  std::string group;  // as messages name it
  ExportSpace space{};
  double metresPerUnit = 0;            // of the other program, for formats that say so
  std::optional<DiffuseClass> only{};  // of diffuse particles one class
};

// Diverged, by group and particle, when a value is no finite number of single precision.
Result<PointSet> PointsOf(const ParticleGroup& group, std::int32_t kind, const ParticleFileOptions& options);

}  // namespace orlix
