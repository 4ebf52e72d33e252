// Meshes, points and stages as glTF, STL, USD text and grids of points.

#include "exchange/meshes/MeshFiles.h"

#include <gtest/gtest.h>

#include <cstring>
#include <nlohmann/json.hpp>
#include <sstream>

#include "exchange/meshes/UsdaFile.h"
#include "exchange/meshes/UsdaReader.h"
#include "exchange/vdb/VdbFile.h"
#include "host/geometry/MeshReader.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

// A quad and a triangle, with velocities and a value.
PolygonObject Shape() {
  PolygonObject mesh;
  mesh.points = {{0, 0, 0}, {2, 0, 0}, {2, 1, 0}, {0, 1, 0}, {0, 0, 3}};
  mesh.polygons = {{0, 1, 2, 3}, {0, 1, 4, 4}};
  mesh.velocities.assign(5, Vec3D(0, 0.5, 0));
  mesh.attributes.push_back({"wet ness", 1, {0, 0.25, 0.5, 0.75, 1}});
  return mesh;
}

template <class T>
T At(const std::string& bytes, std::size_t offset) {
  T value;
  std::memcpy(&value, bytes.data() + offset, sizeof(T));
  return value;
}

std::string Glb(const PolygonObject& mesh, const FileUnits& units) {
  std::ostringstream out;
  EXPECT_TRUE(WriteGlb(mesh, units, out).ok());
  return out.str();
}

TEST(MeshFiles, AnEmptyMeshIsReadAsItWasWritten) {
  const test::TemporaryFolder folder;
  int formats = 0;
  for (const MeshFileFormat& format : MeshFileFormats()) {
    const auto path = folder / (std::string("a") + format.extension);
    ASSERT_TRUE(WriteMeshFile(path, {}, {0.01, false}).ok()) << format.extension;
    if (!MeshFormatOf(path)) continue;  // USD has a reader of its own
    const Result<PolygonObject> mesh = ReadMesh(path);
    ASSERT_TRUE(mesh.ok()) << mesh.error().text;
    EXPECT_TRUE(mesh->points.empty() && mesh->polygons.empty());
    ++formats;
  }
  EXPECT_EQ(formats, 4);
}

TEST(MeshFiles, GlbHoldsTheArraysThatItsJsonNames) {
  const std::string file = Glb(Shape(), {0.01, true});
  EXPECT_EQ(file.substr(0, 4), "glTF");
  EXPECT_EQ(At<std::uint32_t>(file, 8), file.size());
  const std::uint32_t size = At<std::uint32_t>(file, 12);
  const auto json = nlohmann::json::parse(file.substr(20, size));
  const std::size_t data = 20 + size + 8;
  EXPECT_EQ(json["buffers"][0]["byteLength"], file.size() - data);
  EXPECT_EQ(json["nodes"][0]["scale"][0], 0.01);
  EXPECT_NEAR(json["nodes"][0]["rotation"][0], -std::sqrt(0.5), 1e-12);
  const auto& primitive = json["meshes"][0]["primitives"][0];
  const auto offset = [&](int accessor) {
    return data +
           json["bufferViews"][json["accessors"][accessor]["bufferView"].get<int>()]["byteOffset"].get<std::size_t>();
  };
  EXPECT_EQ(At<float>(file, offset(primitive["attributes"]["POSITION"]) + 4 * 14), 3);
  EXPECT_EQ(At<float>(file, offset(primitive["attributes"]["_WET_NESS"]) + 4), 0.25f);
  EXPECT_EQ(At<float>(file, offset(primitive["attributes"]["_VELOCITY"]) + 4), 0.5f);
  const std::size_t indices = offset(primitive["indices"]);
  std::vector<std::uint32_t> corners;
  for (std::size_t n = 0; n < 9; ++n) corners.push_back(At<std::uint32_t>(file, indices + 4 * n));
  EXPECT_EQ(corners, (std::vector<std::uint32_t>{0, 1, 2, 0, 2, 3, 0, 1, 4}));
  EXPECT_EQ(json["accessors"][0]["max"], nlohmann::json::parse("[2, 1, 3]"));
  const std::string empty = Glb({}, {});
  EXPECT_EQ(At<std::uint32_t>(empty, 8), empty.size());
}

