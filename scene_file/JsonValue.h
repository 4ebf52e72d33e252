#pragma once
// A JSON value that knows where it stands in its text.

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace orlix {

struct JsonMember;

struct JsonValue {
  using Array = std::vector<JsonValue>;
  using Object = std::vector<JsonMember>;  // in the order of the text

  std::variant<std::monostate, bool, std::int64_t, double, std::string, Array, Object> content;
  std::uint32_t offset = 0;  // of its first byte

  bool IsNull() const { return content.index() == 0; }
  const bool* AsBool() const { return std::get_if<bool>(&content); }
  const std::int64_t* AsInteger() const { return std::get_if<std::int64_t>(&content); }
  const std::string* AsString() const { return std::get_if<std::string>(&content); }
  const Array* AsArray() const { return std::get_if<Array>(&content); }
  const Object* AsObject() const { return std::get_if<Object>(&content); }
  bool IsNumber() const { return AsInteger() || std::holds_alternative<double>(content); }
  double Number() const;                              // of an integer or a real, 0 otherwise
  const JsonValue* Find(std::string_view key) const;  // null in anything but an object that has the key
};

struct JsonMember {
  std::string key;
  std::uint32_t keyOffset = 0;
  JsonValue value;
};

// The value as a message shows it: short, on one line.
std::string Shown(const JsonValue& value);

}  // namespace orlix
