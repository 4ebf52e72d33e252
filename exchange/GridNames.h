#pragma once
// What grids are called in files for other programs.

#include <cstdint>
#include <set>
#include <string>

namespace orlix {

// How the velocity is called: "velocity", or "vel".
enum class VdbNames { Blender = 0, Houdini = 1 };

const char* VelocityName(VdbNames names);
// "temperature", "fuel" or "flame"; null for a grid whose type says nothing about its content.
const char* NameOfGridType(std::uint32_t gridType);
// What other programs can use as a name: letters, digits and underscores.
std::string PlainName(const std::string& name);

// Gives each name once; one that comes again gets a number.
class NameSet {
 public:
  std::string Take(const std::string& wanted);

 private:
  std::set<std::string> taken_;
};

}  // namespace orlix
