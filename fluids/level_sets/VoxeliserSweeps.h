#pragma once
// The voxeliser's second stage: eight sweeps that hand closest triangles on.

#include "fluids/level_sets/VoxeliserScratch.h"

namespace orlix {

class BaseThread;
class WorkerPool;

// A sweep visits the nodes in the order of its direction and tries on each node the triangles of its seven neighbours
// upstream. The serial order's result at any number of workers. False when hostThread was asked to stop.
//
// exactBand: nodes up to this distance (cells) from a triangle have met it already, so that nothing can change there.
bool SweepClosestTriangles(const NodeLattice& lattice, int exactBand, VoxeliserScratch& scratch,
                           GridView<double> distances, WorkerPool& pool, int workers, const BaseThread* hostThread);

}  // namespace orlix
