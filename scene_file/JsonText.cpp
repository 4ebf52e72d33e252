#include "scene_file/JsonText.h"

#include <fmt/format.h>

#include "scene_file/JsonReader.h"

namespace orlix {

namespace {

constexpr std::size_t kMaxBareWord = 4096;
constexpr std::size_t kNone = std::string::npos;

// Bytes of the UTF-8 sequence at i, 0 when it is ill-formed (overlong, a surrogate, beyond U+10FFFF, cut short).
std::size_t Utf8Length(const std::string& text, std::size_t i) {
  const auto byte = [&](std::size_t k) { return k < text.size() ? static_cast<unsigned char>(text[k]) : 0u; };
  const unsigned lead = byte(i), second = byte(i + 1);
  if (lead < 0x80) return 1;
  const std::size_t length = lead >= 0xF5 ? 0 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 ? 2 : 0;
  if (length == 0) return 0;
  const unsigned low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const unsigned high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  if (second < low || second > high) return 0;
  for (std::size_t k = 2; k < length; ++k) {
    if ((byte(i + k) & 0xC0) != 0x80) return 0;
  }
  return length;
}

class Cleaner {
 public:
  explicit Cleaner(std::string& text) : text_(text) {}

  std::optional<TextMistake> Run() {
    if (text_.starts_with("\xEF\xBB\xBF")) Blank(0, 3);
    if (auto mistake = FindNoUtf8(text_)) return mistake;
    std::size_t i = 0;
    while (i < text_.size() && !mistake_) i = Step(i);
    return std::move(mistake_);
  }

 private:
  std::string& text_;
  std::optional<TextMistake> mistake_;
  int depth_ = 0;
  std::size_t comma_ = kNone;  // a comma with only blanks after it so far
  bool valueBefore_ = false;   // whether the last token ends a value: then a comma may follow

  void Blank(std::size_t from, std::size_t to) {
    for (std::size_t k = from; k < to; ++k) {
      if (text_[k] != '\n' && text_[k] != '\r') text_[k] = ' ';
    }
  }

  std::size_t Step(std::size_t i) {
    const char c = text_[i];
    if (c == ' ' || c == '\t' || c == '\n' || c == '\r') return i + 1;
    if (c == '/') return Comment(i);
    if (c == ',') {
      comma_ = valueBefore_ ? i : kNone;
      valueBefore_ = false;
      return i + 1;
    }
    if (c == '}' || c == ']') {
      if (comma_ != kNone) text_[comma_] = ' ';
      --depth_;
      valueBefore_ = true;
      comma_ = kNone;
      return i + 1;
    }
    comma_ = kNone;
    valueBefore_ = false;
    if (c == ':') return i + 1;
    if (c == '{' || c == '[') {
      if (++depth_ > kMaxJsonDepth) {
        mistake_ = TextMistake{i, fmt::format("nested deeper than {}", kMaxJsonDepth)};
      }
      return i + 1;
    }
    valueBefore_ = true;
    return c == '"' ? String(i) : Word(i);
  }

  std::size_t Comment(std::size_t i) {
    const char kind = i + 1 < text_.size() ? text_[i + 1] : ' ';
    if (kind == '/') {
      const std::size_t end = std::min(text_.find('\n', i), text_.size());
      Blank(i, end);
      return end;
    }
    if (kind != '*') {
      mistake_ = TextMistake{i, "unexpected \"/\": a comment starts with \"//\""};
      return i;
    }
    const std::size_t close = text_.find("*/", i + 2);
    if (close == kNone) {
      mistake_ = TextMistake{i, "this comment has no end"};
      return i;
    }
    Blank(i, close + 2);
    return close + 2;
  }

  std::size_t String(std::size_t i) {
    std::size_t k = i + 1;
    while (k < text_.size() && text_[k] != '"') {
      if (text_[k] == '\n') break;
      k += text_[k] == '\\' ? 2 : 1;
      if (k - i > kMaxJsonString) {
        mistake_ = TextMistake{i, fmt::format("a string longer than {} bytes", kMaxJsonString)};
        return k;
      }
    }
    if (k >= text_.size() || text_[k] == '\n') mistake_ = TextMistake{i, "this string has no closing quote"};
    return k + 1;
  }

  std::size_t Word(std::size_t i) {
    const std::size_t end = std::min(text_.find_first_of(" \t\r\n,:{}[]\"/", i), text_.size());
    if (end - i > kMaxBareWord) mistake_ = TextMistake{i, "a number or word longer than any that has a meaning"};
    return end;
  }
};

}  // namespace

std::optional<TextMistake> FindNoUtf8(const std::string& text) {
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = Utf8Length(text, i);
    if (length == 0) {
      return TextMistake{i, fmt::format("the byte 0x{:02X} is no UTF-8", static_cast<unsigned char>(text[i]))};
    }
    i += length;
  }
  return {};
}

std::optional<TextMistake> CleanJsonText(std::string& text) { return Cleaner(text).Run(); }

}  // namespace orlix
