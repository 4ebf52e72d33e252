#include "fluids/emitters/EmissionHandler.h"

#include <limits>

#include "fluids/grids/Spread.h"

namespace orlix {

namespace {

constexpr LayerRange kAllLayers{std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()};

void EmitWith(const GridEmissionWriter& writer, double value, const Vec3D& position,
              std::span<const std::int64_t> indices, std::size_t component) {
  if (!writer.HasGrid()) return;
  if (component < indices.size()) {
    writer.EmitAt(value, indices[component]);
  } else {
    writer.Emit(value, position, kAllLayers);
  }
}

double LimitedToOne(double value) { return value > 1 ? 1 : value < 0 ? 0 : value; }

}  // namespace

LayerRange GridEmissionWriter::LayersOf(double z) const {
  const double coordinate = (z - origin_.z) * voxelsPerSim_.z;
  if (spread_) {
    const std::int32_t low = LinearAxis(coordinate - sampleOffset_.z, grid_.dims.z).i;
    return {low, low + 2};
  }
  const std::int32_t layer = SnappedCell({0, 0, coordinate - cellOffset_.z}).z;
  return {layer, layer + 1};
}

void GridEmissionWriter::Emit(double value, const Vec3D& position, const LayerRange& layers) const {
  const Vec3D coordinates = (position - origin_) * voxelsPerSim_;
  if (spread_) {
    const Vec3D at = coordinates - sampleOffset_;
    const double share = limitsValue ? LimitedToOne(value) : value;
    const bool small = grid_.dims.x < 2 || grid_.dims.y < 2 || grid_.dims.z < 2;
    if (small) return;
    SpreadWithin(grid_, share, at.x, at.y, at.z,
                 mode_ == EmissionMode::Set ? SpreadOperation::Assign : SpreadOperation::Add, layers.begin, layers.end);
    return;
  }
  const VecInt3D cell = SnappedCell(coordinates - cellOffset_);
  const VecInt3D n = grid_.dims;
  if (cell.x < 0 || cell.y < 0 || cell.z < 0 || cell.x >= n.x || cell.y >= n.y || cell.z >= n.z) return;
  if (layers.Holds(cell.z)) EmitAt(value, grid_.Index(cell.x, cell.y, cell.z));
}

void GridEmissionWriter::EmitAt(double value, std::int64_t index) const {
  const double v = limitsValue ? LimitedToOne(value) : value;
  double& cell = grid_[index];
  switch (mode_) {
    case EmissionMode::Set:
      cell = v;
      break;
    case EmissionMode::AddToLimit:
      cell += v;
      if (limit_ < cell) cell = limit_;
      break;
    default:
      cell += v;
  }
  if (cell < valueMin_) cell = valueMin_;
  if (valueMax_ < cell) cell = valueMax_;
}

GridEmissionWriter ScalarEmissionHandler::Writer(const GridEmission& emission) const {
  ScalarGrid* grid = channel_->GetGrid(0);
  if (!grid || !grid->data) return {};
  const double limit = emission.scalarLimit.value_or(channel_->valueMax);
  return {*grid, Vec3D(), emission, channel_->valueMin, channel_->valueMax, limit};
}

void ScalarEmissionHandler::Emit(const double& value, const Vec3D& position, const GridEmission& emission,
                                 std::span<const std::int64_t> indices) const {
  EmitWith(Writer(emission), value, position, indices, 0);
}

GridEmissionWriter FireEmissionHandler::Writer(const GridEmission& emission) const {
  GridEmissionWriter writer = ScalarEmissionHandler::Writer(emission);
  writer.limitsValue = true;
  return writer;
}

std::array<GridEmissionWriter, 3> VectorEmissionHandler::Writers(const GridEmission& emission) const {
  std::array<GridEmissionWriter, 3> writers;
  for (std::int32_t c = 0; c < 3; ++c) {
    ScalarGrid* grid = channel_->GetGrid(c);
    if (!grid || !grid->data) return {};
    const double limit = emission.vectorLimit ? (*emission.vectorLimit)[c] : channel_->valueMax[c];
    // A staggered component finds its own cell.
    writers[static_cast<std::size_t>(c)] = {
        *grid, CellSampleOffset(grid->gridType), emission, channel_->valueMin[c], channel_->valueMax[c], limit};
  }
  return writers;
}

void VectorEmissionHandler::Emit(const Vec3D& value, const Vec3D& position, const GridEmission& emission,
                                 std::span<const std::int64_t> indices) const {
  const auto writers = Writers(emission);
  for (std::size_t c = 0; c < 3; ++c) EmitWith(writers[c], value[static_cast<int>(c)], position, indices, c);
}

std::unique_ptr<ScalarEmissionHandler> CreateEmissionHandler(const ChannelBase_Scalar& channel) {
  if (dynamic_cast<const FireGridChannel*>(&channel)) return std::make_unique<FireEmissionHandler>(channel);
  return std::make_unique<ScalarEmissionHandler>(channel);
}

std::unique_ptr<VectorEmissionHandler> CreateEmissionHandler(const ChannelBase_Vector& channel) {
  return std::make_unique<VectorEmissionHandler>(channel);
}

}  // namespace orlix
