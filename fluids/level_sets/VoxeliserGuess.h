#pragma once
// A first guess of the closest triangles, from the nodes of a lattice of a quarter of the resolution.

#include "fluids/level_sets/VoxeliserScratch.h"

namespace orlix {

class BaseThread;
class WorkerPool;

// Gives each node that no band reached the nearer of the triangles of the coarse nodes about it, and its distance to
// that. Sweeps then start near their result: without a guess they carry triangles far past where these are the closest,
// and later ones bring the others there. False when hostThread was asked to stop.
bool GuessClosestTriangles(const NodeLattice& lattice, int exactBand, VoxeliserScratch& scratch,
                           GridView<double> distances, WorkerPool& pool, int workers, const BaseThread* hostThread);

}  // namespace orlix
