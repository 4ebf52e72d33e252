#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>
#include <numbers>
#include <sstream>

#include "host/geometry/GeometryTypes.h"
#include "host/geometry/MeshReader.h"
#include "host/geometry/MeshWriter.h"
#include "host/objects/BaseDocument.h"
#include "tests/support/SpherePolygons.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix::test {
namespace {

std::string Bytes(std::initializer_list<double> floats) {
  std::string bytes;
  for (const double f : floats) {
    const auto value = static_cast<float>(f);
    char raw[4];
    std::memcpy(raw, &value, 4);
    bytes.append(raw, 4);
  }
  return bytes;
}
std::string Number32(std::uint32_t n, bool big = false) {
  std::string bytes;
  for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<char>(n >> (big ? 24 - 8 * i : 8 * i)));
  return bytes;
}
std::string BinaryStl(std::uint32_t count, const std::string& triangles) {
  return std::string(80, 'x') + Number32(count) + triangles;
}
std::string StlTriangle(double x) { return Bytes({0, 0, 1, x, 0, 0, x + 1, 0, 0, x, 1, 0}) + std::string(2, '\0'); }
std::string Reversed(std::string bytes) {
  for (std::size_t i = 0; i + 4 <= bytes.size(); i += 4) std::reverse(bytes.begin() + i, bytes.begin() + i + 4);
  return bytes;
}

// --- what each format says -------------------------------------------------------------------------------------------

TEST(MeshReader, ObjTakesPointsAndFaces) {
  const auto mesh = ParseObj(
      "# a comment \\\nmtllib x.mtl\nv 0 0 0\nv 1 0 0 0.5 0.5 0.5\nv 1 +1e0 0\r\nv 0 1 0\nvt 0 0\nvn 0 0 1\n"
      "g part\nf 1/1/1 2//1 3\nf 1 2 3 4\nf -4 -3 \\\n -2\nf 1 2\nf 1 2 3 4 2\nl 1 2\n  f 3 2 1 # last",
      "a.obj");
  ASSERT_TRUE(mesh.ok()) << mesh.error().text;
  EXPECT_EQ(mesh->points.size(), 4u);
  EXPECT_EQ(mesh->points[2], Vec3D(1, 1, 0));
  ASSERT_EQ(mesh->polygons.size(), 7u);  // a triangle, a quad, a triangle, a fan of three, a triangle
  EXPECT_TRUE(mesh->polygons[0].IsTriangle());
  EXPECT_EQ(mesh->polygons[1].d, 3);
  EXPECT_EQ(mesh->polygons[2].b, 1);
  EXPECT_EQ(mesh->polygons[5].c, 1);
  EXPECT_EQ(mesh->polygons[6].a, 2);
}

constexpr char kPlyHead[] =
    "comment made by hand\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\nproperty uchar red\n"
    "element extra 2\nproperty list uchar short values\nproperty double d\nelement face 1\nproperty list uchar int "
    "vertex_indices\nend_header\n";

std::string Ply(const std::string& format, const std::string& body) {
  return "ply\nformat " + format + " 1.0\n" + kPlyHead + body;
}

std::string BinaryPlyBody(bool big) {
  const auto floats = [&](std::initializer_list<double> f) { return big ? Reversed(Bytes(f)) : Bytes(f); };
  std::string body;
  for (int v = 0; v < 3; ++v) body += floats({double(v), v == 1 ? 1.0 : 0.0, 0}) + '\x7f';
  body += '\x02' + std::string(4, 'a') + std::string(8, 'b') + '\0' + std::string(8, 'c');
  body += std::string("\x03") + Number32(0, big) + Number32(1, big) + Number32(2, big);
  return body;
}

TEST(MeshReader, PlyOfAllThreeFormatsAgree) {
  std::string little = Ply("binary_little_endian", BinaryPlyBody(false));
  const auto ascii = ParsePly(Ply("ascii", "0 0 0 1\n1 1 0 1\n2 0 0 1\n2 5 6 0.5\n0 1\n3 0 1 2"), "a.ply");
  const auto binary = ParsePly(little, "b.ply");
  const auto swapped = ParsePly(Ply("binary_big_endian", BinaryPlyBody(true)), "c.ply");
  for (const auto* mesh : {&ascii, &binary, &swapped}) {
    ASSERT_TRUE(mesh->ok()) << mesh->error().text;
    EXPECT_EQ((*mesh)->points, (std::vector<Vec3D>{{0, 0, 0}, {1, 1, 0}, {2, 0, 0}}));
    ASSERT_EQ((*mesh)->polygons.size(), 1u);
    EXPECT_EQ((*mesh)->polygons[0].c, 2);
  }
  EXPECT_EQ(PlyEncoding(Ply("ascii", "")), "text");
  EXPECT_EQ(PlyEncoding(little), "binary");
  EXPECT_EQ(PlyEncoding(Ply("binary_big_endian", "")), "binary big-endian");
}

