// The same work by this engine and by OpenVDB's own tools, in one run, with the same number of threads.
//
//   orlix_bench_peers [THREADS] [ROWS]     2 threads and all rows unless told: rough, ball, wide, mesh, advection, file

#include <fmt/format.h>
#include <openvdb/openvdb.h>
#include <openvdb/tools/Dense.h>
#include <openvdb/tools/MeshToVolume.h>
#include <openvdb/tools/VolumeAdvect.h>
#include <openvdb/tools/VolumeToMesh.h>
#include <tbb/global_control.h>

#include <stdlib.h>
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "benchmarks/Meshes.h"
#include "benchmarks/Triad.h"
#include "exchange/vdb/VdbFile.h"
#include "fluids/level_sets/VolumeVoxeliser.h"
#include "fluids/surfacing/SurfaceExtractor.h"
#include "tests/fluids/advection/AdvectionFixture.h"

namespace orlix {
namespace {

// The median of some rounds after one that isn't counted, s.
template <int kRounds = 5, class F>
double Seconds(F&& work) {
  std::array<double, kRounds> seconds;
  if (kRounds > 1) work();
  for (double& s : seconds) {
    const auto start = std::chrono::steady_clock::now();
    work();
    s = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  std::nth_element(seconds.begin(), seconds.begin() + kRounds / 2, seconds.end());
  return seconds[kRounds / 2];
}

void Tell(const char* work, double ours, double theirs) {
  fmt::print("| {} | {:.3f} | {:.3f} | {:.2f} |\n", work, ours, theirs, ours / theirs);
  std::fflush(stdout);
}

void Fail(const char* what) {
  fmt::print(stderr, "{}\n", what);
  std::exit(1);
}

openvdb::math::CoordBBox BoxOf(const VecInt3D& dims) {
  return {openvdb::Coord(0, 0, 0), openvdb::Coord(dims.x - 1, dims.y - 1, dims.z - 1)};
}

// Values that are the background aren't stored.
openvdb::FloatGrid::Ptr SparseOf(const ScalarGrid& grid, double spacing, float background) {
  openvdb::FloatGrid::Ptr sparse = openvdb::FloatGrid::create(background);
  const openvdb::tools::Dense<double, openvdb::tools::LayoutXYZ> dense(BoxOf(grid.dims), grid.data);
  openvdb::tools::copyFromDense(dense, *sparse, 0.0f);
  sparse->setTransform(openvdb::math::Transform::createLinearTransform(spacing));
  return sparse;
}

// 500,000 triangles on 256^3. The library's distances are floats within a band (cells); beyond it there is only inside
// and outside.
template <int kRounds>
void MeshToLevelSet(WorkerPool& pool, const char* text, const TriMeshSTL& mesh, int width) {
  constexpr int kCells = 256;
  ScalarGrid grid(VecInt3D(kCells + 1, kCells + 1, kCells + 1), Vec3D(1), 1.0f / kCells, kGridNodalLevelset,
                  Vec3D(-0.5));
  VolumeVoxeliser voxeliser;
  const double ours = Seconds<kRounds>([&] { voxeliser.Run(mesh, grid, pool); });
  std::vector<openvdb::Vec3s> points;
  std::vector<openvdb::Vec3I> triangles;
  // The library takes its points in cells.
  for (const Vec3D& p : mesh.Points()) {
    const Vec3D cells = (p + Vec3D(0.5)) * double(kCells);
    points.emplace_back(float(cells.x), float(cells.y), float(cells.z));
  }
  for (const VecInt3D& t : mesh.Triangles()) triangles.emplace_back(t.x, t.y, t.z);
  const openvdb::tools::QuadAndTriangleDataAdapter<openvdb::Vec3s, openvdb::Vec3I> adapter(points, triangles);
  const auto transform = openvdb::math::Transform::createLinearTransform(1.0 / kCells);
  openvdb::FloatGrid::Ptr band;
  const double theirs = Seconds<kRounds>([&] {
    band = openvdb::tools::meshToVolume<openvdb::FloatGrid>(adapter, *transform, float(width), float(width));
  });
  // Both must have the same surface: the zero crossing of a line through the middle.
  for (int i = 0; i < kCells; ++i) {
    const bool inside = grid(i, 128, 128) < 0;
    if (inside != (band->tree().getValue(openvdb::Coord(i, 128, 128)) < 0)) Fail("the level sets differ");
  }
  Tell(fmt::format("{} to a level set: all distances, double; a band of {} cells, float", text, width).c_str(), ours,
       theirs);
}

// The library gives quads without normals, not adaptive.
void LevelSetToMesh(WorkerPool& pool) {
  constexpr int kCells = 255;
  ScalarGrid grid(VecInt3D(kCells + 1, kCells + 1, kCells + 1), Vec3D(1), 1.0f / kCells, kGridNodalLevelset,
                  Vec3D(-0.5));
  test::FillCells(grid, [&](int i, int j, int k) {
    const Vec3D p = Vec3D(i, j, k) / double(kCells) - Vec3D(0.5);
    return Length(p) - 0.4 + 0.01 * std::sin(40 * p.x) * std::sin(40 * p.y) * std::sin(40 * p.z);
  });
  const openvdb::FloatGrid::Ptr whole = SparseOf(grid, 1.0 / kCells, 1.0f);
  ScalarGrid narrowed = grid;
  for (std::int64_t c = 0; c < grid.count; ++c) narrowed[c] = std::clamp(grid[c], -3.0 / kCells, 3.0 / kCells);
  openvdb::FloatGrid::Ptr band = SparseOf(narrowed, 1.0 / kCells, 3.0f / kCells);
  openvdb::FloatGrid::Ptr inside = SparseOf(narrowed, 1.0 / kCells, -3.0f / kCells);
  band->topologyIntersection(*inside);
  for (const bool sparse : {false, true}) {
    std::vector<openvdb::Vec3s> points;
    std::vector<openvdb::Vec4I> quads;
    const double theirs = Seconds([&] { openvdb::tools::volumeToMesh(sparse ? *band : *whole, points, quads); });
    for (const ExtractionMethod method : {ExtractionMethod::Cubes, ExtractionMethod::Tiles}) {
      TriMeshSTL mesh;
      const SurfaceExtractor extractor(grid,
                                       {.method = method, .tolerance = 1e-4 * grid.space.cellSize, .normals = true});
      const double ours = Seconds([&] { extractor.Build(pool, mesh); });
      const char* name = method == ExtractionMethod::Cubes ? "cubes" : "tiles";
      Tell(fmt::format("Level set to mesh: {}, {:.2f} M triangles with normals; {:.2f} M quads of a {}", name,
                       mesh.TriangleCount() * 1e-6, double(quads.size()) * 1e-6, sparse ? "band" : "dense grid")
               .c_str(),
           ours, theirs);
    }
  }
}

// A flow of up to two cells a step that rises in the middle, in cells.
Vec3D Rise(const Vec3D& p) {
  const Vec3D r = (p - Vec3D(64, 50, 64)) / 40.0;
  const double rise = std::exp(-(r.x * r.x + r.z * r.z));
  return {-r.x * rise * 0.6 + 0.3 * std::sin(0.31 * p.y), 1.6 * rise - 0.4,
          -r.z * rise * 0.6 + 0.3 * std::sin(0.27 * p.x)};
}

// MacCormack on 128^3 with staggered velocities. The engine's traces look at the velocity twice (Heun), the library's
// once; its values are floats.
void Advection(WorkerPool& pool) {
  const VecInt3D cells(128, 128, 128);
  test::AdvectionBench setting(cells, Rise, 1.0f / 32);
  setting.RemoveSolid();
  setting.field.integrator = Integrator::Heun;
  openvdb::Vec3fGrid velocity(openvdb::Vec3f(0));
  velocity.setGridClass(openvdb::GRID_STAGGERED);
  velocity.setTransform(openvdb::math::Transform::createLinearTransform(1.0 / 32));
  auto access = velocity.getAccessor();
  test::ForAll(cells, [&](int i, int j, int k) {
    access.setValue(openvdb::Coord(i, j, k),
                    openvdb::Vec3f(float((*setting.components[0])(i, j, k)), float((*setting.components[1])(i, j, k)),
                                   float((*setting.components[2])(i, j, k))));
  });
  openvdb::tools::VolumeAdvection<openvdb::Vec3fGrid, true> theirs(velocity);
  theirs.setIntegrator(openvdb::tools::Scheme::MAC);
  for (const double radius : {1000.0, 30.0}) {
    const auto smoke = test::MakeGrid(cells, kGridSmoke, setting.h),
               result = test::MakeGrid(cells, kGridSmoke, setting.h);
    test::FillSamples(*smoke, [&](const Vec3D& p) {
      return Length(p - Vec3D(64, 50, 64)) < radius ? 1 + 0.5 * std::sin(0.4 * p.x + 0.3 * p.y) : 0;
    });
    result->Fill(0);
    const openvdb::FloatGrid::Ptr sparse = SparseOf(*smoke, 1.0 / 32, 0.0f);
    openvdb::FloatGrid::Ptr advected;
    const double library =
        Seconds([&] { advected = theirs.advect<openvdb::FloatGrid, openvdb::tools::BoxSampler>(*sparse, 1.0); });
    const VecInt3D samples = smoke->dims;
    Grid<double> forward(samples, kGridScratch);
    Grid<std::int32_t> traced(samples, kGridScratch);
    AdvectionSource source = setting.Source(*smoke, AdvectionSampling::Trilinear);
    const double ours = Seconds([&] {
      source.content = FindContent(*smoke, pool);
      const Advected density{source, *result, {}, {{forward.data, samples}, {traced.data, samples}}};
      AdvectMacCormack(setting.field, {&density, 1}, pool);
    });
    const openvdb::Coord at(64, 60, 64);
    if (!(std::abs((*result)(64, 60, 64) - double(advected->tree().getValue(at))) < 0.05)) Fail("smoke differs");
    Tell(radius > 100 ? "MacCormack advection of a density, 128^3 full" : "the same, a ball of 30 cells' radius", ours,
         library);
  }
}

// Both with the library and its Blosc; the engine's file is flushed, too, and gets its name when it is whole.
void WriteFile() {
  const VecInt3D cells(256, 256, 256);
  const auto smoke = test::MakeGrid(cells, kGridSmoke, 1.0f / 64);
  test::FillSamples(*smoke, [&](const Vec3D& p) {
    const double d = Length(p - Vec3D(128));
    return d < 80 ? 1 + 0.5 * std::sin(0.4 * p.x + 0.3 * p.y) * std::cos(0.35 * p.z) : 0;
  });
  std::string folder = (std::filesystem::temp_directory_path() / "orlix_peers_XXXXXX").string();
  if (!::mkdtemp(folder.data())) Fail("no temporary folder");
  const double ours = Seconds([&] {
    if (!WriteVdb(std::filesystem::path(folder) / "a.vdb",
                  {{"density", VdbClass::Fog, {smoke.get(), nullptr, nullptr}}}, {})
             .ok()) {
      Fail("can't write");
    }
  });
  const double theirs = Seconds([&] {
    const openvdb::FloatGrid::Ptr sparse = SparseOf(*smoke, 1.0 / 64, 0.0f);
    sparse->setName("density");
    openvdb::io::File file(folder + "/b.vdb");
    file.write({sparse});
    file.close();
  });
  std::filesystem::remove_all(folder);
  Tell("VDB file of a density of 2.1 million voxels, from a dense array", ours, theirs);
}

void Run(int threads, std::string_view rows) {
  openvdb::initialize();
  const tbb::global_control limit(tbb::global_control::max_allowed_parallelism, std::size_t(threads));
  WorkerPool pool(threads);
  fmt::print("OpenVDB {}, {} threads, triad {:.1f} GB/s\n\n", openvdb::getLibraryVersionString(), threads,
             bench::TriadBandwidth(threads) * 1e-9);
  fmt::print("| work: Orlix; OpenVDB | Orlix, s | OpenVDB, s | ratio |\n|---|---|---|---|\n");
  const auto wanted = [&](std::string_view name) { return rows.empty() || rows == name; };
  if (wanted("rough")) MeshToLevelSet<5>(pool, "Rough ball", bench::RoughBall(), 3);
  if (wanted("ball")) MeshToLevelSet<5>(pool, "Ball", bench::Ball(), 3);
  if (wanted("wide")) {  // once: it takes long
    MeshToLevelSet<1>(pool, "Rough ball", bench::RoughBall(), 20);
    MeshToLevelSet<1>(pool, "Ball", bench::Ball(), 20);
  }
  if (wanted("mesh")) LevelSetToMesh(pool);
  if (wanted("advection")) Advection(pool);
  if (wanted("file")) WriteFile();
}

}  // namespace
}  // namespace orlix

int main(int argc, char** argv) {
  orlix::Run(argc > 1 ? std::clamp(std::atoi(argv[1]), 1, 64) : 2, argc > 2 ? argv[2] : "");
  return 0;
}
