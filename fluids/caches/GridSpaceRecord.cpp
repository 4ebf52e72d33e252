#include "fluids/caches/GridSpaceRecord.h"

#include <fmt/format.h>

#include "fluids/grids/GridMemory.h"

namespace orlix {

namespace {

bool Write(HyperFileWriter& file, const Vec3D& v) {
  return file.WriteLReal(v.x) && file.WriteLReal(v.y) && file.WriteLReal(v.z);
}
bool Write(HyperFileWriter& file, const VecInt3D& v) {
  return file.WriteLong(v.x) && file.WriteLong(v.y) && file.WriteLong(v.z);
}
bool Write(HyperFileWriter& file, std::int32_t v) { return file.WriteLong(v); }
bool Write(HyperFileWriter& file, float v) { return file.WriteReal(v); }

bool Read(HyperFileReader& file, Vec3D& v) { return file.ReadLReal(v.x) && file.ReadLReal(v.y) && file.ReadLReal(v.z); }
bool Read(HyperFileReader& file, VecInt3D& v) { return file.ReadLong(v.x) && file.ReadLong(v.y) && file.ReadLong(v.z); }
bool Read(HyperFileReader& file, std::int32_t& v) { return file.ReadLong(v); }
bool Read(HyperFileReader& file, float& v) { return file.ReadReal(v); }

// The order of the record.
template <class Space, class F>
bool ForEachField(Space& s, F&& f) {
  return f(s.halfHostVoxel) && f(s.hostSize) && f(s.simSize) && f(s.dims) && f(s.count) && f(s.slab) &&
         f(s.hostPerVoxel) && f(s.hostPerSim) && f(s.voxelsPerHost) && f(s.voxelsPerSim) && f(s.simPerHost) &&
         f(s.simPerVoxel) && f(s.cellSize) && f(s.invCellSize) && f(s.halfCell) && f(s.hostMin) && f(s.simMin) &&
         f(s.voxelMin) && f(s.hostMax) && f(s.simMax) && f(s.voxelMax);
}

bool IsPositive(const Vec3D& v) { return IsFinite(v) && v.x > 0 && v.y > 0 && v.z > 0; }

// Why the lattice can't be; empty when it can.
std::string Fault(const GridSpace& s) {
  if (s.dims.x < 1 || s.dims.y < 1 || s.dims.z < 1) {
    return fmt::format("a lattice of {} x {} x {} cells", s.dims.x, s.dims.y, s.dims.z);
  }
  // Two factors of 31 bits don't overflow; the third is divided by.
  const std::int64_t layer = std::int64_t(s.dims.x) * s.dims.y;
  if (layer > kMaxGridCells / s.dims.z) {
    return fmt::format("a lattice of {} x {} x {} cells, more than {}", s.dims.x, s.dims.y, s.dims.z, kMaxGridCells);
  }
  if (s.slab != layer || s.count != CellCount(s.dims)) {
    return fmt::format("a lattice of {} cells that counts {}", CellCount(s.dims), s.count);
  }
  if (!IsPositive(s.hostSize) || !std::isfinite(s.cellSize) || s.cellSize <= 0) return "a lattice without a size";
  if (!IsFinite(s.hostMin)) return "a lattice without a place";
  return {};
}

}  // namespace

bool WriteGridSpace(HyperFileWriter& file, const GridSpace& space) {
  return ForEachField(space, [&](const auto& field) { return Write(file, field); });
}

Status ReadGridSpace(HyperFileReader& file, const std::string& fileName, GridSpace& space) {
  GridSpace stored;
  if (!ForEachField(stored, [&](auto& field) { return Read(file, field); })) return file.readStatus();
  if (const std::string fault = Fault(stored); !fault.empty()) {
    return Status::Fail(ErrorKind::InputFile, fileName + ": damaged: " + fault);
  }
  space.Build(stored.dims, stored.hostSize, stored.cellSize, stored.hostMin);
  return {};
}

}  // namespace orlix
