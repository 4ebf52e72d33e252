#include "exchange/CachedFrames.h"

#include <algorithm>
#include <map>
#include <utility>

#include "exchange/particles/ParticleFile.h"
#include "fluids/caches/GridFrameFile.h"
#include "fluids/caches/MeshFrameFile.h"
#include "fluids/caches/ParticleFrameFile.h"
#include "fluids/helpers/PropertyIds.h"
#include "fluids/particles/ParticleFlags.h"

namespace orlix {

namespace {

using Key = std::pair<std::int32_t, std::string>;  // of a property: number and owner

struct CachedRun {
  std::int32_t entry = 0;
  Vec3D hostPerSim;
  ParticleRunData data;
  bool Lives(std::size_t row) const { return (data.flags[row] & ParticleFlag::Alive) != 0; }
};

std::string NameOf(const Key& key) {
  const std::size_t slash = key.second.rfind('/');
  return ColumnNameOf(key.first, slash == std::string::npos ? key.second : key.second.substr(slash + 1));
}

class Table {
 public:
  Table(PointSet& set, const std::vector<CachedRun>& runs) : set_(set), runs_(runs) {}

  // value(run, row, component) of each living particle. False when it has no number in the column.
  template <class Value>
  bool Fill(PointAttribute& column, Value&& value) {
    bool fits = true;
    std::uint64_t row = 0;
    for (const CachedRun& run : runs_) {
      for (std::size_t r = 0; r < run.data.rows(); ++r) {
        if (!run.Lives(r)) continue;
        for (int c = 0; c < column.components; ++c) {
          const double number = value(run, r, c);
          fits &= IsReal(column.number) ? column.SetReal(row, c, number)
                                        : column.SetWhole(row, c, static_cast<std::int64_t>(number));
        }
        ++row;
      }
    }
    return fits;
  }
  bool AddProperty(const Key& key, PropertyType type, std::string name) {
    const PropertyMeaning meaning = MeaningOf(key.first);
    std::vector<const ParticleRunColumn*> columns;  // of each run
    for (const CachedRun& run : runs_) {
      const auto is = [&](const ParticleRunColumn& c) { return Key(c.id, c.owner) == key && c.type == type; };
      const auto found = std::find_if(run.data.columns.begin(), run.data.columns.end(), is);
      columns.push_back(found == run.data.columns.end() ? nullptr : &*found);
    }
    const auto columnOf = [&](const CachedRun& run) { return columns[static_cast<std::size_t>(&run - runs_.data())]; };
    const auto has = [&](const CachedRun& run, std::size_t r) { return columnOf(run) && columnOf(run)->Has(r); };
    PointAttribute& values = type == PropertyType::Vector  ? set_.Add(name, PointType::Vector, 3, NumberType::Float32)
                             : type == PropertyType::State ? set_.Add(name, PointType::Int, 1, NumberType::UInt8)
                                                           : set_.Add(name, PointType::Float, 1, NumberType::Float32);
    bool everybody = true;
    const bool fits = Fill(values, [&](const CachedRun& run, std::size_t r, int c) -> double {
      everybody &= has(run, r);
      if (!has(run, r)) return 0;
      const ParticleRunColumn& column = *columnOf(run);
      if (type == PropertyType::State) return column.states[r];
      if (type == PropertyType::Real) {
        return column.reals[r] * (meaning == PropertyMeaning::Length ? run.hostPerSim.x : 1.0);
      }
      return column.vectors[r][c] * (meaning == PropertyMeaning::Place ? run.hostPerSim[c] : 1.0);
    });
    if (everybody) return fits;
    return Fill(set_.Add("has_" + name, PointType::Int, 1, NumberType::UInt8),
                [&](const CachedRun& run, std::size_t r, int) { return double(has(run, r)); }) &&
           fits;
  }

