#pragma once
// A volume from two others: their union, intersection, difference, or a blend that constraints may weigh place by
// place. Its inputs may be such volumes again. It is made anew when an input, its own settings or a constraint changed.

#include <optional>

#include "fluids/constraints/RowWeights.h"
#include "fluids/surfacing/LevelSetCombination.h"
#include "fluids/volumes/VolumeBase.h"

namespace orlix {

class CSGoperatorGrid final : public VolumeBase {
 public:
  static constexpr int kOperationId = 1000, kOffsetId = 1001, kFirstId = 1002, kSecondId = 1003, kSwapId = 1006,
                       kBlendId = 1007, kBlendValueId = 1008, kBlendModeId = 1009;
  using Operation = CombinationSettings::Operation;
  using BlendMode = CombinationSettings::BlendMode;

  CSGoperatorGrid(BaseList2D* hostObject, OrlixScene& owner);
  static const TypeInfo& Type();

  std::int32_t GetNodeSubType() const override { return 79; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void Conclude() override;
  // Whether one of its inputs is this node.
  bool TakesIn(const iBase& node) const { return inputs_[0].node == &node || inputs_[1].node == &node; }
  // Of equal priorities, the inputs go first.
  bool ComesBefore(const iBase& other) const override;
  void CheckDirty() override;
  bool IsDirty() const override;
  void ResetSimulation() override;
  // From the inputs' boxes.
  void ComputeBounds() override;
  bool ForecastBox(Vec3D& min, Vec3D& max) const override;
  MemoryNeed MemoryFor(const VecInt3D& cells) const override;
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;

 private:
  // A volume that a link names.
  struct Input {
    iBase* node = nullptr;
    iLevelSet* levelSet = nullptr;
  };

  Input FindInput(int linkId) const;
  void AdviseInput(int linkId, const char* key) const;
  bool IsMadeOf(const iBase& other) const;
  bool HasBothInputs() const;
  bool InputsChanged();
  double Swelling() const;
  // The result's box of the first's, min to max, and of the second's.
  void CombineBoxes(Vec3D& min, Vec3D& max, const Vec3D& secondMin, const Vec3D& secondMax) const;

  CombinationSettings settings_;
  double blend_ = 0.5;
  bool swap_ = false;

  // Between ResolveLinks and ReleaseLinks.
  Input inputs_[2];
  std::vector<Constraint*> filters_;

  RowWeights weights_;
  // The forecast of this reading of parameters: an input may be that of many, and be asked by each.
  struct Forecast {
    bool known = false;
    Vec3D min, max;
  };
  mutable std::optional<Forecast> forecast_;
  std::uint64_t seen_[2] = {};  // versions of the inputs, and whose they are
  const iBase* seenNodes_[2] = {};
  bool made_ = false;
  bool everMet_ = false, neverMet_ = false;  // the inputs' boxes, at some time and at some other
};

}  // namespace orlix