TEST(MeshReader, StlJoinsEqualPoints) {
  const auto binary = ParseStl(BinaryStl(2, StlTriangle(0) + StlTriangle(1)), "a.stl");
  ASSERT_TRUE(binary.ok()) << binary.error().text;
  EXPECT_EQ(binary->points.size(), 5u);
  EXPECT_EQ(binary->polygons.size(), 2u);
  EXPECT_EQ(binary->polygons[1].a, binary->polygons[0].b);
  const auto ascii = ParseStl(
      "solid thing with a vertex\nfacet normal 0 0 1\n outer loop\n  vertex 0 0 -0\n  vertex 1 0 0\n  vertex 0 1 0\n "
      "endloop\nendfacet\nfacet normal 0 0 1\nouter loop\nvertex 1 0 0\nvertex 2 0 0\nvertex 0 0 0\nendloop\nendfacet\n"
      "endsolid thing",
      "b.stl");
  ASSERT_TRUE(ascii.ok()) << ascii.error().text;
  EXPECT_EQ(ascii->points.size(), 4u);
  EXPECT_EQ(ascii->polygons.size(), 2u);
  // A binary file whose header begins as an ascii one's does.
  std::string tricky = BinaryStl(1, StlTriangle(0));
  tricky.replace(0, 5, "solid");
  EXPECT_EQ(ParseStl(tricky, "c.stl")->polygons.size(), 1u);
  EXPECT_EQ(StlEncoding(tricky), "binary");
}

// One triangle beneath a node that moves and one that mirrors it.
const std::string kGltf =
    R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[0]}],"nodes":[{"children":[1],"translation":[10,0,0]},)"
    R"({"mesh":0,"scale":[-2,2,2]}],"meshes":[{"primitives":[{"attributes":{"POSITION":0},"indices":1}]}],"accessors":)"
    R"([{"bufferView":0,"componentType":5126,"count":3,"type":"VEC3"},{"bufferView":1,"componentType":5123,"count":3,)"
    R"("type":"SCALAR"}],"bufferViews":[{"buffer":0,"byteLength":36},{"buffer":0,"byteOffset":36,"byteLength":6}],)"
    R"("buffers":[{"byteLength":42,"uri":"data:application/octet-stream;base64,)"
    R"(AAAAAAAAAAAAAAAAAACAPwAAAAAAAAAAAAAAAAAAgD8AAAAAAAABAAIA"}]})";

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  return text.replace(text.find(from), from.size(), to);
}

TEST(MeshReader, GltfStandsWhereItsNodesPutIt) {
  const auto mesh = ParseGltf(kGltf, "a.gltf");
  ASSERT_TRUE(mesh.ok()) << mesh.error().text;
  EXPECT_EQ(mesh->points, (std::vector<Vec3D>{{10, 0, 0}, {8, 0, 0}, {10, 2, 0}}));
  ASSERT_EQ(mesh->polygons.size(), 1u);
  EXPECT_EQ(mesh->polygons[0].b, 2) << "mirrored, and turned to face as before";
  const auto corners = ParseGltf(Replaced(kGltf, R"(,"indices":1)", ""), "a.gltf");
  ASSERT_TRUE(corners.ok());
  EXPECT_EQ(corners->polygons.size(), 1u);
}

TEST(MeshReader, NormalsOfPointsComeAlong) {
  const std::string obj = "v 0 0 0\nv 1 0 0\nv 0 1 0\nvn 0 0 2\nvn 0 1 0\n";
  const auto smooth = ParseObj(obj + "f 1//1 2//1 3//2\n", "a.obj"),
             edged = ParseObj(obj + "f 1//1 2//1 3//2\nf 1//2 2//1 3//2\n", "b.obj");
  EXPECT_EQ(smooth->normals, (std::vector<Vec3D>{{0, 0, 1}, {0, 0, 1}, {0, 1, 0}}));
  EXPECT_TRUE(edged->normals.empty()) << "a point with two";
  EXPECT_TRUE(ParseObj(obj + "f 1//1 2//1 3\n", "c.obj")->normals.empty()) << "a point without";
  std::ostringstream out;
  WritePly(*smooth, out);
  EXPECT_EQ(ParsePly(out.str(), "d.ply")->normals, smooth->normals);
}

