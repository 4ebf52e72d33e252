#include "fluids/caches/MeshCacher.h"

#include <fmt/format.h>

#include <algorithm>
#include <new>

#include "fluids/caches/CacheRows.h"
#include "fluids/caches/GridFrameFile.h"

namespace orlix {

namespace fs = std::filesystem;

const TypeInfo& MeshCacher::Type() {
  using namespace cache_rows;
  static constexpr Parameter kParameters[] = {
      ListParameter(kMeshersId, "meshers", kLinkGeometry,
                    "Whose meshes are cached; a file's meshes go by their place in this list"),
      kMode,
      kRenderOnly,
      kFolderSource,
      kChooseFolder,
      kFolder,
      Stem("What file names begin with; orlix_mesh_c4d when empty"),
      Digits(kDigitsId),
      ChoiceParameter(kFormatId, "format", Format::Cache, kCacheFormat, "Kind of the files"),
      CompressionRow("How meshes are stored"),
      cache_rows::kNumbering,
      kFrame,
      kFrameOffset,
      kReverse,
      ActiveIn(kActiveInId),
      BoolParameter(1005, "stored", false, "Kept with the scene, without an effect").Hidden().Unread(),
      kFrameText,
      kFolderText,
      DeleteButton(1016),
  };
  static const TypeInfo kType = {
      .id = kMeshCacheTypeId,
      .resource = "zq_cache_mesh",
      .className = "C4D_Operator_MeshCache_Object",
      .label = "MOP::Cacher",
      .text =
          "Records the meshes of meshers as mesh operators left them, one compact file a frame, and plays them back in "
          "place of the meshing.",
      .kinds = kLinkCache,
      .parameters = kParameters,
      .common = PlainNodeParameters(),
  };
  return kType;
}

MeshCacher::MeshCacher(BaseList2D* object, OrlixScene& owner) : Cache_OperatorBase(object, owner, kMeshCacheStem) {
  stageMask = StageBit(kStageLoadCache) | StageBit(kStageSaveCache) | StageBit(kStageMeshing);
}

bool MeshCacher::ResolveLinks() {
  if (!Cache_OperatorBase::ResolveLinks()) return false;
  meshers_.clear();
  if (const InExcludeData* list = handler.GetInExclude(kMeshersId)) {
    for (const InExcludeData::Entry& entry : list->entries) {
      const BaseObject* object = handler.GetDocument()->FindObject(entry.target);
      if (auto* mesher = scene->RetrieveAs<ImplicitMesher>(object, NODE_VOLUME)) meshers_.push_back(mesher);
    }
  }
  return true;
}

void MeshCacher::ReleaseLinks() {
  meshers_.clear();
  Cache_OperatorBase::ReleaseLinks();
}

bool MeshCacher::ComesBefore(const iBase& other) const {
  return Cache_OperatorBase::ComesBefore(other) ||
         std::find(meshers_.begin(), meshers_.end(), &other) != meshers_.end();
}

bool MeshCacher::PlaysBack(const iBase& node) const {
  const InExcludeData* list = handler.GetInExclude(kMeshersId);
  return list && handler.GetChoice(kModeId) == static_cast<int>(CacheMode::Playback) &&
         list->Contains(node.handler.hostObject()->creationNumber());
}

void MeshCacher::Prepare(iBase*) {
  const bool playing = mode() == CacheMode::Playback;
  if (scene->stage == kStageLoadCache) {
    for (ImplicitMesher* mesher : meshers_) mesher->TakePlayed(nullptr);
  }
  SetFlag(NodeActive, false);
  if (!TakesPart()) return;
  SetFlag(NodeActive, scene->stage == kStageSaveCache ? !playing : playing);
  if (scene->stage != kStageSaveCache || playing) return;
  if (const Status folder = name_.CheckFolder(true); !folder.ok()) {
    SetFlag(NodeActive, false);
    FailSaving(folder);
  }
}

void MeshCacher::Process(ProcessData&) {
  if (!IsActive() || !IsDirty()) return;
  if (scene->stage == kStageMeshing && mode() != CacheMode::Record) Load();
  if (scene->stage == kStageSaveCache && mode() != CacheMode::Playback) Save();
}

void MeshCacher::Finish() {
  FinishPass();
  SetFlag(NodeActive, false);
}

// A mesher that the file has no mesh for shows none. Meshers behind a broken chunk make their own.
void MeshCacher::Load() {
  HyperFile file;
  fs::path path;
  if (!OpenFrame(file, path)) return;
  std::int32_t count = 0;
  Status status = ReadMeshFrameHead(file, path.string(), count);
  if (status.ok() && count < static_cast<std::int32_t>(meshers_.size())) {
    status = Status::Fail(ErrorKind::InputFile,
                          fmt::format("{} holds {} meshes, the cache lists {}", path.string(), count, meshers_.size()));
  }
  for (std::size_t i = 0; status.ok() && i < meshers_.size(); ++i) {
    bool present = false;
    try {
      status = ReadMeshChunk(file, path.string(), loaded_, present);
    } catch (const std::bad_alloc&) {
      status = Status::Fail(ErrorKind::Memory, path.string() + ": no memory for its meshes");
    }
    if (!present) loaded_ = {};
    if (status.ok()) meshers_[i]->TakePlayed(&loaded_);
  }
  if (!status.ok()) TellUnloaded(status.error().text);
}

void MeshCacher::Save() {
  const bool behind = scene->WritesBehind();
  auto copies = std::make_shared<std::vector<PolygonObject>>();
  std::vector<const PolygonObject*> meshes;
  copies->reserve(meshers_.size());
  for (const ImplicitMesher* mesher : meshers_) {
    const PolygonObject* shown = mesher->Shown();
    if (shown && behind) {
      copies->push_back(*shown);
      shown = &copies->back();
    }
    meshes.push_back(shown);
  }
  SaveFrame([copies, meshes, packed = compression_ == Compression::Packed](
                HyperFile& file, const std::string& number) { return WriteMeshFrame(file, meshes, packed, number); },
            behind);
}

MeshCacheInfo MeshCacher::ReadFrameInfo() const {
  MeshCacheInfo info;
  const fs::path path = PathToLoad();
  HyperFile file;
  std::int32_t count = 0;
  if (!file.Open(kFrameFileIdent, path, HyperFile::Mode::Read)) return info;
  info.found = ReadMeshFrameHead(file, path.string(), count).ok();
  for (MeshEntryHeader header; info.found && count > 0 && ReadMeshChunkHead(file, path.string(), header).ok();
       --count) {
    info.meshes.push_back(header);
  }
  return info;
}

std::string MeshCacher::FrameText() const {
  const MeshCacheInfo info = ReadFrameInfo();
  MeshEntryHeader most;
  for (const MeshEntryHeader& mesh : info.meshes) {
    most.polygons = std::max(most.polygons, mesh.polygons);
    most.points = std::max(most.points, mesh.points);
  }
  return fmt::format("Meshers: {}\nMax. Polygons: {}\nMax. Points: {}\n", info.meshes.size(), most.polygons,
                     most.points);
}

}  // namespace orlix
