#pragma once
// Scales by the mean of a channel's cells above 0, the same everywhere: the more smoke there is, the stronger.

#include "fluids/channels/ScalarChannels.h"
#include "fluids/constraints/Constraint.h"

namespace orlix {

class ChannelAverageConstraint final : public Constraint {
 public:
  using Constraint::Constraint;
  static constexpr int kChannelId = 1000, kThresholdId = 1001;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 17; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void CheckDirty() override;
  void VisitState(StateVisitor& visitor) override { visitor.Visit("average", average_); }

  void Prepare(const iBase* caller) override;
  bool Evaluate(const Vec3D& position, double& amount, const iBase* caller, std::int32_t threadIndex) const override;
  std::unique_ptr<Constraint> Clone() const override;

 private:
  ChannelBase_Scalar* channel_ = nullptr;
  double threshold_ = 0;
  // Of the last pass that found a cell above 0: it goes on when none does.
  double average_ = 0;
};

// The mean of the values above 0; none when there is no such value. Sums one layer after the other: the same bits for
// any number of workers.
std::optional<double> MeanOfPositive(const ScalarGrid& grid, WorkerPool& pool);

}  // namespace orlix
