// orlix watch DIR: what a running job has finished, its pace, what is broken. Only reads: names, sizes and times of
// files, and the last bytes of frames of caches.

#include <fmt/format.h>
#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <map>
#include <thread>

#include "apps/orlix/Command.h"
#include "apps/orlix/FileCheck.h"
#include "fluids/caches/GridFrameFile.h"
#include "host/files/ByteSource.h"
#include "host/files/FolderLock.h"
#include "run/Interrupt.h"
#include "run/ResultRecord.h"
#include "scene_file/JsonLayout.h"

namespace orlix {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using Clock = fs::file_time_type::clock;

struct Finished {
  int frame = 0;
  fs::file_time_type at;
  fs::path path;
};
struct Watched {
  bool running = false;
  std::map<std::string, std::vector<Finished>> sequences;  // by name, by frame
  std::int64_t planned = 0, made = 0;                      // of records
  std::vector<std::string> broken;
  int unfinished = 0;  // files that are being written
};

// Whether a living process holds the folder's lock, by the number that it left there.
bool IsLocked(const fs::path& folder) {
  const Result<FileBytes> owner = ReadWholeFile(folder / FolderLock::kFileName, 64);
  if (!owner) return false;
  const pid_t process = std::atoi(std::string(owner->Text()).c_str());
  return process > 0 && (::kill(process, 0) == 0 || errno == EPERM);
}

void LookAtRecord(const fs::path& path, Watched& watched) {
  const Result<ResultRecord> record = ResultRecord::Read(path);
  if (!record) return watched.broken.push_back(record.error().text);
  watched.planned += CountFrames(record->planned());
  for (const auto& [frame, made] : record->frames()) {
    ++watched.made;
    for (const std::string& name : record->MissingFiles(frame, ResultRecord::Look::Sizes)) {
      watched.broken.push_back(name + ": isn't whole");
    }
  }
}

void LookAtFile(const fs::path& path, Watched& watched) {
  std::error_code error;
  if (TemporaryOwner(path.filename()) != 0) {
    ++watched.unfinished;
    return;
  }
  if (path.extension() == ResultRecord::kExtension) return LookAtRecord(path, watched);
  const FileCheck* check = FindFileCheck(path);
  const std::string name = path.stem().string();
  const auto [stem, frame] = SplitNumber(name);
  if (!check || !frame) return;
  const fs::file_time_type at = fs::last_write_time(path, error);
  const std::string key = (path.parent_path() / stem).string() + "#" + path.extension().string();
  if (!error) watched.sequences[key].push_back({*frame, at, path});
  // The end of a frame of a cache tells whether it is all there.
  HyperFile file;
  if (check->everyFrame && !file.Open(kFrameFileIdent, path, HyperFile::Mode::Read)) {
    watched.broken.push_back(file.status().error().text);
  }
}

Result<Watched> Look(const fs::path& folder) {
  Watched watched;
  std::error_code error;
  watched.running = IsLocked(folder);
  for (fs::recursive_directory_iterator at(folder, fs::directory_options::skip_permission_denied, error), end;
       !error && at != end; at.increment(error)) {
    std::error_code gone;
    if (at->is_directory(gone)) watched.running |= IsLocked(at->path());
    if (at->is_regular_file(gone)) LookAtFile(at->path(), watched);
  }
  if (error) return Error{ErrorKind::InputFile, folder.string() + ": " + error.message()};
  for (auto& [name, files] : watched.sequences) {
    std::sort(files.begin(), files.end(), [](const Finished& a, const Finished& b) { return a.frame < b.frame; });
  }
  return watched;
}

// Seconds a frame, of the last ones that were finished; 0 without two.
double Pace(std::vector<Finished> files) {
  constexpr std::size_t kRecent = 8;
  std::sort(files.begin(), files.end(), [](const Finished& a, const Finished& b) { return a.at < b.at; });
  if (files.size() < 2) return 0;
  const std::size_t span = std::min(kRecent, files.size() - 1);
  return std::chrono::duration<double>(files.back().at - files[files.size() - 1 - span].at).count() /
         static_cast<double>(span);
}

void PrintText(const fs::path& folder, const Watched& watched) {
  double slowest = 0;
  for (const auto& [name, files] : watched.sequences) {
    const double pace = Pace(files), age = std::chrono::duration<double>(Clock::now() - files.back().at).count();
    slowest = std::max(slowest, pace);
    fmt::print("{}: {} frames, last {}, {:.3g} s ago, {:.3g} s a frame\n", name, files.size(), files.back().frame,
               std::max(age, 0.0), pace);
  }
  for (const std::string& text : watched.broken) fmt::print("broken: {}\n", text);
  fmt::print("{}: {}", folder.string(), watched.running ? "running" : "no job is running");
  if (watched.planned > 0) {
    fmt::print(", {} of {} frames made", watched.made, watched.planned);
    const auto left = static_cast<double>(std::max<std::int64_t>(0, watched.planned - watched.made));
    if (watched.running && slowest > 0) fmt::print(", about {:.3g} s left", left * slowest);
  }
  fmt::print("{}\n", watched.unfinished > 0 ? fmt::format(", {} files being written", watched.unfinished) : "");
  std::fflush(stdout);
}

void PrintJson(const Watched& watched) {
  Json json = {{"running", watched.running}, {"planned", watched.planned},       {"made", watched.made},
               {"broken", watched.broken},   {"unfinished", watched.unfinished}, {"sequences", Json::array()}};
  for (const auto& [name, files] : watched.sequences) {
    json["sequences"].push_back(
        {{"name", name}, {"frames", files.size()}, {"last", files.back().frame}, {"seconds_a_frame", Pace(files)}});
  }
  fmt::print("{}\n", LaidOut(json));
  std::fflush(stdout);
}

}  // namespace

Status WatchCommand(const Program& program, const WatchOptions& options) {
  constexpr auto kWait = std::chrono::seconds(2);
  Interrupt::Install();
  for (;;) {
    const Result<Watched> watched = Look(options.folder);
    if (!watched) return watched.error();
    program.options.json ? PrintJson(*watched) : PrintText(options.folder, *watched);
    if (options.once || !watched->running || Interrupt::Signal() != 0) {
      if (watched->broken.empty()) return {};
      return Status::Fail(ErrorKind::InputFile,
                          fmt::format("{}: {} files are broken", options.folder, watched->broken.size()));
    }
    std::this_thread::sleep_for(kWait);
  }
}

}  // namespace orlix
