#include "host/script/Lexer.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <optional>

namespace orlix::script {

namespace {

struct Spelling {
  std::string_view text;
  TokenKind kind;
};

constexpr Spelling kKeywords[] = {
    {"var", TokenKind::Var},       {"if", TokenKind::If},
    {"else", TokenKind::Else},     {"while", TokenKind::While},
    {"for", TokenKind::For},       {"break", TokenKind::Break},
    {"return", TokenKind::Return}, {"continue", TokenKind::Continue},
};

// Longer ones before those that they start with.
constexpr Spelling kPunctuation[] = {
    {"+=", TokenKind::AddAssign},
    {"-=", TokenKind::SubtractAssign},
    {"*=", TokenKind::MultiplyAssign},
    {"/=", TokenKind::DivideAssign},
    {"++", TokenKind::Increment},
    {"--", TokenKind::Decrement},
    {"&&", TokenKind::And},
    {"||", TokenKind::Or},
    {"<=", TokenKind::LessEqual},
    {">=", TokenKind::GreaterEqual},
    {"==", TokenKind::Equal},
    {"!=", TokenKind::NotEqual},
    {"(", TokenKind::LeftParenthesis},
    {")", TokenKind::RightParenthesis},
    {"{", TokenKind::LeftBrace},
    {"}", TokenKind::RightBrace},
    {",", TokenKind::Comma},
    {";", TokenKind::Semicolon},
    {".", TokenKind::Dot},
    {"?", TokenKind::Question},
    {":", TokenKind::Colon},
    {"=", TokenKind::Assign},
    {"+", TokenKind::Plus},
    {"-", TokenKind::Minus},
    {"*", TokenKind::Star},
    {"/", TokenKind::Slash},
    {"%", TokenKind::Percent},
    {"!", TokenKind::Not},
    {"<", TokenKind::Less},
    {">", TokenKind::Greater},
};

constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
constexpr bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

class Lexer {
 public:
  explicit Lexer(std::string_view source) : source_(source) {}

  Outcome<std::vector<Token>> Run() {
    while (SkipBlanks() && at_ < source_.size()) {
      if (!ReadToken()) break;
    }
    if (error_) return *error_;
    tokens_.push_back({TokenKind::End, {}, source_.size(), 0});
    return std::move(tokens_);
  }

 private:
  char Peek(std::size_t ahead = 0) const { return at_ + ahead < source_.size() ? source_[at_ + ahead] : '\0'; }
  bool Fail(std::size_t offset, std::string text) {
    error_ = ErrorAt(source_, offset, std::move(text));
    return false;
  }
  void Take(TokenKind kind, std::size_t length, double number = 0) {
    tokens_.push_back({kind, source_.substr(at_, length), at_, number});
    at_ += length;
  }

  bool SkipBlanks() {
    while (at_ < source_.size()) {
      if (IsBlank(source_[at_])) {
        ++at_;
      } else if (source_.substr(at_, 2) == "//") {
        at_ = std::min(source_.find('\n', at_), source_.size());
      } else if (source_.substr(at_, 2) == "/*") {
        const auto end = source_.find("*/", at_ + 2);
        if (end == std::string_view::npos) return Fail(at_, "the comment has no end: \"*/\" is missing");
        at_ = end + 2;
      } else {
        return true;
      }
    }
    return true;
  }

  bool ReadToken() {
    if (IsLetter(Peek())) return ReadName();
    if (IsDigit(Peek()) || (Peek() == '.' && IsDigit(Peek(1)))) return ReadNumber();
    for (const Spelling& spelling : kPunctuation) {
      if (source_.substr(at_, spelling.text.size()) != spelling.text) continue;
      Take(spelling.kind, spelling.text.size());
      return true;
    }
    return Fail(at_, fmt::format("{} is no part of the language", Shown(source_.substr(at_, 1))));
  }

  bool ReadName() {
    std::size_t length = 1;
    while (IsLetter(Peek(length)) || IsDigit(Peek(length))) ++length;
    TokenKind kind = TokenKind::Name;
    for (const Spelling& keyword : kKeywords) {
      if (source_.substr(at_, length) == keyword.text) kind = keyword.kind;
    }
    Take(kind, length);
    return true;
  }

  bool ReadNumber() {
    double number = 0;
    const char* begin = source_.data() + at_;
    const auto [end, code] = std::from_chars(begin, source_.data() + source_.size(), number);
    const auto length = static_cast<std::size_t>(end - begin);
    if (code == std::errc::result_out_of_range || !std::isfinite(number)) {
      return Fail(at_, fmt::format("{} is beyond the range of numbers", Shown(source_.substr(at_, length))));
    }
    if (IsLetter(Peek(length))) {
      return Fail(at_ + length, fmt::format("{} follows a number without an operator between",
                                            Shown(source_.substr(at_ + length, 1))));
    }
    Take(TokenKind::Number, length, number);
    return true;
  }

  std::string_view source_;
  std::size_t at_ = 0;
  std::vector<Token> tokens_;
  std::optional<ScriptError> error_;
};

}  // namespace

Outcome<std::vector<Token>> Tokenize(std::string_view source) { return Lexer(source).Run(); }

bool IsName(std::string_view text) {
  const auto tokens = Tokenize(text);
  const auto* list = std::get_if<std::vector<Token>>(&tokens);
  return list && list->size() == 2 && (*list)[0].kind == TokenKind::Name && (*list)[0].text == text;
}

}  // namespace orlix::script
