#include "fluids/helpers/PropertyIds.h"

namespace orlix {

namespace {

constexpr std::int32_t kScalarClass = 1300037, kVectorClass = 1300038;

constexpr PropertyInfo kTable[] = {
    {PP::Radius, 1300044, "Radius", "PP::Radius", "zq_property_radius", "Radius, m (the node's value is in voxels)"},
    {PP::Age, 1300043, "Age", "PP::Age", "zq_property_age", "Frames that are left to live"},
    {PP::Density, 1300045, "Density", "PP::Density", "zq_property_density",
     "Density relative to the densest place, 0 to 1"},
    {PP::Viscosity, 1300046, "Viscosity", "PP::Viscosity", "zq_property_viscosity", "Viscosity"},
    {PP::Pressure, 1300047, "Pressure", "PP::Pressure", "zq_property_pressure", "Pressure"},
    {PP::Temperature, 1300048, "Temperature", "PP::Temperature", "zq_property_temperature", "Temperature, K"},
    {PP::Fire, 1300049, "Fire", "PP::Fire", "zq_property_fire", "Fire"},
    {PP::Fuel, 1300050, "Fuel", "PP::Fuel", "zq_property_fuel", "Fuel"},
    {PP::Mass, 1300130, "Mass", "PP::Mass", "zq_property_mass", "Mass; 1 where a particle has none"},
    {PP::Anisotropy, 1300117, "Anisotropy", "PP::Anisotropy", "zq_property_anisotropy",
     "How thin the neighbourhood is: 0 a sheet, 1 a ball"},
    {PP::Curvature, 1300118, "Curvature", "PP::Curvature", "zq_property_curvature", "Curvature of the surface"},
    {PP::Color, 1300051, "Color", "PP::Color", "zq_property_color", "Colour, linear RGB"},
    {PP::Normal, 1300119, "Normal", "PP::Normal", "zq_property_normal", "Normal of the surface"},
    {PP::OldPosition, 1300094, "Old Position", "PP::Old Position", "zq_property_oldposition",
     "Position before the last move, m"},
    {PP::Velocity, 1300095, "Velocity", "PP::Velocity", "zq_property_velocity", "Velocity, m/s; every particle has it"},
    {PP::Vorticity, 1300096, "Vorticity", "PP::Vorticity", "zq_property_vorticity",
     "Axis about which it swirls the gas"},
    {PP::ExternalForce, 1300097, "External Force", "PP::Ballistic Forces", "zq_property_force",
     "Force of the next ballistic move"},
    {PP::Position, 1300132, "Position", "PP::Position", "zq_property_position", "Position, m; every particle has it"},
    {PP::UV, 1300120, "UV", "PP::UV", "zq_property_uv", "Texture coordinates of where it was emitted"},
};

}  // namespace

std::span<const PropertyInfo> PropertyTable() { return kTable; }

const PropertyInfo* FindProperty(std::int32_t id) {
  for (const PropertyInfo& info : kTable) {
    if (info.id == id) return &info;
  }
  return nullptr;
}

std::int32_t MapPropertyNode(std::int32_t& typeId, std::string& name) {
  for (const PropertyInfo& info : kTable) {
    if (info.nodeType != typeId) continue;
    typeId = TypeOfProperty(info.id) == PropertyType::Real ? kScalarClass : kVectorClass;
    name = info.name;
    return info.id;
  }
  return -1;
}

}  // namespace orlix
