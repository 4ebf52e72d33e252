#pragma once
// All types, and what makes nodes of them. One for the whole program.

#include "exchange/OutputType.h"
#include "fluids/api/PluginLibraries.h"
#include "fluids/scene/NodeFactory.h"
#include "main/RegisterTypes.h"

namespace orlix {

struct Engine {
  TypeRegistry types;
  NodeFactory factory{types};
  PluginLibraries plugins;

  Engine() {
    RegisterTypes(factory);
    types.Add(OutputSettings::Type());
  }
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;
};

}  // namespace orlix
