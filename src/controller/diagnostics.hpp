#pragma once

#include <iostream>

#include "description/classic_stream.hpp"

namespace kelvara::controller {

/// One line of diagnostics, its numbers in the classic locale. It is assembled first and written at
/// the end of the statement, so that lines of several threads do not mix:
///
///     error_line() << "[control_loop] exception: " << error.what();
class Line {
 public:
  explicit Line(std::ostream& stream) : stream_(stream) {}
  ~Line() {
    try {
      text_ << '\n';
      stream_ << text_.str() << std::flush;
    } catch (...) {  // NOLINT(bugprone-empty-catch)
      // Without memory for it the line is dropped.
    }
  }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  template <typename Value>
  Line& operator<<(const Value& value) {
    text_ << value;
    return *this;
  }

 private:
  std::ostream& stream_;
  description::ClassicStream text_;
};

/// A line on standard error.
inline Line error_line() { return Line(std::cerr); }
/// A line on standard output.
inline Line output_line() { return Line(std::cout); }

}  // namespace kelvara::controller
