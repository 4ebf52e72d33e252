#pragma once
// The frame file of a particle cache: the scene's lattice, a header for each population with the sizes of its lists,
// then a chunk for each population, with a chunk for each of its lists.
//
//   list = run...                particles in the list's order, at most 4096 a run, until the chunk ends
//   run  = rows  positions  velocities  flags  ids  columns  column...  links
//   column = number  type  [owner, from number 75 on]  on all rows  [presence]  values
//
// Positions, velocities and vectors are doubles, reals single precision, states bytes. A run whose particles were left
// out by a constraint is shorter or missing, so the sizes in a header are upper bounds.

#include <functional>
#include <string>
#include <vector>

#include "fluids/caches/PackedBlock.h"
#include "fluids/grids/GridSpace.h"
#include "fluids/particles/ParticleFactory.h"

namespace orlix {

struct ParticleEntryHeader {
  bool present = false;             // the population had particles
  std::vector<std::int32_t> sizes;  // of its lists
  std::int64_t Count() const;
};
struct ParticleFrameHead {
  GridSpace sceneSpace;
  std::vector<ParticleEntryHeader> entries;
};

struct ParticleRunColumn {
  std::int32_t id = 0;
  PropertyType type = PropertyType::Real;
  std::string owner;                   // the path of the node whose property it is; empty without one
  std::vector<std::uint64_t> present;  // a bit a row; empty: all rows have it
  // As type says; those of rows without it are 0.
  std::vector<float> reals;
  std::vector<Vec3D> vectors;
  std::vector<std::uint8_t> states;
  bool Has(std::size_t row) const { return present.empty() || (present[row >> 6] >> (row & 63) & 1) != 0; }
};
struct ParticleRunLink {
  std::int32_t row = 0, partner = -1;  // the partner by its id
  float weight = 0;
};
// Up to kChunkRows particles that follow each other in a list.
struct ParticleRunData {
  std::vector<Vec3D> positions, velocities;  // m, m/s
  std::vector<std::uint16_t> flags;
  std::vector<std::int32_t> ids;
  std::vector<ParticleRunColumn> columns;
  std::vector<ParticleRunLink> links;
  std::size_t rows() const { return positions.size(); }
};

// What stands before a population's particles.
struct ParticleEntryFacts {
  ParticleBounds bounds;
  GridSpace space;
};
struct ParticleEntryData {
  ParticleEntryHeader header;
  ParticleEntryFacts facts;
  std::vector<std::vector<ParticleRunData>> lists;
};
struct ParticleFrameData {
  GridSpace sceneSpace;
  std::vector<ParticleEntryData> entries;
};

// number: as WriteGridFrame has it.
bool WriteParticleFrame(HyperFileWriter& file, const ParticleFrameData& frame, bool compress,
                        std::string_view number = {});

// Reads up to the first chunk.
Status ReadParticleFrameHead(HyperFileReader& file, const std::string& fileName, ParticleFrameHead& head);
// Reads the next chunk; take gets its runs in order, with the number of their list. Passes over the chunk of a header
// without present.
using TakeParticleRun = std::function<Status(std::int32_t list, ParticleRunData& run)>;
Status ReadParticleChunk(HyperFileReader& file, const std::string& fileName, const ParticleEntryHeader& header,
                         ParticleEntryFacts& facts, const TakeParticleRun& take);
// Passes over the next chunk.
Status SkipParticleChunk(HyperFileReader& file);

}  // namespace orlix
