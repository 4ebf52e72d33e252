#pragma once
// Acts by the value of a channel at the place: where it passes a test, and along a curve between two values.

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"
#include "fluids/constraints/Constraint.h"

namespace orlix {

class GridValueConstraint final : public Constraint {
 public:
  enum class Test : std::int32_t { Equal = 0, NotEqual = 1, Outside = 2, Inside = 3 };

  using Constraint::Constraint;
  static constexpr int kChannelId = 1000, kTestId = 1001, kLowId = 1002, kHighId = 1003, kUseCurveId = 1004,
                       kCurveId = 1005, kMaxLengthId = 1007;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 19; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;

  bool Evaluate(const Vec3D& position, double& amount, const iBase* caller, std::int32_t threadIndex) const override;
  void EvaluateRow(const ConstraintRow& row, const iBase* caller) const override;
  std::unique_ptr<Constraint> Clone() const override { return CloneOf(*this); }

 private:
  bool HasGrid() const;
  // A scalar as a share of the channel's largest value, a vector's length as one of maxLength_.
  double ValueAt(const Vec3D& position) const;
  bool Passes(double value) const;
  double CurveArgument(double value) const;
  bool Apply(const Vec3D& position, double& amount) const;

  ChannelBase_Scalar* scalarChannel_ = nullptr;
  ChannelBase_Vector* vectorChannel_ = nullptr;
  Test test_ = Test::Inside;
  double low_ = 0, high_ = 1, maxLength_ = 10;
  bool useCurve_ = true;
  const SplineData* curve_ = nullptr;
};

}  // namespace orlix
