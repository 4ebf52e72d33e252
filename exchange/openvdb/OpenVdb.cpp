#include <fmt/format.h>
#include <openvdb/io/File.h>
#include <openvdb/io/Stream.h>
#include <openvdb/openvdb.h>
#include <openvdb/points/PointDataGrid.h>
#include <openvdb/tools/Morphology.h>
#include <openvdb/tools/Prune.h>
#include <openvdb/tools/SignedFloodFill.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <memory>
#include <span>
#include <stdexcept>
#include <tuple>

#include "exchange/points/PointBytes.h"
#include "exchange/vdb/VdbCalls.h"
#include "host/files/AtomicStream.h"

namespace orlix {

namespace {

constexpr double kBandVoxels = 3;
constexpr int kVelocityMargin = 3;  // voxels around a fog volume: what motion blur and advection look at

// Row i of the matrix is where the i-th index axis leads, the last one where index 0 lies.
openvdb::math::Transform::Ptr TransformOf(const GridSpace& space, bool nodal, const ExportSpace& to) {
  const Vec3D cell = space.hostPerVoxel;
  const Vec3D rows[] = {to({cell.x, 0, 0}), to({0, cell.y, 0}), to({0, 0, cell.z}), nodal ? Vec3D() : to(cell * 0.5)};
  openvdb::Mat4R matrix = openvdb::Mat4R::identity();
  for (int row = 0; row < 4; ++row) {
    for (int axis = 0; axis < 3; ++axis) matrix(row, axis) = rows[row][axis];
  }
  return openvdb::math::Transform::createLinearTransform(matrix);
}

// Whether all values times scale are numbers of single precision. Rows, so that the loop vectorises.
bool FitsFloat(const double* data, std::int64_t count, double scale) {
  constexpr std::int64_t kRow = 4096;
  constexpr double kMost = std::numeric_limits<float>::max();
  for (std::int64_t from = 0; from < count; from += kRow) {
    const std::int64_t behind = std::min(count, from + kRow);
    int bad = 0;
    for (std::int64_t i = from; i < behind; ++i) bad |= !(std::fabs(data[i] * scale) <= kMost);
    if (bad) return false;
  }
  return true;
}

// Level sets have values only within their band, which fit.
Status TestRange(const VdbField& field) {
  if (field.kind == VdbClass::LevelSet) return {};
  for (int c = 0; c < 3 && field.grids[c]; ++c) {
    const ScalarGrid& grid = *field.grids[c];
    const double scale = field.kind == VdbClass::Velocity ? grid.space.hostPerSim[c] : 1.0;
    if (FitsFloat(grid.data, grid.count, scale)) continue;
    std::int64_t i = 0;
    while (FitsFloat(grid.data + i, 1, scale)) ++i;
    return Status::Fail(
        ErrorKind::Diverged,
        fmt::format("\"{}\": the grid {} has the value {:.3g} at ({}, {}, {}), beyond what OpenVDB files "
                    "hold in single precision",
                    field.node, field.name, grid.data[i] * scale, i % grid.dims.x, i / grid.dims.x % grid.dims.y,
                    i / grid.dims.x / grid.dims.y));
  }
  return {};
}

constexpr int kLeaf = 8;  // voxels across a leaf of the trees

VecInt3D LeafBelow(const VecInt3D& voxel) { return {voxel.x & -kLeaf, voxel.y & -kLeaf, voxel.z & -kLeaf}; }

// Leaves of all voxels from origin on, dims of them, whose value isn't the background; those that are all the same
// become tiles. rowsOf(leaf) gives for the leaf from this voxel on what fills its rows: row(i, end, j, k, out) writes
// the values from i to end, counted from origin. It is called on many threads.
template <class GridT, class RowsOf>
void FillTree(GridT& grid, const VecInt3D& origin, const VecInt3D& dims, RowsOf&& rowsOf) {
  using LeafT = typename GridT::TreeType::LeafNodeType;
  using Value = typename GridT::ValueType;
  const VecInt3D first = LeafBelow(origin), end = origin + dims;
  const VecInt3D leaves = (LeafBelow(end - VecInt3D(1, 1, 1)) - first) / kLeaf + VecInt3D(1, 1, 1);
  const auto count = static_cast<std::size_t>(leaves.x) * leaves.y * leaves.z;
  const auto voxelOf = [&](std::size_t n) {
    const auto at = static_cast<std::int64_t>(n);
    return first + VecInt3D(int(at % leaves.x), int(at / leaves.x % leaves.y), int(at / leaves.x / leaves.y)) * kLeaf;
  };
  const Value background = grid.background();
  std::vector<std::unique_ptr<LeafT>> made(count);
  const auto make = [&](std::size_t n) {
    const VecInt3D voxel = voxelOf(n), low = Max(voxel, origin), high = Min(voxel + VecInt3D(kLeaf, kLeaf, kLeaf), end);
    const auto row = rowsOf(voxel);
    std::array<Value, kLeaf> values;
    for (int k = low.z; k < high.z; ++k) {
      for (int j = low.y; j < high.y; ++j) {
        row(low.x - origin.x, high.x - origin.x, j - origin.y, k - origin.z, values.data());
        for (int i = low.x; i < high.x; ++i) {
          const Value& value = values[static_cast<std::size_t>(i - low.x)];
          if (value == background) continue;
          if (!made[n]) made[n] = std::make_unique<LeafT>(openvdb::Coord(voxel.x, voxel.y, voxel.z), background);
          made[n]->setValueOn(openvdb::Coord(i, j, k), value);
        }
      }
    }
  };
  tbb::parallel_for(tbb::blocked_range<std::size_t>(0, count, 64), [&](const tbb::blocked_range<std::size_t>& range) {
    for (std::size_t n = range.begin(); n != range.end(); ++n) make(n);
  });
  openvdb::tree::ValueAccessor<typename GridT::TreeType> accessor(grid.tree());
  for (std::unique_ptr<LeafT>& leaf : made) {
    if (!leaf) continue;
    Value value;
    bool active = false;
    if (leaf->isConstant(value, active)) {
      accessor.addTile(1, leaf->origin(), value, active);
    } else {
      accessor.addLeaf(leaf.release());
    }
  }
  openvdb::tools::pruneTiles(grid.tree());
}

openvdb::GridBase::Ptr FogGrid(const VdbField& field, const ExportSpace& to) {
  const ScalarGrid& source = *field.grids[0];
  openvdb::FloatGrid::Ptr grid = openvdb::FloatGrid::create(static_cast<float>(field.background));
  const auto row = [&](int i, int end, int j, int k, float* out) {
    std::transform(&source(i, j, k), &source(i, j, k) + (end - i), out, [](double v) { return static_cast<float>(v); });
  };
  FillTree(*grid, source.space.voxelMin, source.dims, [&](const VecInt3D&) { return row; });
  grid->setTransform(TransformOf(source.space, source.gridType == kGridNodalLevelset, to));
  grid->setGridClass(openvdb::GRID_FOG_VOLUME);
  return grid;
}

openvdb::GridBase::Ptr LevelSetGrid(const VdbField& field, const ExportSpace& to) {
  const ScalarGrid& source = *field.grids[0];
  const double perSim = source.space.hostPerSim.x * to.scale;
  const float band = static_cast<float>(kBandVoxels * source.space.hostPerVoxel.x * to.scale);
  openvdb::FloatGrid::Ptr grid = openvdb::FloatGrid::create(band);
  const auto row = [&](int i, int end, int j, int k, float* out) {
    for (; i < end; ++i, ++out) {
      const float phi = static_cast<float>(source(i, j, k) * perSim);
      *out = std::fabs(phi) < band ? phi : band;
    }
  };
  FillTree(*grid, source.space.voxelMin, source.dims, [&](const VecInt3D&) { return row; });
  openvdb::tools::signedFloodFill(grid->tree());
  grid->setTransform(TransformOf(source.space, source.gridType == kGridNodalLevelset, to));
  grid->setGridClass(openvdb::GRID_LEVEL_SET);
  return grid;
}

// near: where it is written; everywhere without.
openvdb::GridBase::Ptr VelocityGrid(const VdbField& field, const ExportSpace& to, const openvdb::MaskTree* near) {
  const ScalarGrid &u = *field.grids[0], &v = *field.grids[1], &w = *field.grids[2];
  const GridSpace& space = u.space;
  const Vec3D half = space.hostPerSim * 0.5;
  const openvdb::Coord origin(space.voxelMin.x, space.voxelMin.y, space.voxelMin.z);
  openvdb::Vec3SGrid::Ptr grid = openvdb::Vec3SGrid::create(openvdb::Vec3s(0.0f));
  FillTree(*grid, space.voxelMin, space.dims, [&](const VecInt3D& voxel) {
    const openvdb::Coord at(voxel.x, voxel.y, voxel.z);
    const auto* mask = near ? near->probeConstLeaf(at) : nullptr;
    const bool everywhere = !near || (!mask && near->isValueOn(at));
    return [&, mask, everywhere](int i, int end, int j, int k, openvdb::Vec3s* out) {
      for (; i < end; ++i, ++out) {
        *out = openvdb::Vec3s(0.0f);
        if (!everywhere && !(mask && mask->isValueOn(openvdb::Coord(i, j, k) + origin))) continue;
        const Vec3D value = to({(u(i, j, k) + u(i + 1, j, k)) * half.x, (v(i, j, k) + v(i, j + 1, k)) * half.y,
                                (w(i, j, k) + w(i, j, k + 1)) * half.z});
        *out = openvdb::Vec3s(static_cast<float>(value.x), static_cast<float>(value.y), static_cast<float>(value.z));
      }
    };
  });
  grid->setTransform(TransformOf(space, false, to));
  grid->setVectorType(openvdb::VEC_CONTRAVARIANT_RELATIVE);
  return grid;
}

void Initialise() {
  static const bool once = [] {
    openvdb::initialize();
    return true;
  }();
  static_cast<void>(once);
}

Error Unreadable(const std::filesystem::path& path, const std::string& why) {
  return {ErrorKind::InputFile, fmt::format("{}: no readable OpenVDB file: {}", path.string(), why)};
}

template <class GridT, class Size>
void ValueRange(const openvdb::GridBase& base, VdbGridInfo& info, Size&& size) {
  const auto* grid = dynamic_cast<const GridT*>(&base);
  if (!grid) return;
  bool first = true;
  for (auto it = grid->cbeginValueOn(); it; ++it) {
    const double v = size(it.getValue());
    info.low = first ? v : std::min(info.low, v);
    info.high = first ? v : std::max(info.high, v);
    first = false;
  }
}

VdbGridInfo InfoOf(const openvdb::GridBase& grid, bool withValues) {
  VdbGridInfo info;
  info.name = grid.getName();
  info.valueType = grid.valueType();
  info.gridClass = openvdb::GridBase::gridClassToString(grid.getGridClass());
  const openvdb::Vec3d voxel = grid.voxelSize();
  info.voxelSize = {voxel.x(), voxel.y(), voxel.z()};
  if (!withValues) {
    // Written by every writer: the counts stand in the file's metadata.
    if (const auto count = grid.getMetadata<openvdb::Int64Metadata>(openvdb::GridBase::META_FILE_VOXEL_COUNT)) {
      info.activeVoxels = static_cast<std::uint64_t>(std::max<std::int64_t>(0, count->value()));
    }
    const auto min = grid.getMetadata<openvdb::Vec3IMetadata>(openvdb::GridBase::META_FILE_BBOX_MIN);
    const auto max = grid.getMetadata<openvdb::Vec3IMetadata>(openvdb::GridBase::META_FILE_BBOX_MAX);
    if (min) info.min = {min->value().x(), min->value().y(), min->value().z()};
    if (max) info.max = {max->value().x(), max->value().y(), max->value().z()};
    return info;
  }
  info.activeVoxels = grid.activeVoxelCount();
  const openvdb::CoordBBox box = grid.evalActiveVoxelBoundingBox();
  info.min = {box.min().x(), box.min().y(), box.min().z()};
  info.max = {box.max().x(), box.max().y(), box.max().z()};
  ValueRange<openvdb::FloatGrid>(grid, info, [](float v) { return v; });
  ValueRange<openvdb::Vec3SGrid>(grid, info, [](const openvdb::Vec3s& v) {
    return std::max({std::fabs(v.x()), std::fabs(v.y()), std::fabs(v.z())});
  });
  return info;
}

openvdb::GridBase::Ptr MakeGrid(const VdbField& field, const ExportSpace& to, const openvdb::MaskTree* near) {
  switch (field.kind) {
    case VdbClass::Fog:
      return FogGrid(field, to);
    case VdbClass::LevelSet:
      return LevelSetGrid(field, to);
    case VdbClass::Velocity:
      break;
  }
  return VelocityGrid(field, to, near);
}

// Units and upward axis, where they are known.
void AddUnits(openvdb::GridBase& grid, const FileUnits& units) {
  if (!(units.metresPerUnit > 0)) return;
  grid.insertMeta("metres_per_unit", openvdb::DoubleMetadata(units.metresPerUnit));
  grid.insertMeta("up_axis", openvdb::StringMetadata(units.upZ ? "z" : "y"));
}

openvdb::GridPtrVec MakeGrids(const std::vector<VdbField>& fields, const VdbOptions& options) {
  openvdb::GridPtrVec grids(fields.size());
  const auto has = [&](VdbClass kind) {
    return std::any_of(fields.begin(), fields.end(), [&](const VdbField& field) { return field.kind == kind; });
  };
  const bool masked = !options.velocityEverywhere && has(VdbClass::Fog) && has(VdbClass::Velocity);
  openvdb::MaskTree near;
  const auto make = [&](bool velocities) {
    for (std::size_t f = 0; f < fields.size(); ++f) {
      if ((fields[f].kind == VdbClass::Velocity) != velocities) continue;
      grids[f] = MakeGrid(fields[f], options.space, masked ? &near : nullptr);
      if (masked && fields[f].kind == VdbClass::Fog)
        near.topologyUnion(openvdb::gridPtrCast<openvdb::FloatGrid>(grids[f])->tree());
    }
  };
  make(false);
  if (masked) openvdb::tools::dilateActiveValues(near, kVelocityMargin, openvdb::tools::NN_FACE_EDGE_VERTEX);
  make(true);
  for (std::size_t f = 0; f < fields.size(); ++f) {
    grids[f]->setName(fields[f].name);
    grids[f]->setCreator("Orlix");
    grids[f]->insertMeta("frame", openvdb::Int32Metadata(options.frame));
    AddUnits(*grids[f], options.units);
    grids[f]->addStatsMetadata();
  }
  return grids;
}

void WriteStream(std::ostream& stream, const openvdb::GridPtrVec& grids) {
  openvdb::io::Stream file(stream);
  file.setCompression(openvdb::io::COMPRESS_BLOSC | openvdb::io::COMPRESS_ACTIVE_MASK);
  file.write(grids);
}

Result<std::vector<VdbGridInfo>> ReadInfo(const std::filesystem::path& path, bool withValues);

// make() gives the grids.
template <class Make>
Status WriteGrids(const std::filesystem::path& path, std::size_t count, Make&& make) {
  AtomicStream stream;
  if (Status opened = stream.Open(path); !opened) return opened;
  try {
    WriteStream(stream, make());
  } catch (const std::exception& e) {
    // A failed write is the file's error, with its reason; anything else is the library's.
    if (!stream.status()) return stream.status();
    return Status::Fail(ErrorKind::Output, fmt::format("{}: {}", path.string(), e.what()));
  }
  return stream.Commit([&](const std::filesystem::path& temporary) {
    const auto info = ReadInfo(temporary, false);
    if (!info) return info.status();
    if (info->size() == count) return Status();
    return Status::Fail(ErrorKind::Output,
                        fmt::format("{}: {} of {} grids can be read back", path.string(), info->size(), count));
  });
}

Status WriteFields(const std::filesystem::path& path, const std::vector<VdbField>& fields, const VdbOptions& options) {
  Initialise();
  for (const VdbField& field : fields) {
    if (Status fits = TestRange(field); !fits) return fits;
  }
  return WriteGrids(path, fields.size(), [&] { return MakeGrids(fields, options); });
}

openvdb::GridPtrVecPtr ReadHeaders(const std::filesystem::path& path) {
  openvdb::io::File file(path.string());
  file.open(/*delayLoad=*/false);
  return file.readAllGridMetadata();
}

// The library doesn't look whether a read came short: a file that lost its last bytes would pass.
openvdb::GridPtrVecPtr ReadGrids(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  openvdb::io::Stream stream(in, /*delayLoad=*/false);
  openvdb::GridPtrVecPtr grids = stream.getGrids();
  if (!in) throw std::runtime_error("truncated");
  return grids;
}

Result<std::vector<VdbGridInfo>> ReadInfo(const std::filesystem::path& path, bool withValues) {
  Initialise();
  std::vector<VdbGridInfo> infos;
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) return Unreadable(path, "not a plain file");
  try {
    const openvdb::GridPtrVecPtr grids = withValues ? ReadGrids(path) : ReadHeaders(path);
    for (const openvdb::GridBase::Ptr& grid : *grids) infos.push_back(InfoOf(*grid, withValues));
  } catch (const std::exception& e) {
    return Unreadable(path, e.what());
  }
  return infos;
}

// --- points ----------------------------------------------------------------------------------------------------------

namespace points = openvdb::points;
using PointLeaf = points::PointDataTree::LeafNodeType;
using VectorColumn = points::TypedAttributeArray<openvdb::Vec3f>;
using FloatColumn = points::TypedAttributeArray<float>;
using IntColumn = points::TypedAttributeArray<std::int32_t>;

constexpr PointName kVdbNames[] = {{"position", "P"}, {"velocity", "v"}, {"color", "Cd"}, {"radius", "pscale"}};
constexpr int kPointsPerVoxel = 8;

// Rows by the leaf and the voxel in it that they lie in.
struct PlacedRow {
  openvdb::Coord leaf;
  openvdb::Index voxel;
  std::uint32_t row;
  bool operator<(const PlacedRow& o) const {
    return leaf == o.leaf ? std::tie(voxel, row) < std::tie(o.voxel, o.row) : leaf < o.leaf;
  }
};

Vec3D PlaceOf(const PointAttribute& position, std::uint64_t row) {
  return {position.Real(row, 0), position.Real(row, 1), position.Real(row, 2)};
}

// For eight points a voxel, were they spread evenly; flat clouds have fewer.
double PointVoxel(const PointAttribute& position, std::uint64_t count) {
  Vec3D low, high;
  for (std::uint64_t row = 0; row < count; ++row) {
    const Vec3D at = PlaceOf(position, row);
    for (int axis = 0; axis < 3; ++axis) {
      low[axis] = row == 0 ? at[axis] : std::min(low[axis], at[axis]);
      high[axis] = row == 0 ? at[axis] : std::max(high[axis], at[axis]);
    }
  }
  const Vec3D size = high - low;
  const double most = std::max({size.x, size.y, size.z});
  double far = 0;
  for (const Vec3D& corner : {low, high}) {
    for (int axis = 0; axis < 3; ++axis) far = std::max(far, std::fabs(corner[axis]));
  }
  const double even = std::cbrt(size.x * size.y * size.z * kPointsPerVoxel / std::max(1.0, double(count)));
  constexpr double kMostIndex = 1e8;  // of a lattice of 32 bits
  return std::max({even, most > 0 ? most / 2000 : 1.0, far / kMostIndex});
}

std::vector<PlacedRow> PlacedRows(const PointSet& set, const openvdb::math::Transform& transform) {
  const PointAttribute& position = *set.Find("position");
  std::vector<PlacedRow> rows(set.count);
  for (std::uint64_t row = 0; row < set.count; ++row) {
    const Vec3D at = PlaceOf(position, row);
    const openvdb::Coord voxel = transform.worldToIndexNodeCentered(openvdb::Vec3d(at.x, at.y, at.z));
    const openvdb::Coord leaf = voxel & ~(PointLeaf::DIM - 1);
    rows[row] = {leaf, PointLeaf::coordToOffset(voxel), static_cast<std::uint32_t>(row)};
  }
  std::sort(rows.begin(), rows.end());
  return rows;
}

template <class T, class Value>
void FillColumn(PointLeaf& leaf, const std::string& name, std::span<const PlacedRow> rows, Value&& value) {
  points::AttributeWriteHandle<T> handle(leaf.attributeArray(name));
  for (std::size_t n = 0; n < rows.size(); ++n) handle.set(static_cast<openvdb::Index>(n), value(rows[n]));
}

void FillLeaf(PointLeaf& leaf, std::span<const PlacedRow> rows, const PointSet& set,
              const openvdb::math::Transform& transform) {
  std::vector<PointLeaf::ValueType> ends(PointLeaf::SIZE);
  for (const PlacedRow& row : rows) ends[row.voxel] = ends[row.voxel] + 1;
  for (std::size_t n = 1; n < ends.size(); ++n) ends[n] = ends[n] + ends[n - 1];
  leaf.setOffsets(ends);
  for (const PointAttribute& column : set.attributes) {
    const std::string name = TheirName(kVdbNames, column.name);
    if (column.name == "position") {
      FillColumn<openvdb::Vec3f>(leaf, name, rows, [&](const PlacedRow& row) {
        const Vec3D at = PlaceOf(column, row.row);
        const openvdb::Vec3d index = transform.worldToIndex(openvdb::Vec3d(at.x, at.y, at.z));
        return openvdb::Vec3f(index - leaf.offsetToGlobalCoord(row.voxel).asVec3d());
      });
    } else if (column.components == 3) {
      FillColumn<openvdb::Vec3f>(leaf, name, rows, [&](const PlacedRow& row) {
        const Vec3D v = PlaceOf(column, row.row);
        return openvdb::Vec3f(openvdb::Vec3d(v.x, v.y, v.z));
      });
    } else if (column.components == 1 && IsReal(column.number)) {
      FillColumn<float>(leaf, name, rows, [&](const PlacedRow& row) { return float(column.Real(row.row, 0)); });
    } else if (column.components == 1) {
      FillColumn<std::int32_t>(leaf, name, rows, [&](const PlacedRow& row) {
        return static_cast<std::int32_t>(std::clamp<std::int64_t>(column.Whole(row.row, 0), INT32_MIN, INT32_MAX));
      });
    }
  }
}

openvdb::GridBase::Ptr PointGrid(const PointSet& set, int frame) {
  const auto grid = points::PointDataGrid::create();
  grid->setTransform(openvdb::math::Transform::createLinearTransform(PointVoxel(*set.Find("position"), set.count)));
  // The library adds columns one at a time, each to the descriptor before it.
  std::vector<points::AttributeSet::Descriptor::Ptr> columns{
      points::AttributeSet::Descriptor::create(VectorColumn::attributeType())};
  for (const PointAttribute& column : set.attributes) {
    if (column.name == "position" || (column.components != 1 && column.components != 3)) continue;
    columns.push_back(columns.back()->duplicateAppend(TheirName(kVdbNames, column.name),
                                                      column.components == 3  ? VectorColumn::attributeType()
                                                      : IsReal(column.number) ? FloatColumn::attributeType()
                                                                              : IntColumn::attributeType()));
  }
  const std::vector<PlacedRow> rows = PlacedRows(set, grid->transform());
  for (std::size_t first = 0, end; first < rows.size(); first = end) {
    for (end = first; end < rows.size() && rows[end].leaf == rows[first].leaf;) ++end;
    PointLeaf& leaf = *grid->tree().touchLeaf(rows[first].leaf);
    leaf.initializeAttributes(columns[0], static_cast<openvdb::Index>(end - first));
    for (std::size_t c = 1; c < columns.size(); ++c) leaf.appendAttribute(*columns[c - 1], columns[c], c);
    FillLeaf(leaf, {rows.data() + first, end - first}, set, grid->transform());
  }
  grid->setName("points");
  grid->setCreator("Orlix");
  grid->insertMeta("frame", openvdb::Int32Metadata(frame));
  AddUnits(*grid, set.units);
  return grid;
}

// The columns of a leaf that a set can hold.
template <class T, class Store>
bool CopyColumn(const PointLeaf& leaf, std::size_t slot, std::uint64_t first, Store&& store) {
  const points::AttributeArray& array = leaf.constAttributeArray(slot);
  if (!array.hasValueType<T>()) return false;
  points::AttributeHandle<T> handle(array);
  std::uint64_t row = first;
  for (openvdb::Index n = 0; n < array.size(); ++n) store(row++, handle.get(n));
  return true;
}

void CopyLeaf(const PointLeaf& leaf, const openvdb::math::Transform& transform, std::uint64_t first, PointSet& set) {
  const points::AttributeHandle<openvdb::Vec3f> inVoxel(leaf.constAttributeArray("P"));
  std::uint64_t row = first;
  for (auto point = leaf.beginIndexAll(); point; ++point, ++row) {
    const openvdb::Vec3d at = transform.indexToWorld(openvdb::Vec3d(inVoxel.get(*point)) + point.getCoord().asVec3d());
    for (int c = 0; c < 3; ++c) set.attributes[0].SetReal(row, c, at[c]);
  }
  for (std::size_t a = 1; a < set.attributes.size(); ++a) {
    PointAttribute& column = set.attributes[a];
    const std::size_t slot = leaf.attributeSet().find(TheirName(kVdbNames, column.name));
    if (slot == points::AttributeSet::INVALID_POS) continue;
    if (column.components == 3) {
      CopyColumn<openvdb::Vec3s>(leaf, slot, first, [&](std::uint64_t at, const openvdb::Vec3s& v) {
        for (int c = 0; c < 3; ++c) column.SetReal(at, c, v[c]);
      });
    } else if (IsReal(column.number)) {
      CopyColumn<float>(leaf, slot, first, [&](std::uint64_t at, float v) { column.SetReal(at, 0, v); });
    } else {
      CopyColumn<std::int32_t>(leaf, slot, first, [&](std::uint64_t at, int v) { column.SetWhole(at, 0, v); });
    }
  }
}

// What the first leaf has stands for all.
void DeclareColumns(const PointLeaf& leaf, PointSet& set) {
  for (const auto& [name, slot] : leaf.attributeSet().descriptor().map()) {
    const points::AttributeArray& array = leaf.constAttributeArray(slot);
    if (name == "P" || !CanAdd(set, OurName(kVdbNames, name)) || array.stride() != 1) continue;
    const std::string ours = OurName(kVdbNames, name);
    if (array.hasValueType<openvdb::Vec3s>()) set.Add(ours, PointType::Vector, 3, NumberType::Float32);
    if (array.hasValueType<float>()) set.Add(ours, PointType::Float, 1, NumberType::Float32);
    if (array.hasValueType<std::int32_t>()) set.Add(ours, PointType::Int, 1, NumberType::Int32);
  }
}

Status WritePointGrid(const std::filesystem::path& path, const PointSet& set, int frame) {
  Initialise();
  if (const auto position = PositionsOf(set); !position) return position.error();
  if (Status fits = TestInt32Count(set); !fits) return fits;
  return WriteGrids(path, 1, [&] { return openvdb::GridPtrVec{PointGrid(set, frame)}; });
}

Result<PointSet> ReadPointGrids(const std::filesystem::path& path) {
  Initialise();
  PointSet set;
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) return Unreadable(path, "not a plain file");
  try {
    const openvdb::GridPtrVecPtr grids = ReadGrids(path);
    std::vector<points::PointDataGrid::ConstPtr> found;
    for (const openvdb::GridBase::Ptr& grid : *grids) {
      if (const auto each = openvdb::gridPtrCast<points::PointDataGrid>(grid)) found.push_back(each);
    }
    if (found.empty()) return Unreadable(path, "it has no grid of points");
    for (const auto& grid : found) {
      for (auto leaf = grid->tree().cbeginLeaf(); leaf; ++leaf) set.count += leaf->pointCount();
    }
    set.Add("position", PointType::Vector, 3, NumberType::Float32);
    std::uint64_t first = 0;
    for (const auto& grid : found) {
      for (auto leaf = grid->tree().cbeginLeaf(); leaf; ++leaf) {
        if (set.attributes.size() == 1) DeclareColumns(*leaf, set);
        CopyLeaf(*leaf, grid->transform(), first, set);
        first += leaf->pointCount();
      }
    }
  } catch (const std::exception& e) {
    return Unreadable(path, e.what());
  }
  return set;
}

constexpr VdbCalls kCalls{WriteFields, WritePointGrid, ReadPointGrids, ReadInfo};

}  // namespace

}  // namespace orlix

extern "C" const orlix::VdbCalls* OrlixVdbCalls() { return &orlix::kCalls; }
