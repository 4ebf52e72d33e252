#pragma once
// What a grid holds, and so where its samples stand in a cell. The velocity components stand on the faces of a
// marker-and-cell lattice (Harlow and Welch 1965), a nodal level set on its corners, all else at cell centres.

#include <cstdint>

#include "globals/Vec.h"

namespace orlix {

enum GridType : std::uint32_t {
  kGridVelocityU = 0,
  kGridVelocityV = 1,
  kGridVelocityW = 2,
  kGridSmoke = 3,
  kGridTemperature = 4,
  kGridFuel = 5,
  kGridFire = 6,
  kGridColorR = 7,
  kGridColorG = 8,
  kGridColorB = 9,
  kGridTextureX = 10,
  kGridTextureY = 11,
  kGridTextureZ = 12,
  kGridLevelset = 13,
  kGridNodalLevelset = 14,
  kGridViscosity = 15,
  kGridDensity = 16,
  kGridVorticity = 17,
  kGridPressure = 18,
  kGridScratch = 30,
  kGridBoundary = 50,
  kGridCustom = 60
};

// "Smoke", "Velocity U", ...; "Custom" for a code without a text.
const char* GridTypeText(std::uint32_t gridType);

// Array cells beyond the lattice's, per axis: (1, 0, 0) for U, ..., (1, 1, 1) for a nodal level set.
constexpr VecInt3D ExtraCells(std::uint32_t gridType) {
  switch (gridType) {
    case kGridVelocityU:
      return {1, 0, 0};
    case kGridVelocityV:
      return {0, 1, 0};
    case kGridVelocityW:
      return {0, 0, 1};
    case kGridNodalLevelset:
      return {1, 1, 1};
    default:
      return {0, 0, 0};
  }
}

// Where the sample stands inside a cell, in cells.
constexpr Vec3D CellSampleOffset(std::uint32_t gridType) {
  switch (gridType) {
    case kGridVelocityU:
      return {0, 0.5, 0.5};
    case kGridVelocityV:
      return {0.5, 0, 0.5};
    case kGridVelocityW:
      return {0.5, 0.5, 0};
    case kGridNodalLevelset:
      return {0, 0, 0};
    default:
      return {0.5, 0.5, 0.5};
  }
}

}  // namespace orlix
