#pragma once

#include <cstddef>
#include <string_view>

namespace kelvara::diagnostics {

/// Writes as much of a text as the descriptor takes at once, and returns how many bytes that was.
/// Never waits for a reader, and changes no flag of the descriptor, which the application shares.
/// A reader that has gone raises no SIGPIPE.
///
/// Waits like any write does for the disk of a regular file. A pipe or a terminal that the process
/// may not open again is polled first; there, a write of another process in between can still
/// block.
/// @param text At most PIPE_BUF bytes: a pipe takes all of it or nothing.
std::size_t write_at_once(int descriptor, std::string_view text) noexcept;

/// Whether the descriptor is a regular file, which has no reader to wait for.
bool is_regular_file(int descriptor) noexcept;

/// Whether a pipe, a terminal or a socket takes PIPE_BUF bytes at present.
bool is_ready(int descriptor) noexcept;

}  // namespace kelvara::diagnostics
