#include "fluids/emitters/EmissionRate.h"

namespace orlix {

const TypeInfo& EmissionRate::Type() {
  static constexpr Choice kKinds[] = {
      {Kind::Scalar, "scalar", "An amount"},
      {Kind::Vector, "vector", "A vector"},
      {Kind::Count, "count", "A number of particles"},
  };
  static constexpr Parameter kParameters[] = {
      // A vector takes a scalar rate, too.
      ChoiceParameter(kKindId, "kind", Kind::Scalar, kKinds, "What the rate gives").OnlyShows(),
      FloatParameter(kScalarRateId, "scalar_rate", 1.0, "", "The amount")
          .ShownWhen(kKindId, Relation::Is, Kind::Scalar),
      VectorParameter(kVectorRateId, "vector_rate", {1, 1, 1}, "", "The vector")
          .ShownWhen(kKindId, Relation::Is, Kind::Vector),
      IntParameter(kCountRateId, "count_rate", 100, "", "The number of particles")
          .ShownWhen(kKindId, Relation::Is, Kind::Count),
  };
  static const TypeInfo kType = {
      .id = 1300011,
      .resource = "zq_rate",
      .className = "C4D_EmissionRate_Object",
      .label = "Value",
      .text = "An amount that emission settings link, as their value or as their limit.",
      .kinds = kLinkSettings,
      .parameters = kParameters,
      .common = PlainNodeParameters(),
  };
  return kType;
}

void EmissionRate::GetRetrieveTypes(std::uint32_t& mask) const {
  mask |= RetrieveBit(kind_ == Kind::Vector  ? RETRIEVE_VECTOR
                      : kind_ == Kind::Count ? RETRIEVE_PARTICLE
                                             : RETRIEVE_SCALAR);
}

bool EmissionRate::ReadParameters() {
  if (!iBase::ReadParameters()) return false;
  kind_ = handler.GetChoice<Kind>(kKindId);
  scalarRate = handler.GetDouble(kScalarRateId);
  vectorRate = handler.GetVector(kVectorRateId);
  countRate = handler.GetInt(kCountRateId);
  return true;
}

}  // namespace orlix
