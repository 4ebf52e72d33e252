#pragma once
// The properties that a particle can carry, by number. The number fixes the type of the value.
//
//   0 to 24    a real
//   25 to 49   a vector; 37 and 40, velocity and position, every particle has
//   50 to 74   a bool
//   75 on      the user's own: of each type, told apart by the node that made them

#include <cstdint>
#include <span>
#include <string>

namespace orlix {

enum class PropertyType : std::uint8_t { Real, Vector, State };

// Names as artists see them: PP::Radius and so on. Those below the line are scratch of operators.
namespace PP {
enum Id : std::int32_t {
  Radius = 0,  // m
  Birth = 1,
  Age = 2,  // frames left to live
  Density = 3,
  Viscosity = 4,
  Pressure = 5,
  Temperature = 6,
  Fire = 7,
  Fuel = 8,
  Mass = 9,
  Anisotropy = 12,
  Curvature = 13,
  Color = 25,
  Normal = 34,
  OldPosition = 36,
  Velocity = 37,
  Vorticity = 38,
  ExternalForce = 39,
  Position = 40,
  FramePosition = 41,  // at the start of the frame
  UV = 45,

  KernelSum = 10,
  ConstraintWeight = 11,  // that the corrector's constraints gave; density of one that a sheet inserts
  SavedVelocity = 26,     // at the last sort
  CorrectedPosition = 27,
  CorrectedVelocity = 28,
  SmoothedCentre = 29,
  StretchRow0 = 30,
  StretchRow1 = 31,
  StretchRow2 = 32,
  Stretches = 33,
  SurfaceNormal = 35
};
}  // namespace PP

inline constexpr std::int32_t kFirstUserProperty = 75;

constexpr PropertyType TypeOfProperty(std::int32_t id) {
  return id < 25 ? PropertyType::Real : id < 50 ? PropertyType::Vector : PropertyType::State;
}

// A built-in property that artists can set, each with a node type of its own.
struct PropertyInfo {
  std::int32_t id;
  std::int32_t nodeType;
  const char* name;      // "Radius"
  const char* label;     // "PP::Radius"
  const char* resource;  // "zq_property_radius", the type's name in a scene file
  const char* text;      // what it is, for the reference
};
std::span<const PropertyInfo> PropertyTable();
// Null for a number that has no name.
const PropertyInfo* FindProperty(std::int32_t id);

// The property of a fixed node type, -1 for any other. typeId becomes the class of the value (1300037 reals, 1300038
// vectors) and name the property's; both stay as they are when there is none.
std::int32_t MapPropertyNode(std::int32_t& typeId, std::string& name);

}  // namespace orlix
