#pragma once
// The kinds of particles as scene files write them.

#include "fluids/particles/ParticleFlags.h"
#include "host/description/Parameter.h"

namespace orlix {

inline constexpr Choice kParticleKindChoices[] = {
    {PK_Passive, "passive", "Particles that are only carried"},
    {PK_Vorticity, "vorticity", "Particles that swirl a gas"},
    {PK_Liquid, "liquid", "Particles of a liquid"},
    {PK_Diffuse, "diffuse", "Foam, spray, dust, embers"},
};

// The same as flags of an entry in a list of groups. An entry without a word is passive.
inline constexpr Choice kGroupKindWords[] = {
    {1, "passive", "Its passive particles"},
    {2, "liquid", "Its liquid"},
    {4, "vorticity", "Its vorticity"},
    {8, "diffuse", "Its diffuse particles"},
};
constexpr Parameter GroupListParameter(int id, const char* key, const char* text) {
  return KindListParameter(id, key, kLinkParticles, kGroupKindWords, text);
}

// A container may hold any number.
constexpr std::int32_t KindOrLiquid(std::int32_t kind) { return kind >= 0 && kind < kParticleKinds ? kind : PK_Liquid; }

}  // namespace orlix
