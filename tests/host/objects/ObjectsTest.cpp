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
const TypeInfo kObject = {
    .id = 7, .resource = "object", .role = TypeRole::Object, .parameters = kRows, .common = TransformParameters()};
constexpr TypeInfo kTag = {.id = 9, .resource = "tag", .role = TypeRole::Tag};

class CountingData : public ObjectData {
 public:
  void Init(BaseObject& object) override { object.Set(1, object.GetDouble(1) + 1); }
  Status Update(BaseObject& object, const BaseTime& time) override {
    object.Set(1, time.Seconds());
    if (object.name == "large") throw std::bad_alloc();
    return time.Seconds() < 0 ? Status::Fail(ErrorKind::InputFile, "no file of " + object.name) : Status();
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

  BaseObject& Add(const std::string& name, BaseObject* parent = nullptr) {
    BaseObject& object = document.AddObject(kObject, parent);
    object.name = name;
    return object;
  }
  std::string Order() const {
    std::string names;
    document.ForEachObject([&](BaseObject& object) { names += object.name + " "; });
    return names;
  }
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
  object.name = "first";
  for (int n = 0; n < 20; ++n) f.document.AddObject(kWithData);
  EXPECT_TRUE(f.document.SetTime({3, 2}).ok());
  f.document.ForEachObject([](const BaseObject& each) { EXPECT_EQ(each.GetDouble(1), 1.5); });
  const Status status = f.document.SetTime({-1, 1});
  ASSERT_FALSE(status.ok());
  EXPECT_EQ(status.error().text, "no file of first");
  f.document.AddObject(kWithData).name = "large";
  EXPECT_EQ(f.document.SetTime({3, 2}).error().kind, ErrorKind::Memory);
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

TEST(BaseDocument, WalksDepthFirstWithTagsBehindTheirObject) {
  Fixture f;
  BaseObject& a = f.Add("a");
  f.Add("c", &f.Add("b", &a));
  f.Add("d", &a);
  f.Add("e");
  f.document.AddTag(kTag, a).name = "t";
  EXPECT_EQ(f.Order(), "a t b c d e ");
  EXPECT_EQ(f.document.ObjectsOfType(kObject.id).size(), 5u);
  EXPECT_EQ(a.FindTag(kTag.id)->Path(), "a/t");
  EXPECT_EQ(a.FindTag(99), nullptr);
}

TEST(BaseDocument, MovingAndRemovingKeepTheTreeWhole) {
  Fixture f;
  BaseObject &a = f.Add("a"), &b = f.Add("b", &a), &c = f.Add("c", &b);
  f.document.MoveObject(a, &c);  // beneath itself: nothing happens
  EXPECT_EQ(f.Order(), "a b c ");
  f.document.MoveObject(c, nullptr);
  EXPECT_EQ(f.Order(), "a b c ");
  EXPECT_EQ(c.parent(), nullptr);
  f.document.MoveObject(b, &c);
  EXPECT_EQ(f.Order(), "a c b ");
  const auto number = b.creationNumber();
  BaseObject& tag = f.document.AddTag(kTag, b);
  const auto tagNumber = tag.creationNumber();
  f.document.RemoveObject(c);
  EXPECT_EQ(f.Order(), "a ");
  EXPECT_EQ(f.document.FindObject(number), nullptr);
  EXPECT_EQ(f.document.FindObject(tagNumber), nullptr);
  f.document.RemoveObject(f.document.AddTag(kTag, a));
  EXPECT_TRUE(a.tags().empty());
}

TEST(BaseDocument, RandomChangesKeepNumbersAndTreeTogether) {
  Fixture f;
  std::mt19937 random(9);
  std::uint64_t last = 0;
  for (int step = 0; step < 2000; ++step) {
    std::vector<BaseObject*> all;
    f.document.ForEachObject([&](BaseObject& object) { all.push_back(&object); });
    const auto pick = [&]() -> BaseObject* {
      return all.empty() || random() % 4 == 0 ? nullptr : all[random() % all.size()];
    };
    BaseObject* chosen = pick();
    if (!chosen || random() % 2) {
      const auto number = f.Add("o", chosen).creationNumber();
      EXPECT_GT(number, last);
      last = number;
    } else if (random() % 3) {
      f.document.MoveObject(*chosen, pick());
    } else {
      f.document.RemoveObject(*chosen);
    }
  }
  int seen = 0;
  f.document.ForEachObject([&](BaseObject& object) {
    ++seen;
    EXPECT_EQ(f.document.FindObject(object.creationNumber()), &object);
    for (const auto& child : object.children()) EXPECT_EQ(child->parent(), &object);
  });
  EXPECT_GT(seen, 3);
}

TEST(BaseDocument, PathsFindWhatTheyFitAlone) {
  Fixture f;
  BaseObject &plume = f.Add("Plume"), &smoke = f.Add("smoke", &plume), &other = f.Add("Other");
  BaseObject& second = f.Add("smoke", &other);
  BaseObject& top = f.Add("smoke");
  int count = 0;
  EXPECT_EQ(f.document.FindByPath("smoke", &count), nullptr);
  EXPECT_EQ(count, 3);
  EXPECT_EQ(f.document.FindByPath("Plume/smoke"), &smoke);
  EXPECT_EQ(f.document.FindByPath("Other/smoke"), &second);
  EXPECT_EQ(f.document.FindByPath("/smoke"), &top);
  EXPECT_EQ(f.document.FindByPath("lume/smoke", &count), nullptr);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(f.document.FindByPath("Plume"), &plume);
}

KeyTrack Track(const BaseObject& object, int parameter, std::vector<std::vector<SplineKnot>> curves) {
  KeyTrack track{object.creationNumber(), parameter, {}};
  for (const auto& knots : curves) track.components.emplace_back(knots);
  return track;
}

TEST(BaseDocument, TracksSetTheirParametersAtEachTime) {
  constexpr auto kLinear = KnotInterpolation::Linear;
  Fixture f;
  f.document.fps = 24;
  BaseObject& object = f.Add("a");
  f.document.AddTrack(Track(object, 1, {{{0, 0, kLinear, {}, {}}, {24, 12, kLinear, {}, {}}}}));
  f.document.AddTrack(Track(object, 3, {{{0, 0, kLinear, {}, {}}, {24, 24, kLinear, {}, {}}}}));
  f.document.AddTrack(Track(
      object, 4,
      {{{0, 1, kLinear, {}, {}}}, {{0, 2, kLinear, {}, {}}}, {{0, 0, kLinear, {}, {}}, {24, -24, kLinear, {}, {}}}}));
  f.document.AddTrack({999, 1, {}});  // of an object that isn't there
  for (int frame = -5; frame <= 30; ++frame) {
    const double at = std::clamp(frame, 0, 24);
    ASSERT_TRUE(f.document.SetTime(BaseTime::OfFrame(frame, 24)).ok());
    EXPECT_NEAR(object.GetDouble(1), at / 2, 1e-12);
    EXPECT_EQ(std::get<std::int64_t>(object.Get(3)), static_cast<std::int64_t>(at));
    EXPECT_NEAR(Length(object.GetVector(4) - Vec3D(1, 2, -at)), 0, 1e-12);
  }
  const auto changes = object.dirtyCount();
  EXPECT_TRUE(f.document.SetTime(f.document.time()).ok());
  EXPECT_EQ(object.dirtyCount(), changes) << "standing still is no change";
  f.document.RemoveTracks(object.creationNumber(), 1);
  EXPECT_EQ(f.document.tracks().size(), 3u);
}

TEST(BaseTime, FramesComeFromTheFraction) {
  for (const double fps : {1.0, 24.0, 25.0, 30.0, 60.0, 1000.0}) {
    for (int frame = -1000; frame <= 100000; frame += 37) {
      ASSERT_EQ(BaseTime::OfFrame(frame, fps).Frame(fps), frame) << fps;
    }
  }
  EXPECT_EQ((BaseTime{5, 0}).Frame(24), 0);
  EXPECT_EQ((BaseTime{5, 0}).Seconds(), 0);
  EXPECT_EQ((BaseTime{5, 0.5}).Frame(24), 0);  // the denominator is floored
  EXPECT_EQ((BaseTime{3, 2}).Seconds(), 1.5);
}

}  // namespace
}  // namespace orlix
