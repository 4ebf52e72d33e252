#pragma once
// What the operators that walk a channel's cells share: constraints, falloffs, slabs of layers for the workers.

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"
#include "fluids/constraints/CellWeights.h"
#include "fluids/grids/WorkSplit.h"

namespace orlix {

inline constexpr std::int32_t kFalloffsId = 2503;

// The row of the falloff list, for the tables of operators that take one.
constexpr Parameter FalloffListParameter() {
  return ListParameter(kFalloffsId, "falloffs", kLinkFalloff, "Falloff objects that weigh the places");
}

class GridOperator : public iObject {
 public:
  // ownStage and ownPriority are the class's; the user's settings come on top.
  GridOperator(BaseList2D* object, OrlixScene& owner, Stage ownStage, std::int32_t ownPriority)
      : iObject(object, owner), ownStage_(ownStage), ownPriority_(ownPriority) {}
  std::int32_t GetNodeBaseType() const override { return NODE_OPERATOR; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_GRID); }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  // While the time moves there is work, and the channels that it writes are dirty.
  void CheckDirty() override;
  void Finish() override;
  void VisitOutputs(StateVisitor& visitor) override;

 protected:
  // The channels that the operator writes; null entries are left out.
  virtual std::vector<iBase*> WrittenChannels() const = 0;

  // Tells that nothing happens without the channel of this row, where it isn't found.
  void AdviseLink(const void* channel, const char* key) const;
  // A cache plays the channel back: it is read and not changed.
  static bool IsPlayed(const iBase* channel) { return channel && channel->HasFlag(NodeFromCache); }
  // The row of a channel that the operator changes in place; of a played one a copy.
  static double* RowToChange(ScalarGrid* grid, const iBase* channel, std::int64_t index, std::vector<double>& copy);

  ChannelBase_Scalar* LinkedScalar(std::int32_t linkId) const;
  static bool HasStorage(const ChannelBase_Scalar* channel) {
    return channel && channel->IsEnabled() && channel->grid && channel->grid->count > 0;
  }
  static bool HasStorage(const ChannelBase_Vector* channel);
  // The grid of a channel with storage on this lattice; null without. One on another lattice is reported.
  ScalarGrid* GridOn(const ScalarGrid& lattice, ChannelBase_Scalar* channel);

  // Prepares the constraints and asks all cells for which needed(linear index) holds; see CellWeights. Then divides the
  // inner layers among the workers. False when there are none.
  template <class Needed>
  bool PrepareCells(const ScalarGrid& grid, double start, Needed&& needed) {
    for (Constraint* constraint : constraints_) constraint->Prepare(this);
    weights_.Build(*scene, this, constraints_, falloffs_, grid, start, needed);
    return SplitLayers(slabs_, grid.dims, false, scene->threadCount);
  }
  // f(j, k, index of the row's cell 0) for each inner row of the worker's slab, to a break.
  template <class F>
  void ForEachRow(const ProcessData& data, const ScalarGrid& grid, F&& f) const {
    if (!IsActive() || !slabs_.Has(data.threadIndex)) return;
    const VecInt3D &min = slabs_.rangeMin[data.threadIndex], &max = slabs_.rangeMax[data.threadIndex];
    for (std::int32_t k = min.z; k < max.z; ++k) {
      if (data.hostThread && data.hostThread->TestBreak()) return;
      for (std::int32_t j = min.y; j < max.y; ++j) f(j, k, grid.Index(0, j, k));
    }
  }

  std::vector<Constraint*> constraints_;
  std::vector<FalloffEntry> falloffs_;
  CellWeights weights_;
  LayerSlabs slabs_;

 private:
  Stage ownStage_;
  std::int32_t ownPriority_;
};

}  // namespace orlix
