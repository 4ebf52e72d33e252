#include "fluids/grids/GridTypes.h"

namespace orlix {

const char* GridTypeText(std::uint32_t gridType) {
  static constexpr const char* kTexts[] = {"Velocity U", "Velocity V", "Velocity W", "Smoke",    "Temperature",
                                           "Fuel",       "Fire",       "Color R",    "Color G",  "Color B",
                                           "Texture X",  "Texture Y",  "Texture Z",  "Levelset", "Nodal Levelset",
                                           "Viscosity",  "Density",    "Vorticity",  "Pressure"};
  if (gridType <= kGridPressure) return kTexts[gridType];
  return gridType == kGridBoundary ? "Boundary" : "Custom";
}

}  // namespace orlix
