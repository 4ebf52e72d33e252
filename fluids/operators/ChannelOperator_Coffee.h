#pragma once
// The user's own formula for a channel's cells: what a script returns takes the place of a cell.

#include "fluids/operators/OperatorWeights.h"
#include "fluids/scripts/NodeScripts.h"

namespace orlix {

class ChannelOperator_Coffee final : public ChannelOperator {
 public:
  using ChannelOperator::ChannelOperator;
  static constexpr int kIntensityId = 1000;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 107; }
  bool ReadParameters() override;
  void Advise() override;
  void Prepare(iBase* caller = nullptr) override;
  void ProcessRow(const ChannelRow& row) override;
  void Finish() override;

 private:
  // The cells [first, first + count) of a row, with the weight of each.
  void ProcessBatch(const ChannelRow& row, std::int32_t first, std::int32_t count, const double* weights);

  C4D_CoffeeGui_ChannelOperator gui_;
  struct {
    const script::Input *intensity, *position, *value, *index;
  } variables_ = {};  // those that the script reads
  OperatorWeights weights_;
  double intensity_ = 1;
};

}  // namespace orlix
