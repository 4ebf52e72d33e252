#pragma once
// The populations that a node's include list of groups names: each entry is a group and the kind that its flags choose.

#include <vector>

#include "fluids/particles/ParticleGroup.h"

namespace orlix {

struct GroupEntry {
  ParticleGroup* group = nullptr;
  std::int32_t kind = PK_Passive;
};

// Bit 1 chooses liquid, else bit 0 passive, else bit 2 vorticity, and diffuse without any.
constexpr std::int32_t KindOfFlags(std::uint32_t flags) {
  return (flags & 2) != 0 ? PK_Liquid : (flags & 1) != 0 ? PK_Passive : (flags & 4) != 0 ? PK_Vorticity : PK_Diffuse;
}

// The enabled groups of the list under parameter id, in its order. Objects that are no groups are passed over. An empty
// list gives all groups of the scene, each with the kinds of kindsWhenEmpty (a bit a kind).
std::vector<GroupEntry> RetrieveGroups(const OrlixScene& scene, const C4D_InterfaceHandler& handler, std::int32_t id,
                                       std::uint32_t kindsWhenEmpty);

}  // namespace orlix
