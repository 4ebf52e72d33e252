#pragma once
// Visits every cell of one channel and lets a list of channel operators change it.

#include <memory>
#include <vector>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"
#include "fluids/constraints/CellWeights.h"
#include "fluids/emitters/ChannelOperator.h"
#include "fluids/grids/WorkSplit.h"

namespace orlix {

class Grid_CellEmitter final : public iObject {
 public:
  class Grid_CellEmitterPortData : public iPortData {
   public:
    ChannelBase_Scalar* scalarTarget = nullptr;  // at most one of the two
    ChannelBase_Vector* vectorTarget = nullptr;
    std::vector<ChannelOperator*> operators;
    std::vector<std::unique_ptr<Constraint>> constraints;  // the emitter's own clones, for a sub-step
  };

  Grid_CellEmitter(BaseList2D* object, OrlixScene& owner);
  static constexpr int kChannelId = 1000, kOperatorsId = 1001;
  static const TypeInfo& Type();

  std::int32_t GetNodeBaseType() const override { return NODE_EMITTER; }
  std::int32_t GetNodeSubType() const override { return 5; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_GRID); }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void Advise() override;
  void ReleaseLinks() override;
  void CheckDirty() override;
  void Prepare(iBase* caller = nullptr) override;
  void Setup() override;
  void Process(ProcessData& data) override;
  void Finish() override;
  void VisitOutputs(StateVisitor& visitor) override;

 private:
  iObject* Target() const;
  const ScalarGrid* FirstGrid() const;
  void CloneConstraints();
  void ProcessRow(const ScalarGrid& grid, std::int32_t j, std::int32_t k, std::int32_t worker);

  Grid_CellEmitterPortData ports_;
  LayerSlabs slabs_;
  CellWeights weights_;
  std::vector<Constraint*> constraints_;  // of the clones
};

}  // namespace orlix
