#pragma once
// The surface of a level set in a tile of acute tetrahedra: well-shaped triangles, about 25 a cell.

#include "fluids/grids/Interpolation.h"
#include "fluids/meshes/TriMeshSTL.h"
#include "fluids/surfacing/SurfaceField.h"

namespace orlix {

// As ExtractLattice; the level set is sampled by a mode at the tile's vertices. With another than trilinear what lies
// more than a cell from a change of sign of the nodes isn't looked at. allUsed: each point has a triangle; those of
// edges at the end of the box may have none.
bool ExtractTiles(const SurfaceField& field, Interpolation sampling, const Vec3D& origin, double spacing,
                  WorkerPool& pool, TriMeshSTL& mesh, bool& allUsed);

}  // namespace orlix
