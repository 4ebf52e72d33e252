#pragma once
// Fills scalar channels inside a volume, cell by cell of the volume's own level set.
//
// Workers divide the layers of the channels, not those of the volume: each goes through the volume's cells in their
// order and writes only its own layers, so that what meets in one cell meets there in one order whatever their number.

#include <atomic>
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
  void Advise() override;
  void Conclude() override;
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
    std::vector<double> distances;  // of the cells, as the mean of their corners
    std::vector<std::uint8_t> open;
    std::vector<double> amounts;  // of each source in turn
  };

  // How far it came towards a value in a cell, since the run began.
  enum class Progress : std::int32_t { Idle, Linked, Acting, InContainer, Emitted };
  void Reach(Progress progress);
  void AdvisePlace();
  void WarnOutside(const std::string& containers);
  void WarnOfPlace();
  void TellOfObstacles();
  bool PrepareSources();
  std::size_t RowValues() const { return static_cast<std::size_t>(rowCells_) * sources_.size(); }
  void AskConstraints();
  void EmitRow(std::size_t member, std::int32_t j, std::int32_t k, std::int32_t worker, const LayerRange& layers);
  const double* FindAmounts(const VolumeBase& member, std::int32_t j, std::int32_t k, std::int32_t worker);
  void FindAmounts(const VolumeBase& member, std::size_t source, std::int32_t j, std::int32_t k, std::int32_t worker);

  std::vector<double> weights_;  // of each pair
  std::vector<Source> sources_;
  std::vector<VolumeBase*> members_;
  std::vector<LayerRange> layers_;  // of the channels, one a worker
  std::vector<RowScratch> scratch_;
  std::vector<ScratchPool::Lease<double>> asked_;  // rows of amounts of each member, where there are constraints
  std::int32_t rowCells_ = 0;
  std::atomic<Progress> progress_{Progress::Idle};
  bool lookedForObstacles_ = false;
};

}  // namespace orlix
