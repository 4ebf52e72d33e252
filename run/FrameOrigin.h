#pragma once
// What a frame's results are made from, as a number: the settings that matter, at the document's time, and the frames
// of caches. Results with another number beside them are stale.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "fluids/scene/OrlixHook.h"
#include "run/Passes.h"

namespace orlix {

// A cache's frame file as it was when results were made from it.
struct CacheStamp {
  std::string path;
  std::uint64_t stamp = 0;  // 0: it wasn't there
  bool operator==(const CacheStamp&) const = default;
};
// By the file's last record, which holds the checksum of all of it.
std::uint64_t StampOf(const std::filesystem::path& frameFile);

struct FrameOrigin {
  std::uint64_t files = 0, pictures = 0;  // of what pictures show, more matters
  std::vector<CacheStamp> caches;
};

// The document's time is the frame's, and the hook's scenes are built or stepped there. simulation: the number for all
// that decides a simulation's course, of results that need one.
FrameOrigin OriginOf(const std::vector<Pass>& passes, const BaseDocument& document, const OrlixHook& hook,
                     std::uint64_t simulation);

}  // namespace orlix
