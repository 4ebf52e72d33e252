// Files of particles: each format reads a file that was put together here, by its layout, and what its writer made;
// what is broken or lies about its counts is refused.

#include <gtest/gtest.h>

#include <bit>
#include <limits>
#include <sstream>

#include "exchange/FrameOutput.h"
#include "exchange/particles/ParticleFile.h"
#include "exchange/points/Deflate.h"
#include "exchange/points/FlatColumns.h"
#include "exchange/points/PointFormats.h"
#include "fluids/volumes/VolumeBase.h"
#include "host/geometry/GeometryTypes.h"
#include "host/geometry/MeshReader.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestScene.h"

namespace orlix {
namespace {

// Bytes by hand: b is big-endian, l little-endian.
struct Bytes {
  std::string text;
  Bytes& Raw(std::uint64_t value, int size, bool big) {
    for (int i = 0; i < size; ++i) text += static_cast<char>(value >> 8 * (big ? size - 1 - i : i) & 255);
    return *this;
  }
  Bytes& s(std::string_view word, std::size_t size = 0) {
    text += word;
    if (size > word.size()) text.append(size - word.size(), '\0');
    return *this;
  }
  Bytes& b2(int v) { return Raw(static_cast<std::uint64_t>(v), 2, true); }
  Bytes& b4(int v) { return Raw(static_cast<std::uint64_t>(v), 4, true); }
  Bytes& bf(float v) { return Raw(std::bit_cast<std::uint32_t>(v), 4, true); }
  Bytes& bd(double v) { return Raw(std::bit_cast<std::uint64_t>(v), 8, true); }
  Bytes& l2(int v) { return Raw(static_cast<std::uint64_t>(v), 2, false); }
  Bytes& l4(int v) { return Raw(static_cast<std::uint64_t>(v), 4, false); }
  Bytes& l8(std::int64_t v) { return Raw(static_cast<std::uint64_t>(v), 8, false); }
  Bytes& lf(std::initializer_list<float> values) {
    for (const float v : values) Raw(std::bit_cast<std::uint32_t>(v), 4, false);
    return *this;
  }
};

struct Golden {
  const char* extension;
  std::string bytes;
  std::size_t countAt;  // where its count stands; 0 for a text
  int countSize;
  bool big;
  std::vector<std::string> columns;  // beside the position
};

// A zlib stream of one stored block (RFC 1950, 1951).
std::string Stored(const std::string& raw) {
  std::uint32_t a = 1, b = 0;
  for (const char c : raw) a = (a + static_cast<unsigned char>(c)) % 65521, b = (b + a) % 65521;
  const int size = static_cast<int>(raw.size());
  return Bytes().s("\x78\x01\x01").l2(size).l2(~size).s(raw).Raw(b << 16 | a, 4, true).text;
}

std::string PdbBytes(int pointer, int channel) {
  const auto p = static_cast<std::size_t>(pointer), rest = static_cast<std::size_t>(channel - pointer - 4);
  Bytes file;
  file.l4(670).l2(1).s("", 2).lf({1, 0}).l4(2).l4(2).s("", 32 + p);
  file.l4(0).l2(0).s("", p).l4(1).s("", rest).s("position", 9).l4(1).l4(12).l4(2).l4(1).s("", p);
  file.lf({1, 2, 3, 4, 5, 6});
  file.l4(0).l2(0).s("", p).l4(3).s("", rest).s("id", 3).l4(3).l4(4).l4(2).l4(1).s("", p).l4(7).l4(-8);
  return file.text;
}

// Two particles at (1 2 3) and (4 5 6) in each; ids are 7 and -8, velocities (0 0 1) and (0 0 2).
std::vector<Golden> Goldens() {
  std::vector<Golden> all;
  Bytes bgeo;
  bgeo.s("BgeoV").b4(5).b4(2).b4(0).b4(0).b4(0).b4(3).b4(0).b4(0).b4(0);
  bgeo.b2(1).s("v").b2(3).b4(5).b4(0).b4(0).b4(0).b2(2).s("id").b2(1).b4(1).b4(0);
  bgeo.b2(4).s("kind").b2(1).b4(4).b4(2).b2(3).s("wet").b2(3).s("dry");
  bgeo.bf(1).bf(2).bf(3).bf(1).bf(0).bf(0).bf(1).b4(7).b4(1);
  bgeo.bf(4).bf(5).bf(6).bf(1).bf(0).bf(0).bf(2).b4(-8).b4(0).s(std::string("\0\xff", 2));
  all.push_back({".bgeo", bgeo.text, 9, 4, true, {"velocity", "id", "kind"}});
  all.push_back({".geo",
                 "PGEOMETRY V5\nNPoints 2 NPrims 0\nNPointGroups 0 NPrimGroups 0\nNPointAttrib 3 NVertexAttrib 0 "
                 "NPrimAttrib 0 NAttrib 0\nPointAttrib\nv 3 vector 0 0 0\nid 1 int 0\nkind 1 index 2 \"wet (so)\" "
                 "\"dry\"\n1 2 3 1 (0 0 1\t7\t1)\n4 5 6 1 (0 0 2\t-8\t0)\nbeginExtra\nendExtra\n",
                 0,
                 0,
                 false,
                 {"velocity", "id", "kind"}});
  for (const auto& [extension, pointer, channel] : {std::tuple{".pdb32", 4, 36}, {".pdb64", 8, 56}, {".pdb", 8, 56}}) {
    all.push_back({extension, PdbBytes(pointer, channel), 16, 4, false, {"id"}});
  }
  all.push_back({".pda",
                 "ATTRIBUTES\nposition velocity particleId\nTYPES\nV V I\nNUMBER_OF_PARTICLES: 2\nBEGIN DATA\n"
                 "1 2 3 0 0 1 7\n4 5 6 0 0 2 -8\n",
                 0,
                 0,
                 false,
                 {"velocity", "id"}});
  Bytes pdc;
  pdc.s("PDC ").b4(1).b4(1).b4(0).b4(0).b4(2).b4(2).b4(8).s("position").b4(5);
  for (const double v : {1., 2., 3., 4., 5., 6.}) pdc.bd(v);
  pdc.b4(10).s("particleId").b4(3).bd(7).bd(-8);
  all.push_back({".pdc", pdc.text, 20, 4, true, {"id"}});
  Bytes mc;
  mc.s("FOR4").b4(40).s("CACH").s("VRSN").b4(4).s("0.1", 4).s("STIM").b4(4).b4(0).s("ETIM").b4(4).b4(0);
  mc.s("FOR4").b4(112).s("MYCH").s("CHNM").b4(11).s("p1_position", 12).s("SIZE").b4(4).b4(2).s("FVCA").b4(24);
  for (const float v : {1.f, 2.f, 3.f, 4.f, 5.f, 6.f}) mc.bf(v);
  mc.s("CHNM").b4(6).s("p1_id", 8).s("SIZE").b4(4).b4(2).s("DBLA").b4(16).bd(7).bd(-8);
  all.push_back({".mc", mc.text, 88, 4, true, {"id"}});
  Bytes ptc;
  ptc.s("pptc").l4(1).Raw(std::bit_cast<std::uint64_t>(2.0), 8, false).s("", 4 * 45).l4(2).l4(4);
  ptc.s("vector velocity\nfloat heat\n").s("", 8);
  ptc.lf({1, 2, 3}).l2(0).l2(65535).lf({0.5f, 0, 0, 1, 9}).lf({4, 5, 6}).l2(0).l2(0).lf({0.25f, 0, 0, 2, 8});
  all.push_back({".ptc", ptc.text, 8, 8, false, {"velocity", "heat", "radius", "normal"}});
  Bytes prt, rows;
  prt.s("\xC0PRT\r\n\x1A\n").l4(56).s("Extensible Particle Format", 32).l4(1).l8(2).l4(4).l4(3).l4(44);
  prt.s("Position", 32).l4(4).l4(3).l4(0).s("Velocity", 32).l4(3).l4(3).l4(12).s("ID", 32).l4(2).l4(1).l4(18);
  rows.lf({1, 2, 3}).l2(0).l2(0).l2(0x3c00).l8(7).lf({4, 5, 6}).l2(0).l2(0).l2(0x4000).l8(-8);
  all.push_back({".prt", prt.s(Stored(rows.text)).text, 48, 8, false, {"velocity", "id"}});
  Bytes bin;
  bin.l4(0xFABADA).s("emitter", 250).l2(11).s("", 20).l4(2).s("", 40 + 36);
  for (const bool first : {true, false}) {
    bin.lf({first ? 1.f : 4.f, first ? 2.f : 5.f, first ? 3.f : 6.f, 0, 0, first ? 1.f : 2.f})
        .s("", 12 * 3 + 4 + 12 + 2);
    bin.lf({0, 0, 0, 0, 0, 1.5f, 300}).l4(first ? 7 : -8);
  }
  all.push_back({".bin", bin.s("", 6).text, 276, 4, false, {"velocity", "id", "mass"}});
  all.push_back({".pts", "2\n1 2 3 0.5 255 0 51\n4 5 6 1 0 0 0\n", 0, 0, false, {"intensity", "pointColor"}});
  all.push_back({".xyz", "1 2 3\n4 5 6\n", 0, 0, false, {}});
  all.push_back({".pcd",
                 "# .PCD v.7\nVERSION .7\nFIELDS x y z intensity rgb\nSIZE 4 4 4 4 4\nTYPE F F F F U\nCOUNT 1 1 1 1 1\n"
                 "WIDTH 2\nHEIGHT 1\nPOINTS 2\nDATA ascii\n1 2 3 0.5 16711680\n4 5 6 1 255\n",
                 0,
                 0,
                 false,
                 {"intensity", "pointColor"}});
  Bytes ice;
  ice.s("ICECACHE").l4(103).l4(0).l4(2).s("", 20).l4(3);
  ice.l4(13).s("PointPosition", 16).l4(0x10).l4(1).s("", 12).l4(2).s("id", 4).l4(2).l4(1).s("", 12);
  ice.l4(4).s("heat", 4).l4(4).l4(2).s("", 12).lf({1, 2, 3, 4, 5, 6}).l4(0).l4(7).l4(-8).l4(1).lf({9});
  all.push_back({".icecache", ice.text, 16, 4, false, {"id", "heat"}});
  all.push_back({".txt", "# x y z id:int\n1 2 3 7\n4 5 6 -8\n", 0, 0, false, {"id"}});
  return all;
}

Result<PointSet> Parse(const std::string& bytes, const char* extension, bool headersOnly = false) {
  return ParsePoints(bytes, *FindPointFormat(std::string("a") + extension), "file", headersOnly);
}

TEST(PointFormats, ReadFilesMadeByHand) {
  std::set<std::string_view> tried;
  for (const Golden& golden : Goldens()) {
    const Result<PointSet> set = Parse(golden.bytes, golden.extension);
    ASSERT_TRUE(set.ok()) << golden.extension << ": " << set.error().text;
    ASSERT_EQ(set->count, 2u) << golden.extension;
    for (int n = 0; n < 6; ++n) EXPECT_EQ(set->Find("position")->Real(n / 3, n % 3), n + 1) << golden.extension;
    for (const std::string& name : golden.columns) ASSERT_NE(set->Find(name), nullptr) << golden.extension << name;
    if (const auto* velocity = set->Find("velocity")) {
      EXPECT_EQ(velocity->Real(1, 2), 2) << golden.extension;
    }
    if (const auto* id = set->Find("id")) {
      EXPECT_EQ(id->Whole(0, 0) * 100 + id->Whole(1, 0), 692) << golden.extension;
    }
    if (const auto* heat = set->Find("heat")) {
      EXPECT_EQ(heat->Real(0, 0), 9) << golden.extension;
    }
    if (const auto* colour = set->Find("pointColor")) {
      EXPECT_EQ(colour->Real(0, 0), 1) << golden.extension;
    }
    const Result<PointSet> header = Parse(golden.bytes, golden.extension, true);
    ASSERT_TRUE(header.ok());
    EXPECT_EQ(header->count, 2u) << golden.extension;
    EXPECT_EQ(header->attributes.size(), set->attributes.size()) << golden.extension;
    tried.insert(golden.extension);
  }
  EXPECT_EQ(tried.size(), 16u);
  const Result<PointSet> texts = Parse(Goldens()[1].bytes, ".geo");
  EXPECT_EQ(texts->Find("kind")->words, (std::vector<std::string>{"wet (so)", "dry"}));
  EXPECT_EQ(Parse(Goldens()[7].bytes, ".mc")->Find("id")->type, PointType::Int);
  const Result<PointSet> cloud = Parse(Goldens()[8].bytes, ".ptc");
  EXPECT_EQ(cloud->Find("normal")->Real(0, 2), 1);
  EXPECT_EQ(cloud->Find("radius")->Real(1, 0), 0.25);
}

TEST(PointFormats, RefuseCountsThatTheBytesCantHoldAndCutFiles) {
  int counts = 0, cuts = 0;
  for (const Golden& golden : Goldens()) {
    for (const std::uint64_t count : {std::uint64_t(3), std::uint64_t(0x7fffffff), ~std::uint64_t(0)}) {
      if (golden.countSize == 0) continue;
      std::string lie = golden.bytes;
      const std::uint64_t raw = golden.countSize == 8 && golden.extension == std::string(".ptc")
                                    ? std::bit_cast<std::uint64_t>(double(count))
                                    : count;
      lie.replace(golden.countAt, golden.countSize, Bytes().Raw(raw, golden.countSize, golden.big).text);
      const Result<PointSet> set = Parse(lie, golden.extension);
      // A Maya cache repeats its counts, which nothing needs.
      EXPECT_EQ(set.ok(), golden.extension == std::string(".mc")) << golden.extension << count;
      ++counts;
    }
    for (std::size_t size = 0; size < golden.bytes.size(); size += 3) {
      const Result<PointSet> set = Parse(golden.bytes.substr(0, size), golden.extension);
      if (!set.ok()) {
        EXPECT_EQ(set.error().text.rfind("file", 0), 0u) << set.error().text;
      }
      cuts += !set.ok();
    }
  }
  EXPECT_EQ(counts, 30);
  EXPECT_GT(cuts, 1000);
}

PointSet Sample(std::uint64_t count) {
  PointSet set;
  set.count = count;
  for (const char* name : {"position", "velocity"}) set.Add(name, PointType::Vector, 3, NumberType::Float32);
  set.Add("id", PointType::Int, 1, NumberType::Int32);
  set.Add("mass", PointType::Float, 1, NumberType::Float64);
  set.Add("temperature", PointType::Float, 1, NumberType::Float32);
  for (PointAttribute& column : set.attributes) {
    for (std::uint64_t row = 0; row < count; ++row) {
      for (int c = 0; c < column.components; ++c) {
        column.SetReal(row, c, (double(row * 7919 % 1009) - 500) / (IsReal(column.number) ? 8 : 0.125) + c);
      }
    }
  }
  return set;
}

TEST(PointFormats, WhatIsWrittenIsReadAgain) {
  const PointSet set = Sample(5000);  // more than a block, and than a chunk of an ICE cache
  int formats = 0;
  for (const PointFormat& format : PointFormats()) {
    if (!format.read || !format.write) continue;
    std::ostringstream out;
    const Status written = format.write(set, {out});
    ASSERT_TRUE(written.ok()) << format.extension << ": " << written.error().text;
    const Result<PointSet> back = Parse(out.str(), format.extension);
    ++formats;
    ASSERT_TRUE(back.ok()) << back.error().text;
    ASSERT_EQ(back->count, set.count) << format.extension;
    for (const PointAttribute& column : set.attributes) {
      const PointAttribute* same = back->Find(column.name);
      if (format.keeps && !std::string_view(format.keeps).starts_with("position velocity") && column.name != "position")
        continue;
      ASSERT_NE(same, nullptr) << format.extension << " " << column.name;
      ASSERT_EQ(same->components, column.components);
      for (std::uint64_t row = 0; row < set.count; row += 97) {
        EXPECT_EQ(same->Real(row, column.components - 1), column.Real(row, column.components - 1)) << format.extension;
      }
    }
  }
  EXPECT_EQ(formats, 21);
}

TEST(PointFormats, PackingHasTheSameBytesForAnyNumberOfWorkers) {
  const PointSet set = Sample(60000);
  const test::TemporaryFolder folder;
  WorkerPool one(1), three(3);
  for (const char* name : {"a.prt", "a.bgeo.gz"}) {
    ASSERT_TRUE(WritePoints(folder / name, set, false, &one).ok());
    const std::string bytes = test::ReadText(folder / name);
    ASSERT_TRUE(WritePoints(folder / name, set, false, &three).ok());
    EXPECT_EQ(test::ReadText(folder / name), bytes);
    EXPECT_LT(bytes.size(), set.count * 36);
    EXPECT_EQ(ReadPoints(folder / name)->count, set.count);
  }
}

TEST(PointFormats, WhatIsNoneOfThemIsSaid) {
  const std::pair<std::string, const char*> broken[] = {
      {"\x7fNSJb", ".bgeo"}, {"X", ".icecache"}, {Bytes().s("ICECACHE").l4(102).s("", 32).text, ".icecache"},
      {"ply", ".pda"},       {"1 2\n", ".xyz"},  {"1 2 3 4 5\n", ".pts"},
  };
  const char* words[] = {"newer",    "Not an icecache file.", "ICECACHE must be version 103", "ATTRIBUTES", "three",
                         "5 numbers"};
  for (std::size_t n = 0; n < std::size(broken); ++n) {
    const Result<PointSet> set = Parse(broken[n].first, broken[n].second);
    ASSERT_FALSE(set.ok());
    EXPECT_NE(set.error().text.find(words[n]), std::string::npos) << set.error().text;
  }
  EXPECT_EQ(ReadPoints("a.rib").error().text, "a.rib: No reader defined for extension rib");
  EXPECT_EQ(WritePoints("a.pts", PointSet()).error().text, "a.pts: No writer defined for extension pts");
  EXPECT_EQ(ReadPoints("a").error().text, "a: No extension detected in filename");
  PointSet set = Sample(3);
  set.Find("mass")->SetReal(1, 0, 1e300);
  std::ostringstream out;
  const Status wide = FindPointFormat("a.bgeo")->write(set, {out});
  ASSERT_FALSE(wide.ok());
  EXPECT_NE(wide.error().text.find("mass of particle 1"), std::string::npos) << wide.error().text;
}

TEST(PointFormats, ABrokenPackingIsNoticed) {
  std::ostringstream out;
  PackedBuffer packed(out, Packing::Gzip, nullptr);
  const std::string zeros(700000, '\0');
  packed.sputn(zeros.data(), static_cast<std::streamsize>(zeros.size()));
  packed.Finish();
  const std::string bytes = out.str();
  const Result<std::string> back = UnpackGzip(bytes, "file");
  ASSERT_TRUE(back.ok());
  EXPECT_EQ(*back, zeros);
  const Result<std::string> twice = UnpackGzip(bytes + bytes, "file");
  ASSERT_TRUE(twice.ok()) << "a file may have several parts";
  EXPECT_EQ(twice->size(), 2 * zeros.size());
  std::string broken = bytes;
  broken[broken.size() / 2] = static_cast<char>(~broken[broken.size() / 2]);
  EXPECT_FALSE(UnpackGzip(broken, "file").ok());
  EXPECT_FALSE(UnpackGzip(bytes.substr(0, bytes.size() - 1), "file").ok());
}

// Particles as PLY and text: what is written can be read again, and what is broken is refused by name.

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
  EXPECT_EQ(TableOf(ReadPointFile(writer.written()[0])->Text()).set.count, 0u);
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
    const std::uint64_t count = TableOf(ReadPointFile(path)->Text()).set.count;
    EXPECT_NEAR(static_cast<double>(count), share * 5000, 1) << word;
    sum += count;
  }
  EXPECT_EQ(sum, 4999u) << "the living";
}

