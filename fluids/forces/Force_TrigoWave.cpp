#include "fluids/forces/Force_TrigoWave.h"

#include <cmath>

namespace orlix {

namespace {

constexpr Choice kWaveTypes[] = {
    {WaveType::Plane, "plane", "Along the object's z axis"},
    {WaveType::PlaneOutward, "plane_outward", "Along the z axis, moving away from it too"},
    {WaveType::Rings, "rings", "In rings about the z axis"},
    {WaveType::Around, "around", "Around the z axis"},
    {WaveType::Spiral, "spiral", "In a spiral about the z axis"},
};

constexpr Choice kWaveShapes[] = {
    {WaveShape::Rise, "rise", "Second vector, 0 to 1"},
    {WaveShape::Fall, "fall", "Second vector, -1 to 0"},
    {WaveShape::RiseFirst, "rise_first", "First vector, 0 to 1"},
    {WaveShape::FallFirst, "fall_first", "First vector, -1 to 0"},
    {WaveShape::Sine, "sine", "Second vector, -1 to 1"},
    {WaveShape::CrossFade, "cross_fade", "From the first vector to the second"},
    {WaveShape::CrossFadeBack, "cross_fade_back", "From the first vector's opposite to the second"},
    {WaveShape::SineFirst, "sine_first", "First vector, -1 to 1"},
    {WaveShape::FigureFirst, "figure_first", "First vector at twice the frequency"},
    {WaveShape::FigureSecond, "figure_second", "Second vector at twice the frequency"},
    {WaveShape::Ellipse, "ellipse", "First vector by the cosine, second by the sine"},
};

constexpr double kLeastScale = 1e-9;

}  // namespace

const TypeInfo& Force_TrigoWave::Type() {
  static constexpr Parameter kParameters[] = {
      FloatParameter(kAmplitudeId, "amplitude", 80.0, "host units", "Size of the wave"),
      FloatParameter(kSpeedId, "speed", 50.0, "host units/s", "How fast the wave travels"),
      FloatParameter(kWavelengthId, "wavelength", 200.0, "host units", "Length of a wave"),
      ChoiceParameter(kWaveTypeId, "wave_type", WaveType::Spiral, kWaveTypes, "Where the wave runs"),
      ChoiceParameter(kWaveShapeId, "wave_shape", WaveShape::Rise, kWaveShapes, "How the wave moves its two vectors"),
      FloatParameter(kPhaseId, "phase", 0, "s", "Added to the time"),
      LinkParameter(kForceDurationId, "force_duration", kLinkDuration, "When the force acts"),
      VectorParameter(kWaveScaleId, "wave_scale", {1, 1, 1}, "",
                      "Stretches the wave along the axes; along one of 0 it doesn't change"),
      BoolParameter(kUseTimeId, "use_time", true, "The scene's time drives the wave"),
      FloatParameter(kFixedTimeId, "fixed_time", 0, "s", "The time of a wave that the scene's doesn't drive")
          .ShownWhen(kUseTimeId, Relation::Is, 0),
  };
  static const TypeInfo kType = {
      .id = 1300089,
      .resource = "zq_force_trigowave",
      .className = "C4D_Force_TrigoWave_Object",
      .label = "DF::TrigoWave",
      .text = "Moves the gas by a travelling wave.",
      .kinds = kLinkForce,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool Force_TrigoWave::ReadParameters() {
  priority = 0;
  if (!ConstrainedForce::ReadParameters()) return false;
  const Vec3D simPerHost = GetSimulationSpace().simPerHost;
  wave_.amplitude = handler.GetDouble(kAmplitudeId) * simPerHost.x;
  wave_.offsetVector = {0, 0, wave_.amplitude};
  speed_ = handler.GetDouble(kSpeedId) * simPerHost.x;
  wave_.frequency = 1 / (handler.GetDouble(kWavelengthId) * simPerHost.x);
  wave_.type = handler.GetChoice<WaveType>(kWaveTypeId);
  wave_.shape = handler.GetChoice<WaveShape>(kWaveShapeId);
  phase_ = handler.GetDouble(kPhaseId);
  useTime_ = handler.GetBool(kUseTimeId);
  fixedTime_ = handler.GetDouble(kFixedTimeId);
  matrix_ = handler.GetMatrix();
  inverse_ = matrix_.Inverse();
  scale_ = matrix_.off * simPerHost;
  const Vec3D stretch = handler.GetVector(kWaveScaleId);
  for (int axis = 0; axis < 3; ++axis) scale_[axis] += std::abs(stretch[axis]) > kLeastScale ? 1 / stretch[axis] : 0;
  return true;
}

void Force_TrigoWave::TakeTime() {
  wave_.travelled = speed_ * ((useTime_ ? simulationInfo->time : fixedTime_) + phase_);
}

void Force_TrigoWave::Prepare(iBase*) {
  if (!BeginPrepare()) return;
  TakeTime();
  EndPrepare(simulationInfo->substepDuration * strengthFactor_);
}

void Force_TrigoWave::ProcessRow(const ForceRow& row) {
  if (!IsActive()) return;
  const double* amounts = Amounts(row);
  for (std::int32_t i = row.begin; i < row.end; ++i) {
    if (amounts[i] == 0) continue;
    const Vec3D push = Push(row.Position(i), amounts[i]);
    row.forceX[i] += push.x;
    row.forceY[i] += push.y;
    row.forceZ[i] += push.z;
  }
}

Vec3D Force_TrigoWave::Push(const Vec3D& position, double amount) const {
  const GridSpace& space = GetSimulationSpace();
  Vec3D q = inverse_ * (position * space.hostPerSim) * space.simPerHost;
  q += wave_.At(q * scale_) * amount;
  return matrix_ * (q * space.hostPerSim + space.hostMin) * space.simPerHost - position;
}

void Force_TrigoWave::PrepareParticles(iBase*) {
  if (!BeginParticles()) return;
  TakeTime();
  EndParticles();
}

void Force_TrigoWave::ProcessParticles(const ForceParticles& run) {
  if (!IsActive()) return;
  const double* amounts = Amounts(run, simulationInfo->substepDuration * strengthFactor_);
  for (std::int32_t n = 0; n < run.count; ++n) {
    if (amounts[n] != 0) run.forces[n] += Push(run.positions[n], amounts[n]);
  }
}

}  // namespace orlix
