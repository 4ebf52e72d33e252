#pragma once
// A type that a plug-in brings: its table of parameters, made when the library is taken in, and how its nodes are
// called.

#include <vector>

#include "fluids/api/zqapi/ZQPlugin.h"
#include "host/description/TypeRegistry.h"

namespace orlix {

struct PluginType : TypeInfo {
  // The types that those of plug-ins have as their base, one a form.
  static constexpr int kConstraintBase = 1300139, kOperatorBase = 1300140, kForceBase = 1300141;

  const char* plugin = "";  // its name
  const ZQAPI::NodeCalls* calls = nullptr;
  ZQAPI::State state = ZQAPI::State::None;
  std::int32_t stage = 0;
  std::vector<Parameter> rows;               // parameters views them
  std::vector<std::vector<Choice>> choices;  // rows view them
};

}  // namespace orlix
