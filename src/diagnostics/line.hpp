#pragma once

#include <array>
#include <climits>
#include <cstdint>
#include <ostream>
#include <streambuf>
#include <string_view>

/// The library's lines on standard output and standard error.
namespace kelvara::diagnostics {

/// One line, its numbers in the classic locale. It is assembled first and written at the end of the
/// statement, in one piece:
///
///     error_line() << "[control_loop] exception: " << error.what();
///
/// Any thread may write one. Writing allocates nothing, throws nothing and never waits for the
/// stream's reader: a line that the stream does not take at once is dropped and counted. When the
/// stream takes lines again, one line with their number comes first. A stream to which the
/// application has given a buffer of its own is written through that buffer.
///
/// A line holds PIPE_BUF bytes, so that a pipe takes all of it or nothing; the rest is cut.
class Line {
 public:
  explicit Line(std::ostream& stream);
  ~Line();
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  template <typename Value>
  Line& operator<<(const Value& value) {
    text_ << value;
    return *this;
  }

 private:
  /// Refuses what does not fit.
  class Buffer : public std::streambuf {
   public:
    Buffer() { setp(text_.data(), text_.data() + text_.size() - 1); }  // one byte is left to end it
    /// Ends the line.
    std::string_view finish();

   private:
    std::array<char, PIPE_BUF> text_{};
  };

  std::ostream& stream_;
  Buffer buffer_;
  std::ostream text_;
};

/// A line on standard error.
Line error_line();
/// A line on standard output.
Line output_line();

/// Lines dropped since the process started, on both streams. Any thread; does not block.
std::uint64_t dropped_lines();

/// Marks the calling thread as one that must not wait for the application's own output either. The
/// lines of other threads follow what the application has printed before them, as they do when
/// written through the streams. Those of a marked thread can overtake text that the application has
/// left in the buffer of standard output, unless that is a file.
void mark_time_critical_thread();

}  // namespace kelvara::diagnostics
