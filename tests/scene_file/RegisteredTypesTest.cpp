// Every type that the program knows, from its table.

#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>

#include "host/objects/Presets.h"
#include "run/Engine.h"
#include "scene_file/ParameterText.h"
#include "scene_file/SceneReader.h"
#include "scene_file/SceneWriter.h"
#include "scene_file/TypeReference.h"
#include "scene_file/ValueReader.h"
#include "tests/scene_file/RandomValues.h"
#include "tests/scene_file/TestTypes.h"

namespace orlix {
namespace {

const Engine& TheEngine() {
  static const Engine engine;
  return engine;
}

template <class F>
void ForEachRow(F&& f) {
  int rows = 0;
  for (const auto& entry : TheEngine().types.types()) {
    const TypeInfo& type = *entry.second;
    type.ForEachParameter([&](const Parameter& row) {
      SCOPED_TRACE(std::string(type.ShortName()) + "." + row.key);
      f(type, row);
      ++rows;
    });
  }
  EXPECT_GT(rows, 100);
}

TEST(RegisteredTypes, EveryTypeIsNamedAndDescribed) {
  std::set<std::string_view> names;
  for (const auto& [id, type] : TheEngine().types.types()) {
    SCOPED_TRACE(type->resource);
    EXPECT_EQ(id, type->id);
    EXPECT_TRUE(std::regex_match(type->resource, std::regex("[a-z][a-z0-9_]*")));
    EXPECT_TRUE(names.insert(type->ShortName()).second);
    EXPECT_STRNE(type->label, "");
    EXPECT_TRUE(std::string(type->text).ends_with('.')) << type->text;
    EXPECT_NE(type->kinds, 0u);
    EXPECT_EQ(TheEngine().types.FindName(type->resource), type);
    EXPECT_EQ(TheEngine().types.FindName(std::to_string(id)), type);
  }
  EXPECT_GE(names.size(), 10u);
}

TEST(RegisteredTypes, EveryRowHasATextAndAKeyOfItsOwn) {
  const std::regex snake("[a-z][a-z0-9]*(_[a-z0-9]+)*");
  const std::set<std::string> reserved = {"type", "name", "children", "tags"};
  std::map<const TypeInfo*, std::set<int>> ids;
  std::map<const TypeInfo*, std::set<std::string>> keys;
  ForEachRow([&](const TypeInfo& type, const Parameter& row) {
    EXPECT_STRNE(row.text, "");
    EXPECT_EQ(std::string(row.text).find('\n'), std::string::npos);
    EXPECT_TRUE(std::regex_match(row.key, snake));
    EXPECT_FALSE(reserved.contains(row.key)) << "a key of the scene file itself";
    EXPECT_TRUE(keys[&type].insert(row.key).second) << "a key twice";
    EXPECT_TRUE(ids[&type].insert(row.id).second) << "an id twice";
    EXPECT_NE(row.unit, nullptr);
  });
}

TEST(RegisteredTypes, DefaultsLieInTheirRange) {
  ForEachRow([&](const TypeInfo& type, const Parameter& row) {
    if (row.type == ParameterType::Bool || row.type == ParameterType::Int || row.type == ParameterType::Float) {
      EXPECT_TRUE(InRange(row, row.number)) << row.number;
    }
    if (row.type == ParameterType::Vector) {
      for (int axis = 0; axis < 3; ++axis) EXPECT_TRUE(InRange(row, row.vector[axis]));
    }
    if (row.type == ParameterType::Choice && !row.choices.empty()) {
      int fitting = 0;
      std::set<std::string> keys;
      for (const Choice& choice : row.choices) {
        fitting += static_cast<double>(choice.value) == row.number;
        EXPECT_TRUE(keys.insert(choice.key).second) << choice.key;
        EXPECT_STRNE(choice.text, "");
      }
      EXPECT_EQ(fitting, 1);
    }
    for (int i = 0; i < row.shownCount; ++i) {
      EXPECT_TRUE(type.Find(row.shownWhen[static_cast<std::size_t>(i)].id)) << "shown by a parameter that isn't there";
    }
  });
}

// An object of each type somewhere in the tree. Names repeat in other branches, so that links need paths.
std::vector<BaseObject*> OneOfEach(BaseDocument& document, test::RandomValues& random) {
  const TypeRegistry& types = TheEngine().types;
  std::vector<BaseObject*> nodes = {&document.AddObject(*types.FindName("scene"))}, others;
  // A scene file has a section for each of the later roles, in their order.
  std::vector<const TypeInfo*> inOrder;
  for (const auto& [id, type] : types.types()) inOrder.push_back(type);
  std::stable_sort(inOrder.begin(), inOrder.end(), [](const auto* a, const auto* b) { return a->role < b->role; });
  for (const TypeInfo* type : inOrder) {
    if (type->role == TypeRole::Root) continue;
    BaseObject& parent = *nodes[static_cast<std::size_t>(random.Int(0, static_cast<int>(nodes.size()) - 1))];
    if (type->role != TypeRole::Node) {
      others.push_back(type->role == TypeRole::Tag ? &document.AddTag(*type, parent) : &document.AddObject(*type));
      continue;
    }
    nodes.push_back(&document.AddObject(*type, &parent));
    nodes.back()->name = "n" + std::to_string(parent.children().size());
  }
  nodes.insert(nodes.end(), others.begin(), others.end());
  return nodes;
}

KeyTrack RandomTrack(const BaseObject& object, const Parameter& row, test::RandomValues& random) {
  KeyTrack track{object.creationNumber(), row.id, {}};
  const int keys = random.Int(1, 4);
  for (int axis = 0; axis < (row.type == ParameterType::Vector ? 3 : 1); ++axis) {
    std::vector<SplineKnot> knots;
    for (int k = 0; k < keys; ++k) {
      const Value value = random.Of(row, object.document());
      const double y = row.type == ParameterType::Vector ? AsVector(value, {})[axis] : AsDouble(value, 0);
      knots.push_back({k * 2.5, y, KnotInterpolation::Cubic, {}, {}});
    }
    track.components.emplace_back(knots);
  }
  return track;
}

TEST(RegisteredTypes, WriteReadWriteIsEqual) {
  for (unsigned seed = 1; seed <= 5; ++seed) {
    SCOPED_TRACE(seed);
    test::RandomValues random(seed);
    BaseDocument document(TheEngine().types);
    for (BaseObject* object : OneOfEach(document, random)) {
      const auto* presets = dynamic_cast<const Presets*>(object->data());
      object->type().ForEachParameter([&](const Parameter& row) {
        if (presets && presets->PresetRow() == row.id) return;  // never stays set
        if (row.HoldsValue() && random.Int(0, 3) > 0) object->Set(row.id, random.Of(row, document));
        if (CanHaveKeys(row.type) && random.Int(0, 3) == 0) document.AddTrack(RandomTrack(*object, row, random));
      });
    }
    const auto text = WriteScene(document);
    ASSERT_TRUE(text.ok()) << text.error().text;
    const auto scene = ReadSceneText("s.json", *text, TheEngine().types);
    ASSERT_TRUE(scene.ok()) << scene.error().text;
    EXPECT_GT(test::ExpectSameObjects(document, *scene->document), 100);
    EXPECT_GT(document.tracks().size(), 100u);
    EXPECT_EQ(document.tracks().size(), scene->document->tracks().size());
    EXPECT_EQ(*WriteScene(*scene->document), *text);
  }
}

TEST(RegisteredTypes, TheReferenceHoldsEveryRowThatActs) {
  const auto pages = MarkdownPages(TheEngine().types);
  EXPECT_EQ(pages.size(), TheEngine().types.types().size() + 1);
  EXPECT_EQ(pages, MarkdownPages(TheEngine().types));
  ForEachRow([&](const TypeInfo& type, const Parameter& row) {
    const std::string name(WrittenName(type));
    const std::string page = pages.at(name + ".md"), line = "| " + std::to_string(row.id) + " | `" + row.key + "` |";
    EXPECT_EQ(page.find(line) != std::string::npos, row.HoldsValue() && !row.unread) << name << " " << row.key;
    EXPECT_NE(pages.at("index.md").find("(" + name + ".md)"), std::string::npos);
    EXPECT_NE(TypeTable(type, true).find(row.text), std::string::npos);
  });
}

TEST(RegisteredTypes, TheSchemaHoldsEveryRow) {
  const auto schema = nlohmann::json::parse(SceneSchema(TheEngine().types));
  const auto data = nlohmann::json::parse(TypesAsJson(TheEngine().types, nullptr));
  EXPECT_EQ(data.size(), TheEngine().types.types().size());
  ForEachRow([&](const TypeInfo& type, const Parameter& row) {
    if (!row.HoldsValue()) return;
    const auto& properties = schema.at("$defs").at(std::string(WrittenName(type))).at("properties");
    EXPECT_TRUE(properties.contains(row.key));
  });
}

// --- scene writer ---------------------------------------------------------------------------------------------------

TEST(SceneWriter, AValueThatIsNoNumberIsNamed) {
  BaseDocument document(test::Types());
  document.AddObject(*test::Types().FindName("scene")).Set(1002, std::nan(""));
  const auto text = WriteScene(document);
  ASSERT_FALSE(text.ok());
  EXPECT_NE(text.error().text.find("/objects/0/cell_size"), std::string::npos) << text.error().text;
}

}  // namespace
}  // namespace orlix