// In glTF's metres, with y upwards.
TEST(MeshFiles, GlbIsReadAgain) {
  PolygonObject shape = Shape();
  shape.normals.assign(5, Vec3D(0, 0, 1));
  const Result<PolygonObject> back = ParseMesh(Glb(shape, {0.5, true}), MeshFormat::Gltf, "a.glb");
  ASSERT_TRUE(back.ok()) << back.error().text;
  ASSERT_EQ(back->points.size(), 5u);
  EXPECT_LT(Length(back->points[4] - Vec3D(0, 1.5, 0)), 1e-6);
  EXPECT_LT(Length(back->normals[4] - Vec3D(0, 1, 0)), 1e-6);
  EXPECT_LT(Length(back->velocities[4] - Vec3D(0, 0, -0.25)), 1e-6);
  EXPECT_EQ(back->polygons.size(), 3u);
  ASSERT_EQ(back->attributes.size(), 1u);
  EXPECT_EQ(back->attributes[0].name, "wet_ness");
  EXPECT_EQ(back->attributes[0].values, shape.attributes[0].values);
  EXPECT_TRUE(ParseMesh(Glb({}, {}), MeshFormat::Gltf, "b.glb")->points.empty());
}

TEST(MeshFiles, StlHasTheTrianglesOfQuads) {
  const test::TemporaryFolder folder;
  ASSERT_TRUE(WriteMeshFile(folder / "a.stl", Shape(), {0.01, false}).ok());
  const Result<PolygonObject> back = ReadMesh(folder / "a.stl");
  ASSERT_TRUE(back.ok());
  EXPECT_EQ(back->polygons.size(), 3u);
  EXPECT_EQ(back->points.size(), 5u);
  EXPECT_EQ(ReadMeshUnits(folder / "a.stl").metresPerUnit, 0.01);
  for (const char* name : {"a.ply", "a.obj"}) {
    ASSERT_TRUE(WriteMeshFile(folder / name, Shape(), {0.01, false}).ok());
    EXPECT_EQ(ReadMesh(folder / name)->points.size(), 5u) << name;
    EXPECT_NE(test::ReadText(folder / name).find("up_axis y"), std::string::npos) << name;
    EXPECT_EQ(ReadMeshUnits(folder / name).metresPerUnit, 0.01) << name;
  }
}

TEST(MeshFiles, UsdaHasValuesOfItsFrame) {
  std::ostringstream out;
  const UsdAttributes attributes = WriteUsda(Shape(), {0.01, true}, 12, out);
  const std::string text = out.str();
  for (const char* part :
       {"#usda 1.0\n(\n    defaultPrim = \"Mesh\"\n    metersPerUnit = 0.01\n    upAxis = \"Z\"\n)",
        "int[] faceVertexCounts.timeSamples = {\n        12: [4, 3],",
        "int[] faceVertexIndices.timeSamples = {\n        12: [0, 1, 2, 3, 0, 1, 4],",
        "float3[] extent.timeSamples = {\n        12: [(0, 0, 0), (2, 1, 3)],", "12: [(0, 0.5, 0), (0, 0.5, 0),",
        "float[] primvars:wet_ness (\n        interpolation = \"vertex\"",
        "float[] primvars:wet_ness.timeSamples = {\n        12: [0, 0.25, 0.5, 0.75, 1],"}) {
    EXPECT_NE(text.find(part), std::string::npos) << part << "\n" << text;
  }
  EXPECT_EQ(attributes.size(), 6u);
}

