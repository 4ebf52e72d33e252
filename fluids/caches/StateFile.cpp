#include "fluids/caches/StateFile.h"

#include <new>

#include "fluids/caches/GridSpaceRecord.h"

namespace orlix {

namespace {

bool Write(HyperFileWriter& file, const VecInt3D& v) {
  return file.WriteLong(v.x) && file.WriteLong(v.y) && file.WriteLong(v.z);
}
bool Read(HyperFileReader& file, VecInt3D& v) { return file.ReadLong(v.x) && file.ReadLong(v.y) && file.ReadLong(v.z); }
std::size_t BytesOf(const ScalarGrid& grid) { return static_cast<std::size_t>(grid.count) * sizeof(double); }

}  // namespace

void StateWriter::Begin(const char* name) {
  file_.WriteChunkStart(0, 0);
  file_.WriteString(name);
}

void StateWriter::VisitBytes(const char* name, void* bytes, std::size_t size) {
  file_.WriteString(name);
  file_.WriteMemory(bytes, size);
}

void StateWriter::VisitGrid(const char* name, std::unique_ptr<ScalarGrid>& grid) {
  file_.WriteString(name);
  const bool present = grid && grid->count > 0;
  file_.WriteBool(present);
  if (!present) return;
  file_.WriteLong(static_cast<std::int32_t>(grid->gridType));
  Write(file_, grid->dims);
  WriteGridSpace(file_, grid->space);
  Write(file_, grid->activeMin);
  Write(file_, grid->activeMax);
  file_.WriteLReal(grid->valueOffset);
  file_.WriteLReal(grid->valueScale);
  file_.WriteMemory(grid->data, BytesOf(*grid));
}

bool StateReader::Fail(ErrorKind kind, const std::string& reason) {
  if (!status_.ok()) return false;
  std::string place;
  for (const std::string& part : path_) place += (place.empty() ? "" : "/") + part;
  status_ = Status::Fail(kind, fileName_ + ": " + reason + (place.empty() ? "" : " in \"" + place + "\""));
  return false;
}

bool StateReader::Take(bool read) {
  if (!read && status_.ok()) status_ = file_.readStatus();
  return status_.ok();
}

bool StateReader::Expect(const char* name) {
  std::string found;
  if (!status_.ok() || !Take(file_.ReadString(found))) return false;
  return found == name || Fail(ErrorKind::InputFile, "holds \"" + found + "\" where \"" + name + "\" is expected");
}

void StateReader::Begin(const char* name) {
  std::int32_t id = 0, level = 0;
  if (!status_.ok() || !Take(file_.ReadChunkStart(id, level)) || !Expect(name)) return;
  path_.emplace_back(name);
}

void StateReader::End() {
  if (!status_.ok()) return;
  HyperValue next;
  if (!Take(file_.ReadValueHeader(next))) return;
  if (next != HyperValue::None) {
    Fail(ErrorKind::InputFile, "holds more than is expected");
    return;
  }
  path_.pop_back();
  Take(file_.ReadChunkEnd());
}

void StateReader::VisitBytes(const char* name, void* bytes, std::size_t size) {
  if (Expect(name)) Take(file_.ReadMemory(bytes, size));
}

void StateReader::VisitGrid(const char* name, std::unique_ptr<ScalarGrid>& grid) {
  bool present = false;
  if (!Expect(name) || !Take(file_.ReadBool(present))) return;
  if (present) {
    ReadGrid(grid);
  } else {
    grid.reset();
  }
}

void StateReader::ReadGrid(std::unique_ptr<ScalarGrid>& grid) {
  std::int32_t type = 0;
  VecInt3D dims;
  GridSpace space;
  if (!Take(file_.ReadLong(type) && Read(file_, dims))) return;
  if (status_ = ReadGridSpace(file_, fileName_, space); !status_.ok()) return;
  VecInt3D activeMin, activeMax;
  double offset = 0, scale = 0;
  std::uint64_t size = 0;
  if (!Take(Read(file_, activeMin) && Read(file_, activeMax) && file_.ReadLReal(offset) && file_.ReadLReal(scale) &&
            file_.NextMemorySize(size))) {
    return;
  }
  const auto gridType = static_cast<std::uint32_t>(type);
  // The file backs the memory: the block has a number for each cell.
  if (dims != space.dims + ExtraCells(gridType) || CellCount(dims) > kMaxGridCells ||
      size != static_cast<std::uint64_t>(CellCount(dims)) * sizeof(double)) {
    Fail(ErrorKind::InputFile, "a grid whose block disagrees with its dims");
    return;
  }
  try {
    grid = std::make_unique<ScalarGrid>(dims, space.hostSize, space.cellSize, gridType, space.hostMin);
  } catch (const std::bad_alloc&) {
    Fail(ErrorKind::Memory, "no memory for a grid of " + std::to_string(CellCount(dims)) + " cells");
    return;
  }
  grid->activeMin = activeMin, grid->activeMax = activeMax;
  grid->valueOffset = offset, grid->valueScale = scale;
  Take(file_.ReadMemory(grid->data, BytesOf(*grid)));
}

}  // namespace orlix
