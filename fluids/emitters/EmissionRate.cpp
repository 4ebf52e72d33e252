#include "fluids/emitters/EmissionRate.h"

namespace orlix {

namespace {

constexpr int kKindId = 5000, kScalarId = 5001, kVectorId = 5002, kCountId = 5003;

constexpr Choice kKinds[] = {
    {0, "scalar", "An amount"},
    {1, "vector", "A vector"},
    {2, "count", "A number of particles"},
};

constexpr Parameter kParameters[] = {
    ChoiceParameter(kKindId, "kind", 0, kKinds, "What the rate gives"),
    FloatParameter(kScalarId, "scalar_rate", 1.0, "", "The amount").ShownWhen(kKindId, Relation::Is, 0),
    VectorParameter(kVectorId, "vector_rate", {1, 1, 1}, "", "The vector").ShownWhen(kKindId, Relation::Is, 1),
    IntParameter(kCountId, "count_rate", 100, "", "The number of particles").ShownWhen(kKindId, Relation::Is, 2),
};

}  // namespace

const TypeInfo& EmissionRate::Type() {
  static const TypeInfo kType = [] {
    TypeInfo type;
    type.id = 1300011;
    type.resource = "zq_rate";
    type.className = "C4D_EmissionRate_Object";
    type.label = "Emission Rate";
    type.text = "An amount that emission settings link, as their value or as their limit.";
    type.kinds = kLinkSettings;
    type.parameters = kParameters;
    type.common = CommonNodeParameters();
    return type;
  }();
  return kType;
}

void EmissionRate::GetRetrieveTypes(std::uint32_t& mask) const {
  mask |= RetrieveBit(kind_ == 1 ? RETRIEVE_VECTOR : kind_ == 2 ? RETRIEVE_PARTICLE : RETRIEVE_SCALAR);
}

bool EmissionRate::ReadParameters() {
  if (!iBase::ReadParameters()) return false;
  kind_ = handler.GetChoice(kKindId);
  scalarRate = handler.GetDouble(kScalarId);
  vectorRate = handler.GetVector(kVectorId);
  countRate = handler.GetInt(kCountId);
  return true;
}

}  // namespace orlix
