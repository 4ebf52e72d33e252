#include "apps/orlix/FolderReport.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <optional>
#include <set>

#include "apps/orlix/FileCheck.h"
#include "host/files/AtomicFile.h"
#include "run/ResultRecord.h"

namespace orlix {

namespace {

namespace fs = std::filesystem;

struct Sequence {
  const FileCheck* check = nullptr;
  std::vector<FrameFile> files{};
  std::optional<ResultRecord> record{};  // of the simulation that recorded it
};
using Sequences = std::map<std::string, Sequence>;

// The name with its number, where it has one, as # signs. A number of another width belongs to the same sequence when
// only its padding differs: 9999 and 10000.
void AddFile(Sequences& sequences, const fs::path& path, const FileCheck& check) {
  const std::string name = path.stem().string();
  const auto [stem, frame] = SplitNumber(name);
  Sequence& sequence = sequences[(path.parent_path() / stem).string() + (frame ? "#" : "") + path.extension().string()];
  sequence.check = &check;
  sequence.files.push_back({frame.value_or(0), path, 0});
}

// STEM.EXTENSION.results: its sequence is known by the whole stem, whatever digits that ends in.
void AddRecorded(const fs::path& path, const ResultRecord& record, Sequences& sequences) {
  const fs::path cache = path.parent_path() / path.stem();
  const FileCheck* check = FindFileCheck(cache);
  if (!check) return;
  const std::string stem = cache.stem().string(), extension = cache.extension().string();
  Sequence own{check, ScanFrameFiles(path.parent_path(), stem, extension.substr(1)), record};
  std::set<fs::path> files;
  for (const FrameFile& file : own.files) files.insert(file.path);
  for (auto& [name, other] : sequences) {
    std::erase_if(other.files, [&](const FrameFile& file) { return files.contains(file.path); });
  }
  std::erase_if(sequences, [](const auto& each) { return each.second.files.empty() && !each.second.record; });
  sequences[(path.parent_path() / stem).string() + "#" + extension] = std::move(own);
}

void AddRecord(const fs::path& path, Sequences& sequences, FolderReport& report) {
  const Result<ResultRecord> record = ResultRecord::Read(path);
  if (!record.ok()) return report.unreadable.push_back({path, record.error().text});
  if (record->simulation()) return AddRecorded(path, *record, sequences);
  RecordReport own{path, {}, record->NeverMade(), record->MadeFromOthers()};
  for (const auto& [frame, made] : record->frames()) {
    for (std::string& name : record->MissingFiles(frame, ResultRecord::Look::Contents)) {
      own.missing.push_back(std::move(name));
    }
  }
  const std::int64_t missing = static_cast<std::int64_t>(own.missing.size()) + CountFrames(own.neverMade);
  report.missing += missing, report.surelyMissing += missing;
  report.stale += CountFrames(own.fromOthers);
  report.records.push_back(std::move(own));
}

// Folders below that can't be read are broken: what is in them was asked for. Links to folders aren't followed.
Status Walk(const fs::path& folder, Sequences& sequences, std::vector<fs::path>& records, FolderReport& report) {
  std::error_code error;
  for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
    std::error_code gone;
    if (at->is_directory(gone) && !at->is_symlink(gone)) {
      const Status below = Walk(at->path(), sequences, records, report);
      if (!below.ok()) report.unreadable.push_back({at->path(), below.error().text});
    }
    if (!at->is_regular_file(gone)) continue;
    if (TemporaryOwner(at->path().filename()) != 0) {
      report.unfinished.push_back(at->path());
    } else if (at->path().extension() == ResultRecord::kExtension) {
      records.push_back(at->path());
    } else if (const FileCheck* check = FindFileCheck(at->path())) {
      AddFile(sequences, at->path(), *check);
    }
  }
  if (error) return Status::Fail(ErrorKind::InputFile, folder.string() + ": " + error.message());
  return {};
}

// Gaps between the first and the last number. Files that are written each second frame have gaps by design: unless the
// kind has a file for every frame, the numbers' common step is the measure.
void FindGaps(const Sequence& sequence, SequenceReport& report) {
  const std::vector<FrameFile>& files = sequence.files;
  // Of the first and the last number that an int holds, too.
  const auto sinceFirst = [&](const FrameFile& file) {
    return static_cast<int>(std::min<std::int64_t>(std::int64_t(file.frame) - files.front().frame, INT32_MAX));
  };
  int step = 0;
  for (const FrameFile& file : files) step = std::gcd(step, sinceFirst(file));
  report.step = sequence.check->everyFrame || step < 1 ? 1 : step;
  std::vector<FrameFile> counted;
  for (const FrameFile& file : files) counted.push_back({sinceFirst(file) / report.step, {}, 0});
  report.missing = MissingFrames(counted, 0);
  report.missingCount = CountFrames(report.missing);
  for (FrameRange& gap : report.missing) {
    gap.first = files.front().frame + gap.first * report.step;
    gap.last = files.front().frame + gap.last * report.step;
  }
}

SequenceReport CheckSequence(const std::string& name, Sequence& sequence) {
  SequenceReport report;
  report.name = name;
  std::sort(sequence.files.begin(), sequence.files.end(),
            [](const FrameFile& a, const FrameFile& b) { return a.frame < b.frame; });
  for (const FrameFile& file : sequence.files) {
    const Status whole = sequence.check->check(file.path);
    if (whole.ok()) {
      report.whole++;
    } else {
      report.broken.push_back({file.path, whole.error().text});
    }
  }
  if (!sequence.record) {
    FindGaps(sequence, report);
    return report;
  }
  report.missing = sequence.record->LostFiles(sequence.files);
  report.missingCount = CountFrames(report.missing);
  std::vector<int> left;
  for (const FrameFile& file : sequence.files) {
    if (!sequence.record->Wrote(file)) left.push_back(file.frame);
  }
  report.left = RangesOf(left);
  return report;
}

}  // namespace

Result<FolderReport> ReportFolder(const fs::path& path) {
  FolderReport report;
  Sequences sequences;
  std::vector<fs::path> records;
  std::error_code error;
  const fs::file_status kind = fs::status(path, error);
  if (!fs::exists(kind)) return Error{ErrorKind::InputFile, path.string() + ": no such folder"};
  if (fs::is_directory(kind)) {
    if (Status walked = Walk(path, sequences, records, report); !walked.ok()) return walked.error();
  } else if (const FileCheck* check = FindFileCheck(path)) {
    AddFile(sequences, path, *check);
  } else if (path.extension() == ResultRecord::kExtension) {
    records.push_back(path);
  } else {
    return Error{ErrorKind::Usage, path.string() + ": not a kind of file that is checked"};
  }
  for (const fs::path& record : records) AddRecord(record, sequences, report);
  for (auto& [name, sequence] : sequences) {
    report.sequences.push_back(CheckSequence(name, sequence));
    const SequenceReport& done = report.sequences.back();
    report.whole += done.whole;
    report.broken += static_cast<std::int64_t>(done.broken.size());
    report.missing += done.missingCount;
    report.stale += CountFrames(done.left);
    if (sequence.record || sequence.check->everyFrame) report.surelyMissing += done.missingCount;
  }
  report.broken += static_cast<std::int64_t>(report.unreadable.size());
  std::sort(report.unfinished.begin(), report.unfinished.end());
  return report;
}

}  // namespace orlix
