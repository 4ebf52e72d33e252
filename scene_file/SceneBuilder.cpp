#include "scene_file/SceneBuilder.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "scene_file/JsonReader.h"
#include "scene_file/ParameterText.h"

namespace orlix {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMaxObjects = 100000;
constexpr std::size_t kMaxIncludeDepth = 32;
constexpr std::size_t kMaxNameBytes = 200;
constexpr std::int64_t kMaxFrame = 10000000;
constexpr std::int64_t kMaxFps = 1000;

constexpr std::uint32_t Bit(TypeRole role) { return 1u << static_cast<unsigned>(role); }
constexpr std::uint32_t kTreeRoles =
    Bit(TypeRole::Node) | Bit(TypeRole::Root) | Bit(TypeRole::Object) | Bit(TypeRole::Light) | Bit(TypeRole::Camera);

// Stands for an object whose type is wrong, so that what is beneath it is still checked. It fits every link.
constexpr TypeInfo kUnknownType{.resource = "unknown", .role = TypeRole::Object, .kinds = kLinkAny};

std::string Identity(const std::string& path) {
  std::error_code error;
  const fs::path canonical = fs::weakly_canonical(path, error);
  return error ? fs::path(path).lexically_normal().string() : canonical.string();
}

}  // namespace

struct SceneBuilder::Section {
  const char* key;
  const char* defaultType;  // of an entry that names none; null when an entry must
  std::uint32_t roles;
  bool many;
};

constexpr SceneBuilder::Section SceneBuilder::kSections[] = {
    {"objects", nullptr, kTreeRoles, true},
    {"lights", "light", Bit(TypeRole::Light), true},
    {"camera", "camera", Bit(TypeRole::Camera), false},
    {"materials", "material", Bit(TypeRole::Material), true},
    {"render", "render", Bit(TypeRole::RenderSettings), false},
    {"output", "output", Bit(TypeRole::Output), true},
};

SceneBuilder::SceneBuilder(BaseDocument& document, Mistakes& mistakes, LoadText load)
    : document_(document), mistakes_(mistakes), load_(std::move(load)), parameters_(document, mistakes, load_) {}

void SceneBuilder::Complain(const Source& source, std::uint32_t offset, std::string text) {
  mistakes_.Add({source, offset}, std::move(text));
}

void SceneBuilder::ReadFile(const std::shared_ptr<SourceText>& source) {
  files_.push_back(source->name);
  open_.push_back(Identity(source->name));
  if (const auto top = ReadJson(source, mistakes_)) ReadTop(source, *top);
  done_.push_back(open_.back());
  open_.pop_back();
}

void SceneBuilder::ReadTop(const Source& source, const JsonValue& top) {
  if (!top.AsObject()) return Complain(source, top.offset, R"(a scene file is an object, { "orlix": 1, ... })");
  ReadSettings(source, top);
  if (const JsonValue* includes = top.Find("include")) ReadIncludes(source, *includes);
  for (const Section& section : kSections) {
    if (const JsonValue* value = top.Find(section.key)) ReadSection(source, section, *value);
  }
  std::vector<std::string_view> known = {"orlix", "fps", "frames", "up", "include", "$schema"};
  for (const Section& section : kSections) known.push_back(section.key);
  for (const JsonMember& member : *top.AsObject()) {
    if (std::find(known.begin(), known.end(), member.key) != known.end()) continue;
    Complain(source, member.keyOffset,
             fmt::format("a scene file has no {}{}", Quoted(member.key), DidYouMean(NearestOf(member.key, known))));
  }
}

void SceneBuilder::ReadSettings(const Source& source, const JsonValue& top) {
  const JsonValue* version = top.Find("orlix");
  if (!version) {
    Complain(source, top.offset, R"("orlix" is missing, a scene file has "orlix": 1)");
  } else if (!version->AsInteger() || *version->AsInteger() != 1) {
    Complain(source, version->offset, fmt::format("orlix is {}, this program reads version 1", Shown(*version)));
  }
  const JsonValue* up = top.Find("up");
  if (up && (!up->AsString() || *up->AsString() != "y")) {
    Complain(source, up->offset, fmt::format("up is {}, must be \"y\"", Shown(*up)));
  }
  if (const JsonValue* fps = top.Find("fps")) ReadFps(source, *fps);
  if (const JsonValue* frames = top.Find("frames")) ReadFrames(source, *frames);
  document_.minTime = BaseTime::OfFrame(frames_ ? frames_->first : 0, document_.fps);
  document_.maxTime = BaseTime::OfFrame(frames_ ? frames_->second : 90, document_.fps);
}

