#include "run/ResultRecord.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <nlohmann/json.hpp>
#include <set>
#include <thread>

#include "globals/Hash.h"
#include "host/files/AtomicFile.h"
#include "host/files/ByteSource.h"

namespace orlix {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr std::uint64_t kLargestRecord = std::uint64_t(256) << 20;

// Not the time of the last write, which programs that copy files set.
std::int64_t ChangedAt(const fs::path& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return 0;
  return std::int64_t(info.st_ctim.tv_sec) * 1000000000 + info.st_ctim.tv_nsec;
}

// Waits for the clock that files get their times from, which stands still for some milliseconds: what is written from
// now on has another time. False where it is another clock, on a disk of the network.
bool AwaitTimeAfter(std::int64_t changed) {
  for (int tries = 0; tries < 20; ++tries) {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
    if (std::int64_t(now.tv_sec) * 1000000000 + now.tv_nsec > changed) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return false;
}

std::uint64_t HashOf(const Json& json, const char* key) {
  const std::string text = json.value(key, std::string());
  std::uint64_t hash = 0;
  std::from_chars(text.data(), text.data() + text.size(), hash, 16);
  return hash;
}

RecordedFrame FrameOf(const Json& json) {
  RecordedFrame frame;
  frame.origin.files = HashOf(json, "from");
  frame.origin.pictures = HashOf(json, "pictures_from");
  for (const Json& file : json.value("files", Json::array())) {
    frame.files.push_back(
        {file.value("name", std::string()), file.value("bytes", std::uint64_t(0)), file.value("picture", false)});
    if (file.contains("hash")) frame.files.back().hash = HashOf(file, "hash");
    frame.files.back().changed = file.value("changed", std::int64_t(0));
  }
  for (const Json& cache : json.value("caches", Json::array())) {
    frame.origin.caches.push_back({cache.value("path", std::string()), HashOf(cache, "stamp")});
  }
  return frame;
}

// Both sorted lists of ranges as one.
std::vector<FrameRange> Merge(const std::vector<FrameRange>& a, const std::vector<FrameRange>& b) {
  std::vector<FrameRange> all(a), merged;
  all.insert(all.end(), b.begin(), b.end());
  std::sort(all.begin(), all.end(), [](const FrameRange& x, const FrameRange& y) { return x.first < y.first; });
  for (const FrameRange& range : all) {
    if (!merged.empty() && range.first <= std::int64_t(merged.back().last) + 1) {
      merged.back().last = std::max(merged.back().last, range.last);
    } else {
      merged.push_back(range);
    }
  }
  return merged;
}

std::string PlannedLine(const std::vector<FrameRange>& planned, const std::optional<std::uint64_t>& simulation,
                        const std::optional<RecordedClock>& clock) {
  Json ranges = Json::array();
  for (const FrameRange& range : planned) ranges.push_back({range.first, range.last});
  Json json = {{"planned", ranges}};
  if (simulation) json["from"] = HexHash(*simulation);
  if (clock) json["shift"] = clock->shift, json["fps"] = clock->fps;
  return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

// Those of the planned frames that aren't there.
std::vector<FrameRange> GapsIn(const std::vector<FrameRange>& planned, const std::set<int>& there) {
  std::vector<FrameRange> gaps;
  for (const FrameRange& range : planned) {
    std::int64_t next = range.first;
    for (auto at = there.lower_bound(range.first); at != there.end() && *at <= range.last; ++at) {
      if (*at > next) gaps.push_back({static_cast<int>(next), *at - 1});
      next = std::int64_t(*at) + 1;
    }
    if (next <= range.last) gaps.push_back({static_cast<int>(next), range.last});
  }
  return gaps;
}

Status AppendLine(const fs::path& path, const std::string& line) {
  const int file = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW);
  const bool whole = file >= 0 && ::write(file, line.data(), line.size()) == static_cast<ssize_t>(line.size());
  const int error = errno;
  if (file >= 0) ::close(file);
  if (whole) return {};
  return Status::Fail(ErrorKind::Output, "can't write " + path.string() + ": " + std::strerror(error));
}

}  // namespace

std::vector<FrameRange> RangesOf(const std::vector<int>& frames) {
  std::vector<FrameRange> ranges;
  for (const int frame : frames) {
    if (!ranges.empty() && frame == ranges.back().last + 1) {
      ranges.back().last = frame;
    } else {
      ranges.push_back({frame, frame});
    }
  }
  return ranges;
}

fs::path ResultRecord::PathOf(const fs::path& folder, const std::string& scene) {
  return folder / (fs::path(scene).stem().string() + kExtension);
}

Result<ResultRecord> ResultRecord::Read(const fs::path& path) {
  ResultRecord record;
  record.path_ = path;
  std::error_code error;
  if (!fs::exists(path, error)) return record;
  const Result<FileBytes> bytes = ReadWholeFile(path, kLargestRecord);
  if (!bytes) return bytes.error();
  const std::string_view text = bytes->Text();
  std::vector<FrameRange> planned;
  bool known = text.empty();
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    const Json json = Json::parse(text.substr(at, end - at), nullptr, false);
    at = end + 1;
    if (!json.is_object()) continue;
    try {
      for (const Json& range : json.value("planned", Json::array())) {
        const FrameRange one{range.at(0).get<int>(), range.at(1).get<int>()};
        if (one.first <= one.last) planned.push_back(one);
      }
      if (json.contains("frame")) record.frames_[json["frame"].get<int>()] = FrameOf(json);
      known = known || json.contains("planned");
      if (json.contains("planned") && json.contains("from")) record.simulation_ = HashOf(json, "from");
      if (json.contains("fps")) record.clock_ = {json.value("shift", 0), json["fps"].get<double>()};
    } catch (const Json::exception&) {
      return Error{ErrorKind::InputFile, path.string() + ": damaged: a line that isn't a record's"};
    }
  }
  if (!known) return Error{ErrorKind::InputFile, path.string() + ": damaged: not a record of results"};
  record.planned_ = Merge(planned, {});
  return record;
}

