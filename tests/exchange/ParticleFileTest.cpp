// Particles as PLY and text: what is written can be read again, and what is broken is refused by name.

#include "exchange/particles/ParticleFile.h"

#include <gtest/gtest.h>

#include <limits>
#include <sstream>

#include "exchange/FrameOutput.h"
#include "exchange/points/FlatColumns.h"
#include "exchange/points/PointFormats.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestScene.h"

namespace orlix {
namespace {

constexpr int kRider = 60;  // rides a flow and keeps no velocity

struct ParticleStage : test::TestScene {
  ParticleStage() {
    groupObject = &Add("particlegroup", "Sparks");
    own = &Add("property_scalar", "Wet ness");
    Step(0);
    group = NodeOf<ParticleGroup>(*groupObject);
    for (int n = 0; n < 5000; ++n) {
      BaseParticleData data;
      data.position = {0.1 * n, 1, 2};
      data.velocity = {0, 3, 0.5 * n};
      data.SetReal(PP::Radius, 0.25);
      if (n % 2 == 0) data.SetReal({75, own->creationNumber()}, n);
      if (n < 10) data.SetVector(PP::Color, {0.1, 0.2, 0.3});
      data.SetVector(PP::OldPosition, data.position - Vec3D(0.02, 0, 0));
      if (n == kRider) data.velocity = {};
      group->list(PK_Diffuse)->Append(1, data);
    }
    group->At(PK_Diffuse, 1).Kill();
  }
  BaseObject *groupObject, *own;
  ParticleGroup* group;
};

struct Table {
  PointSet set;
  std::string error;
  double At(std::uint64_t row, const char* name) const {
    for (const FlatColumn& column : FlatColumnsOf(set)) {
      if (column.name == name) return column.attribute->Real(row, column.component);
    }
    throw std::runtime_error(std::string("no column ") + name);
  }
};

Table TableOf(std::string_view content) {
  const char* name = content.starts_with("ply") ? "a.ply" : "a.txt";
  Result<PointSet> set = ParsePoints(content, *FindPointFormat(name), "file");
  return set ? Table{std::move(*set), ""} : Table{{}, set.error().text};
}

std::string Written(const char* name, const PointSet& set) {
  std::ostringstream out;
  EXPECT_TRUE(FindPointFormat(name)->write(set, {out}).ok());
  return out.str();
}

TEST(ParticleFile, HoldsTheLivingWithAllTheirProperties) {
  ParticleStage stage;
  const Result<PointSet> made = PointsOf(*stage.group, PK_Diffuse, {"Sparks", {.scale = 2, .upZ = true}, 0.5});
  ASSERT_TRUE(made.ok());
  const std::string content = Written("a.ply", *made);
  EXPECT_TRUE(IsPointPly(content));
  const Table table = TableOf(content);
  ASSERT_EQ(table.error, "");
  ASSERT_EQ(table.set.count, 4999u);
  EXPECT_EQ(table.set.units.metresPerUnit, 0.5);
  EXPECT_TRUE(table.set.units.upZ);
  const double unit = 2 * stage.scene().GetSimulationSpace().hostPerSim.x;
  const ParticleList& list = *stage.group->list(PK_Diffuse);
  int checked = 0;
  for (std::uint64_t row = 0; row < table.set.count; row += 37) {
    const std::int32_t n = row == 0 ? 0 : static_cast<std::int32_t>(row) + 1;
    EXPECT_EQ(table.At(row, "id"), list.Id(n));
    EXPECT_FLOAT_EQ(table.At(row, "x"), 0.1 * n * unit);
    EXPECT_FLOAT_EQ(table.At(row, "y"), -2 * unit) << "y is z there";
    EXPECT_FLOAT_EQ(table.At(row, "vz"), 3 * unit);
    EXPECT_FLOAT_EQ(table.At(row, "radius"), 0.25 * unit);
    EXPECT_EQ(table.At(row, "has_wet_ness"), n % 2 == 0);
    EXPECT_EQ(table.At(row, "wet_ness"), n % 2 == 0 ? n : 0);
    EXPECT_FLOAT_EQ(table.At(row, "green"), n < 10 ? 0.2 : 0);
    ++checked;
  }
  EXPECT_GT(checked, 100);
  const double dt = stage.group->GetSimulationInfo().substepDuration;
  EXPECT_NEAR(table.At(kRider - 1, "vx"), 0.02 / dt * unit, 1e-4 * unit) << "what it moved";
  EXPECT_EQ(table.At(kRider - 1, "vz"), 0);
  EXPECT_THROW(table.At(0, "has_radius"), std::runtime_error) << "all have one";
}

TEST(ParticleFile, RefusesWhatIsNoNumber) {
  ParticleStage stage;
  for (const double bad : {std::numeric_limits<double>::quiet_NaN(), 1e39}) {
    stage.group->At(PK_Diffuse, 6).SetReal(PP::Radius, bad);
    const Result<PointSet> set = PointsOf(*stage.group, PK_Diffuse, {"Sparks"});
    ASSERT_FALSE(set.ok());
    EXPECT_EQ(set.error().kind, ErrorKind::Diverged);
    EXPECT_NE(set.error().text.find("\"Sparks\": radius of Diffuse particle 6"), std::string::npos) << set.error().text;
  }
}

TEST(ParticleFile, AnOutputHasAFileForEachKindThatEverWas) {
  ParticleStage stage;
  const test::TemporaryFolder folder;
  BaseObject& output = stage.document.AddObject(OutputSettings::Type());
  output.Set(OutputSettings::kParticlesId, true);
  FrameOutput writer(stage.document, folder.path());
  ASSERT_TRUE(writer.WriteFrame(stage.hook, 3).ok());
  ASSERT_EQ(writer.written().size(), 1u);
  EXPECT_EQ(writer.written()[0].filename(), "frame_Scene_Sparks_diffuse.0003.ply");
  const auto names = writer.Names(3);
  EXPECT_EQ(std::count_if(names.begin(), names.end(), [&](const auto& n) { return n.path == writer.written()[0]; }), 1);
  for (std::int32_t n = 0; n < 5000; ++n) stage.group->At(PK_Diffuse, n).Kill();
  stage.group->RemoveDeadAll();
  ASSERT_TRUE(writer.WriteFrame(stage.hook, 4).ok());
  ASSERT_EQ(writer.written().size(), 1u) << "an empty one";
  EXPECT_EQ(TableOf(AsText(*ReadPointFile(writer.written()[0]))).set.count, 0u);
}

TEST(ParticleFile, AnOutputWritesTheFormatAskedForAndAStageOfAllFrames) {
  ParticleStage stage;
  const test::TemporaryFolder folder;
  BaseObject& output = stage.document.AddObject(OutputSettings::Type());
  output.Set(OutputSettings::kParticlesId, true);
  output.Set(OutputSettings::kParticleFormatId, std::int64_t(ParticleOutput::Bgeo));
  output.Set(OutputSettings::kPackedId, true);
  output.Set(OutputSettings::kUsdId, true);
  output.Set(OutputSettings::kScaleId, 0.01);
  for (const int frame : {3, 4}) {
    FrameOutput writer(stage.document, folder.path());  // as after a resume
    ASSERT_TRUE(writer.WriteFrame(stage.hook, frame).ok());
  }
  EXPECT_EQ(test::NamesIn(folder.path()),
            (std::set<std::string>{"frame.usda", "frame_Scene_Sparks_diffuse.manifest.usda",
                                   "frame_Scene_Sparks_diffuse.0003.bgeo.gz", "frame_Scene_Sparks_diffuse.0003.usda",
                                   "frame_Scene_Sparks_diffuse.0004.bgeo.gz", "frame_Scene_Sparks_diffuse.0004.usda"}));
  EXPECT_EQ(ReadPoints(folder / "frame_Scene_Sparks_diffuse.0004.bgeo.gz")->count, 4999u);
  const std::string text = test::ReadText(folder / "frame.usda");
  for (const char* part :
       {"metersPerUnit = 1\n", "startTimeCode = 3", "endTimeCode = 4", "def Points \"Scene_Sparks_diffuse\"",
        "asset[] assetPaths = [@./frame_Scene_Sparks_diffuse.0003.usda@, @./frame_Scene_Sparks_diffuse.0004.usda@]",
        "double2[] active = [(3, 0), (4, 1)]", "primPath = \"/Points\"",
        "prepend references = @./frame_Scene_Sparks_diffuse.0003.usda@</Points>", "vector3f[] velocities",
        "float[] widths"}) {
    EXPECT_NE(text.find(part), std::string::npos) << part << "\n" << text;
  }
}

TEST(ParticleFile, AnOutputHasAFileForEachClassOfWhitewater) {
  ParticleStage stage;
  const test::TemporaryFolder folder;
  BaseObject& output = stage.document.AddObject(OutputSettings::Type());
  output.Set(OutputSettings::kParticlesId, true);
  output.Set(OutputSettings::kClassesId, true);
  for (std::int32_t n = 0; n < 5000; ++n) {
    const OrlixParticle particle = stage.group->At(PK_Diffuse, n);
    particle.SetFlag(ParticleFlag::Ballistic, n % 5 == 0);
    particle.SetFlag(ParticleFlag::Drag, n % 5 == 1);
  }
  FrameOutput writer(stage.document, folder.path());
  ASSERT_TRUE(writer.WriteFrame(stage.hook, 3).ok());
  ASSERT_EQ(writer.written().size(), 3u);
  std::uint64_t sum = 0;
  for (const auto& [word, share] : {std::pair{"bubbles", 0.2}, {"foam", 0.6}, {"spray", 0.2}}) {
    const auto path = folder.path() / (std::string("frame_Scene_Sparks_") + word + ".0003.ply");
    const std::uint64_t count = TableOf(AsText(*ReadPointFile(path))).set.count;
    EXPECT_NEAR(static_cast<double>(count), share * 5000, 1) << word;
    sum += count;
  }
  EXPECT_EQ(sum, 4999u) << "the living";
}

TEST(PointFile, TextGoesToPlyAndBackWithoutALoss) {
  const std::string text =
      "# x y z id:int flags:ushort m:double a:b:float spin_x spin_y spin_z\n"
      "1 0.1 -3e-10 -7 65535 0.1 2 1 2 3\n"
      "-1e+30 0 4 2147483647 0 1e+300 0.25 4 5 6\n";
  const Table table = TableOf(text);
  ASSERT_EQ(table.error, "");
  ASSERT_NE(table.set.Find("spin"), nullptr);
  EXPECT_EQ(table.set.Find("spin")->components, 3);
  ASSERT_NE(table.set.Find("a:b"), nullptr);
  const Table binary = TableOf(Written("a.ply", table.set));
  EXPECT_EQ(binary.error, "");
  EXPECT_EQ(Written("a.txt", binary.set), text);
}

TEST(PointFile, WhatIsBrokenIsNamed) {
  const std::string head = "ply\nformat ascii 1.0\nelement vertex 2\nproperty float x\nproperty float y\n";
  const std::string whole = head + "property float z\nend_header\n1 2 3\n4 5 6\n";
  EXPECT_EQ(TableOf(whole).set.count, 2u);
  const std::pair<std::string, const char*> broken[] = {
      {head + "end_header\n1 2\n3 4\n", "no position"},
      {head + "property float x\nproperty float z\nend_header\n1 2 3 4\n4 5 6 7\n", "declared twice"},
      {head + "property list uchar float z\nend_header\n1 2 1 3\n4 5 1 6\n", "list"},
      {whole + "7", "after the last"},
      {head + "property float z\nend_header\n1 2 3\n4 5 nan\n", "finite"},
      {head + "property float z\nend_header\n1 2 3\n4 5    \n    ", "missing"},
      {head + "property float z\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n1 2 3\n4 5 6\n",
       "face"},
      {"# x y z n:uchar\n1 2 3 256\n", "256"},
      {"# x y z n:int\n1 2 3 0.5\n", "whole"},
      {"# x y z n:word\n1 2 3 0\n", "n:word"},
      {"# x y z\n1 2 3 4\n", "more numbers"},
      {"x y z\n1 2 1e39\n", "finite"},
      {"", "no position"},
  };
  for (const auto& [content, word] : broken) {
    const std::string error = TableOf(content).error;
    EXPECT_NE(error.find(word), std::string::npos) << content << "\n" << error;
    EXPECT_EQ(error.rfind("file:", 0), 0u) << error;
  }
}

}  // namespace
}  // namespace orlix
