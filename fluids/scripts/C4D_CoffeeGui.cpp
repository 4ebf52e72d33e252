#include "fluids/scripts/C4D_CoffeeGui.h"

#include <fmt/format.h>

#include <algorithm>

#include "fluids/scene/OrlixScene.h"
#include "host/script/Builtins.h"

namespace orlix {

namespace {

// A value's object, and its rows.
constexpr int kValueTypeId = 1300011, kValueKindId = 5000, kNumberId = 5001, kVectorId = 5002, kWholeNumberId = 5003;
enum class ValueKind : std::int64_t { Number, Vector, WholeNumber };

}  // namespace

bool C4D_CoffeeGui::Fail(std::string text) {
  errorText = std::move(text);
  errorLine = errorColumn = 0, errorOffset = 0;
  return false;
}

void C4D_CoffeeGui::Reset() {
  variables_.clear();
  userValues_.clear();
}

bool C4D_CoffeeGui::Declare(const std::string& name, script::Type type) {
  if (script::IsReserved(name)) return false;
  for (UserValue& value : userValues_) value.hidden |= value.name == name;
  std::erase_if(variables_, [&](const script::InputDeclaration& known) { return known.name == name; });
  variables_.push_back({name, type});
  return true;
}

bool C4D_CoffeeGui::DeclareVariables(const BaseObject& settings) {
  const InExcludeData* list = settings.GetInExclude(kValuesId);
  if (!list) return true;
  if (list->entries.size() > kMaxValues) {
    return Fail(fmt::format("{} values; a script can read {}", list->entries.size(), kMaxValues));
  }
  for (const InExcludeData::Entry& entry : list->entries) {
    const BaseObject* object = settings.document().FindObject(entry.target);
    if (!object) continue;
    if (object->typeId() != kValueTypeId) {
      return Fail(fmt::format("\"{}\" is of type \"{}\", must be a value: an object of type \"rate\"", object->Path(),
                              object->type().ShortName()));
    }
    const bool twice = std::any_of(userValues_.begin(), userValues_.end(),
                                   [&](const UserValue& known) { return known.name == object->name; });
    if (twice) return Fail(fmt::format("two values are called \"{}\"; a script can't tell them apart", object->name));
    const auto kind = object->GetChoice<ValueKind>(kValueKindId);
    const bool isVector = kind == ValueKind::Vector;
    const Vec3D value = isVector                         ? object->GetVector(kVectorId)
                        : kind == ValueKind::WholeNumber ? Vec3D(static_cast<double>(object->GetInt(kWholeNumberId)))
                                                         : Vec3D(object->GetDouble(kNumberId));
    const script::Type type = isVector ? script::Type::Vector : script::Type::Number;
    if (!Declare(object->name, type)) {
      return Fail(
          fmt::format("{} can't be the name of a variable: letters, digits and \"_\", no digit in front, and "
                      "no word of the language; give the value another name",
                      script::Shown(object->name)));
    }
    userValues_.push_back({object->name, type, value});
  }
  return true;
}

bool C4D_CoffeeGui::Compile() {
  const auto same = [](const script::InputDeclaration& a, const script::InputDeclaration& b) {
    return a.name == b.name && a.type == b.type;
  };
  const bool known =
      program_ && sourceText == compiledText_ &&
      std::equal(variables_.begin(), variables_.end(), compiledVariables_.begin(), compiledVariables_.end(), same);
  if (known) return true;
  // A copy may go on with what it shares.
  machines_ = std::make_shared<std::vector<script::Machine>>();
  program_.reset();
  auto outcome = script::Compile(sourceText, variables_, ResultType());
  if (const auto* error = std::get_if<script::ScriptError>(&outcome)) {
    errorText = error->text, errorLine = error->line, errorColumn = error->column, errorOffset = error->offset;
    return false;
  }
  program_ = std::make_shared<const script::Program>(std::get<script::Program>(std::move(outcome)));
  compiledText_ = sourceText, compiledVariables_ = variables_;
  return true;
}

void C4D_CoffeeGui::Allocate(std::int32_t workers) {
  const auto count = static_cast<std::size_t>(std::max(workers, 1));
  if (program_ && machines_->size() < count) machines_->resize(count, script::Machine(*program_));
}

bool C4D_CoffeeGui::Prepare(const BaseObject* settings, std::int32_t workers) {
  if (!settings) return false;
  Reset();
  sourceText = settings->GetString(kScriptId);
  if (!DeclareVariables(*settings) || !Compile()) return false;
  Allocate(workers);
  for (const UserValue& value : userValues_) {
    if (value.hidden) continue;
    if (value.type == script::Type::Vector) {
      SetVector(value.value, value.name);
    } else {
      SetNumber(value.value.x, value.name);
    }
  }
  return true;
}

const script::Input* C4D_CoffeeGui::Find(std::string_view name) const {
  const script::Input* input = program_ ? program_->Find(name) : nullptr;
  return input && input->used ? input : nullptr;
}

bool C4D_CoffeeGui::SetNumber(double value, std::string_view name) {
  const script::Input* input = program_ ? program_->Find(name) : nullptr;
  if (!input || input->type != script::Type::Number) return false;
  for (script::Machine& machine : *machines_) machine.SetNumber(*input, value);
  return true;
}

bool C4D_CoffeeGui::SetVector(const Vec3D& value, std::string_view name) {
  const script::Input* input = program_ ? program_->Find(name) : nullptr;
  if (!input || input->type != script::Type::Vector) return false;
  for (script::Machine& machine : *machines_) machine.SetVector(*input, value);
  return true;
}

void C4D_CoffeeGui::Advise(const iBase& node, std::optional<int> intensityRow) {
  const BaseObject* settings = node.handler.hostObject();
  if (!Prepare(settings, node.GetScene().HostWorkers())) {
    const std::string place = errorLine > 0 ? fmt::format("line {}, column {}: ", errorLine, errorColumn) : "";
    return node.Warn("script", fmt::format("its script can't run, so it does nothing: {}{}", place, errorText));
  }
  if (!program_->resultType) {
    node.Warn("no-main", "its script has no function main, so it gives 0 everywhere; write main(op) { return ...; }");
  }
  for (const UserValue& value : userValues_) {
    if (value.hidden) {
      node.Warn("value-hidden:" + value.name,
                fmt::format("the node itself sets \"{0}\", so the value of that name isn't read; rename the value",
                            value.name));
    } else if (!Find(value.name)) {
      node.Warn("value-not-read:" + value.name,
                fmt::format("the script doesn't read \"{}\"; take the value out of the list", value.name));
    }
  }
  const double intensity = intensityRow ? node.handler.GetDouble(*intensityRow) : 1;
  if (intensity != 1 && intensity != 0 && !Find("intensity")) {
    node.Warn("intensity-not-read",
              "its intensity does nothing, as the script doesn't read it; multiply the result by \"intensity\"");
  }
}

void C4D_CoffeeGui::TellFailures(const iBase& node) {
  script::Failure all;
  for (script::Machine& machine : *machines_) {
    const script::Failure failure = machine.TakeFailure();
    all.Note(failure.kind, failure.line);
  }
  if (all.kind == script::FailureKind::TooManyInstructions) {
    node.Warn(
        "script-too-long",
        fmt::format("samples for which the script executes more than {:.0f} instructions in its loops count as 0; "
                    "the loop in line {} takes too long",
                    script::Machine::kMaxSteps, all.line));
  } else if (all.kind == script::FailureKind::NotFinite) {
    node.Warn(
        "script-not-finite",
        fmt::format("samples for which the script gives no finite number count as 0; look for a division by 0, or "
                    "a root or logarithm of a number below 0, in what main returns in line {}",
                    all.line));
  }
}

void C4D_CoffeeGui::Check(const BaseObject& settings, std::vector<RowMistake>& found) {
  Reset();
  sourceText = settings.GetString(kScriptId);
  if (!DeclareVariables(settings)) {
    found.push_back({settings.creationNumber(), kValuesId, "lists " + errorText});
  } else if (!Compile()) {
    found.push_back({settings.creationNumber(), kScriptId,
                     fmt::format("in line {}, column {}: {}", errorLine, errorColumn, errorText), ErrorKind::Scene,
                     static_cast<std::int64_t>(errorOffset)});
  }
}

}  // namespace orlix
