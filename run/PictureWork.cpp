#include "run/PictureWork.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>

#include "exchange/FrameOutput.h"
#include "globals/Hash.h"
#include "host/files/FrameFiles.h"
#include "host/pictures/PictureFile.h"
#include "host/render/RenderSettings.h"

namespace orlix {

namespace fs = std::filesystem;

namespace {

constexpr const char* kMarkPrefix = ".pictures-";
constexpr const char* kUnfinishedPrefix = ".unfinished-";

std::vector<fs::path> HiddenFiles(const fs::path& folder, const char* prefix) {
  std::vector<fs::path> found;
  std::error_code error;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    if (it->path().filename().string().starts_with(prefix)) found.push_back(it->path());
  }
  return found;
}

}  // namespace

fs::path PictureWork::MarkPath() const { return folder_ / (kMarkPrefix + HexHash(hash_)); }

fs::path PictureWork::UnfinishedPath(int frame) const {
  return folder_ / fmt::format("{}{}-{}.exr", kUnfinishedPrefix, frame, HexHash(hash_));
}

Status PictureWork::Start() const {
  std::error_code error;
  fs::create_directories(folder_, error);
  for (const char* prefix : {kMarkPrefix, kUnfinishedPrefix}) {
    for (const fs::path& file : HiddenFiles(folder_, prefix)) fs::remove(file, error);
  }
  if (!std::ofstream(MarkPath())) {
    return Status::Fail(ErrorKind::Output, fmt::format("{}: can't be written", MarkPath().string()));
  }
  return {};
}

Result<bool> PictureWork::Continue() const {
  const std::vector<fs::path> marks = HiddenFiles(folder_, kMarkPrefix);
  if (std::find(marks.begin(), marks.end(), MarkPath()) != marks.end()) return true;
  if (marks.empty()) return false;
  return Result<bool>::Fail(
      ErrorKind::Usage,
      fmt::format("--resume: the pictures in {} are of another scene, or were asked for in another way; "
                  "without --resume they are made anew",
                  folder_.string()));
}

bool PictureWork::HasMade(const BaseDocument& document, int frame) const {
  std::error_code error;
  const auto begun = fs::last_write_time(MarkPath(), error);
  if (error) return false;
  const std::vector<fs::path> paths = PicturePaths(document, folder_.string(), frame);
  return std::all_of(paths.begin(), paths.end(), [&](const fs::path& path) {
    std::error_code missing;
    const auto made = fs::last_write_time(path, missing);
    return !missing && made >= begun;
  });
}

Status PictureWork::KeepUnfinished(const Picture& picture, int frame) const {
  Picture exact(picture.width(), picture.height());
  for (PictureChannel channel : picture.channels()) {
    channel.single = true;
    exact.AddChannel(std::move(channel));
  }
  return WritePicture(UnfinishedPath(frame), exact);
}

Picture PictureWork::Unfinished(int frame) const {
  std::error_code error;
  if (!fs::exists(UnfinishedPath(frame), error)) return {};
  Result<Picture> picture = ReadPicture(UnfinishedPath(frame));
  return picture ? std::move(*picture) : Picture();
}

void PictureWork::ForgetUnfinished(int frame) const {
  std::error_code error;
  fs::remove(UnfinishedPath(frame), error);
}

std::vector<fs::path> PicturePaths(const BaseDocument& document, const std::string& outputFolder, int frame) {
  RenderSettings settings;
  const std::vector<BaseObject*> found = document.ObjectsOfType(kRenderSettingsId);
  if (!found.empty()) {
    settings.name = found.front()->GetString(kRenderFileNameId);
    settings.writeExr = found.front()->GetBool(kRenderExrId), settings.writePng = found.front()->GetBool(kRenderPngId);
  }
  std::vector<fs::path> folders = FrameOutput(document, outputFolder).PictureFolders(std::nullopt);
  if (folders.empty()) folders.emplace_back(outputFolder);
  std::vector<fs::path> paths;
  for (const fs::path& folder : folders) {
    if (settings.writeExr) paths.push_back(ResultPath(folder, settings.name, frame, ".exr"));
    if (settings.writePng) paths.push_back(ResultPath(folder, settings.name, frame, ".png"));
  }
  return paths;
}

}  // namespace orlix
