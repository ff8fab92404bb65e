#include "diagnostics/line.hpp"

#include <stdio_ext.h>

#include <atomic>
#include <climits>
#include <cstdio>
#include <iostream>
#include <locale>
#include <string_view>

#include <ext/stdio_filebuf.h>
#include <ext/stdio_sync_filebuf.h>

#include "diagnostics/nonblocking_write.hpp"

namespace kelvara::diagnostics {
namespace {

/// What one of the two streams has not taken. Atomics without a lock: a line may come from any
/// thread, at the end of the process and in a forked child.
struct Losses {
  std::atomic<std::uint64_t> dropped{0};  // lines, since the last one that was reported
  std::atomic<bool> is_cut{false};        // the last text ended in the middle
};

Losses output_losses;
Losses error_losses;
std::atomic<std::uint64_t> dropped_in_all{0};
thread_local bool is_time_critical = false;

/// The descriptor behind a stream whose buffer is the C++ library's own; negative for another.
int descriptor_of(const std::ostream& stream) {
  if (auto* synced = dynamic_cast<__gnu_cxx::stdio_sync_filebuf<char>*>(stream.rdbuf())) {
    return fileno(synced->file());
  }
  if (auto* file = dynamic_cast<__gnu_cxx::stdio_filebuf<char>*>(stream.rdbuf())) {
    return file->fd();
  }
  return -1;
}

/// Flushes what the application has printed on standard output, if that neither waits for its
/// reader nor for a thread that is printing.
void flush_printed_text() {
  const std::size_t pending = __fpending(stdout);
  if (pending == 0 || ftrylockfile(stdout) != 0) {
    return;
  }
  // Another process can still fill a pipe after it was polled.
  const int descriptor = fileno(stdout);
  if (is_regular_file(descriptor) ||
      (!is_time_critical && pending <= PIPE_BUF && is_ready(descriptor))) {
    fflush_unlocked(stdout);
  }
  funlockfile(stdout);
}

/// Writes through a buffer that the application has provided.
std::size_t write_through(std::ostream& stream, std::string_view text) noexcept {
  try {
    stream.write(text.data(), static_cast<std::streamsize>(text.size())).flush();
    return stream ? text.size() : 0;
  } catch (...) {
    return 0;
  }
}

bool write_text(std::ostream& stream, Losses& losses, std::string_view text) {
  const int descriptor = descriptor_of(stream);
  const std::size_t taken =
      descriptor < 0 || !stream ? write_through(stream, text) : write_at_once(descriptor, text);
  if (taken > 0) {
    losses.is_cut = taken < text.size();
  }
  return taken == text.size();
}

/// Reports the lines that the stream has not taken; false when it does not take the report either.
bool report_losses(std::ostream& stream, Losses& losses) {
  const std::uint64_t lines = losses.dropped.exchange(0);
  if (lines == 0) {
    return true;
  }
  std::array<char, 128> report{};
  const int size = std::snprintf(report.data(), report.size(),
                                 "%s[diagnostics] %llu lines dropped: the stream was not read\n",
                                 losses.is_cut ? "\n" : "", static_cast<unsigned long long>(lines));
  if (write_text(stream, losses, {report.data(), static_cast<std::size_t>(size)})) {
    return true;
  }
  losses.dropped += lines;
  return false;
}

}  // namespace

std::string_view Line::Buffer::finish() {
  *pptr() = '\n';
  return {text_.data(), static_cast<std::size_t>(pptr() - text_.data()) + 1};
}

Line::Line(std::ostream& stream) : stream_(stream), text_(&buffer_) {
  text_.imbue(std::locale::classic());
}

Line::~Line() {
  Losses& losses = &stream_ == &std::cout ? output_losses : error_losses;
  if (descriptor_of(stream_) >= 0) {
    flush_printed_text();
  }
  if (!report_losses(stream_, losses) || !write_text(stream_, losses, buffer_.finish())) {
    ++losses.dropped;
    ++dropped_in_all;
  }
}

Line error_line() { return Line(std::cerr); }
Line output_line() { return Line(std::cout); }

std::uint64_t dropped_lines() { return dropped_in_all; }

void mark_time_critical_thread() { is_time_critical = true; }

}  // namespace kelvara::diagnostics
