#pragma once
// Arithmetic on a channel's cells, with a number, a vector, or another channel.

#include <array>

#include "fluids/channels/LatticeRows.h"
#include "fluids/operators/OperatorWeights.h"

namespace orlix {

enum class MathOperation : std::int32_t { Add = 0, Subtract = 1, Multiply = 2, Dot = 3, Min = 4, Max = 5 };

// cell = cell op (operand x amount) for the cells [begin, end); pointers stand at cell 0. A cell with amount 0 stays.
// Dot multiplies. Unknown operations leave the cells. operands may be null: then constant is the operand.
void MathRow(MathOperation operation, double* cells, const double* operands, double constant, const double* amounts,
             std::int32_t begin, std::int32_t end);

class ChannelOperator_Math final : public ChannelOperator {
 public:
  using ChannelOperator::ChannelOperator;
  static constexpr int kSourceId = 1000, kOperationId = 1001, kValueId = 1002, kVectorValueId = 1003,
                       kUseVectorId = 1005;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 106; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Prepare(iBase* caller = nullptr) override;
  void ProcessRow(const ChannelRow& row) override;
  void Finish() override;

 private:
  // A component's operand where there is no source.
  double ConstantOf(int component) const;
  void ProcessVector(const ChannelRow& row, const double* amounts);

  ChannelBase_Scalar* scalarSource_ = nullptr;
  ChannelBase_Vector* vectorSource_ = nullptr;
  std::array<LatticeRows, 3> sources_;  // the first alone of a scalar source
  MathOperation operation_ = MathOperation::Add;
  double scalarValue_ = 1;
  Vec3D vectorValue_;
  bool useVector_ = false;
  OperatorWeights weights_;
};

}  // namespace orlix
