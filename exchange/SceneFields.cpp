#include "exchange/SceneFields.h"

#include <cctype>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"
#include "fluids/dynamics/FluidSolver.h"
#include "fluids/level_sets/iLevelSet.h"

namespace orlix {

namespace {

std::string NameOfScalar(const ChannelBase_Scalar& channel) {
  if (const char* name = NameOfGridType(channel.channelType[0])) return name;
  const std::string name = PlainName(channel.handler.hostObject()->name);
  std::string lower = name;
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower == "smoke" || lower == "density" ? "density" : name;
}

}  // namespace

std::vector<VdbField> CollectFields(OrlixScene& scene, VdbNames preset, const std::set<std::uint64_t>& chosen) {
  std::vector<VdbField> fields;
  NameSet names;
  const auto taken = [&](const iBase& node) {
    return node.IsEnabled() && (chosen.empty() || chosen.contains(node.handler.hostObject()->creationNumber()));
  };
  scene.ForEachNode(NODE_CHANNEL, NODE_CHANNEL, [&](iBase& node) {
    if (!taken(node)) return;
    if (auto* scalar = dynamic_cast<ChannelBase_Scalar*>(&node); scalar && scalar->grid) {
      fields.push_back({names.Take(NameOfScalar(*scalar)),
                        VdbClass::Fog,
                        {scalar->grid.get()},
                        scalar->valueMin,
                        node.DisplayName()});
    }
    if (auto* vector = dynamic_cast<ChannelBase_Vector*>(&node); vector && vector->grids[2]) {
      static constexpr const char* kSuffix[] = {"_x", "_y", "_z"};
      for (int c = 0; c < 3; ++c) {
        fields.push_back({names.Take(PlainName(node.handler.hostObject()->name) + kSuffix[c]),
                          VdbClass::Fog,
                          {vector->grids[c].get()},
                          vector->valueMin[c],
                          node.DisplayName()});
      }
    }
  });
  scene.ForEachNode(NODE_SOLVER, NODE_SOLVER, [&](iBase& node) {
    auto* solver = dynamic_cast<FluidSolver*>(&node);
    if (!solver || !taken(node) || !solver->velocity.grids[2]) return;
    const auto& grids = solver->velocity.grids;
    fields.push_back({names.Take(VelocityName(preset)),
                      VdbClass::Velocity,
                      {grids[0].get(), grids[1].get(), grids[2].get()},
                      0,
                      node.DisplayName()});
  });
  scene.ForEachNode(NODE_VOLUME, NODE_VOLUME, [&](iBase& node) {
    auto* surface = dynamic_cast<iLevelSet*>(&node);
    if (!surface || !taken(node) || !surface->LevelSet()) return;
    fields.push_back({names.Take("surface_" + PlainName(node.handler.hostObject()->name)),
                      VdbClass::LevelSet,
                      {surface->LevelSet()},
                      0,
                      node.DisplayName()});
  });
  return fields;
}

}  // namespace orlix
