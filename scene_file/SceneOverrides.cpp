#include "scene_file/SceneOverrides.h"

#include <fmt/format.h>

#include <cstdlib>

#include "scene_file/JsonReader.h"

namespace orlix {

namespace {

// The row that key names, without a message: the reader gives those.
const Parameter* RowOf(const TypeInfo& type, std::string_view key) {
  if (key.ends_with('@')) key.remove_suffix(1);
  const Parameter* row = type.FindKey(key);
  return row ? row : type.Find(std::atoi(std::string(key).c_str()));
}

// The text as JSON where it is that, otherwise as it stands: `soft` is what `"soft"` is.
JsonValue ValueOf(const std::string& text, const Parameter* row, Mistakes& mistakes) {
  const bool isText = row && (row->type == ParameterType::String || row->type == ParameterType::File ||
                              row->type == ParameterType::Link);
  const bool isScript = row && row->type == ParameterType::Script;
  JsonValue plain;
  plain.content = text;
  if (isText && !text.starts_with('"')) return plain;
  if (isScript && text.find_first_of("\"[{") != 0) return plain;
  auto source = std::make_shared<SourceText>(SourceText{"--set", "", text, "", false});
  Mistakes own;
  if (auto value = ReadJson(source, own)) return std::move(*value);
  if (text.starts_with('[') || text.starts_with('{')) mistakes.Add({source, 0}, own.Text());
  return plain;
}

}  // namespace

Status ApplyOverrides(BaseDocument& document, const std::vector<std::string>& overrides, const ObjectIndex& index,
                      ParameterReader& parameters, SwitchedOff& off, Mistakes& mistakes) {
  const auto source = std::make_shared<const SourceText>(SourceText{"--set", "", "", "", false});
  for (const std::string& entry : overrides) {
    const auto equals = entry.find('=');
    const auto dot = equals == std::string::npos ? equals : entry.rfind('.', equals);
    if (dot == std::string::npos || dot == 0 || dot + 1 == equals) {
      return Status::Fail(ErrorKind::Usage, fmt::format("--set {}: must be PATH.key=value", entry));
    }
    const std::string path = entry.substr(0, dot), key = entry.substr(dot + 1, equals - dot - 1);
    const std::vector<BaseObject*> found = index.Find(path);
    if (found.size() != 1) {
      mistakes.Add({source, 0},
                   found.empty()
                       ? fmt::format("no object is called {}{}", Quoted(path), DidYouMean(index.NearestName(path)))
                       : fmt::format("{} objects are called {}, write a path", found.size(), Quoted(path)));
      continue;
    }
    const Parameter* row = RowOf(found[0]->type(), key);
    if (key == "enabled" && SwitchedOff::Applies(*found[0])) {
      off.Read(*found[0], source, ValueOf(entry.substr(equals + 1), row, mistakes), mistakes);
      continue;
    }
    // Keyframes of the file would win over a value at each frame.
    if (row) document.RemoveTracks(found[0]->creationNumber(), row->id);
    JsonValue::Object members;
    members.push_back({key, 0, ValueOf(entry.substr(equals + 1), row, mistakes)});
    parameters.Read(*found[0], source, members, {});
  }
  return {};
}

}  // namespace orlix
