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
};

struct FolderReport {
  std::vector<SequenceReport> sequences;          // by name
  std::vector<std::filesystem::path> unfinished;  // temporaries; of a run that goes on, or of one that was killed
  std::vector<BrokenFile> unreadable;             // folders below; counted as broken
  std::int64_t whole = 0, broken = 0, missing = 0;
  std::int64_t surelyMissing = 0;  // of kinds that a run writes for every frame
};

// Checks each file of a known kind in the folder and those below, or the one file that the path names. InputFile when
// it can't be read at all.
Result<FolderReport> ReportFolder(const std::filesystem::path& path);

}  // namespace orlix
