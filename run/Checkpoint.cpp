#include "run/Checkpoint.h"

#include <fmt/format.h>

#include "fluids/caches/StateFile.h"
#include "globals/Hash.h"

namespace orlix {

namespace fs = std::filesystem;

namespace {

constexpr std::uint32_t kIdent = 0x6F78636B;  // "oxck"
constexpr std::int32_t kFormat = 2;           // grows when older files can't be read any more

std::uint64_t HashScenes(const OrlixHook& hook) {
  StateHash hash;
  for (const auto& [key, scene] : hook.scenes()) hash.AddValue(scene->HashState());
  return hash.Value();
}

Error Unfit(const fs::path& path, const std::string& reason) {
  return {ErrorKind::InputFile, path.string() + ": " + reason};
}

Result<CheckpointHead> ReadHead(HyperFile& file, const fs::path& path) {
  CheckpointHead head;
  std::int32_t format = 0;
  std::int64_t sceneHash = 0, stateHash = 0;
  if (!file.ReadLong(format)) return file.status().error();
  if (format != kFormat) return Unfit(path, "a checkpoint of another version of the program");
  if (!file.ReadLLong(sceneHash) || !file.ReadLong(head.frame) || !file.ReadBool(head.rendering) ||
      !file.ReadLLong(stateHash) || !file.ReadLong(head.scenes)) {
    return file.status().error();
  }
  head.sceneHash = static_cast<std::uint64_t>(sceneHash);
  head.stateHash = static_cast<std::uint64_t>(stateHash);
  return head;
}

Status ReadScenes(HyperFile& file, const fs::path& path, const OrlixHook& hook) {
  for (const auto& [key, scene] : hook.scenes()) {
    StateReader reader(file, path.string());
    reader.Begin(scene->Name().c_str());
    scene->VisitState(reader);
    reader.End();
    if (!reader.status().ok()) return reader.status();
  }
  return {};
}

}  // namespace

Status WriteCheckpoint(const fs::path& path, CheckpointHead head, const OrlixHook& hook) {
  HyperFile file;
  if (!file.Open(kIdent, path, HyperFile::Mode::Write)) return file.status();
  file.WriteLong(kFormat);
  file.WriteLLong(static_cast<std::int64_t>(head.sceneHash));
  file.WriteLong(head.frame);
  file.WriteBool(head.rendering);
  file.WriteLLong(static_cast<std::int64_t>(HashScenes(hook)));
  file.WriteLong(static_cast<std::int32_t>(hook.scenes().size()));
  for (const auto& [key, scene] : hook.scenes()) {
    StateWriter writer(file);
    writer.Begin(scene->Name().c_str());
    scene->VisitState(writer);
    writer.End();
  }
  return file.Close();
}

Result<CheckpointHead> ReadCheckpointHead(const fs::path& path) {
  HyperFile file;
  if (!file.Open(kIdent, path, HyperFile::Mode::Read)) return file.status().error();
  return ReadHead(file, path);
}

Status RestoreCheckpoint(const fs::path& path, BaseDocument& document, OrlixHook& hook) {
  HyperFile file;
  if (!file.Open(kIdent, path, HyperFile::Mode::Read)) return file.status();
  const Result<CheckpointHead> head = ReadHead(file, path);
  if (!head.ok()) return head.error();
  if (Status moved = document.SetTime(BaseTime::OfFrame(head->frame, document.fps)); !moved.ok()) return moved;
  hook.BuildScenes(document, head->rendering);
  if (const Error* failure = hook.Failure()) return *failure;
  if (head->scenes != static_cast<std::int32_t>(hook.scenes().size())) {
    return Unfit(path, fmt::format("holds {} scenes, the scene file has {}", head->scenes, hook.scenes().size()));
  }
  if (Status read = ReadScenes(file, path, hook); !read.ok()) return read;
  if (HashScenes(hook) != head->stateHash) {
    return Status::Fail(ErrorKind::Internal,
                        path.string() + ": the state that was put back isn't the one that was kept");
  }
  return {};
}

}  // namespace orlix
