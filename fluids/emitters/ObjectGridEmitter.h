#pragma once
// Fills scalar channels inside a volume, cell by cell of the volume's own level set.
//
// Workers divide the layers of the channels, not those of the volume: each goes through the volume's cells in their
// order and writes only its own layers, so that what meets in one cell meets there in one order whatever their number.

#include <vector>

#include "fluids/channels/ChannelPair.h"
#include "fluids/constraints/Constraint.h"
#include "fluids/emitters/GridEmissionSettings.h"
#include "fluids/volumes/ObjectVolume.h"

namespace orlix {

class VolumeBase;

class ObjectGridEmitter final : public ObjectVolume {
 public:
  ObjectGridEmitter(BaseList2D* object, OrlixScene& owner);
  static constexpr int kPairsId = 1000, kVolumeId = 1002;
  static const TypeInfo& Type();

  std::int32_t GetNodeBaseType() const override { return NODE_EMITTER; }
  std::int32_t GetNodeSubType() const override { return 4; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_GRID); }
  // By the volume, when it has a level set.
  void ExtendBounds(Vec3D& min, Vec3D& max) override;
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void CheckDirty() override;
  bool ComesBefore(const iBase& other) const override;
  void Prepare(iBase* caller = nullptr) override;
  void Setup() override;
  void Process(ProcessData& data) override;
  void Finish() override;
  void VisitOutputs(StateVisitor& visitor) override;

  std::vector<ChannelPair*> pairs;  // between ResolveLinks and ReleaseLinks
  std::vector<Constraint*> constraints;

 private:
  // A pair that emits in this sub-step.
  struct Source {
    const GridEmissionSettings* settings;
    GridEmissionWriter writer;
    const GridSpace* target;
    double weight;
    double amount;
  };
  // A worker's row of the volume.
  struct RowScratch {
    std::vector<std::uint8_t> inside, open;
    std::vector<double> amounts;  // of each source in turn
  };

  bool PrepareSources();
  void EmitRow(const VolumeBase& member, std::int32_t j, std::int32_t k, std::int32_t worker, const LayerRange& layers);
  void FindAmounts(const VolumeBase& member, std::size_t source, std::int32_t j, std::int32_t k, std::int32_t worker);

  std::vector<double> weights_;  // of each pair
  std::vector<Source> sources_;
  std::vector<VolumeBase*> members_;
  std::vector<LayerRange> layers_;  // of the channels, one a worker
  std::vector<RowScratch> scratch_;
  std::int32_t rowCells_ = 0;
};

}  // namespace orlix
