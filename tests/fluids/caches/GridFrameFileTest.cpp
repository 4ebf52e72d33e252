#include "fluids/caches/GridFrameFile.h"

#include <random>

#include "fluids/caches/GridSpaceRecord.h"
#include "tests/support/Cells.h"
#include "tests/support/RepairHyperFile.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

using test::TemporaryFolder;

ScalarGrid MakeGrid(const VecInt3D& cells, double size, std::uint32_t type, const Vec3D& origin = {}) {
  const float cell = static_cast<float>(size / cells.x);
  return ScalarGrid(cells + ExtraCells(type), Vec3D(cells) * (size / cells.x), cell, type, origin);
}
// The value of f at each sample's place as the resampler sees it.
template <class F>
void Fill(ScalarGrid& g, const F& f) {
  const Vec3D half(g.gridType == kGridNodalLevelset ? 0.0 : 0.5);
  test::FillCells(g, [&](int i, int j, int k) { return f(g.space.HostOfVoxel(Vec3D(VecInt3D(i, j, k)) + half)); });
}
double Linear(const Vec3D& p) { return 1 + 2 * p.x - 3 * p.y + 0.5 * p.z; }

// Writes one entry of these grids.
void WriteFrame(const std::filesystem::path& path, const CachedGridSet& grids, bool compress = false) {
  HyperFile file;
  ASSERT_TRUE(file.Open(kFrameFileIdent, path, HyperFile::Mode::Write));
  const std::vector<CachedGridSet> entries = {grids};
  WriteGridFrame(file, grids.front()->space, entries, compress);
  const Status closed = file.Close();
  ASSERT_TRUE(closed.ok()) << closed.error().text;
}
Status ReadFrame(HyperFile& file, const std::vector<ScalarGrid*>& targets,
                 Interpolation interpolation = Interpolation::Trilinear) {
  WorkerPool pool(1);
  GridFrameHead head;
  if (Status read = ReadGridFrameHead(file, "f", head); !read.ok()) return read;
  for (const GridCacheHeader& header : head.entries) {
    if (Status read = ReadGridChunk(file, "f", header, targets, {interpolation, pool}); !read.ok()) return read;
  }
  return {};
}
Status ReadFrame(const std::filesystem::path& path, const std::vector<ScalarGrid*>& targets,
                 Interpolation interpolation = Interpolation::Trilinear) {
  HyperFile file;
  if (!file.Open(kFrameFileIdent, path, HyperFile::Mode::Read)) return file.status();
  return ReadFrame(file, targets, interpolation);
}
bool SameContent(const ScalarGrid& a, const ScalarGrid& b) { return test::ValuesOf(a) == test::ValuesOf(b); }

TEST(GridFrameFile, StaggeredComponentsComeBackEachWithItsDims) {
  TemporaryFolder folder;
  std::vector<ScalarGrid> grids, targets;
  CachedGridSet set;
  std::vector<ScalarGrid*> into;
  for (std::uint32_t c = 0; c < 3; c++) {
    grids.push_back(MakeGrid({5, 4, 6}, 10, c, {1, 2, 3}));
    targets.push_back(MakeGrid({5, 4, 6}, 10, c, {1, 2, 3}));
  }
  for (std::uint32_t c = 0; c < 3; c++) {
    Fill(grids[c], [&](const Vec3D& p) { return Linear(p) * (c + 1); });
    targets[c].Fill(-7.0);
    set.push_back(&grids[c]);
    into.push_back(&targets[c]);
  }
  for (bool compress : {false, true}) {
    WriteFrame(folder / "f", set, compress);
    const Status read = ReadFrame(folder / "f", into);
    ASSERT_TRUE(read.ok()) << read.error().text;
    for (int c = 0; c < 3; c++) EXPECT_TRUE(SameContent(grids[c], targets[c])) << c;
  }
}

TEST(GridFrameFile, AnEqualLatticeWithAnotherArrayIsResampled) {
  TemporaryFolder folder;
  ScalarGrid nodal = MakeGrid({6, 6, 6}, 6, kGridNodalLevelset), centred = MakeGrid({6, 6, 6}, 6, kGridLevelset);
  ASSERT_TRUE(nodal.space.Equals(centred.space));
  Fill(nodal, Linear);
  WriteFrame(folder / "f", {&nodal});
  ASSERT_TRUE(ReadFrame(folder / "f", {&centred}).ok());
  EXPECT_NEAR(centred(2, 3, 4), Linear({2.5, 3.5, 4.5}), 1e-12);
}