TEST(MeshReader, AFileThatCountsNoFacesIsAnEmptyMesh) {
  for (const auto& mesh :
       {ParseStl("solid\nendsolid", "c.stl"), ParseStl(BinaryStl(0, ""), "d.stl"),
        ParsePly("ply\nformat ascii 1.0\nelement vertex 0\nelement face 0\nend_header\n", "e.ply")}) {
    ASSERT_TRUE(mesh.ok()) << mesh.error().text;
    EXPECT_TRUE(mesh->polygons.empty());
  }
}

// --- broken files ----------------------------------------------------------------------------------------------------

struct BrokenFile {
  const char* what;
  MeshFormat format;
  std::string content;
  std::string message;  // a part of it
};

class BrokenMesh : public testing::TestWithParam<BrokenFile> {};

TEST_P(BrokenMesh, IsAnErrorThatNamesThePlace) {
  const auto mesh = ParseMesh(GetParam().content, GetParam().format, "in.file");
  ASSERT_FALSE(mesh.ok()) << GetParam().what;
  EXPECT_EQ(mesh.error().kind, ErrorKind::InputFile);
  EXPECT_NE(mesh.error().text.find(GetParam().message), std::string::npos) << mesh.error().text;
}

std::vector<BrokenFile> BrokenFiles() {
  const std::string head = "ply\nformat binary_little_endian 1.0\n";
  const auto element = [&](const std::string& lines) { return head + lines + "end_header\n"; };
  const std::string xyz = "property float x\nproperty float y\nproperty float z\n";
  const MeshFormat obj = MeshFormat::Obj, ply = MeshFormat::Ply, stl = MeshFormat::Stl;
  return {
      {"no glTF", MeshFormat::Gltf, "{}", "no glTF"},
      {"glTF 1", MeshFormat::Gltf, "glTF" + Number32(1) + std::string(12, ' '), "version 1"},
      {"an extension", MeshFormat::Gltf, Replaced(kGltf, "\"scene\":0", R"("extensionsRequired":["KHR_draco"])"),
       "the extension KHR_draco"},
      {"another file", MeshFormat::Gltf, Replaced(kGltf, "data:application/octet-stream;base64,", "a.bin"),
       "another file, a.bin"},
      {"a node twice", MeshFormat::Gltf, Replaced(kGltf, "\"mesh\":0", R"("mesh":0,"children":[0])"), "twice"},
      {"too many points", MeshFormat::Gltf, Replaced(kGltf, "\"count\":3", "\"count\":4000000000"),
       "beyond its arrays"},
      {"another index", MeshFormat::Gltf, Replaced(kGltf, "AAABAAIA", "AAABAAkA"), "a face names point 9"},
      {"lines", MeshFormat::Gltf, Replaced(kGltf, "\"indices\":1", R"("indices":1,"mode":1)"), "triangles are read"},
      {"sparse", MeshFormat::Gltf, Replaced(kGltf, "\"count\":3", R"("sparse":{},"count":3)"), "sparse array"},
      {"index above", obj, "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 77\n", "in.file:4: a face names point 77"},
      {"index 0", obj, "v 0 0 0\nf 0 1 1\n", "in.file:2: a face needs point numbers"},
      {"word for a number", obj, "v 0 zero 0\n", "in.file:1: a point needs three numbers"},
      {"NaN", obj, "v 0 0 0\nv nan 0 0\n", "in.file:2: a point's coordinates must be finite"},
      {"no point", obj, "solid ball\nfacet\n", "in.file: has 0 points and no face"},
      {"no face", obj, "v 0 0 0\nv 1 0 0\n", "in.file: has 2 points and no face"},
      {"another version", ply, "ply\nformat ascii 2.0\nend_header\n", "in.file:2: the version is 2.0, must be 1.0"},
      {"no faces declared", ply, "ply\nformat ascii 1.0\nelement vertex 0\nend_header\n", "no element \"face\""},
      {"too few numbers", ply, Ply("ascii", "0 0 0\n1 1 1 0 1\n2 0 0 1\n0 1\n0 1\n3 0 1 2"), "in.file:15: a number is"},
      {"too many numbers", ply, Ply("ascii", "0 0 0 1\n1 1 0 1 1\n2 0 0 1\n0 1\n0 1\n3 0 1 2"), "in.file:16: the line"},
      {"one element too many", ply, Ply("ascii", "0 0 0 1\n1 1 0 1\n2 0 0 1\n0 1\n0 1\n3 0 1 2\n3 0 1 2"),
       "in.file:21: there is more"},
      {"bytes behind the last", ply, Ply("binary_little_endian", BinaryPlyBody(false) + "x"), "there is more after"},
      {"no end of header", ply, "ply\nformat ascii 1.0\n", "the header has no end"},
      {"no format", ply, "ply\nend_header\n", "names no format"},
      {"bad format", ply, "ply\nformat binary 1.0\nend_header\n", "in.file:2: the format must be"},
      {"bad count", ply, "ply\nformat ascii 1.0\nelement vertex -3\nend_header\n", "in.file:3: an element needs"},
      {"float list count", ply, element("element face 1\nproperty list float int i\n"), "in.file:4: a list's count"},
      {"stray property", ply, element("property int i\n"), "in.file:3: a property stands before"},
      {"unknown line", ply, element("vertices 7\n"), "in.file:3: unknown header line \"vertices\""},
      {"more than the bytes", ply, element("element vertex 4000000000\n" + xyz + "element face 0\n") + Bytes({1, 2, 3}),
       "4000000000 elements \"vertex\" need at least 12 bytes each, 12 bytes follow"},
      {"cut", ply,
       element("element vertex 1\n" + xyz + "element face 1\nproperty list uchar int vertex_index\n") +
           Bytes({1, 2, 3}) + '\x03' + Number32(0),
       "too early"},
      {"list beyond the end", ply,
       element("element vertex 0\nelement face 1\nproperty list uint int vertex_index\n") + Number32(4000000000u) +
           Number32(1),
       "too early"},
      {"no coordinates", ply, element("element vertex 1\nproperty float x\nelement face 0\n") + Bytes({1}),
       "x, y and z"},
      {"no corners", ply, element("element vertex 0\nelement face 1\nproperty int i\n") + Number32(1),
       "vertex_indices"},
      {"NaN in ply", ply,
       element("element vertex 2\n" + xyz + "element face 0\n") + Bytes({1, 2, 3, 1, std::nan(""), 3}),
       "in.file: byte 142: a point's coordinates"},
      {"negative index", ply,
       "ply\nformat ascii 1.0\nelement vertex 1\n" + xyz +
           "element face 1\nproperty list int int vertex_index\nend_header\n0 0 0\n3 0 0 -1\n",
       "in.file:11: a face names point -1, the file has points 0 to 0"},
      {"too few bytes", stl, "short", "5 bytes are too few"},
      {"stl count", stl, BinaryStl(4000000000u, StlTriangle(0)), "4000000000 triangles need 200000000084 bytes"},
      {"bytes behind the count", stl, BinaryStl(1, StlTriangle(0) + "x"),
       "1 triangles need 134 bytes, the file has 135"},
      {"no stl", stl, "solid a\nfacette\n", "in.file:2: unknown word \"facette\""},
      {"ascii stl cut", stl, "solid a\nfacet normal 0 0 1\nouter loop\nvertex 0 0 0\n", "ends inside a facet"},
  };
}
INSTANTIATE_TEST_SUITE_P(Files, BrokenMesh, testing::ValuesIn(BrokenFiles()));

