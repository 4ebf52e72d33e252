#pragma once
// A node that hands one value to particles.

#include "fluids/scene/iBase.h"

namespace orlix {

class iProperty : public iBase {
 public:
  using iBase::iBase;
  static constexpr int kValueId = 1000, kPropertyIdId = 2001;
  std::int32_t GetNodeBaseType() const override { return NODE_PARTICLES; }
  std::int32_t GetNodeSubType() const override { return 67; }
  bool ReadParameters() override;

  // 0 to 24 real, 25 to 49 vectors, 50 to 74 bool, 75 and above the user's own.
  std::int32_t propertyId = 75;
};

template <class T>
class Property final : public iProperty {
 public:
  using iProperty::iProperty;
  static const TypeInfo& Type();
  void GetRetrieveTypes(std::uint32_t& mask) const override;
  bool ReadParameters() override;

  T value{};
};

class NodeFactory;
// The node types of the built-in properties (PropertyIds.h): "PP::Radius" and so on.
void RegisterFixedProperties(NodeFactory& factory);

}  // namespace orlix
