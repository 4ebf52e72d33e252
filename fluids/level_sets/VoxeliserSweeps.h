#pragma once
// The voxeliser's third stage: eight sweeps that hand closest triangles on.

#include "fluids/level_sets/VoxeliserHistory.h"

namespace orlix {

class BaseThread;
class WorkerPool;

void MakeSweepBounds(const NodeLattice& lattice, VoxeliserScratch& scratch, WorkerPool& pool);

// A bit for each sweep that carries triangles along this way, which leads from a node's closest point to it.
std::uint8_t SweepsAlong(const Vec3D& way);

// A sweep visits the nodes that need it (VoxeliserScratch::sweeps) in the order of its direction and tries on each the
// triangles of its seven neighbours upstream. The serial order's result at any number of workers. False when hostThread
// was asked to stop.
//
// distances, closest: of every stride-th node of the lattice in each axis. history: null, or with a stride of 1 what
// takes the blocks after each sweep, and has those that come out as before.
// exactBand: nodes up to this distance (cells) from a triangle have met it already, so that nothing can change there.
bool SweepClosestTriangles(const NodeLattice& lattice, int stride, int exactBand, const VoxeliserScratch& scratch,
                           GridView<double> distances, std::int32_t* closest, WorkerPool& pool, int workers,
                           const BaseThread* hostThread, VoxeliserHistory* history = nullptr);

}  // namespace orlix
