// orlix info and orlix convert on files that the program or others wrote.

#include <gtest/gtest.h>

#include <fmt/format.h>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <set>

#include "exchange/vdb/VdbFile.h"
#include "fluids/caches/GridFrameFile.h"
#include "host/pictures/PictureFile.h"
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
  const ProgramOutcome few = runner.Run({"convert", cache, vdb, "--grids", "smoke", "--overwrite"});
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

// --- exchange -------------------------------------------------------------------------------------------------------

// Files for other programs by the program's commands: convert, info, verify, film, sheet, and the script for Blender.

bool Installed(const char* program) {
  return std::system(fmt::format("command -v {} >/dev/null 2>&1", program).c_str()) == 0;
}

TEST(ConvertParticles, GoThroughEveryFormatAndComeBack) {
  ProgramRunner runner;
  const std::string text = "# x y z vx vy vz id:int mass\n1 2 3 0 0.5 1 7 2\n-1 0.25 8 1 1 1 9 4\n";
  std::string last = runner.Write("a.txt", text);
  int steps = 0;
  for (const char* ending : {"bgeo", "geo.gz", "prt", "pdb64", "pda", "icecache", "pcd", "ply", "txt"}) {
    const std::string next = (runner.folder / fmt::format("b{}.{}", ++steps, ending)).string();
    const ProgramOutcome outcome = runner.Run({"convert", last, next});
    ASSERT_EQ(outcome.code, 0) << next << outcome.err;
    const auto json = nlohmann::json::parse(runner.Run({"info", next, "--json"}).out);
    EXPECT_EQ(json["count"], 2) << next;
    EXPECT_EQ(json["values"].size(), 8u) << next;
    last = next;
  }
  EXPECT_EQ(test::ReadText(last), text);
  const std::string bare = (runner.folder / "a.xyz").string();
  EXPECT_NE(runner.Run({"convert", last, bare}).out.find("no place for velocity, id, mass"), std::string::npos);
  const std::string points = (runner.folder / "a.vdb").string(), back = (runner.folder / "c.txt").string();
  EXPECT_EQ(runner.Run({"convert", last, points}).code, 0);
  EXPECT_EQ(runner.Run({"convert", points, back}).code, 0);
  EXPECT_NE(test::ReadText(back).find(" 9 "), std::string::npos);
  EXPECT_EQ(runner.Run({"verify", runner.folder.path().string()}).code, 0);
  test::WriteText(runner.folder / "b1.bgeo", test::ReadText(runner.folder / "b1.bgeo").substr(0, 90));
  EXPECT_EQ(runner.Run({"verify", runner.folder.path().string()}).code, 4);
  EXPECT_EQ(runner.Run({"convert", last, (runner.folder / "a.pts").string()}).code, 2);
}

TEST(ConvertMeshes, ToGlbAndUsdAreDescribedAndProven) {
  ProgramRunner runner;
  const std::string obj = runner.Write("a.obj", "v 0 0 0\nv 1 0 0\nv 1 3 0\nv 0 3 1\nf 1 2 3 4\n");
  const std::string glb = (runner.folder / "a.glb").string(), usda = (runner.folder / "a.usda").string();
  ASSERT_EQ(runner.Run({"convert", obj, glb}).code, 0);
  ASSERT_EQ(runner.Run({"convert", obj, usda}).code, 0);
  const auto json = nlohmann::json::parse(runner.Run({"info", glb, "--json"}).out);
  EXPECT_EQ(json["points"], 4);
  EXPECT_EQ(json["triangles"], 2);
  EXPECT_NE(runner.Run({"info", usda}).out.find("Mesh \"Mesh\""), std::string::npos);
  // Twice as large, with z upwards; and what reads it has that.
  const std::string turned = (runner.folder / "b.glb").string(), back = (runner.folder / "b.obj").string();
  ASSERT_EQ(runner.Run({"convert", obj, turned, "--scale", "2", "--up", "z"}).code, 0);
  ASSERT_EQ(runner.Run({"convert", turned, back}).code, 0);
  EXPECT_NE(test::ReadText(back).find("v 0 -2 6\n"), std::string::npos) << test::ReadText(back);
  EXPECT_EQ(runner.Run({"convert", usda, back}).code, 5) << "it is there";
  EXPECT_NE(test::ReadText(back).find("v 0 -2 6\n"), std::string::npos);
  EXPECT_EQ(runner.Run({"convert", usda, back, "--overwrite"}).code, 0) << "USD comes back, too";
  EXPECT_EQ(test::ReadText(back).find("v 0 -2 6\n"), std::string::npos);
  test::WriteText(glb, test::ReadText(glb).substr(0, 300));
  EXPECT_EQ(runner.Run({"info", glb}).code, 4);
}

