#pragma once
// The written reference of the types, from their tables: for the terminal, as pages, and as a schema for editors.

#include <map>
#include <string>
#include <string_view>

#include "host/description/TypeRegistry.h"

namespace orlix {

// One line a type: name, id, role, label.
std::string TypeList(const TypeRegistry& types);
// The rows of one type that act in a scene file, or all of them.
std::string TypeTable(const TypeInfo& type, bool all = false);

// A line for each row that acts in a scene file whose key has the word in it, or where none has, whose text has; and
// for each type whose name or label has it. In capitals or not; empty where nothing has it.
std::string RowsWith(const TypeRegistry& types, std::string_view word);

// File name to content: a page for each type, and index.md. The same for the same types.
std::map<std::string, std::string> MarkdownPages(const TypeRegistry& types);

// JSON Schema (draft 2020-12) of a scene file.
std::string SceneSchema(const TypeRegistry& types);
// The types as data: an array of objects with their rows. With a type, only that one.
std::string TypesAsJson(const TypeRegistry& types, const TypeInfo* only);

}  // namespace orlix
