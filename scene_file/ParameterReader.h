#pragma once
// The parameters of an object in a scene file: `"cell_size": 0.2`, `"1002": 0.2`, `"1002 cell_size": 0.2`,
// `"cell_size@": {"keys": [...]}`. Everything comes from the type's table; links and lists wait until all objects are
// there.

#include <map>
#include <string_view>
#include <utility>
#include <vector>

#include "scene_file/ObjectIndex.h"
#include "scene_file/ParameterSite.h"
#include "scene_file/ScenePlaces.h"

namespace orlix {

class ParameterReader {
 public:
  // load reads the files that scripts stand in; it outlives the reader.
  ParameterReader(BaseDocument& document, Mistakes& mistakes, const LoadText& load)
      : document_(document), mistakes_(mistakes), load_(load) {}

  // Sets each member on the object, except those whose keys are in skip (the entry's own: type, name, ...).
  void Read(BaseObject& object, const std::shared_ptr<const SourceText>& source, const JsonValue::Object& members,
            const std::vector<std::string_view>& skip);
  // Finds what the links and lists of all objects read so far name, and sets them.
  void ResolveReferences(const ObjectIndex& index);
  ScenePlaces& places() { return places_; }
  ScenePlaces TakePlaces() { return std::move(places_); }

 private:
  struct Target {
    std::uint32_t offset;
    std::string name;
    std::uint32_t flags;
  };
  struct Reference {
    ParameterSite site;
    std::vector<Target> targets;
  };

  BaseDocument& document_;
  Mistakes& mistakes_;
  const LoadText& load_;
  std::vector<Reference> references_;
  ScenePlaces places_;

  struct Spelling {
    const Parameter* row = nullptr;
    bool keys = false;
  };
  Spelling ReadSpelling(const BaseObject& object, const Place& place, std::string_view key,
                        const std::vector<std::string_view>& skip);
  void ReadMember(const ParameterSite& site, const JsonValue& value, bool keys);
  void ReadScriptRow(const ParameterSite& site, const JsonValue& value);
  void ReadReference(const ParameterSite& site, const JsonValue& value);
  void ReadList(const ParameterSite& site, const JsonValue& value);
  BaseObject* Resolve(const ParameterSite& site, const Target& target, const ObjectIndex& index);
};

}  // namespace orlix