 private:
  PointSet& set_;
  const std::vector<CachedRun>& runs_;
};

Status ReadRuns(const std::filesystem::path& path, std::vector<CachedRun>& runs, std::size_t& entries) {
  HyperFile file;
  ParticleFrameHead head;
  if (!file.Open(kFrameFileIdent, path, HyperFile::Mode::Read)) return file.status();
  if (Status read = ReadParticleFrameHead(file, path.string(), head); !read) return read;
  entries = head.entries.size();
  for (std::size_t e = 0; e < entries; ++e) {
    ParticleEntryFacts facts;
    const auto take = [&](std::int32_t, ParticleRunData& run) {
      runs.push_back({static_cast<std::int32_t>(e + 1), facts.space.hostPerSim, std::move(run)});
      return Status();
    };
    if (Status read = ReadParticleChunk(file, path.string(), head.entries[e], facts, take); !read) return read;
  }
  return {};
}

// Behind what mesh has already. first: it has nothing yet.
void Append(PolygonObject& mesh, const PolygonObject& next, bool first) {
  const auto offset = static_cast<std::int32_t>(mesh.points.size());
  const auto join = [&](auto& to, const auto& from, bool held) {
    if (held && !from.empty()) {
      to.insert(to.end(), from.begin(), from.end());
    } else {
      to.clear();
    }
  };
  join(mesh.normals, next.normals, first || !mesh.normals.empty());
  join(mesh.velocities, next.velocities, first || !mesh.velocities.empty());
  if (first) mesh.attributes = next.attributes;
  std::erase_if(mesh.attributes, [&](PolygonObject::Attribute& attribute) {
    const auto same = std::find_if(next.attributes.begin(), next.attributes.end(), [&](const auto& other) {
      return other.name == attribute.name && other.components == attribute.components;
    });
    if (same == next.attributes.end()) return true;
    if (!first) attribute.values.insert(attribute.values.end(), same->values.begin(), same->values.end());
    return false;
  });
  mesh.points.insert(mesh.points.end(), next.points.begin(), next.points.end());
  for (const PolygonObject::Polygon& p : next.polygons) {
    mesh.polygons.push_back({p.a + offset, p.b + offset, p.c + offset, p.d + offset});
  }
}

}  // namespace

Result<PointSet> ReadCachedPoints(const std::filesystem::path& path) {
  std::vector<CachedRun> runs;
  std::size_t entries = 0;
  if (Status read = ReadRuns(path, runs, entries); !read) return read.error();
  PointSet set;
  std::map<Key, PropertyType> properties;
  for (const CachedRun& run : runs) {
    for (std::size_t r = 0; r < run.data.rows(); ++r) set.count += run.Lives(r);
    for (const ParticleRunColumn& column : run.data.columns)
      properties.emplace(Key(column.id, column.owner), column.type);
  }
  if (!runs.empty() && runs.front().hostPerSim.x > 0) set.units.metresPerUnit = 1 / runs.front().hostPerSim.x;
  Table table(set, runs);
  const auto placed = [](const std::vector<Vec3D> ParticleRunData::*vectors) {
    return
        [vectors](const CachedRun& run, std::size_t r, int c) { return (run.data.*vectors)[r][c] * run.hostPerSim[c]; };
  };
  bool fits =
      table.Fill(set.Add("position", PointType::Vector, 3, NumberType::Float32), placed(&ParticleRunData::positions));
  fits &=
      table.Fill(set.Add("velocity", PointType::Vector, 3, NumberType::Float32), placed(&ParticleRunData::velocities));
  fits &= table.Fill(set.Add("id", PointType::Int, 1, NumberType::Int32),
                     [](const CachedRun& run, std::size_t r, int) { return double(run.data.ids[r]); });
  if (entries > 1) {
    fits &= table.Fill(set.Add("entry", PointType::Int, 1, NumberType::Int32),
                       [](const CachedRun& run, std::size_t, int) { return double(run.entry); });
  }
  for (const auto& [key, type] : properties) {
    std::string name = NameOf(key);
    if (name.empty()) continue;
    while (set.Find(name)) name += "_2";
    fits &= table.AddProperty(key, type, std::move(name));
  }
  if (fits) return set;
  return Error{ErrorKind::InputFile, path.string() + ": a value that has no number in single precision"};
}

Result<PolygonObject> ReadCachedMesh(const std::filesystem::path& path) {
  HyperFile file;
  std::int32_t count = 0;
  if (!file.Open(kFrameFileIdent, path, HyperFile::Mode::Read)) return file.status().error();
  if (Status read = ReadMeshFrameHead(file, path.string(), count); !read) return read.error();
  PolygonObject mesh, next;
  for (bool first = true; count > 0; --count) {
    bool present = false;
    if (Status read = ReadMeshChunk(file, path.string(), next, present); !read) return read.error();
    if (!present) continue;
    if (mesh.points.size() + next.points.size() > std::size_t(INT32_MAX)) {
      return Error{ErrorKind::InputFile, path.string() + ": more points than one mesh can have"};
    }
    Append(mesh, next, std::exchange(first, false));
  }
  return mesh;
}

}  // namespace orlix
