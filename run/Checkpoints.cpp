#include "run/Checkpoints.h"

#include <spdlog/spdlog.h>

#include <algorithm>

#include "fluids/caches/Cache_OperatorBase.h"
#include "host/files/AtomicFile.h"
#include "host/files/FrameFiles.h"
#include "host/files/HyperFile.h"
#include "run/Interrupt.h"

namespace orlix {

namespace fs = std::filesystem;

namespace {

constexpr const char* kStem = "state";  // and the frames since the first, so that no number is below 0
constexpr std::size_t kKept = 2;

}  // namespace

std::vector<fs::path> Checkpoints::AllFiles() const {
  std::vector<fs::path> paths;
  for (const FrameFile& file : ScanFrameFiles(folder_, kStem, kCheckpointExtension)) paths.push_back(file.path);
  return paths;
}

Result<std::optional<Checkpoints::Found>> Checkpoints::FindLatest() const {
  std::vector<fs::path> paths = AllFiles();
  std::reverse(paths.begin(), paths.end());
  for (const fs::path& path : paths) {
    const Result<CheckpointHead> head = ReadCheckpointHead(path);
    const Status whole = head.ok() ? HyperFile::Verify(0, path) : head.status();
    if (!whole.ok()) {
      spdlog::warn("{}; going on from an older checkpoint", whole.error().text);
      continue;
    }
    if (head->sceneHash != sceneHash_) {
      return Error{ErrorKind::Scene,
                   path.string() +
                       " belongs to another scene: the scene file, an override, a plug-in or a file that it "
                       "names has changed. Run without --resume, or with another --out"};
    }
    return std::optional<Found>(Found{path, *head});
  }
  return std::optional<Found>();
}

Status Checkpoints::BeforeRun(const RunState& state) {
  RemoveStaleTemporaries(folder_);
  const std::vector<fs::path> paths = AllFiles();
  if (every_ < 1 || !kept_.empty() || paths.empty()) return {};
  const Result<CheckpointHead> last = ReadCheckpointHead(paths.back());
  if (last.ok() && last->sceneHash == sceneHash_ && last->frame < state.lastFrame) {
    spdlog::warn("an earlier run came to frame {}: --resume goes on from it, this run begins anew", last->frame);
  }
  return {};
}

Status Checkpoints::AfterFrame(const RunState& state) {
  if (every_ < 1) return {};
  // The first frame of a scene takes no time, and the second one resets softly what it finds: bodies that a checkpoint
  // brought back would join the fluid a sub-step late.
  const auto begins = [](const auto& each) { return each.second->clock.frame == each.second->clock.startFrame; };
  if (std::any_of(state.hook.scenes().begin(), state.hook.scenes().end(), begins)) return {};
  const bool due = (state.frame - state.firstFrame) % every_ == 0 && state.frame != state.firstFrame;
  if (!due && Interrupt::Signal() == 0 && state.frame != state.lastFrame) return {};
  return Write(state);
}

Status Checkpoints::Write(const RunState& state) {
  // A checkpoint says that the frame is there, so what caches still write is awaited.
  if (Status written = FlushCaches(state.hook); !written) return written;
  if (Status created = CreateFolders(folder_); !created.ok()) return created;
  const fs::path path = folder_ / (kStem + PadNumber(state.frame - state.firstFrame, 5) + "." + kCheckpointExtension);
  CheckpointHead head;
  head.sceneHash = sceneHash_;
  head.frame = state.frame;
  if (Status written = WriteCheckpoint(path, head, state.hook); !written.ok()) return written;
  last_ = state.frame;
  std::erase(kept_, path);
  kept_.push_back(path);
  if (kept_.size() > kKept) kept_.erase(kept_.begin());
  RemoveOthers();
  return {};
}

void Checkpoints::RemoveOthers() const {
  for (const fs::path& path : AllFiles()) {
    std::error_code ignored;
    if (std::find(kept_.begin(), kept_.end(), path) == kept_.end()) fs::remove(path, ignored);
  }
}

}  // namespace orlix