TEST(MeshFiles, UsdaIsReadAgainAndNothingElseIs) {
  PolygonObject shape = Shape();
  shape.normals.assign(5, Vec3D(0, 0, 1));
  std::string texts[2];
  for (const bool timed : {false, true}) {
    std::ostringstream out;
    WriteUsda(shape, {0.01, true}, timed ? std::optional<int>(12) : std::nullopt, out);
    texts[timed] = out.str();
    const Result<UsdaFrame> back = ParseUsda(texts[timed], "a");
    ASSERT_TRUE(back.ok()) << back.error().text;
    EXPECT_EQ(back->time, timed ? std::optional<int>(12) : std::nullopt);
    EXPECT_FALSE(back->points);
    EXPECT_EQ(back->units.metresPerUnit, 0.01);
    EXPECT_TRUE(back->units.upZ);
    EXPECT_EQ(back->mesh.points, shape.points);
    EXPECT_EQ(back->mesh.normals, shape.normals);
    EXPECT_EQ(back->mesh.velocities, shape.velocities);
    ASSERT_EQ(back->mesh.polygons.size(), 2u);
    EXPECT_TRUE(back->mesh.polygons[0].d == 3 && back->mesh.polygons[1].IsTriangle());
    EXPECT_EQ(back->mesh.attributes.at(0).values, shape.attributes[0].values);
  }
  PointSet set;
  set.count = 2;
  set.Add("position", PointType::Vector, 3, NumberType::Float32).SetReal(1, 2, 0.5);
  set.Add("id", PointType::Int, 1, NumberType::Int64).SetWhole(1, 0, 1LL << 40);
  set.Add("radius", PointType::Float, 1, NumberType::Float32).SetReal(0, 0, 0.25);
  std::ostringstream out;
  WriteUsda(set, {1, false}, 3, out);
  const Result<UsdaFrame> back = ParseUsda(out.str(), "p");
  ASSERT_TRUE(back.ok()) << back.error().text;
  ASSERT_EQ(back->set.count, 2u);
  EXPECT_EQ(back->set.Find("position")->Real(1, 2), 0.5);
  EXPECT_EQ(back->set.Find("id")->Whole(1, 0), 1LL << 40);
  EXPECT_EQ(back->set.Find("radius")->Real(0, 0), 0.25);

  struct Change {
    const char *from, *to;
    ErrorKind kind;
  };
  for (const Change& change : {Change{"[4, 3]", "[4, 2]", ErrorKind::InputFile},
                               {"0, 1, 4]", "0, 1, 5]", ErrorKind::InputFile},
                               {"0, 1, 4]", "0, 1]", ErrorKind::InputFile},
                               {"(0, 0, 1)", "(0, 0, nan)", ErrorKind::InputFile},
                               {"(0, 0, 1), (0, 0, 1)", "(0, 0, 1)", ErrorKind::InputFile},
                               {"point3f[] points", "double3[] points", ErrorKind::Usage},
                               {"normal3f[] normals", "normal3f[] sharpness", ErrorKind::Usage},
                               {"\"none\"", "\"catmullClark\"", ErrorKind::Usage},
                               {"defaultPrim = \"Mesh\"", "defaultPrim = \"World\"", ErrorKind::Usage},
                               {"upAxis", "framesPerSecond", ErrorKind::Usage},
                               {"#usda 1.0", "#usda 2.0", ErrorKind::Usage}}) {
    std::string text = texts[0];
    ASSERT_NE(text.find(change.from), std::string::npos) << change.from;
    text.replace(text.find(change.from), std::strlen(change.from), change.to);
    const Result<UsdaFrame> changed = ParseUsda(text, "c");
    ASSERT_FALSE(changed.ok()) << change.to;
    EXPECT_EQ(changed.error().kind, change.kind) << changed.error().text;
  }
  for (std::size_t cut = 0; cut + 2 < texts[1].size(); ++cut) {
    EXPECT_FALSE(ParseUsda(std::string_view(texts[1]).substr(0, cut), "cut").ok()) << cut;
  }
}

TEST(VdbPoints, AreReadAgain) {
  PointSet set;
  set.count = 3000;
  PointAttribute& position = set.Add("position", PointType::Vector, 3, NumberType::Float32);
  PointAttribute& velocity = set.Add("velocity", PointType::Vector, 3, NumberType::Float32);
  PointAttribute& id = set.Add("id", PointType::Int, 1, NumberType::Int32);
  PointAttribute& mass = set.Add("mass", PointType::Float, 1, NumberType::Float32);
  for (std::uint64_t row = 0; row < set.count; ++row) {
    for (int c = 0; c < 3; ++c) position.SetReal(row, c, double(row * (7919 + 2 * std::uint64_t(c)) % 1009) / 100 - 5);
    velocity.SetReal(row, 1, double(row));
    id.SetReal(row, 0, double(row));
    mass.SetReal(row, 0, double(row) / 2);
  }
  set.units = {0.01, true};
  const test::TemporaryFolder folder;
  const Status written = WriteVdbPoints(folder / "a.vdb", set, 7);
  ASSERT_TRUE(written.ok()) << written.error().text;
  const Result<PointSet> back = ReadVdbPoints(folder / "a.vdb");
  ASSERT_TRUE(back.ok()) << back.error().text;
  ASSERT_EQ(back->count, set.count);
  std::set<std::int64_t> seen;
  for (std::uint64_t row = 0; row < back->count; ++row) {
    const auto own = static_cast<std::uint64_t>(back->Find("id")->Whole(row, 0));
    ASSERT_LT(own, set.count);
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(back->Find("position")->Real(row, c), position.Real(own, c), 1e-5);
    EXPECT_EQ(back->Find("velocity")->Real(row, 1), double(own));
    EXPECT_EQ(back->Find("mass")->Real(row, 0), double(own) / 2);
    seen.insert(back->Find("id")->Whole(row, 0));
  }
  EXPECT_EQ(seen.size(), set.count);
  const auto info = ReadVdbInfo(folder / "a.vdb", false);
  ASSERT_TRUE(info.ok());
  EXPECT_EQ((*info)[0].name, "points");
  set.count = 0;
  for (PointAttribute& column : set.attributes) column.values.clear();
  ASSERT_TRUE(WriteVdbPoints(folder / "none.vdb", set).ok());
  EXPECT_EQ(ReadVdbPoints(folder / "none.vdb")->count, 0u);
}

}  // namespace
}  // namespace orlix