std::string ResultRecord::LineOf(int frame, const RecordedFrame& made) const {
  Json files = Json::array(), caches = Json::array();
  for (const ResultFile& file : made.files) {
    files.push_back({{"name", file.name}});
    if (file.bytes != 0) files.back()["bytes"] = file.bytes;
    if (file.hash) files.back()["hash"] = HexHash(*file.hash);
    if (file.changed != 0) files.back()["changed"] = file.changed;
    if (file.picture) files.back()["picture"] = true;
  }
  for (const CacheStamp& cache : made.origin.caches) {
    caches.push_back({{"path", cache.path}, {"stamp", HexHash(cache.stamp)}});
  }
  const Json json = {{"frame", frame},
                     {"files", files},
                     {"from", HexHash(made.origin.files)},
                     {"pictures_from", HexHash(made.origin.pictures)},
                     {"caches", caches}};
  return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

Status ResultRecord::Begin(const fs::path& path, const std::vector<FrameRange>& planned,
                           std::optional<std::uint64_t> simulation, std::optional<RecordedClock> clock) {
  path_ = path;
  if (simulation != simulation_) planned_.clear();
  simulation_ = simulation, clock_ = clock;
  planned_ = Merge(planned_, planned);
  std::string text = PlannedLine(planned_, simulation_, clock_);
  for (const auto& [frame, made] : frames_) text += LineOf(frame, made);
  return WriteFileAtomically(path, text);
}

Status ResultRecord::Add(int frame, RecordedFrame made) {
  const std::string line = LineOf(frame, made);
  frames_[frame] = std::move(made);
  return AppendLine(path_, line);
}

ResultFile ResultFileOf(const fs::path& path, std::string name, bool picture) {
  ResultFile file{std::move(name), 0, picture};
  ByteSource source;
  const std::int64_t before = ChangedAt(path);
  if (!source.Open(path).ok()) return file;
  file.bytes = source.Size();
  StateHash hash;
  std::vector<std::byte> piece(std::min<std::uint64_t>(file.bytes, std::uint64_t(1) << 20));
  for (std::uint64_t at = 0; at < file.bytes; at += piece.size()) {
    const std::size_t size = std::min<std::uint64_t>(piece.size(), file.bytes - at);
    if (!source.ReadAt(at, piece.data(), size)) return file;
    hash.Add(piece.data(), size);
  }
  file.hash = hash.Value();
  if (AwaitTimeAfter(before) && ChangedAt(path) == before) file.changed = before;
  return file;
}

std::vector<std::string> ResultRecord::MissingFiles(int frame, Look look) const {
  std::vector<std::string> missing;
  const auto found = frames_.find(frame);
  for (const ResultFile& file : found == frames_.end() ? std::vector<ResultFile>() : found->second.files) {
    const fs::path path = path_.parent_path() / file.name;
    std::error_code error;
    const std::uint64_t bytes = fs::file_size(path, error);
    const bool sized = !error && (file.bytes == 0 || bytes == file.bytes);
    const bool touched = file.changed == 0 || ChangedAt(path) != file.changed;
    const bool looks = sized && file.hash && (look == Look::Contents || (look == Look::Touched && touched));
    if (!sized || (looks && ResultFileOf(path, {}, false).hash != file.hash)) missing.push_back(file.name);
  }
  return missing;
}

std::vector<FrameRange> ResultRecord::NeverMade() const {
  std::set<int> made;
  for (const auto& [frame, each] : frames_) made.insert(frame);
  return GapsIn(planned_, made);
}

bool ResultRecord::Wrote(const FrameFile& file) const {
  const auto found = frames_.find(file.frame);
  if (found == frames_.end() || found->second.origin.files != simulation_) return false;
  const std::vector<ResultFile>& files = found->second.files;
  return !files.empty() && files.front().name == file.path.filename();
}

std::vector<FrameRange> ResultRecord::LostFiles(const std::vector<FrameFile>& files) const {
  std::set<int> there;
  for (const FrameFile& file : files) there.insert(file.frame);
  for (const auto& [number, kept] : frames_) {
    if (kept.files.empty() && kept.origin.files == simulation_) there.insert(number);
  }
  return GapsIn(planned_, there);
}

std::vector<FrameRange> ResultRecord::MadeFromOthers() const {
  std::vector<int> changed;
  for (const auto& [frame, made] : frames_) {
    const auto differs = [](const CacheStamp& cache) {
      std::error_code error;
      return fs::exists(cache.path, error) && StampOf(cache.path) != cache.stamp;
    };
    if (std::any_of(made.origin.caches.begin(), made.origin.caches.end(), differs)) changed.push_back(frame);
  }
  return RangesOf(changed);
}

std::string ResultRecord::WhyMake(int frame, const FrameOrigin& origin) const {
  const auto found = frames_.find(frame);
  if (found == frames_.end()) return "never made";
  const auto notWhole = [&](Look look) {
    const std::vector<std::string> missing = MissingFiles(frame, look);
    return missing.empty() ? std::string() : missing.front() + " isn't whole";
  };
  if (std::string reason = notWhole(Look::Sizes); !reason.empty()) return reason;
  const RecordedFrame& made = found->second;
  const bool pictures =
      std::any_of(made.files.begin(), made.files.end(), [](const ResultFile& file) { return file.picture; });
  // Contents are read of frames alone that would stay.
  if (made.origin.files == origin.files && (!pictures || made.origin.pictures == origin.pictures)) {
    return notWhole(Look::Touched);
  }
  return made.origin.caches == origin.caches ? "made with other settings" : "made from another simulation";
}

}  // namespace orlix
