#pragma once
// The kinds of particles and the bits of a particle's state.

#include <cstdint>

namespace orlix {

enum ParticleKind : std::int32_t { PK_Passive = 0, PK_Vorticity = 1, PK_Liquid = 2, PK_Diffuse = 3 };
inline constexpr int kParticleKinds = 4;
// "Passive", "Vorticity", "Liquid", "Diffuse"
inline constexpr const char* kParticleKindLabels[kParticleKinds] = {"Passive", "Vorticity", "Liquid", "Diffuse"};

namespace ParticleFlag {
enum Bit : std::uint16_t {
  Alive = 0x001,     // clear: leaves at the end of the sub-step
  Sorted = 0x002,    // stands in a cell of the liquid solver's sort
  Collided = 0x004,  // in the current step
  Inserted = 0x008,  // by a sheet
  Excluded = 0x010,  // shut out of the current node's work by a constraint
  Spawned = 0x020,   // has had its children
  Passive = 0x040,
  Liquid = 0x080,
  Vorticity = 0x100,
  Diffuse = 0x200,
  Ballistic = 0x400,
  Drag = 0x800
};
}  // namespace ParticleFlag

// What an emitter of a kind sets on its template.
constexpr std::uint16_t FlagOfKind(std::int32_t kind) {
  switch (kind) {
    case PK_Passive:
      return ParticleFlag::Passive;
    case PK_Vorticity:
      return ParticleFlag::Vorticity;
    case PK_Liquid:
      return ParticleFlag::Liquid;
    default:
      return ParticleFlag::Diffuse;
  }
}

}  // namespace orlix
