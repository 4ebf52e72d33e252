#pragma once
// What is in frame files of particle caches and of mesh caches, for other programs.

#include <filesystem>

#include "exchange/points/PointSet.h"
#include "host/objects/BaseObject.h"

namespace orlix {

// The living particles of all entries in one table, in host units, with the columns that an output's files have; of
// several entries a column "entry" counts them from 1. InputFile for a damaged file or a value without a number in
// single precision.
Result<PointSet> ReadCachedPoints(const std::filesystem::path& path);

// The meshes of all entries as one, in host units: each in its mesher's own space. Normals, velocities and attributes
// stay where all of them have these.
Result<PolygonObject> ReadCachedMesh(const std::filesystem::path& path);

}  // namespace orlix
