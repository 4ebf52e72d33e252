#pragma once
// The voxeliser's first stage: exact distances around each triangle, and the crossings of rows.

#include "fluids/level_sets/VoxeliserHistory.h"

namespace orlix {

class WorkerPool;

// Gives every node its smallest distance (m) to the triangles whose box it lies in, the box widened by band nodes, or
// the largest double; and its triangle and crossings. history: null, or what takes the band and has that of the slabs
// that no moved triangle reaches.
void FillExactBand(const NodeLattice& lattice, int band, VoxeliserScratch& scratch, GridView<double> distances,
                   WorkerPool& pool, int workers, VoxeliserHistory* history);

}  // namespace orlix
