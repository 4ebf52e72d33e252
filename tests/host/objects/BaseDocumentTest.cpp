#include "host/objects/BaseDocument.h"

#include <gtest/gtest.h>

#include <random>

namespace orlix {
namespace {

constexpr Parameter kRows[] = {
    FloatParameter(1, "size", 0.5, "m", "Size"),
    IntParameter(2, "count", 4, "", "Count"),
    VectorParameter(3, "axis", {0, 1, 0}, "", "Axis"),
};
constexpr TypeInfo kType = {.id = 7, .resource = "object", .role = TypeRole::Object, .parameters = kRows};
constexpr TypeInfo kTag = {.id = 8, .resource = "tag", .role = TypeRole::Tag};

struct Fixture {
  TypeRegistry types;
  BaseDocument document{types};

  BaseObject& Add(const std::string& name, BaseObject* parent = nullptr) {
    BaseObject& object = document.AddObject(kType, parent);
    object.name = name;
    return object;
  }
  std::string Order() const {
    std::string names;
    document.ForEachObject([&](BaseObject& object) { names += object.name + " "; });
    return names;
  }
};

TEST(BaseDocument, WalksDepthFirstWithTagsBehindTheirObject) {
  Fixture f;
  BaseObject& a = f.Add("a");
  f.Add("c", &f.Add("b", &a));
  f.Add("d", &a);
  f.Add("e");
  f.document.AddTag(kTag, a).name = "t";
  EXPECT_EQ(f.Order(), "a t b c d e ");
  EXPECT_EQ(f.document.ObjectsOfType(kType.id).size(), 5u);
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
  f.document.AddTrack(Track(object, 2, {{{0, 0, kLinear, {}, {}}, {24, 24, kLinear, {}, {}}}}));
  f.document.AddTrack(Track(
      object, 3,
      {{{0, 1, kLinear, {}, {}}}, {{0, 2, kLinear, {}, {}}}, {{0, 0, kLinear, {}, {}}, {24, -24, kLinear, {}, {}}}}));
  f.document.AddTrack({999, 1, {}});  // of an object that isn't there
  for (int frame = -5; frame <= 30; ++frame) {
    const double at = std::clamp(frame, 0, 24);
    ASSERT_TRUE(f.document.SetTime(BaseTime::OfFrame(frame, 24)).ok());
    EXPECT_NEAR(object.GetDouble(1), at / 2, 1e-12);
    EXPECT_EQ(std::get<std::int64_t>(object.Get(2)), static_cast<std::int64_t>(at));
    EXPECT_NEAR(Length(object.GetVector(3) - Vec3D(1, 2, -at)), 0, 1e-12);
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
