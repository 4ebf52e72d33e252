#pragma once
// What an emitter's particles will take, told before anything is simulated.

#include "fluids/particle_emitters/ParticleEmissionHandler.h"

namespace orlix {

// Of the meshes of a linked volume, as they are now: m^3, and m^2 of surface. 0 without one.
struct MeshSize {
  double volume = 0, area = 0;
};
MeshSize SizeOfVolume(const iObject& node, int volumeId);

// The memory of this many particles, beyond what their kind of the group holds already.
MemoryNeed MemoryOfParticles(const iObject& node, double count, int propertiesId);

// The settings of an emitter, while no links are resolved.
const ParticleEmissionSettings* SettingsOf(const iObject& node, int settingsId);

}  // namespace orlix
