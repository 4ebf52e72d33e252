#pragma once
// A force by the user's own formula: the vector that a script returns for each cell is added to the velocity in each
// sub-step.

#include "fluids/forces/ConstrainedForce.h"
#include "fluids/scripts/NodeScripts.h"

namespace orlix {

class Force_Coffee final : public ConstrainedForce {
 public:
  using ConstrainedForce::ConstrainedForce;
  static constexpr int kIntensityId = 1000, kSettingsId = 1001, kForceDurationId = 1003;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 30; }
  bool ReadParameters() override;
  void Advise() override { gui_.Advise(*this, kIntensityId); }
  void Prepare(iBase* caller = nullptr) override;
  void ProcessRow(const ForceRow& row) override;
  void Finish() override;

 protected:
  Duration* FindDuration() const override;

 private:
  // The cells [first, first + count) of a row, with the strength of each.
  void ProcessBatch(const ForceRow& row, std::int32_t first, std::int32_t count, const double* strengths);
  void SetCells(script::Machine& machine, const ForceRow& row, std::int32_t first, std::int32_t count) const;

  C4D_CoffeeGui_Force gui_;
  struct {
    const script::Input *intensity, *position, *velocity, *index[3];
  } variables_ = {};  // those that the script reads
  double intensity_ = 1;
};

}  // namespace orlix
