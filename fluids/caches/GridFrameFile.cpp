#include "fluids/caches/GridFrameFile.h"

#include <fmt/format.h>

#include <new>

#include "fluids/caches/GridSpaceRecord.h"
#include "host/files/Compressor.h"

namespace orlix {

namespace {

constexpr int kCompressionLevel = 9;

Error Damaged(const std::string& fileName, const std::string& what) {
  return {ErrorKind::InputFile, fileName + ": damaged: " + what};
}

std::span<const std::byte> BytesOf(const ScalarGrid& grid) {
  return std::as_bytes(std::span(grid.data, static_cast<std::size_t>(grid.count)));
}
std::span<std::byte> WritableBytesOf(ScalarGrid& grid) {
  return std::as_writable_bytes(std::span(grid.data, static_cast<std::size_t>(grid.count)));
}

bool WriteHeader(HyperFileWriter& file, const CachedGridSet& grids) {
  const ScalarGrid* first = grids.empty() ? nullptr : grids.front();
  const bool present = first && first->count > 0;
  if (!file.WriteBool(present)) return false;
  if (!present) return true;
  return file.WriteLong(static_cast<std::int32_t>(first->gridType)) && file.WriteLong(first->dims.x) &&
         file.WriteLong(first->dims.y) && file.WriteLong(first->dims.z) && WriteGridSpace(file, first->space);
}

bool WriteBlock(HyperFileWriter& file, const ScalarGrid& grid, bool compress) {
  const std::span<const std::byte> raw = BytesOf(grid);
  std::vector<std::byte> packed;
  const bool compressed = compress && Compressor::Compress(raw, kCompressionLevel, packed);
  const std::span<const std::byte> block = compressed ? std::span<const std::byte>(packed) : raw;
  return file.WriteBool(compressed) && file.WriteMemory(block.data(), block.size());
}

Status ReadHeader(HyperFileReader& file, const std::string& fileName, GridCacheHeader& header) {
  if (!file.ReadBool(header.present)) return file.readStatus();
  if (!header.present) return {};
  std::int32_t type = 0;
  if (!file.ReadLong(type) || !file.ReadLong(header.dims.x) || !file.ReadLong(header.dims.y) ||
      !file.ReadLong(header.dims.z)) {
    return file.readStatus();
  }
  header.gridType = static_cast<std::uint32_t>(type);
  if (Status read = ReadGridSpace(file, fileName, header.space); !read.ok()) return read;
  if (header.dims != header.space.dims + ExtraCells(header.gridType)) {
    return Damaged(fileName, fmt::format("an array of {} x {} x {} on another lattice", header.dims.x, header.dims.y,
                                         header.dims.z));
  }
  return {};
}

// The header of a component: those of a velocity stand on the faces of their own axis.
GridCacheHeader HeaderOfComponent(const GridCacheHeader& first, std::size_t component) {
  GridCacheHeader header = first;
  if (first.gridType != kGridVelocityU) return header;
  header.gridType = static_cast<std::uint32_t>(component);
  header.dims = first.space.dims + ExtraCells(header.gridType);
  return header;
}

// Reads the block's bytes into grid, whose array has the header's dims.
Status ReadBytes(HyperFileReader& file, const std::string& fileName, bool compressed, ScalarGrid& grid) {
  const std::span<std::byte> to = WritableBytesOf(grid);
  if (!compressed) return file.ReadMemory(to.data(), to.size()) ? Status() : file.readStatus();
  std::vector<std::byte> packed;
  if (!file.ReadMemory(packed)) return file.readStatus();
  if (!Compressor::Uncompress(packed, to)) return Damaged(fileName, "a block that can't be uncompressed");
  return {};
}

// Before memory is taken: what stands there can be count numbers.
Status CheckBlockSize(HyperFileReader& file, const std::string& fileName, bool compressed, std::int64_t count) {
  std::uint64_t size = 0;
  if (!file.NextMemorySize(size)) return file.readStatus();
  const std::uint64_t wanted = static_cast<std::uint64_t>(count) * sizeof(double);
  if (compressed ? Compressor::LargestContent(size) < wanted : size != wanted) {
    return Damaged(fileName, fmt::format("a block of {} bytes for {} cells", size, count));
  }
  return {};
}

Status ReadBlock(HyperFileReader& file, const std::string& fileName, const GridCacheHeader& header, ScalarGrid& target,
                 const GridPlayback& playback) {
  bool compressed = false;
  if (!file.ReadBool(compressed)) return file.readStatus();
  const std::int64_t count = CellCount(header.dims);
  if (Status fits = CheckBlockSize(file, fileName, compressed, count); !fits.ok()) return fits;
  // Equal lattices don't make equal arrays: a nodal grid has more samples than a centred one.
  const bool sameArray =
      header.gridType == target.gridType || ExtraCells(header.gridType) == ExtraCells(target.gridType);
  if (sameArray && count == target.count && header.space.Equals(target.space)) {
    return ReadBytes(file, fileName, compressed, target);
  }
  try {
    ScalarGrid source(header.dims, header.space.hostSize, header.space.cellSize, header.gridType, header.space.hostMin);
    if (Status read = ReadBytes(file, fileName, compressed, source); !read.ok()) return read;
    EGridResampler resampler;
    if (resampler.Init(&source, &target, false, playback.interpolation, ResampleOperation::Copy, {}, true,
                       playback.pool.count())) {
      resampler.Run(playback.pool, playback.hostThread);
    }
  } catch (const std::bad_alloc&) {
    return Status::Fail(ErrorKind::Memory, fmt::format("{}: no memory for a grid of {} cells", fileName, count));
  }
  return {};
}

// Enters the chunk of a header with present; passes over that of another, and entered stays false.
Status EnterGridChunk(HyperFileReader& file, const std::string& fileName, const GridCacheHeader& header,
                      bool& entered) {
  HyperValue next;
  if (!file.ReadValueHeader(next)) return file.readStatus();
  if (next != HyperValue::Chunk) return Damaged(fileName, "fewer chunks than entries");
  if (!header.present) return file.SkipValue() ? Status() : file.readStatus();
  std::int32_t id = 0, level = 0;
  entered = file.ReadChunkStart(id, level);
  return entered ? Status() : file.readStatus();
}

// The next block as a grid of its own.
Status ReadNewGrid(HyperFileReader& file, const std::string& fileName, const GridCacheHeader& header,
                   std::unique_ptr<ScalarGrid>& grid) {
  bool compressed = false;
  if (!file.ReadBool(compressed)) return file.readStatus();
  const std::int64_t count = CellCount(header.dims);
  if (Status fits = CheckBlockSize(file, fileName, compressed, count); !fits.ok()) return fits;
  try {
    grid = std::make_unique<ScalarGrid>(header.dims, header.space.hostSize, header.space.cellSize, header.gridType,
                                        header.space.hostMin);
  } catch (const std::bad_alloc&) {
    return Status::Fail(ErrorKind::Memory, fmt::format("{}: no memory for a grid of {} cells", fileName, count));
  }
  return ReadBytes(file, fileName, compressed, *grid);
}

}  // namespace

bool WriteGridFrame(HyperFileWriter& file, const GridSpace& sceneSpace, std::span<const CachedGridSet> entries,
                    bool compress, std::string_view number) {
  if (!WriteGridSpace(file, sceneSpace) || !file.WriteLong(static_cast<std::int32_t>(entries.size()))) return false;
  for (const CachedGridSet& grids : entries) {
    if (!WriteHeader(file, grids)) return false;
  }
  std::int32_t id = 0;
  for (const CachedGridSet& grids : entries) {
    if (!file.WriteChunkStart(++id, 0)) return false;
    for (const ScalarGrid* grid : grids) {
      if (grid && !WriteBlock(file, *grid, compress)) return false;
    }
    if (!file.WriteChunkEnd()) return false;
  }
  return number.empty() || file.WriteString(number);
}

Status ReadGridFrameHead(HyperFileReader& file, const std::string& fileName, GridFrameHead& head) {
  if (Status read = ReadGridSpace(file, fileName, head.sceneSpace); !read.ok()) return read;
  std::int32_t count = 0;
  if (!file.ReadLong(count)) return file.readStatus();
  if (count < 0) return Damaged(fileName, fmt::format("{} entries", count));
  head.entries.clear();
  for (std::int32_t i = 0; i < count; i++) {
    GridCacheHeader header;
    if (Status read = ReadHeader(file, fileName, header); !read.ok()) return read;
    head.entries.push_back(header);
  }
  return {};
}

Status ReadGridFrameNumber(HyperFileReader& file, std::string& number) {
  number.clear();
  for (HyperValue next = HyperValue::None; file.ReadValueHeader(next) && next != HyperValue::None;) {
    if (!(next == HyperValue::String ? file.ReadString(number) : file.SkipValue())) break;
  }
  return file.readStatus();
}

Status ReadGridChunk(HyperFileReader& file, const std::string& fileName, const GridCacheHeader& header,
                     std::span<ScalarGrid* const> targets, const GridPlayback& playback) {
  bool entered = false;
  if (Status status = EnterGridChunk(file, fileName, header, entered); !entered) return status;
  for (std::size_t c = 0; c < targets.size(); c++) {
    if (!targets[c] || targets[c]->count < 1) {
      if (!file.SkipValue() || !file.SkipValue()) return file.readStatus();
      continue;
    }
    if (Status read = ReadBlock(file, fileName, HeaderOfComponent(header, c), *targets[c], playback); !read.ok()) {
      return read;
    }
  }
  return file.SkipToEndChunk() && file.ReadChunkEnd() ? Status() : file.readStatus();
}

Status ReadGridChunk(HyperFileReader& file, const std::string& fileName, const GridCacheHeader& header,
                     std::vector<std::unique_ptr<ScalarGrid>>& grids) {
  grids.clear();
  bool entered = false;
  if (Status status = EnterGridChunk(file, fileName, header, entered); !entered) return status;
  for (;;) {
    HyperValue next;
    if (!file.ReadValueHeader(next)) return file.readStatus();
    if (next == HyperValue::None) return file.ReadChunkEnd() ? Status() : file.readStatus();
    if (grids.size() == 3) return Damaged(fileName, "more than three grids in an entry");
    grids.emplace_back();
    if (Status read = ReadNewGrid(file, fileName, HeaderOfComponent(header, grids.size() - 1), grids.back());
        !read.ok()) {
      return read;
    }
  }
}

}  // namespace orlix
