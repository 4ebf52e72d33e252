#include "exchange/GridNames.h"

#include <cctype>

#include "fluids/grids/GridTypes.h"

namespace orlix {

const char* VelocityName(VdbNames names) { return names == VdbNames::Houdini ? "vel" : "velocity"; }

const char* NameOfGridType(std::uint32_t gridType) {
  switch (gridType) {
    case kGridTemperature:
      return "temperature";
    case kGridFuel:
      return "fuel";
    case kGridFire:
      return "flame";
    default:
      return nullptr;
  }
}

std::string PlainName(const std::string& name) {
  std::string plain;
  for (const char c : name) plain += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
  return plain.empty() ? "grid" : plain;
}

std::string NameSet::Take(const std::string& wanted) {
  std::string name = wanted;
  for (int n = 2; !taken_.insert(name).second; ++n) name = wanted + "_" + std::to_string(n);
  return name;
}

}  // namespace orlix
