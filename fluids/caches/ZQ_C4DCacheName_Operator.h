#pragma once
// Frame files of the host: FOLDER/STEMNUMBER.EXTENSION.

#include <filesystem>

#include "fluids/caches/iZQCacheName_Operator.h"
#include "host/files/FrameFiles.h"
#include "host/files/HyperFile.h"

namespace orlix {

// "Frames" of a folder scan; the sizes of all files are added up in 64 bits.
struct CacheInfo {
  bool found = false;
  std::int32_t firstFrame = 0, lastFrame = 1;
  std::filesystem::path firstFile;
  std::vector<FrameRange> missing;  // from frame 0, or a first one before it, on
  std::uint64_t size = 0;           // bytes
};

// Where the formats of each cache begin in the table of extensions.
inline constexpr std::int32_t kParticleExtensions = 0, kGridExtensions = 21, kMeshExtensions = 24;

class ZQ_C4DCacheName_Operator final : public iZQCacheName_Operator<HyperFile, std::filesystem::path> {
 public:
  void Reset() override;
  bool OpenForRead(HyperFile& file, std::int32_t frame, std::filesystem::path& path) override;
  bool OpenForWrite(HyperFile& file, std::int32_t frame, std::filesystem::path& path) override;

  std::filesystem::path PathOf(std::int32_t frame) const;
  // Takes the extension of a format from the table that all caches share; an index outside leaves it as it is.
  void SetExtension(std::int32_t index);
  // The folder exists; with create it is made.
  Status CheckFolder(bool create) const;
  CacheInfo Scan() const;
  // Removes this cache's frames, and nothing else in the folder.
  Status DeleteFrames() const;

  const std::string& Stem() const { return stem.empty() ? defaultStem : stem; }

 private:
  std::vector<FrameFile> Frames() const { return ScanFrameFiles(folder, Stem(), extension); }
};

}  // namespace orlix
