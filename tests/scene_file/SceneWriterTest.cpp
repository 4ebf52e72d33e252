#include "scene_file/SceneWriter.h"

#include <deque>

#include "scene_file/SceneReader.h"
#include "scene_file/ValueReader.h"
#include "tests/scene_file/RandomValues.h"
#include "tests/scene_file/TestTypes.h"

namespace orlix {
namespace {

constexpr TypeInfo kRoot = {.id = 10, .resource = "zq_any_root", .role = TypeRole::Root, .kinds = kLinkRoot};

// Types with random tables. Rows point into the deques, which never move what they hold.
class RandomTypes {
 public:
  RandomTypes(test::RandomValues& random, int count) : random_(random) {
    types_.Add(kRoot);
    for (int i = 0; i < count; ++i) AddType(20 + i);
  }
  const TypeRegistry& types() const { return types_; }
  const TypeInfo& Pick() {
    return infos_[static_cast<std::size_t>(random_.Int(0, static_cast<int>(infos_.size()) - 1))];
  }

 private:
  test::RandomValues& random_;
  TypeRegistry types_;
  std::deque<TypeInfo> infos_;
  std::deque<std::vector<Parameter>> tables_;
  std::deque<std::string> texts_;

  const char* Keep(std::string text) { return texts_.emplace_back(std::move(text)).c_str(); }

  Parameter Row(int id) {
    const char* key = Keep("key_" + std::to_string(id));
    const double low = random_.Int(-10, 10);
    switch (random_.Int(0, 9)) {
      case 0:
        return BoolParameter(id, key, random_.Int(0, 1) == 1, "Text");
      case 1:
        return IntParameter(id, key, 3, "", "Text").Between(low, low + random_.Int(0, 100));
      case 2:
        return ChoiceParameter(id, key, 0, test::kShapes, "Text");
      case 3:
        return FloatParameter(id, key, low + 0.5, "m", "Text").Above(low);
      case 4:
        return VectorParameter(id, key, {1, 2, 3}, "m", "Text").Min(low);
      case 5:
        return StringParameter(id, key, "default", "Text");
      case 6:
        return LinkParameter(id, key, random_.Int(0, 1) ? kLinkForce : kLinkAny, "Text");
      case 7:
        return ListParameter(id, key, kLinkForce, "Text");
      case 8:
        return SplineParameter(id, key, test::kRamp, "Text");
      default:
        return GradientParameter(id, key, test::kFire, "Text");
    }
  }
  void AddType(int id) {
    std::vector<Parameter>& rows = tables_.emplace_back();
    for (int i = random_.Int(0, 12); i > 0; --i) rows.push_back(Row(1000 + i));
    infos_.push_back({.id = id,
                      .resource = Keep("zq_type_" + std::to_string(id)),
                      .role = TypeRole::Node,
                      .kinds = random_.Int(0, 1) ? kLinkForce : kLinkChannel,
                      .parameters = rows});
    types_.Add(infos_.back());
  }
};

void Fill(BaseDocument& document, RandomTypes& types, test::RandomValues& random) {
  std::vector<BaseObject*> made = {&document.AddObject(kRoot)};
  for (int i = random.Int(1, 12); i > 0; --i) {
    BaseObject* parent = made[static_cast<std::size_t>(random.Int(0, static_cast<int>(made.size()) - 1))];
    made.push_back(&document.AddObject(types.Pick(), parent));
    // Names repeat in other branches, so that links need paths.
    bool taken = true;
    while (taken) {
      made.back()->name = "n" + std::to_string(random.Int(0, 20));
      taken = false;
      for (const auto& sibling : parent->children())
        taken |= sibling.get() != made.back() && sibling->name == made.back()->name;
    }
  }
  for (BaseObject* object : made) {
    object->type().ForEachParameter([&](const Parameter& row) {
      if (random.Int(0, 3) > 0) object->Set(row.id, random.Of(row, document));
      if (!CanHaveKeys(row.type) || random.Int(0, 3) > 0) return;
      KeyTrack track{object->creationNumber(), row.id, {}};
      const int keys = random.Int(1, 4);
      for (int axis = 0; axis < (row.type == ParameterType::Vector ? 3 : 1); ++axis) {
        std::vector<SplineKnot> knots;
        for (int k = 0; k < keys; ++k) {
          const Value value = random.Of(row, document);
          const double y = row.type == ParameterType::Vector ? AsVector(value, {})[axis] : AsDouble(value, 0);
          knots.push_back({k * 2.5, y, KnotInterpolation::Cubic, {}, {}});
        }
        track.components.emplace_back(knots);
      }
      document.AddTrack(std::move(track));
    });
  }
}

TEST(SceneWriter, RandomTablesComeBackFromAFile) {
  int values = 0, tracks = 0;
  for (unsigned seed = 1; seed <= 150; ++seed) {
    SCOPED_TRACE(seed);
    test::RandomValues random(seed);
    RandomTypes types(random, random.Int(1, 4));
    BaseDocument document(types.types());
    Fill(document, types, random);
    const Result<std::string> text = WriteScene(document);
    ASSERT_TRUE(text.ok());
    const Result<SceneFile> scene = ReadSceneText("s.json", *text, types.types());
    ASSERT_TRUE(scene.ok()) << scene.error().text << "\n" << *text;
    values += test::ExpectSameObjects(document, *scene->document);
    ASSERT_EQ(document.tracks().size(), scene->document->tracks().size());
    tracks += static_cast<int>(document.tracks().size());
    const Result<std::string> again = WriteScene(*scene->document);
    ASSERT_TRUE(again.ok());
    EXPECT_EQ(*text, *again);
  }
  EXPECT_GT(values, 3000);
  EXPECT_GT(tracks, 200);
}

TEST(SceneWriter, AValueThatIsNoNumberIsNamed) {
  BaseDocument document(test::Types());
  document.AddObject(*test::Types().FindName("scene")).Set(1002, std::nan(""));
  const auto text = WriteScene(document);
  ASSERT_FALSE(text.ok());
  EXPECT_NE(text.error().text.find("/objects/0/cell_size"), std::string::npos) << text.error().text;
}

}  // namespace
}  // namespace orlix
