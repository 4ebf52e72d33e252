#pragma once
// The three classes of diffuse particles that a liquid throws off, told by flags: foam rides on the surface, spray
// flies, bubbles are dragged along below. ParticleMotion moves each in its way.

#include "fluids/particles/ParticleFlags.h"

namespace orlix {

enum class DiffuseClass : std::uint8_t { Bubble = 0, Foam = 1, Spray = 2 };
inline constexpr int kDiffuseClasses = 3;
// "bubbles", "foam", "spray"
inline constexpr const char* kDiffuseClassNames[kDiffuseClasses] = {"bubbles", "foam", "spray"};

inline constexpr std::uint16_t kDiffuseClassBits = ParticleFlag::Ballistic | ParticleFlag::Drag;

constexpr DiffuseClass ClassOfFlags(std::uint16_t flags) {
  return (flags & ParticleFlag::Ballistic) != 0 ? DiffuseClass::Spray
         : (flags & ParticleFlag::Drag) != 0    ? DiffuseClass::Bubble
                                                : DiffuseClass::Foam;
}

// At birth. Excluded lets the pass that looks after classes leave a new one alone once.
constexpr std::uint16_t FlagsOfClass(DiffuseClass kind) {
  constexpr std::uint16_t kNew = ParticleFlag::Alive | ParticleFlag::Excluded | ParticleFlag::Diffuse;
  return static_cast<std::uint16_t>(kNew | (kind == DiffuseClass::Spray    ? ParticleFlag::Ballistic
                                            : kind == DiffuseClass::Bubble ? ParticleFlag::Drag
                                                                           : 0));
}

}  // namespace orlix
