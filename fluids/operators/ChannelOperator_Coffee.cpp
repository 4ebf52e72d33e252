#include "fluids/operators/ChannelOperator_Coffee.h"

#include "fluids/scripts/ScriptLanes.h"

namespace orlix {

namespace {

constexpr const char* kNoiseScript =
    "//*********************\n"
    "//Global Variables:\n"
    "//intensity - the \"Intensity\" slider value\n"
    "//physical_pos - the physical position of the cell\n"
    "//cell_value - the cell value\n"
    "//cell_index - the cell index in the grid\n"
    "main(op)\n"
    "{\n"
    "  return (cell_value + Noise(physical_pos.x,physical_pos.y,physical_pos.z));\n"
    "}";

}  // namespace

const TypeInfo& ChannelOperator_Coffee::Type() {
  static constexpr Parameter kParameters[] = {
      FloatParameter(kIntensityId, "intensity", 1.0, "",
                     "Factor of the script's \"intensity\", which is what the constraints leave at the cell"),
      ButtonParameter(9000, "edit_script", "Opens the script"),
      ButtonParameter(9001, "compile_script", "Looks for mistakes in the script"),
      ScriptRow(kNoiseScript),
      ScriptValuesRow(),
  };
  static const TypeInfo kType = {
      .id = 1300059,
      .resource = "zq_channelop_coffee",
      .className = "C4D_ChannelOperator_Coffee_Object",
      .label = "COP::Coffee",
      .text =
          "A formula of your own on the cells that a cell emitter visits: what a script returns, times what the "
          "constraints leave of 1, takes the place of the cell.",
      .kinds = kLinkHelper | kLinkChannelOperator,
      .parameters = kParameters,
      .common = ConfinedNodeParameters(),
  };
  return kType;
}

bool ChannelOperator_Coffee::ReadParameters() {
  priority = 0;
  if (!ChannelOperator::ReadParameters()) return false;
  intensity_ = handler.GetDouble(kIntensityId);
  return true;
}

void ChannelOperator_Coffee::Advise() {
  const auto cells = C4D_CoffeeGui_ChannelOperator::CellTypesOf(*handler.hostObject());
  gui_.cellType = cells.vector && !cells.scalar ? script::Type::Vector : script::Type::Number;
  gui_.Advise(*this, kIntensityId);
}

void ChannelOperator_Coffee::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  const ScalarGrid* grid = TargetGrid();
  gui_.cellType = vectorTarget_ ? script::Type::Vector : script::Type::Number;
  if (!grid || !gui_.Prepare(handler.hostObject(), scene->HostWorkers())) return;
  variables_ = {gui_.Find("intensity"), gui_.Find("physical_pos"), gui_.Find("cell_value"), gui_.Find("cell_index")};
  weights_.Prepare(*scene, *this, *grid);
  SetFlag(NodeActive, true);
}

void ChannelOperator_Coffee::ProcessRow(const ChannelRow& row) {
  if (!IsActive()) return;
  const double* weights = weights_.Of(row);
  ForBatches(row.begin, row.end, [&](std::int32_t first, std::int32_t count) {
    if (AnyAmount(weights + first, count)) ProcessBatch(row, first, count, weights + first);
  });
}

void ChannelOperator_Coffee::ProcessBatch(const ChannelRow& row, std::int32_t first, std::int32_t count,
                                          const double* weights) {
  script::Machine* machine = gui_.MachineOf(row.threadIndex);
  if (!machine) return;
  const int components = script::ComponentsOf(gui_.cellType);
  double* cells[3] = {};
  for (int c = 0; c < components; ++c) {
    cells[c] = TargetGrid(c)->data + row.index + first;
    SetComponents(*machine, variables_.value, c, cells[c], count);
  }
  SetPositions(*machine, variables_.position, row, first, count);
  SetIndices(*machine, variables_.index, row.index + first, count);
  if (variables_.intensity) {
    double* lanes = machine->Lanes(variables_.intensity->registers[0]);
    for (std::int32_t i = 0; i < count; ++i) lanes[i] = weights[i] * intensity_;
  }
  machine->Run(count, weights);
  for (int c = 0; c < components; ++c) {
    const double* results = machine->Result(c);
    for (std::int32_t i = 0; i < count; ++i) {
      if (weights[i] != 0) cells[c][i] = results[i] * weights[i];
    }
  }
}

void ChannelOperator_Coffee::Finish() {
  gui_.TellFailures(*this);
  weights_.Finish();
  SetFlag(NodeActive, false);
}

}  // namespace orlix
