#include "fluids/constraints/CoffeeConstraint.h"

#include "fluids/scripts/ScriptLanes.h"

namespace orlix {

namespace {

constexpr const char* kIntensityScript =
    "//*********************\n"
    "//Global Variables:\n"
    "//intensity - the \"Intensity\" slider value\n"
    "//invert - the \"Invert\" check box value\n"
    "//physical_pos - the physical position of the sample currently processed\n"
    "//source_value - the current constraint value\n"
    "main(op)\n"
    "{\n"
    "  return intensity;\n"
    "}";

}  // namespace

const TypeInfo& CoffeeConstraint::Type() {
  static constexpr Parameter kParameters[] = {
      FloatParameter(kScriptIntensityId, "script_intensity", 1.0, "", "What the script reads as \"intensity\""),
      ButtonParameter(9000, "edit_script", "Opens the script"),
      ButtonParameter(9001, "compile_script", "Looks for mistakes in the script"),
      ScriptRow(kIntensityScript),
      ScriptValuesRow(),
  };
  static const TypeInfo kType = {
      .id = 1300057,
      .resource = "zq_constraint_coffee",
      .className = "C4D_Constraint_Coffee_Object",
      .label = "CS::Coffee",
      .text = "Acts by a formula of your own: the factor that a script returns for each place.",
      .kinds = kLinkHelper | kLinkConstraint,
      .parameters = kParameters,
      .common = ConstraintParameters(),
  };
  return kType;
}

bool CoffeeConstraint::ReadParameters() {
  if (!Constraint::ReadParameters()) return false;
  scriptIntensity_ = handler.GetDouble(kScriptIntensityId);
  return true;
}

void CoffeeConstraint::Prepare(const iBase*) {
  ready_ = gui_.Prepare(handler.hostObject(), scene->HostWorkers());
  if (!ready_) return;
  gui_.SetNumber(scriptIntensity_, "intensity");
  gui_.SetNumber(Inverted() ? 1 : 0, "invert");
  position_ = gui_.Find("physical_pos"), sourceValue_ = gui_.Find("source_value");
}

std::unique_ptr<Constraint> CoffeeConstraint::Clone() const {
  // Compiled once for all clones of all passes.
  gui_.Prepare(handler.hostObject(), scene->HostWorkers());
  auto clone = CloneOf(*this);
  static_cast<CoffeeConstraint&>(*clone).gui_ = gui_;
  return clone;
}

void CoffeeConstraint::Scale(script::Machine& machine, double* amounts, std::uint8_t* open, std::int32_t count) const {
  double active[script::Machine::kLanes];
  for (std::int32_t i = 0; i < count; ++i) active[i] = open[i];
  if (!AnyAmount(active, count)) return;
  SetNumbers(machine, sourceValue_, amounts, count);
  machine.Run(count, active);
  const double* results = machine.Result(0);
  for (std::int32_t i = 0; i < count; ++i) {
    if (!open[i]) continue;
    amounts[i] = amounts[i] * (Inverted() ? 1 - results[i] : results[i]) * intensity;
    open[i] = amounts[i] != 0;
  }
}

bool CoffeeConstraint::Evaluate(const Vec3D& position, double& amount, const iBase*, std::int32_t threadIndex) const {
  script::Machine* machine = MachineOf(threadIndex);
  if (!machine) return true;
  std::uint8_t open = 1;
  SetPositions(*machine, position_, &position, 1);
  Scale(*machine, &amount, &open, 1);
  return open != 0;
}

void CoffeeConstraint::EvaluateRow(const ConstraintRow& row, const iBase*) const {
  script::Machine* machine = MachineOf(row.threadIndex);
  if (!machine) return;
  ForBatches(row.begin, row.end, [&](std::int32_t first, std::int32_t count) {
    SetPositions(*machine, position_, row, first, count);
    Scale(*machine, row.amounts + first, row.open + first, count);
  });
}

void CoffeeConstraint::EvaluateParticles(const ParticleRun& run, const iBase*) const {
  script::Machine* machine = MachineOf(run.threadIndex);
  if (!machine) return;
  ForBatches(0, run.count, [&](std::int32_t first, std::int32_t count) {
    SetPositions(*machine, position_, run.positions + first, count);
    Scale(*machine, run.amounts + first, run.open + first, count);
  });
}

}  // namespace orlix
