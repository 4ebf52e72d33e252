#pragma once
// What a check against the world measured, beside what was expected. With ORLIX_VALIDATION=FOLDER in the environment it
// is written there as NAME.csv, from which tests/validation/plot.py draws the pictures of docs/validation.md.

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace orlix::test {

class Curve {
 public:
  Curve(std::string name, std::string columns) : name_(std::move(name)), columns_(std::move(columns)) {}
  ~Curve() {
    const char* folder = std::getenv("ORLIX_VALIDATION");
    if (!folder) return;
    std::ofstream out(std::string(folder) + "/" + name_ + ".csv");
    out << columns_ << "\n";
    for (const auto& row : rows_) {
      for (std::size_t n = 0; n < row.size(); ++n) out << (n ? "," : "") << row[n];
      out << "\n";
    }
  }
  Curve(const Curve&) = delete;
  Curve& operator=(const Curve&) = delete;
  void Add(std::vector<double> row) { rows_.push_back(std::move(row)); }

 private:
  std::string name_, columns_;
  std::vector<std::vector<double>> rows_;
};

}  // namespace orlix::test
