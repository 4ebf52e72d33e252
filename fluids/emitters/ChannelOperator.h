#pragma once
// A channel operator changes the cells of one channel. It has no stage of its own: Grid_CellEmitter visits the cells
// and asks its operators in list order, a row of cells at a time, so that nothing virtual happens per cell.
//
//   for each pass:  op.AttachInput(channel); op.Prepare(emitter); op.Setup();
//   on all workers: op.ProcessRow(row) for the rows of the worker's own slab
//   afterwards:     op.Finish();

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"

namespace orlix {

// A run of cells along x. weights stands at cell i = 0 of the row: cell i's weight is weights[i].
struct ChannelRow {
  std::int32_t begin = 0, end = 0;  // cells [begin, end) of the row
  std::int32_t j = 0, k = 0;
  std::int32_t threadIndex = 0;
  const GridSpace* space = nullptr;  // of the cells
  std::int64_t index = 0;            // linear index of the row's cell i = 0 in the channel's grids
  const double* weights = nullptr;   // what the emitter's constraints left of 1; a cell with 0 isn't to be changed

  // Cell centre in simulation space.
  Vec3D Position(std::int32_t i) const { return Vec3D(i + 0.5, j + 0.5, k + 0.5) * space->simPerVoxel + space->simMin; }
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
  // Changes the row's cells, and no others. Called by all workers at once on different rows.
  virtual void ProcessRow(const ChannelRow& row) = 0;

 protected:
  ChannelBase_Scalar* scalarTarget_ = nullptr;
  ChannelBase_Vector* vectorTarget_ = nullptr;
};

}  // namespace orlix
