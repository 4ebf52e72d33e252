#include "run/CacheRecords.h"

#include <fmt/format.h>

#include <algorithm>

#include "fluids/caches/Cache_OperatorBase.h"

namespace orlix {

namespace fs = std::filesystem;

namespace {

// Before the first frame of the run is in the record.
void TellEarlierFrames(const RunState& state, const Cache_OperatorBase& cache, const ResultRecord& record) {
  const ZQ_C4DCacheName_Operator& name = cache.name();
  std::vector<int> left;
  for (const FrameFile& file : ScanFrameFiles(name.folder, name.Stem(), name.extension)) {
    const bool planned = std::any_of(record.planned().begin(), record.planned().end(), [&](const FrameRange& range) {
      return file.frame >= range.first && file.frame <= range.last;
    });
    if (!planned && !record.Wrote(file) && (left.empty() || left.back() != file.frame)) left.push_back(file.frame);
  }
  if (left.empty()) return;
  state.warnings.Tell(
      {cache.handler.hostObject()->Path(), "earlier-frames",
       fmt::format("{} holds frames {} of another run, which this one doesn't record anew, so they would "
                   "be played behind its own; orlix cache SCENE --delete removes a cache's frames "
                   "before it is recorded again",
                   name.folder.string(), FormatRanges(RangesOf(left))),
       state.frame});
}

// A scene that begins at another frame than the one that recorded, or goes at another pace, shows other moments.
void TellOtherTimes(const RunState& state, const Cache_OperatorBase& cache, const ResultRecord& record) {
  if (!record.clock() || !cache.PlaysAsRecorded()) return;
  const std::string path = cache.handler.hostObject()->Path();
  if (const double fps = record.clock()->fps; fps != state.document.fps) {
    state.warnings.Tell({path, "other-fps",
                         fmt::format("its frames were recorded at {:g} a second and are played one a frame at {:g}, so "
                                     "all goes {:.3g} times as fast; set \"fps\" to {:g}",
                                     fps, state.document.fps, state.document.fps / fps, fps),
                         state.frame});
  }
  const int recorded = cache.FrameToLoad() - record.clock()->shift, late = state.frame - recorded;
  if (late == 0) return;
  state.warnings.Tell(
      {path, "other-times",
       fmt::format(
           "it plays in frame {} what was recorded as frame {}, since files count from the scene's first frame; "
           "begin \"frames\" where that scene began and choose by --frames, or set \"frame_offset\" to {}",
           state.frame, recorded, late),
       state.frame});
}

}  // namespace

fs::path CacheRecords::PathOf(const ZQ_C4DCacheName_Operator& cache) {
  return cache.folder / (cache.Stem() + "." + cache.extension + ResultRecord::kExtension);
}

Status CacheRecords::AfterFrame(const RunState& state) {
  if (!lookedAtPlayed_) {
    for (const Cache_OperatorBase* cache : CachesThat(Cache_OperatorBase::CacheMode::Playback, state.hook)) {
      if (const auto record = ResultRecord::Read(PathOf(cache->name()))) TellOtherTimes(state, *cache, *record);
    }
    lookedAtPlayed_ = true;
  }
  if (state.standsAlone) return {};
  for (const Cache_OperatorBase* cache : CachesThat(Cache_OperatorBase::CacheMode::Record, state.hook)) {
    const fs::path file = cache->PathToSave();
    const int number = cache->FrameToSave();
    const fs::path path = PathOf(cache->name());
    auto at = records_.find(path);
    if (at == records_.end()) {
      if (!cache->HasSaved()) continue;
      Result<ResultRecord> read = ResultRecord::Read(path);
      at = records_.emplace(path, read ? std::move(*read) : ResultRecord()).first;
      const int shift = number - state.frame;
      const FrameRange numbers{planned_.first + shift, planned_.last + shift};
      if (Status begun = at->second.Begin(path, {numbers}, simulation_, RecordedClock{shift, state.document.fps});
          !begun)
        return begun;
      TellEarlierFrames(state, *cache, at->second);
    }
    RecordedFrame kept;
    if (cache->HasSaved()) kept.files.push_back({file.filename().string()});
    kept.origin.files = simulation_;
    if (Status added = at->second.Add(number, std::move(kept)); !added) return added;
  }
  return {};
}

}  // namespace orlix
