#include "scene_file/SwitchedOff.h"

#include <fmt/format.h>

#include "scene_file/ParameterText.h"

namespace orlix {

void SwitchedOff::Read(BaseObject& object, const std::shared_ptr<const SourceText>& source, const JsonValue& value,
                       Mistakes& mistakes) {
  const bool* on = value.AsBool();
  if (!on) {
    return mistakes.Add({source, value.offset}, fmt::format("{}: enabled is {}, must be true or false",
                                                            Quoted(object.Path(), 300), Shown(value)));
  }
  if (*on) {
    numbers_.erase(object.creationNumber());
  } else {
    numbers_.insert(object.creationNumber());
  }
}

std::vector<std::string> SwitchedOff::TakeOut(BaseDocument& document) {
  std::vector<std::string> paths;
  for (const std::uint64_t number : numbers_) {
    BaseObject* object = document.FindObject(number);
    if (!object) continue;  // beneath one that is gone
    paths.push_back(object->Path());
    document.RemoveObject(*object);
  }
  return paths;
}

}  // namespace orlix
