#pragma once
// What the points of a mesh carry beside their normals: velocities, values of channels, distances from other surfaces,
// and properties of the particles about them.

#include <string>
#include <vector>

#include "fluids/channels/iChannel.h"
#include "fluids/helpers/Property.h"
#include "fluids/level_sets/iLevelSet.h"
#include "fluids/meshes/TriMeshSTL.h"
#include "fluids/particles/GroupList.h"
#include "fluids/scene/OrlixScene.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

class VertexData {
 public:
  // What a node's list names: channels, nodes with a level set, properties. groupsId: the list of groups whose
  // particles give the properties. radius: how far away they may be, m.
  void Resolve(const OrlixScene& scene, const C4D_InterfaceHandler& handler, int listId, int groupsId, double radius);
  void Release() { *this = {}; }
  bool empty() const { return scalars_.empty() && vectors_.empty() && distances_.empty() && properties_.empty(); }
  // The values at the points, one attribute an entry, by its object's name. A distance is in metres and negative
  // inside; a property is the mean of the particles within the radius, nearer ones count more, 0 where there are none.
  std::vector<PolygonObject::Attribute> Sample(const TriMeshSTL& mesh, WorkerPool& pool) const;

 private:
  struct Distance {
    const iLevelSet* surface;
    std::string name;
  };

  std::vector<iChannel<double>*> scalars_;
  std::vector<iChannel<Vec3D>*> vectors_;
  std::vector<Distance> distances_;
  std::vector<const iProperty*> properties_;
  std::vector<GroupEntry> groups_;
  double radius_ = 0;
};

// Moves the points through a solver's velocity for a time (s, signed), in steps of at most a cell.
void MoveThrough(iSolver& solver, double time, WorkerPool& pool, std::vector<Vec3D>& points);
// The solver's velocity at the points, m/s.
std::vector<Vec3D> VelocitiesAt(iSolver& solver, WorkerPool& pool, const std::vector<Vec3D>& points);

}  // namespace orlix
