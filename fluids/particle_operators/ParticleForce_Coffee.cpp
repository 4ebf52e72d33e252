#include "fluids/particle_operators/ParticleForce_Coffee.h"

#include "fluids/scripts/ScriptLanes.h"
#include "host/objects/HasTrack.h"

namespace orlix {

namespace {

constexpr const char* kDragScript =
    "//*********************\n"
    "//Global Variables:\n"
    "//particle_pos - the physical position of the particle\n"
    "//particle_acceleration - the current acceleration of the particle\n"
    "//particle_index - the particle index in the particle group\n"
    "main(op)\n"
    "{\n"
    "//This example shows a simple drag force \n"
    "  return (particle_acceleration * -0.05);\n"
    "}";

}  // namespace

const TypeInfo& ParticleForce_Coffee::Type() {
  static constexpr Parameter kParameters[] = {
      FloatParameter(kIntensityId, "intensity", 1.0, "", "Factor of the acceleration; the script reads it, too"),
      LinkParameter(kForceDurationId, "force_duration", kLinkDuration, "When the force acts"),
      ButtonParameter(9000, "edit_script", "Opens the script"),
      ButtonParameter(9001, "compile_script", "Looks for mistakes in the script"),
      ScriptRow(kDragScript),
      ScriptValuesRow(),
  };
  static const TypeInfo kType = {
      .id = 1300060,
      .resource = "zq_pforce_coffee",
      .className = "C4D_ParticleForce_Coffee_Object",
      .label = "PF::Coffee",
      .text =
          "A force on particles by a formula of your own: the acceleration, m/s^2, that a script returns for each. A "
          "node of particle forces applies it. \"particle_acceleration\" is the particle's velocity, m/s.",
      .kinds = kLinkForce,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool ParticleForce_Coffee::ReadParameters() {
  priority = 0;
  if (!ConstrainedForce::ReadParameters()) return false;
  intensity_ = handler.GetDouble(kIntensityId);
  return true;
}

void ParticleForce_Coffee::Advise() {
  gui_.Advise(*this, {});
  const bool keyed = HasTrack(*handler.hostObject(), kIntensityId);
  if (intensity_ == 0 && !keyed) Warn("no-intensity", "it pushes nothing; set \"intensity\"");
}

void ParticleForce_Coffee::PrepareParticles(iBase*) {
  if (!BeginParticles() || !gui_.Prepare(handler.hostObject(), scene->HostWorkers())) return;
  gui_.SetNumber(intensity_, "intensity");
  variables_ = {gui_.Find("particle_pos"), gui_.Find("particle_acceleration"), gui_.Find("particle_index")};
  EndParticles();
}

void ParticleForce_Coffee::ProcessParticles(const ForceParticles& run) {
  if (!IsActive()) return;
  const double* amounts = Amounts(run, simulationInfo->substepDuration * intensity_ * strengthFactor_);
  ForBatches(0, run.count, [&](std::int32_t first, std::int32_t count) {
    if (AnyAmount(amounts + first, count)) ProcessBatch(run, first, count, amounts + first);
  });
}

void ParticleForce_Coffee::ProcessBatch(const ForceParticles& run, std::int32_t first, std::int32_t count,
                                        const double* amounts) {
  script::Machine* machine = gui_.MachineOf(run.threadIndex);
  if (!machine) return;
  SetPositions(*machine, variables_.position, run.positions + first, count);
  SetIndices(*machine, variables_.index, run.first + first, count);
  if (variables_.velocity) {
    for (std::int32_t n = 0; n < count; ++n) {
      // A place without a particle stands still.
      const Vec3D velocity = run.list ? run.list->Velocity(run.first + first + n) : Vec3D();
      for (int c = 0; c < 3; ++c) machine->Lanes(variables_.velocity->registers[c])[n] = velocity[c];
    }
  }
  machine->Run(count, amounts);
  for (std::int32_t n = 0; n < count; ++n) {
    if (amounts[n] == 0) continue;
    run.forces[first + n] += Vec3D(machine->Result(0)[n], machine->Result(1)[n], machine->Result(2)[n]) * amounts[n];
  }
}

void ParticleForce_Coffee::Finish() {
  gui_.TellFailures(*this);
  ConstrainedForce::Finish();
}

}  // namespace orlix
