#include "fluids/forces/Force_TrigoWave.h"

namespace orlix {

namespace {

constexpr Choice kWaveTypes[] = {
    {0, "plane", "Along the object's z axis"},     {1, "plane_outward", "Along the z axis, moving away from it too"},
    {2, "rings", "In rings about the z axis"},     {3, "around", "Around the z axis"},
    {4, "spiral", "In a spiral about the z axis"},
};

constexpr Choice kWaveShapes[] = {
    {0, "rise", "Second vector, 0 to 1"},
    {1, "fall", "Second vector, -1 to 0"},
    {2, "rise_first", "First vector, 0 to 1"},
    {3, "fall_first", "First vector, -1 to 0"},
    {4, "sine", "Second vector, -1 to 1"},
    {5, "cross_fade", "From the first vector to the second"},
    {6, "cross_fade_back", "From the first vector's opposite to the second"},
    {7, "sine_first", "First vector, -1 to 1"},
    {8, "figure_first", "First vector at twice the frequency"},
    {9, "figure_second", "Second vector at twice the frequency"},
    {10, "ellipse", "First vector by the cosine, second by the sine"},
};

constexpr Parameter kParameters[] = {
    FloatParameter(1000, "amplitude", 80.0, "host units", "Size of the wave"),
    FloatParameter(1001, "speed", 50.0, "host units/s", "How fast the wave travels"),
    FloatParameter(1002, "wavelength", 200.0, "host units", "Length of a wave"),
    ChoiceParameter(1003, "wave_type", 4, kWaveTypes, "Where the wave runs"),
    ChoiceParameter(1004, "wave_shape", 0, kWaveShapes, "How the wave moves its two vectors"),
    FloatParameter(1005, "phase", 0, "s", "Added to the time"),
    LinkParameter(1006, "force_duration", kLinkDuration, "When the force acts"),
    VectorParameter(1008, "wave_scale", {1, 1, 1}, "", "Stretches the wave along the axes"),
    BoolParameter(1009, "use_time", true, "The scene's time drives the wave"),
    FloatParameter(1010, "fixed_time", 0, "s", "The time of a wave that the scene's doesn't drive")
        .ShownWhen(1009, Relation::Is, 0),
};

}  // namespace

const TypeInfo& Force_TrigoWave::Type() {
  static const TypeInfo kType = ForceType(1300089, "zq_force_trigowave", "C4D_Force_TrigoWave_Object", "DF::TrigoWave",
                                          "Moves the gas by a travelling wave.", kParameters);
  return kType;
}

bool Force_TrigoWave::ReadParameters() {
  priority = 0;
  if (!ConstrainedForce::ReadParameters()) return false;
  const Vec3D simPerHost = GetSimulationSpace().simPerHost;
  wave_.amplitude = handler.GetDouble(1000) * simPerHost.x;
  wave_.offsetVector = {0, 0, wave_.amplitude};
  speed_ = handler.GetDouble(1001) * simPerHost.x;
  wave_.frequency = 1 / (handler.GetDouble(1002) * simPerHost.x);
  wave_.type = handler.GetChoice(1003);
  wave_.shape = handler.GetChoice(1004);
  phase_ = handler.GetDouble(1005);
  useTime_ = handler.GetBool(1009);
  fixedTime_ = handler.GetDouble(1010);
  matrix_ = handler.GetMatrix();
  inverse_ = matrix_.Inverse();
  scale_ = Vec3D(1, 1, 1) / handler.GetVector(1008) + matrix_.off * simPerHost;
  return true;
}

void Force_TrigoWave::Prepare(iBase*) {
  if (!BeginPrepare()) return;
  wave_.travelled = speed_ * ((useTime_ ? simulationInfo->time : fixedTime_) + phase_);
  EndPrepare(simulationInfo->substepDuration * strengthFactor_);
}

void Force_TrigoWave::ProcessRow(const ForceRow& row) {
  if (!IsActive()) return;
  const double* amounts = Amounts(row);
  const GridSpace& space = GetSimulationSpace();
  for (std::int32_t i = row.begin; i < row.end; ++i) {
    if (amounts[i] == 0) continue;
    const Vec3D position = row.Position(i);
    Vec3D q = inverse_ * (position * row.space->hostPerSim) * space.simPerHost;
    q += wave_.At(q * scale_) * amounts[i];
    const Vec3D push = matrix_ * (q * space.hostPerSim + space.hostMin) * space.simPerHost - position;
    row.forceX[i] += push.x;
    row.forceY[i] += push.y;
    row.forceZ[i] += push.z;
  }
}

}  // namespace orlix