// The host's frame arithmetic floors the fraction's denominator, so that only whole rates give whole frames.
void SceneBuilder::ReadFps(const Source& source, const JsonValue& value) {
  const double fps = value.Number();
  if (!value.IsNumber() || fps != std::trunc(fps) || fps < 1 || fps > static_cast<double>(kMaxFps)) {
    return Complain(source, value.offset,
                    fmt::format("fps is {}, must be a whole number, 1 to {}", Shown(value), kMaxFps));
  }
  if (!hasFps_) document_.fps = fps;
  hasFps_ = true;
}

void SceneBuilder::ReadFrames(const Source& source, const JsonValue& value) {
  const JsonValue::Array* parts = value.AsArray();
  const auto frame = [](const JsonValue& part) {
    return part.AsInteger() && std::abs(*part.AsInteger()) <= kMaxFrame && *part.AsInteger() != INT64_MIN;
  };
  if (!parts || parts->size() != 2 || !frame((*parts)[0]) || !frame((*parts)[1]) ||
      *(*parts)[0].AsInteger() > *(*parts)[1].AsInteger()) {
    return Complain(
        source, value.offset,
        fmt::format(
            "frames is {}, must be [first, last], whole numbers within -{} to {}, the last not before the first",
            Shown(value), kMaxFrame, kMaxFrame));
  }
  if (!frames_) frames_.emplace(int(*(*parts)[0].AsInteger()), int(*(*parts)[1].AsInteger()));
}

void SceneBuilder::ReadIncludes(const Source& source, const JsonValue& value) {
  if (value.AsString()) return Include(source, value);
  if (!value.AsArray()) {
    return Complain(source, value.offset, fmt::format("include is {}, must be a list of scene files", Shown(value)));
  }
  for (const JsonValue& item : *value.AsArray()) Include(source, item);
}

void SceneBuilder::Include(const Source& source, const JsonValue& value) {
  const std::string* name = value.AsString();
  if (!name || name->empty() || name->find('\0') != std::string::npos) {
    return Complain(source, value.offset, fmt::format("include has {}, must be a scene file's name", Shown(value)));
  }
  const fs::path path = (fs::path(source->folder) / *name).lexically_normal();
  const std::string identity = Identity(path.string());
  if (const auto again = std::find(open_.begin(), open_.end(), identity); again != open_.end()) {
    std::string chain;
    for (auto file = again; file != open_.end(); ++file) chain += fs::path(*file).filename().string() + " includes ";
    return Complain(source, value.offset,
                    fmt::format("a cycle of includes: {}{}", chain, fs::path(identity).filename().string()));
  }
  if (std::find(done_.begin(), done_.end(), identity) != done_.end()) return;  // two files may share a third
  if (open_.size() >= kMaxIncludeDepth) {
    return Complain(source, value.offset, fmt::format("includes deeper than {}", kMaxIncludeDepth));
  }
  Result<std::string> text = load_(path.string());
  if (!text) return Complain(source, value.offset, fmt::format("include: {}", text.error().text));
  auto included = std::make_shared<SourceText>();
  included->name = path.string();
  included->folder = path.parent_path().string();
  included->text = std::move(*text);
  const std::string prefix = fs::path(included->folder).lexically_proximate(document_.folder).string();
  if (prefix != ".") included->filePrefix = prefix + "/";
  ReadFile(included);
}

void SceneBuilder::ReadSection(const Source& source, const Section& section, const JsonValue& value) {
  if (value.AsObject()) return ReadEntry(source, section, value, nullptr, false);
  if (section.many) return ReadEntries(source, section, value, nullptr, false);
  Complain(source, value.offset, fmt::format("{} is {}, must be an object", section.key, Shown(value)));
}

void SceneBuilder::ReadEntries(const Source& source, const Section& section, const JsonValue& list, BaseObject* parent,
                               bool tags) {
  if (!list.AsArray()) {
    const char* what = tags ? "tags" : parent ? "children" : section.key;
    return Complain(source, list.offset, fmt::format("{} is {}, must be a list of objects", what, Shown(list)));
  }
  for (const JsonValue& entry : *list.AsArray()) ReadEntry(source, section, entry, parent, tags);
}

