#include "scene_file/ParameterReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <set>

#include "host/objects/Presets.h"
#include "scene_file/ParameterText.h"
#include "scene_file/ScriptReader.h"
#include "scene_file/ValueReader.h"

namespace orlix {

namespace {

// The number that text is, all of it.
std::optional<int> WholeNumber(std::string_view text) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
  return number;
}

// "a fluid_liquid", with what the engine takes it for.
std::string Described(const BaseObject& object) {
  const TypeInfo& type = object.type();
  return fmt::format("of type {}{}", WrittenName(type), type.kinds ? " (" + KindsText(type.kinds) + ")" : "");
}

// What names a preset comes first: the other members change what it sets.
std::vector<const JsonMember*> InOrder(const BaseObject& object, const JsonValue::Object& members) {
  std::vector<const JsonMember*> order;
  for (const JsonMember& member : members) order.push_back(&member);
  const auto* presets = dynamic_cast<const Presets*>(object.data());
  const Parameter* row = presets ? object.type().Find(presets->PresetRow()) : nullptr;
  std::stable_partition(order.begin(), order.end(),
                        [&](const JsonMember* member) { return row && member->key == row->key; });
  return order;
}

bool IsRelative(std::string_view path) { return !path.empty() && path[0] != '/'; }

}  // namespace

void ParameterReader::Read(BaseObject& object, const std::shared_ptr<const SourceText>& source,
                           const JsonValue::Object& members, const std::vector<std::string_view>& skip) {
  std::map<std::pair<int, bool>, std::string_view> seen;
  for (const JsonMember* each : InOrder(object, members)) {
    const JsonMember& member = *each;
    if (std::find(skip.begin(), skip.end(), member.key) != skip.end()) continue;
    const Place place{source, member.keyOffset};
    const Spelling spelling = ReadSpelling(object, place, member.key, skip);
    if (!spelling.row) continue;
    places_.Add(object, spelling.row->id, place);
    object.MarkGiven(spelling.row->id);
    const ParameterSite site{source, &object, spelling.row, &mistakes_, spelling.keys ? "@" : ""};
    const auto [first, fresh] = seen.emplace(std::pair(spelling.row->id, spelling.keys), member.key);
    if (!fresh && first->second != member.key) {  // the very same key is the JSON reader's to report
      site.Complain(member.keyOffset,
                    fmt::format("is set twice, as {} and as {}", Quoted(first->second), Quoted(member.key)));
      continue;
    }
    ReadMember(site, member.value, spelling.keys);
    const auto* presets = dynamic_cast<const Presets*>(object.data());
    if (!presets || spelling.row->id != presets->PresetRow()) continue;
    if (spelling.keys) site.Complain(member.keyOffset, "can't have keys; give keys to what it sets");
    presets->ApplyPreset(object);
  }
}

ParameterReader::Spelling ParameterReader::ReadSpelling(const BaseObject& object, const Place& place,
                                                        std::string_view key,
                                                        const std::vector<std::string_view>& skip) {
  const TypeInfo& type = object.type();
  const auto complain = [&](auto&& text) {
    mistakes_.Add(place, mistakes_.Full() ? std::string() : Quoted(object.Path(), 300) + text());
    return Spelling();
  };
  std::string_view name = key;
  const bool keys = name.ends_with('@');
  if (keys) name.remove_suffix(1);
  std::string_view number;
  if (const auto blank = name.find(' '); blank != std::string_view::npos) {
    number = name.substr(0, blank);
    name = name.substr(std::min(name.find_first_not_of(' ', blank), name.size()));
  } else if (WholeNumber(name)) {
    std::swap(number, name);
  }
  const auto id = WholeNumber(number);
  const Parameter* byId = id ? type.Find(*id) : nullptr;
  const Parameter* byKey = name.empty() ? nullptr : type.FindKey(name);
  if (!number.empty() && !id) {
    return complain([&] { return fmt::format(": no parameter is written {}", Quoted(key)); });
  }
  if (id && !byId) return complain([&] { return fmt::format(": {} has no parameter {}", WrittenName(type), *id); });
  if (!name.empty() && !byKey) {
    return complain([&] {
      std::vector<std::string_view> known(skip);
      type.ForEachParameter([&](const Parameter& row) { known.push_back(row.key); });
      const std::string nearest = NearestOf(name, known);
      return fmt::format(": {} has no parameter {}{}", WrittenName(type), Quoted(name), DidYouMean(nearest));
    });
  }
  if (byId && byKey && byId != byKey) {
    return complain([&] {
      return fmt::format(": {} disagree: {} is \"{}\", \"{}\" is {}", Quoted(key), byId->id, byId->key, byKey->key,
                         byKey->id);
    });
  }
  return {byId ? byId : byKey, keys};
}

void ParameterReader::ReadMember(const ParameterSite& site, const JsonValue& value, bool keys) {
  if (keys) {
    if (auto track = ReadKeys(site, value)) document_.AddTrack(std::move(*track));
    return;
  }
  if (site.row->type == ParameterType::Link) return ReadReference(site, value);
  if (site.row->type == ParameterType::InExclude) return ReadList(site, value);
  if (site.row->type == ParameterType::Script) return ReadScriptRow(site, value);
  if (!site.row->HoldsValue()) {
    return site.Complain(value.offset, fmt::format("is a {} and holds no value", NameOf(site.row->type)));
  }
  auto read = ReadValue(site, value);
  if (!read) return;
  if (site.row->type == ParameterType::File && !site.source->filePrefix.empty()) {
    if (std::string& path = std::get<std::string>(*read); IsRelative(path)) path = site.source->filePrefix + path;
  }
  site.object->Set(site.row->id, std::move(*read));
}

