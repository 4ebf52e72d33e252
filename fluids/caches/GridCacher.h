#pragma once
// Records the grids of chosen nodes, one file a frame, and plays them back in place of the computation.
//
// In playback stage 0 reads all headers, so that containers get the cached lattices, and stage 5 reads the grids, in
// each sub-step before the emitters; other lattices are resampled. Level sets come in stage 3, before what is made of
// them there; velocities of solvers in stage 7: what they carry moves in stage 6, by what the sub-step before left. In
// record mode stage 17 writes what is there.
// Entries go by position: node i of the list has entry i, and a volume of n objects n of them.

#include "fluids/caches/Cache_OperatorBase.h"
#include "fluids/caches/GridFrameFile.h"

namespace orlix {

// What one frame file holds.
struct GridCacheInfo {
  bool found = false;
  GridSpace space;
  VecInt3D maxDims;
  std::vector<std::uint32_t> gridTypes;
};

class GridCacher final : public Cache_OperatorBase {
 public:
  GridCacher(BaseList2D* object, OrlixScene& owner);
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 54; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_GRID); }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;
  void Finish() override;
  bool PlaysBack(const iBase& node) const override;
  // The grids that it loaded.
  void VisitOutputs(StateVisitor& visitor) override;

  // Reads the head of the frame to load.
  GridCacheInfo ReadFrameInfo() const;
  std::string FrameText() const override;

  static constexpr std::int32_t kNodesId = 1012, kInterpolationId = 1020, kActiveInId = 1018, kDigitsId = 1021;

 protected:
  Ids GetIds() const override { return {kActiveInId, kDigitsId, kGridExtensions}; }
  bool HasTargets() const override { return !nodes_.empty(); }

 private:
  // Any node may stand in the list and has its entry; one without grids has an empty one.
  struct Target {
    iBase* node;
    iCachedGrids* grids;  // null when it has none to offer
  };

  // Of the listed nodes. A volume of many objects stands for its members, each with an entry of its own, in the order
  // of its list.
  void FindTargets();
  void TakeHeaders();
  bool ReadHead(HyperFile& file, const std::filesystem::path& path, GridFrameHead& head);
  void ForgetHeaders(std::size_t first);
  bool Loads() const {
    return scene->stage == kStageVolumes || scene->stage == kStageEmitters || scene->stage == kStageOperators;
  }
  // Whether the grids of a node are read in this stage.
  bool LoadsNow(const Target& target) const;
  void Load(const BaseThread* hostThread);
  void Save();

  std::vector<iBase*> nodes_;  // as listed
  std::vector<Target> targets_;
  std::int32_t interpolation_ = 0;
};

}  // namespace orlix
