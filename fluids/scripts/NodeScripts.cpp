#include "fluids/scripts/NodeScripts.h"

namespace orlix {

namespace {

constexpr int kForceTypeId = 13000141, kParticleForceTypeId = 1300060, kConstraintTypeId = 1300057,
              kChannelOperatorTypeId = 1300059;
// What visits the cells of a channel, and the channel of vectors.
constexpr int kCellEmitterTypeId = 1300121, kChannelId = 1000, kOperatorsId = 1001, kVectorChannelTypeId = 1300030;

}  // namespace

bool C4D_CoffeeGui_Force::DeclareVariables(const BaseObject& settings) {
  return C4D_CoffeeGui::DeclareVariables(settings) && Declare("intensity", script::Type::Number) &&
         Declare("physical_pos", script::Type::Vector) && Declare("cell_velocity", script::Type::Vector) &&
         Declare("velocity_u_index", script::Type::Number) && Declare("velocity_v_index", script::Type::Number) &&
         Declare("velocity_w_index", script::Type::Number);
}

bool C4D_CoffeeGui_PForce::DeclareVariables(const BaseObject& settings) {
  return C4D_CoffeeGui::DeclareVariables(settings) && Declare("intensity", script::Type::Number) &&
         Declare("particle_pos", script::Type::Vector) && Declare("particle_acceleration", script::Type::Vector) &&
         Declare("particle_index", script::Type::Number);
}

bool C4D_CoffeeGui_Constraint::DeclareVariables(const BaseObject& settings) {
  return C4D_CoffeeGui::DeclareVariables(settings) && Declare("intensity", script::Type::Number) &&
         Declare("invert", script::Type::Number) && Declare("physical_pos", script::Type::Vector) &&
         Declare("source_value", script::Type::Number);
}

bool C4D_CoffeeGui_ChannelOperator::DeclareVariables(const BaseObject& settings) {
  return C4D_CoffeeGui::DeclareVariables(settings) && Declare("intensity", script::Type::Number) &&
         Declare("physical_pos", script::Type::Vector) && Declare("cell_value", cellType) &&
         Declare("cell_index", script::Type::Number);
}

C4D_CoffeeGui_ChannelOperator::CellTypes C4D_CoffeeGui_ChannelOperator::CellTypesOf(const BaseObject& settings) {
  CellTypes types;
  for (const BaseObject* emitter : settings.document().ObjectsOfType(kCellEmitterTypeId)) {
    const InExcludeData* list = emitter->GetInExclude(kOperatorsId);
    const BaseObject* channel = emitter->GetLink(kChannelId);
    if (!channel || !list || !list->Contains(settings.creationNumber())) continue;
    (channel->typeId() == kVectorChannelTypeId ? types.vector : types.scalar) = true;
  }
  return types;
}

std::vector<RowMistake> FindScriptMistakes(const BaseDocument& document) {
  std::vector<RowMistake> found;
  const auto check = [&](int typeId, auto&& gui) {
    for (const BaseObject* object : document.ObjectsOfType(typeId)) gui.Check(*object, found);
  };
  check(kForceTypeId, C4D_CoffeeGui_Force());
  check(kParticleForceTypeId, C4D_CoffeeGui_PForce());
  check(kConstraintTypeId, C4D_CoffeeGui_Constraint());
  for (const BaseObject* object : document.ObjectsOfType(kChannelOperatorTypeId)) {
    const auto cells = C4D_CoffeeGui_ChannelOperator::CellTypesOf(*object);
    C4D_CoffeeGui_ChannelOperator gui;
    if (cells.scalar || !cells.vector) gui.Check(*object, found);
    gui.cellType = script::Type::Vector;
    if (cells.vector) gui.Check(*object, found);
  }
  return found;
}

}  // namespace orlix