void ParameterReader::ReadScriptRow(const ParameterSite& site, const JsonValue& value) {
  auto script = ReadScript(site, value, document_.folder, load_);
  if (!script) return;
  site.object->Set(site.row->id, std::move(script->text));
  places_.AddText(*site.object, site.row->id, std::move(script->pieces));
}

void ParameterReader::ReadReference(const ParameterSite& site, const JsonValue& value) {
  const std::string* name = value.AsString();
  if (value.IsNull() || (name && name->empty())) return site.object->Set(site.row->id, LinkValue());
  if (!name) {
    site.Refuse(value, AllowedText(*site.row));
    return;
  }
  references_.push_back({site, {{value.offset, *name, 0}}});
}

namespace {

std::string KindWords(const Parameter& row) {
  std::string words;
  for (const Choice& choice : row.choices) words += fmt::format("{}\"{}\"", words.empty() ? "" : " or ", choice.key);
  return words;
}

// Of an entry of a list: 1 for a plain name, else by its "flags" or, in a list whose entries have kinds, its "kind".
// Nothing when it is written otherwise.
std::optional<std::uint32_t> ReadFlags(const Parameter& row, const JsonValue& item) {
  if (!item.AsObject()) return 1;
  const JsonValue* flags = item.Find("flags");
  const JsonValue* kind = row.choices.empty() ? nullptr : item.Find("kind");
  if (item.AsObject()->size() != (flags || kind ? 2u : 1u)) return std::nullopt;
  if (kind) {
    const std::string* word = kind->AsString();
    for (const Choice& choice : row.choices) {
      if (word && *word == choice.key) return static_cast<std::uint32_t>(choice.value);
    }
    return std::nullopt;
  }
  if (!flags) return 1;
  const auto number = flags->AsInteger();
  if (!number || *number < 0 || *number > std::int64_t(UINT32_MAX)) return std::nullopt;
  return static_cast<std::uint32_t>(*number);
}

}  // namespace

void ParameterReader::ReadList(const ParameterSite& site, const JsonValue& value) {
  const JsonValue::Array* items = value.AsArray();
  if (!items) {
    site.Refuse(value, AllowedText(*site.row));
    return;
  }
  Reference reference{site, {}};
  std::set<std::pair<std::string_view, std::uint32_t>> seen;
  const bool kinds = !site.row->choices.empty();  // one object may stand there once for each
  for (const JsonValue& item : *items) {
    const JsonValue* object = item.AsObject() ? item.Find("object") : &item;
    const std::string* name = object ? object->AsString() : nullptr;
    const std::optional<std::uint32_t> flags = ReadFlags(*site.row, item);
    if (!name || name->empty() || !flags) {
      site.Refuse(item, kinds ? R"(a name or {"object": name, "kind": )" + KindWords(*site.row) + "}"
                              : R"(a name or {"object": name, "flags": a whole number from 0 on})");
      continue;
    }
    if (!seen.insert({*name, kinds ? *flags : 0}).second) {
      site.Complain(item.offset, fmt::format("names {} twice", Quoted(*name)));
      continue;
    }
    reference.targets.push_back({object->offset, *name, *flags});
  }
  references_.push_back(std::move(reference));
}

BaseObject* ParameterReader::Resolve(const ParameterSite& site, const Target& target, const ObjectIndex& index) {
  const auto fail = [&](const std::string& why) {
    site.Complain(target.offset, fmt::format("is {}, {}", Quoted(target.name), why));
    return nullptr;
  };
  const std::vector<BaseObject*> found = index.Find(target.name);
  if (found.empty()) {
    return fail("no object has this name" + (mistakes_.Full() ? "" : DidYouMean(index.NearestName(target.name))));
  }
  if (found.size() > 1) {
    std::string paths;
    for (std::size_t i = 0; i < std::min<std::size_t>(found.size(), 4); ++i) {
      paths += (i ? ", " : "") + Quoted(index.ReferenceTo(*found[i]), 300);
    }
    if (index.ReferenceTo(*found[0]) == index.ReferenceTo(*found[1])) {
      return fail(fmt::format("a name that {} objects have at one path, {}; give them names of their own", found.size(),
                              Quoted(index.ReferenceTo(*found[0]), 300)));
    }
    return fail(fmt::format("a name that {} objects have; write a path: {}{}", found.size(), paths,
                            found.size() > 4 ? ", ..." : ""));
  }
  const std::uint32_t kinds = site.row->linkKinds;
  if (kinds != kLinkAny && !(found[0]->type().kinds & kinds)) {
    return fail(fmt::format("{}, must be {}", Described(*found[0]), KindsText(kinds)));
  }
  return found[0];
}

void ParameterReader::ResolveReferences(const ObjectIndex& index) {
  for (const Reference& reference : references_) {
    if (mistakes_.Full()) break;
    const ParameterSite& site = reference.site;
    auto list = std::make_shared<InExcludeData>();
    for (const Target& target : reference.targets) {
      const BaseObject* object = Resolve(site, target, index);
      if (!object) continue;
      if (site.row->choices.empty() && list->Contains(object->creationNumber())) {
        site.Complain(target.offset, fmt::format("names {} twice", Quoted(object->Path(), 300)));
      }
      list->entries.push_back({object->creationNumber(), target.flags});
    }
    if (site.row->type == ParameterType::InExclude) {
      site.object->Set(site.row->id, InExcludeValue(std::move(list)));
    } else if (!list->entries.empty()) {
      site.object->Set(site.row->id, LinkValue{list->entries[0].target});
    }
  }
  references_.clear();
}

}  // namespace orlix
