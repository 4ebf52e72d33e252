#pragma once
// Visits every cell of one channel and lets a list of channel operators change it.

#include <memory>
#include <vector>

#include "fluids/constraints/Constraint.h"
#include "fluids/emitters/ChannelOperator.h"
#include "fluids/grids/WorkSplit.h"

namespace orlix {

class Grid_CellEmitter final : public iObject {
 public:
  using iObject::iObject;
  static const TypeInfo& Type();
  std::int32_t GetNodeBaseType() const override { return NODE_EMITTER; }
  std::int32_t GetNodeSubType() const override { return 5; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_GRID); }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void CheckDirty() override;
  void Prepare(iBase* caller = nullptr) override;
  void Setup() override;
  void Process(ProcessData& data) override;
  void Finish() override;
  void VisitOutputs(StateVisitor& visitor) override;

 private:
  iBase* Target() const;
  ScalarGrid* TargetGrid() const;
  void CollectConstraints();

  ChannelBase_Scalar* scalarTarget_ = nullptr;
  ChannelBase_Vector* vectorTarget_ = nullptr;
  std::vector<ChannelOperator*> operators_;
  // Clones of this emitter's own, from Prepare to Finish.
  std::vector<std::unique_ptr<Constraint>> clones_;
  std::vector<Constraint*> chain_;
  LayerSlabs slabs_;
};

}  // namespace orlix