TEST(Sheets, HoldTheFirstAndTheLastPicture) {
  ProgramRunner runner;
  for (const int frame : {3, 4, 5, 9}) {
    Picture picture(64, 32);
    for (const char* name : {"R", "G", "B"}) picture.AddChannel(name, static_cast<float>(frame) / 10);
    const auto path = runner.folder / fmt::format("it's.{:04}.png", frame);
    ASSERT_TRUE(WritePicture(path, picture, {0, ViewTransform::Srgb}).ok());
  }
  const std::string folder = runner.folder.path().string(), out = (runner.folder / "s.png").string();
  const ProgramOutcome outcome = runner.Run({"sheet", folder, "--count", "3", "--columns", "2", "--out", out});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  const Result<Picture> sheet = ReadPicture(out);
  ASSERT_TRUE(sheet.ok());
  EXPECT_EQ(sheet->width(), 2 * 68 + 4);
  EXPECT_EQ(sheet->height(), 2 * 36 + 4);
  const auto at = [&](int x, int y) {
    return sheet->Find("G")
        ->values[static_cast<std::size_t>(y) * static_cast<std::size_t>(sheet->width()) + static_cast<std::size_t>(x)];
  };
  EXPECT_NEAR(at(60, 30), 0.3, 0.01);
  EXPECT_NEAR(at(60, 66), 0.9, 0.02);
  EXPECT_EQ(at(1, 1), 0);
  EXPECT_EQ(runner.Run({"sheet", folder, "--name", "other"}).code, 4);
  if (!Installed("ffmpeg")) return;
  EXPECT_EQ(runner.Run({"film", folder}).code, 0);
  EXPECT_GT(std::filesystem::file_size(runner.folder / "it's.mp4"), 500u);
  EXPECT_EQ(test::NamesIn(runner.folder.path()).count(".film"), 0u);
}

// By the frame before, whether that was asked for or not, and alike in each output that asks.
TEST(Files, AMeshHasTheVelocityOfItsFrameWhateverElseIsMade) {
  ProgramRunner runner;
  const std::string scene = runner.Write("s.json", R"({ "orlix": 1, "fps": 10, "frames": [0, 4], "objects": [
      { "type": "box", "name": "Box", "position@": { "keys": [[0, [0, 0, 0]], [3, [0, 0, 0]], [4, [7, 0, 0]]] } },
      { "type": "scene", "name": "S", "children": [{ "type": "particlegroup", "name": "None" }] } ],
      "output": [{ "folder": "a", "meshes": "ply" }, { "folder": "b", "meshes": "ply" }] })");
  std::set<std::string> contents;
  for (const char* frames : {"0-4", "4", "1,4", "0-4x2"}) {
    const auto out = runner.folder / frames;
    ASSERT_EQ(runner.Run({"run", scene, "--frames", frames, "--out", out.string()}).code, 0);
    for (const char* folder : {"a", "b"}) contents.insert(test::ReadText(out / folder / "frame_Box.0004.ply"));
  }
  EXPECT_EQ(contents.size(), 1u);
  const float speed = 70;
  EXPECT_NE(contents.begin()->find(std::string_view(reinterpret_cast<const char*>(&speed), sizeof speed)),
            std::string::npos);
}

// A scene from an output's files, and a small picture of it.
TEST(BlenderSlow, TheScriptBuildsAScene) {
  if (!Installed("blender")) GTEST_SKIP() << "Blender isn't installed";
  ProgramRunner runner;
  const std::string scene = runner.Write("s.json", R"({ "orlix": 1, "fps": 24, "frames": [0, 2], "objects": [
      { "type": "sphere", "name": "Ball", "radius": 50, "position": [0, 100, 0] },
      { "type": "scene", "name": "S", "voxel_size": 0.1, "children": [
        { "type": "fluid", "name": "Air", "container": [200, 200, 200] },
        { "type": "channel_scalar", "name": "smoke" },
        { "type": "volume", "name": "Source", "object": "Ball" },
        { "type": "gridemitter", "name": "Emit", "volume": "Source", "pairs": ["Pair"], "children": [
          { "type": "channelsettings", "name": "Pair", "channel": "smoke", "settings": "One" },
          { "type": "emission_setting", "name": "One", "mode": "set", "value": 1 } ] } ] } ],
      "output": [{ "folder": "o", "vdb": true, "meshes": "ply", "scale": 0.01 }] })");
  const ProgramOutcome run = runner.Run({"run", scene, "--out", runner.folder.path().string()});
  ASSERT_EQ(run.code, 0) << run.err;
  const std::string picture = (runner.folder / "p.png").string(), said = (runner.folder / "said").string();
  const std::string command = fmt::format(
      "timeout 300 blender --background --python {}/share/blender/import_orlix.py -- {}/o --frame 2 --render {} "
      "--size 96x64 --samples 4 --look clay >{} 2>&1",
      SourceFolder(), runner.folder.path().string(), picture, said);
  ASSERT_EQ(std::system(command.c_str()), 0) << test::ReadText(said);
  const std::string text = test::ReadText(said);
  EXPECT_NE(text.find("frame (volume, 3 frames)"), std::string::npos) << text;
  EXPECT_NE(text.find("frame_Ball (mesh, 3 frames)"), std::string::npos) << text;
  EXPECT_NE(text.find("a unit is 1 m, y is up in the files"), std::string::npos) << text;
  const Result<Picture> shown = ReadPicture(picture);
  ASSERT_TRUE(shown.ok());
  const auto ranges = RangesOf(*shown);
  EXPECT_GT(ranges[0].max - ranges[0].min, 0.1) << "something is to be seen";
}

}  // namespace
}  // namespace orlix
