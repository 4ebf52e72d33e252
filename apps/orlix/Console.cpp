#include "apps/orlix/Console.h"

#include <fmt/format.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "scene_file/Mistakes.h"

namespace orlix {

namespace {

bool IsSet(const char* variable) {
  const char* value = std::getenv(variable);
  return value && *value;
}

bool IsDumb() {
  const char* term = std::getenv("TERM");
  return !term || std::strcmp(term, "dumb") == 0;
}

const char* ColourOf(spdlog::level::level_enum level) {
  return level >= spdlog::level::err ? "\x1b[31m" : level == spdlog::level::warn ? "\x1b[33m" : "\x1b[2m";
}

class ConsoleSink : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
 public:
  explicit ConsoleSink(Console& console) : console_(console) {}

 protected:
  void sink_it_(const spdlog::details::log_msg& message) override {
    const std::string_view text(message.payload.data(), message.payload.size());
    const auto name = spdlog::level::to_string_view(message.level);
    const std::string_view level(name.data(), name.size());
    if (message.level == spdlog::level::info) return console_.Line(text);
    if (console_.colours()) return console_.Line(fmt::format("{}{}:\x1b[0m {}", ColourOf(message.level), level, text));
    console_.Line(fmt::format("{}: {}", level, text));
  }
  void flush_() override {}

 private:
  Console& console_;
};

}  // namespace

Console::Console() : terminal_(isatty(STDERR_FILENO) == 1 && !IsDumb()), colours_(terminal_ && !IsSet("NO_COLOR")) {}

int Console::Columns() const {
  winsize size{};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 10 ? size.ws_col : 80;
}

void Console::Draw(std::string_view text) {
  const std::string cut = Shortened(text, static_cast<std::size_t>(Columns()) - 4);
  std::fprintf(stderr, "\r%s\x1b[K", cut.c_str());
  std::fflush(stderr);
}

void Console::Line(std::string_view text) {
  const std::lock_guard lock(mutex_);
  if (!progress_.empty()) Draw("");
  std::fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
  if (!progress_.empty()) Draw(progress_);
}

void Console::ShowProgress(std::string_view text) {
  if (!terminal_) return;
  const std::lock_guard lock(mutex_);
  if (text.empty() && progress_.empty()) return;
  progress_ = text;
  Draw(progress_);
}

void InstallLog(Console& console, const std::string& level) {
  auto logger = std::make_shared<spdlog::logger>("orlix", std::make_shared<ConsoleSink>(console));
  logger->set_level(spdlog::level::from_str(level));
  spdlog::set_default_logger(std::move(logger));
}

}  // namespace orlix
