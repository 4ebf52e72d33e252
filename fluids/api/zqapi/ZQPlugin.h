#pragma once
// The one header that a plug-in includes. It needs C++20 and nothing else; ZQ_PLUGIN says what the library holds.
//
//   class Gust final : public TESSU_API::PluginForceData { ... };
//   constexpr ZQAPI::Row kGustRows[] = {ZQAPI::RealRow(1000, "strength", 1, "m/s^2", "How hard it pushes")};
//   constexpr ZQAPI::NodeType kTypes[] = {ZQAPI::TypeOf<Gust>({.id = 20001000,
//                                                              .resource = "studio_gust",
//                                                              .label = "Studio::Gust",
//                                                              .text = "Wind that comes and goes.",
//                                                              .rows = kGustRows})};
//   ZQ_PLUGIN("studio", kTypes)

#include <cstddef>
#include <cstdio>
#include <exception>
#include <limits>
#include <new>
#include <type_traits>

#include "ZQNodeData.h"

namespace ZQAPI {

// --- parameters, as scene files write them

enum class RowType : std::int32_t { Real, Int, Bool, Vector, Text, File, Choice, Link, List, Curve };

struct RowChoice {
  std::int64_t value = 0;
  const char* key = "";   // what a scene file may write instead of the number
  const char* text = "";  // one line
};

// What a link may point to; several are ORed.
enum LinkTo : std::uint32_t {
  LinkChannel = 1u << 1,
  LinkVolume = 1u << 2,
  LinkSolver = 1u << 5,
  LinkParticles = 1u << 6,
  LinkSettings = 1u << 10,
  LinkConstraint = 1u << 13,
  LinkGeometry = 1u << 19,
  LinkHostObject = 1u << 24,
  LinkProperty = 1u << 26,
  LinkAny = 0xffffffffu
};

struct Row {
  std::int32_t id = 0;   // 1000 to 1999, of a constraint 1000 to 1099
  const char* key = "";  // lower case, digits and "_"; unique in its type
  RowType type = RowType::Real;
  const char* unit = "";  // "m", "s", "m/s^2", ...; "" without a dimension
  const char* text = "";  // one line, what it does
  double number = 0;      // the default
  Vec3D vector;
  const char* string = "";
  double min = -std::numeric_limits<double>::infinity(), max = std::numeric_limits<double>::infinity();
  const RowChoice* choices = nullptr;
  std::int32_t choiceCount = 0;
  std::uint32_t linkTo = LinkAny;

