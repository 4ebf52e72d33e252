// Frames of particle and mesh caches, written and read, beside what the disk gives plain bytes and what one core gives
// zstd at its fastest level. What is read is compared before anything is timed.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>

#include "fluids/caches/GridFrameFile.h"
#include "fluids/caches/MeshFrameFile.h"
#include "fluids/caches/ParticleRuns.h"
#include "globals/Random.h"
#include "host/files/Compressor.h"
#include "host/objects/BaseDocument.h"

namespace orlix {
namespace {

constexpr std::int32_t kParticles = 500000;

// A folder of the system's, gone at the end.
class ScratchFolder {
 public:
  ScratchFolder() { std::filesystem::create_directories(path_); }
  ~ScratchFolder() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  std::filesystem::path operator/(const char* name) const { return path_ / name; }

 private:
  std::filesystem::path path_ =
      std::filesystem::temp_directory_path() / ("orlix_bench_frames_" + std::to_string(::getpid()));
};

void Fill(ParticleList& list) {
  BaseParticleData data;
  data.SetReal(PP::Radius, 0.01);
  data.SetVector(PP::OldPosition, {});
  list.Append(kParticles, data);
  MersenneTwister random(7);
  list.ForEachChunk(0, kParticles, [&](const ParticleRows& rows) {
    const auto old = rows.Property<Vec3D>(PP::OldPosition);
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      const Vec3D p(random.Uniform(), random.Uniform(), random.Uniform());
      rows.EditPositions()[r] = p, rows.EditVelocities()[r] = p - Vec3D(0.5), old.Put(r, p * 0.99);
    }
  });
}

ParticleFrameData FrameOf(ParticleList& list, const BaseDocument& document, WorkerPool& pool) {
  ParticleFrameData frame;
  frame.sceneSpace = GridSpace::FromScale(100, 1, 0.05f);
  ParticleEntryData entry;
  entry.header = {true, {list.count()}};
  entry.facts.space = frame.sceneSpace;
  entry.lists.push_back(TakeParticleRuns(list, {}, {}, document, pool));
  frame.entries.push_back(std::move(entry));
  return frame;
}

bool Write(const std::filesystem::path& path, const ParticleFrameData& frame, bool packed) {
  HyperFile file;
  return file.Open(kFrameFileIdent, path, HyperFile::Mode::Write) && WriteParticleFrame(file, frame, packed) &&
         file.Close().ok();
}

bool Read(const std::filesystem::path& path, ParticleList& list, const BaseDocument& document) {
  HyperFile file;
  ParticleFrameHead head;
  ParticleEntryFacts facts;
  ParticleRefill refill(list, document);
  const auto put = [&](std::int32_t, ParticleRunData& run) {
    refill.Put(run);
    return Status();
  };
  const bool whole = file.Open(kFrameFileIdent, path, HyperFile::Mode::Read) &&
                     ReadParticleFrameHead(file, "f", head).ok() &&
                     ReadParticleChunk(file, "f", head.entries.at(0), facts, put).ok();
  refill.End();
  return whole;
}

// Bytes of the numbers that a frame holds, however it is packed.
constexpr double kFrameBytes = double(kParticles) * (3 * 24 + 4 + 2 + 4);

// Packed, and whether it is read.
void BM_ParticleFrame(benchmark::State& state) {
  const bool packed = state.range(0) != 0, reads = state.range(1) != 0;
  const TypeRegistry types;
  const BaseDocument document(types);
  WorkerPool pool(1);
  ParticleList list, back;
  Fill(list);
  const ScratchFolder folder;
  const auto path = folder / "f.pcache";
  if (!Write(path, FrameOf(list, document, pool), packed) || !Read(path, back, document) ||
      back.count() != kParticles || back.Position(kParticles - 1) != list.Position(kParticles - 1)) {
    return state.SkipWithError("what was read isn't what was written");
  }
  for (auto _ : state) {
    if (!(reads ? Read(path, back, document) : Write(path, FrameOf(list, document, pool), packed))) {
      state.SkipWithError("no frame");
    }
  }
  state.counters["bytes/s"] =
      benchmark::Counter(kFrameBytes * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["file_MB"] = static_cast<double>(std::filesystem::file_size(path)) / 1e6;
}
BENCHMARK(BM_ParticleFrame)->ArgsProduct({{0, 1}, {0, 1}})->Unit(benchmark::kMillisecond)->UseRealTime();

// The measures: the same numbers through one core's zstd, and as a plain file that is flushed and read back.
void BM_FrameMeasures(benchmark::State& state) {
  const TypeRegistry types;
  const BaseDocument document(types);
  WorkerPool pool(1);
  ParticleList list;
  Fill(list);
  std::vector<std::byte> bytes, packed;
  for (const ParticleRunData& run : TakeParticleRuns(list, {}, {}, document, pool)) {
    for (const auto part : {std::as_bytes(std::span(run.positions)), std::as_bytes(std::span(run.velocities)),
                            std::as_bytes(std::span(run.columns.back().vectors))}) {
      bytes.insert(bytes.end(), part.begin(), part.end());
    }
  }
  const ScratchFolder folder;
  for (auto _ : state) {
    if (state.range(0) != 0) {
      Compressor::Compress(bytes, 1, packed);
      continue;
    }
    AtomicFile file;
    if (!file.Open(folder / "plain").ok() || !file.Write(bytes.data(), bytes.size()) || !file.Commit().ok()) {
      state.SkipWithError("no file");
    }
  }
  state.counters["bytes/s"] = benchmark::Counter(
      static_cast<double>(bytes.size()) * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_FrameMeasures)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// A lattice of quads with normals; packed, and whether it is read.
void BM_MeshFrame(benchmark::State& state) {
  constexpr std::int32_t kSide = 500;
  const bool packed = state.range(0) != 0, reads = state.range(1) != 0;
  PolygonObject mesh, back;
  for (std::int32_t n = 0; n < kSide * kSide; ++n) {
    mesh.points.push_back({n % kSide * 0.1, n / kSide * 0.1, std::sin(n * 0.01)});
    mesh.normals.push_back(Normalized(Vec3D(std::cos(n * 0.01), 0.1, 1)));
    if (n % kSide + 1 < kSide && n / kSide + 1 < kSide) mesh.polygons.push_back({n, n + 1, n + kSide + 1, n + kSide});
  }
  const ScratchFolder folder;
  const auto path = folder / "f.mcache";
  const auto write = [&] {
    HyperFile file;
    const PolygonObject* const meshes[] = {&mesh};
    return file.Open(kFrameFileIdent, path, HyperFile::Mode::Write) && WriteMeshFrame(file, meshes, packed) &&
           file.Close().ok();
  };
  const auto read = [&] {
    HyperFile file;
    std::int32_t count = 0;
    bool present = false;
    return file.Open(kFrameFileIdent, path, HyperFile::Mode::Read) && ReadMeshFrameHead(file, "f", count).ok() &&
           ReadMeshChunk(file, "f", back, present).ok() && present;
  };
  if (!write() || !read() || back.points != mesh.points || back.normals != mesh.normals) {
    return state.SkipWithError("what was read isn't what was written");
  }
  for (auto _ : state) {
    if (!(reads ? read() : write())) state.SkipWithError("no frame");
  }
  const double bytes = 48.0 * double(mesh.points.size()) + 16.0 * double(mesh.polygons.size());
  state.counters["bytes/s"] =
      benchmark::Counter(bytes * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["file_MB"] = static_cast<double>(std::filesystem::file_size(path)) / 1e6;
}
BENCHMARK(BM_MeshFrame)->ArgsProduct({{0, 1}, {0, 1}})->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace orlix
