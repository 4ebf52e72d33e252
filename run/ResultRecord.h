#pragma once
// The record that a run leaves in its folder of results, SCENE.results: which frames it was to make, and for each frame
// that it made the files, with their sizes and what they were made from. One JSON object a line, written as the frames
// become whole; a line that a kill cut off counts as none.
//
//   {"planned": [[0, 100]]}
//   {"frame": 12, "files": [{"name": "out/frame_Dam_Surface.0012.ply", "bytes": 123456, "hash": "0123456789abcdef",
//    "changed": 1764115200123456789}],
//    "from": "0123456789abcdef", "pictures_from": "fedcba9876543210",
//    "caches": [{"path": "/a/b.pcache", "stamp": "0123456789abcdef"}]}
//
// Names are relative to the record's folder. The record of a cache, STEM.EXTENSION.results, has numbers of files in
// place of frames, no sizes (what it keeps proves itself), and tells the simulation: "from" of "planned" is that of the
// last run, and frames with another one are left from another; "shift" and "fps" tell what its numbers were in time.

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/files/FrameFiles.h"
#include "run/FrameOrigin.h"

namespace orlix {

struct ResultFile {
  std::string name;
  std::uint64_t bytes = 0;  // 0: not known
  bool picture = false;
  std::optional<std::uint64_t> hash{};  // xxHash64 of the content; older records have none
  // When its content, times or name last changed, ns since 1970, as the system keeps it and nobody can set it; 0:
  // unknown.
  std::int64_t changed = 0;
};
// A file as it is now, under this name. Without a content there is no hash.
ResultFile ResultFileOf(const std::filesystem::path& path, std::string name, bool picture);

// When the frames of a cache were recorded: a file's number less the document's frame, and the document's frames a
// second.
struct RecordedClock {
  int shift = 0;
  double fps = 0;
};

struct RecordedFrame {
  std::vector<ResultFile> files;
  FrameOrigin origin;
};

class ResultRecord {
 public:
  static constexpr const char* kExtension = ".results";
  static std::filesystem::path PathOf(const std::filesystem::path& folder, const std::string& scene);

  // No record where there is no file. InputFile for one that is none.
  static Result<ResultRecord> Read(const std::filesystem::path& path);
  // Begins a run that is to make these frames: the record as it stands is written anew, in one piece.
  // With another simulation than before nothing else is planned.
  Status Begin(const std::filesystem::path& path, const std::vector<FrameRange>& planned,
               std::optional<std::uint64_t> simulation = {}, std::optional<RecordedClock> clock = {});
  // The frame is whole.
  Status Add(int frame, RecordedFrame made);

  const std::map<int, RecordedFrame>& frames() const { return frames_; }
  const std::vector<FrameRange>& planned() const { return planned_; }
  const std::optional<std::uint64_t>& simulation() const { return simulation_; }
  const std::optional<RecordedClock>& clock() const { return clock_; }
  // The file that the last simulation wrote under this number.
  bool Wrote(const FrameFile& file) const;

  // What is looked at: names and sizes; the content of files that were touched since, too; the content of all.
  enum class Look { Sizes, Touched, Contents };
  // Files of a frame that aren't there as they were made.
  std::vector<std::string> MissingFiles(int frame, Look look) const;
  // Planned frames that were never made.
  std::vector<FrameRange> NeverMade() const;
  // Planned numbers of a cache's files that aren't among these; those that it didn't keep are none.
  std::vector<FrameRange> LostFiles(const std::vector<FrameFile>& files) const;
  // Frames whose caches have changed since they were made.
  std::vector<FrameRange> MadeFromOthers() const;
  // Why a frame has to be made; empty when it is whole and made from this.
  std::string WhyMake(int frame, const FrameOrigin& origin) const;

 private:
  std::string LineOf(int frame, const RecordedFrame& made) const;

  std::filesystem::path path_;
  std::map<int, RecordedFrame> frames_;
  std::vector<FrameRange> planned_;
  std::optional<std::uint64_t> simulation_;
  std::optional<RecordedClock> clock_;
};

// Frames, ascending, as ranges.
std::vector<FrameRange> RangesOf(const std::vector<int>& frames);

}  // namespace orlix
