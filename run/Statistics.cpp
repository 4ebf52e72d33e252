#include "run/Statistics.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

#include "globals/Hash.h"
#include "host/files/AtomicFile.h"
#include "run/WarningReport.h"

namespace orlix {

namespace {

using Json = nlohmann::ordered_json;

// null for a value that is no number.
Json Number(double value) { return std::isfinite(value) ? Json(value) : Json(); }

template <class Stages, class Nodes>
Json Seconds(double total, const Stages& stages, const Nodes& nodes) {
  Json json = {{"total", Number(total)}, {"stages", Json::object()}, {"nodes", Json::object()}};
  for (const auto& [stage, seconds] : stages) json["stages"][StageLabel(stage)] = Number(seconds);
  // A node that runs in several stages has an entry for each, and one for what follows its workers.
  std::map<std::string, double> sums;
  for (const auto& [node, seconds] : nodes) sums[node] += seconds;
  for (const auto& [node, seconds] : sums) json["nodes"][node] = Number(seconds);
  return json;
}

Json Solvers(const std::vector<SolverReport>& solvers) {
  Json list = Json::array();
  for (const SolverReport& solver : solvers) {
    list.push_back({{"node", solver.node},
                    {"iterations", solver.iterations},
                    {"residual", Number(solver.residual)},
                    {"converged", solver.converged ? Json(*solver.converged) : Json()},
                    {"divergence_before", Number(solver.divergenceBefore)},
                    {"divergence_after", Number(solver.divergenceAfter)}});
  }
  return list;
}

Json Groups(const std::vector<ParticleReport>& groups) {
  Json list = Json::array();
  for (const ParticleReport& group : groups) {
    list.push_back({{"node", group.group},
                    {"passive", group.counts[0]},
                    {"vorticity", group.counts[1]},
                    {"liquid", group.counts[2]},
                    {"diffuse", group.counts[3]},
                    {"foam", group.foam},
                    {"spray", group.spray},
                    {"bubbles", group.bubbles},
                    {"born", group.born},
                    {"died", group.died},
                    {"lost", group.lost},
                    {"bytes", group.bytes}});
  }
  return list;
}

Json Liquids(const std::vector<LiquidReport>& liquids) {
  Json list = Json::array();
  for (const LiquidReport& liquid : liquids) {
    list.push_back({{"node", liquid.node},
                    {"surface_volume", Number(liquid.surfaceVolume)},
                    {"particle_volume", Number(liquid.particleVolume)},
                    {"particles", liquid.particles},
                    {"outside", liquid.outside},
                    {"in_walls", liquid.inWalls},
                    {"left", liquid.left}});
  }
  return list;
}

Json Densities(const std::vector<DensityReport>& densities) {
  Json list = Json::array();
  for (const DensityReport& density : densities) {
    list.push_back({{"node", density.node},
                    {"particles", density.particles},
                    {"rest_density", Number(density.restDensity)},
                    {"mean_error", Number(density.mean)},
                    {"largest_error", Number(density.largest)},
                    {"largest_compression", Number(density.compressed)}});
  }
  return list;
}

void AddCommon(Json& json, const SubstepReport& report) {
  json["cells"] = report.cells;
  json["particles"] = report.particles;
  json["groups"] = Groups(report.groups);
  json["liquids"] = Liquids(report.liquids);
  json["densities"] = Densities(report.densities);
  json["solver"] = Solvers(report.solvers);
  json["grid_bytes"] = report.gridBytes;
  json["peak_bytes"] = report.peakBytes;
  json["hash"] = HexHash(report.hash);
  json["grids"] = Json::object();
  for (const auto& [grid, hash] : report.gridHashes) json["grids"][grid] = HexHash(hash);
}

std::string Dump(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

// The lines of frames before the given one; none of a file that isn't there. A killed run may leave half a line.
std::string LinesBefore(const std::string& path, int frame) {
  std::ifstream in(path);
  std::string kept, text;
  while (std::getline(in, text)) {
    const Json json = Json::parse(text, nullptr, false);
    if (!json.is_object() || !json.contains("frame") || !json["frame"].is_number_integer()) continue;
    if (json["frame"].get<int>() < frame) kept += text + "\n";
  }
  return kept;
}

}  // namespace

Result<std::unique_ptr<Statistics>> Statistics::Open(const std::string& path, int startFrame) {
  std::error_code error;
  if (std::filesystem::is_regular_file(path, error)) {
    if (Status kept = WriteFileAtomically(path, LinesBefore(path, startFrame)); !kept.ok()) return kept.error();
  }
  std::FILE* file = std::fopen(path.c_str(), "a");
  if (!file) return Error{ErrorKind::Output, fmt::format("{}: can't be written: {}", path, std::strerror(errno))};
  return std::unique_ptr<Statistics>(new Statistics(path, file));
}

Statistics::~Statistics() {
  if (file_) std::fclose(file_);
}

void Statistics::Write(const std::string& line) {
  if (error_ == 0 && (std::fwrite(line.data(), 1, line.size(), file_) != line.size() || std::fputc('\n', file_) < 0)) {
    error_ = errno;
  }
}

Status Statistics::Flush() {
  if (error_ == 0 && std::fflush(file_) != 0) error_ = errno;
  if (error_ == 0) return {};
  return Status::Fail(ErrorKind::Output, fmt::format("{}: can't be written: {}", path_, std::strerror(error_)));
}

void Statistics::AfterSubstep(const RunState& state, const SubstepReport& report) {
  Json json = {
      {"kind", "substep"},       {"scene", report.scene},
      {"frame", state.frame},    {"substep", report.substep},
      {"dt", Number(report.dt)}, {"seconds", Seconds(report.seconds, report.stageSeconds, report.nodeSeconds)}};
  AddCommon(json, report);
  Write(Dump(json));

  FrameSums& sums = sums_[report.scene];
  const SubstepReport before = std::move(sums.total);
  sums.total = report;
  sums.total.dt += before.dt;
  sums.total.seconds += before.seconds;
  sums.total.cells = std::max(report.cells, before.cells);
  sums.total.particles = std::max(report.particles, before.particles);
  sums.total.peakBytes = std::max(report.peakBytes, before.peakBytes);
  sums.total.solvers.insert(sums.total.solvers.begin(), before.solvers.begin(), before.solvers.end());
  for (std::size_t g = 0; g < std::min(before.groups.size(), report.groups.size()); ++g) {
    sums.total.groups[g].born += before.groups[g].born;
    sums.total.groups[g].died += before.groups[g].died;
    sums.total.groups[g].lost += before.groups[g].lost;
  }
  for (std::size_t l = 0; l < std::min(before.liquids.size(), report.liquids.size()); ++l) {
    sums.total.liquids[l].left += before.liquids[l].left;
  }
  ++sums.substeps;
  for (const auto& [stage, seconds] : report.stageSeconds) sums.stages[stage] += seconds;
  for (const auto& [node, seconds] : report.nodeSeconds) sums.nodes[node] += seconds;
}

void Statistics::OnWarning(const RunState&, const Warning& warning) {
  Json json = {{"kind", "warning"}};
  json.update(AsJson(warning));
  Write(Dump(json));
}

Status Statistics::AfterFrame(const RunState& state) {
  for (const auto& [key, scene] : state.hook.scenes()) {
    FrameSums& sums = sums_[scene->Name()];
    for (const auto& [stage, seconds] : scene->VisualSeconds().stages) {
      sums.stages[stage] += seconds;
      sums.total.seconds += seconds;
    }
    for (const auto& [node, seconds] : scene->VisualSeconds().nodes) sums.nodes[node] += seconds;
    // Anew: what is played back or made after the sub-steps counts too.
    sums.total.hash = scene->HashState(&sums.total.gridHashes);
    Json json = {{"kind", "frame"},
                 {"scene", scene->Name()},
                 {"frame", state.frame},
                 {"substeps", sums.substeps},
                 {"dt", Number(sums.total.dt)},
                 {"wall_seconds", Number(state.seconds)},
                 {"seconds", Seconds(sums.total.seconds, sums.stages, sums.nodes)}};
    AddCommon(json, sums.total);
    Write(Dump(json));
  }
  sums_.clear();
  return Flush();
}

// The file stays open: listeners that come later may still warn.
Status Statistics::AfterRun(const RunState&) { return Flush(); }

}  // namespace orlix