  constexpr Row Between(double low, double high) const {
    Row row = *this;
    row.min = low, row.max = high;
    return row;
  }
};

constexpr Row MakeRow(std::int32_t id, const char* key, RowType type, const char* unit, const char* text) {
  Row row;
  row.id = id, row.key = key, row.type = type, row.unit = unit, row.text = text;
  return row;
}
constexpr Row RealRow(std::int32_t id, const char* key, double value, const char* unit, const char* text) {
  Row row = MakeRow(id, key, RowType::Real, unit, text);
  row.number = value;
  return row;
}
constexpr Row IntRow(std::int32_t id, const char* key, std::int32_t value, const char* unit, const char* text) {
  Row row = MakeRow(id, key, RowType::Int, unit, text);
  row.number = value;
  return row;
}
constexpr Row BoolRow(std::int32_t id, const char* key, bool value, const char* text) {
  Row row = MakeRow(id, key, RowType::Bool, "", text);
  row.number = value ? 1 : 0;
  return row;
}
constexpr Row VectorRow(std::int32_t id, const char* key, const Vec3D& value, const char* unit, const char* text) {
  Row row = MakeRow(id, key, RowType::Vector, unit, text);
  row.vector = value;
  return row;
}
constexpr Row TextRow(std::int32_t id, const char* key, const char* value, const char* text) {
  Row row = MakeRow(id, key, RowType::Text, "", text);
  row.string = value;
  return row;
}
// The content of the file decides whether a checkpoint still fits.
constexpr Row FileRow(std::int32_t id, const char* key, const char* text) {
  return MakeRow(id, key, RowType::File, "", text);
}
template <std::size_t N>
constexpr Row ChoiceRow(std::int32_t id, const char* key, std::int64_t value, const RowChoice (&choices)[N],
                        const char* text) {
  Row row = MakeRow(id, key, RowType::Choice, "", text);
  row.number = static_cast<double>(value), row.choices = choices, row.choiceCount = static_cast<std::int32_t>(N);
  return row;
}
constexpr Row LinkRow(std::int32_t id, const char* key, std::uint32_t linkTo, const char* text) {
  Row row = MakeRow(id, key, RowType::Link, "", text);
  row.linkTo = linkTo;
  return row;
}
constexpr Row ListRow(std::int32_t id, const char* key, std::uint32_t linkTo, const char* text) {
  Row row = MakeRow(id, key, RowType::List, "", text);
  row.linkTo = linkTo;
  return row;
}
constexpr Row CurveRow(std::int32_t id, const char* key, const char* text) {
  return MakeRow(id, key, RowType::Curve, "", text);
}

struct RowList {
  const Row* rows = nullptr;
  std::int32_t count = 0;
  constexpr RowList() = default;
  template <std::size_t N>
  constexpr RowList(const Row (&table)[N]) : rows(table), count(static_cast<std::int32_t>(N)) {}  // NOLINT
};

// --- types

// What a node keeps from one sub-step to the next beside its settings.
enum class State : std::int32_t {
  None,    // nothing
  Saved,   // what SaveState writes
  Unsaved  // something that isn't saved: a run can't be resumed
};

struct TypeSettings {
  std::int32_t id = 0;        // the studio's own, 20000000 to 999999999
  const char* resource = "";  // what a scene file writes as "type": lower case, digits and "_"
  const char* label = "";     // what an interface calls it
  const char* text = "";      // one paragraph for the reference
  RowList rows = {};
  State state = State::None;
  Stage stage = StageOperators;  // of an operator; a scene file may choose another
};

enum class Form : std::int32_t { Operator, Force, Constraint };

// --- how the engine calls: tables of functions that no exception leaves

enum class Outcome : std::int32_t { False, True, Threw, NoMemory };

struct Fault {
  char text[512];
};

struct ByteSink {
  void* target;
  void (*write)(void* target, const void* bytes, std::int64_t size);
};

enum class Question : std::int32_t {
  RunsSerially,
  IsIterated,
  PreparesEachIteration,
  EvaluatesOnUpdate,
  ReadsVelocity
};

struct NodeCalls {
  void* (*create)(Fault*) = nullptr;  // null when it threw
  void (*destroy)(void*) = nullptr;
  Outcome (*getRetrieveTypes)(void*, std::uint32_t*, Fault*) = nullptr;
  Outcome (*checkDirty)(void*, BaseDocument*, Fault*) = nullptr;
  Outcome (*readParameters)(void*, BaseObject*, Fault*) = nullptr;
  Outcome (*resolveLinks)(void*, BaseObject*, ZQServer*, Fault*) = nullptr;
  Outcome (*releaseLinks)(void*, Fault*) = nullptr;
  Outcome (*reset)(void*, Fault*) = nullptr;
  Outcome (*saveState)(void*, const ByteSink*, Fault*) = nullptr;
  Outcome (*loadState)(void*, const std::uint8_t*, std::int64_t, Fault*) = nullptr;
  Outcome (*prepare)(void*, ZQServer*, Fault*) = nullptr;
  Outcome (*setup)(void*, ZQServer*, Fault*) = nullptr;
  Outcome (*finish)(void*, Fault*) = nullptr;
  Outcome (*process)(void*, ProcessData*, Fault*) = nullptr;                       // of operators
  Outcome (*evaluateForce)(void*, const ForceBatch*, Fault*) = nullptr;            // of forces
  Outcome (*evaluateConstraint)(void*, const ConstraintBatch*, Fault*) = nullptr;  // of constraints
  Outcome (*ask)(void*, Question, Fault*) = nullptr;                               // of operators and forces
  Outcome (*iterationCount)(void*, std::int32_t*, Fault*) = nullptr;               // of operators
};

struct NodeType {
  TypeSettings settings;
  Form form = Form::Operator;
  const NodeCalls* calls = nullptr;
};

namespace detail {

template <class F>
Outcome Guarded(Fault* fault, F&& f) noexcept {
#if __cpp_exceptions
  try {
    return f() ? Outcome::True : Outcome::False;
  } catch (const std::bad_alloc&) {
    return Outcome::NoMemory;
  } catch (const std::exception& error) {
    std::snprintf(fault->text, sizeof fault->text, "%s", error.what());
  } catch (...) {
    std::snprintf(fault->text, sizeof fault->text, "something that is no std::exception");
  }
  return Outcome::Threw;
#else
  static_cast<void>(fault);
  return f() ? Outcome::True : Outcome::False;
#endif
}

// Hidden: another plug-in may have a class of the same name.
#define ZQ_HIDDEN __attribute__((visibility("hidden")))
template <class Node>
struct ZQ_HIDDEN Stubs {
  static Node& Of(void* self) { return *static_cast<Node*>(self); }

