#pragma once
// What a scene shows to other programs: its channels, its velocity and its level sets, under the names that those
// programs look for.

#include <set>
#include <vector>

#include "exchange/GridNames.h"
#include "exchange/vdb/VdbFile.h"
#include "fluids/scene/OrlixScene.h"

namespace orlix {

// The enabled channels that have a grid, the solvers' velocities and the volumes' level sets. Smoke is "density",
// temperature, fuel and fire are "temperature", "fuel" and "flame"; all others keep their object's name, a name that
// comes twice gets a number. The grids stay the scene's.
// chosen: creation numbers of the objects whose grids are taken; empty for all.
std::vector<VdbField> CollectFields(OrlixScene& scene, VdbNames names, const std::set<std::uint64_t>& chosen = {});

}  // namespace orlix
