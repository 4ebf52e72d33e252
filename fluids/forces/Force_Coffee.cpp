#include "fluids/forces/Force_Coffee.h"

#include "fluids/channels/VelocityGridChannel.h"
#include "fluids/scripts/ScriptLanes.h"

namespace orlix {

namespace {

constexpr const char* kDragScript =
    "//*********************\n"
    "//Global Variables:\n"
    "//cell_velocity - the current velocity in the grid\n"
    "//intensity - the \"Intensity\" slider value\n"
    "//physical_pos - the physical position of the cell\n"
    "//velocity_u_index - the velocity x-component index\n"
    "//velocity_v_index - the velocity y-component index\n"
    "//velocity_w_index - the velocity z-component index\n"
    "main(op)\n"
    "{\n"
    "//This example shows a simple drag force \n"
    "  return (cell_velocity * -0.05);\n"
    "}";

}  // namespace

const TypeInfo& Force_Coffee::Type() {
  static constexpr Parameter kParameters[] = {
      FloatParameter(
          kIntensityId, "intensity", 1.0, "",
          "Factor of the script's \"intensity\", which is the strength of the sub-step at the cell, seconds"),
      LinkParameter(kSettingsId, "settings", kLinkSettings,
                    "Emission settings whose duration tells when the force acts"),
      LinkParameter(kForceDurationId, "force_duration", kLinkDuration, "When the force acts, without settings"),
      ButtonParameter(9000, "edit_script", "Opens the script"),
      ButtonParameter(9001, "compile_script", "Looks for mistakes in the script"),
      ScriptRow(kDragScript),
      ScriptValuesRow(),
  };
  static const TypeInfo kType = {
      .id = 13000141,
      .resource = "zq_force_coffee",
      .className = "C4D_Force_Coffee_Object",
      .label = "GF::Coffee",
      .text =
          "A force by a formula of your own: the vector that a script returns for each cell is added to the velocity, "
          "m/s, in each sub-step. Multiply by \"intensity\" for an acceleration.",
      .kinds = kLinkForce,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool Force_Coffee::ReadParameters() {
  priority = 0;
  if (!ConstrainedForce::ReadParameters()) return false;
  intensity_ = handler.GetDouble(kIntensityId);
  return true;
}

Duration* Force_Coffee::FindDuration() const { return DurationOfSettings(kSettingsId, kForceDurationId); }

void Force_Coffee::Prepare(iBase*) {
  if (!BeginPrepare() || !gui_.Prepare(handler.hostObject(), scene->HostWorkers())) return;
  variables_ = {gui_.Find("intensity"),
                gui_.Find("physical_pos"),
                gui_.Find("cell_velocity"),
                {gui_.Find("velocity_u_index"), gui_.Find("velocity_v_index"), gui_.Find("velocity_w_index")}};
  EndPrepare(simulationInfo->substepDuration * intensity_ * strengthFactor_);
}

void Force_Coffee::ProcessRow(const ForceRow& row) {
  if (!IsActive()) return;
  const double* strengths = Amounts(row);
  ForBatches(row.begin, row.end, [&](std::int32_t first, std::int32_t count) {
    if (AnyAmount(strengths + first, count)) ProcessBatch(row, first, count, strengths + first);
  });
}

void Force_Coffee::ProcessBatch(const ForceRow& row, std::int32_t first, std::int32_t count, const double* strengths) {
  script::Machine* machine = gui_.MachineOf(row.threadIndex);
  if (!machine) return;
  SetNumbers(*machine, variables_.intensity, strengths, count);
  SetCells(*machine, row, first, count);
  machine->Run(count, strengths);
  AddResults(machine->Result(0), strengths, count, row.forceX + first);
  AddResults(machine->Result(1), strengths, count, row.forceY + first);
  AddResults(machine->Result(2), strengths, count, row.forceZ + first);
}

void Force_Coffee::SetCells(script::Machine& machine, const ForceRow& row, std::int32_t first,
                            std::int32_t count) const {
  SetPositions(machine, variables_.position, row, first, count);
  for (int c = 0; c < 3; ++c) {
    const ScalarGrid& faces = *velocity_->grids[c];
    const std::int64_t low = faces.Index(first, row.j, row.k),
                       high = faces.Index(first + (c == 0), row.j + (c == 1), row.k + (c == 2));
    SetMeans(machine, variables_.velocity, c, faces.data + low, faces.data + high, count);
    SetIndices(machine, variables_.index[c], low, count);
  }
}

void Force_Coffee::Finish() {
  gui_.TellFailures(*this);
  ConstrainedForce::Finish();
}

}  // namespace orlix
