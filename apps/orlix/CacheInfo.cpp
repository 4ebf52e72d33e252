// What `orlix info` says about the frame files of particle and mesh caches.

#include <fmt/format.h>

#include <map>

#include "apps/orlix/FileInfo.h"
#include "fluids/caches/GridFrameFile.h"
#include "fluids/caches/MeshFrameFile.h"
#include "fluids/caches/ParticleFrameFile.h"
#include "scene_file/JsonLayout.h"

namespace orlix {

namespace {

using Json = nlohmann::ordered_json;

// What a population's runs have in common.
struct Population {
  std::int64_t count = 0;
  Vec3D low, high;                          // m
  std::map<std::string, std::int64_t> has;  // particles that have a property, by its name

  void Add(const ParticleRunData& run) {
    for (const Vec3D& p : run.positions) {
      low = count > 0 ? Min(low, p) : p, high = count > 0 ? Max(high, p) : p;
      ++count;
    }
    for (const ParticleRunColumn& column : run.columns) {
      const PropertyInfo* known = FindProperty(column.id);
      std::int64_t& number = has[known                  ? known->name
                                 : column.owner.empty() ? fmt::format("property {}", column.id)
                                                        : column.owner];
      for (std::size_t r = 0; r < run.rows(); ++r) number += column.Has(r);
    }
  }
};

Json Triple(const Vec3D& v) { return {v.x, v.y, v.z}; }

Json AsJson(const Population& population) {
  Json json = {{"particles", population.count}};
  if (population.count > 0) json["low"] = Triple(population.low), json["high"] = Triple(population.high);
  json["properties"] = Json::object();
  for (const auto& [name, count] : population.has) json["properties"][name] = count;
  return json;
}

void Print(std::size_t number, const Population& p) {
  fmt::print("  {}: {} particles", number, p.count);
  if (p.count > 0) {
    fmt::print(" in ({:.6g}, {:.6g}, {:.6g}) to ({:.6g}, {:.6g}, {:.6g}) m", p.low.x, p.low.y, p.low.z, p.high.x,
               p.high.y, p.high.z);
  }
  std::string names;
  for (const auto& [name, count] : p.has) {
    names += (names.empty() ? "; " : ", ") + name + (count < p.count ? fmt::format(" (of {})", count) : "");
  }
  fmt::print("{}\n", names);
}

}  // namespace

Status PrintParticleCacheInfo(const Program& program, const std::string& path) {
  HyperFile file;
  ParticleFrameHead head;
  if (!file.Open(kFrameFileIdent, path, HyperFile::Mode::Read)) return file.status();
  if (Status read = ReadParticleFrameHead(file, path, head); !read.ok()) return read;
  if (!program.options.json) fmt::print("{}: particle cache, {} populations\n", path, head.entries.size());
  Json json = {{"kind", "particle cache"}, {"populations", Json::array()}};
  for (std::size_t i = 0; i < head.entries.size(); ++i) {
    Population population;
    ParticleEntryFacts facts;
    const auto add = [&](std::int32_t, ParticleRunData& run) {
      population.Add(run);
      return Status();
    };
    if (Status read = ReadParticleChunk(file, path, head.entries[i], facts, add); !read.ok()) return read;
    if (program.options.json) {
      json["populations"].push_back(AsJson(population));
    } else {
      Print(i + 1, population);
    }
  }
  if (program.options.json) fmt::print("{}\n", LaidOut(json));
  return {};
}

Status PrintMeshCacheInfo(const Program& program, const std::string& path) {
  HyperFile file;
  std::int32_t count = 0;
  if (!file.Open(kFrameFileIdent, path, HyperFile::Mode::Read)) return file.status();
  if (Status read = ReadMeshFrameHead(file, path, count); !read.ok()) return read;
  if (!program.options.json) fmt::print("{}: mesh cache, {} meshes\n", path, count);
  Json json = {{"kind", "mesh cache"}, {"meshes", Json::array()}};
  PolygonObject mesh;
  for (std::int32_t i = 0; i < count; ++i) {
    bool present = false;
    mesh = {};
    if (Status read = ReadMeshChunk(file, path, mesh, present); !read.ok()) return read;
    if (program.options.json) {
      Json item = {{"points", mesh.points.size()},
                   {"polygons", mesh.polygons.size()},
                   {"normals", !mesh.normals.empty()},
                   {"velocities", !mesh.velocities.empty()},
                   {"attributes", Json::array()}};
      for (const PolygonObject::Attribute& attribute : mesh.attributes) item["attributes"].push_back(attribute.name);
      json["meshes"].push_back(std::move(item));
    } else if (present) {
      fmt::print("  {}: {} points, {} polygons{}{}", i + 1, mesh.points.size(), mesh.polygons.size(),
                 mesh.normals.empty() ? "" : ", normals", mesh.velocities.empty() ? "" : ", velocities");
      for (const PolygonObject::Attribute& attribute : mesh.attributes) fmt::print(", {}", attribute.name);
      fmt::print("\n");
    } else {
      fmt::print("  {}: no mesh\n", i + 1);
    }
  }
  if (program.options.json) fmt::print("{}\n", LaidOut(json));
  return {};
}

}  // namespace orlix
