// OpenVDB files, read back by OpenVDB's own Python module where it is installed.

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "exchange/vdb/VdbFile.h"
#include "tests/support/Cells.h"
#include "tests/support/Sanitized.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

using test::TemporaryFolder;

std::unique_ptr<ScalarGrid> MakeGrid(std::uint32_t type, const VecInt3D& cells) {
  // 20 host units a metre, cells of 0.25 m: 5 host units a cell. The origin lies 3 cells below zero in x.
  auto grid =
      std::make_unique<ScalarGrid>(cells + ExtraCells(type), Vec3D(cells) * 5.0, 0.25f, type, Vec3D(-15, 0, 10));
  grid->Fill(0);
  return grid;
}

std::string RunPython(const std::filesystem::path& script, const std::filesystem::path& file) {
  const std::filesystem::path out = file.parent_path() / "out.txt";
  const std::string command =
      "/usr/bin/python3 " + script.string() + " " + file.string() + " > " + out.string() + " 2>&1";
  const int status = std::system(command.c_str());
  std::ifstream in(out);
  std::string text((std::istreambuf_iterator<char>(in)), {});
  return status == 0 ? text : "failed: " + text;
}

struct VdbFiles : testing::Test {
  VdbFiles() : smoke(MakeGrid(kGridSmoke, {7, 6, 5})), phi(MakeGrid(kGridNodalLevelset, {12, 12, 12})) {
    (*smoke)(2, 3, 4) = 0.625;
    (*smoke)(6, 0, 1) = 0.1;
    for (int c = 0; c < 3; ++c) {
      velocity[c] = MakeGrid(static_cast<std::uint32_t>(c), {4, 4, 4});
      velocity[c]->Fill(0);
    }
    (*velocity[0])(1, 2, 3) = 2.0;  // between cells 0 and 1 in x
    test::FillCells(*phi, [](int i, int j, int k) { return 0.25 * (Length(Vec3D(i, j, k) - Vec3D(6)) - 4.5); });
    fields = {{"density", VdbClass::Fog, {smoke.get()}, 0},
              {"velocity", VdbClass::Velocity, {velocity[0].get(), velocity[1].get(), velocity[2].get()}, 0},
              {"surface", VdbClass::LevelSet, {phi.get()}, 0}};
    path = folder.path() / "frame.0007.vdb";
  }
  TemporaryFolder folder;
  std::unique_ptr<ScalarGrid> smoke, phi, velocity[3];
  std::vector<VdbField> fields;
  std::filesystem::path path;
};

TEST_F(VdbFiles, InfoTellsWhatWasWritten) {
  ASSERT_TRUE(WriteVdb(path, fields, {.frame = 7}).ok());
  for (const bool withValues : {false, true}) {
    const auto info = ReadVdbInfo(path, withValues);
    ASSERT_TRUE(info.ok()) << info.error().text;
    ASSERT_EQ(info->size(), 3u);
    const VdbGridInfo& density = (*info)[0];
    EXPECT_EQ(density.name, "density");
    EXPECT_EQ(density.gridClass, "fog volume");
    EXPECT_EQ(density.activeVoxels, 2u);
    EXPECT_EQ(density.min, VecInt3D(-1, 0, 3));
    EXPECT_EQ(density.max, VecInt3D(3, 3, 6));
    EXPECT_DOUBLE_EQ(density.voxelSize.x, 5);
    EXPECT_EQ((*info)[1].valueType, "vec3s");
    EXPECT_EQ((*info)[2].gridClass, "level set");
    if (withValues) {
      EXPECT_FLOAT_EQ(density.low, 0.1f);
      EXPECT_FLOAT_EQ(density.high, 0.625f);
      EXPECT_FLOAT_EQ((*info)[1].high, 20) << "half of 2 m/s at 20 host units a metre";
    }
  }
}

