#pragma once
// When an operator acts: from a start for a length, again after pauses.

#include "fluids/scene/iObject.h"

namespace orlix {

class Duration final : public iBase, public iActivity {
 public:
  using iBase::iBase;
  static constexpr int kUseFramesId = 1008, kLengthId = 1000, kStartId = 1001, kRepeatsId = 1002, kPauseId = 1003,
                       kLengthFramesId = 1005, kStartFrameId = 1006, kPauseFramesId = 1007, kRampId = 1009;
  static const TypeInfo& Type();
  std::int32_t GetNodeBaseType() const override { return NODE_HELPER; }
  std::int32_t GetNodeSubType() const override { return 51; }
  bool ReadParameters() override;

  bool IsActive(double time) const override;
  // With a length, weight falls from 1 to 0 over each window, or follows the ramp; without one it stays as it is.
  bool IsActive(double time, double& weight) const;

  double start = 0, length = 0, pause = 0;  // s
  std::int32_t repeats = 0;
  const SplineData* ramp = nullptr;  // not owned

 private:
  // Finds the window that holds time; false when none does.
  bool FindWindow(double time, double& windowStart) const;
};

// What a node with a duration does in Prepare: the strength factor, 0 when it isn't to act. A missing or disabled
// duration means always on.
double DurationWeight(const Duration* duration, double time);

}  // namespace orlix
