#pragma once
// Lets a channel fade towards its background.

#include "fluids/operators/GridOperator.h"

namespace orlix {

// Values above the background fall by weight x step, but not below it; values below it become it. Weights of 0 leave a
// value that is above.
struct DissipateRow {
  std::int32_t begin = 0, end = 0;
  double* values = nullptr;
  const double* weights = nullptr;
};
void Dissipate(double background, double step, const DissipateRow& row);

// Three components: they fall together where all are above their backgrounds, and become them where all are below.
void DissipateVector(const Vec3D& background, double step, std::int32_t begin, std::int32_t end,
                     double* const values[3], const double* weights);

class GridDissipate final : public GridOperator {
 public:
  GridDissipate(BaseList2D* object, OrlixScene& owner) : GridOperator(object, owner, kStageChannelsOperators, 21) {}
  static constexpr int kChannelId = 1000, kRateId = 1001;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 60; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void Advise() override;
  void ReleaseLinks() override;
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;

 protected:
  std::vector<iBase*> WrittenChannels() const override { return {scalar_, vector_}; }

 private:
  ChannelBase_Scalar* scalar_ = nullptr;
  ChannelBase_Vector* vector_ = nullptr;
  double rate_ = 0, step_ = 0;
};

}  // namespace orlix