  static void* Create(Fault* fault) noexcept {
    Node* node = nullptr;
    const Outcome outcome = Guarded(fault, [&] { return (node = new Node()) != nullptr; });
    if (outcome == Outcome::NoMemory) std::snprintf(fault->text, sizeof fault->text, "memory doesn't suffice");
    return node;
  }
  static void Destroy(void* self) noexcept { delete &Of(self); }
  static Outcome GetRetrieveTypes(void* self, std::uint32_t* mask, Fault* fault) noexcept {
    return Guarded(fault, [&] { return Of(self).GetRetrieveTypes(*mask), true; });
  }
  static Outcome CheckDirty(void* self, BaseDocument* document, Fault* fault) noexcept {
    return Guarded(fault, [&] { return Of(self).CheckDirty(document); });
  }
  static Outcome ReadParameters(void* self, BaseObject* host, Fault* fault) noexcept {
    return Guarded(fault, [&] { return Of(self).ReadParameters(host); });
  }
  static Outcome ResolveLinks(void* self, BaseObject* host, ZQServer* server, Fault* fault) noexcept {
    return Guarded(fault, [&] { return Of(self).ResolveLinks(host, server); });
  }
  static Outcome ReleaseLinks(void* self, Fault* fault) noexcept {
    return Guarded(fault, [&] { return Of(self).ReleaseLinks(), true; });
  }
  static Outcome Reset(void* self, Fault* fault) noexcept {
    return Guarded(fault, [&] { return Of(self).Reset(), true; });
  }
  static Outcome SaveState(void* self, const ByteSink* sink, Fault* fault) noexcept {
    return Guarded(fault, [&] {
      std::vector<std::uint8_t> bytes;
      Of(self).SaveState(bytes);
      sink->write(sink->target, bytes.data(), static_cast<std::int64_t>(bytes.size()));
      return true;
    });
  }
  static Outcome LoadState(void* self, const std::uint8_t* bytes, std::int64_t size, Fault* fault) noexcept {
    return Guarded(fault, [&] { return Of(self).LoadState(bytes, static_cast<std::size_t>(size)); });
  }
  static Outcome Prepare(void* self, ZQServer* server, Fault* fault) noexcept {
    return Guarded(fault, [&] { return Of(self).Prepare(server); });
  }
  static Outcome Setup(void* self, ZQServer* server, Fault* fault) noexcept {
    return Guarded(fault, [&] { return Of(self).Setup(server); });
  }
  static Outcome Finish(void* self, Fault* fault) noexcept {
    return Guarded(fault, [&] { return Of(self).Finish(), true; });
  }
  static Outcome Process(void* self, ProcessData* data, Fault* fault) noexcept {
    return Guarded(fault, [&] { return Of(self).Process(*data); });
  }
  template <class Batch>
  static Outcome Evaluate(void* self, const Batch* batch, Fault* fault) noexcept {
    return Guarded(fault, [&] { return Of(self).EvaluateBatch(*batch), true; });
  }
  static Outcome Ask(void* self, Question question, Fault* fault) noexcept {
    return Guarded(fault, [&] {
      if constexpr (std::is_base_of_v<TESSU_API::PluginForceData, Node>) {
        return question == Question::ReadsVelocity && Of(self).ReadsVelocity();
      } else {
        switch (question) {
          case Question::RunsSerially:
            return Of(self).RunsSerially();
          case Question::IsIterated:
            return Of(self).IsIterated();
          case Question::PreparesEachIteration:
            return Of(self).PreparesEachIteration();
          case Question::EvaluatesOnUpdate:
            return Of(self).EvaluatesOnUpdate();
          default:
            return false;
        }
      }
    });
  }
  static Outcome IterationCount(void* self, std::int32_t* count, Fault* fault) noexcept {
    return Guarded(fault, [&] { return *count = Of(self).IterationCount(), true; });
  }
};

template <class Node>
constexpr Form FormOf() {
  if constexpr (std::is_base_of_v<TESSU_API::PluginForceData, Node>) {
    return Form::Force;
  } else if constexpr (std::is_base_of_v<TESSU_API::PluginConstraintData, Node>) {
    return Form::Constraint;
  } else {
    static_assert(std::is_base_of_v<TESSU_API::PluginOperatorData, Node>, "no node of a plug-in");
    return Form::Operator;
  }
}

template <class Node>
constexpr NodeCalls CallsOf() {
  using S = Stubs<Node>;
  NodeCalls calls;
  calls.create = S::Create, calls.destroy = S::Destroy;
  calls.getRetrieveTypes = S::GetRetrieveTypes, calls.checkDirty = S::CheckDirty;
  calls.readParameters = S::ReadParameters, calls.resolveLinks = S::ResolveLinks, calls.releaseLinks = S::ReleaseLinks;
  calls.reset = S::Reset, calls.saveState = S::SaveState, calls.loadState = S::LoadState;
  calls.prepare = S::Prepare, calls.setup = S::Setup, calls.finish = S::Finish;
  if constexpr (FormOf<Node>() == Form::Force) {
    calls.evaluateForce = S::template Evaluate<ForceBatch>, calls.ask = S::Ask;
  } else if constexpr (FormOf<Node>() == Form::Constraint) {
    calls.evaluateConstraint = S::template Evaluate<ConstraintBatch>;
  } else {
    calls.process = S::Process, calls.ask = S::Ask, calls.iterationCount = S::IterationCount;
  }
  return calls;
}
template <class Node>
[[gnu::visibility("hidden")]] inline constexpr NodeCalls kCalls = CallsOf<Node>();

[[gnu::visibility("hidden")]] inline void Attach(const Library* library) { theLibrary = library; }

}  // namespace detail

// A type whose nodes are of class Node, which has a constructor without arguments.
template <class Node>
constexpr NodeType TypeOf(const TypeSettings& settings) {
  return {settings, detail::FormOf<Node>(), &detail::kCalls<Node>};
}

// What a library shows to the engine.
struct Plugin {
  std::uint32_t id = kLibraryId, version = kLibraryVersion;
  std::uint32_t size = 0, typeSize = sizeof(NodeType), rowSize = sizeof(Row), callsSize = sizeof(NodeCalls);
  const char* name = "";
  const NodeType* types = nullptr;
  std::int32_t typeCount = 0;
  void (*attach)(const Library*) = nullptr;
};

template <std::size_t N>
constexpr Plugin MakePlugin(const char* name, const NodeType (&types)[N]) {
  Plugin plugin;
  plugin.size = sizeof(Plugin);
  plugin.name = name, plugin.types = types, plugin.typeCount = static_cast<std::int32_t>(N);
  plugin.attach = detail::Attach;
  return plugin;
}

}  // namespace ZQAPI

// Once in a library.
#define ZQ_PLUGIN(NAME, TYPES)                                             \
  extern "C" [[gnu::visibility("default")]] const ZQAPI::Plugin zq_plugin; \
  constinit const ZQAPI::Plugin zq_plugin = ZQAPI::MakePlugin(NAME, TYPES);
