#pragma once
// A channel through a gradient: each cell's value becomes what the gradient has at it.

#include "fluids/operators/OperatorWeights.h"

namespace orlix {

class ChannelOperator_Remap final : public ChannelOperator {
 public:
  using ChannelOperator::ChannelOperator;
  static constexpr int kGradientId = 1000;
  static const TypeInfo& Type();
  bool ReadParameters() override;
  void Advise() override;
  void Prepare(iBase* caller = nullptr) override;
  void ProcessRow(const ChannelRow& row) override;
  void Finish() override;

 private:
  const Gradient* gradient_ = nullptr;
  OperatorWeights weights_;
};

}  // namespace orlix
