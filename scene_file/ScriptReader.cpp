#include "scene_file/ScriptReader.h"

#include <fmt/format.h>

#include <filesystem>

#include "scene_file/JsonText.h"
#include "scene_file/ParameterText.h"

namespace orlix {

namespace {

// Behind the quotation mark.
TextPiece PieceOf(const ParameterSite& site, const JsonValue& value, const std::string& text) {
  return {{site.source, value.offset + 1}, text.size(), site.source->hasLines};
}

std::optional<ScriptText> ReadLines(const ParameterSite& site, const JsonValue::Array& lines) {
  ScriptText script;
  bool good = true;
  for (const JsonValue& line : lines) {
    const std::string* text = line.AsString();
    good = good && text;
    if (!text) {
      site.Refuse(line, "a line of the script in quotes");
      continue;
    }
    if (!script.pieces.empty()) script.text += '\n';
    script.text += *text;
    script.pieces.push_back(PieceOf(site, line, *text));
  }
  return good ? std::optional(std::move(script)) : std::nullopt;
}

std::optional<ScriptText> ReadFile(const ParameterSite& site, const JsonValue& value, const std::string& folder,
                                   const LoadText& load) {
  const std::string* name = value.AsString();
  if (!name || name->empty() || name->find('\0') != std::string::npos) return site.Refuse(value, "a file's name");
  const std::filesystem::path path = (std::filesystem::path(folder) / *name).lexically_normal();
  Result<std::string> text = load(path.string());
  if (!text) {
    site.Complain(value.offset, fmt::format("is in a file: {}", text.error().text));
    return std::nullopt;
  }
  auto source = std::make_shared<SourceText>();
  source->name = path.string();
  source->text = std::move(*text);
  if (const auto mistake = FindNoUtf8(source->text)) {
    site.mistakes->Add({source, static_cast<std::uint32_t>(mistake->offset)}, mistake->text);
    return std::nullopt;
  }
  ScriptText script{source->text, {}};
  script.pieces.push_back({{source, 0}, script.text.size(), false});
  return script;
}

}  // namespace

std::optional<ScriptText> ReadScript(const ParameterSite& site, const JsonValue& value, const std::string& folder,
                                     const LoadText& load) {
  if (const std::string* text = value.AsString()) return ScriptText{*text, {PieceOf(site, value, *text)}};
  if (const JsonValue::Array* lines = value.AsArray()) return ReadLines(site, *lines);
  const JsonValue* file = value.Find("file");
  if (!file || value.AsObject()->size() != 1) return site.Refuse(value, AllowedText(*site.row));
  return ReadFile(site, *file, site.source->hasLines ? site.source->folder : folder, load);
}

}  // namespace orlix
