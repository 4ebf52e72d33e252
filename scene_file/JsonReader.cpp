#include "scene_file/JsonReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "scene_file/JsonText.h"

namespace orlix {

namespace {

using Json = nlohmann::json;

// Builds the tree from the parser's events. The events carry no position, so a cursor follows them through the text:
// what the parser has accepted is well-formed, and the next token is found by skipping blanks, commas and colons.
class TreeBuilder : public nlohmann::json_sax<Json> {
 public:
  TreeBuilder(std::shared_ptr<const SourceText> source, Mistakes& mistakes)
      : source_(std::move(source)), text_(source_->text), mistakes_(mistakes) {}

  std::optional<JsonValue> Take() { return std::move(root_); }
  const std::optional<std::pair<std::size_t, std::string>>& failure() const { return failure_; }

  bool null() override { return Add({}, WordEnd()); }
  bool boolean(bool value) override { return Add(value, WordEnd()); }
  bool number_integer(std::int64_t value) override { return Add(value, WordEnd()); }
  bool number_unsigned(std::uint64_t value) override {
    if (value > static_cast<std::uint64_t>(INT64_MAX)) return Add(static_cast<double>(value), WordEnd());
    return Add(static_cast<std::int64_t>(value), WordEnd());
  }
  bool number_float(double value, const std::string&) override { return Add(value, WordEnd()); }
  bool string(std::string& value) override { return Add(std::move(value), StringEnd()); }
  bool binary(Json::binary_t&) override { return false; }

  bool start_object(std::size_t) override { return Open(JsonValue::Object()); }
  bool start_array(std::size_t) override { return Open(JsonValue::Array()); }
  bool end_object() override {
    FindTwins(std::get<JsonValue::Object>(open_.back()->content));
    return Close();
  }
  bool end_array() override { return Close(); }

  bool key(std::string& name) override {
    auto& members = std::get<JsonValue::Object>(open_.back()->content);
    JsonMember& member = members.emplace_back();
    member.keyOffset = static_cast<std::uint32_t>(NextToken());
    member.key = std::move(name);
    cursor_ = StringEnd();
    return Count();
  }

  bool parse_error(std::size_t position, const std::string&, const Json::exception& error) override {
    // position counts the bytes that were read. A bad string is bad at the last of them, a bad token from its start on.
    const std::string_view message = error.what();
    std::size_t at = std::min(position > 0 ? position - 1 : 0, text_.size());
    const bool inString = message.find("invalid string") != message.npos;
    if (const std::size_t token = NextToken(); !inString && token < position) at = token;
    std::string wording = Wording(message);
    if (message.find("invalid literal") != message.npos) {
      wording += " " + Quoted(text_.substr(at, std::min(text_.find_first_of(kWordEnds, at), text_.size()) - at));
    }
    failure_.emplace(at, wording);
    return false;
  }

 private:
  std::shared_ptr<const SourceText> source_;
  const std::string& text_;
  static constexpr const char* kWordEnds = " \t\r\n,:{}[]\"";

  Mistakes& mistakes_;
  std::optional<JsonValue> root_;
  std::vector<JsonValue*> open_;  // a container's storage stands still while one of its values is open
  std::size_t cursor_ = 0, count_ = 0;
  std::optional<std::pair<std::size_t, std::string>> failure_;

  std::size_t NextToken() const { return std::min(text_.find_first_not_of(" \t\r\n,:", cursor_), text_.size()); }
  std::size_t WordEnd() const { return std::min(text_.find_first_of(kWordEnds, NextToken()), text_.size()); }
  std::size_t StringEnd() const {
    std::size_t k = NextToken() + 1;
    while (k < text_.size() && text_[k] != '"') k += text_[k] == '\\' ? 2 : 1;
    return std::min(k + 1, text_.size());
  }

  bool Count() {
    if (++count_ <= kMaxJsonValues) return true;
    failure_.emplace(cursor_, fmt::format("more than {} values", kMaxJsonValues));
    return false;
  }

  JsonValue* Place(JsonValue value) {
    if (open_.empty()) return &root_.emplace(std::move(value));
    if (auto* array = std::get_if<JsonValue::Array>(&open_.back()->content)) {
      return &array->emplace_back(std::move(value));
    }
    return &(std::get<JsonValue::Object>(open_.back()->content).back().value = std::move(value));
  }

  template <class Content>
  JsonValue* PlaceAt(Content content, std::size_t end) {
    JsonValue value;
    value.content = std::move(content);
    value.offset = static_cast<std::uint32_t>(NextToken());
    cursor_ = end;
    return Place(std::move(value));
  }
  template <class Content>
  bool Add(Content content, std::size_t end) {
    PlaceAt(std::move(content), end);
    return Count();
  }
  bool Add(std::monostate content, std::size_t end) {
    PlaceAt(content, end);
    return Count();
  }
  template <class Content>
  bool Open(Content content) {
    open_.push_back(PlaceAt(std::move(content), NextToken() + 1));
    return Count();
  }
  bool Close() {
    cursor_ = NextToken() + 1;
    open_.pop_back();
    return true;
  }

  void FindTwins(const JsonValue::Object& members) {
    std::vector<const JsonMember*> sorted;
    for (const JsonMember& member : members) sorted.push_back(&member);
    std::stable_sort(sorted.begin(), sorted.end(), [](const auto* a, const auto* b) { return a->key < b->key; });
    for (std::size_t i = 1; i < sorted.size(); ++i) {
      if (sorted[i]->key != sorted[i - 1]->key || mistakes_.Full()) continue;
      const int line = LineColumnAt(text_, sorted[i - 1]->keyOffset).line;
      mistakes_.Add({source_, sorted[i]->keyOffset},
                    fmt::format("the key {} stands twice, first in line {}", Quoted(sorted[i]->key), line));
    }
  }

  // The library's message without its prefix "[...] parse error at line 3, column 5: syntax error while parsing " and
  // without what it read last, which goes back beyond the token.
  static std::string Wording(std::string_view message) {
    if (const auto bracket = message.find("] "); bracket != message.npos) message.remove_prefix(bracket + 2);
    if (message.starts_with("parse error at")) message.remove_prefix(std::min(message.find(": ") + 2, message.size()));
    constexpr std::string_view kPrefix = "syntax error while parsing ";
    if (message.starts_with(kPrefix)) message.remove_prefix(kPrefix.size());
    std::string text = "no JSON: " + std::string(message.substr(0, message.find("; last read:")));
    if (const auto expected = message.rfind("; expected "); expected != message.npos && expected > text.size()) {
      text += message.substr(expected);
    }
    return Shortened(text, 200);
  }
};

}  // namespace

std::optional<JsonValue> ReadJson(const std::shared_ptr<SourceText>& source, Mistakes& mistakes) {
  const auto fail = [&](std::size_t offset, std::string text) {
    mistakes.Add({source, static_cast<std::uint32_t>(offset)}, std::move(text));
    return std::nullopt;
  };
  if (source->text.size() > kMaxSceneBytes) {
    return fail(0, fmt::format("{} bytes of text, at most {} are read", source->text.size(), kMaxSceneBytes));
  }
  if (const auto mistake = CleanJsonText(source->text)) return fail(mistake->offset, mistake->text);
  if (source->text.find_first_not_of(" \t\r\n") == std::string::npos) return fail(0, "the text is empty");
  TreeBuilder builder(source, mistakes);
  const bool parsed = Json::sax_parse(source->text, &builder);
  if (builder.failure()) return fail(builder.failure()->first, builder.failure()->second);
  if (!parsed) return fail(0, "no JSON");
  return builder.Take();
}

}  // namespace orlix
