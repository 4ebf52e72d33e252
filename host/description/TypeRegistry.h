#pragma once
// The types of host objects: their ids, names and parameter tables. A registry is filled once when the program starts,
// plug-ins' types included, and only read afterwards.

#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "globals/EditDistance.h"
#include "host/description/Parameter.h"

namespace orlix {

class ObjectData;  // host/objects

// What a type is for: where it may stand in a scene file.
enum class TypeRole { Node, Root, Object, Tag, Light, Camera, Material, RenderSettings, Output };

struct TypeInfo {
  int id = 0;
  const char* resource = "";  // "zq_fluid"; the prefix "zq_" may be left out in a scene file
  const char* alias = "";     // a second short name, or ""
  const char* className = "";
  const char* label = "";  // what an interface calls it
  const char* text = "";   // one paragraph for the reference
  TypeRole role = TypeRole::Node;
  std::uint32_t kinds = 0;  // LinkKind bits that an object of this type satisfies
  std::span<const Parameter> parameters{};
  std::span<const Parameter> common{};  // rows shared by many types, after the type's own
  // Behaviour beyond the table: a mesh that reads a file, say. Null for most types.
  std::unique_ptr<ObjectData> (*createData)() = nullptr;
  int base = 0;              // a type that objects are instances of, too; 0 for none
  const char* library = "";  // the file of a plug-in that the type's code is in; "" for a type of our own

  const Parameter* Find(int parameterId) const;
  const Parameter* FindKey(std::string_view key) const;
  // Calls f for each row: the type's own first, then the common ones.
  template <class F>
  void ForEachParameter(F&& f) const {
    for (const Parameter& p : parameters) f(p);
    for (const Parameter& p : common) {
      if (&p == Find(p.id)) f(p);  // a type's own row replaces the common one
    }
  }
  // The resource name without its prefix: what a scene file writes.
  std::string_view ShortName() const;
};

// What a row's condition asks of another row of its type: "use_time is false".
std::string ConditionText(const TypeInfo& type, const Condition& condition);

class TypeRegistry {
 public:
  // The referenced TypeInfo lives as long as the program. Two types with one id or name are a bug.
  void Add(const TypeInfo& type);
  void Add(TypeInfo&&) = delete;

  const TypeInfo* Find(int id) const;
  const TypeInfo* FindName(std::string_view name) const;  // full resource, short name, or the id in digits
  const std::map<int, const TypeInfo*>& types() const { return types_; }
  // The registered name (short form) that is nearest by edit distance, empty when none is near.
  std::string NearestName(std::string_view name) const;

 private:
  std::map<int, const TypeInfo*> types_;
  std::map<std::string, int, std::less<>> names_;
};

}  // namespace orlix
