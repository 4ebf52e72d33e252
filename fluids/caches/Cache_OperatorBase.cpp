#include "fluids/caches/Cache_OperatorBase.h"

#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <cmath>

namespace orlix {

namespace fs = std::filesystem;
using CacheMode = Cache_OperatorBase::CacheMode;
using FolderSource = Cache_OperatorBase::FolderSource;

namespace {

// Not the clock's frameOffset, which a new container sets back to 0: which file a frame has doesn't depend on whether
// another frame was seen before it.
std::int32_t FramesSinceStart(const FrameClock& clock) { return clock.frame - clock.startFrame; }

}  // namespace

fs::path CacheFolderOf(const BaseObject& cacheObject) {
  const std::string& documentFolder = cacheObject.document().folder;
  const fs::path base = documentFolder.empty() ? fs::path(".") : fs::path(documentFolder);
  if (cacheObject.GetChoice<FolderSource>(Cache_OperatorBase::kFolderSourceId) == FolderSource::Document) return base;
  const fs::path own = cacheObject.GetString(Cache_OperatorBase::kFolderId);
  return own.empty() ? own : base / own;
}

CacheFiles CacheFilesOf(const BaseObject& cacheObject) {
  const bool grid = cacheObject.typeId() == kGridCacheTypeId, mesh = cacheObject.typeId() == kMeshCacheTypeId;
  const std::int64_t format = cacheObject.GetInt(Cache_OperatorBase::kFormatId);
  ZQ_C4DCacheName_Operator name;
  name.SetExtension(static_cast<std::int32_t>(std::clamp<std::int64_t>(format, 0, 100)) + (grid ? kGridExtensions
                                                                                           : mesh
                                                                                               ? kMeshExtensions
                                                                                               : kParticleExtensions));
  name.stem = cacheObject.GetString(Cache_OperatorBase::kStemId);
  name.defaultStem = grid ? kGridCacheStem : mesh ? kMeshCacheStem : kParticleCacheStem;
  return {&cacheObject, CacheFolderOf(cacheObject), name.Stem(), name.extension};
}

std::vector<CacheFiles> RecordedCaches(const BaseDocument& document) {
  std::vector<CacheFiles> caches;
  document.ForEachObject([&](const BaseObject& object) {
    if ((object.type().kinds & kLinkCache) == 0) return;
    if (object.GetChoice<CacheMode>(Cache_OperatorBase::kModeId) != CacheMode::Record) return;
    if (CacheFiles files = CacheFilesOf(object); !files.folder.empty()) caches.push_back(std::move(files));
  });
  return caches;
}

std::vector<fs::path> RecordedFolders(const BaseDocument& document) {
  std::vector<fs::path> folders;
  for (const CacheFiles& cache : RecordedCaches(document)) folders.push_back(cache.folder);
  return folders;
}

Cache_OperatorBase::Cache_OperatorBase(BaseList2D* object, OrlixScene& owner, const char* defaultStem)
    : iObject(object, owner) {
  name_.defaultStem = defaultStem;
}

bool Cache_OperatorBase::ReadParameters() {
  priority = 0;
  if (!iObject::ReadParameters()) return false;
  // The first pass of each step over caches. A step that had nothing to do never came to ReleaseLinks, and a cache that
  // stayed marked as checked would miss the next frame.
  SetFlag(NodeDirtyChecked, false);
  renderOnly_ = handler.GetBool(kRenderOnlyId);
  mode_ = handler.GetChoice<CacheMode>(kModeId);
  name_.stem = handler.GetString(kStemId);
  name_.digits = handler.GetInt(GetIds().digits);
  frameOverride_ = handler.GetInt(kFrameId);
  frameOffset_ = handler.GetInt(kFrameOffsetId);
  compression_ = handler.GetChoice<Compression>(kCompressionId);
  format_ = handler.GetChoice<Format>(kFormatId);
  numbering_ = handler.GetChoice<Numbering>(kNumberingId);
  reverse_ = handler.GetBool(kReverseId);
  name_.folder = CacheFolderOf(*handler.hostObject());
  name_.SetExtension(GetIds().firstExtension + static_cast<int>(format_));
  return true;
}

bool Cache_OperatorBase::ResolveLinks() {
  if (!iObject::ResolveLinks()) return false;
  auto* duration = scene->RetrieveAs<Duration>(handler.GetObjectLink(GetIds().duration), NODE_HELPER);
  // The scene reads other nodes' parameters of this frame only afterwards.
  if (duration && scene->stage == kStageLoadCache) duration->Reread();
  duration_ = duration;
  constraints_ = RetrieveConstraints(*scene, handler);
  return true;
}

void Cache_OperatorBase::ReleaseLinks() {
  duration_ = nullptr;
  constraints_.clear();
  inPass_ = false;
  iObject::ReleaseLinks();
}

void Cache_OperatorBase::CheckDirty() {
  iObject::CheckDirty();
  if (!IsEnabled()) return;
  // One frame back isn't a move of time, but another file; and the first frame is made anew whenever it is asked for.
  const FrameClock& clock = scene->clock;
  const bool otherFrame =
      mode_ == CacheMode::Playback && (clock.frame != checkedFrame_ || clock.frame == clock.startFrame);
  checkedFrame_ = clock.frame;
  if (IsDirty() && (mode_ == CacheMode::Playback || simulationInfo->time == 0)) return;
  if (scene->HasFlag(ContainerChanged) || scene->HasFlag(TimeMoved) || otherFrame) {
    MarkDirty(false);
  } else {
    SetFlag(NodeDirty | NodeHardDirty, false);
  }
}

void Cache_OperatorBase::Advise() {
  const std::int32_t start = scene->clock.startFrame;
  if (mode_ == CacheMode::Playback && numbering_ == Numbering::Document && start != 0 && frameOverride_ == -1 &&
      frameOffset_ == 0) {
    Warn("played-numbers", fmt::format("numbering tells how recorded frames are counted; played ones count from 0 at "
                                       "the scene's first frame: set frame_offset to {}",
                                       start));
  }
  if (mode_ == CacheMode::Record && renderOnly_ && !scene->rendering) {
    Warn("render-only",
         "this run records nothing, as \"render_only\" leaves it to renderings; turn that off, or make pictures by "
         "orlix render");
  }
  if (HasTargets()) return;
  Warn("no-targets", mode_ == CacheMode::Record
                         ? "it lists nothing, so it records nothing; list what it is to keep"
                         : "it lists nothing, so it plays nothing; list what it was recorded of");
}

double Cache_OperatorBase::PlaceToLoad(double speed) const {
  const FrameClock& clock = scene->clock;
  const double base = (frameOverride_ != -1 ? frameOverride_ : FramesSinceStart(clock)) * speed;
  double frame = base <= -1 ? clock.frame : base + frameOffset_;
  if (reverse_) {
    if (const CacheInfo info = GetCacheInfo(); info.found) frame = info.lastFrame - frame;
  }
  return frame;
}

std::int32_t Cache_OperatorBase::FrameToLoad() const {
  return static_cast<std::int32_t>(std::clamp<double>(std::ceil(PlaceToLoad(Speed())), INT32_MIN, INT32_MAX));
}

std::int32_t Cache_OperatorBase::FrameToSave() const {
  return numbering_ == Numbering::Simulation ? FramesSinceStart(scene->clock) : scene->clock.frame;
}

bool Cache_OperatorBase::TakesPart() {
  if (!HasTargets() || (renderOnly_ && !scene->rendering)) return false;
  if (name_.folder.empty()) {
    Warn("no-folder", "the cache has no folder, so nothing is recorded or played back; set its folder");
    return false;
  }
  if (duration_ && duration_->IsEnabled() && !duration_->IsActive(simulationInfo->time)) return false;
  if (scene->stage != kStageLoadCache) BeginPass();
  return true;
}

void Cache_OperatorBase::BeginPass() {
  for (Constraint* constraint : constraints_) {
    // When frames are saved, the scene's links are released already.
    if (scene->stage == kStageSaveCache) constraint->ResolveLinks();
    constraint->Prepare(this);
  }
  inPass_ = true;
}

void Cache_OperatorBase::FinishPass() {
  if (!inPass_) return;
  for (Constraint* constraint : constraints_) {
    constraint->Finish();
    if (scene->stage == kStageSaveCache) constraint->ReleaseLinks();
  }
  inPass_ = false;
}

void Cache_OperatorBase::TellUnloaded(const std::string& text) {
  if (scene->MissingCachesFail()) return scene->Fail(ErrorKind::InputFile, "\"" + DisplayName() + "\": " + text);
  Warn("cache-not-played", text);
}

void Cache_OperatorBase::TellMissing(const fs::path& path) {
  std::string text = "Cache File " + path.string() + " could not be found!";
  const CacheInfo there = GetCacheInfo();
  if (!there.found) return TellUnloaded(text + " No frame of this cache is there; see its folder, stem and digits");
  text += fmt::format(" Frames {} to {} are there, the first in {}", there.firstFrame, there.lastFrame,
                      there.firstFile.filename().string());
  if (!there.missing.empty()) text += ", without " + FormatRanges(there.missing);
  const std::int64_t asDocument = std::int64_t(FrameToLoad()) + scene->clock.startFrame;
  if (asDocument != FrameToLoad() && asDocument >= there.firstFrame && asDocument <= there.lastFrame) {
    text += fmt::format("; if they were counted as the document's, set frame_offset to {}", scene->clock.startFrame);
  }
  TellUnloaded(text);
}

bool Cache_OperatorBase::OpenFrame(HyperFile& file, fs::path& path) {
  if (name_.OpenForRead(file, FrameToLoad(), path)) return true;
  std::error_code error;
  fs::exists(path, error) ? TellUnloaded(file.status().error().text) : TellMissing(path);
  return false;
}

void Cache_OperatorBase::SaveFrame(WriteFrame write, bool behind) {
  std::function<Status()> job = [name = name_, frame = FrameToSave(), write = std::move(write)]() mutable -> Status {
    HyperFile file;
    fs::path path;
    if (!name.OpenForWrite(file, frame, path)) return file.status();
    write(file, path.stem().string().substr(name.Stem().size()));
    return file.Close();
  };
  WriteFile(std::move(job), behind);
}

void Cache_OperatorBase::WriteFile(std::function<Status()> job, bool behind) {
  Status status = writer_.Flush();
  if (status.ok()) status = behind ? writer_.Submit(std::move(job)) : job();
  if (!status.ok()) return FailSaving(status);
  savedFrame_ = scene->clock.frame;
}

std::vector<const Cache_OperatorBase*> CachesThat(Cache_OperatorBase::CacheMode mode, const OrlixHook& hook) {
  std::vector<const Cache_OperatorBase*> found;
  for (const auto& [key, scene] : hook.scenes()) {
    scene->ForEachNode(NODE_CACHE, NODE_CACHE, [&](iBase& node) {
      const auto* cache = dynamic_cast<const Cache_OperatorBase*>(&node);
      if (cache && node.IsEnabled() && cache->mode() == mode) found.push_back(cache);
    });
  }
  return found;
}

Status FlushCaches(const OrlixHook& hook) {
  Status status;
  for (const auto& [key, scene] : hook.scenes()) {
    scene->ForEachNode(NODE_CACHE, NODE_CACHE, [&](iBase& node) {
      auto* cache = dynamic_cast<Cache_OperatorBase*>(&node);
      Status flushed = cache ? cache->Flush() : Status();
      if (status.ok()) status = std::move(flushed);
    });
  }
  return status;
}

}  // namespace orlix
