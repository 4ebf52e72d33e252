#pragma once
// Standard error: log lines, and one line of progress that is drawn over itself on a terminal.

#include <chrono>
#include <mutex>
#include <string>
#include <string_view>

namespace orlix {

class Console {
 public:
  // Colours only on a terminal that wants them: NO_COLOR and TERM=dumb are kept.
  Console();

  bool terminal() const { return terminal_; }
  bool colours() const { return colours_; }
  // A whole line; the progress line gives way and comes back.
  void Line(std::string_view text);
  // Replaces the progress line; only on a terminal. An empty text takes it away.
  void ShowProgress(std::string_view text);

 private:
  std::mutex mutex_;
  bool terminal_, colours_;
  std::string progress_;
  int Columns() const;
  void Draw(std::string_view text);
};

// Sends log messages of this level and above ("trace" to "critical", "off") to the console.
void InstallLog(Console& console, const std::string& level);

}  // namespace orlix
