#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace tour {

/// What the steps of the tour reached.
class Results {
 public:
  void note(const std::string& step, const std::string& figure, double value, const char* unit) {
    rows_.push_back({step, figure, value, unit});
  }

  void print() const {
    std::puts("\nResults, as the arm reports them");
    for (const Row& row : rows_) {
      std::printf("  %-18s %-32s %9.4f %s\n", row.step.c_str(), row.figure.c_str(), row.value,
                  row.unit);
    }
  }

 private:
  struct Row {
    std::string step, figure;
    double value;
    const char* unit;
  };

  std::vector<Row> rows_;
};

}  // namespace tour
