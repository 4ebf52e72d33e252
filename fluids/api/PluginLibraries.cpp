#include "fluids/api/PluginLibraries.h"

#include <dlfcn.h>
#include <elf.h>
#include <fmt/format.h>
#include <link.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>

#include "fluids/api/PluginConstraint.h"
#include "fluids/api/PluginForce.h"
#include "fluids/api/PluginOperator.h"

namespace orlix {

namespace {

namespace fs = std::filesystem;

constexpr std::int32_t kFirstTypeId = 20000000, kLastTypeId = 999999999;
constexpr std::int32_t kFirstRowId = 1000, kLastRowId = 1999, kLastConstraintRowId = Constraint::kInvertId - 1;
constexpr std::int32_t kMostTypes = 1000, kMostRows = 500;
constexpr std::size_t kLongestName = 100, kLongestText = 4000;

constexpr bool Same(ZQAPI::LinkTo theirs, LinkKind ours) { return std::uint32_t{theirs} == std::uint32_t{ours}; }
Status Unfit(const std::string& file, const std::string& reason) {
  return Status::Fail(ErrorKind::InputFile, file + ": " + reason);
}

bool IsText(const char* text, std::size_t most) {
  return text && ::strnlen(text, most + 1) <= most &&
         std::none_of(text, text + std::strlen(text), [](char c) { return static_cast<unsigned char>(c) < ' '; });
}
// Lower case, digits and "_", a letter in front: what a scene file writes.
bool IsKey(const char* text) {
  if (!IsText(text, kLongestName) || *text < 'a' || *text > 'z') return false;
  return std::all_of(text, text + std::strlen(text),
                     [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_'; });
}

// The version says what a library has to be built for, sizes whether both sides mean the same by it.
Status CheckVersion(const std::string& file, const ZQAPI::Plugin& plugin) {
  if (plugin.id != ZQAPI::kLibraryId) return Unfit(file, "its zq_plugin isn't what a plug-in shows");
  constexpr std::uint32_t kGeneration = 1000;
  if (plugin.version / kGeneration != ZQAPI::kLibraryVersion / kGeneration || plugin.version > ZQAPI::kLibraryVersion) {
    return Unfit(file, fmt::format("is for version {} of the interface, this program has {}; build the plug-in with "
                                   "this program's headers",
                                   plugin.version, ZQAPI::kLibraryVersion));
  }
  if (plugin.size != sizeof(ZQAPI::Plugin) || plugin.typeSize != sizeof(ZQAPI::NodeType) ||
      plugin.rowSize != sizeof(ZQAPI::Row) || plugin.callsSize != sizeof(ZQAPI::NodeCalls)) {
    return Unfit(file,
                 "its tables have other sizes than this program's; build the plug-in with this program's headers");
  }
  if (!IsText(plugin.name, kLongestName) || !plugin.attach || !plugin.types || plugin.typeCount < 1 ||
      plugin.typeCount > kMostTypes) {
    return Unfit(file, fmt::format("its zq_plugin has no name, or not 1 to {} types", kMostTypes));
  }
  return {};
}

// --- rows

std::optional<std::string> FaultOfChoices(const ZQAPI::Row& row) {
  if (!row.choices || row.choiceCount < 1 || row.choiceCount > kMostRows) return "has no choices";
  bool hasDefault = false;
  for (std::int32_t n = 0; n < row.choiceCount; ++n) {
    const ZQAPI::RowChoice& choice = row.choices[n];
    if (!IsKey(choice.key) || !IsText(choice.text, kLongestText)) return "has a choice without a key or a text";
    hasDefault |= static_cast<double>(choice.value) == row.number;
  }
  return hasDefault ? std::nullopt : std::optional<std::string>("has a default that is no choice");
}

std::optional<std::string> FaultOfRow(const ZQAPI::Row& row, const PluginType& type) {
  const int last = type.base == PluginType::kConstraintBase ? kLastConstraintRowId : kLastRowId;
  if (row.id < kFirstRowId || row.id > last)
    return fmt::format("has id {}, must be {} to {}", row.id, kFirstRowId, last);
  if (type.Find(row.id)) return fmt::format("has id {}, which another row has", row.id);
  if (!IsKey(row.key)) return "has no key, or one with other letters than a to z, digits and \"_\"";
  if (type.FindKey(row.key)) return "has the key of another row";
  if (!IsText(row.text, kLongestText) || !*row.text || !IsText(row.unit, kLongestName)) return "has no text or unit";
  if (row.type < ZQAPI::RowType::Real || row.type > ZQAPI::RowType::Curve) return "is of no type";
  if (!IsText(row.string, kLongestText)) return "has a default that is no text";
  if (!std::isfinite(row.number) || !IsFinite(FromApi(row.vector))) return "has a default that is no number";
  const bool bounded = row.type == ZQAPI::RowType::Real || row.type == ZQAPI::RowType::Int;
  if (bounded && !(row.min <= row.number && row.number <= row.max)) return "has a default out of its range";
  if (row.type == ZQAPI::RowType::Choice) return FaultOfChoices(row);
  return std::nullopt;
}

Parameter RowOf(const ZQAPI::Row& row, PluginType& type) {
  switch (row.type) {
    case ZQAPI::RowType::Int:
      return IntParameter(row.id, row.key, static_cast<std::int64_t>(row.number), row.unit, row.text)
          .Between(std::max(row.min, double(INT32_MIN)), std::min(row.max, double(INT32_MAX)));
    case ZQAPI::RowType::Bool:
      return BoolParameter(row.id, row.key, row.number == 1, row.text);
    case ZQAPI::RowType::Vector:
      return VectorParameter(row.id, row.key, FromApi(row.vector), row.unit, row.text).Between(row.min, row.max);
    case ZQAPI::RowType::Text:
      return StringParameter(row.id, row.key, row.string, row.text);
    case ZQAPI::RowType::File:
      return FileParameter(row.id, row.key, row.text);
    case ZQAPI::RowType::Choice: {
      auto& choices = type.choices.emplace_back();
      for (std::int32_t n = 0; n < row.choiceCount; ++n) {
        choices.emplace_back(row.choices[n].value, row.choices[n].key, row.choices[n].text);
      }
      return ChoiceParameter(row.id, row.key, static_cast<std::int64_t>(row.number), choices, row.text);
    }
    case ZQAPI::RowType::Link:
      return LinkParameter(row.id, row.key, row.linkTo, row.text);
    case ZQAPI::RowType::List:
      return ListParameter(row.id, row.key, row.linkTo, row.text);
    case ZQAPI::RowType::Curve:
      return SplineParameter(row.id, row.key, {}, row.text);
    case ZQAPI::RowType::Real:
      break;
  }
  return FloatParameter(row.id, row.key, row.number, row.unit, row.text).Between(row.min, row.max);
}

// --- types

bool HasAll(const ZQAPI::NodeCalls& c, ZQAPI::Form form) {
  const bool shared = c.create && c.destroy && c.getRetrieveTypes && c.checkDirty && c.readParameters &&
                      c.resolveLinks && c.releaseLinks && c.reset && c.saveState && c.loadState && c.prepare &&
                      c.setup && c.finish;
  switch (form) {
    case ZQAPI::Form::Operator:
      return shared && c.process && c.ask && c.iterationCount;
    case ZQAPI::Form::Force:
      return shared && c.evaluateForce && c.ask;
    case ZQAPI::Form::Constraint:
      return shared && c.evaluateConstraint;
  }
  return false;
}

void SetForm(PluginType& type, ZQAPI::Form form) {
  switch (form) {
    case ZQAPI::Form::Operator:
      type.base = PluginType::kOperatorBase, type.kinds = kLinkOperator;
      break;
    case ZQAPI::Form::Force:
      type.base = PluginType::kForceBase, type.kinds = kLinkForce;
      break;
    case ZQAPI::Form::Constraint:
      type.base = PluginType::kConstraintBase, type.kinds = kLinkHelper | kLinkConstraint;
      type.common = ConstraintParameters();
      return;
  }
  type.common = CommonNodeParameters();
}

std::optional<std::string> FaultOfType(const ZQAPI::NodeType& from, const TypeRegistry& types) {
  const ZQAPI::TypeSettings& s = from.settings;
  if (!IsKey(s.resource)) return "has no name, or one with other letters than a to z, digits and \"_\"";
  if (s.id < kFirstTypeId || s.id > kLastTypeId) {
    return fmt::format("has id {}, must be {} to {}", s.id, kFirstTypeId, kLastTypeId);
  }
  if (types.FindName(s.resource)) return "has the name of a type that is there already";
  if (const TypeInfo* other = types.Find(s.id)) return fmt::format("has the id of {}, {}", other->resource, s.id);
  if (!IsText(s.label, kLongestName) || !IsText(s.text, kLongestText) || !*s.text) return "has no label or text";
  if (!from.calls || !HasAll(*from.calls, from.form)) return "lacks operations";
  if (s.state < ZQAPI::State::None || s.state > ZQAPI::State::Unsaved) return "says nothing of its state";
  if (from.form == ZQAPI::Form::Operator && (s.stage < ZQAPI::StageVolumes || s.stage > ZQAPI::StageChannelsOperators))
    return fmt::format("has stage {}, must be one of those that run nodes", static_cast<int>(s.stage));
  if (s.rows.count < 0 || s.rows.count > kMostRows || (s.rows.count > 0 && !s.rows.rows)) {
    return fmt::format("has not 0 to {} rows", kMostRows);
  }
  return std::nullopt;
}

// The name that messages give to a type, whatever it has for one.
std::string NameIn(const ZQAPI::NodeType& from, std::int32_t n) {
  return IsText(from.settings.resource, kLongestName) ? fmt::format("type \"{}\"", from.settings.resource)
                                                      : fmt::format("type {} of its table", n + 1);
}

Status TakeType(const ZQAPI::NodeType& from, const std::string& place, const TypeRegistry& types, PluginType& type) {
  if (const auto fault = FaultOfType(from, types)) return Unfit(place, *fault);
  const ZQAPI::TypeSettings& s = from.settings;
  type.id = s.id, type.resource = s.resource, type.className = s.resource;
  type.label = s.label, type.text = s.text;
  type.calls = from.calls, type.state = s.state, type.stage = s.stage;
  SetForm(type, from.form);
  type.rows.reserve(static_cast<std::size_t>(s.rows.count));
  type.choices.reserve(static_cast<std::size_t>(s.rows.count));
  for (std::int32_t n = 0; n < s.rows.count; ++n) {
    const ZQAPI::Row& row = s.rows.rows[n];
    if (const auto fault = FaultOfRow(row, type)) {
      return Unfit(place, fmt::format("row {} {}", IsKey(row.key) ? row.key : std::to_string(n + 1).c_str(), *fault));
    }
    type.rows.push_back(RowOf(row, type));
    type.parameters = type.rows;
  }
  return {};
}

// Whether a file holds all that its headers say will be mapped: the loader reads beyond the end of one that was cut
// off.
bool IsWholeLibrary(const fs::path& file) {
  std::error_code error;
  const std::uint64_t size = fs::file_size(file, error);
  std::ifstream in(file, std::ios::binary);
  ElfW(Ehdr) head{};
  if (error || !in.read(reinterpret_cast<char*>(&head), sizeof head)) return false;
  if (std::memcmp(head.e_ident, ELFMAG, SELFMAG) != 0 || head.e_phentsize != sizeof(ElfW(Phdr))) return false;
  if (head.e_phoff > size || !in.seekg(static_cast<std::streamoff>(head.e_phoff))) return false;
  for (int n = 0; n < head.e_phnum; ++n) {
    ElfW(Phdr) segment{};
    if (!in.read(reinterpret_cast<char*>(&segment), sizeof segment)) return false;
    if (segment.p_filesz > size || segment.p_offset > size - segment.p_filesz) return false;
  }
  return head.e_phnum > 0;
}

Result<std::vector<fs::path>> LibrariesIn(const fs::path& path) {
  std::error_code error;
  if (!fs::is_directory(path, error)) return std::vector<fs::path>{path};
  std::vector<fs::path> files;
  for (auto entry = fs::directory_iterator(path, error); !error && entry != fs::directory_iterator();
       entry.increment(error)) {
    if (entry->path().extension() == ".so") files.push_back(entry->path());
  }
  if (error) return Error{ErrorKind::InputFile, path.string() + ": " + error.message()};
  if (files.empty())
    return Error{ErrorKind::InputFile, path.string() + ": the folder holds no plug-in, a file \"*.so\""};
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

static_assert(Same(ZQAPI::LinkChannel, kLinkChannel) && Same(ZQAPI::LinkVolume, kLinkVolume) &&
              Same(ZQAPI::LinkSolver, kLinkSolver) && Same(ZQAPI::LinkParticles, kLinkParticles) &&
              Same(ZQAPI::LinkSettings, kLinkSettings) && Same(ZQAPI::LinkConstraint, kLinkConstraint) &&
              Same(ZQAPI::LinkGeometry, kLinkGeometry) && Same(ZQAPI::LinkHostObject, kLinkHostObject) &&
              Same(ZQAPI::LinkProperty, kLinkProperty) && Same(ZQAPI::LinkAny, kLinkAny));

Status PluginLibraries::Load(const fs::path& path, NodeFactory& factory) {
  const Result<std::vector<fs::path>> files = LibrariesIn(path);
  if (!files) return files.error();
  for (const fs::path& file : *files) {
    if (Status loaded = LoadLibrary(file, factory.types()); !loaded.ok()) return loaded;
  }
  return {};
}

Status PluginLibraries::LoadLibrary(const fs::path& file, TypeRegistry& types) {
  std::error_code error;
  const std::string name = file.string(), whole = fs::absolute(file, error).string();
  if (!fs::is_regular_file(file, error)) return Unfit(name, "there is no such plug-in");
  if (!IsWholeLibrary(file)) return Unfit(name, "it can't be loaded: it is no shared library, or one that is cut off");
  void* const handle = ::dlopen(whole.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    const char* const why = ::dlerror();
    return Unfit(name, fmt::format("it can't be loaded: {}", why ? why : "no reason is given"));
  }
  if (std::find(handles_.begin(), handles_.end(), handle) != handles_.end()) return {};
  const auto* plugin = static_cast<const ZQAPI::Plugin*>(::dlsym(handle, "zq_plugin"));
  if (!plugin) return Unfit(name, "it is no plug-in: it lacks the symbol zq_plugin, which ZQ_PLUGIN makes");
  if (Status fits = CheckVersion(name, *plugin); !fits.ok()) return fits;
  plugin->attach(&PluginLibraryTables());
  handles_.push_back(handle);
  const std::string& kept = files_.emplace_back(whole);
  for (std::int32_t n = 0; n < plugin->typeCount; ++n) {
    auto type = std::make_unique<PluginType>();
    type->plugin = plugin->name, type->library = kept.c_str();
    const std::string place = name + ": " + NameIn(plugin->types[n], n);
    if (Status taken = TakeType(plugin->types[n], place, types, *type); !taken.ok()) return taken;
    types.Add(*type);
    types_.push_back(std::move(type));
  }
  return {};
}

void RegisterPluginBases(NodeFactory& factory) {
  factory.AddBase<PluginConstraint>(PluginType::kConstraintBase);
  factory.AddBase<PluginOperator>(PluginType::kOperatorBase);
  factory.AddBase<PluginForce>(PluginType::kForceBase);
}

}  // namespace orlix