// By the theorem of Gauss: what is inside out has a volume below 0.
TEST(MeshOutput, AMirroredObjectStaysTheRightWayOut) {
  test::TestScene s;
  BaseObject& box = s.Add("box", "Crate");
  box.Set(kScaleId, Vec3D(-1, 2, 1));
  s.Add("volume", "Crate volume").Set(VolumeBase::kObjectId, s.LinkTo(box));
  s.Step(0);
  const test::TemporaryFolder folder;
  s.document.AddObject(OutputSettings::Type()).Set(OutputSettings::kMeshesId, std::int64_t(MeshOutput::Obj));
  FrameOutput writer(s.document, folder.path());
  ASSERT_TRUE(writer.WriteFrame(s.hook, 0).ok());
  const Result<PolygonObject> mesh = ReadMesh(folder / "frame_Crate.0000.obj");
  ASSERT_TRUE(mesh.ok());
  double volume = 0;
  for (const PolygonObject::Polygon& p : mesh->polygons) {
    const auto at = [&](std::int32_t i) { return mesh->points[static_cast<std::size_t>(i)]; };
    volume += Dot(at(p.a), Cross(at(p.b), at(p.c))) + Dot(at(p.a), Cross(at(p.c), at(p.d)));
  }
  const Vec3D size = box.GetVector(kBoxSizeId);
  EXPECT_NEAR(volume / 6, 2 * size.x * size.y * size.z, 1e-6 * size.x * size.y * size.z);
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
