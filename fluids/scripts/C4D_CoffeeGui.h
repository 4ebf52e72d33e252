#pragma once
// What the nodes share whose inner formula is a script: its variables, its compiled form, and a machine for each
// worker.
//
//   gui.Prepare(object, workers);                         // on the stage's thread: false when there is nothing to run
//   gui.SetNumber(intensity, "intensity");                // the same for all samples
//   const script::Input* index = gui.Find("cell_index");  // null where the script doesn't read it
//   script::Machine* machine = gui.MachineOf(thread);     // on a worker, for each batch of samples:
//   SetIndices(*machine, index, first, count);            // ScriptLanes.h
//   machine->Run(count, amounts);
//
// Nodes look their variables up by name once a pass. A variable that the script doesn't read costs nothing. A copy
// shares the program and the machines, for a node of the same settings that is asked in the same pass.

#include <cassert>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fluids/scene/iBase.h"
#include "host/objects/RowMistake.h"
#include "host/script/Compiler.h"
#include "host/script/Machine.h"

namespace orlix {

class C4D_CoffeeGui {
 public:
  static constexpr int kScriptId = 9002, kValuesId = 9003;
  static constexpr std::size_t kMaxValues = 256;

  virtual ~C4D_CoffeeGui() = default;

  // The user's variables, from the object's list of values; a subclass goes on with those of its node. False when a
  // value can't be a variable: errorText then says why.
  virtual bool DeclareVariables(const BaseObject& settings);
  // What main has to return.
  virtual script::Type ResultType() const = 0;

  // Reads the object's script and variables and compiles them, where they have changed. False when that fails:
  // errorText says why, and nothing is to run. workers: those of the pool in this pass, which in a picture are more
  // than the scene has threads.
  bool Prepare(const BaseObject* settings, std::int32_t workers);
  // Each part of that.
  void Reset();
  // At least one machine for each of the workers.
  void Allocate(std::int32_t workers);
  // Takes the place of a variable of that name. False when the name can't be one.
  bool Declare(const std::string& name, script::Type type);
  bool Compile();

  // A value for all samples and workers, from here on. False when no such variable is declared.
  bool SetNumber(double value, std::string_view name);
  bool SetVector(const Vec3D& value, std::string_view name);

  // A variable of the compiled script, null where the script doesn't read it.
  const script::Input* Find(std::string_view name) const;
  // The worker's own. Null without a program.
  script::Machine* MachineOf(std::int32_t worker) {
    if (!program_) return nullptr;
    assert(static_cast<std::size_t>(worker) < machines_->size() && "a worker that Prepare wasn't told of");
    return &(*machines_)[static_cast<std::size_t>(worker)];
  }

  // Tells by the node's warnings what is wrong with the script or does nothing. intensityRow: the node's "Intensity",
  // which acts through the script alone; nothing where it acts besides.
  void Advise(const iBase& node, std::optional<int> intensityRow);
  // Tells of samples that failed in the passes since the last call.
  void TellFailures(const iBase& node);
  // What is wrong with the object's script and list of values, for a scene that is only read.
  void Check(const BaseObject& settings, std::vector<RowMistake>& found);

  std::string sourceText;
  // Where the last compilation failed: the line and column, from 1, and the byte. In line 0, at no place of the script.
  std::string errorText;
  int errorLine = 0, errorColumn = 0;
  std::size_t errorOffset = 0;

 private:
  struct UserValue {
    std::string name;
    script::Type type;
    Vec3D value;          // a number stands in x
    bool hidden = false;  // a variable of the node has its name
  };
  bool Fail(std::string text);

  std::vector<script::InputDeclaration> variables_, compiledVariables_;
  std::vector<UserValue> userValues_;
  std::string compiledText_;
  std::shared_ptr<const script::Program> program_;
  std::shared_ptr<std::vector<script::Machine>> machines_ = std::make_shared<std::vector<script::Machine>>();
};

// Rows that script nodes share: the script, with its default, and the list of values.
constexpr Parameter ScriptRow(const char* defaultText) {
  return ScriptParameter(C4D_CoffeeGui::kScriptId, "script", defaultText,
                         "The formula: a function main that returns what the node takes, in the language of scripts");
}
constexpr Parameter ScriptValuesRow() {
  return ListParameter(C4D_CoffeeGui::kValuesId, "values", kLinkSettings,
                       "Objects of type \"rate\" that the script reads by their names");
}

}  // namespace orlix
