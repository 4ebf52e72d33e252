#pragma once
// OpenVDB files. A grid's transform is linear, in host units; voxel (i, j, k) of a fog volume stands at the centre of
// cell (i, j, k) counted from the simulation's origin, so that a sequence keeps its indices while its container grows.

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "exchange/points/PointSet.h"
#include "exchange/vdb/ExportSpace.h"
#include "fluids/grids/EGrid.h"
#include "globals/Result.h"

namespace orlix {

enum class VdbClass { Fog, LevelSet, Velocity };

// One grid to be written. The values are narrowed to float; a voxel whose value is the background isn't stored.
struct VdbField {
  std::string name;
  VdbClass kind = VdbClass::Fog;
  // Fog: a cell-centred grid. Level set: cell-centred or nodal, distances in metres, negative inside; written in host
  // units within a band of three voxels. Velocity: the three staggered components in metres a second; written
  // collocated at cell centres, in host units a second.
  std::array<const ScalarGrid*, 3> grids{};
  double background = 0;
  std::string node{};  // whose it is, for messages
};

struct VdbOptions {
  int frame = 0;  // for the metadata
  ExportSpace space{};
  FileUnits units{};                // for the metadata
  bool velocityEverywhere = false;  // otherwise near the voxels of fog volumes, where there are any
};

struct VdbGridInfo {
  std::string name, valueType, gridClass;
  std::uint64_t activeVoxels = 0;
  VecInt3D min, max;         // of the active voxels, inclusive
  Vec3D voxelSize;           // host units
  double low = 0, high = 0;  // of the active values; a vector's largest component, without a sign
};

// What all the others do first. For those who want to know early that it is missing, or before a process of its own
// reads.
Status LoadVdbLibrary();

// Blosc-compressed. The file gets its name only when it is whole. Diverged when a value is beyond a float's range.
Status WriteVdb(const std::filesystem::path& path, const std::vector<VdbField>& fields, const VdbOptions& options);

// Particles as one grid of points, "points". Its points are in the cells of a lattice, within which they have all but
// the precision of floats; columns keep their names, but for "P" (positions), "v" and "Cd".
Status WriteVdbPoints(const std::filesystem::path& path, const PointSet& set, int frame = 0);
// All grids of points of a file, as one set; columns that not all of them have are left out. Reads any file that the
// library takes: a crafted one may make it take much memory.
Result<PointSet> ReadVdbPoints(const std::filesystem::path& path);
// Reads the whole file when withValues, otherwise its headers only (low and high are 0 then).
Result<std::vector<VdbGridInfo>> ReadVdbInfo(const std::filesystem::path& path, bool withValues);

}  // namespace orlix
