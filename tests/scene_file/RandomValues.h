#pragma once
// Random values that a parameter's row allows, and a comparison of documents that doesn't depend on creation numbers.

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "host/objects/BaseDocument.h"

namespace orlix::test {

class RandomValues {
 public:
  explicit RandomValues(unsigned seed) : generator_(seed) {}

  int Int(int low, int high) { return std::uniform_int_distribution<int>(low, high)(generator_); }
  double Real(double low, double high) { return std::uniform_real_distribution<double>(low, high)(generator_); }
  KnotInterpolation Interpolation() { return static_cast<KnotInterpolation>(Int(0, 2)); }

  // In the row's range, with an odd number of digits.
  double Number(const Parameter& row) {
    const double low = std::isfinite(row.min) ? row.min : -1e3, high = std::isfinite(row.max) ? row.max : low + 2e3;
    double value = Real(low, high);
    if (row.type == ParameterType::Int || row.type == ParameterType::Bool) value = std::round(value);
    return value <= low && row.minExclusive ? high : value;
  }

  Value Of(const Parameter& row, const BaseDocument& document) {
    switch (row.type) {
      case ParameterType::Bool:
      case ParameterType::Int:
        return static_cast<std::int64_t>(Number(row));
      case ParameterType::Choice:
        if (row.choices.empty()) return static_cast<std::int64_t>(Int(0, 5));
        return row.choices[static_cast<std::size_t>(Int(0, static_cast<int>(row.choices.size()) - 1))].value;
      case ParameterType::Float:
        return Number(row);
      case ParameterType::Vector:
        return Vec3D(Number(row), Number(row), Number(row));
      case ParameterType::String:
      case ParameterType::File:
      case ParameterType::Script:
        return Text();
      case ParameterType::Link: {
        const auto targets = Targets(row, document);
        return targets.empty() ? Value() : Value(LinkValue{Pick(targets)});
      }
      case ParameterType::InExclude:
        return List(row, document);
      case ParameterType::Spline: {
        std::vector<SplineKnot> knots;
        for (int i = Int(0, 5); i > 0; --i) knots.push_back(Knot());
        return std::make_shared<const SplineData>(knots);
      }
      case ParameterType::Gradient: {
        std::vector<GradientKnot> knots;
        for (int i = Int(0, 5); i > 0; --i) {
          knots.push_back({Real(0, 1), {Real(0, 2), Real(0, 2), Real(0, 2)}, Interpolation()});
        }
        return std::make_shared<const Gradient>(knots);
      }
      case ParameterType::Button:
      case ParameterType::Group:
        break;
    }
    return {};
  }

 private:
  std::mt19937 generator_;

  static std::vector<std::uint64_t> Targets(const Parameter& row, const BaseDocument& document) {
    std::vector<std::uint64_t> targets;
    document.ForEachObject([&](BaseObject& object) {
      if (row.linkKinds == kLinkAny || (object.type().kinds & row.linkKinds))
        targets.push_back(object.creationNumber());
    });
    return targets;
  }
  std::uint64_t Pick(const std::vector<std::uint64_t>& from) {
    return from[static_cast<std::size_t>(Int(0, static_cast<int>(from.size()) - 1))];
  }
  SplineKnot Knot() {
    SplineKnot knot{Real(-5, 5), Real(-5, 5), Interpolation(), {}, {}};
    if (Int(0, 1)) knot.left = {Real(-1, 0), Real(-1, 1)}, knot.right = {Real(0, 1), Real(-1, 1)};
    return knot;
  }
  Value List(const Parameter& row, const BaseDocument& document) {
    const auto targets = Targets(row, document);
    auto list = std::make_shared<InExcludeData>();
    for (int i = targets.empty() ? 0 : Int(0, 4); i > 0; --i) {
      const std::uint64_t target = Pick(targets);
      if (!list->Contains(target)) list->entries.push_back({target, static_cast<std::uint32_t>(Int(0, 9))});
    }
    return InExcludeValue(std::move(list));
  }
  std::string Text() {
    static constexpr const char* kParts[] = {"a", "\"", "\\", "// no comment", "\n", "\xC3\xA9", ",}", "/", "x"};
    std::string text;
    for (int i = Int(0, 6); i > 0; --i) text += kParts[Int(0, 8)];
    return text;
  }
};

// The path of a link's target stands for its number.
inline std::vector<std::string> TargetPaths(const BaseObject& object, const Value& value) {
  std::vector<std::string> paths;
  const auto add = [&](std::uint64_t number, std::uint32_t flags) {
    const BaseObject* target = object.document().FindObject(number);
    if (target) paths.push_back(target->Path() + ":" + std::to_string(flags));
  };
  if (const auto* link = std::get_if<LinkValue>(&value)) add(link->target, 0);
  if (const auto* list = std::get_if<InExcludeValue>(&value); list && *list) {
    for (const auto& entry : (*list)->entries) add(entry.target, entry.flags);
  }
  return paths;
}

// Expects the same trees with the same values; returns how many values were compared.
inline int ExpectSameObjects(const BaseDocument& a, const BaseDocument& b) {
  std::vector<BaseObject*> left, right;
  a.ForEachObject([&](BaseObject& object) { left.push_back(&object); });
  b.ForEachObject([&](BaseObject& object) { right.push_back(&object); });
  EXPECT_EQ(left.size(), right.size());
  int compared = 0;
  for (std::size_t i = 0; i < std::min(left.size(), right.size()); ++i) {
    EXPECT_EQ(left[i]->Path(), right[i]->Path());
    EXPECT_EQ(left[i]->typeId(), right[i]->typeId());
    left[i]->type().ForEachParameter([&](const Parameter& row) {
      const Value &x = left[i]->Get(row.id), &y = right[i]->Get(row.id);
      ++compared;
      if (row.type == ParameterType::Link || row.type == ParameterType::InExclude) {
        EXPECT_EQ(TargetPaths(*left[i], x), TargetPaths(*right[i], y)) << left[i]->Path() << "." << row.key;
      } else {
        EXPECT_TRUE(SameValue(x, y)) << left[i]->Path() << "." << row.key;
      }
    });
  }
  return compared;
}

}  // namespace orlix::test
