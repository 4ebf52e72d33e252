#pragma once
// One force on a box of cells, run by hand as a solver runs it: velocity attached, prepared, asked row by row.

#include <optional>

#include "fluids/dynamics/Force.h"
#include "tests/support/NodeBench.h"

namespace orlix::test {

class ForceRig : public NodeBench {
 public:
  ForceRig(const std::string& type, const VecInt3D& boxCells, int workers = 1)
      : NodeBench(workers), cells(boxCells), object(Add(type, "force")), velocity(root, scene()) {}

  // After the settings: links and gives channels and velocity the box.
  void Ready() {
    Fit(cells, min);
    velocity.ApplyBounds(min, min + Vec3D(cells) * kCell);
    for (auto& f : force) f.emplace(cells, kGridCustom);
  }
  // The velocity of a field, at each component's own places.
  template <class F>
  void SetVelocity(F&& field) {
    for (int c = 0; c < 3; ++c) {
      ScalarGrid& grid = *velocity.grids[c];
      FillCells(grid, [&](int i, int j, int k) { return field(SamplePlace(grid, i, j, k))[c]; });
    }
  }
  // By the settings of now. True when the force was active. What it adds stands in the grids, which start from 0.
  bool Run() {
    Link();
    for (auto& f : force) f->Fill(0);
    auto& node = Get<Force>(object);
    // A force only asks whether its solver has a boundary.
    alignas(16) static char boundary[16];
    node.AttachVelocity(&velocity, reinterpret_cast<GridBoundary*>(boundary));
    node.Prepare();
    const bool active = node.IsActive();
    const GridSpace& space = velocity.grids[0]->space;
    ParallelRange(pool, 1, cells.z - 1, [&](int begin, int end, int worker) {
      for (int k = begin; k < end; ++k) {
        for (int j = 1; j < cells.y - 1; ++j) {
          const auto row = [&](Grid<double>& grid) { return grid.data + grid.Index(0, j, k); };
          node.ProcessRow({1, cells.x - 1, j, k, worker, &space, row(*force[0]), row(*force[1]), row(*force[2])});
        }
      }
    });
    node.Finish();
    return active;
  }
  Vec3D At(int i, int j, int k) const { return {(*force[0])(i, j, k), (*force[1])(i, j, k), (*force[2])(i, j, k)}; }
  Vec3D Centre(int i, int j, int k) const {
    return velocity.grids[0]->space.SimOfVoxel(Vec3D(i + 0.5, j + 0.5, k + 0.5));
  }
  // f(i, j, k, force) for each cell that forces act on; gives their count.
  template <class F>
  int ForEach(F&& f) const {
    return ForInner(cells, [&](int i, int j, int k) { f(i, j, k, At(i, j, k)); });
  }
  double dt() { return scene().info.substepDuration; }

  VecInt3D cells;
  Vec3D min;
  BaseObject& object;
  VelocityGridChannel velocity;
  std::array<std::optional<Grid<double>>, 3> force;
};

}  // namespace orlix::test
