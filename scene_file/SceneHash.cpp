#include "scene_file/SceneHash.h"

#include <nlohmann/json.hpp>
#include <set>

#include "globals/Hash.h"
#include "host/files/ByteSource.h"
#include "host/files/FrameFiles.h"
#include "scene_file/SceneWriter.h"

namespace orlix {

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kLargestInput = std::uint64_t(64) << 30;

void AddText(StateHash& hash, const std::string& text) {
  hash.AddValue(text.size());
  hash.Add(text.data(), text.size());
}

// Numbered files, "walk.####.obj", go by their names and sizes: there may be many.
void AddNumberedFiles(StateHash& hash, const fs::path& pattern) {
  const std::string stem = pattern.stem().string(), extension = pattern.extension().string();
  const std::string base = stem.substr(0, stem.find('#'));
  for (const FrameFile& file :
       ScanFrameFiles(pattern.parent_path(), base, extension.substr(extension.empty() ? 0 : 1))) {
    AddText(hash, file.path.filename().string());
    hash.AddValue(file.size);
  }
}

Status AddFile(StateHash& hash, const fs::path& path) {
  if (path.filename().string().find('#') != std::string::npos) {
    AddNumberedFiles(hash, path);
    return {};
  }
  ByteSource source;
  if (Status opened = source.Open(path); !opened.ok()) return opened;
  if (source.Size() > kLargestInput) return Status::Fail(ErrorKind::InputFile, path.string() + ": too large");
  std::vector<std::byte> piece(1 << 20);
  for (std::uint64_t at = 0; at < source.Size(); at += piece.size()) {
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(piece.size(), source.Size() - at));
    if (!source.ReadAt(at, piece.data(), size)) {
      return Status::Fail(ErrorKind::InputFile, path.string() + ": can't be read");
    }
    hash.Add(piece.data(), size);
  }
  return {};
}

// A list whose objects are switched off acts otherwise than an empty one, which a text can't show.
void AddLost(StateHash& hash, const BaseDocument& document, const BaseObject& object, const Parameter& row) {
  const InExcludeData* list = row.type == ParameterType::InExclude ? object.GetInExclude(row.id) : nullptr;
  if (!list) return;
  for (const InExcludeData::Entry& entry : list->entries) {
    if (!document.FindObject(entry.target)) AddText(hash, object.Path() + "." + row.key);
  }
}

}  // namespace

Result<std::uint64_t> HashScene(const BaseDocument& document) {
  const Result<std::string> text = WriteScene(document);
  if (!text.ok()) return text.error();
  nlohmann::json json = nlohmann::json::parse(*text, nullptr, false);
  if (!json.is_object()) return Error{ErrorKind::Internal, "the scene can't be written"};
  for (const char* key : {"lights", "camera", "materials", "render", "output"}) json.erase(key);
  if (json.contains("frames") && json["frames"].is_array() && !json["frames"].empty())
    json["frames"] = json["frames"][0];
  StateHash hash;
  AddText(hash, json.dump());
  Status status;
  std::set<std::string> libraries;  // of plug-ins: another build makes another simulation
  document.ForEachObject([&](BaseObject& object) {
    const std::string library = object.type().library;
    if (status.ok() && !library.empty() && libraries.insert(library).second) status = AddFile(hash, library);
    object.type().ForEachParameter([&](const Parameter& row) {
      AddLost(hash, document, object, row);
      if (row.type != ParameterType::File || !status.ok()) return;
      const std::string name = object.GetString(row.id);
      if (!name.empty()) status = AddFile(hash, fs::path(document.folder) / name);
    });
  });
  if (!status.ok()) return status.error();
  return hash.Value();
}

}  // namespace orlix
