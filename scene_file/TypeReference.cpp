#include "scene_file/TypeReference.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <vector>

#include "scene_file/ParameterText.h"

namespace orlix {

namespace {

// The types of one role, in the order of their ids.
template <class F>
void ForEachByRole(const TypeRegistry& types, F&& f) {
  for (const TypeRole role : {TypeRole::Root, TypeRole::Node, TypeRole::Object, TypeRole::Tag, TypeRole::Light,
                              TypeRole::Camera, TypeRole::Material, TypeRole::RenderSettings, TypeRole::Output}) {
    for (const auto& [id, type] : types.types()) {
      if (type->role == role) f(*type);
    }
  }
}

std::string TypeColumn(const Parameter& row) {
  std::string text = NameOf(row.type);
  if (*row.unit) text += fmt::format(", {}", row.unit);
  return text;
}

// What the row takes: a range, the choices, the kinds of a link.
std::string TakesColumn(const Parameter& row) {
  if (row.type == ParameterType::Link || row.type == ParameterType::InExclude) return KindsText(row.linkKinds);
  std::string text = RangeText(row);
  for (const Choice& choice : row.choices) {
    text += fmt::format("{}{} {}", text.empty() ? "" : ", ", choice.value, choice.key);
  }
  return text;
}

std::string WithFallback(const Parameter& row) {
  std::string text = DefaultText(row);
  if (row.fallbackNumber && *row.fallbackNumber != row.number) {
    text += fmt::format(" (absent: {})", NumberText(*row.fallbackNumber));
  }
  if (row.fallbackVector && *row.fallbackVector != row.vector) {
    const Vec3D v = *row.fallbackVector;
    text += fmt::format(" (absent: [{}, {}, {}])", v.x, v.y, v.z);
  }
  return text;
}

std::string Description(const TypeInfo& type, const Parameter& row) {
  std::string text = row.text;
  const std::string shown = ShownText(type, row);
  if (!shown.empty()) text += "; " + shown;
  return text;
}

// Rows that a scene file has a use for: not buttons and headings of an interface, nor what nothing reads.
bool ActsInScenes(const Parameter& row) { return row.HoldsValue() && !row.unread; }

// Pads the cells of each column to a common width.
std::string Aligned(const std::vector<std::vector<std::string>>& lines, const char* indent) {
  std::vector<std::size_t> widths;
  for (const auto& line : lines) {
    widths.resize(std::max(widths.size(), line.size()));
    for (std::size_t i = 0; i < line.size(); ++i) widths[i] = std::max(widths[i], line[i].size());
  }
  std::string out;
  for (const auto& line : lines) {
    std::string text = indent;
    for (std::size_t i = 0; i < line.size(); ++i) {
      text += i + 1 == line.size() ? line[i] : fmt::format("{:<{}}  ", line[i], widths[i]);
    }
    text.erase(text.find_last_not_of(' ') + 1);
    out += text + "\n";
  }
  return out;
}

std::string Cell(std::string text) {
  for (std::size_t at = 0; (at = text.find('|', at)) != std::string::npos; at += 2) text.insert(at, "\\");
  return text;
}

std::string Page(const TypeInfo& type) {
  std::string names = fmt::format("`{}`", WrittenName(type));
  if (*type.alias) names += fmt::format(" or `{}`", type.ShortName());
  std::string out = fmt::format("# {}\n\n{}\n\nType {}, id {}, {}.\n", WrittenName(type), type.text, names, type.id,
                                RoleText(type.role));
  std::vector<const Parameter*> rows;
  type.ForEachParameter([&](const Parameter& row) {
    if (ActsInScenes(row)) rows.push_back(&row);
  });
  if (rows.empty()) return out + "\nIt has no parameters.\n";
  out += "\n| Id | Key | Type | Default | Takes | Meaning |\n|---|---|---|---|---|---|\n";
  for (const Parameter* row : rows) {
    const std::string value = WithFallback(*row);
    out += fmt::format("| {} | `{}` | {} | {} | {} | {} |\n", row->id, row->key, TypeColumn(*row),
                       value.empty() ? "" : fmt::format("`{}`", Cell(value)), Cell(TakesColumn(*row)),
                       Cell(Description(type, *row)));
  }
  for (const Parameter* row : rows) {
    if (row->type != ParameterType::Script) continue;
    out += fmt::format("\nThe default of `{}`, in the language of [scripts](../scripts.md):\n\n```\n{}\n```\n",
                       row->key, row->string);
  }
  return out;
}

}  // namespace

std::string TypeList(const TypeRegistry& types) {
  std::vector<std::vector<std::string>> lines;
  ForEachByRole(types, [&](const TypeInfo& type) {
    lines.push_back({std::string(WrittenName(type)), std::to_string(type.id), RoleText(type.role), type.label});
  });
  return Aligned(lines, "");
}

std::string TypeTable(const TypeInfo& type, bool all) {
  std::string out = fmt::format("{} ({}, id {})\n{}\n\n", WrittenName(type), RoleText(type.role), type.id, type.text);
  std::vector<std::vector<std::string>> lines;
  type.ForEachParameter([&](const Parameter& row) {
    if (!all && !ActsInScenes(row)) return;
    lines.push_back({std::to_string(row.id), row.key, TypeColumn(row), WithFallback(row), TakesColumn(row),
                     Description(type, row)});
  });
  return out + Aligned(lines, "  ");
}

std::string RowsWith(const TypeRegistry& types, std::string_view word) {
  const auto lower = [](std::string_view text) {
    std::string small(text);
    std::transform(small.begin(), small.end(), small.begin(), [](unsigned char c) { return std::tolower(c); });
    return small;
  };
  const std::string wanted = lower(word);
  const auto has = [&](std::string_view text) { return lower(text).find(wanted) != std::string::npos; };
  std::vector<std::vector<std::string>> found, byText;
  ForEachByRole(types, [&](const TypeInfo& type) {
    const std::string name(WrittenName(type));
    if (has(name) || has(type.label)) found.push_back({name, "", "", type.text});
    type.ForEachParameter([&](const Parameter& row) {
      if (!ActsInScenes(row) || !(has(row.key) || has(row.text))) return;
      (has(row.key) ? found : byText).push_back({name, row.key, WithFallback(row), Description(type, row)});
    });
  });
  const std::vector<std::vector<std::string>>& lines = found.empty() ? byText : found;
  return lines.empty() ? "" : Aligned(lines, "");
}

std::map<std::string, std::string> MarkdownPages(const TypeRegistry& types) {
  std::map<std::string, std::string> pages;
  std::string index =
      "# Types\n\nWritten by `orlix params --markdown`; `./dev docs` writes it anew. What a scene file has no use for "
      "is left "
      "out: `orlix params fluid --all` shows buttons, headings and rows that nothing reads, too. In a column of "
      "defaults "
      "\"absent\" is what a reader takes where an object has no value at all, as in a file of an older version; a new "
      "object has the default.\n\n"
      "| Type | Id | For | |\n|---|---|---|---|\n";
  ForEachByRole(types, [&](const TypeInfo& type) {
    const std::string name(WrittenName(type));
    index += fmt::format("| [{0}]({0}.md) | {1} | {2} | {3} |\n", name, type.id, RoleText(type.role), Cell(type.label));
    pages[name + ".md"] = Page(type);
  });
  pages["index.md"] = std::move(index);
  return pages;
}

}  // namespace orlix