// Any beginning of a good file is a result or an error.
TEST(MeshReader, CutFilesDoNoHarm) {
  const std::pair<MeshFormat, std::string> files[] = {
      {MeshFormat::Ply, Ply("binary_little_endian", BinaryPlyBody(false))},
      {MeshFormat::Ply, Ply("ascii", "0 0 0 1\n1 1 0 1\n2 0 0 1\n2 5 6 0.5\n0 1\n3 0 1 2\n")},
      {MeshFormat::Stl, BinaryStl(2, StlTriangle(0) + StlTriangle(1))},
      {MeshFormat::Obj, "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1/1 2/2 \\\n3/3\ng a \\\n\\\n"}};
  int refused = 0;
  for (const auto& [format, content] : files) {
    for (std::size_t size = 0; size < content.size(); ++size) {
      // A copy of the exact size, so that a read past its end is seen.
      const std::vector<char> bytes(content.begin(), content.begin() + static_cast<std::ptrdiff_t>(size));
      refused += !ParseMesh({bytes.data(), bytes.size()}, format, "cut").ok();
    }
  }
  EXPECT_GT(refused, 300);
}

// --- files -----------------------------------------------------------------------------------------------------------

TEST(MeshWriter, ObjGivesEveryBitBackAndPlySinglePrecision) {
  PolygonObject mesh = SpherePolygons(1, 20, 20);
  std::ostringstream obj, ply, moving;
  WritePly(mesh, ply);
  mesh.velocities.assign(mesh.points.size(), Vec3D(1, 2, 3));
  mesh.normals = mesh.points;
  mesh.attributes = {{"x", 1, std::vector<double>(mesh.points.size())},
                     {"my heat", 3, std::vector<double>(3 * mesh.points.size())}};
  WriteObj(mesh, obj);
  WritePly(mesh, moving);
  EXPECT_NE(moving.str().find("property float value_x\nproperty float my_heat_x\n"), std::string::npos);
  const auto fromObj = ParseObj(obj.str(), "a.obj");
  ASSERT_TRUE(fromObj.ok()) << fromObj.error().text;
  EXPECT_EQ(fromObj->points, mesh.points);
  for (const std::string& text : {ply.str(), moving.str()}) {
    const auto fromPly = ParsePly(text, "a.ply");
    ASSERT_TRUE(fromPly.ok()) << fromPly.error().text;
    ASSERT_EQ(fromPly->points.size(), mesh.points.size());
    for (std::size_t i = 0; i < mesh.points.size(); ++i) {
      for (int axis = 0; axis < 3; ++axis) {
        EXPECT_EQ(fromPly->points[i][axis], static_cast<double>(static_cast<float>(mesh.points[i][axis])));
      }
    }
  }
  EXPECT_EQ(fromObj->polygons.size(), mesh.polygons.size());
  for (std::size_t i = 0; i < mesh.polygons.size(); ++i) EXPECT_EQ(fromObj->polygons[i].d, mesh.polygons[i].d);
}

