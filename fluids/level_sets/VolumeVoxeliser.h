#pragma once
// A triangle mesh to a signed distance on the nodes of a lattice.
//
//   0  exact band   around each triangle, as far as its box and a few nodes more, the distance is exact; each row of
//                   nodes along x counts where the mesh crosses it
//   1  guess        the sweeps on every fourth node in each axis tell the others where to begin, and which way the
//                   surface lies
//   2  sweeps       eight passes hand the closest triangle from node to node; each gives an exact distance again. A
//                   pass visits the nodes from whose surface it comes: one or two of the eight do at most nodes
//   3  sign         a node is inside after an odd number of crossings
//   4  shell        hollows the solid out
//
// Beyond the band a node has the exact distance to a triangle that is the closest one or, where triangles are smaller
// than a cell, a neighbour of it: too large by a thousandth of a cell on average on a smooth mesh, by 0.05 at most.
//
// The sweeps are those of Tsai 2002 ("Rapid and accurate computation of the distance function using grids"), with
// triangles as the features. The same bits at any number of workers: a slab of nodes looks at its triangles in their
// order, and the sweeps are the serial ones, run as a pipeline of z layers.
//
//   a node       13 bytes during a run, 8 after it
//   a triangle   192 bytes during a run

#include <cstdint>
#include <optional>

#include "fluids/grids/EGrid.h"
#include "fluids/meshes/iMesh.h"

namespace orlix {

class BaseThread;
class WorkerPool;

struct VoxeliserSettings {
  int exactBand = 3;   // nodes around a triangle's box that get exact distances
  double shell = 1.0;  // wall of a hollow solid as a share of the largest depth; 1 is solid
  bool flip = false;   // the outside is solid
  int workers = 8;     // at most

  // The number of workers changes nothing.
  bool SameResult(const VoxeliserSettings& other) const {
    return exactBand == other.exactBand && shell == other.shell && flip == other.flip;
  }
};

class VolumeVoxeliser {
 public:
  VoxeliserSettings settings;

  // Fills the level set, whatever it held. False, with nothing done, when mesh or level set are empty or the mesh has
  // more triangles than kMaxTriangles; false half way when hostThread was asked to stop. Triangles with a corner that
  // isn't finite are left out. Throws std::bad_alloc when memory doesn't suffice.
  bool Run(const iTriMesh& mesh, ScalarGrid& levelSet, WorkerPool& pool, const BaseThread* hostThread = nullptr);

  // The largest distance of an inside node, by parity and before the shell, m; none when no node is inside.
  const std::optional<double>& maximumDepth() const { return maximumDepth_; }
  void Reset() { maximumDepth_.reset(); }

  static constexpr std::int64_t kMaxTriangles = (std::int64_t(1) << 27) - 1;

 private:
  std::optional<double> maximumDepth_;
};

}  // namespace orlix
