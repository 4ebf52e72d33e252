#pragma once
// What makes the inside of a mesh wrong, where a place is inside after an odd number of crossings along a row.

#include "fluids/meshes/TriMeshSTL.h"

namespace orlix {

struct MeshHoles {
  std::int64_t openEdges = 0;  // where an odd number of triangles meet
  std::int64_t doubled = 0;    // triangles that are there an even number of times, and cancel out
};

// Points at the same place count as one.
MeshHoles FindHoles(const TriMeshSTL& mesh);

}  // namespace orlix
