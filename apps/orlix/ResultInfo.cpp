// What `orlix info` says about results: caches, checkpoints, VDB files, meshes, pictures.

#include <fmt/format.h>

#include "apps/orlix/FileInfo.h"
#include "apps/orlix/IsolatedCheck.h"
#include "exchange/vdb/VdbFile.h"
#include "fluids/caches/GridFrameFile.h"
#include "globals/Hash.h"
#include "host/geometry/MeshReader.h"
#include "host/pictures/PictureFile.h"
#include "run/Checkpoint.h"
#include "scene_file/JsonLayout.h"

namespace orlix {

namespace {

using Json = nlohmann::ordered_json;

std::string Text(const VecInt3D& v) { return fmt::format("{} x {} x {}", v.x, v.y, v.z); }
Json Triple(const VecInt3D& v) { return {v.x, v.y, v.z}; }
Json Triple(const Vec3D& v) { return {v.x, v.y, v.z}; }

Status ReadVdbHead(const std::filesystem::path& path) { return ReadVdbInfo(path, false).status(); }
Status ReadDescription(const std::filesystem::path& path) { return DescribePicture(path).status(); }

}  // namespace

Status PrintGridCacheInfo(const Program& program, const std::string& path) {
  HyperFile file;
  GridFrameHead head;
  if (!file.Open(kFrameFileIdent, path, HyperFile::Mode::Read)) return file.status();
  if (Status read = ReadGridFrameHead(file, path, head); !read.ok()) return read;
  if (!program.options.json) fmt::print("{}: grid cache, {} entries\n", path, head.entries.size());
  Json json = {{"kind", "grid cache"}, {"entries", Json::array()}};
  for (std::size_t i = 0; i < head.entries.size(); i++) {
    const GridCacheHeader& entry = head.entries[i];
    const char* type = entry.present ? GridTypeText(entry.gridType) : "empty";
    const Vec3D& low = entry.space.hostMin;
    if (program.options.json) {
      Json item = {{"type", type}};
      if (entry.present) {
        item.update({{"dims", Triple(entry.dims)},
                     {"cell_size", entry.space.cellSize},
                     {"low", Triple(low)},
                     {"size", Triple(entry.space.hostSize)}});
      }
      json["entries"].push_back(std::move(item));
    } else if (entry.present) {
      fmt::print("  {}: {}, {} cells of {:.6g} m, low corner ({:.6g}, {:.6g}, {:.6g}) host units\n", i + 1, type,
                 Text(entry.dims), entry.space.cellSize, low.x, low.y, low.z);
    } else {
      fmt::print("  {}: {}\n", i + 1, type);
    }
  }
  if (program.options.json) fmt::print("{}\n", LaidOut(json));
  return {};
}

Status PrintCheckpointInfo(const Program& program, const std::string& path) {
  const Result<CheckpointHead> head = ReadCheckpointHead(path);
  if (!head.ok()) return head.error();
  if (program.options.json) {
    const Json json = {{"kind", "checkpoint"},
                       {"frame", head->frame},
                       {"scenes", head->scenes},
                       {"scene_hash", HexHash(head->sceneHash)},
                       {"state_hash", HexHash(head->stateHash)}};
    fmt::print("{}\n", LaidOut(json));
    return {};
  }
  fmt::print("{}: checkpoint after frame {}, {} scenes, scene {}, state {}\n", path, head->frame, head->scenes,
             HexHash(head->sceneHash), HexHash(head->stateHash));
  return {};
}

Status PrintVdbInfo(const Program& program, const std::string& path) {
  // A few crafted bytes make the library take gigabytes: what a process of its own survives is read.
  if (Status loaded = LoadVdbLibrary(); !loaded) return loaded;
  if (Status readable = RunIsolated(ReadVdbHead, path); !readable.ok()) return readable;
  const Result<std::vector<VdbGridInfo>> grids = ReadVdbInfo(path, false);
  if (!grids.ok()) return grids.error();
  if (!program.options.json) fmt::print("{}: VDB, {} grids\n", path, (*grids).size());
  Json json = {{"kind", "vdb"}, {"grids", Json::array()}};
  for (const VdbGridInfo& grid : *grids) {
    if (program.options.json) {
      json["grids"].push_back({{"name", grid.name},
                               {"type", grid.valueType},
                               {"class", grid.gridClass},
                               {"active_voxels", grid.activeVoxels},
                               {"min", Triple(grid.min)},
                               {"max", Triple(grid.max)},
                               {"voxel_size", Triple(grid.voxelSize)}});
    } else {
      fmt::print("  {}: {}, {}, {} active voxels of {:.6g} host units in ({}, {}, {}) to ({}, {}, {})\n", grid.name,
                 grid.valueType, grid.gridClass, grid.activeVoxels, grid.voxelSize.x, grid.min.x, grid.min.y,
                 grid.min.z, grid.max.x, grid.max.y, grid.max.z);
    }
  }
  if (program.options.json) fmt::print("{}\n", LaidOut(json));
  return {};
}

Status PrintMeshInfo(const Program& program, const std::string& path) {
  const Result<MeshInfo> mesh = DescribeMesh(path);
  if (!mesh.ok()) return mesh.error();
  static constexpr const char *kKinds[] = {"obj", "ply", "stl"}, *kNames[] = {"OBJ", "PLY", "STL"};
  const auto format = static_cast<std::size_t>(mesh->format);
  const Vec3D &low = mesh->low, &high = mesh->high;
  if (program.options.json) {
    Json json = {{"kind", kKinds[format]}, {"encoding", mesh->encoding},
                 {"points", mesh->points}, {"polygons", mesh->polygons},
                 {"low", nullptr},         {"high", nullptr}};
    if (mesh->points > 0) json["low"] = Triple(low), json["high"] = Triple(high);
    fmt::print("{}\n", LaidOut(json));
    return {};
  }
  fmt::print("{}: {} ({}), {} points, {} polygons", path, kNames[format], mesh->encoding, mesh->points, mesh->polygons);
  if (mesh->points > 0) {
    fmt::print(", in ({:.6g}, {:.6g}, {:.6g}) to ({:.6g}, {:.6g}, {:.6g})", low.x, low.y, low.z, high.x, high.y,
               high.z);
  }
  fmt::print("\n");
  return {};
}

Status PrintPictureInfo(const Program& program, const std::string& path) {
  if (Status readable = RunIsolated(ReadDescription, path); !readable.ok()) return readable;
  const Result<PictureInfo> info = DescribePicture(path);
  if (!info.ok()) return info.error();
  if (!program.options.json) {
    fmt::print("{}: {}, {} x {}\n", path, info->format, info->width, info->height);
    if (!info->toneMap.empty()) fmt::print("  tone map: {}\n", info->toneMap);
  }
  Json json = {{"kind", info->format}, {"width", info->width}, {"height", info->height}, {"channels", Json::array()}};
  if (!info->toneMap.empty()) json["tone_map"] = info->toneMap;
  for (const ChannelRange& channel : info->channels) {
    if (program.options.json) {
      json["channels"].push_back({{"name", channel.name},
                                  {"min", channel.min},
                                  {"max", channel.max},
                                  {"mean", channel.mean},
                                  {"not_finite", channel.notFinite}});
    } else {
      fmt::print("  {}: {:.6g} to {:.6g}, mean {:.6g}{}\n", channel.name, channel.min, channel.max, channel.mean,
                 channel.notFinite > 0 ? fmt::format(", {} values that are no number", channel.notFinite) : "");
    }
  }
  if (program.options.json) fmt::print("{}\n", LaidOut(json));
  return {};
}

}  // namespace orlix
