// The readers of grid, particle and mesh frame files on any bytes: as they are, and with checksums that agree, so that
// what follows them is reached.

#include "fluids/caches/GridFrameFile.h"
#include "fluids/caches/MeshFrameFile.h"
#include "fluids/caches/ParticleRuns.h"
#include "host/objects/BaseDocument.h"
#include "tests/support/RepairHyperFile.h"

namespace {

using namespace orlix;

void ReadGrids(const std::vector<std::byte>& bytes) {
  HyperFile file;
  GridFrameHead head;
  if (!file.Open(kFrameFileIdent, bytes) || !ReadGridFrameHead(file, "fuzz", head).ok()) return;
  std::vector<std::unique_ptr<ScalarGrid>> grids;
  for (const GridCacheHeader& header : head.entries) {
    if (!ReadGridChunk(file, "fuzz", header, grids).ok()) return;
  }
  std::string number;
  static_cast<void>(ReadGridFrameNumber(file, number));
}

// Into a list, as a playback.
void ReadParticles(const std::vector<std::byte>& bytes, const BaseDocument& document) {
  HyperFile file;
  ParticleFrameHead head;
  if (!file.Open(kFrameFileIdent, bytes) || !ReadParticleFrameHead(file, "fuzz", head).ok()) return;
  for (const ParticleEntryHeader& entry : head.entries) {
    ParticleList list;
    ParticleRefill refill(list, document);
    ParticleEntryFacts facts;
    const auto put = [&](std::int32_t, ParticleRunData& run) {
      refill.Put(run);
      return Status();
    };
    const bool whole = ReadParticleChunk(file, "fuzz", entry, facts, put).ok();
    refill.End();
    if (!whole) return;
  }
}

void ReadMeshes(const std::vector<std::byte>& bytes) {
  HyperFile file;
  std::int32_t count = 0;
  if (!file.Open(kFrameFileIdent, bytes) || !ReadMeshFrameHead(file, "fuzz", count).ok()) return;
  PolygonObject mesh;
  for (bool present = false; count > 0 && ReadMeshChunk(file, "fuzz", mesh, present).ok(); --count) {
  }
}

void ReadAll(const std::vector<std::byte>& bytes) {
  static const TypeRegistry types;
  static const BaseDocument document(types);
  ReadGrids(bytes);
  ReadParticles(bytes, document);
  ReadMeshes(bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto* first = reinterpret_cast<const std::byte*>(data);
  std::vector<std::byte> bytes(first, first + size);
  ReadAll(bytes);
  orlix::test::RepairHyperFile(bytes, kFrameFileIdent);
  ReadAll(bytes);
  return 0;
}