TEST(MeshReader, FilesThatCannotBeReadSayWhich) {
  TemporaryFolder folder;
  WriteText(folder / "a.xyz", "v 0 0 0");
  for (const auto& path : {folder / "gone.obj", folder / "a.xyz", folder.path()}) {
    const auto mesh = ReadMesh(path);
    ASSERT_FALSE(mesh.ok());
    EXPECT_NE(mesh.error().text.find(path.string()), std::string::npos) << mesh.error().text;
  }
  EXPECT_EQ(MeshFormatOf("A.PLY"), MeshFormat::Ply);
}

class MeshObjectTest : public testing::Test {
 protected:
  MeshObjectTest() {
    RegisterGeometryTypes(types);
    document.fps = 24;
    document.folder = folder.path().string();
    object = &document.AddObject(kMeshType);
  }
  void Write(const std::string& name, double x) {
    WriteText(folder / name, fmt::format("v {} 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n", x));
  }
  // The first point's x at a frame.
  double At(int frame) {
    const Status status = document.SetTime(BaseTime::OfFrame(frame, 24));
    EXPECT_TRUE(status.ok()) << (status.ok() ? "" : status.error().text);
    return object->Polygons()->points.empty() ? -1 : object->Polygons()->points[0].x;
  }
  TemporaryFolder folder;
  TypeRegistry types;
  BaseDocument document{types};
  BaseObject* object;
};

TEST_F(MeshObjectTest, ReadsItsFileOnceBesideTheScene) {
  Write("a.obj", 5);
  EXPECT_EQ(At(0), -1);
  object->Set(kMeshFileId, std::string("a.obj"));
  EXPECT_EQ(At(0), 5);
  const std::uint64_t version = object->Polygons()->version;
  Write("a.obj", 6);
  EXPECT_EQ(At(1), 5);
  EXPECT_EQ(object->Polygons()->version, version);
  object->Set(kMeshFileId, std::string());
  EXPECT_EQ(At(2), -1);
}

