// orlix info and orlix convert on files that the program or others wrote.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "exchange/vdb/VdbFile.h"
#include "fluids/caches/GridFrameFile.h"
#include "tests/apps/orlix/ProgramRunner.h"

namespace orlix {
namespace {

using test::ProgramOutcome;
using test::ProgramRunner;

TEST(InfoOfMeshes, TellsKindCountsAndBox) {
  ProgramRunner runner;
  const std::string obj = runner.Write("a.OBJ", "v -1 0 2\nv 1 0 2\nv 1 3 2\nv -1 3 4\nf 1 2 3 4\nf 1 2 3\n");
  const std::string ply = (runner.folder / "a.ply").string();
  const std::string stl = runner.Write("a.stl",
                                       "solid\nfacet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\n"
                                       "vertex 0 2.5 0\nendloop\nendfacet\nendsolid\n");
  ASSERT_EQ(runner.Run({"convert", obj, ply}).code, 0);
  EXPECT_EQ(runner.Run({"info", obj}).out, obj + ": OBJ (text), 4 points, 2 polygons, in (-1, 0, 2) to (1, 3, 4)\n");
  EXPECT_EQ(runner.Run({"info", stl}).out, stl + ": STL (text), 3 points, 1 polygons, in (0, 0, 0) to (1, 2.5, 0)\n");
  const auto json = nlohmann::json::parse(runner.Run({"info", ply, "--json"}).out);
  EXPECT_EQ(json, nlohmann::json::parse(R"({"kind": "ply", "encoding": "binary", "points": 4, "polygons": 2,
                                            "low": [-1, 0, 2], "high": [1, 3, 4]})"));
  const std::string empty = runner.Write("b.stl", "solid\nendsolid\n");
  EXPECT_TRUE(nlohmann::json::parse(runner.Run({"info", empty, "--json"}).out).at("low").is_null());
  EXPECT_EQ(runner.Run({"info", runner.Write("c.stl", "not a mesh")}).code, 4);
}

class ConvertCaches : public testing::Test {
 protected:
  // 20 host units a metre, cells of 0.25 m, the origin 3 cells below 0 in x.
  static std::unique_ptr<ScalarGrid> Make(std::uint32_t type) {
    const VecInt3D cells(6, 5, 4);
    auto grid =
        std::make_unique<ScalarGrid>(cells + ExtraCells(type), Vec3D(cells) * 5.0, 0.25f, type, Vec3D(-15, 0, 10));
    for (std::int64_t i = 0; i < grid->count; ++i) (*grid)[i] = 0.01 * double(i + 1) * (type + 1);
    return grid;
  }
  void SetUp() override {
    for (const std::uint32_t type :
         {0u, 1u, 2u, std::uint32_t(kGridCustom), std::uint32_t(kGridTemperature), std::uint32_t(kGridNodalLevelset)}) {
      grids.push_back(Make(type));
    }
    const CachedGridSet entries[] = {{grids[3].get()},
                                     {grids[4].get()},
                                     {},
                                     {grids[0].get(), grids[1].get(), grids[2].get()},
                                     {grids[3].get(), grids[3].get(), grids[3].get()},
                                     {grids[5].get()}};
    cache = (runner.folder / "run00012.cache").string(), vdb = (runner.folder / "run.0012.vdb").string();
    for (const bool compress : {true, false}) {
      HyperFile file;
      ASSERT_TRUE(file.Open(kFrameFileIdent, cache, HyperFile::Mode::Write));
      ASSERT_TRUE(WriteGridFrame(file, grids[3]->space, entries, compress));
      ASSERT_TRUE(file.Close().ok());
    }
  }
  std::vector<std::string> NamesInVdb() {
    std::vector<std::string> names;
    const auto info = ReadVdbInfo(vdb, true);
    if (info.ok()) {
      for (const VdbGridInfo& grid : *info) names.push_back(grid.name);
    }
    return names;
  }
  ProgramRunner runner;
  std::vector<std::unique_ptr<ScalarGrid>> grids;
  std::string cache, vdb;
};

TEST_F(ConvertCaches, GiveTheFileThatTheRunWouldHaveWritten) {
  const ProgramOutcome outcome = runner.Run({"convert", cache, vdb});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  ScalarGrid* const custom = grids[3].get();
  const std::vector<VdbField> fields = {
      {"density", VdbClass::Fog, {custom}, 0},
      {"temperature", VdbClass::Fog, {grids[4].get()}, 0},
      {"velocity", VdbClass::Velocity, {grids[0].get(), grids[1].get(), grids[2].get()}, 0},
      {"density_x", VdbClass::Fog, {custom}, 0},
      {"density_y", VdbClass::Fog, {custom}, 0},
      {"density_z", VdbClass::Fog, {custom}, 0},
      {"surface", VdbClass::LevelSet, {grids[5].get()}, 0},
  };
  const std::string direct = (runner.folder / "direct.vdb").string();
  ASSERT_TRUE(WriteVdb(direct, fields, {.frame = 12}).ok());
  const auto want = ReadVdbInfo(direct, true), got = ReadVdbInfo(vdb, true);
  ASSERT_TRUE(want.ok() && got.ok());
  ASSERT_EQ(got->size(), want->size());
  for (std::size_t i = 0; i < want->size(); ++i) {
    const VdbGridInfo &a = (*got)[i], &b = (*want)[i];
    EXPECT_EQ(a.name, b.name);
    EXPECT_EQ(a.gridClass, b.gridClass);
    EXPECT_EQ(a.activeVoxels, b.activeVoxels);
    EXPECT_EQ(a.min, b.min);
    EXPECT_EQ(a.max, b.max);
    EXPECT_EQ(a.voxelSize, b.voxelSize);
    EXPECT_EQ(a.low, b.low) << a.name;
    EXPECT_EQ(a.high, b.high) << a.name;
  }
}

TEST_F(ConvertCaches, NamesAreAsAskedFor) {
  ASSERT_EQ(runner.Run({"convert", cache, vdb, "--names", "houdini", "--grids", "my smoke,,,,tint,"}).code, 0);
  EXPECT_EQ(NamesInVdb(),
            (std::vector<std::string>{"my_smoke", "temperature", "vel", "tint_x", "tint_y", "tint_z", "surface"}));
  const ProgramOutcome few = runner.Run({"convert", cache, vdb, "--grids", "smoke"});
  EXPECT_EQ(few.code, 2);
  EXPECT_NE(few.err.find("1 names for the 6 entries"), std::string::npos) << few.err;
  EXPECT_EQ(runner.Run({"convert", cache, vdb, "--names", "other"}).code, 2);
  EXPECT_EQ(runner.Run({"convert", cache, (runner.folder / "a.obj").string()}).code, 2);
}

TEST_F(ConvertCaches, ABrokenCacheLeavesNoVdb) {
  std::string content = test::ReadText(cache);
  content[content.size() - 200] ^= 1;
  test::WriteText(cache, content);
  EXPECT_EQ(runner.Run({"convert", cache, vdb}).code, 4);
  EXPECT_FALSE(std::filesystem::exists(vdb));
}

}  // namespace
}  // namespace orlix
