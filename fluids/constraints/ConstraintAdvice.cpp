#include "fluids/constraints/ConstraintAdvice.h"

#include <fmt/format.h>

namespace orlix {

namespace {

// Nodes on grids that ask about particles, too.
constexpr std::int32_t kParticleToGridSubType = 8, kGridTurbulenceSubType = 32;

bool AsksAboutCells(const iBase& node) {
  const std::int32_t subType = node.GetNodeSubType();
  return node.HasRetrieveType(RETRIEVE_GRID) && !node.HasRetrieveType(RETRIEVE_PARTICLE) &&
         subType != kParticleToGridSubType && subType != kGridTurbulenceSubType;
}

}  // namespace

void AdviseMissingLink(const Constraint& constraint, const void* link, const char* key) {
  if (link) return;
  constraint.Warn(std::string("no-") + key,
                  fmt::format("\"{}\" links to nothing that it can take, so it confines nothing and what lists it acts "
                              "in full; link one, or take it out",
                              key));
}

void AdviseListsOfCells(const Constraint& constraint) {
  const std::uint64_t self = constraint.handler.hostObject()->creationNumber();
  constraint.GetScene().ForEachNode(NODE_CHANNEL, NODE_HELPER, [&](const iBase& node) {
    const BaseObject& object = *node.handler.hostObject();
    const Parameter* row = object.type().Find(kConstraintsId);
    if (!row || row->unread || !node.IsEnabled() || !AsksAboutCells(node)) return;
    const InExcludeData* list = object.GetInExclude(kConstraintsId);
    if (!list || !list->Contains(self)) return;
    constraint.Warn("on-cells:" + node.DisplayName(),
                    fmt::format("it looks at particles, and \"{}\" lists it, which works on cells: they pass it, so it "
                                "confines nothing there; list one that looks at places",
                                node.DisplayName()));
  });
}

}  // namespace orlix
