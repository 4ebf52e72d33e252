#pragma once
// What the host shows while it works: one line of text. The program prints it as progress; a test reads it back.

#include <functional>
#include <string>

namespace orlix {

class StatusLine {
 public:
  // Called with each new text; an empty text clears the line.
  std::function<void(const std::string&)> onChange;

  void Set(std::string text) {
    text_ = std::move(text);
    if (onChange) onChange(text_);
  }
  void Clear() { Set({}); }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

}  // namespace orlix