void SceneBuilder::ReadEntry(const Source& source, const Section& section, const JsonValue& entry, BaseObject* parent,
                             bool tag) {
  if (!entry.AsObject()) {
    return Complain(source, entry.offset,
                    fmt::format("{} stands here, must be an object {{ \"type\": ... }}", Shown(entry)));
  }
  if (++objectCount_ > kMaxObjects) {
    if (objectCount_ == kMaxObjects + 1) {
      Complain(source, entry.offset, fmt::format("more than {} objects", kMaxObjects));
    }
    return;
  }
  const TypeInfo* type = ReadType(source, section, entry, tag);
  BaseObject& object = tag ? document_.AddTag(type ? *type : kUnknownType, *parent)
                           : document_.AddObject(type ? *type : kUnknownType, parent);
  parameters_.places().Add(object, ScenePlaces::kWholeObject, {source, entry.offset});
  ReadName(source, entry, object);
  std::vector<std::string_view> own = {"type", "name", "children", "tags"};
  if (const JsonValue* value = entry.Find("enabled"); value && SwitchedOff::Applies(object)) {
    off_.Read(object, source, *value, mistakes_);
    own.push_back("enabled");
  }
  if (type) parameters_.Read(object, source, *entry.AsObject(), own);
  if (const JsonValue* list = entry.Find("tags")) ReadEntries(source, section, *list, &object, true);
  if (const JsonValue* list = entry.Find("children")) {
    if (tag) return Complain(source, list->offset, fmt::format("the tag {} can't have children", Quoted(object.name)));
    ReadEntries(source, section, *list, &object, false);
  }
}

const TypeInfo* SceneBuilder::ReadType(const Source& source, const Section& section, const JsonValue& entry, bool tag) {
  const JsonValue* value = entry.Find("type");
  const auto fail = [&](const std::string& text) -> const TypeInfo* {
    Complain(source, value ? value->offset : entry.offset, text);
    return nullptr;
  };
  std::string name = value || tag || !section.defaultType ? "" : section.defaultType;
  if (!value && !document_.types().FindName(name)) return fail("the object has no \"type\"");
  if (value && value->AsString()) name = *value->AsString();
  if (value && value->AsInteger()) name = std::to_string(*value->AsInteger());
  if (name.empty()) return fail(fmt::format("type is {}, must be a type's name or number", Shown(*value)));
  const TypeRegistry& types = document_.types();
  const TypeInfo* type = types.FindName(name);
  if (!type) {
    const bool near = !mistakes_.Full() && name.size() <= kMaxNameBytes;
    const std::string nearest = near ? types.NearestName(name) : "";
    return fail(
        fmt::format("there is no type {}{}", Quoted(name),
                    nearest.empty() ? ", nor has a loaded plug-in one; --plugins loads one" : DidYouMean(nearest)));
  }
  if (tag ? type->role == TypeRole::Tag : (section.roles & Bit(type->role)) != 0) return type;
  return fail(fmt::format("the type {} is for {}, it can't stand in {}", Quoted(name), RoleText(type->role),
                          tag ? "tags" : section.key));
}

void SceneBuilder::ReadName(const Source& source, const JsonValue& entry, BaseObject& object) {
  const JsonValue* value = entry.Find("name");
  if (!value) {
    unnamed_.push_back(&object);
    return;
  }
  const std::string* name = value->AsString();
  if (!name || name->empty() || name->size() > kMaxNameBytes || name->find('/') != std::string::npos) {
    unnamed_.push_back(&object);
    return Complain(
        source, value->offset,
        fmt::format("name is {}, must be a text of 1 to {} bytes without \"/\"", Shown(*value), kMaxNameBytes));
  }
  object.name = *name;
  const auto [first, fresh] = names_.emplace(std::pair(object.parent(), *name), Place{source, value->offset});
  if (fresh || mistakes_.Full()) return;
  const Place& other = first->second;
  Complain(source, value->offset,
           fmt::format("the name {} stands twice beneath {}, first in {}:{}; no path could tell them apart",
                       Quoted(*name), object.parent() ? Quoted(object.parent()->Path(), 300) : "the document",
                       other.source->name, LineColumnAt(other.source->text, other.offset).line));
}

void SceneBuilder::NameTheUnnamed() {
  std::map<std::pair<const BaseObject*, std::string>, int> used;
  for (BaseObject* object : unnamed_) {
    const std::string base = object->name;
    int& number = used[{object->parent(), base}];
    do {
      object->name = ++number == 1 ? base : fmt::format("{}.{}", base, number);
    } while (!names_.emplace(std::pair(object->parent(), object->name), Place()).second);
  }
  unnamed_.clear();
}

}  // namespace orlix
