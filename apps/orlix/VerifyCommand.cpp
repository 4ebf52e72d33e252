// orlix verify DIR: which results are whole, missing or broken.

#include <fmt/format.h>

#include "apps/orlix/Command.h"
#include "apps/orlix/FolderReport.h"
#include "scene_file/JsonLayout.h"

namespace orlix {

namespace {

using Json = nlohmann::ordered_json;

void PrintText(const std::string& path, const FolderReport& report) {
  for (const SequenceReport& sequence : report.sequences) {
    std::string line = fmt::format("{}: {} whole", sequence.name, sequence.whole);
    if (!sequence.missing.empty()) line += ", missing " + FormatRanges(sequence.missing);
    if (sequence.missingCount > 1 && sequence.step > 1) line += fmt::format(" in steps of {}", sequence.step);
    if (!sequence.left.empty()) line += ", left by another run: " + FormatRanges(sequence.left);
    if (!sequence.broken.empty()) line += fmt::format(", {} broken", sequence.broken.size());
    fmt::print("{}\n", line);
    for (const BrokenFile& file : sequence.broken) fmt::print("  broken: {}\n", file.reason);
  }
  for (const RecordReport& record : report.records) {
    const std::string name = record.path.string();
    for (const std::string& file : record.missing) fmt::print("{}: {} is missing or cut off\n", name, file);
    if (!record.neverMade.empty()) fmt::print("{}: frames never made: {}\n", name, FormatRanges(record.neverMade));
    if (!record.fromOthers.empty()) {
      fmt::print("{}: frames made from caches that have changed since: {}\n", name, FormatRanges(record.fromOthers));
    }
  }
  for (const BrokenFile& folder : report.unreadable) fmt::print("  broken: {}\n", folder.reason);
  for (const auto& file : report.unfinished) fmt::print("unfinished: {}\n", file.string());
  fmt::print("{}: {} whole, {} broken, {} missing\n", path, report.whole, report.broken, report.missing);
}

void PrintJson(const std::string& path, const FolderReport& report) {
  Json json = {{"folder", path},
               {"whole", report.whole},
               {"broken", report.broken},
               {"missing", report.missing},
               {"stale", report.stale},
               {"records", Json::array()},
               {"sequences", Json::array()},
               {"unreadable", Json::array()},
               {"unfinished", Json::array()}};
  for (const RecordReport& record : report.records) {
    Json entry = {{"path", record.path.string()},
                  {"missing", record.missing},
                  {"never_made", Json::array()},
                  {"stale", Json::array()}};
    for (const FrameRange& range : record.neverMade) entry["never_made"].push_back({range.first, range.last});
    for (const FrameRange& range : record.fromOthers) entry["stale"].push_back({range.first, range.last});
    json["records"].push_back(std::move(entry));
  }
  for (const BrokenFile& folder : report.unreadable) json["unreadable"].push_back(folder.path.string());
  for (const SequenceReport& sequence : report.sequences) {
    Json entry = {{"name", sequence.name},   {"whole", sequence.whole},  {"step", sequence.step},
                  {"broken", Json::array()}, {"missing", Json::array()}, {"left", Json::array()}};
    for (const FrameRange& range : sequence.left) entry["left"].push_back({range.first, range.last});
    for (const BrokenFile& file : sequence.broken) {
      entry["broken"].push_back({{"path", file.path.string()}, {"reason", file.reason}});
    }
    for (const FrameRange& range : sequence.missing) entry["missing"].push_back({range.first, range.last});
    json["sequences"].push_back(std::move(entry));
  }
  for (const auto& file : report.unfinished) json["unfinished"].push_back(file.string());
  fmt::print("{}\n", LaidOut(json));
}

}  // namespace

Status VerifyCommand(const Program& program, const std::string& path) {
  const Result<FolderReport> report = ReportFolder(path);
  if (!report.ok()) return report.error();
  program.options.json ? PrintJson(path, *report) : PrintText(path, *report);
  if (report->whole + report->broken + report->missing == 0 && report->records.empty()) {
    return Status::Fail(ErrorKind::InputFile, path + ": holds no results");
  }
  if (report->broken == 0 && report->surelyMissing == 0 && report->stale == 0) return {};
  return Status::Fail(
      ErrorKind::InputFile,
      fmt::format("{}: {} broken, {} frames or files are missing{}", path, report->broken, report->surelyMissing,
                  report->stale > 0 ? fmt::format(", {} frames are stale", report->stale) : ""));
}

}  // namespace orlix
