#pragma once
// The scripts of the four nodes: the variables that each sets, and what its main returns. Places are in simulation
// space, metres.

#include "fluids/scripts/C4D_CoffeeGui.h"

namespace orlix {

// Of Force_Coffee: a velocity change, m/s.
class C4D_CoffeeGui_Force final : public C4D_CoffeeGui {
 public:
  bool DeclareVariables(const BaseObject& settings) override;
  script::Type ResultType() const override { return script::Type::Vector; }
};

// Of ParticleForce_Coffee: an acceleration, m/s^2.
class C4D_CoffeeGui_PForce final : public C4D_CoffeeGui {
 public:
  bool DeclareVariables(const BaseObject& settings) override;
  script::Type ResultType() const override { return script::Type::Vector; }
};

// Of CoffeeConstraint: a factor.
class C4D_CoffeeGui_Constraint final : public C4D_CoffeeGui {
 public:
  bool DeclareVariables(const BaseObject& settings) override;
  script::Type ResultType() const override { return script::Type::Number; }
};

// Of ChannelOperator_Coffee: a cell's new value, of the channel's type.
class C4D_CoffeeGui_ChannelOperator final : public C4D_CoffeeGui {
 public:
  bool DeclareVariables(const BaseObject& settings) override;
  script::Type ResultType() const override { return cellType; }
  // Which of scalars and vectors the cells are that it changes, by the emitters that list it; both false for none.
  struct CellTypes {
    bool scalar = false, vector = false;
  };
  static CellTypes CellTypesOf(const BaseObject& settings);

  script::Type cellType = script::Type::Number;
};

// The mistakes of all scripts of a document, for a scene that is only read.
std::vector<RowMistake> FindScriptMistakes(const BaseDocument& document);

}  // namespace orlix
