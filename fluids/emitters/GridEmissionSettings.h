#pragma once
// How a grid emitter fills a channel: how much, when, how it falls off inside the volume, up to which limit.

#include "fluids/channels/Emission.h"
#include "fluids/scene/Duration.h"
#include "fluids/scene/iEmissionSettings.h"

namespace orlix {

// An amount that several settings share.
class EmissionRate final : public iBase {
 public:
  using iBase::iBase;
  static const TypeInfo& Type();
  std::int32_t GetNodeBaseType() const override { return NODE_SETTINGS; }
  void GetRetrieveTypes(std::uint32_t& mask) const override;
  bool ReadParameters() override;

  std::int32_t kind = 0;  // 0 scalar, 1 vector, 2 count
  double scalarRate = 1;
  Vec3D vectorRate{1, 1, 1};
  std::int32_t countRate = 100;
};

enum class EmissionFalloff : std::int32_t { None = 0, Depth = 1, DepthCurve = 2 };

class GridEmissionSettings final : public iEmissionSettings {
 public:
  using iEmissionSettings::iEmissionSettings;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 10; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;

  // The amount per unit of time: the linked rate's, or the value here.
  double ScalarAmount() const;
  EmissionRule Rule() const;

  EmissionMode mode = EmissionMode::Add;
  bool perStep = false, spread = true;
  EmissionFalloff falloff = EmissionFalloff::None;
  const SplineData* curve = nullptr;
  double value = 1;
  Vec3D vectorValue{1, 1, 1};
  EmissionRate* limit = nullptr;
  Duration* duration = nullptr;
};

}  // namespace orlix
