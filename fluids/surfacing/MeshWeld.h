#pragma once
// Tidies a mesh: short edges become points, triangles without area go, points that no triangle uses go.

#include "fluids/meshes/TriMeshSTL.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

struct WeldSettings {
  double tolerance = 0;  // edges that are shorter become their lower point
  double leastArea = 0;  // triangles with less go, where a collapse or a flip of an edge can do it
  bool allUsed = false;  // each point has a triangle, which needn't be found out
};

// What is closed stays closed: an edge is collapsed only where the surface around it stays one (Dey, Edelsbrunner,
// Guha, Nekhayev 1999, "Topology preserving edge contraction"). Order of points and triangles stays; the result doesn't
// depend on the number of workers. Texture coordinates and attributes must be empty.
void WeldMesh(const WeldSettings& settings, WorkerPool& pool, TriMeshSTL& mesh);

}  // namespace orlix
