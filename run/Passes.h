#pragma once
// What a run makes, and from what: which of it needs no simulation since caches play all that it is made from. Such
// frames stand alone: each can be made without those before it.

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "host/objects/BaseDocument.h"

namespace orlix {

// One result of a run. Objects by their creation numbers.
struct Pass {
  std::string name;                     // "out: mesh of Dam/Surface"
  bool picture = false;                 // made from materials, lights and cameras, too
  std::set<std::uint64_t> madeFrom{};   // what works for it, played objects among it
  std::set<std::uint64_t> caches{};     // that play for it
  std::set<std::uint64_t> simulated{};  // what it needs that no cache plays in every frame
  bool StandsAlone() const { return simulated.empty(); }
};

enum class PassResults { Run, Pictures, Slices };  // all of a run; pictures or slices of every frame alone
std::vector<Pass> FindPasses(const BaseDocument& document, PassResults results);

// Nodes that make surfaces from which nothing but results is made: in frames without any they may rest. By their
// objects' creation numbers.
std::set<std::uint64_t> FindSurfaceMakers(const BaseDocument& document);

// The mesher, or the reconstruction that it takes, whichever render_only leaves to renderings; null when a run makes
// the mesh or a cache plays it.
const BaseObject* LeftToRenderings(const BaseObject& mesher);

// Whether caches play all that is asked for, so that nothing has to be simulated.
bool AllStandAlone(const std::vector<Pass>& passes);
// What works in a run of passes.
std::set<std::uint64_t> NodesOf(const std::vector<Pass>& passes);

}  // namespace orlix
