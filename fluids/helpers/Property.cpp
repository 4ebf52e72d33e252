#include "fluids/helpers/Property.h"

#include <deque>

#include "fluids/helpers/PropertyIds.h"
#include "fluids/scene/NodeFactory.h"

namespace orlix {

namespace {

constexpr Parameter kPropertyRow =
    IntParameter(iProperty::kPropertyIdId, "property_id", 75, "", "Property that the value is written to").Min(0);
constexpr Parameter kScalar[] = {
    FloatParameter(iProperty::kValueId, "value", 1.0, "", "Value; of property 0, in voxels"), kPropertyRow};
constexpr Parameter kVector[] = {
    VectorParameter(iProperty::kValueId, "value", {0, 1, 0}, "", "Value").Fallback(Vec3D()),
    IntParameter(iProperty::kPropertyIdId, "property_id", 76, "", "Property that the value is written to")
        .Min(0)
        .Fallback(75)};
constexpr Parameter kState[] = {BoolParameter(iProperty::kValueId, "value", false, "Value"), kPropertyRow};

TypeInfo TypeOf(int id, const char* resource, const char* className, const char* label,
                std::span<const Parameter> rows) {
  TypeInfo type;
  type.id = id;
  type.resource = resource;
  type.className = className;
  type.label = label;
  type.text = "Gives particles one value under a property id.";
  type.kinds = kLinkParticles | kLinkProperty;
  type.parameters = rows;
  type.common = PlainNodeParameters();
  return type;
}

// The node types of the built-in properties: the free-form ones with the number filled in.
struct FixedType {
  bool real = true;
  std::string text;
  std::vector<Parameter> rows;
  TypeInfo type;
};

const std::deque<FixedType>& FixedTypes() {
  static const std::deque<FixedType> kTypes = [] {
    std::deque<FixedType> types;  // the records point into each other: they must not move
    for (const PropertyInfo& info : PropertyTable()) {
      FixedType& fixed = types.emplace_back();
      const bool real = fixed.real = TypeOfProperty(info.id) == PropertyType::Real;
      const std::span<const Parameter> rows = real ? std::span<const Parameter>(kScalar) : kVector;
      fixed.rows.assign(rows.begin(), rows.end());
      for (Parameter& row : fixed.rows) {
        if (row.id == iProperty::kPropertyIdId) row.number = info.id, row.fallbackNumber.reset(), row.hidden = true;
      }
      fixed.text = "Gives particles property " + std::to_string(info.id) + ". " + info.text + ".";
      fixed.type = TypeOf(info.nodeType, info.resource,
                          real ? "C4D_ParticlePropertyScalar_Object" : "C4D_ParticlePropertyVector_Object", info.label,
                          fixed.rows);
      fixed.type.text = fixed.text.c_str();
    }
    return types;
  }();
  return kTypes;
}

}  // namespace

void RegisterFixedProperties(NodeFactory& factory) {
  for (const FixedType& fixed : FixedTypes()) {
    if (fixed.real) {
      factory.AddAs<Property<double>>(fixed.type);
    } else {
      factory.AddAs<Property<Vec3D>>(fixed.type);
    }
  }
}

bool iProperty::ReadParameters() {
  if (!iBase::ReadParameters()) return false;
  propertyId = handler.GetInt(kPropertyIdId);
  return true;
}

template <>
const TypeInfo& Property<double>::Type() {
  static const TypeInfo kType =
      TypeOf(1300037, "zq_property_scalar", "C4D_ParticlePropertyScalar_Object", "PP::Scalar", kScalar);
  return kType;
}
template <>
const TypeInfo& Property<std::int32_t>::Type() {
  static const TypeInfo kType =
      TypeOf(1300039, "property_int", "C4D_ParticlePropertyInt_Object", "Integer Property", kScalar);
  return kType;
}
template <>
const TypeInfo& Property<Vec3D>::Type() {
  static const TypeInfo kType =
      TypeOf(1300038, "zq_property_vector", "C4D_ParticlePropertyVector_Object", "PP::Vector", kVector);
  return kType;
}
template <>
const TypeInfo& Property<bool>::Type() {
  static const TypeInfo kType =
      TypeOf(13000391, "zq_property_state", "C4D_ParticlePropertyState_Object", "PP::State", kState);
  return kType;
}

template <class T>
void Property<T>::GetRetrieveTypes(std::uint32_t& mask) const {
  mask |= RetrieveBit(RETRIEVE_PROPERTY);
  if constexpr (std::is_same_v<T, Vec3D>)
    mask |= RetrieveBit(RETRIEVE_VECTOR);
  else if constexpr (std::is_same_v<T, bool>)
    mask |= RetrieveBit(RETRIEVE_STATE);
  else
    mask |= RetrieveBit(RETRIEVE_SCALAR);
}

template <class T>
bool Property<T>::ReadParameters() {
  if (!iProperty::ReadParameters()) return false;
  if constexpr (std::is_same_v<T, Vec3D>) {
    value = handler.GetVector(kValueId);
  } else if constexpr (std::is_same_v<T, bool>) {
    value = handler.GetBool(kValueId);
  } else {
    double read = handler.GetDouble(kValueId);
    // A radius is given in voxels; the integer form rounds by half a cell.
    if (propertyId == PP::Radius) {
      const GridSpace& space = GetSimulationSpace();
      read *= space.simPerVoxel.x;
      if (std::is_same_v<T, std::int32_t>) read += space.halfCell;
    }
    value = static_cast<T>(AsInt(Value(read), 0));
    if constexpr (std::is_same_v<T, double>) value = read;
  }
  return true;
}

template class Property<double>;
template class Property<std::int32_t>;
template class Property<Vec3D>;
template class Property<bool>;

}  // namespace orlix
