#pragma once
// A value that several settings share: an amount, a vector, or a number of particles.

#include "fluids/scene/OrlixScene.h"

namespace orlix {

class EmissionRate final : public iBase {
 public:
  enum class Kind { Scalar, Vector, Count };

  using iBase::iBase;
  static constexpr int kKindId = 5000, kScalarRateId = 5001, kVectorRateId = 5002, kCountRateId = 5003;
  static const TypeInfo& Type();
  std::int32_t GetNodeBaseType() const override { return NODE_SETTINGS; }
  // One bit, by the kind of rate.
  void GetRetrieveTypes(std::uint32_t& mask) const override;
  bool ReadParameters() override;

  // Of particles: the number, or a rate's amount where it gives one.
  double Count() const { return kind_ == Kind::Count ? countRate : scalarRate; }

  double scalarRate = 1;
  Vec3D vectorRate{1, 1, 1};
  std::int32_t countRate = 100;

 private:
  Kind kind_ = Kind::Scalar;
};

}  // namespace orlix