// The frame's file, or the one before it; whichever frames were shown before.
TEST_F(MeshObjectTest, NumberedFilesFollowTheFrame) {
  for (const int frame : {3, 4, 10}) Write(fmt::format("walk.{:04d}.obj", frame), frame);
  object->Set(kMeshFileId, std::string("walk.####.obj"));
  for (const auto& [frame, expected] :
       std::vector<std::pair<int, int>>{{4, 4}, {0, 3}, {3, 3}, {9, 4}, {10, 10}, {99, 10}}) {
    EXPECT_EQ(At(frame), expected) << frame;
  }
  object->Set(kMeshFrameOffsetId, std::int64_t(3));
  EXPECT_EQ(At(0), 3);
  EXPECT_EQ(At(7), 10);
}

TEST_F(MeshObjectTest, SaysWhatIsWrong) {
  const std::pair<std::string, std::string> cases[] = {{"gone.obj", "gone.obj"},
                                                       {"walk.####.obj", "no numbered file"},
                                                       {"#walk.obj", "right before the extension"},
                                                       {"a#.#.obj", "stand together"}};
  for (const auto& [file, text] : cases) {
    object->Set(kMeshFileId, file);
    const Status status = document.SetTime({});
    ASSERT_FALSE(status.ok()) << file;
    EXPECT_NE(status.error().text.find(text), std::string::npos) << status.error().text;
    EXPECT_NE(status.error().text.find("\"mesh\""), std::string::npos) << status.error().text;
  }
}

struct Geometry {
  Geometry() { RegisterGeometryTypes(types); }
  const PolygonObject& Build(BaseObject& object) {
    EXPECT_TRUE(document.SetTime({}).ok());
    return *object.Polygons();
  }
  BaseObject& Add(int type) { return document.AddObject(*types.Find(type)); }
  TypeRegistry types;
  BaseDocument document{types};
};

struct Measures {
  int openEdges = 0, points = 0, usedPoints = 0;
  double volume = 0, area = 0;
  int euler = 0;
};

Measures Measure(const PolygonObject& mesh) {
  Measures m;
  std::map<std::pair<int, int>, int> edges;  // directed, so that a neighbour runs it the other way
  std::map<int, int> used;
  m.points = static_cast<int>(mesh.points.size());
  for (const auto& p : mesh.polygons) {
    std::vector<int> corners{p.a, p.b, p.c};
    if (!p.IsTriangle()) corners.push_back(p.d);
    for (std::size_t i = 0; i < corners.size(); ++i) {
      ++edges[{corners[i], corners[(i + 1) % corners.size()]}];
      ++used[corners[i]];
    }
    for (std::size_t i = 2; i < corners.size(); ++i) {
      const Vec3D &a = mesh.points[std::size_t(corners[0])], &b = mesh.points[std::size_t(corners[i - 1])],
                  &c = mesh.points[std::size_t(corners[i])];
      m.volume += Dot(a, Cross(b, c)) / 6;
      m.area += Length(Cross(b - a, c - a)) / 2;
    }
  }
  for (const auto& [edge, count] : edges) {
    if (count != 1 || edges.count({edge.second, edge.first}) != 1) ++m.openEdges;
  }
  m.usedPoints = static_cast<int>(used.size());
  m.euler = m.points - static_cast<int>(edges.size()) / 2 + static_cast<int>(mesh.polygons.size());
  return m;
}

constexpr double kPi = std::numbers::pi;

struct Solid {
  int type;
  double volume, area;  // of the ideal shape; 0 isn't known
  int euler;
};

class ClosedPrimitive : public testing::TestWithParam<Solid> {};

