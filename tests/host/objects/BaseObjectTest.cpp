#include <gtest/gtest.h>

#include <map>
#include <random>

#include "host/objects/BaseContainer.h"
#include "host/objects/BaseDocument.h"
#include "host/objects/BaseObject.h"

namespace orlix {
namespace {

constexpr Parameter kRows[] = {
    FloatParameter(1, "size", 0.5, "m", "Size"),
    BoolParameter(2, "own_block", true, "The fallback differs").Fallback(0.0),
    IntParameter(3, "count", 4, "", "Count"),
    VectorParameter(4, "axis", {0, 1, 0}, "", "Axis"),
    LinkParameter(5, "target", kLinkAny, "Target"),
    StringParameter(6, "note", "text", "Note"),
};
constexpr TypeInfo kNode = {.id = 1300001, .resource = "zq_node", .role = TypeRole::Node, .parameters = kRows};
const TypeInfo kObject = {.id = 7, .resource = "object", .role = TypeRole::Object, .common = TransformParameters()};

class CountingData : public ObjectData {
 public:
  void Init(BaseObject& object) override { object.Set(1, object.GetDouble(1) + 1); }
  Status Update(BaseObject& object, const BaseTime& time) override {
    object.Set(1, time.Seconds());
    return time.Seconds() < 0 ? Status::Fail(ErrorKind::InputFile, "no file") : Status();
  }
};
const TypeInfo kWithData = {
    .id = 8,
    .resource = "counting",
    .role = TypeRole::Object,
    .parameters = kRows,
    .createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<CountingData>(); }};

struct Fixture {
  TypeRegistry types;
  BaseDocument document{types};
};

TEST(BaseObject, StartsWithItsTypesDefaults) {
  Fixture f;
  const BaseObject& node = f.document.AddObject(kNode);
  EXPECT_EQ(node.name, "node");
  EXPECT_EQ(node.GetDouble(1), 0.5);
  EXPECT_TRUE(node.GetBool(2));
  EXPECT_EQ(node.GetInt(3), 4);
  EXPECT_EQ(node.GetVector(4), Vec3D(0, 1, 0));
  EXPECT_EQ(node.GetString(6), "text");
  EXPECT_EQ(node.GetLink(5), nullptr);
  EXPECT_EQ(f.document.AddObject(kWithData).GetDouble(1), 1.5);  // Init comes after the defaults
}

TEST(BaseObject, AMissingValueReadsTheFallback) {
  Fixture f;
  BaseObject& node = f.document.AddObject(kNode);
  for (int id = 1; id <= 6; ++id) node.Set(id, {});
  EXPECT_EQ(node.GetDouble(1), 0.5);
  EXPECT_FALSE(node.GetBool(2)) << "the reader's fallback, not the default";
  EXPECT_EQ(node.GetInt(3), 4);
  EXPECT_EQ(node.GetVector(4), Vec3D(0, 1, 0));
  EXPECT_EQ(node.GetDouble(99), 0);
}

TEST(BaseObject, OnlyOneIsTrue) {
  Fixture f;
  BaseObject& node = f.document.AddObject(kNode);
  for (const std::int64_t stored : {0, 1, 2, -1}) {
    node.Set(2, stored);
    EXPECT_EQ(node.GetBool(2), stored == 1) << stored;
  }
}

TEST(BaseObject, OnlyARealChangeCounts) {
  Fixture f;
  BaseObject& node = f.document.AddObject(kNode);
  const auto before = node.dirtyCount();
  node.Set(1, 0.5);
  EXPECT_EQ(node.dirtyCount(), before);
  node.Set(1, 0.6);
  EXPECT_EQ(node.dirtyCount(), before + 1);
  node.Set(1, std::int64_t(1));
  node.MarkDirty();
  EXPECT_EQ(node.dirtyCount(), before + 3);
}

TEST(BaseObject, ALinkToWhatIsGoneFindsNothing) {
  Fixture f;
  BaseObject &node = f.document.AddObject(kNode), &parent = f.document.AddObject(kObject);
  BaseObject& target = f.document.AddObject(kObject, &parent);
  node.Set(5, LinkValue{target.creationNumber()});
  EXPECT_EQ(node.GetLink(5), &target);
  f.document.MoveObject(target, nullptr);
  EXPECT_EQ(node.GetLink(5), &target);
  f.document.MoveObject(target, &parent);
  f.document.RemoveObject(parent);
  EXPECT_EQ(node.GetLink(5), nullptr);
  EXPECT_NE(f.document.AddObject(kObject).creationNumber(), std::get<LinkValue>(node.Get(5)).target);
}

TEST(BaseObject, MatricesScaleTurnAndThenMove) {
  Fixture f;
  BaseObject& parent = f.document.AddObject(kObject);
  BaseObject& child = f.document.AddObject(kObject, &parent);
  EXPECT_EQ(child.GlobalMatrix(), LMatrix());
  child.Set(kScaleId, Vec3D(2, 3, 4));
  child.Set(kRotationId, Vec3D(0, 0, 90));
  child.Set(kPositionId, Vec3D(10, 0, 0));
  const Vec3D moved = child.LocalMatrix() * Vec3D(1, 1, 1);
  EXPECT_NEAR(moved.x, 7, 1e-12);
  EXPECT_NEAR(moved.y, 2, 1e-12);
  EXPECT_NEAR(moved.z, 4, 1e-12);
  parent.Set(kRotationId, Vec3D(90, 0, 0));
  const Vec3D outer = child.GlobalMatrix() * Vec3D(1, 1, 1), expected = parent.LocalMatrix() * moved;
  EXPECT_NEAR(Length(outer - expected), 0, 1e-12);
  EXPECT_NEAR(parent.LocalMatrix().Determinant(), 1, 1e-12);
  EXPECT_NEAR(outer.y, -4, 1e-12);  // y to z, z to -y
  EXPECT_NEAR(outer.z, 2, 1e-12);
}

TEST(BaseObject, RotationsApplyXFirst) {
  Fixture f;
  BaseObject& object = f.document.AddObject(kObject);
  object.Set(kRotationId, Vec3D(90, 90, 0));
  const Vec3D turned = object.LocalMatrix() * Vec3D(0, 1, 0);  // about x to +z, then about y to +x
  EXPECT_NEAR(turned.x, 1, 1e-12);
  EXPECT_NEAR(Length(turned), 1, 1e-12);
}

TEST(BaseObject, TimeBringsItsDataUpToDate) {
  Fixture f;
  BaseObject& object = f.document.AddObject(kWithData);
  EXPECT_TRUE(f.document.SetTime({3, 2}).ok());
  EXPECT_EQ(object.GetDouble(1), 1.5);
  const Status status = f.document.SetTime({-1, 1});
  ASSERT_FALSE(status.ok());
  EXPECT_EQ(status.error().kind, ErrorKind::InputFile);
}

// --- base container -------------------------------------------------------------------------------------------------

TEST(BaseContainer, BehavesAsAMapUnderRandomChanges) {
  std::mt19937 random(5);
  BaseContainer container;
  std::map<int, std::int64_t> model;
  for (int step = 0; step < 5000; ++step) {
    const int id = static_cast<int>(random() % 60) - 30;
    if (random() % 3) {
      container.Set(id, std::int64_t(step));
      model[id] = step;
    } else {
      container.Remove(id);
      model.erase(id);
    }
    const int probe = static_cast<int>(random() % 60) - 30;
    ASSERT_EQ(container.Has(probe), model.contains(probe));
    ASSERT_EQ(AsInt(container.Get(probe), -1), model.contains(probe) ? model[probe] : -1);
  }
  ASSERT_EQ(container.entries().size(), model.size());
  auto expected = model.begin();
  for (const auto& [id, value] : container.entries()) EXPECT_EQ(id, (expected++)->first);
}

}  // namespace
}  // namespace orlix
