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
#include <memory>
#include <optional>

#include "fluids/grids/EGrid.h"
#include "fluids/meshes/iMesh.h"

namespace orlix {

class BaseThread;
class VoxeliserHistory;
class WorkerPool;
struct NodeLattice;
struct VoxeliserScratch;

struct VoxeliserSettings {
  int exactBand = 3;   // nodes around a triangle's box that get exact distances
  double shell = 1.0;  // wall of a hollow solid as a share of the largest depth; 1 is solid
  bool flip = false;   // the outside is solid
  int workers = 8;     // at most
  bool keep = false;   // for a mesh that deforms: the next run voxelises what changed

  // The number of workers changes nothing, and neither does what is kept.
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
  // Of the last run: the share of the sweeps' blocks that came from the run before it.
  double keptShare() const { return keptShare_; }
  void Reset();

  static constexpr std::int64_t kMaxTriangles = (std::int64_t(1) << 27) - 1;

 private:
  // Distances without a sign.
  bool Measure(GridView<double> values, const NodeLattice& lattice, VoxeliserScratch& scratch, WorkerPool& pool,
               const BaseThread* hostThread, VoxeliserHistory* history) const;
  void Sign(GridView<double> values, const VoxeliserScratch& scratch, WorkerPool& pool);

  std::optional<double> maximumDepth_;
  double keptShare_ = 0;
  std::shared_ptr<VoxeliserHistory> history_;  // null while nothing is kept
};

}  // namespace orlix