TEST_F(VdbFiles, AnotherReaderFindsTheSameValuesAndTransform) {
  if (std::system("/usr/bin/python3 -c 'import pyopenvdb' 2>/dev/null") != 0) GTEST_SKIP() << "no pyopenvdb";
  ASSERT_TRUE(WriteVdb(path, fields, {.frame = 7}).ok());
  const std::filesystem::path script = folder.path() / "check.py";
  std::ofstream(script) << R"(
import sys, pyopenvdb as vdb
grids, meta = vdb.readAll(sys.argv[1])
by = {g.name: g for g in grids}
d = by['density']
print(sorted(by), d.gridClass, d.activeVoxelCount())
a = d.getConstAccessor()
print(a.getValue((-1, 3, 6)), a.getValue((3, 0, 3)), a.isValueOn((0, 0, 4)))
print(tuple(d.transform.indexToWorld((-1, 3, 6))), d.metadata['frame'])
v = by['velocity'].getConstAccessor()
print(v.getValue((-3, 2, 5)), v.getValue((-2, 2, 5)), by['velocity'].activeVoxelCount())
s = by['surface']
sa = s.getConstAccessor()
print(s.gridClass, round(sa.getValue((3, 6, 3)), 4), round(sa.getValue((3, 6, 8)), 4), s.background, tuple(s.transform.indexToWorld((1, 2, 3))))
)";
  const std::string out = RunPython(script, path);
  EXPECT_EQ(out,
            "['density', 'surface', 'velocity'] fog volume 2\n"
            "0.625 0.10000000149011612 False\n"
            "(-2.5, 17.5, 32.5) 7\n"
            "(20.0, 0.0, 0.0) (20.0, 0.0, 0.0) 2\n"
            "level set 2.5 -15.0 15.0 (5.0, 10.0, 15.0)\n");
}

TEST_F(VdbFiles, LieInTheSpaceOfTheOtherProgram) {
  if (std::system("/usr/bin/python3 -c 'import pyopenvdb' 2>/dev/null") != 0) GTEST_SKIP() << "no pyopenvdb";
  (*velocity[1])(2, 1, 3) = 4.0;
  ASSERT_TRUE(WriteVdb(path, fields, {.space = {.scale = 0.1, .upZ = true}}).ok());
  const std::filesystem::path script = folder.path() / "check.py";
  std::ofstream(script) << R"(
import sys, pyopenvdb as vdb
by = {g.name: g for g in vdb.readAll(sys.argv[1])[0]}
print([round(x, 6) for x in by['density'].transform.indexToWorld((-1, 3, 6))])
print([round(x, 5) + 0 for x in by['velocity'].getConstAccessor().getValue((-1, 1, 5))])
print(round(by['surface'].getConstAccessor().getValue((3, 6, 8)), 5), round(by['surface'].background, 5))
)";
  EXPECT_EQ(RunPython(script, path),
            "[-0.25, -3.25, 1.75]\n"
            "[0.0, 0.0, 4.0]\n"
            "-1.5 1.5\n");
}

TEST_F(VdbFiles, HaveTheVelocityWhereThereIsSomething) {
  for (auto& component : velocity) component = MakeGrid(component->gridType, {40, 8, 8}), component->Fill(1);
  for (int c = 0; c < 3; ++c) fields[1].grids[c] = velocity[c].get();
  smoke = MakeGrid(kGridSmoke, {40, 8, 8});
  (*smoke)(4, 4, 4) = 1;
  fields[0].grids[0] = smoke.get();
  fields.pop_back();
  const auto voxels = [&](bool everywhere) {
    EXPECT_TRUE(WriteVdb(path, fields, {.velocityEverywhere = everywhere}).ok());
    const auto info = ReadVdbInfo(path, true);
    return info.ok() ? info->back().activeVoxels : 0;
  };
  EXPECT_EQ(voxels(true), 40u * 8 * 8);
  EXPECT_EQ(voxels(false), 7u * 7 * 7);
  fields.erase(fields.begin());
  EXPECT_EQ(voxels(false), 40u * 8 * 8) << "nothing to be near to";
}

TEST_F(VdbFiles, AValueBeyondSinglePrecisionIsRefused) {
  (*velocity[1])(1, 2, 3) = 1e38;  // 2e39 host units a second
  fields[1].node = "Plume/Air";
  const Status status = WriteVdb(path, fields, {});
  ASSERT_FALSE(status.ok());
  EXPECT_EQ(status.error().kind, ErrorKind::Diverged);
  EXPECT_EQ(
      status.error().text,
      "\"Plume/Air\": the grid velocity has the value 2e+39 at (1, 2, 3), beyond what OpenVDB files hold in single "
      "precision");
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(VdbFiles, BrokenFilesAndFoldersGetAMessage) {
  EXPECT_EQ(WriteVdb(folder.path() / "none" / "x.vdb", fields, {.frame = 1}).error().kind, ErrorKind::Output);
  const auto missing = ReadVdbInfo(folder.path() / "none.vdb", true);
  ASSERT_FALSE(missing.ok());
  ASSERT_TRUE(WriteVdb(path, fields, {.frame = 7}).ok());
  if (test::kSanitized) return;
  // After a cut the library takes whatever it finds for a size; the allocation fails, which ends a sanitized program.
  std::filesystem::resize_file(path, std::filesystem::file_size(path) / 3);
  const auto info = ReadVdbInfo(path, true);
  ASSERT_FALSE(info.ok());
  EXPECT_NE(info.error().text.find("frame.0007.vdb"), std::string::npos);
}

}  // namespace
}  // namespace orlix
