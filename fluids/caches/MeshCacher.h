#pragma once
// Records the meshes of meshers, one file a frame, and plays them back in stage 21 in place of the meshing. Entries go
// by position: mesher i of the list has entry i.

#include "fluids/caches/Cache_OperatorBase.h"
#include "fluids/caches/MeshFrameFile.h"
#include "fluids/surfacing/ImplicitMesher.h"

namespace orlix {

// What one frame file holds.
struct MeshCacheInfo {
  bool found = false;
  std::vector<MeshEntryHeader> meshes;
};

class MeshCacher final : public Cache_OperatorBase {
 public:
  MeshCacher(BaseList2D* object, OrlixScene& owner);
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 56; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_MESH); }
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  // Before its meshers, which then make nothing.
  bool ComesBefore(const iBase& other) const override;
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;
  void Finish() override;
  bool PlaysBack(const iBase& node) const override;

  // Reads what the frame to load holds, without its bulk.
  MeshCacheInfo ReadFrameInfo() const;
  std::string FrameText() const override;

  static constexpr std::int32_t kMeshersId = 1012, kActiveInId = 1018, kDigitsId = 1020;

 protected:
  Ids GetIds() const override { return {kActiveInId, kDigitsId, kMeshExtensions}; }
  bool HasTargets() const override { return !meshers_.empty(); }

 private:
  void Load();
  void Save();

  std::vector<ImplicitMesher*> meshers_;
  PolygonObject loaded_;  // keeps its memory from frame to frame
};

}  // namespace orlix
