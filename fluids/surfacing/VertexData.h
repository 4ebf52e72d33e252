#pragma once
// What the points of a mesh carry beside their normals: velocities, and values of channels.

#include <string>
#include <vector>

#include "fluids/channels/iChannel.h"
#include "fluids/meshes/TriMeshSTL.h"
#include "fluids/scene/OrlixScene.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

class VertexData {
 public:
  // The channels of a node's list, which names each by its object.
  void Resolve(const OrlixScene& scene, const C4D_InterfaceHandler& handler, int listId);
  void Release() { scalars_.clear(), vectors_.clear(); }
  bool empty() const { return scalars_.empty() && vectors_.empty(); }
  // The values at the points, one attribute a channel.
  std::vector<PolygonObject::Attribute> Sample(const TriMeshSTL& mesh, WorkerPool& pool) const;

 private:
  std::vector<iChannel<double>*> scalars_;
  std::vector<iChannel<Vec3D>*> vectors_;
};

// Moves the points through a solver's velocity for a time (s, signed), in steps of at most a cell.
void MoveThrough(iSolver& solver, double time, WorkerPool& pool, std::vector<Vec3D>& points);
// The solver's velocity at the points, m/s.
std::vector<Vec3D> VelocitiesAt(iSolver& solver, WorkerPool& pool, const std::vector<Vec3D>& points);

}  // namespace orlix
