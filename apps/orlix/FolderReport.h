#pragma once
// What is in a folder of results: numbered files by sequence, which of them are whole, broken or missing.

#include <filesystem>
#include <string>
#include <vector>

#include "globals/Result.h"
#include "host/files/FrameFiles.h"

namespace orlix {

struct BrokenFile {
  std::filesystem::path path;
  std::string reason;
};

struct SequenceReport {
  std::string name;  // "caches/smoke#####.cache", or the path of a file without a number
  int whole = 0;
  std::vector<BrokenFile> broken;
  std::vector<FrameRange> missing;  // from and to, in steps of step
  int step = 1;
  std::int64_t missingCount = 0;
  std::vector<FrameRange> left{};  // of a cache: those that another run than the last recorded
};

// What the record of a run says of its results.
struct RecordReport {
  std::filesystem::path path;
  std::vector<std::string> missing;    // files that were made and aren't there with their size
  std::vector<FrameRange> neverMade;   // planned frames
  std::vector<FrameRange> fromOthers;  // frames whose caches have changed since
};

struct FolderReport {
  std::vector<RecordReport> records;              // of runs, in no order
  std::vector<SequenceReport> sequences;          // by name
  std::vector<std::filesystem::path> unfinished;  // temporaries; of a run that goes on, or of one that was killed
  std::vector<BrokenFile> unreadable;             // folders below; counted as broken
  std::int64_t whole = 0, broken = 0, missing = 0;
  std::int64_t surelyMissing = 0;  // of kinds that a run writes for every frame, and by the records of runs
  std::int64_t stale = 0;          // frames made from caches that have changed, and those that another run left
};

// Checks each file of a known kind in the folder and those below, or the one file that the path names. InputFile when
// it can't be read at all.
Result<FolderReport> ReportFolder(const std::filesystem::path& path);

}  // namespace orlix
