#pragma once
// The libraries of plug-ins that were loaded, and the types that they brought. A library stays loaded to the program's
// end; a scene can't load one.

#include <deque>
#include <filesystem>
#include <memory>
#include <vector>

#include "fluids/api/PluginType.h"
#include "fluids/scene/NodeFactory.h"
#include "globals/Result.h"

namespace orlix {

class PluginLibraries {
 public:
  // A library, or all of a folder ("*.so", in the order of their names). Before a scene is read. After an error the
  // types that came before it are known; InputFile for a library that isn't one of ours or not of this version.
  Status Load(const std::filesystem::path& path, NodeFactory& factory);

 private:
  Status LoadLibrary(const std::filesystem::path& file, TypeRegistry& types);

  std::vector<void*> handles_;
  std::deque<std::string> files_;  // types view their names
  std::vector<std::unique_ptr<PluginType>> types_;
};

// What makes the nodes of plug-ins' types.
void RegisterPluginBases(NodeFactory& factory);

}  // namespace orlix
