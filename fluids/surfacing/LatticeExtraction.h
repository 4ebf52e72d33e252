#pragma once
// The surface of a level set by cubes or by five tetrahedra a cube.
//
// Each cut edge of the lattice has one point, whose number follows from its place (Schroeder, Maynard, Geveci 2015,
// "Flying Edges"): no point is made twice, nothing is looked up in a table of edges, and the mesh is the same at any
// number of workers. Cells without surface cost a few bits.

#include "fluids/meshes/TriMeshSTL.h"
#include "fluids/surfacing/SurfaceField.h"

namespace orlix {

// Points stand at origin + node x spacing. tetrahedra: of five a cube, else marching cubes. Throws std::bad_alloc;
// false when the surface has more points or triangles than an i32 counts.
bool ExtractLattice(const SurfaceField& field, bool tetrahedra, const Vec3D& origin, double spacing, WorkerPool& pool,
                    TriMeshSTL& mesh);

}  // namespace orlix
