#pragma once
// Records chosen populations of particle groups, one file a frame, and plays them back.
//
// In playback stage 0 reads the head: played kinds are kept, which resets, emitters and movers leave alone. Stage 5
// reads the particles in each sub-step. Entries go by position: population i of the list has entry i.

#include "fluids/caches/Cache_OperatorBase.h"
#include "fluids/caches/ParticleRuns.h"
#include "fluids/particles/GroupList.h"

namespace orlix {

// What one frame file holds.
struct ParticleCacheInfo {
  bool found = false;
  std::vector<std::int64_t> counts;  // of each population
};

class ParticleCacher final : public Cache_OperatorBase {
 public:
  ParticleCacher(BaseList2D* object, OrlixScene& owner);
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 55; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_PARTICLE); }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;
  void Finish() override;
  bool PlaysBack(const iBase& node) const override;

  // Reads the head of the frame to load.
  ParticleCacheInfo ReadFrameInfo() const;
  std::string FrameText() const override;

  static constexpr std::int32_t kSpeedId = 1005, kGroupsId = 1012, kActiveInId = 1016, kPropertiesId = 1019,
                                kDigitsId = 1021;

 protected:
  Ids GetIds() const override { return {kActiveInId, kDigitsId, kParticleExtensions}; }
  bool HasTargets() const override { return !targets_.empty(); }
  double Speed() const override { return speed_; }

 private:
  void Release(std::size_t first);
  void TakeHeaders();
  void Load();
  Status LoadEntry(HyperFile& file, const std::string& fileName, const ParticleEntryHeader& header,
                   const GroupEntry& target);
  void Place(ParticleRunData& run, const GridSpace& space, double t) const;
  void Save();
  void LoadExchange();
  void SaveExchange();
  // Whether the frame to load is there in the format of another program.
  bool HasExchangeFrame();
  void Weigh(ParticleList& list, std::int32_t first, std::int32_t count, const Vec3D* places, double* weights) const;

  std::vector<GroupEntry> targets_;
  PropertyFilter filter_;
  double speed_ = 1;
};

}  // namespace orlix
