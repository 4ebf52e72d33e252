#pragma once
// A gas solver in a pinned container for tests. A host unit is a metre; the container stands at the origin with a layer
// of ghost cells around it.

#include <algorithm>
#include <string>

#include "fluids/channels/ChannelPair.h"
#include "fluids/dynamics/FluidSolver.h"
#include "fluids/scene/RootObject.h"
#include "fluids/volumes/VolumeBase.h"
#include "host/geometry/GeometryTypes.h"
#include "tests/support/TestScene.h"

namespace orlix::test {

class GasScene : public TestScene {
 public:
  // cells of the grid, ghost cells included; the smallest axis is 1 m long without them.
  explicit GasScene(const VecInt3D& gridCells, int workers = 1) : TestScene(workers), cells(gridCells) {
    cellSize = 1.0 / (std::min({cells.x, cells.y, cells.z}) - 2);
    root->Set(RootSettings::kScaleUnitsId, 1.0);
    root->Set(RootSettings::kScaleMetresId, 1.0);
    root->Set(RootSettings::kVoxelSizeId, cellSize);
    root->Set(RootSettings::kSubstepModeId, SubstepMode::FixedCount);  // one sub-step a frame
    root->Set(RootSettings::kMaxSubstepsId, std::int64_t(0));
    fluid = &Add("fluid", "Air");
    fluid->Set(FluidSolver::kContainerId, Vec3D(cells - VecInt3D(2, 2, 2)) * cellSize);
    fluid->Set(FluidSolver::kMarginId, std::int64_t(cells.x + cells.y + cells.z));
    // Something must ask for the box.
    AddVolume("Seed", "sphere", Centre(), cellSize).Set(VolumeBase::kExtendsContainerId, std::int64_t(1));
  }

  Vec3D Centre() const { return Vec3D(cells - VecInt3D(2, 2, 2)) * (0.5 * cellSize); }
  BaseObject& Geometry(const std::string& volume) { return *document.FindByPath(volume + " shape"); }
  // A volume of a primitive whose size is set; "sphere" or "box" (edges of twice the size).
  BaseObject& AddVolume(const std::string& name, const std::string& primitive, const Vec3D& place, double size) {
    BaseObject& shape = Add(primitive, name + " shape");
    shape.Set(kPositionId, place);
    if (primitive == "sphere")
      shape.Set(kSphereRadiusId, size);
    else
      shape.Set(kBoxSizeId, Vec3D(2 * size));
    BaseObject& volume = Add("volume", name);
    volume.Set(VolumeBase::kObjectId, LinkTo(shape));
    return volume;
  }
  BaseObject& AddObstacle(const std::string& name, const std::string& primitive, const Vec3D& place, double size) {
    BaseObject& volume = AddVolume(name, primitive, place, size);
    document.AddTag(*types.FindName("c4d_obstacle"), volume);
    return volume;
  }
  // A node that may fill the solver's divergence source, so that it has a grid.
  void AddDivergenceWriter() {
    BaseObject& pair = Add("channelsettings", "Expansion");
    pair.Set(ChannelPair::kChannelId, LinkTo(*fluid));
    pair.Set(ChannelPair::kSettingsId, LinkTo(Add("emission_setting", "Rate")));
  }
  FluidSolver& Solver() { return *NodeOf<FluidSolver>(*fluid); }

  VecInt3D cells;
  double cellSize = 0;
  BaseObject* fluid = nullptr;
};

}  // namespace orlix::test
