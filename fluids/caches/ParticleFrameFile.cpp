#include "fluids/caches/ParticleFrameFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <future>
#include <numeric>

#include "fluids/caches/GridSpaceRecord.h"

namespace orlix {

namespace {

Status Damaged(const std::string& fileName, const std::string& what) {
  return Status::Fail(ErrorKind::InputFile, fileName + ": damaged: " + what);
}

std::size_t PresenceWords(std::size_t rows) { return (rows + 63) / 64; }

// --- writing ---------------------------------------------------------------------------------------------------------

bool WriteEntryHeader(HyperFileWriter& file, const ParticleEntryHeader& header) {
  if (!file.WriteBool(header.present)) return false;
  if (!header.present) return true;
  bool ok = file.WriteLong(static_cast<std::int32_t>(header.sizes.size()));
  for (const std::int32_t size : header.sizes) ok = ok && file.WriteLong(size);
  return ok;
}

template <class T>
std::span<const std::byte> BytesOf(const std::vector<T>& values) {
  return std::as_bytes(std::span(values));
}

std::span<const std::byte> ValuesOf(const ParticleRunColumn& column) {
  return column.type == PropertyType::Real     ? BytesOf(column.reals)
         : column.type == PropertyType::Vector ? BytesOf(column.vectors)
                                               : BytesOf(column.states);
}
std::size_t NumberSize(PropertyType type) {
  return type == PropertyType::Real ? sizeof(float) : type == PropertyType::Vector ? sizeof(double) : 1;
}

// f(bytes, bytes of a number) for the blocks of a run, in their order in the file.
template <class F>
void ForEachBlock(const ParticleRunData& run, F&& f) {
  f(BytesOf(run.positions), sizeof(double));
  f(BytesOf(run.velocities), sizeof(double));
  f(BytesOf(run.flags), sizeof(std::uint16_t));
  f(BytesOf(run.ids), sizeof(std::int32_t));
  for (const ParticleRunColumn& column : run.columns) {
    if (!column.present.empty()) f(BytesOf(column.present), 1);
    f(ValuesOf(column), NumberSize(column.type));
  }
  if (!run.links.empty()) f(BytesOf(run.links), sizeof(std::int32_t));
}

// The blocks of some runs, packed by a thread of its own while those before them are written.
using PackedRuns = std::vector<std::vector<PackedBytes>>;
constexpr std::size_t kRunsAtOnce = 32;
PackedRuns PackRuns(std::span<const ParticleRunData> runs, bool compress) {
  PackedRuns packed(runs.size());
  for (std::size_t n = 0; n < runs.size(); ++n) {
    ForEachBlock(runs[n], [&](std::span<const std::byte> bytes, std::size_t size) {
      packed[n].push_back(compress ? PackBlock(bytes, size) : PackedBytes());
    });
  }
  return packed;
}

bool WriteRun(HyperFileWriter& file, const ParticleRunData& run, const std::vector<PackedBytes>& packed) {
  const PackedBytes* next = packed.data();
  const auto write = [&](std::span<const std::byte> bytes) { return WritePackedBlock(file, bytes, *next++); };
  if (!file.WriteLong(static_cast<std::int32_t>(run.rows())) || !write(BytesOf(run.positions)) ||
      !write(BytesOf(run.velocities)) || !write(BytesOf(run.flags)) || !write(BytesOf(run.ids)) ||
      !file.WriteLong(static_cast<std::int32_t>(run.columns.size()))) {
    return false;
  }
  for (const ParticleRunColumn& column : run.columns) {
    if (!file.WriteLong(column.id) || !file.WriteLong(static_cast<std::int32_t>(column.type))) return false;
    if (column.id >= kFirstUserProperty && !file.WriteString(column.owner)) return false;
    if (!file.WriteBool(column.present.empty())) return false;
    if (!column.present.empty() && !write(BytesOf(column.present))) return false;
    if (!write(ValuesOf(column))) return false;
  }
  if (!file.WriteLong(static_cast<std::int32_t>(run.links.size()))) return false;
  return run.links.empty() || write(BytesOf(run.links));
}

bool WriteRuns(HyperFileWriter& file, std::span<const ParticleRunData> runs, bool compress) {
  const auto pack = [&](std::size_t first) {
    const std::span<const ParticleRunData> some = runs.subspan(first, std::min(kRunsAtOnce, runs.size() - first));
    const bool beside = compress && first > 0;
    return std::async(beside ? std::launch::async : std::launch::deferred, PackRuns, some, compress);
  };
  if (runs.empty()) return true;
  std::future<PackedRuns> coming = pack(0);
  for (std::size_t first = 0; first < runs.size(); first += kRunsAtOnce) {
    const PackedRuns packed = coming.get();
    if (first + kRunsAtOnce < runs.size()) coming = pack(first + kRunsAtOnce);
    for (std::size_t n = 0; n < packed.size(); ++n) {
      if (!WriteRun(file, runs[first + n], packed[n])) return false;
    }
  }
  return true;
}

bool WriteFacts(HyperFileWriter& file, const ParticleEntryFacts& facts) {
  const ParticleBounds& b = facts.bounds;
  bool ok = true;
  for (const VecInt3D& cell : {b.cellMin, b.cellMax}) {
    for (int axis = 0; axis < 3; ++axis) ok = ok && file.WriteLong(cell[axis]);
  }
  for (const Vec3D& corner : {b.min, b.max}) {
    for (int axis = 0; axis < 3; ++axis) ok = ok && file.WriteLReal(corner[axis]);
  }
  return ok && file.WriteLReal(b.largestRadiusCells) && file.WriteLReal(b.largestRadius) &&
         WriteGridSpace(file, facts.space);
}

bool WriteEntryChunk(HyperFileWriter& file, const ParticleEntryData& entry, bool compress) {
  if (!file.WriteChunkStart(1, 0)) return false;
  if (entry.header.present && !WriteFacts(file, entry.facts)) return false;
  std::int32_t id = 0;
  for (const std::vector<ParticleRunData>& list : entry.lists) {
    if (!file.WriteChunkStart(++id, 1)) return false;
    if (!WriteRuns(file, list, compress) || !file.WriteChunkEnd()) return false;
  }
  return file.WriteChunkEnd();
}

// --- reading ---------------------------------------------------------------------------------------------------------

Status ReadEntryHeader(HyperFileReader& file, const std::string& fileName, ParticleEntryHeader& header) {
  header = {};
  if (!file.ReadBool(header.present)) return file.readStatus();
  if (!header.present) return {};
  std::int32_t lists = 0;
  if (!file.ReadLong(lists)) return file.readStatus();
  if (lists < 0) return Damaged(fileName, fmt::format("a population of {} lists", lists));
  for (std::int32_t n = 0; n < lists; ++n) {
    std::int32_t size = 0;
    if (!file.ReadLong(size)) return file.readStatus();
    if (size < 0) return Damaged(fileName, fmt::format("a list of {} particles", size));
    header.sizes.push_back(size);
  }
  return {};
}

Status ReadFacts(HyperFileReader& file, const std::string& fileName, ParticleEntryFacts& facts) {
  ParticleBounds& b = facts.bounds;
  bool ok = true;
  for (VecInt3D* cell : {&b.cellMin, &b.cellMax}) {
    for (int axis = 0; axis < 3; ++axis) ok = ok && file.ReadLong((*cell)[axis]);
  }
  for (Vec3D* corner : {&b.min, &b.max}) {
    for (int axis = 0; axis < 3; ++axis) ok = ok && file.ReadLReal((*corner)[axis]);
  }
  if (!ok || !file.ReadLReal(b.largestRadiusCells) || !file.ReadLReal(b.largestRadius)) return file.readStatus();
  return ReadGridSpace(file, fileName, facts.space);
}

// Whether particles can have it, by number and type.
bool CanBe(std::int32_t id, std::int32_t type) {
  if (id < 0 || id == PP::Velocity || id == PP::Position || type < 0 || type > 2) return false;
  return id >= kFirstUserProperty || TypeOfProperty(id) == static_cast<PropertyType>(type);
}

Status ReadColumn(HyperFileReader& file, const std::string& fileName, std::size_t rows, ParticleRunColumn& column) {
  std::int32_t type = 0;
  bool all = true;
  if (!file.ReadLong(column.id) || !file.ReadLong(type)) return file.readStatus();
  if (!CanBe(column.id, type)) return Damaged(fileName, fmt::format("a property {} of type {}", column.id, type));
  column.type = static_cast<PropertyType>(type);
  if (column.id >= kFirstUserProperty && !file.ReadString(column.owner)) return file.readStatus();
  if (!file.ReadBool(all)) return file.readStatus();
  if (!all) {
    if (Status read = ReadPackedBlock(file, fileName, PresenceWords(rows), 1, column.present); !read) return read;
  }
  switch (column.type) {
    case PropertyType::Real:
      return ReadPackedBlock(file, fileName, rows, sizeof(float), column.reals);
    case PropertyType::Vector:
      return ReadPackedBlock(file, fileName, rows, sizeof(double), column.vectors);
    case PropertyType::State:
      break;
  }
  return ReadPackedBlock(file, fileName, rows, 1, column.states);
}

Status ReadLinks(HyperFileReader& file, const std::string& fileName, ParticleRunData& run) {
  std::int32_t count = 0;
  if (!file.ReadLong(count)) return file.readStatus();
  if (count < 0) return Damaged(fileName, fmt::format("{} links", count));
  run.links.clear();
  if (count == 0) return {};
  const Status read = ReadPackedBlock(file, fileName, static_cast<std::size_t>(count), sizeof(std::int32_t), run.links);
  if (!read) return read;
  for (const ParticleRunLink& link : run.links) {
    if (link.row < 0 || static_cast<std::size_t>(link.row) >= run.rows() || !std::isfinite(link.weight)) {
      return Damaged(fileName, "a link of a particle that isn't there");
    }
  }
  return {};
}

Status CheckRun(const std::string& fileName, const ParticleRunData& run) {
  for (std::size_t r = 0; r < run.rows(); ++r) {
    if (!IsFinite(run.positions[r]) || !IsFinite(run.velocities[r])) {
      return Damaged(fileName, fmt::format("particle {} has no place or velocity", run.ids[r]));
    }
    if (run.ids[r] < 0) return Damaged(fileName, fmt::format("a particle of number {}", run.ids[r]));
  }
  return {};
}

Status ReadRun(HyperFileReader& file, const std::string& fileName, ParticleRunData& run) {
  std::int32_t rows = 0, columns = 0;
  if (!file.ReadLong(rows)) return file.readStatus();
  if (rows < 1 || rows > kChunkRows) return Damaged(fileName, fmt::format("a run of {} particles", rows));
  const auto n = static_cast<std::size_t>(rows);
  if (Status s = ReadPackedBlock(file, fileName, n, sizeof(double), run.positions); !s) return s;
  if (Status s = ReadPackedBlock(file, fileName, n, sizeof(double), run.velocities); !s) return s;
  if (Status s = ReadPackedBlock(file, fileName, n, sizeof(std::uint16_t), run.flags); !s) return s;
  if (Status s = ReadPackedBlock(file, fileName, n, sizeof(std::int32_t), run.ids); !s) return s;
  if (Status s = CheckRun(fileName, run); !s) return s;
  if (!file.ReadLong(columns)) return file.readStatus();
  if (columns < 0 || columns > kPropertySlots) return Damaged(fileName, fmt::format("{} properties", columns));
  run.columns.resize(static_cast<std::size_t>(columns));
  for (ParticleRunColumn& column : run.columns) {
    column = {};
    if (Status s = ReadColumn(file, fileName, n, column); !s) return s;
  }
  return ReadLinks(file, fileName, run);
}

Status ReadList(HyperFileReader& file, const std::string& fileName, std::int32_t list, std::int64_t size,
                const TakeParticleRun& take) {
  std::int32_t id = 0, level = 0;
  if (!file.ReadChunkStart(id, level)) return file.readStatus();
  ParticleRunData run;
  std::int64_t count = 0;
  for (HyperValue next = HyperValue::None;;) {
    if (!file.ReadValueHeader(next)) return file.readStatus();
    if (next == HyperValue::None) break;
    if (Status read = ReadRun(file, fileName, run); !read) return read;
    count += static_cast<std::int64_t>(run.rows());
    if (count > size) return Damaged(fileName, fmt::format("more particles in a list than the {} it counts", size));
    if (Status taken = take(list, run); !taken) return taken;
  }
  return file.ReadChunkEnd() ? Status() : file.readStatus();
}

}  // namespace

std::int64_t ParticleEntryHeader::Count() const { return std::accumulate(sizes.begin(), sizes.end(), std::int64_t(0)); }

bool WriteParticleFrame(HyperFileWriter& file, const ParticleFrameData& frame, bool compress, std::string_view number) {
  if (!WriteGridSpace(file, frame.sceneSpace) || !file.WriteLong(static_cast<std::int32_t>(frame.entries.size()))) {
    return false;
  }
  for (const ParticleEntryData& entry : frame.entries) {
    if (!WriteEntryHeader(file, entry.header)) return false;
  }
  for (const ParticleEntryData& entry : frame.entries) {
    if (!WriteEntryChunk(file, entry, compress)) return false;
  }
  return number.empty() || file.WriteString(number);
}

Status ReadParticleFrameHead(HyperFileReader& file, const std::string& fileName, ParticleFrameHead& head) {
  if (Status read = ReadGridSpace(file, fileName, head.sceneSpace); !read) return read;
  std::int32_t count = 0;
  if (!file.ReadLong(count)) return file.readStatus();
  if (count < 0) return Damaged(fileName, fmt::format("{} populations", count));
  head.entries.clear();
  for (std::int32_t n = 0; n < count; ++n) {
    ParticleEntryHeader header;
    if (Status read = ReadEntryHeader(file, fileName, header); !read) return read;
    head.entries.push_back(std::move(header));
  }
  return {};
}

Status SkipParticleChunk(HyperFileReader& file) { return file.SkipValue() ? Status() : file.readStatus(); }

Status ReadParticleChunk(HyperFileReader& file, const std::string& fileName, const ParticleEntryHeader& header,
                         ParticleEntryFacts& facts, const TakeParticleRun& take) {
  HyperValue next = HyperValue::None;
  if (!file.ReadValueHeader(next)) return file.readStatus();
  if (next != HyperValue::Chunk) return Damaged(fileName, "fewer chunks than populations");
  if (!header.present) return SkipParticleChunk(file);
  std::int32_t id = 0, level = 0;
  if (!file.ReadChunkStart(id, level)) return file.readStatus();
  if (Status read = ReadFacts(file, fileName, facts); !read) return read;
  for (std::size_t list = 0; list < header.sizes.size(); ++list) {
    if (Status read = ReadList(file, fileName, static_cast<std::int32_t>(list), header.sizes[list], take); !read) {
      return read;
    }
  }
  return file.ReadChunkEnd() ? Status() : file.readStatus();
}

}  // namespace orlix
