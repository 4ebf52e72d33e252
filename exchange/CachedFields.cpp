#include "exchange/CachedFields.h"

#include <fmt/format.h>

#include "fluids/caches/GridFrameFile.h"

namespace orlix {

namespace {

bool IsLevelSet(std::uint32_t gridType) { return gridType == kGridLevelset || gridType == kGridNodalLevelset; }

std::string OwnName(std::uint32_t gridType, VdbNames names) {
  if (gridType == kGridVelocityU) return VelocityName(names);
  if (IsLevelSet(gridType)) return "surface";
  const char* name = NameOfGridType(gridType);
  return name ? name : "density";
}

void AddFields(std::uint32_t gridType, const std::string& name, std::span<const std::unique_ptr<ScalarGrid>> grids,
               NameSet& taken, std::vector<VdbField>& fields) {
  if (gridType == kGridVelocityU) {
    fields.push_back({taken.Take(name), VdbClass::Velocity, {grids[0].get(), grids[1].get(), grids[2].get()}});
    return;
  }
  static constexpr const char* kSuffix[] = {"_x", "_y", "_z"};
  const VdbClass kind = IsLevelSet(gridType) ? VdbClass::LevelSet : VdbClass::Fog;
  for (std::size_t c = 0; c < grids.size(); ++c) {
    fields.push_back({taken.Take(grids.size() > 1 ? name + kSuffix[c] : name), kind, {grids[c].get()}});
  }
}

}  // namespace

Result<CachedFields> ReadCachedFields(const std::filesystem::path& path, VdbNames names,
                                      std::span<const std::string> given) {
  HyperFile file;
  GridFrameHead head;
  if (!file.Open(kFrameFileIdent, path, HyperFile::Mode::Read)) return file.status().error();
  if (Status read = ReadGridFrameHead(file, path.string(), head); !read.ok()) return read.error();
  if (!given.empty() && given.size() != head.entries.size()) {
    return Error{ErrorKind::Usage,
                 fmt::format("{} names for the {} entries of {}", given.size(), head.entries.size(), path.string())};
  }
  CachedFields cached;
  NameSet taken;
  for (std::size_t e = 0; e < head.entries.size(); ++e) {
    const GridCacheHeader& entry = head.entries[e];
    std::vector<std::unique_ptr<ScalarGrid>> grids;
    if (Status read = ReadGridChunk(file, path.string(), entry, grids); !read.ok()) return read.error();
    if (grids.empty()) continue;
    if (entry.gridType == kGridVelocityU && grids.size() != 3) {
      return Error{ErrorKind::InputFile,
                   fmt::format("{}: damaged: a velocity of {} grids", path.string(), grids.size())};
    }
    const bool named = !given.empty() && !given[e].empty();
    const std::string name = named ? PlainName(given[e]) : OwnName(entry.gridType, names);
    const std::size_t first = cached.fields.size();
    AddFields(entry.gridType, name, grids, taken, cached.fields);
    for (auto& grid : grids) cached.grids.push_back(std::move(grid));
    for (std::size_t f = first; f < cached.fields.size(); ++f) {
      cached.fields[f].node = fmt::format("{}, entry {}", path.string(), e + 1);
    }
  }
  return cached;
}

}  // namespace orlix
