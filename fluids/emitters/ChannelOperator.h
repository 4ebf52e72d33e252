#pragma once
// A channel operator changes the cells of one channel. It has no stage of its own: Grid_CellEmitter visits the cells
// and asks its operators in list order, a row of cells at a time, so that nothing virtual happens per cell.
//
//   for each pass:  op.AttachInput(channel); op.Prepare(emitter); op.Setup();
//   on all workers: op.ProcessRow(row) for the rows of the worker's own slab
//   afterwards:     op.Finish();

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"
#include "fluids/grids/CellRow.h"

namespace orlix {

struct ChannelRow : CellRow {
  std::int64_t index = 0;           // linear index of the row's cell i = 0 in the channel's grids
  const double* weights = nullptr;  // what the emitter's constraints left of 1; a cell with 0 isn't to be changed
};

class ChannelOperator : public iObject {
 public:
  using iObject::iObject;
  std::int32_t GetNodeBaseType() const override { return NODE_HELPER; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_GRID); }

  // The channel to change, scalar or vector. Before Prepare, in each pass.
  void AttachInput(iBase* channel) override {
    scalarTarget_ = dynamic_cast<ChannelBase_Scalar*>(channel);
    vectorTarget_ = dynamic_cast<ChannelBase_Vector*>(channel);
  }
  void ReleaseLinks() override {
    scalarTarget_ = nullptr, vectorTarget_ = nullptr;
    iObject::ReleaseLinks();
  }
  // Changes the row's cells, and no others. Called by all workers at once on different rows.
  virtual void ProcessRow(const ChannelRow& row) = 0;

 protected:
  // That of a component, of which a scalar target has one; null without a cell.
  ScalarGrid* TargetGrid(int component = 0) const {
    ScalarGrid* grid = scalarTarget_   ? scalarTarget_->grid.get()
                       : vectorTarget_ ? vectorTarget_->grids[static_cast<std::size_t>(component)].get()
                                       : nullptr;
    return grid && grid->count > 0 ? grid : nullptr;
  }

  ChannelBase_Scalar* scalarTarget_ = nullptr;
  ChannelBase_Vector* vectorTarget_ = nullptr;
};

}  // namespace orlix
