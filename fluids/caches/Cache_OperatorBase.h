#pragma once
// What the caches of grids, particles and meshes share: folder, names, the frame to load and to save, the gate in time.

#include <optional>
#include <vector>

#include "fluids/caches/FrameWriter.h"
#include "fluids/caches/ZQ_C4DCacheName_Operator.h"
#include "fluids/constraints/Constraint.h"
#include "fluids/helpers/Duration.h"
#include "fluids/scene/OrlixHook.h"

namespace orlix {

// The folder that the settings of a cache object name: its own, which may be relative to the document's, or the
// document's. Empty when its own is to be taken and isn't set.
std::filesystem::path CacheFolderOf(const BaseObject& cacheObject);
// Where a cache has no stem of its own.
inline constexpr const char *kGridCacheStem = "orlix_grid_c4d", *kParticleCacheStem = "orlix_particle_c4d",
                            *kMeshCacheStem = "orlix_mesh_c4d";
inline constexpr int kGridCacheTypeId = 1300098, kParticleCacheTypeId = 1300099, kMeshCacheTypeId = 1300100;

// The frame files of a cache, by its settings alone.
struct CacheFiles {
  const BaseObject* object;
  std::filesystem::path folder;
  std::string stem, extension;
};
// folder is empty where the cache has none.
CacheFiles CacheFilesOf(const BaseObject& cacheObject);
// Of those that record.
std::vector<CacheFiles> RecordedCaches(const BaseDocument& document);
// The folders that the caches of a document will write into. A program locks them against a second run.
std::vector<std::filesystem::path> RecordedFolders(const BaseDocument& document);

class Cache_OperatorBase : public iObject {
 public:
  enum class CacheMode { Playback, Record };
  enum class Compression { None, Packed };
  enum class Format { Cache };
  enum class Numbering { Simulation, Document };
  enum class FolderSource { Document, Own };

  Cache_OperatorBase(BaseList2D* object, OrlixScene& owner, const char* defaultStem);
  std::int32_t GetNodeBaseType() const override { return NODE_CACHE; }
  bool RunsSerially() const override { return true; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void CheckDirty() override;
  void Advise() override;

  virtual Status DeleteCache() { return name_.DeleteFrames(); }
  virtual CacheInfo GetCacheInfo() const { return name_.Scan(); }
  // What the file of the frame to load holds, a line each.
  virtual std::string FrameText() const = 0;
  // Waits for a frame that is still being written; the first error since the last call.
  Status Flush() { return writer_.Flush(); }

  CacheMode mode() const { return mode_; }
  const ZQ_C4DCacheName_Operator& name() const { return name_; }
  // The file of a frame on the way in. Before the simulation's start it is the document's frame; reversed, it counts
  // from the last frame that is there.
  std::int32_t FrameToLoad() const;
  std::filesystem::path PathToLoad() const { return name_.PathOf(FrameToLoad()); }
  std::int32_t FrameToSave() const;
  std::filesystem::path PathToSave() const { return name_.PathOf(FrameToSave()); }
  // Whether it keeps the clock's frame; the file may still be written.
  bool HasSaved() const { return savedFrame_ == scene->clock.frame; }
  // Nothing in its settings says that it is to play other moments than were recorded.
  bool PlaysAsRecorded() const { return frameOverride_ == -1 && frameOffset_ == 0 && !reverse_ && Speed() == 1; }

  // The ids that all caches have in common.
  static constexpr std::int32_t kRenderOnlyId = 1000, kModeId = 1001, kFolderId = 1003, kStemId = 1004, kFrameId = 1006,
                                kFrameOffsetId = 1007, kCompressionId = 1009, kFormatId = 1010, kNumberingId = 1011,
                                kFolderSourceId = 1013, kReverseId = 1014, kFrameTextId = 1008, kFolderTextId = 1015;

 protected:
  struct Ids {
    std::int32_t duration, digits, firstExtension;
  };
  const std::vector<Constraint*>& constraints() const { return constraints_; }
  // Where the caches differ in their numbers.
  virtual Ids GetIds() const = 0;
  // Whether there is something to cache.
  virtual bool HasTargets() const = 0;

  // The frame to load before it is rounded up: base x speed.
  double PlaceToLoad(double speed) const;
  virtual double Speed() const { return 1; }

  // The gate at the head of Prepare: targets, rendering, folder, duration. When it opens, the constraints are told that
  // a pass begins; FinishPass tells them its end. While heads are read the scene's links aren't resolved: what loads
  // later begins a pass of its own.
  bool TakesPart();
  void BeginPass();
  void FinishPass();
  // A frame can't be played: a warning, or the end of the run where the host wants it so.
  void TellUnloaded(const std::string& text);
  // The file isn't there: its path, and which frames of this cache are.
  void TellMissing(const std::filesystem::path& path);
  // Opens the frame to load; tells of a missing or broken file.
  bool OpenFrame(HyperFile& file, std::filesystem::path& path);
  // A frame that can't be kept ends the run.
  void FailSaving(const Status& status) { scene->Fail(status.error().kind, status.error().text); }
  // Writes the current frame's file: write is called at once or, behind, on another thread while the simulation goes
  // on. number is the one in the file's name, digit by digit.
  using WriteFrame = std::function<bool(HyperFile& file, const std::string& number)>;
  void SaveFrame(WriteFrame write, bool behind);
  // Any other file.
  void WriteFile(std::function<Status()> job, bool behind);

  ZQ_C4DCacheName_Operator name_;
  Compression compression_ = Compression::None;
  Format format_ = Format::Cache;

 private:
  CacheMode mode_ = CacheMode::Playback;
  bool renderOnly_ = false, reverse_ = false;
  std::int32_t frameOverride_ = -1, frameOffset_ = 0;
  Numbering numbering_ = Numbering::Simulation;
  const Duration* duration_ = nullptr;
  std::vector<Constraint*> constraints_;
  bool inPass_ = false;
  std::int32_t checkedFrame_ = INT32_MIN;   // of the clock, when it was last asked for changes
  std::optional<std::int32_t> savedFrame_;  // of the clock
  FrameWriter writer_;
};

// Those that record, or play.
std::vector<const Cache_OperatorBase*> CachesThat(Cache_OperatorBase::CacheMode mode, const OrlixHook& hook);
// Waits for the frames that caches still write; the first error.
Status FlushCaches(const OrlixHook& hook);

}  // namespace orlix
