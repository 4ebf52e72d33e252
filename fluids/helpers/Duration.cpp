#include "fluids/helpers/Duration.h"

#include <cmath>

namespace orlix {

const TypeInfo& Duration::Type() {
  static constexpr Parameter kParameters[] = {
      BoolParameter(kUseFramesId, "use_frames", false, "Times are given in frames"),
      FloatParameter(kLengthId, "length", 0, "s", "Length; 0 never ends").ShownWhen(kUseFramesId, Relation::Is, 0),
      FloatParameter(kStartId, "start", 0, "s", "Start, from the scene's first frame on")
          .ShownWhen(kUseFramesId, Relation::Is, 0),
      IntParameter(kRepeatsId, "repeats", 0, "", "How often the window comes again").Min(0),
      FloatParameter(kPauseId, "pause", 0, "s", "Pause between windows")
          .ShownWhen(kUseFramesId, Relation::Is, 0)
          .ShownWhen(kRepeatsId, Relation::IsNot, 0),
      IntParameter(kLengthFramesId, "length_frames", 0, "frames", "Length; 0 never ends")
          .ShownWhen(kUseFramesId, Relation::Is, 1),
      IntParameter(kStartFrameId, "start_frame", 0, "frames", "Start, from the scene's first frame on")
          .ShownWhen(kUseFramesId, Relation::Is, 1),
      IntParameter(kPauseFramesId, "pause_frames", 10, "frames", "Pause between windows")
          .ShownWhen(kUseFramesId, Relation::Is, 1)
          .ShownWhen(kRepeatsId, Relation::IsNot, 0),
      SplineParameter(kRampId, "ramp", {}, "Strength over a window, 0 to 1; without it, falling from 1 to 0"),
  };
  static const TypeInfo kType = {
      .id = 1028240,
      .resource = "zq_duration",
      .className = "C4D_Duration_Object",
      .label = "Duration",
      .text = "When the nodes that link it act: a window of time, repeated after pauses.",
      .kinds = kLinkHelper | kLinkDuration,
      .parameters = kParameters,
      .common = PlainNodeParameters(),
  };
  return kType;
}

bool Duration::ReadParameters() {
  if (!iBase::ReadParameters()) return false;
  repeats = handler.GetInt(kRepeatsId);
  ramp = handler.GetSplineData(kRampId);
  if (handler.GetBool(kUseFramesId)) {
    const double frame = 1.0 / simulationInfo->fps;
    length = handler.GetInt(kLengthFramesId) * frame;
    start = handler.GetInt(kStartFrameId) * frame;
    pause = handler.GetInt(kPauseFramesId) * frame;
  } else {
    length = handler.GetFloat(kLengthId);
    start = handler.GetFloat(kStartId);
    pause = handler.GetFloat(kPauseId);
  }
  return true;
}

bool Duration::FindWindow(double time, double& windowStart) const {
  windowStart = start;
  if (time >= start && time < start + length) return true;
  const double period = length + pause;
  if (time < start || period <= 0) return false;
  const double k = std::floor((time - start) / period);
  if (k > repeats) return false;
  windowStart = k * period + start;
  return time >= windowStart && time < windowStart + length;
}

bool Duration::IsActive(double time) const {
  if (length <= 0) return time >= start;
  double windowStart;
  return FindWindow(time, windowStart);
}

bool Duration::IsActive(double time, double& weight) const {
  if (length <= 0) return time >= start;
  double windowStart;
  if (!FindWindow(time, windowStart)) return false;
  const double u = (time - windowStart) / length;
  weight = ramp ? ramp->ValueAt(static_cast<float>(u)) : 1 - u;
  return true;
}

double DurationWeight(const Duration* duration, double time) {
  double weight = 1;
  if (duration && duration->IsEnabled() && !duration->IsActive(time, weight)) return 0;
  return weight;
}

}  // namespace orlix
