#pragma once
// The frame file of a mesh cache: the number of meshers, then a chunk for each: whether it has a mesh, the counts, the
// polygons, the points, and the normals at the points where it has any. Behind those stand the points' velocities and
// attributes.
//
// Indices are 32 bits, points, normals, velocities and attributes doubles.

#include <span>
#include <string>
#include <vector>

#include "fluids/caches/PackedBlock.h"
#include "host/objects/BaseObject.h"

namespace orlix {

// null: no mesh; one without points or polygons counts as none. number: as WriteGridFrame has it.
bool WriteMeshFrame(HyperFileWriter& file, std::span<const PolygonObject* const> meshes, bool compress,
                    std::string_view number = {});

// The head: how many meshers.
Status ReadMeshFrameHead(HyperFileReader& file, const std::string& fileName, std::int32_t& count);
// Reads the next chunk. present: whether it holds a mesh; mesh's arrays keep their memory.
Status ReadMeshChunk(HyperFileReader& file, const std::string& fileName, PolygonObject& mesh, bool& present);

// What stands before the bulk.
struct MeshEntryHeader {
  bool present = false;
  std::int32_t polygons = 0, points = 0;
};
// Reads the next chunk's head and passes over its bulk.
Status ReadMeshChunkHead(HyperFileReader& file, const std::string& fileName, MeshEntryHeader& header);

}  // namespace orlix
