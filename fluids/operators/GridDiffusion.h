#pragma once
// Blurs a channel: by a Gaussian in three passes along the axes, or towards the mean of the neighbours.

#include "fluids/operators/GridOperator.h"

namespace orlix {

enum class DiffusionMode : std::int32_t { Gaussian = 0, Neighbours = 1, Raise = 2 };

// 2 r + 1 weights exp(-d^2 / alpha^2), normalised; r = 3 alpha, cut to an integer and to limit.
std::vector<double> GaussianKernel(double alpha, std::int32_t limit);

// One axis of the Gaussian at the inner cells of layers [kBegin, kEnd). Taps outside the grid are left out, with their
// weights. A sum that isn't 0 gives min(sum / weights + min, max), any other the source's value.
struct DiffusionLimits {
  double min = 0, max = 1;
};
void DiffuseAlong(int axis, std::span<const double> kernel, const DiffusionLimits& limits,
                  const GridView<const double>& source, const GridView<double>& result, std::int32_t kBegin,
                  std::int32_t kEnd);

// (source + alpha x the sum of the six neighbours) / (1 + 6 alpha) at the inner cells of layers [kBegin, kEnd); with
// raise, the larger of it and what the result holds.
void DiffuseNeighbours(double alpha, bool raise, const GridView<const double>& source, const GridView<double>& result,
                       std::int32_t kBegin, std::int32_t kEnd);

class GridDiffusion final : public GridOperator {
 public:
  GridDiffusion(BaseList2D* object, OrlixScene& owner) : GridOperator(object, owner, kStageChannelsOperators, 30) {}
  static constexpr int kAlphaId = 1001, kRoundsId = 1002, kChannelId = 1003, kModeId = 1005;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 92; }
  bool IsIterated() const override { return true; }
  bool PreparesEachIteration() const override { return true; }
  bool NextIteration() override;
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void Advise() override;
  void ReleaseLinks() override;
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;
  void Finish() override;

 protected:
  std::vector<iBase*> WrittenChannels() const override { return {scalar_, vector_}; }

 private:
  ScalarGrid* Target() const;
  void PrepareGaussian(ScalarGrid& grid);
  void PrepareNeighbours(ScalarGrid& grid);

  ChannelBase_Scalar* scalar_ = nullptr;
  ChannelBase_Vector* vector_ = nullptr;
  double strength_ = 0;  // 1/s
  double alpha_ = 0;     // of this sub-step
  std::int32_t rounds_ = 1;
  DiffusionMode mode_ = DiffusionMode::Neighbours;
  std::int32_t round_ = 0, component_ = 0;
  std::vector<double> kernel_;
  DiffusionLimits limits_;
  ScratchPool::Lease<double> source_, result_;  // of a Gaussian: the pass before, and this one
  GridView<const double> from_;
  GridView<double> to_;
};

}  // namespace orlix
