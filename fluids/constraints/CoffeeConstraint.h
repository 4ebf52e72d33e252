#pragma once
// Scales by the user's own formula: the factor that a script returns for each place.

#include "fluids/constraints/Constraint.h"
#include "fluids/scripts/NodeScripts.h"

namespace orlix {

class CoffeeConstraint final : public Constraint {
 public:
  using Constraint::Constraint;
  static constexpr int kScriptIntensityId = 1000;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 25; }
  bool ReadParameters() override;
  void Advise() override { gui_.Advise(*this, kScriptIntensityId); }

  void Prepare(const iBase* caller) override;
  void Finish() override { gui_.TellFailures(*this); }
  bool Evaluate(const Vec3D& position, double& amount, const iBase* caller, std::int32_t threadIndex) const override;
  void EvaluateRow(const ConstraintRow& row, const iBase* caller) const override;
  void EvaluateParticles(const ParticleRun& run, const iBase* caller) const override;
  std::unique_ptr<Constraint> Clone() const override;

 private:
  // The worker's own; null when there is nothing to run, which passes everything.
  script::Machine* MachineOf(std::int32_t thread) const { return ready_ ? gui_.MachineOf(thread) : nullptr; }
  // Scales count amounts, of places that the machine has been given.
  void Scale(script::Machine& machine, double* amounts, std::uint8_t* open, std::int32_t count) const;

  // Each worker's machine is its own to change.
  mutable C4D_CoffeeGui_Constraint gui_;
  const script::Input *position_ = nullptr, *sourceValue_ = nullptr;  // those that the script reads
  bool ready_ = false;
  double scriptIntensity_ = 1;
};

}  // namespace orlix
