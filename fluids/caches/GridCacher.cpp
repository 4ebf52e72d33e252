#include "fluids/caches/GridCacher.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>

#include "fluids/volumes/MultiVolume.h"

namespace orlix {

namespace fs = std::filesystem;

namespace {

// Containers are handed on in simulation space, and the way there from host space and back rounds: a played lattice
// would come out one bit beside the recorded one, and be resampled. Of the corners some bits around the given one, the
// one whose way back ends on the recorded origin.
double SettledCorner(double corner, double origin, double hostCell, double cell) {
  double low = corner, high = corner;
  for (int bits = 0; bits < 4; bits++) {
    if (hostCell * low / cell == origin) return low;
    if (hostCell * high / cell == origin) return high;
    low = std::nextafter(low, -std::numeric_limits<double>::infinity());
    high = std::nextafter(high, std::numeric_limits<double>::infinity());
  }
  return corner;
}

// All of the node's grids, or none when one is missing.
CachedGridSet GridsOf(iCachedGrids* node) {
  CachedGridSet grids;
  for (int i = 0; node && i < node->CachedGridCount(); i++) {
    const ScalarGrid* grid = node->CachedGrid(i);
    if (!grid || grid->count < 1) return {};
    grids.push_back(grid);
  }
  return grids;
}

using GridCopies = std::vector<std::unique_ptr<ScalarGrid>>;

// Copies for a writer beside the simulation; entries then name them. False, with entries as they were, without room.
bool CopyGrids(std::vector<CachedGridSet>& entries, GridCopies& copies) {
  std::vector<CachedGridSet> copied = entries;
  try {
    for (CachedGridSet& grids : copied) {
      for (const ScalarGrid*& grid : grids) {
        copies.push_back(std::make_unique<ScalarGrid>(*grid));
        grid = copies.back().get();
      }
    }
  } catch (const std::bad_alloc&) {
    copies.clear();
    return false;
  }
  entries = std::move(copied);
  return true;
}

}  // namespace

GridCacher::GridCacher(BaseList2D* object, OrlixScene& owner) : Cache_OperatorBase(object, owner, kGridCacheStem) {
  stageMask = StageBit(kStageLoadCache) | StageBit(kStageVolumes) | StageBit(kStageEmitters) |
              StageBit(kStageOperators) | StageBit(kStageSaveCache);
}

bool GridCacher::ReadParameters() {
  if (!Cache_OperatorBase::ReadParameters()) return false;
  interpolation_ = handler.GetChoice(kInterpolationId);
  return true;
}

bool GridCacher::ResolveLinks() {
  if (!Cache_OperatorBase::ResolveLinks()) return false;
  nodes_.clear();
  if (const InExcludeData* list = handler.GetInExclude(kNodesId)) {
    for (const InExcludeData::Entry& entry : list->entries) {
      iBase* node =
          scene->Retrieve(handler.GetDocument()->FindObject(entry.target), NODE_ALL, RETRIEVE_ANY, RETRIEVE_ANY);
      if (node) nodes_.push_back(node);
    }
  }
  return true;
}

void GridCacher::FindTargets() {
  targets_.clear();
  for (iBase* node : nodes_) {
    auto* many = dynamic_cast<MultiVolume*>(node);
    if (!many) {
      targets_.push_back({node, dynamic_cast<iCachedGrids*>(node)});
      continue;
    }
    if (scene->stage == kStageLoadCache) many->FindMembers();
    for (std::size_t n = 0; n < many->memberCount(); n++) targets_.push_back({&many->member(n), &many->member(n)});
  }
}

void GridCacher::ReleaseLinks() {
  nodes_.clear();
  targets_.clear();
  Cache_OperatorBase::ReleaseLinks();
}

void GridCacher::Prepare(iBase*) {
  if (Loads()) return;
  SetFlag(NodeActive, false);
  FindTargets();
  if (scene->stage == kStageSaveCache) {
    for (const Target& target : targets_) target.node->SetFlag(NodeFromCache, false);
  }
  if (!TakesPart()) return;
  if (scene->stage == kStageLoadCache && mode() == CacheMode::Playback) TakeHeaders();
  if (scene->stage == kStageSaveCache && mode() == CacheMode::Record) {
    const Status folder = name_.CheckFolder(true);
    if (!folder.ok()) return FailSaving(folder);
    SetFlag(NodeActive, true);
  }
}

bool GridCacher::ReadHead(HyperFile& file, const fs::path& path, GridFrameHead& head) {
  if (const Status read = ReadGridFrameHead(file, path.string(), head); !read.ok()) {
    TellUnloaded(read.error().text);
    return false;
  }
  if (head.entries.size() < targets_.size()) {
    TellUnloaded(path.string() + " holds " + std::to_string(head.entries.size()) + " grids, the cache lists " +
                 std::to_string(targets_.size()));
    return false;
  }
  for (std::size_t i = 0; i < targets_.size(); i++) {
    const auto kind = [](bool flow, bool distance) {
      return flow ? "a velocity" : distance ? "a level set" : "values of a channel";
    };
    const std::uint32_t type = head.entries[i].gridType;
    const std::int32_t base = targets_[i].node->GetNodeBaseType();
    const std::string held = kind(type == kGridVelocityU, type == kGridNodalLevelset);
    const std::string taken = kind(base == NODE_SOLVER, base == NODE_VOLUME);
    if (!head.entries[i].present || !targets_[i].grids || held == taken) continue;
    TellUnloaded(
        fmt::format("{} holds {} in place {}, where the cache lists \"{}\", which takes {}; list the nodes as "
                    "when it was recorded",
                    path.string(), held, i + 1, targets_[i].node->DisplayName(), taken));
    return false;
  }
  // A cache follows its object.
  for (GridCacheHeader& header : head.entries) {
    if (!header.present) continue;
    header.space.SetOrigin(header.space.hostMin + handler.GetMatrix().off);
    if (header.space.cellSize != scene->space.cellSize) continue;
    for (int axis = 0; axis < 3; axis++) {
      header.space.simMin[axis] = SettledCorner(header.space.simMin[axis], header.space.hostMin[axis],
                                                scene->space.hostSize[axis], header.space.cellSize);
    }
  }
  return true;
}

// No node stays marked as played back without data.
void GridCacher::ForgetHeaders(std::size_t first) {
  for (std::size_t i = first; i < targets_.size(); i++) {
    targets_[i].node->SetFlag(NodeFromCache, false);
    if (targets_[i].grids) targets_[i].grids->TakeCacheHeader({});
  }
}

void GridCacher::TakeHeaders() {
  ForgetHeaders(0);
  HyperFile file;
  fs::path path;
  GridFrameHead head;
  if (!OpenFrame(file, path) || !ReadHead(file, path, head)) return;
  for (std::size_t i = 0; i < targets_.size(); i++) {
    if (!targets_[i].grids) continue;
    targets_[i].node->SetFlag(NodeFromCache, head.entries[i].present);
    targets_[i].grids->TakeCacheHeader(head.entries[i]);
  }
  SetFlag(NodeActive, true);
}

void GridCacher::Process(ProcessData& data) {
  if (!IsActive() || !IsDirty()) return;
  if (Loads() && mode() != CacheMode::Record) Load(data.hostThread);
  if (scene->stage == kStageSaveCache && mode() != CacheMode::Playback) Save();
}

bool GridCacher::LoadsNow(const Target& target) const {
  switch (target.node->GetNodeBaseType()) {
    case NODE_SOLVER:
      return scene->stage == kStageOperators;
    case NODE_VOLUME:
      return scene->stage == kStageVolumes;
    default:
      return scene->stage == kStageEmitters;
  }
}

void GridCacher::Load(const BaseThread* hostThread) {
  if (std::none_of(targets_.begin(), targets_.end(), [this](const Target& target) { return LoadsNow(target); })) return;
  HyperFile file;
  fs::path path;
  GridFrameHead head;
  if (!OpenFrame(file, path) || !ReadHead(file, path, head)) return ForgetHeaders(0);
  const GridPlayback playback{InterpolationOf(interpolation_), scene->pool(), hostThread};
  for (std::size_t i = 0; i < targets_.size(); i++) {
    if (!LoadsNow(targets_[i])) {
      if (!file.SkipValue()) return TellUnloaded(file.readStatus().error().text), ForgetHeaders(i);
      continue;
    }
    std::vector<ScalarGrid*> grids;
    iCachedGrids* node = targets_[i].grids;
    for (int c = 0; node && c < node->CachedGridCount(); c++) grids.push_back(node->CachedGrid(c));
    const std::uint32_t type = head.entries[i].gridType;
    if (head.entries[i].present && !grids.empty() && grids[0] && grids[0]->gridType != type) {
      Warn("other-quantity",
           fmt::format("{} holds {} in place {}, where the cache lists \"{}\", which takes {}; list the "
                       "nodes as when it was recorded",
                       path.string(), GridTypeText(type), i + 1, targets_[i].node->DisplayName(),
                       GridTypeText(grids[0]->gridType)));
    }
    if (const Status read = ReadGridChunk(file, path.string(), head.entries[i], grids, playback); !read.ok()) {
      TellUnloaded(read.error().text);
      return ForgetHeaders(i);
    }
    if (node && head.entries[i].present) node->CacheLoaded();
  }
}

void GridCacher::Save() {
  std::vector<CachedGridSet> entries;
  for (const Target& target : targets_) entries.push_back(GridsOf(target.grids));
  auto copies = std::make_shared<GridCopies>();
  // Where a copy finds no room, the simulation waits for the disk.
  const bool behind = scene->WritesBehind() && CopyGrids(entries, *copies);
  SaveFrame(
      [copies, entries, space = scene->space, packed = compression_ == Compression::Packed](
          HyperFile& file, const std::string& number) { return WriteGridFrame(file, space, entries, packed, number); },
      behind);
}

void GridCacher::Finish() {
  if (Loads()) return;
  FinishPass();
  SetFlag(NodeActive, false);
}

void GridCacher::VisitOutputs(StateVisitor& visitor) {
  if (mode() != CacheMode::Playback || !IsActive()) return;
  for (const Target& target : targets_) {
    if (target.node->HasFlag(NodeFromCache)) target.node->VisitState(visitor);
  }
}

bool GridCacher::PlaysBack(const iBase& node) const {
  const InExcludeData* list = handler.GetInExclude(kNodesId);
  return list && handler.GetChoice(kModeId) == static_cast<int>(CacheMode::Playback) &&
         list->Contains(node.handler.hostObject()->creationNumber());
}

std::string GridCacher::FrameText() const {
  const GridCacheInfo info = ReadFrameInfo();
  std::string text = fmt::format("Grids: {}\nMax. cell count: {}\n", info.gridTypes.size(), CellCount(info.maxDims));
  for (std::size_t i = 0; i < info.gridTypes.size(); i++) {
    text += fmt::format("Grid Type ({}): {}\n", i + 1, GridTypeText(info.gridTypes[i]));
  }
  return text;
}

GridCacheInfo GridCacher::ReadFrameInfo() const {
  GridCacheInfo info;
  std::error_code error;
  info.found = fs::exists(name_.PathOf(0), error);
  if (!info.found || format_ != Format::Cache) return info;
  const fs::path path = name_.PathOf(FrameToLoad());
  HyperFile file;
  GridFrameHead head;
  if (!file.Open(kFrameFileIdent, path, HyperFile::Mode::Read)) return info;
  if (!ReadGridFrameHead(file, path.string(), head).ok()) return info;
  info.space = head.sceneSpace;
  for (const GridCacheHeader& header : head.entries) {
    if (!header.present) continue;
    info.gridTypes.push_back(header.gridType);
    info.maxDims = Max(info.maxDims, header.dims);
  }
  return info;
}

}  // namespace orlix
