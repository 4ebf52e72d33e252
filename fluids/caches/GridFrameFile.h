#pragma once
// The frame file of a grid cache: the scene's lattice, one header a node, then one chunk a node with its grids. Headers
// stand before the bulk, so that a reader learns all lattices without reading a grid.

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "fluids/grids/GridResampler.h"
#include "fluids/scene/iCachedGrids.h"
#include "host/files/HyperFile.h"

namespace orlix {

// "qzfm", of all frame files.
inline constexpr std::uint32_t kFrameFileIdent = 0x717A666D;

// One node's grids: none, one or three.
using CachedGridSet = std::vector<const ScalarGrid*>;

// With compress, a block is stored at the compressor's level 9 unless that fails. The number is the one in the file's
// name, digit by digit; it stands behind the last chunk, where players don't look.
bool WriteGridFrame(HyperFileWriter& file, const GridSpace& sceneSpace, std::span<const CachedGridSet> entries,
                    bool compress, std::string_view number = {});

struct GridFrameHead {
  GridSpace sceneSpace;
  std::vector<GridCacheHeader> entries;
};
// Reads up to the first chunk.
Status ReadGridFrameHead(HyperFileReader& file, const std::string& fileName, GridFrameHead& head);
// From behind the head: the number that the file was written with; empty in files that have none.
Status ReadGridFrameNumber(HyperFileReader& file, std::string& number);

// How blocks get into grids.
struct GridPlayback {
  Interpolation interpolation = Interpolation::Trilinear;  // between unequal lattices
  WorkerPool& pool;
  const BaseThread* hostThread = nullptr;
};

// Reads the next chunk into the targets, whose first has the lattice of the header in the file. Blocks whose target is
// null are passed over, as is the chunk of a header without present.
Status ReadGridChunk(HyperFileReader& file, const std::string& fileName, const GridCacheHeader& header,
                     std::span<ScalarGrid* const> targets, const GridPlayback& playback);

// Reads the next chunk into new grids on the file's own lattice; none for a header without present.
Status ReadGridChunk(HyperFileReader& file, const std::string& fileName, const GridCacheHeader& header,
                     std::vector<std::unique_ptr<ScalarGrid>>& grids);

}  // namespace orlix