// Out to another lattice and back. Linear fields come through each interpolation but the easing one; a smooth one comes
// near, in the inside where no border is repeated.
void ResampleThereAndBack(int n, int m) {
  TemporaryFolder folder;
  const double size = 1.0;
  const auto wave = [](const Vec3D& p) { return std::sin(6 * p.x) * std::cos(5 * p.y) + std::sin(4 * p.z); };
  const double tolerance[] = {60.0 / (n * n), 6.0 / n, 60.0 / (n * n), 60.0 / (n * n), 120.0 / (n * n)};
  for (int mode = 0; mode <= 4; mode++) {
    for (bool linear : {true, false}) {
      ScalarGrid start = MakeGrid({n, n, n}, size, kGridSmoke), there = MakeGrid({m, m, m}, size, kGridSmoke);
      ScalarGrid back = MakeGrid({n, n, n}, size, kGridSmoke), same = MakeGrid({n, n, n}, size, kGridSmoke);
      Fill(start, [&](const Vec3D& p) { return linear ? Linear(p) : wave(p); });
      WriteFrame(folder / "a", {&start});
      ASSERT_TRUE(ReadFrame(folder / "a", {&same}, InterpolationOf(mode)).ok());
      ASSERT_TRUE(SameContent(start, same)) << "the same lattice is copied, whatever the interpolation";
      ASSERT_TRUE(ReadFrame(folder / "a", {&there}, InterpolationOf(mode)).ok());
      WriteFrame(folder / "b", {&there});
      ASSERT_TRUE(ReadFrame(folder / "b", {&back}, InterpolationOf(mode)).ok());
      const bool exact = linear && mode != 1 && mode != 4;
      double worst = 0;
      const int border = 4;
      test::ForBox(VecInt3D(border, border, border), VecInt3D(n - border, n - border, n - border),
                   [&](int i, int j, int k) { worst = std::max(worst, std::abs(back(i, j, k) - start(i, j, k))); });
      EXPECT_LT(worst, exact ? 1e-12 : tolerance[mode]) << "mode " << mode << ", linear " << linear;
    }
  }
}
TEST(GridFrameFile, ResamplesThereAndBack) { ResampleThereAndBack(24, 36); }
std::vector<std::byte> SmallFrame(bool compress) {
  TemporaryFolder folder;
  std::vector<ScalarGrid> grids;
  CachedGridSet set;
  for (std::uint32_t c = 0; c < 3; c++) grids.push_back(MakeGrid({3, 2, 2}, 3, c));
  for (ScalarGrid& g : grids) {
    Fill(g, Linear);
    set.push_back(&g);
  }
  WriteFrame(folder / "f", set, compress);
  const std::string text = test::ReadText(folder / "f");
  const auto* data = reinterpret_cast<const std::byte*>(text.data());
  return {data, data + text.size()};
}
// As a playback into an equal and into another lattice.
bool Plays(const std::vector<std::byte>& bytes) {
  bool plays = true;
  for (int cells : {3, 4}) {
    std::vector<ScalarGrid> grids;
    for (std::uint32_t c = 0; c < 3; c++) grids.push_back(MakeGrid({cells, cells - 1, 2}, 3, c));
    HyperFile file;
    plays = plays && file.Open(kFrameFileIdent, bytes) && ReadFrame(file, {&grids[0], &grids[1], &grids[2]}).ok();
  }
  return plays;
}

// Mutants with checksums that agree: refused or played, within memory and time.
TEST(GridFrameFile, MutantsAreRefusedOrPlayed) {
  constexpr int kMutants = 400;
  std::mt19937 random(17);
  const std::vector<std::byte> frames[] = {SmallFrame(false), SmallFrame(true)};
  int played = 0, refused = 0;
  for (int mutant = 0; mutant < kMutants; mutant++) {
    Plays(test::MutantOf(frames[mutant % 2], kFrameFileIdent, random)) ? played++ : refused++;
  }
  EXPECT_GT(played, kMutants / 10);
  EXPECT_GT(refused, kMutants / 10);
}

TEST(GridFrameFile, LatticesThatCanNotBeAreRefused) {
  TemporaryFolder folder;
  const GridSpace good = MakeGrid({4, 5, 6}, 4, kGridSmoke, {1, -2, 3}).space;
  const auto readBack = [&](const GridSpace& stored, GridSpace& space) {
    HyperFile file;
    file.Open(1, folder / "s", HyperFile::Mode::Write);
    WriteGridSpace(file, stored);
    EXPECT_TRUE(file.Close().ok());
    file.Open(1, folder / "s", HyperFile::Mode::Read);
    return ReadGridSpace(file, "s", space).ok();
  };
  GridSpace space;
  ASSERT_TRUE(readBack(good, space));
  EXPECT_EQ(std::memcmp(&space.hostMin, &good.hostMin, sizeof(Vec3D)), 0);
  EXPECT_TRUE(space.Equals(good));
  EXPECT_EQ(space.voxelMax, good.voxelMax);
  const auto refused = [&](auto change) {
    GridSpace bad = good;
    change(bad);
    return !readBack(bad, space);
  };
  const double nan = std::nan("");
  EXPECT_TRUE(refused([](GridSpace& s) { s.dims.x = 0, s.count = s.slab = 0; }));
  EXPECT_TRUE(refused([](GridSpace& s) { s.dims = {-4, -5, 6}; }));
  EXPECT_TRUE(refused([](GridSpace& s) { s.dims = {65536, 65536, 1}, s.slab = s.count = 0; }));
  EXPECT_TRUE(refused([](GridSpace& s) { s.dims = VecInt3D(2147483647), s.count = 2147483647; }));
  EXPECT_TRUE(refused([](GridSpace& s) { s.count++; }));
  EXPECT_TRUE(refused([](GridSpace& s) { s.slab--; }));
  EXPECT_TRUE(refused([](GridSpace& s) { s.cellSize = 0; }));
  EXPECT_TRUE(refused([&](GridSpace& s) { s.hostMin.y = nan; }));
  EXPECT_TRUE(refused([&](GridSpace& s) { s.hostSize.z = nan; }));
  EXPECT_TRUE(refused([](GridSpace& s) { s.hostSize.z = -1; }));
}

TEST(GridFrameFile, TheNumberOfEntriesTakesNoMemory) {
  TemporaryFolder folder;
  for (std::int32_t count : {-1, 2, 2147483647}) {
    HyperFile file;
    file.Open(kFrameFileIdent, folder / "f", HyperFile::Mode::Write);
    WriteGridSpace(file, MakeGrid({4, 4, 4}, 4, kGridSmoke).space);
    file.WriteLong(count);
    file.WriteBool(false);
    ASSERT_TRUE(file.Close().ok());
    file.Open(kFrameFileIdent, folder / "f", HyperFile::Mode::Read);
    GridFrameHead head;
    EXPECT_FALSE(ReadGridFrameHead(file, "f", head).ok()) << count;
  }
}

}  // namespace
}  // namespace orlix