// Each edge is shared by two faces that run it in opposite directions, no point is left over, and the volume is
// positive: watertight, with outward winding.
TEST_P(ClosedPrimitive, IsWatertightWithOutwardWinding) {
  Geometry geometry;
  const Measures m = Measure(geometry.Build(geometry.Add(GetParam().type)));
  EXPECT_EQ(m.openEdges, 0);
  EXPECT_EQ(m.usedPoints, m.points);
  EXPECT_EQ(m.euler, GetParam().euler);
  EXPECT_GT(m.volume, 0);
  if (GetParam().volume > 0) {
    EXPECT_NEAR(m.volume / GetParam().volume, 1, 0.01);
    EXPECT_NEAR(m.area / GetParam().area, 1, 0.01);
  }
}
INSTANTIATE_TEST_SUITE_P(
    Types, ClosedPrimitive,
    testing::Values(Solid{kBoxTypeId, 8e6, 24e4, 2}, Solid{kSphereTypeId, 4.0 / 3 * kPi * 1e6, 4 * kPi * 1e4, 2},
                    Solid{kTorusTypeId, 2 * kPi* kPi * 100 * 2500, 4 * kPi* kPi * 100 * 50, 0},
                    Solid{kCylinderTypeId, kPi * 2500 * 200, kPi * 50 * (2 * 200 + 2 * 50), 2},
                    Solid{kConeTypeId, kPi * 1e4 * 200 / 3, kPi * 100 * (100 + std::sqrt(1e4 + 4e4)), 2},
                    Solid{kCapsuleTypeId, kPi * 2500 * (4.0 / 3 * 50 + 100), 2 * kPi * 50 * 200, 2},
                    Solid{kTorusKnotTypeId, 0, 0, 0}));

TEST(Primitives, SettingsChangeTheShape) {
  Geometry geometry;
  BaseObject& box = geometry.Add(kBoxTypeId);
  box.Set(kBoxSizeId, Vec3D(1, 2, 3));
  for (const int id : {1101, 1102, 1103}) box.Set(id, std::int64_t(id - 1098));
  const PolygonObject& mesh = geometry.Build(box);
  const std::uint64_t version = mesh.version;
  EXPECT_EQ(mesh.polygons.size(), 2u * (3 * 4 + 4 * 5 + 5 * 3));
  EXPECT_NEAR(Measure(mesh).volume, 6, 1e-12);
  EXPECT_EQ(Measure(mesh).openEdges, 0);
  geometry.Build(box);
  EXPECT_EQ(mesh.version, version);  // nothing changed, nothing is built
  box.Set(kBoxSizeId, Vec3D(2, 2, 3));
  geometry.Build(box);
  EXPECT_GT(mesh.version, version);
  EXPECT_NEAR(Measure(mesh).volume, 12, 1e-12);
}

TEST(Primitives, PlaneIsOpenAndFacesUp) {
  Geometry geometry;
  const PolygonObject& mesh = geometry.Build(geometry.Add(kPlaneTypeId));
  ASSERT_EQ(mesh.polygons.size(), 1u);
  const auto& p = mesh.polygons[0];
  const Vec3D normal = Cross(mesh.points[p.b] - mesh.points[p.a], mesh.points[p.c] - mesh.points[p.a]);
  EXPECT_EQ(Normalized(normal), Vec3D(0, 1, 0));
  EXPECT_EQ(Measure(mesh).openEdges, 4);
}

// Whatever a keyframe or a damaged scene puts there, the result is finite and its indices hold.
TEST(Primitives, EverySettingGivesAUsableMesh) {
  Geometry geometry;
  const double reals[] = {0, -5, 1e300, std::nan(""), 1e-300};
  const std::int64_t wholes[] = {0, -7, 1, 3, 1000000000000};
  int built = 0;
  for (const auto& [id, type] : geometry.types.types()) {
    if (!(type->kinds & kLinkGeometry) || id == kMeshTypeId) continue;
    for (std::size_t n = 0; n < 5; ++n) {
      BaseObject& object = geometry.Add(id);
      for (const Parameter& p : type->parameters) {
        if (p.type == ParameterType::Float) object.Set(p.id, reals[n]);
        if (p.type == ParameterType::Vector) object.Set(p.id, Vec3D(reals[n]));
        // The largest count only for one parameter at a time, or the test takes long.
        if (p.type == ParameterType::Int && (n < 4 || &p == &type->parameters.back())) object.Set(p.id, wholes[n]);
      }
      const PolygonObject& mesh = geometry.Build(object);
      for (const Vec3D& p : mesh.points) ASSERT_TRUE(IsFinite(p)) << type->resource << n;
      const auto count = static_cast<std::int32_t>(mesh.points.size());
      for (const auto& p : mesh.polygons) {
        for (const std::int32_t corner : {p.a, p.b, p.c, p.d}) ASSERT_TRUE(corner >= 0 && corner < count);
      }
      ++built;
      geometry.document.RemoveObject(object);
    }
  }
  EXPECT_EQ(built, 8 * 5);
}

}  // namespace
}  // namespace orlix::test
