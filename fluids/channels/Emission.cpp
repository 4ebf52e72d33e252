#include "fluids/channels/Emission.h"

#include <algorithm>

#include "fluids/grids/Spread.h"

namespace orlix {

namespace {

void EmitIntoGrid(ScalarGrid& grid, double value, const Vec3D& voxel, const Vec3D& offset, EmissionMode mode,
                  bool spread, double limit, double low, double high, const OwnedLayers& owned) {
  const Vec3D at = voxel - offset;
  if (spread) {
    const auto operation = mode == EmissionMode::Set ? SpreadOperation::Assign : SpreadOperation::Add;
    SpreadWithin(GridView<double>(grid), value, at.x, at.y, at.z, operation, owned.begin, owned.end);
    return;
  }
  const VecInt3D cell = SnappedCell(at);
  if (cell.z < owned.begin || cell.z >= owned.end || cell.x < 0 || cell.y < 0 || cell.x >= grid.dims.x ||
      cell.y >= grid.dims.y) {
    return;
  }
  double& v = grid(cell.x, cell.y, cell.z);
  v = mode == EmissionMode::Set ? value : v + value;
  if (mode == EmissionMode::AddUpTo) v = std::min(v, limit);
  v = v < low ? low : high < v ? high : v;
}

}  // namespace

void Emit(ChannelBase_Scalar& channel, double value, const Vec3D& position, const EmissionRule& rule,
          const OwnedLayers& owned) {
  if (!channel.grid) return;
  if (channel.channelType == kGridFire) value = std::clamp(value, 0.0, 1.0);
  const Vec3D offset = rule.spread ? CellSampleOffset(channel.channelType) : Vec3D();
  EmitIntoGrid(*channel.grid, value, channel.grid->space.VoxelOfSim(position), offset, rule.mode, rule.spread,
               rule.hasLimit ? rule.scalarLimit : channel.valueMax, channel.valueMin, channel.valueMax, owned);
}

void Emit(ChannelBase_Vector& channel, const Vec3D& value, const Vec3D& position, const EmissionRule& rule) {
  for (int c = 0; c < 3; ++c) {
    if (!channel.grids[c]) return;
    ScalarGrid& grid = *channel.grids[c];
    // A staggered component finds its own cell by its offset, with and without weights.
    EmitIntoGrid(grid, value[c], grid.space.VoxelOfSim(position), CellSampleOffset(channel.channelType[c]), rule.mode,
                 rule.spread, rule.hasLimit ? rule.vectorLimit[c] : channel.valueMax[c], channel.valueMin[c],
                 channel.valueMax[c], {0, grid.dims.z});
  }
}

}  // namespace orlix
