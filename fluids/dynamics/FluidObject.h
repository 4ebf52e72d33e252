#pragma once
// The host object of a fluid: presets that set values, and the anchor that a choice stands for.

#include <cstdint>

#include "host/objects/BaseObject.h"

namespace orlix {

class FluidObject final : public ObjectData {
 public:
  void Init(BaseObject& object) override;
  // After a change: a preset that was chosen writes its value; any other change turns the presets to custom. The anchor
  // follows its choice.
  Status Update(BaseObject& object, const BaseTime& time) override;

 private:
  std::int64_t viscosityPreset_ = 0, densityPreset_ = 0;
  std::uint32_t seen_ = 0;  // the object's change counter
};

}  // namespace orlix
