#include "fluids/helpers/Duration.h"

#include <cmath>

namespace orlix {

namespace {

constexpr int kFrames = 1008, kRamp = 1009;

constexpr Parameter kParameters[] = {
    BoolParameter(kFrames, "use_frames", false, "Times are given in frames"),
    FloatParameter(1000, "length", 0, "s", "Length; 0 never ends").ShownWhen(kFrames, Relation::Is, 0),
    FloatParameter(1001, "start", 0, "s", "Start").ShownWhen(kFrames, Relation::Is, 0),
    IntParameter(1002, "repeats", 0, "", "How often the window comes again").Min(0),
    FloatParameter(1003, "pause", 0, "s", "Pause between windows")
        .ShownWhen(kFrames, Relation::Is, 0)
        .ShownWhen(1002, Relation::IsNot, 0),
    IntParameter(1005, "length_frames", 0, "frames", "Length; 0 never ends").ShownWhen(kFrames, Relation::Is, 1),
    IntParameter(1006, "start_frame", 0, "frames", "Start").ShownWhen(kFrames, Relation::Is, 1),
    IntParameter(1007, "pause_frames", 10, "frames", "Pause between windows")
        .ShownWhen(kFrames, Relation::Is, 1)
        .ShownWhen(1002, Relation::IsNot, 0),
    SplineParameter(kRamp, "ramp", {}, "Strength over a window, 0 to 1; without it, falling from 1 to 0"),
};

}  // namespace

const TypeInfo& Duration::Type() {
  static const TypeInfo kType = [] {
    TypeInfo type;
    type.id = 1028240;
    type.resource = "zq_duration";
    type.className = "C4D_Duration_Object";
    type.label = "Duration";
    type.text = "When the nodes that link it act: a window of time, repeated after pauses.";
    type.kinds = kLinkHelper | kLinkDuration;
    type.parameters = kParameters;
    type.common = CommonNodeParameters();
    return type;
  }();
  return kType;
}

bool Duration::ReadParameters() {
  if (!iBase::ReadParameters()) return false;
  repeats = handler.GetInt(1002);
  ramp = handler.GetSplineData(kRamp);
  if (handler.GetBool(kFrames)) {
    const double frame = 1.0 / simulationInfo->fps;
    length = handler.GetInt(1005) * frame;
    start = handler.GetInt(1006) * frame;
    pause = handler.GetInt(1007) * frame;
  } else {
    length = handler.GetFloat(1000);
    start = handler.GetFloat(1001);
    pause = handler.GetFloat(1003);
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
