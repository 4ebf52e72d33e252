#pragma once
// All that the next frame needs, in one file: the clocks and every node's state. A run that goes on from it has the
// same bits as one that never stopped.

#include <cstdint>
#include <filesystem>

#include "fluids/scene/OrlixHook.h"
#include "globals/Result.h"

namespace orlix {

struct CheckpointHead {
  std::uint64_t sceneHash = 0;  // of the scene that it belongs to
  std::int32_t frame = 0;       // the last one that is whole
  bool rendering = false;
  std::uint64_t stateHash = 0;  // of all scenes
  std::int32_t scenes = 0;
};

inline constexpr const char* kCheckpointExtension = "checkpoint";

// head's stateHash and scenes are set here.
Status WriteCheckpoint(const std::filesystem::path& path, CheckpointHead head, const OrlixHook& hook);
// The head alone. The file is known as not truncated then, but its bulk is unread.
Result<CheckpointHead> ReadCheckpointHead(const std::filesystem::path& path);
// Puts the state into the scenes of the hook, which are built at the head's frame: the document's time moves there.
// After an error the scenes are good for nothing.
Status RestoreCheckpoint(const std::filesystem::path& path, BaseDocument& document, OrlixHook& hook);

}  // namespace orlix
